#include "ui/gui_batch/observing.h"

#include <iostream>

#include "debugger/observe.h"
#include "debugger/places.h"
#include "ui/gui_batch/usage.h"

namespace {

const places_t* observed = nullptr;

bool is_for_lcov(const std::string& file_name) { return file_name.ends_with(".info"); }

bool has_source() { return !observed->analysis.map.words.empty() && observed->difference.empty(); }

void print(const finding_t& finding) { std::cerr << shown(*observed, finding) + "\n" << std::flush; }

check_t check_of(const finding_t& finding) {
    const where_t place = where(*observed, finding.address);
    const bool known = place.line > 0 && has_source();
    return {.kind = std::string(name_of(finding.check)),
            .place = known ? place.file + ":" + std::to_string(place.line)
                           : "address " + std::to_string(place.address),
            .label = place.label,
            .address = place.address,
            .text = finding.what,
            .count = finding.times};
}

} // namespace

bool is_to_be_observed(const options_t& options) {
    return !options.checks.empty() || options.profile_file.has_value();
}

void begin_observing(const options_t& options, const places_t& places) {
    if (!is_to_be_observed(options)) {
        return;
    }
    observed = &places;
    if (options.profile_file && is_for_lcov(*options.profile_file) && !has_source()) {
        throw usage_error_t{"--profile: " + *options.profile_file + " needs the source of the program" +
                            (places.difference.empty() ? "" : "; " + places.difference)};
    }
    if (!options.checks.empty() && !has_source()) {
        std::cerr << "tovik-run: " << options.program
                  << ": warning: " << (places.difference.empty() ? "there is no source" : places.difference)
                  << ", not all checks are made\n";
    }
    observe(places, {.checks = !options.checks.empty(), .stop = options.checks == "error", .found = print});
}

std::optional<std::vector<check_t>> checks_of(const options_t& options) {
    if (options.checks.empty()) {
        return std::nullopt;
    }
    std::vector<check_t> checks;
    for (const finding_t& finding : findings()) {
        checks.push_back(check_of(finding));
    }
    return checks;
}

bool has_stopped_by_check() { return stopped_by_finding(); }

std::string profile_text(const std::string& file_name) {
    return is_for_lcov(file_name) ? profile_lcov(*observed, profile()) : profile_table(*observed, profile());
}
