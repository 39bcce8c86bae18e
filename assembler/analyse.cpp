#include "assembler/analyse.h"

#include <utility>

#include "assembler/translate.h"

analysis_t analyse(const std::string& name, const read_file_t& read) {
    return std::move(translate_all(name, read).analysis);
}
