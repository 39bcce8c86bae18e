#include "assembler/diagnostics.h"

#include <utility>

bool has_room(const diagnostics_t& diagnostics) { return diagnostics.count < MOST_DIAGNOSTICS; }

void add_related(diagnostic_t& diagnostic, related_t related) {
    if (diagnostic.related.size() < MOST_RELATED) {
        diagnostic.related.push_back(std::move(related));
        return;
    }
    const size_t more = ++diagnostic.more_related;
    diagnostic.related.back().message =
        related.message + ", and at " + std::to_string(more) + (more == 1 ? " more place" : " more places");
}

bool add_diagnostic(diagnostics_t& diagnostics, diagnostic_t diagnostic) {
    if (diagnostic.fix.size() > MOST_EDITS) {
        diagnostic.fix.clear();
    }
    const bool room = has_room(diagnostics);
    ++diagnostics.count;
    diagnostics.faults += diagnostic.severity == severity_e::ERROR ? 1 : 0;
    if (room) {
        diagnostics.list.push_back(std::move(diagnostic));
        return true;
    }
    // The one that gives way counts too.
    const size_t more = diagnostics.count - MOST_DIAGNOSTICS + 1;
    diagnostic_t& last = diagnostics.list.back();
    if (last.code != code::MORE) {
        last = {.place = last.place, .severity = severity_e::NOTE, .code = code::MORE};
    }
    last.message = "and " + std::to_string(more) + " more";
    return false;
}
