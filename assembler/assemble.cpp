#include "assembler/assemble.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <system_error>

#include "assembler/image.h"
#include "assembler/translate.h"
#include "base/machine.h"
#include "base/messages.h"

namespace {

struct outputs_t {
    std::optional<output_file_t> image;
    std::optional<output_file_t> list;
};

// Links can make two names one file; writing to one would destroy the other.
void check_differ(const std::string& output, const std::string& other) {
    std::error_code missing;
    if (std::filesystem::is_regular_file(output, missing) &&
        std::filesystem::equivalent(output, other, missing)) {
        throw tovik_error("can't open file " + output + ": it is the same file as " + other);
    }
}

void open_outputs(outputs_t& outputs, const std::string& source) {
    if (!source.ends_with(".k")) {
        throw tovik_error("K24 assembly file must end in .k");
    }
    const std::string base = source.substr(0, source.size() - 2);
    const std::string image = base + ".mif";
    const std::string list = base + ".labels";
    check_differ(image, source);
    check_differ(list, source);
    check_differ(list, image);
    outputs.image.emplace(image);
    outputs.list.emplace(list);
}

// Addresses only grow in a source, so the words stand in its order.
void print_words(output_file_t& image, const source_map_t& map) {
    for (size_t address = 0; address < map.words.size(); ++address) {
        if (map.words[address].kind != word_e::NONE) {
            print_machine_line(image, static_cast<int32_t>(address), map.words[address].value);
        }
    }
}

// Returns the report of the first fault of the source, empty for none. What comes before the fault is
// printed.
std::string translate_into(outputs_t& outputs, const std::string& source) {
    const translation_t translation = translate(source);
    const source_map_t& map = translation.analysis.map;
    print_header(*outputs.image);
    for (const label_t& label : map.labels) {
        print_label_line(*outputs.list, name_of(map, label), label.address);
    }
    print_words(*outputs.image, map);
    if (translation.report.empty()) {
        print_trailer(*outputs.image);
    }
    return translation.report;
}

std::string try_to_translate(outputs_t& outputs, const std::string& source) {
    try {
        open_outputs(outputs, source);
        return translate_into(outputs, source);
    } catch (const tovik_error& fault) {
        return fault.message;
    }
}

} // namespace

bool assemble(const std::string& source_file_name) {
    outputs_t outputs;
    std::string report = try_to_translate(outputs, source_file_name);
    // What was made so far is in the files before anyone reads why there is no more.
    try {
        if (outputs.image) {
            save_together(*outputs.image, outputs.list ? &*outputs.list : nullptr);
        }
    } catch (const tovik_error& not_written) {
        report = report.empty() ? not_written.message : report;
    }
    // A new file that has not taken its name must not stay while a dialog is open.
    outputs.image.reset();
    outputs.list.reset();
    if (!report.empty()) {
        show_error(report);
    }
    return report.empty();
}
