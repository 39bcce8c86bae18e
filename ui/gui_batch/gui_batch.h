#pragma once

// The front end of tovik-run: input from a script, output into a report.

#include <string>
#include <vector>

#include "core/loader.h"
#include "core/script.h"
#include "ui/gui_batch/options.h"
#include "ui/gui_batch/report.h"

// Makes the board's noise and loads the image of the program. Of the options only the program, the seed and
// whether the sound is saved matter here.
load_t load_board(const options_t& options);

// Labels are what the options name; the places are for the report alone. Opens what the run will write, runs
// the loaded machine until the program stops, writes the files and the report, and returns the exit status.
// Throws usage_error_t before anything runs.
int run_batch(const options_t& options, const labels_t& labels, places_t places, std::vector<event_t> events);

// Whether the program has begun to run: what goes wrong since then is no fault of the usage.
bool run_has_begun();

// The report of the run that is over.
std::string run_report();
