#include "devices/save.h"

#include <bit>

#include "core/files.h"
#include "core/machine.h"
#include "ui/gui.h"

// bytes_of takes words as they stand in memory.
static_assert(std::endian::native == std::endian::little);

saved_e save_chosen(const save_t& save, std::string& filename, std::string_view (*data)()) {
    if (!gui_choosefile(true, save.title, save.filter_name, save.extension, filename)) {
        return saved_e::CANCELLED;
    }
    try {
        if (!filename.ends_with("." + save.extension)) {
            throw tovik_error("filename must end in ." + save.extension);
        }
        save_file(filename, data());
        return saved_e::SAVED;
    } catch (const tovik_error& error) {
        gui_message(error.message, true);
        return saved_e::FAILED;
    }
}
