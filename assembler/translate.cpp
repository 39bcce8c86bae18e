#include "assembler/translate.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "assembler/explain.h"
#include "assembler/numbers.h"
#include "assembler/source.h"
#include "base/arithmetic.h"
#include "base/files.h"
#include "base/machine.h"
#include "base/text.h"

namespace {

// A message in a list is read on one line; a token can be as long as a file.
constexpr size_t LONGEST_MESSAGE = 200;

// Room for the lines of most programs from the start.
constexpr size_t BYTES_PER_LINE = 16;
constexpr size_t MOST_RESERVED = MEMORY_SIZE;

// The physical line that was read last, and where: the files that begin and end have lines 0.
struct reading_place_t {
    uint32_t inclusion = NOTHING; // none before the main file is open
    int32_t line = 0;
    std::string_view text;
};

// Everything that one translation knows.
struct passes_t {
    translation_t result;
    reading_t reading;
    reading_place_t at;
    uint32_t statement = NOTHING;  // the one at work; none between lines
    int32_t counter = 0;           // the address of the next word
    int32_t lines = 0;             // physical ones, of all files
    uint64_t bytes = 0;            // of these lines
    bool first_only = false;       // the first fault ends it
    bool over = false;             // it has ended: nothing more enters the map
    bool encoding = false;         // this is pass 2
    bool muted = false;            // what else is wrong with the line follows from what has been said
    bool beyond = false;           // it has been said that the memory is full
    bool incomplete = false;       // a part of the source is missing, and with it perhaps labels
    uint32_t doubled = NOTHING;    // the inclusion of which it was said that it is the second of its file
    std::set<uint32_t> unreadable; // files of which it has been said
    std::set<std::tuple<std::string_view, uint32_t, int32_t, uint32_t>> said; // codes and places of the list
    std::unordered_map<std::string_view, size_t> undefined;                   // index of the diagnostic
    std::vector<std::pair<uint32_t, use_t>> uses; // with their labels, in the order of the lines
    names_t names;
};

source_map_t& map_of(passes_t& passes) { return passes.result.analysis.map; }

std::string report_of(passes_t& passes, const std::string& text) {
    const source_map_t& map = map_of(passes);
    if (passes.at.inclusion == NOTHING) {
        return text;
    }
    uint32_t file = map.inclusions[passes.at.inclusion].file;
    int32_t line = passes.at.line;
    std::string_view line_as_read = passes.at.text;
    if (passes.encoding) {
        const statement_t& statement = map.statements[passes.statement];
        file = statement.file;
        line = statement.line;
        line_as_read = line_text(map, file, statement.line_begin);
    }
    std::string report =
        "error in " + map.files[file].name + " at line number " + std::to_string(line) + ": ";
    return report.append(line_as_read).append("\n").append(text);
}

uint32_t inclusion_at_work(passes_t& passes) {
    return passes.statement == NOTHING ? passes.at.inclusion
                                       : map_of(passes).statements[passes.statement].inclusion;
}

// Whether the inclusion repeats a file.
bool repeats(passes_t& passes, uint32_t inclusion) {
    const uint32_t file = inclusion == NOTHING ? NOTHING : map_of(passes).inclusions[inclusion].file;
    return file != NOTHING && passes.reading.known[file].inclusion != inclusion;
}

// What is wrong with a line of a file that is included twice is said once.
bool has_been_said(passes_t& passes, std::string_view code, const place_t& place) {
    const bool is_new = passes.said.emplace(code, place.file, place.line, place.first).second;
    return !is_new && repeats(passes, inclusion_at_work(passes));
}

// Whether the fault lies in what was meant as a comment. Then it is said so, and nothing else about the line.
bool in_foreign_comment(passes_t& passes, std::string_view code, const place_t& place) {
    if (passes.statement == NOTHING || code == code::TOO_LARGE || code == code::LOW_ORIGIN) {
        return false;
    }
    source_map_t& map = map_of(passes);
    statement_t& statement = map.statements[passes.statement];
    const std::optional<span_t> comment = foreign_comment(map, statement);
    if (!comment || place.last < place_of(statement, *comment).first) {
        return false;
    }
    passes.muted = true;
    statement.broken = true;
    diagnostic_t diagnostic{.place = place_of(statement, *comment), .code = code::FOREIGN_COMMENT};
    if (has_been_said(passes, diagnostic.code, diagnostic.place)) {
        return true;
    }
    explain_comment(diagnostic, text_of(map, statement.file, *comment));
    add_diagnostic(passes.result.analysis.diagnostics, std::move(diagnostic));
    return true;
}

// Takes note of a fault: `text` is what `assemble` reports. Returns the entry of the list, to be completed by
// those who know more about it; null when there is none.
diagnostic_t* fault(passes_t& passes, std::string_view code, const place_t& place, std::string text) {
    if (passes.over || passes.muted) {
        return nullptr;
    }
    if (passes.result.report.empty()) {
        passes.result.report = report_of(passes, text);
    }
    if (passes.first_only) {
        passes.over = true;
        return nullptr;
    }
    if (passes.statement != NOTHING) {
        map_of(passes).statements[passes.statement].faulty = true;
    }
    diagnostics_t& diagnostics = passes.result.analysis.diagnostics;
    if (!has_room(diagnostics)) {
        add_diagnostic(diagnostics, {.place = place});
        return nullptr;
    }
    if (in_foreign_comment(passes, code, place) || has_been_said(passes, code, place)) {
        return nullptr;
    }
    if (text.size() > LONGEST_MESSAGE) {
        text.replace(LONGEST_MESSAGE, std::string::npos, "...");
    }
    add_diagnostic(diagnostics, {.place = place, .code = code, .message = std::move(text)});
    diagnostic_t& diagnostic = diagnostics.list.back();
    const source_map_t& map = map_of(passes);
    if (passes.statement != NOTHING && explain_invisible(diagnostic, map, map.statements[passes.statement])) {
        passes.muted = true;
        return nullptr;
    }
    return &diagnostic;
}

// All that lies behind the end of the memory is one fault.
void fault_beyond(passes_t& passes, const place_t& place, std::string text) {
    if (passes.beyond || passes.muted) {
        return;
    }
    if (diagnostic_t* const diagnostic = fault(passes, code::TOO_LARGE, place, std::move(text))) {
        diagnostic->help = "the memory has the addresses 0 to " + std::to_string(MEMORY_SIZE - 1);
    }
    passes.beyond = true;
}

// Ends the reading of a source that multiplies itself.
void stop_reading(passes_t& passes, const std::string& text) {
    const source_map_t& map = map_of(passes);
    const uint32_t file = map.inclusions[passes.at.inclusion].file;
    fault(passes, code::TOO_LONG, {.file = file, .line = passes.at.line}, text);
    passes.incomplete = true;
    passes.reading.open.clear();
}

void fault_opening(passes_t& passes, const place_t& place, const opening_t& opening, std::string_view name) {
    passes.incomplete = true;
    if (!passes.unreadable.insert(opening.file).second) {
        return;
    }
    const std::string text = cant_open_text(map_of(passes).files[opening.file].name, opening.error);
    if (diagnostic_t* const diagnostic = fault(passes, code::CANNOT_OPEN, place, text)) {
        explain_include(*diagnostic, name);
    }
}

void include(passes_t& passes, const statement_t& line) {
    source_map_t& map = map_of(passes);
    if (!passes.first_only && map.inclusions.size() >= MOST_INCLUSIONS) {
        stop_reading(passes, "the program has more than " + std::to_string(MOST_INCLUSIONS) + " includes");
        return;
    }
    const std::string_view name = text_of(map, line.file, line.opcode);
    const place_t place = place_of(line, name.empty() ? line.label : line.opcode);
    map.inclusions.push_back({.parent = line.inclusion,
                              .line = line.line,
                              .line_begin = line.line_begin,
                              .name = name.empty() ? line.label : line.opcode});
    const opening_t opening = open_file(passes.reading, map, resolve_name(passes.reading, map, name));
    if (opening.result == opening_e::FAILED) {
        fault_opening(passes, place, opening, name);
    } else if (opening.result == opening_e::CYCLE) {
        const std::string text = "this include of " + std::string(name) + " closes a cycle";
        if (diagnostic_t* const diagnostic = fault(passes, code::INCLUDE_CYCLE, place, text)) {
            diagnostic->help = "the file is being read already";
        }
    }
}

void end_file(passes_t& passes) {
    const source_map_t& map = map_of(passes);
    const uint32_t file = map.inclusions[passes.at.inclusion].file;
    const source_file_t& source = map.files[file];
    if (source.error != 0) {
        passes.incomplete = true;
        if (passes.unreadable.insert(file).second) {
            fault(passes, code::CANNOT_READ, {.file = file, .line = passes.at.line},
                  cant_read_text(source.name, source.error));
        }
    }
    passes.reading.open.pop_back();
}

// Reports a carriage return inside of a line. The line is broken then.
bool is_broken(passes_t& passes, uint32_t file, const line_t& line) {
    const size_t at = stray_carriage_return(line.text);
    if (at == std::string_view::npos) {
        return false;
    }
    const auto column = static_cast<uint32_t>(at) + 1;
    const place_t place{.file = file, .line = passes.at.line, .first = column, .last = column};
    if (diagnostic_t* const diagnostic =
            fault(passes, code::CARRIAGE_RETURN, place, "carriage return in the middle of a line")) {
        diagnostic->help = "a line ends with a line feed, or with a carriage return and a line feed";
    }
    return true;
}

// Moves on to the next line that is not an include, through the files that end and those that begin on the
// way; it becomes the last statement of the map. Returns false when the main file has ended.
bool next_statement(passes_t& passes) {
    source_map_t& map = map_of(passes);
    while (!passes.reading.open.empty() && !passes.over) {
        level_t& level = passes.reading.open.back();
        const uint32_t file = map.inclusions[level.inclusion].file;
        const std::optional<line_t> line = read_line(level, map.files[file]);
        passes.at = {level.inclusion, level.line_number, line ? line->text : passes.at.text};
        passes.statement = NOTHING;
        passes.muted = false;
        if (!line) {
            end_file(passes);
            continue;
        }
        if (!passes.first_only && ++passes.lines > MOST_LINES) {
            stop_reading(passes, "the program has more than " + std::to_string(MOST_LINES) + " lines");
            return false;
        }
        passes.bytes += line->text.size();
        if (!passes.first_only && passes.bytes > MOST_BYTES) {
            stop_reading(passes,
                         "the lines of the program have more than " + std::to_string(MOST_BYTES) + " bytes");
            return false;
        }
        statement_t statement{
            .file = file, .inclusion = level.inclusion, .line = level.line_number, .line_begin = line->begin};
        statement.broken = is_broken(passes, file, *line);
        passes.muted = statement.broken;
        if (!split_line(*line, statement)) {
            continue;
        }
        if (text_of(map, file, statement.label) == "#include") {
            include(passes, statement);
            continue;
        }
        statement.faulty = statement.broken;
        passes.statement = static_cast<uint32_t>(map.statements.size());
        map.statements.push_back(statement);
        return !passes.over;
    }
    return false;
}

void move_origin(passes_t& passes, statement_t& statement) {
    const std::string text(text_of(map_of(passes), statement.file, statement.label));
    const place_t place = place_of(statement, statement.label);
    const std::optional<int32_t> origin = read_number(text);
    if (!origin) {
        if (diagnostic_t* const diagnostic =
                fault(passes, code::MALFORMED_NUMBER, place, text + " is a malformed number")) {
            explain_number(*diagnostic, text, true);
        }
    } else if (*origin < passes.counter) {
        if (diagnostic_t* const diagnostic =
                fault(passes, code::LOW_ORIGIN, place,
                      "numeric label " + std::to_string(*origin) + " is too low")) {
            diagnostic->help = "the address reached here is " + std::to_string(passes.counter);
        }
    } else {
        statement.origin = true;
        passes.counter = *origin;
    }
}

// The outermost inclusion that repeats a file, for one that does.
uint32_t repetition(passes_t& passes, uint32_t inclusion) {
    for (;;) {
        const uint32_t parent = map_of(passes).inclusions[inclusion].parent;
        if (!repeats(passes, parent)) {
            return inclusion;
        }
        inclusion = parent;
    }
}

// A file that is included twice defines all of its labels twice, which is one fault.
void fault_duplicate(passes_t& passes, const statement_t& statement, span_t token, const label_t& first) {
    const source_map_t& map = map_of(passes);
    const place_t place = place_of(statement, token);
    const place_t first_place = place_of(map, first);
    const bool twice = place == first_place;
    const uint32_t inclusion = twice ? repetition(passes, statement.inclusion) : NOTHING;
    if (twice && std::exchange(passes.doubled, inclusion) == inclusion) {
        return;
    }
    const std::string_view name = name_of(map, first);
    diagnostic_t* const diagnostic =
        fault(passes, code::DUPLICATE_LABEL, place, "duplicate label " + std::string(name));
    if (diagnostic == nullptr) {
        return;
    }
    if (twice) {
        diagnostic->help = "the file is included twice";
        diagnostic->related = {{place_of(map, map.inclusions[inclusion]), "included again here"}};
        return;
    }
    diagnostic->related = {{first_place, "first defined here"}};
    if (find_operation(name) != nullptr) {
        explain_first_column(*diagnostic, name);
        passes.muted = true;
    }
}

void define_label(passes_t& passes, statement_t& statement, span_t token) {
    source_map_t& map = map_of(passes);
    const uint32_t first = find_label(map, text_of(map, statement.file, token));
    if (first != NOTHING) {
        fault_duplicate(passes, statement, token, map.labels[first]);
    } else if (!passes.over) {
        statement.defines = add_label(map, {.statement = passes.statement,
                                            .file = statement.file,
                                            .address = passes.counter,
                                            .name = token});
    }
}

// What is known of a line whose operation is not known: it takes four words, and it may define a label.
// Returns its size in words.
int32_t recover(passes_t& passes, statement_t& statement) {
    const source_map_t& map = map_of(passes);
    statement.broken = true;
    passes.muted = true;
    const std::optional<span_t> comment = foreign_comment(map, statement);
    if (comment && comment->begin <= statement.opcode.begin) {
        return 0;
    }
    const meant_e meant = meant_by(map, statement);
    if (meant == meant_e::INCLUDE) {
        passes.incomplete = true;
    } else if (meant == meant_e::LABEL && statement.defines == NOTHING) {
        span_t label = statement.opcode;
        label.size -= text_of(map, statement.file, label).ends_with(':') ? 1 : 0;
        define_label(passes, statement, label);
    }
    return WORDS_PER_INSTRUCTION;
}

int32_t place_operation(passes_t& passes, statement_t& statement) {
    const source_map_t& map = map_of(passes);
    const std::string_view name = text_of(map, statement.file, statement.opcode);
    statement.operation = find_operation(name);
    if (statement.operation != nullptr) {
        return size_in_words(*statement.operation);
    }
    if (diagnostic_t* const diagnostic =
            fault(passes, code::UNKNOWN_OPCODE, place_of(statement, statement.opcode),
                  "unknown opcode " + std::string(name))) {
        explain_opcode(*diagnostic, map, statement, passes.names);
    }
    return recover(passes, statement);
}

void place_statement(passes_t& passes, statement_t& statement) {
    if (passes.counter >= MEMORY_SIZE) {
        const span_t first = statement.label.size != 0 ? statement.label : statement.opcode;
        fault_beyond(passes, place_of(statement, first),
                     "address " + std::to_string(passes.counter) + " too large");
    }
    if (numeric(text_of(map_of(passes), statement.file, statement.label))) {
        move_origin(passes, statement);
    } else if (statement.label.size != 0) {
        define_label(passes, statement, statement.label);
    }
    statement.address = passes.counter;
    if (statement.opcode.size != 0) {
        // An origin near the top of the 32-bit range wraps here; pass 2 refuses its first word.
        passes.counter = wrap_add(passes.counter, place_operation(passes, statement));
    }
}

// Pass 1: where everything goes.
void find_addresses(passes_t& passes, const std::string& name) {
    source_map_t& map = map_of(passes);
    map.inclusions.push_back({});
    const opening_t opening = open_file(passes.reading, map, name);
    map.inclusions.front().file = opening.file;
    if (opening.result != opening_e::OPENED) {
        fault_opening(passes, {.file = opening.file}, opening, {});
    }
    map.statements.reserve(std::min(map.files[opening.file].text.size() / BYTES_PER_LINE, MOST_RESERVED));
    while (next_statement(passes)) {
        place_statement(passes, map.statements.back());
    }
}

bool is_read(const statement_t& statement, size_t index) {
    return statement.operation != nullptr && index < statement.operation->count &&
           statement.operation->operands[index].role == role_e::READ;
}

int32_t fault_undefined(passes_t& passes, statement_t& statement, const operand_t& operand, bool read) {
    const source_map_t& map = map_of(passes);
    const std::string_view name = text_of(map, statement.file, operand.token);
    const place_t place = place_of(statement, operand.token);
    statement.faulty = true;
    // What is missing may define it.
    if (passes.muted || passes.incomplete) {
        return 0;
    }
    std::vector<diagnostic_t>& list = passes.result.analysis.diagnostics.list;
    if (const auto known = passes.undefined.find(name); known != passes.undefined.end()) {
        if (known->second < list.size() && list[known->second].code == code::UNDEFINED_LABEL) {
            diagnostic_t& said = list[known->second];
            add_related(said, {place, "also used here"});
            if (said.fix.size() == MOST_EDITS) {
                said.fix.clear();
            } else if (!said.fix.empty() && said.fix.front().place == said.place) {
                said.fix.push_back({place, said.fix.front().text});
            }
        }
        return 0;
    }
    diagnostic_t* const diagnostic =
        fault(passes, code::UNDEFINED_LABEL, place, "undefined label " + std::string(name));
    if (diagnostic != nullptr) {
        explain_label(*diagnostic, map, name, passes.names);
        if (read) {
            explain_read(*diagnostic);
        }
    }
    if (!passes.muted) {
        // Operands that are written as one are also too few.
        passes.muted = name.find_first_of(',') < name.size() - 1;
        passes.undefined.emplace(name, diagnostic == nullptr ? NOTHING : list.size() - 1);
    }
    return 0;
}

// The value of an operand of the source, which is 0 when it has none.
int32_t find_value(passes_t& passes, statement_t& statement, uint8_t index) {
    const source_map_t& map = map_of(passes);
    operand_t& operand = statement.operands[index];
    const std::string_view text = text_of(map, statement.file, operand.token);
    if (text.empty()) {
        if (diagnostic_t* const diagnostic =
                fault(passes, code::MISSING_OPERAND, place_of(statement, statement.opcode), "empty label")) {
            explain_count(*diagnostic, map, statement);
        }
        // All that would stand behind it is missing too.
        passes.muted = true;
        return 0;
    }
    if (numeric(text)) {
        const std::optional<int32_t> value = read_number(text);
        if (!value) {
            if (diagnostic_t* const diagnostic =
                    fault(passes, code::MALFORMED_NUMBER, place_of(statement, operand.token),
                          std::string(text) + " is a malformed number")) {
                explain_number(*diagnostic, text, false);
                if (is_read(statement, index)) {
                    explain_read(*diagnostic);
                }
            }
        }
        return value.value_or(0);
    }
    operand.label = find_label(map, text);
    if (operand.label == NOTHING) {
        return fault_undefined(passes, statement, operand, is_read(statement, index));
    }
    passes.uses.emplace_back(operand.label, use_t{.statement = passes.statement, .operand = index});
    return map.labels[operand.label].address;
}

void put_word(passes_t& passes, const statement_t& statement, int32_t offset, word_t word) {
    const int32_t address = wrap_add(statement.address, offset);
    if (address < 0 || address >= MEMORY_SIZE) {
        fault_beyond(passes, place_of(statement, statement.opcode),
                     "address " + std::to_string(address) + " out of range");
    } else if (!passes.over) {
        word.statement = passes.statement;
        map_of(passes).words[static_cast<size_t>(address)] = word;
    }
}

void check_count(passes_t& passes, const statement_t& statement) {
    const size_t count = statement.operation->count;
    const span_t first =
        count < statement.operands.size() ? statement.operands[count].token : statement.extra;
    if (first.size == 0) {
        return;
    }
    place_t place = place_of(statement, first);
    const std::string_view line =
        without_comment(line_text(map_of(passes), statement.file, statement.line_begin));
    place.last = static_cast<uint32_t>(line.find_last_not_of(WHITE_SPACE)) + 1;
    if (diagnostic_t* const diagnostic =
            fault(passes, code::EXTRA_OPERAND, place, "extra characters at end of line")) {
        explain_count(*diagnostic, map_of(passes), statement);
    }
}

void put_operand(passes_t& passes, statement_t& statement, int32_t offset, word_e kind, uint8_t index) {
    const int32_t value = find_value(passes, statement, index);
    statement.operands[index].value = value;
    put_word(passes, statement, offset, {.value = value, .kind = kind, .operand = index});
}

// The opcode's word comes before the operands are looked at, and each operand's before the next.
void encode_statement(passes_t& passes, statement_t& statement) {
    const operation_t& operation = *statement.operation;
    if (is_data(operation)) {
        check_count(passes, statement);
        put_operand(passes, statement, 0, word_e::DATA, 0);
        return;
    }
    put_word(passes, statement, 0, {.value = operation.opcode, .kind = word_e::OPCODE});
    check_count(passes, statement);
    for (int word = 1; word < WORDS_PER_INSTRUCTION; ++word) {
        const int operand = operand_in_word(operation, word);
        if (operand >= 0) {
            put_operand(passes, statement, word, word_e::OPERAND, static_cast<uint8_t>(operand));
        } else {
            const bool value_address = is_cpdata(operation);
            const int32_t value = value_address ? wrap_add(statement.address, CPDATA_VALUE_OFFSET) : 0;
            put_word(passes, statement, word, {.value = value, .kind = word_e::IMPLIED});
        }
    }
}

// Of a line that could not be understood it is still known which labels it uses.
void look_at_operands(passes_t& passes, statement_t& statement) {
    for (size_t i = 0; i < statement.operands.size(); ++i) {
        if (statement.operands[i].token.size != 0) {
            statement.operands[i].value = find_value(passes, statement, static_cast<uint8_t>(i));
        }
    }
}

// Pass 2: what goes there.
void encode(passes_t& passes) {
    source_map_t& map = map_of(passes);
    passes.encoding = true;
    for (uint32_t i = 0; i < map.statements.size() && !passes.over; ++i) {
        statement_t& statement = map.statements[i];
        passes.statement = i;
        passes.muted = statement.broken;
        if (statement.broken) {
            look_at_operands(passes, statement);
        } else if (statement.operation != nullptr) {
            encode_statement(passes, statement);
        }
    }
}

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
