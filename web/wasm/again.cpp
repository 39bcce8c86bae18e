#include "ui/gui_batch/again.h"

#include <iostream>

#include <emscripten.h>

#include "ui/gui_batch/search.h"

namespace {

// The board, and all else that is in the memory of this program, once more.
EM_JS(void, keep_memory, (), { Module.keptMemory = HEAPU8.slice(); });

// The answer cannot stay where it was.
EM_JS(void, restore_memory, (double pc, double count), {
    HEAPU8.set(Module.keptMemory);
    Module.keptMemory = null;
    Module.writer = {pc : pc, count : count};
});

EM_JS(double, writer_pc, (), { return Module.writer.pc; });
EM_JS(double, writer_count, (), { return Module.writer.count; });

constexpr double UNKNOWN = -2;

} // namespace

// There is no process of its own to be had: what the search changes in the memory is put back.
std::optional<writer_t> find_writer_again(int32_t address, bool (*begin)()) {
    keep_memory();
    std::cout.rdbuf(nullptr);
    std::cerr.rdbuf(nullptr);
    const std::optional<writer_t> writer = search_writer(address, begin);
    restore_memory(writer ? writer->pc : UNKNOWN, writer ? static_cast<double>(writer->count) : 0);
    if (writer_pc() == UNKNOWN) {
        return std::nullopt;
    }
    return writer_t{static_cast<int32_t>(writer_pc()), static_cast<uint64_t>(writer_count())};
}
