#pragma once

// The run as --checks and --profile look at it.

#include <optional>
#include <string>
#include <vector>

#include "ui/gui_batch/options.h"
#include "ui/gui_batch/report.h"

// Whether one of the options was given.
bool is_to_be_observed(const options_t& options);

// Where it was, the loaded program is observed from now on. The places must stay. Throws usage_error_t when
// that needs a source that is not there.
void begin_observing(const options_t& options, const places_t& places);

// What the checks have found so far, nullopt when they are off.
std::optional<std::vector<check_t>> checks_of(const options_t& options);

// Whether --checks=error has stopped the run.
bool has_stopped_by_check();

// What the file of --profile holds, by its name.
std::string profile_text(const std::string& file_name);
