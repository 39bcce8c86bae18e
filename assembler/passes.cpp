// Faults: the first one for those who only want that, all of them for the list.

#include "assembler/passes.h"

#include "assembler/foreign.h"
#include "base/machine.h"

namespace {

// A message in a list is read on one line; a token can be as long as a file.
constexpr size_t LONGEST_MESSAGE = 200;

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

} // namespace

source_map_t& map_of(passes_t& passes) { return passes.result.analysis.map; }

bool repeats(passes_t& passes, uint32_t inclusion) {
    const uint32_t file = inclusion == NOTHING ? NOTHING : map_of(passes).inclusions[inclusion].file;
    return file != NOTHING && passes.reading.known[file].inclusion != inclusion;
}

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

void fault_beyond(passes_t& passes, const place_t& place, std::string text) {
    if (passes.beyond || passes.muted) {
        return;
    }
    if (diagnostic_t* const diagnostic = fault(passes, code::TOO_LARGE, place, std::move(text))) {
        diagnostic->help = "the memory has the addresses 0 to " + std::to_string(MEMORY_SIZE - 1);
    }
    passes.beyond = true;
}
