#include "devices/save.h"

#include "base/gui.h"
#include "base/machine.h"
#include "host/journal.h"

// bytes_of takes words as they stand in memory.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);

bool is_dat(const std::string& name) { return name.ends_with(".dat"); }

saved_e save_chosen(const save_t& save, std::string& filename) {
    if (!gui_choosefile(true, save.title, save.filter_name, save.extension, filename)) {
        return saved_e::CANCELLED;
    }
    try {
        if (!save.has_extension(filename)) {
            throw tovik_error("filename must end in ." + save.extension);
        }
        through_journal(door_e::SAVE, [&] {
            saved_file_t file(filename);
            save.write(file);
            file.close();
            return given_t{};
        });
        return saved_e::SAVED;
    } catch (const tovik_error& error) {
        gui_message(error.message, true);
        return saved_e::FAILED;
    }
}
