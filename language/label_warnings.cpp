// Labels that do not do what they look like.

#include <algorithm>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "assembler/explain.h"
#include "assembler/invisible.h"
#include "assembler/similar.h"
#include "language/warnings_internal.h"

namespace {

bool is_operation(std::string_view name) { return find_operation(small(name)) != nullptr; }

// A word of an array can have a label of its own.
bool begins_array(const program_t& program, const statement_t& statement) {
    return statement.address >= 0 && statement.address < static_cast<int32_t>(program.words.size()) &&
           (program.words[static_cast<size_t>(statement.address)] & (BASE | ADDRESS_TAKEN)) != 0;
}

bool is_instruction(const statement_t& statement) {
    return statement.operation != nullptr && !is_data(*statement.operation);
}

void warn_of_operation(warnings_t& warnings, uint32_t index, std::string_view name) {
    const statement_t& statement = warnings.map->statements[index];
    const operation_t& operation = *find_operation(small(name));
    const bool alone = statement.opcode.size == 0;
    const bool exact = name == operation.name;
    const std::string help =
        exact ? "write blanks before it" : "write " + quoted(operation.name) + ", indented";
    diagnostic_t& diagnostic =
        warn(warnings, code::OPERATION_AS_LABEL, index, statement.label,
             quoted(name) + " stands in the first column: it is a label here, not an operation",
             alone ? help : help + ", or give the label another name");
    // Others would then lack operands.
    if (alone && operation.count == 0) {
        place_t place = diagnostic.place;
        place.last = exact ? 0 : place.last;
        diagnostic.fix = {
            {place, indentation_in(*warnings.map, place.file) + std::string(exact ? "" : operation.name)}};
    }
}

void warn_of_colon(warnings_t& warnings, uint32_t index, std::string_view name) {
    const statement_t& statement = warnings.map->statements[index];
    const std::string_view bare = name.substr(0, name.size() - 1);
    diagnostic_t& diagnostic = warn(warnings, code::LABEL_COLON, index, statement.label,
                                    "the colon belongs to the name of the label " + quoted(name),
                                    "leave it out: the label is then " + quoted(bare));
    const label_t& label = warnings.map->labels[statement.defines];
    // The uses have it too.
    std::vector<place_t> places = {diagnostic.place};
    for (uint32_t i = 0; i < label.use_count; ++i) {
        places.push_back(place_of(*warnings.map, warnings.map->uses[label.first_use + i]));
    }
    for (place_t& place : places) {
        place.first = place.last;
        diagnostic.fix.push_back({place, ""});
    }
}

void warn_of_unused(warnings_t& warnings, uint32_t index, std::string_view name) {
    const statement_t& statement = warnings.map->statements[index];
    warn(warnings, code::UNUSED_LABEL, index, statement.label, "nothing uses the label " + quoted(name),
         "use it, or leave it out");
}

// Whether it has been said already that the line is never executed.
bool is_unreached(const warnings_t& warnings, const statement_t& statement) {
    const uint32_t index = warnings.program->at[static_cast<size_t>(statement.address)];
    return index != NOTHING && !is_reached(warnings, index) && !warnings.flow->unknown_jumps;
}

void warn_of_case(warnings_t& warnings) {
    const source_map_t& map = *warnings.map;
    std::unordered_map<std::string, uint32_t> first_of;
    for (uint32_t i = 0; i < map.labels.size(); ++i) {
        if (is_operation(name_of(map, map.labels[i]))) {
            continue;
        }
        const auto [found, is_new] = first_of.emplace(small(name_of(map, map.labels[i])), i);
        const label_t& first = map.labels[found->second];
        const label_t& label = map.labels[i];
        if (is_new || map.statements[label.statement].faulty ||
            (is_included(*warnings.program, first.statement) &&
             is_included(*warnings.program, label.statement))) {
            continue;
        }
        diagnostic_t& diagnostic = warn(warnings, code::LABEL_CASE, label.statement, label.name,
                                        quoted(name_of(map, label)) + " and " + quoted(name_of(map, first)) +
                                            " are two labels: capital and small letters differ",
                                        "give one of them another name");
        diagnostic.related = {{place_of(map, first), "the other one"}};
    }
}

} // namespace

void warn_of_labels(warnings_t& warnings) {
    const source_map_t& map = *warnings.map;
    bool in_array = false;
    for (uint32_t i = 0; i < map.statements.size(); ++i) {
        const statement_t& statement = map.statements[i];
        const bool inside = in_array && !is_instruction(statement);
        in_array = inside || (!is_instruction(statement) && begins_array(*warnings.program, statement));
        if (statement.defines == NOTHING || statement.broken) {
            continue;
        }
        const label_t& label = map.labels[statement.defines];
        const std::string_view name = name_of(map, label);
        const bool unused = label.use_count == 0;
        if (name.size() > 1 && name.ends_with(':')) {
            if (!warnings.named.contains({statement.file, statement.line})) {
                warn_of_colon(warnings, i, name);
            }
        } else if (unused && is_operation(name)) {
            if (!statement.faulty) {
                warn_of_operation(warnings, i, name);
            }
        } else if (warnings.flow != nullptr && unused && !find_invisible(name) && statement.address != 0 &&
                   !inside && !warnings.flow->library && !is_included(*warnings.program, i) &&
                   !is_unreached(warnings, statement) &&
                   !is_left_out(warnings, code::UNUSED_LABEL, i, statement.label)) {
            warn_of_unused(warnings, i, name);
        }
    }
    warn_of_case(warnings);
}
