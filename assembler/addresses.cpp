// Pass 1: where everything goes.

#include <optional>

#include "assembler/foreign.h"
#include "assembler/numbers.h"
#include "assembler/passes.h"
#include "base/arithmetic.h"
#include "base/machine.h"

namespace {

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
        explain_first_column(*diagnostic, map, name);
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

} // namespace

void find_addresses(passes_t& passes, const std::string& name) {
    open_main_file(passes, name);
    while (next_statement(passes)) {
        place_statement(passes, map_of(passes).statements.back());
    }
}
