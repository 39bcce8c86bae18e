#include "assembler/assemble.h"

#include <algorithm>
#include <filesystem>
#include <optional>

#include "assembler/image.h"
#include "assembler/numbers.h"
#include "assembler/source.h"
#include "base/arithmetic.h"
#include "base/machine.h"
#include "base/messages.h"

namespace {

struct mnemonic_t {
    std::string_view name;
    int32_t opcode;
    size_t operands; // in the source
};

// cpdata has no opcode of its own: it is a cp that carries its value in its own last word.
constexpr std::string_view CPDATA = "cpdata";
constexpr int32_t CPDATA_VALUE_OFFSET = 3;

constexpr mnemonic_t MNEMONICS[] = {
    {"halt", K24_HALT, 0}, {"add", K24_ADD, 3}, {"sub", K24_SUB, 3}, {"mult", K24_MULT, 3},
    {"div", K24_DIV, 3},   {"cp", K24_CP, 2},   {"and", K24_AND, 3}, {"or", K24_OR, 3},
    {"not", K24_NOT, 2},   {"sl", K24_SL, 3},   {"sr", K24_SR, 3},   {"cpfa", K24_CPFA, 3},
    {"cpta", K24_CPTA, 3}, {"be", K24_BE, 3},   {"bne", K24_BNE, 3}, {"blt", K24_BLT, 3},
    {"call", K24_CALL, 2}, {"ret", K24_RET, 1}, {CPDATA, K24_CP, 2},
};

const mnemonic_t* find_mnemonic(std::string_view name) {
    const auto* const found = std::ranges::find(MNEMONICS, name, &mnemonic_t::name);
    return found == std::end(MNEMONICS) ? nullptr : found;
}

// Everything that one assembly knows.
struct assembly_t {
    std::optional<output_file_t> image;
    std::optional<output_file_t> list;
    label_table_t labels;
    file_stack_t files;
    parsed_line_t parsed;
    int32_t counter = 0; // the address of the next word
};

// Moves on to the next line that is not an include, through the files that end and those that begin on the
// way. Returns false when the main file has ended.
bool next_line(assembly_t& assembly) {
    while (!assembly.files.open.empty()) {
        if (!get_parse_line(*assembly.files.open.back(), assembly.parsed)) {
            assembly.files.open.pop_back();
        } else if (assembly.parsed.label == "#include") {
            open_file(assembly.files, assembly.parsed.opcode);
        } else {
            return true;
        }
    }
    return false;
}

void move_origin(assembly_t& assembly) {
    const int32_t origin = string_to_number(assembly.parsed.label);
    if (origin < assembly.counter) {
        throw tovik_error("numeric label " + std::to_string(origin) + " is too low");
    }
    assembly.counter = origin;
}

void define_label(assembly_t& assembly) {
    const std::string_view label = assembly.parsed.label;
    if (!assembly.labels.emplace(label, assembly.counter).second) {
        throw tovik_error("duplicate label " + std::string(label));
    }
    print_label_line(*assembly.list, label, assembly.counter);
}

int32_t size_in_words(std::string_view opcode) {
    if (opcode == ".data") {
        return 1;
    }
    if (find_mnemonic(opcode) != nullptr) {
        return WORDS_PER_INSTRUCTION;
    }
    throw tovik_error("unknown opcode " + std::string(opcode));
}

// Pass 1: where everything goes.
void find_addresses(assembly_t& assembly, const std::string& source) {
    open_file(assembly.files, source);
    assembly.counter = 0;
    while (next_line(assembly)) {
        if (assembly.counter >= MEMORY_SIZE) {
            throw tovik_error("address " + std::to_string(assembly.counter) + " too large");
        }
        if (numeric(assembly.parsed.label)) {
            move_origin(assembly);
        } else if (!assembly.parsed.label.empty()) {
            define_label(assembly);
        }
        if (!assembly.parsed.opcode.empty()) {
            // An origin near the top of the 32-bit range wraps here; pass 2 refuses its first word.
            assembly.counter = wrap_add(assembly.counter, size_in_words(assembly.parsed.opcode));
        }
    }
}

void encode_data(assembly_t& assembly) {
    const auto& operands = assembly.parsed.operands;
    check_empty(operands[1]);
    print_machine_line(*assembly.image, assembly.counter, label_to_number(operands[0], assembly.labels));
    assembly.counter += 1;
}

// The opcode's word is written before the operands are looked at, and each operand's before the next.
void encode_instruction(assembly_t& assembly, const mnemonic_t& mnemonic) {
    const auto& operands = assembly.parsed.operands;
    const auto value = [&](size_t i) { return label_to_number(operands[i], assembly.labels); };
    const auto write = [&](int32_t offset, int32_t word) {
        print_machine_line(*assembly.image, assembly.counter + offset, word);
    };

    write(0, mnemonic.opcode);
    check_empty(mnemonic.operands < operands.size() ? operands[mnemonic.operands] : assembly.parsed.extra);
    if (mnemonic.name == CPDATA) {
        write(1, value(0));
        write(2, assembly.counter + CPDATA_VALUE_OFFSET);
        write(CPDATA_VALUE_OFFSET, value(1));
    } else {
        for (size_t i = 0; i < operands.size(); ++i) {
            write(static_cast<int32_t>(i) + 1, i < mnemonic.operands ? value(i) : 0);
        }
    }
    assembly.counter += WORDS_PER_INSTRUCTION;
}

// Pass 2: what goes there.
void encode(assembly_t& assembly, const std::string& source) {
    open_file(assembly.files, source);
    assembly.counter = 0;
    while (next_line(assembly)) {
        const parsed_line_t& parsed = assembly.parsed;
        // Only a file that changed since pass 1 can fail here.
        if (numeric(parsed.label)) {
            move_origin(assembly);
        }
        if (parsed.opcode == ".data") {
            encode_data(assembly);
        } else if (const mnemonic_t* const mnemonic = find_mnemonic(parsed.opcode)) {
            encode_instruction(assembly, *mnemonic);
        }
    }
}

// Links can make two names one file; writing to one would destroy the other.
void check_differ(const std::string& output, const std::string& other) {
    std::error_code missing;
    if (std::filesystem::is_regular_file(output, missing) &&
        std::filesystem::equivalent(output, other, missing)) {
        throw tovik_error("can't open file " + output + ": it is the same file as " + other);
    }
}

void translate(assembly_t& assembly, const std::string& source) {
    if (!source.ends_with(".k")) {
        throw tovik_error("K24 assembly file must end in .k");
    }
    const std::string base = source.substr(0, source.size() - 2);
    const std::string image = base + ".mif";
    const std::string list = base + ".labels";
    check_differ(image, source);
    check_differ(list, source);
    check_differ(list, image);
    assembly.image.emplace(image);
    assembly.list.emplace(list);
    print_header(*assembly.image);
    find_addresses(assembly, source);
    encode(assembly, source);
    print_trailer(*assembly.image);
}

// Returns the first fault of the source, or none.
std::optional<tovik_error> try_to_translate(assembly_t& assembly, const std::string& source) {
    try {
        translate(assembly, source);
        return std::nullopt;
    } catch (const tovik_error& fault) {
        return fault;
    }
}

void report_fault(const assembly_t& assembly, const tovik_error& fault) {
    std::string report;
    if (!assembly.files.open.empty()) {
        const input_file_t& file = *assembly.files.open.back();
        report = "error in " + std::string(file.name) + " at line number " +
                 std::to_string(file.line_number) + ": " + assembly.parsed.line + "\n";
    }
    report += fault.message;
    show_error(report);
}

} // namespace

bool assemble(const std::string& source_file_name) {
    assembly_t assembly;
    std::optional<tovik_error> fault = try_to_translate(assembly, source_file_name);
    // What was made so far is in the files before anyone reads why there is no more.
    try {
        if (assembly.image) {
            save_together(*assembly.image, assembly.list ? &*assembly.list : nullptr);
        }
    } catch (const tovik_error& not_written) {
        fault = fault.value_or(not_written);
    }
    // A new file that has not taken its name must not stay while a dialog is open.
    assembly.image.reset();
    assembly.list.reset();
    if (fault) {
        report_fault(assembly, *fault);
    }
    return !fault;
}

std::string_view mnemonic_of(int32_t opcode) {
    const auto* const found = std::ranges::find(MNEMONICS, opcode, &mnemonic_t::opcode);
    return found == std::end(MNEMONICS) ? std::string_view() : found->name;
}
