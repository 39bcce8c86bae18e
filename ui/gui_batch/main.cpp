// The entry of tovik-run: assembles, loads and runs a program on the board without a window.

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "assembler/assemble.h"
#include "core/loader.h"
#include "core/simulate.h"
#include "ui/gui_batch/gui_batch.h"
#include "ui/gui_batch/labels.h"
#include "ui/gui_batch/options.h"
#include "ui/gui_batch/script.h"

namespace {

// The loader passes over what it does not understand; a grader must hear of it.
void check_image(const std::string& name, const load_t& load) {
    if (!load.opened) {
        std::exit(EXIT_USAGE);
    }
    if (load.words == 0 && !load.ended) {
        usage_error(name + " is not a memory image: it holds no word and no END");
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

} // namespace

int main(int argc, char** argv) {
    // A file that grows beyond the user's limit is then an error of that write, with a message, not the end.
    std::signal(SIGXFSZ, SIG_IGN);
    // The dialogs are the messages of the report.
    graphical_display = true;

    const options_t options = parse_options(argc, argv);
    const bool is_source = options.program.ends_with(".k");
    if (options.assemble_only && !is_source) {
        usage_error("--assemble: '" + options.program + "' does not end in .k");
    }
    std::vector<event_t> events;
    if (!options.script_file.empty()) {
        events = read_script(options.script_file);
    }
    if (is_source && !assemble(options.program)) {
        std::exit(EXIT_USAGE);
    }
    if (options.assemble_only) {
        return 0;
    }

    simulate_init();
    const std::string base = options.program.substr(0, options.program.rfind('.'));
    check_image(base + ".mif", simulate_load(base + ".k"));
    run_batch(options, read_labels(base + ".labels"), std::move(events));
}
