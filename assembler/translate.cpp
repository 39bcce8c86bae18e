#include "assembler/translate.h"

#include <utility>

#include "assembler/passes.h"
#include "base/machine.h"

namespace {

// Sorts the uses by their labels; those of one label keep their order.
void group_uses(passes_t& passes) {
    source_map_t& map = map_of(passes);
    for (const auto& [label, use] : passes.uses) {
        ++map.labels[label].use_count;
    }
    uint32_t next = 0;
    for (label_t& label : map.labels) {
        label.first_use = next;
        next += std::exchange(label.use_count, 0);
    }
    map.uses.resize(next);
    for (const auto& [index, use] : passes.uses) {
        label_t& label = map.labels[index];
        map.uses[label.first_use + label.use_count++] = use;
    }
}

translation_t run(passes_t& passes, const std::string& name) {
    map_of(passes).words.resize(MEMORY_SIZE);
    find_addresses(passes, name);
    if (!passes.over) {
        encode(passes);
    }
    group_uses(passes);
    return std::move(passes.result);
}

} // namespace

translation_t translate(const std::string& name) {
    passes_t passes;
    passes.first_only = true;
    return run(passes, name);
}

translation_t translate_all(const std::string& name, const read_file_t& read) {
    passes_t passes;
    passes.reading.read = &read;
    return run(passes, name);
}
