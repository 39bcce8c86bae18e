// The entry of tovik-run: assembles, loads and runs a program on the board without a window.

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "assembler/analyse.h"
#include "assembler/assemble.h"
#include "assembler/labels.h"
#include "base/files.h"
#include "base/machine.h"
#include "base/messages.h"
#include "core/loader.h"
#include "core/script.h"
#include "core/simulate.h"
#include "debugger/places.h"
#include "devices/audio.h"
#include "ui/gui_batch/gui_batch.h"
#include "ui/gui_batch/observing.h"
#include "ui/gui_batch/options.h"
#include "ui/gui_batch/usage.h"

namespace {

void print_message(std::string_view message) { std::cerr << "tovik-run: " << message << std::endl; }

// The loader passes over what it does not understand; a grader must hear of it.
void check_image(const std::string& name, const load_t& load) {
    if (!load.ended && (load.words == 0 || !load.begun)) {
        throw usage_error_t{name + " is not a memory image"};
    }
    if (load.skipped > 0) {
        std::cerr << "tovik-run: " << name << ":" << load.first_skipped << ": warning: skipped "
                  << load.skipped << (load.skipped == 1 ? " line that holds" : " lines that hold")
                  << " no word of memory\n";
    }
    if (!load.ended) {
        std::cerr << "tovik-run: " << name << ": warning: the image has no END, it may be incomplete\n";
    }
}

// The assembler makes its two files before it reads the source; a name that is mistyped must leave none.
void check_source(const std::string& name) {
    int source = open_regular(name);
    if (source < 0) {
        throw usage_error_t{cant_open_text(name, errno)};
    }
    close_file(source);
}

std::vector<event_t> events_of(const std::optional<std::string>& script) {
    try {
        return script ? read_script(*script) : std::vector<event_t>{};
    } catch (const tovik_error& error) {
        throw usage_error_t{error.message};
    }
}

labels_t labels_beside(const std::string& base) {
    try {
        return read_labels(base + ".labels");
    } catch (const tovik_error& error) {
        throw usage_error_t{error.message};
    }
}

// What report, checks and profile say of the program. Where the source is not what was loaded, its lines
// would mislead.
places_t places_for_run(const options_t& options, const labels_t& labels) {
    places_t places;
    if (options.report_format == "none" && !is_to_be_observed(options)) {
        return places;
    }
    places = load_places(options.program);
    if (!places.difference.empty()) {
        places.analysis = {};
        places.labels = labels;
    }
    return places;
}

[[noreturn]] void out_of_memory() {
    print_message("out of memory");
    // What would be written at the end needs memory too.
    std::exit(run_has_begun() ? EXIT_NOT_WRITTEN : EXIT_USAGE);
}

// Returns the exit status.
int assemble_and_run(const options_t& options) {
    const bool is_source = options.program.ends_with(".k");
    if (options.assemble_only && !is_source) {
        throw usage_error_t{"--assemble: '" + options.program + "' does not end in .k"};
    }
    std::vector<event_t> events = events_of(options.script_file);
    if (is_source) {
        check_source(options.program);
        if (!assemble(options.program)) {
            if (analyse(options.program).diagnostics.count > 1) {
                std::cerr << "tovik-check says more\n";
            }
            return EXIT_USAGE;
        }
    }
    if (options.assemble_only) {
        return 0;
    }

    simulate_init();
    const load_t load = load_board(options);
    const std::string base = options.program.substr(0, options.program.rfind('.'));
    if (!load.opened) {
        return EXIT_USAGE;
    }
    check_image(base + ".mif", load);
    const labels_t labels = labels_beside(base);
    return run_batch(options, labels, places_for_run(options, labels), std::move(events));
}

} // namespace

int main(int argc, char** argv) {
    hold_standard_streams();
    // A file that grows beyond the user's limit and a pipe without a reader are then errors of that write,
    // with a message, not the end.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    std::set_new_handler(out_of_memory);
    sound_log = &std::cerr;
    // The dialogs are the messages of the report.
    graphical_display = true;
    try {
        const std::optional<options_t> options = parse_options(argc, argv);
        return options ? assemble_and_run(*options) : 0;
    } catch (const usage_error_t& error) {
        print_message(error.message);
        return EXIT_USAGE;
    } catch (const host_failure_t&) {
        return EXIT_ERROR;
    }
}
