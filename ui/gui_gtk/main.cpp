// The entry of the desktop program: assembles a file from the command line, or starts the simulator.

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <new>
#include <string_view>

#include <unistd.h>

#include "assembler/assemble.h"
#include "base/files.h"
#include "base/gui.h"
#include "base/machine.h"
#include "base/messages.h"
#include "core/memory.h"
#include "core/simulate.h"
#include "devices/audio.h"
#include "devices/camera.h"
#include "devices/ledswitchtimer.h"
#include "devices/sdram.h"
#include "devices/vga.h"

namespace {

bool has_display(char** envp) {
    for (char** entry = envp; *entry != nullptr; ++entry) {
        if (std::string_view(*entry).starts_with("DISPLAY=")) {
            return true;
        }
    }
    return false;
}

// Not through the stream, which would need memory too. The files that were being written stay as they were.
[[noreturn]] void out_of_memory() {
    static_cast<void>(write_all(STDOUT_FILENO, "error: out of memory\n"));
    std::exit(1);
}

} // namespace

int main(int argc, char** argv, char** envp) {
    hold_standard_streams();
    // A file that grows beyond the user's limit and a connection that breaks are then errors of that write,
    // with a message, not the end.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    std::set_new_handler(out_of_memory);

    if (argc > 2 && std::string_view(argv[1]) == "-a") {
        assemble(argv[2]);
        std::exit(0);
    }
    graphical_display = has_display(envp);
    if (!graphical_display) {
        std::cout << "error: must be run with a full graphical environment" << std::endl;
        std::exit(1);
    }
    gui_setup(argc, argv);
    clear_memory();
    clear_vga();
    clear_sdram();
    reset_machine();
    reset_sw();
    microphone_connect();
    camera_connect();
    try {
        simulate_init();
        simulate_run();
    } catch (const host_failure_t&) {
        std::exit(1);
    }
}
