#include "ui/gui_batch/gui_batch.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "assembler/numbers.h"
#include "base/files.h"
#include "base/gui.h"
#include "base/machine.h"
#include "base/noise.h"
#include "base/saved_file.h"
#include "core/engine.h"
#include "core/loader.h"
#include "core/simulate.h"
#include "devices/audio.h"
#include "devices/camera.h"
#include "devices/sd.h"
#include "devices/sdram.h"
#include "devices/serial.h"
#include "devices/vga.h"
#include "ui/gui_batch/again.h"
#include "ui/gui_batch/events.h"
#include "ui/gui_batch/interrupt.h"
#include "ui/gui_batch/observing.h"
#include "ui/gui_batch/picture.h"
#include "ui/gui_batch/stream.h"
#include "ui/gui_batch/usage.h"
#include "ui/gui_batch/waves.h"

namespace {

// All that belongs to one run.
struct batch_t {
    options_t options;
    std::vector<event_t> events;
    size_t next_event = 0;
    bool begun = false;
    bool output_failed = false;
    bool interrupted = false;
    std::vector<std::string> files;                         // what the run reads and writes, but the report
    std::vector<int> outputs;                               // the descriptors of files to write
    std::vector<std::filesystem::path> created;             // those that were not there before
    std::map<std::string, std::deque<std::string>> answers; // to file choosers, by their titles
    bool console_ended = false;
    std::string console_input;          // what the program has got of it, up to the most that is kept
    std::optional<size_t> console_next; // in a run that is done again: what of it comes next
    stream_t serial;                    // of --save-serial
    stream_t events_file;               // until the run begins
    stream_t waves_file;
    run_t run{};
};

// The question of the serial port has no title.
const std::string SERIAL_PORT;

constexpr int HOST_WAIT_MS = 1000; // where nothing else is to be done

// What a terminal sends for the end of its input.
constexpr char END_OF_TRANSMISSION = 4;

// A run that is longer, or has got more of the console, is not done again: a few seconds, and a megabyte.
constexpr uint64_t MOST_DONE_AGAIN = 500'000'000;
constexpr size_t MOST_CONSOLE_INPUT = size_t{1} << 20;

batch_t batch;

bool limit_reached() {
    return batch.options.limit && machine.instr_count >= static_cast<uint64_t>(*batch.options.limit);
}

// The limit may be greater than the step count can hold: the count is filled up again before it runs out.
void fill_up_step_count() {
    if (batch.options.limit && simulator.step > 0) {
        const uint64_t left = static_cast<uint64_t>(*batch.options.limit) - machine.instr_count;
        simulator.step = static_cast<int>(std::min<uint64_t>(left, std::numeric_limits<int>::max()));
    }
}

bool event_is_due() {
    return batch.next_event < batch.events.size() &&
           batch.events[batch.next_event].count <= machine.instr_count;
}

void happen_next() {
    const event_t& event = batch.events[batch.next_event++];
    event.happen(event);
}

// The answers to file choosers and to the serial port's question.
void prepare_answers() {
    const options_t& options = batch.options;
    batch.answers.clear();
    for (const auto& [title, files] : {std::pair{MICROPHONE_QUESTION, &options.mic_files},
                                       {CAMERA_QUESTION, &options.camera_files},
                                       {SD_QUESTION, &options.sd_files},
                                       {SERIAL_PORT.c_str(), &options.serial_names}}) {
        batch.answers[title] = {files->begin(), files->end()};
    }
}

// What has happened before the first instruction.
void prepare_board() {
    machine.sw = batch.options.switches;
    batch.next_event = 0;
    while (event_is_due()) {
        happen_next();
    }
}

// Puts values into the memory as the loader does, from an address or a label on.
void set_words(const std::string& text) {
    const size_t equals = text.rfind('=');
    const std::optional<int32_t> begin = find_address(text.substr(0, equals), batch.run.labels);
    if (equals == std::string::npos || !begin) {
        throw usage_error_t{"--set: '" + text + "' does not begin with a label or an address, and '='"};
    }
    int32_t address = *begin;
    std::istringstream values(text.substr(equals + 1) + ",");
    for (std::string word; std::getline(values, word, ','); ++address) {
        const std::optional<int32_t> value = read_number(word);
        if (!value) {
            throw usage_error_t{std::string("--set: '").append(word) + "' in '" + text + "' is not a number"};
        }
        if (address >= MEMORY_SIZE) {
            throw usage_error_t{"--set: '" + text + "' goes beyond the memory"};
        }
        machine.memory[address] = *value;
        machine.modified[address] = true;
    }
}

void set_all_words() {
    for (const std::string& text : batch.options.set) {
        set_words(text);
    }
    forget_proofs();
}

// In a process that has no other purpose.
bool begin_again() {
    observer = nullptr;
    load_board(batch.options);
    speaker_recording = false;
    set_all_words();
    prepare_answers();
    prepare_board();
    batch.console_next = 0;
    return std::equal(std::begin(machine.memory), std::end(machine.memory), batch.run.places.loaded.begin(),
                      batch.run.places.loaded.end());
}

// Only where nothing but the script, the console and files that stay as they are have come from outside.
std::optional<writer_t> find_writer(int32_t address) {
    const options_t& options = batch.options;
    const bool is_alone = options.runs_again && options.sd_files.empty() && options.serial_names.empty() &&
                          !options.live_sound && !options.live_camera && !is_interrupted();
    return is_alone && machine.instr_count <= MOST_DONE_AGAIN &&
                   batch.console_input.size() < MOST_CONSOLE_INPUT
               ? find_writer_again(address, begin_again)
               : std::nullopt;
}

struct ending_t {
    const char* reason;
    int status;
};

ending_t ending() {
    if (batch.output_failed) {
        return {"error", EXIT_NOT_WRITTEN};
    }
    if (has_stopped_by_check()) {
        return {"check", EXIT_ERROR};
    }
    if (batch.interrupted) {
        return {"interrupted", EXIT_STOPPED};
    }
    switch (last_stop().reason) {
    case stop_reason_e::ERROR:
        return {"error", EXIT_ERROR};
    case stop_reason_e::HALT:
        return {"halt", EXIT_HALTED};
    case stop_reason_e::BREAKPOINT:
        return {"breakpoint", EXIT_STOPPED};
    case stop_reason_e::WATCHPOINT:
        return {"watchpoint", EXIT_STOPPED};
    case stop_reason_e::STEPS:
        return {"limit", EXIT_LIMIT};
    case stop_reason_e::STOPPED:
    case stop_reason_e::NONE:
        break;
    }
    return limit_reached() ? ending_t{"limit", EXIT_LIMIT} : ending_t{"script", EXIT_STOPPED};
}

// The saves of the window's buttons show a failure in a dialog. Returns whether it went well.
bool save(void (*button)(), const std::string& title, const std::optional<std::string>& file) {
    const size_t dialogs = batch.run.messages.size();
    if (file) {
        batch.answers[title] = {*file};
        button();
    }
    return batch.run.messages.size() == dialogs;
}

// What no dialog is for. Returns whether it went well.
bool write_file(const std::optional<std::string>& name, void (*write)(saved_file_t& file)) {
    try {
        if (name) {
            saved_file_t file(*name);
            write(file);
            file.close();
        }
        return true;
    } catch (const tovik_error& error) {
        std::cerr << "tovik-run: " << error.message << std::endl;
        return false;
    }
}

void write_profile(saved_file_t& file) { file.write(profile_text(*batch.options.profile_file)); }

void write_picture(saved_file_t& file) { file.write(png_of_screen(*batch.options.png_file)); }

std::string report() {
    batch.run.why = reason_of(batch.run.places, last_stop(), find_writer);
    return batch.options.report_format == "json" ? json_report(batch.run) : text_report(batch.run);
}

// Returns whether it went well.
bool write_report() {
    if (batch.options.report_format == "none" || batch.options.report_is_kept) {
        return true;
    }
    if (batch.options.report_file) {
        return write_file(batch.options.report_file, [](saved_file_t& file) { file.write(report()); });
    }
    const int error = write_all(STDOUT_FILENO, report());
    if (error != 0) {
        std::cerr << "tovik-run: " << cant_write_text("standard output", error) << std::endl;
    }
    return error == 0;
}

// Returns whether all went well.
bool write_files() {
    std::cout.flush();
    bool written = close_stream(batch.serial);
    written &= end_events();
    written &= end_waves();
    written &= write_file(batch.options.png_file, write_picture);
    written &= write_file(batch.options.profile_file, write_profile);
    // The button would not save an empty recording.
    written &= write_file(batch.options.speaker_file, write_recording);
    written &= save(save_vga, "Choose VGA .dat file", batch.options.vga_file);
    written &= save(save_sdram, "Choose SDRAM .dat file", batch.options.sdram_file);
    if (!write_report()) {
        written = false;
    } else if (!std::cout) {
        written = false;
        std::cerr << "tovik-run: can't write " << (batch.options.console ? "the console" : "the trace")
                  << " to standard output" << std::endl;
    }
    return written;
}

pass_t simulate_some() {
    if (!waves_on()) {
        return simulate_pass(std::numeric_limits<int32_t>::max());
    }
    prepare_waves();
    const pass_t pass = simulate_pass(1);
    note_waves();
    return pass;
}

// Returns whether the run goes on. Only sound sets the pace here: whatever a pass wants to sleep is not
// waited for.
bool run_pass() {
    const pass_t pass = simulate_some();
    if (pass.wait != nullptr) {
        pass.wait(HOST_WAIT_MS);
        // There may never be a look at the window.
        batch.interrupted = is_interrupted();
    }
    return !pass.idle && !batch.interrupted;
}

// Returns the exit status.
int run_until_stop() {
    try {
        simulate_begin();
        while (run_pass()) {
        }
    } catch (const host_failure_t&) {
        end_at_interrupts();
        batch.run.reason = "error";
        batch.run.checks = checks_of(batch.options);
        write_files();
        return EXIT_ERROR;
    }
    end_at_interrupts();
    const auto [reason, status] = ending();
    batch.run.reason = reason;
    batch.run.checks = checks_of(batch.options);
    return write_files() ? status : EXIT_NOT_WRITTEN;
}

// The next answer to a question, if there is one left.
std::optional<std::string> take_answer(const std::string& title) {
    std::deque<std::string>& answers = batch.answers[title];
    if (answers.empty()) {
        return std::nullopt;
    }
    std::string answer = answers.front();
    answers.pop_front();
    return answer;
}

// A file over a source would destroy a student's work, and so would one over what this run reads or writes.
void check_output(const std::string& option, const std::string& file) {
    const auto is_same = [&](const std::string& other) {
        std::error_code missing;
        return std::filesystem::equivalent(file, other, missing);
    };
    if (file.ends_with(".k") || std::any_of(batch.files.begin(), batch.files.end(), is_same)) {
        throw usage_error_t{option + ": " + file + " is a source or a file of this run"};
    }
}

// The descriptor is to stay open until the end, also where the file is then opened again by its name: a
// reader of a pipe must not see its end before.
int open_output(const std::string& option, const std::string& file) {
    check_output(option, file);
    std::error_code ignored;
    const bool is_new = !std::filesystem::exists(file, ignored);
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, NEW_FILE_MODE);
    if (descriptor < 0) {
        throw usage_error_t{cant_open_text(file, errno)};
    }
    if (is_new) {
        batch.created.push_back(std::filesystem::canonical(file, ignored)); // a link may have led to it
    }
    // A device can take what several write.
    if (std::filesystem::is_regular_file(file, ignored)) {
        batch.files.push_back(file);
    }
    return descriptor;
}

stream_t open_stream(const std::string& option, const std::optional<std::string>& file) {
    stream_t stream;
    if (file) {
        stream.name = *file;
        stream.descriptor = open_output(option, *file);
    }
    return stream;
}

// A file for a device that asks for one.
void offer_file(const std::string& file) {
    const int descriptor = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        throw usage_error_t{cant_open_text(file, errno)};
    }
    close(descriptor);
    if (std::error_code unknown; std::filesystem::is_directory(file, unknown)) {
        throw usage_error_t{cant_open_text(file, EISDIR)};
    }
    batch.files.push_back(file);
}

void offer_files() {
    for (const std::string& recording : batch.options.mic_files) {
        offer_file(recording);
    }
    for (const std::string& movie : batch.options.camera_files) {
        offer_file(movie);
    }
    // A card is written to, so what holds for outputs holds for it, but the next card may be the same.
    for (const std::string& card : batch.options.sd_files) {
        check_output("--sd", card);
    }
    for (const std::string& card : batch.options.sd_files) {
        offer_file(card);
    }
}

void open_files() {
    const options_t& options = batch.options;
    const std::string base = options.program.substr(0, options.program.rfind('.'));
    prepare_answers();
    batch.files = {base + ".k", base + ".mif", base + ".labels", options.script_file.value_or("")};
    offer_files();
    for (const auto& [option, file] : {std::pair{"--png", options.png_file},
                                       {"--save-vga", options.vga_file},
                                       {"--save-sdram", options.sdram_file},
                                       {"--save-speaker", options.speaker_file},
                                       {"--profile", options.profile_file}}) {
        if (file) {
            batch.outputs.push_back(open_output(option, *file));
        }
    }
    batch.serial = open_stream("--save-serial", options.serial_file);
    batch.events_file = open_stream("--events", options.events_file);
    batch.waves_file = open_stream("--vcd", options.vcd_file);
    if (options.report_file) {
        batch.outputs.push_back(open_output("--report", *options.report_file));
        // Another place in the same file would write over what the trace has written there.
        if (is_standard_output(*options.report_file)) {
            batch.options.report_file.reset();
        }
    }
}

// Opens all files of the run or none: where one is refused, those that were made for it go.
void open_files_or_none() {
    try {
        open_files();
    } catch (const usage_error_t&) {
        std::for_each(batch.outputs.begin(), batch.outputs.end(), close);
        for (stream_t* const stream : {&batch.serial, &batch.events_file, &batch.waves_file}) {
            close_file(stream->descriptor);
        }
        std::error_code ignored;
        for (const std::filesystem::path& file : batch.created) {
            std::filesystem::remove(file, ignored);
        }
        throw;
    }
}

// -1 for an option that was not given.
int32_t address_of(const char* option, const std::optional<std::string>& text, const labels_t& labels) {
    if (!text) {
        return -1;
    }
    const std::optional<int32_t> address = find_address(*text, labels);
    if (!address) {
        throw usage_error_t{std::string(option) + ": '" + *text +
                            "' is neither a label nor an address from 0 to 16383"};
    }
    return *address;
}

void collect_memory() {
    for (const std::string& text : batch.options.memory) {
        const std::optional<range_t> range = find_range(text, batch.run.labels);
        if (!range) {
            throw usage_error_t{"--memory: '" + text +
                                "' is no range of labels or addresses from 0 to 16383"};
        }
        for (int32_t address = range->first; address <= range->last; ++address) {
            batch.run.memory.insert(address);
        }
    }
}

} // namespace

load_t load_board(const options_t& options) {
    noise_seed = options.seed;
    clear_vga();
    clear_sdram();
    // An endless program must not fill a grader's memory with what it plays.
    speaker_recording = options.speaker_file.has_value();
    return simulate_load(options.program.substr(0, options.program.rfind('.')) + ".k");
}

int run_batch(const options_t& options, const labels_t& labels, places_t places,
              std::vector<event_t> events) {
    batch = {};
    batch.options = options;
    batch.events = std::move(events);
    batch.run.labels = labels;
    batch.run.places = std::move(places);
    collect_memory();
    set_all_words();
    batch.run.places.loaded.assign(std::begin(machine.memory), std::end(machine.memory)); // as if loaded
    simulator.verbose = options.trace;
    simulator.breakpoint = address_of("--break", options.breakpoint, labels);
    simulator.watchpoint = address_of("--watch", options.watchpoint, labels);
    begin_observing(options, batch.run.places);
    note_interrupts(); // before a file is emptied
    open_files_or_none();

    simulator.step = options.limit ? 1 : -1;
    fill_up_step_count();
    prepare_board();
    if (options.live_sound) {
        speaker_connect();
        microphone_connect();
    }
    if (options.live_camera) {
        camera_connect();
    }
    begin_stream(batch.serial);
    begin_events(std::move(batch.events_file), speaker_recording, options.display_events);
    begin_waves(std::move(batch.waves_file));
    batch.begun = true;
    simulator.running = true;
    const int status = run_until_stop();
    std::for_each(batch.outputs.begin(), batch.outputs.end(), close);
    return status;
}

bool run_has_begun() { return batch.begun; }

std::string run_report() { return report(); }

bool gui_events_pending() {
    fill_up_step_count();
    if (batch.options.console) {
        std::cout.flush();
    }
    flush_stream(batch.serial);
    // Nobody can have any more what an endless program writes.
    const bool events_written = write_events();
    const bool waves_written = write_waves();
    if (!std::cout || batch.serial.error != 0 || !events_written || !waves_written) {
        batch.output_failed = true;
        simulator.running = false;
    }
    if (simulator.running && is_interrupted()) {
        batch.interrupted = true;
        simulator.running = false;
    }
    return simulator.running && event_is_due();
}

void gui_handle_event() {
    happen_next();
    note_user();
}

void gui_message(std::string text, bool error) {
    std::cerr << text << (text.ends_with('\n') ? "" : "\n") << std::flush;
    batch.run.messages.push_back({error, std::move(text)});
}

void gui_hex74_set(std::string text) {
    batch.run.hex74 = std::move(text);
    note_lamps();
}

void gui_hex30_set(std::string text) {
    batch.run.hex30 = std::move(text);
    note_lamps();
}

void gui_led_red_draw(int /*i*/) { note_lamps(); }

void gui_led_green_draw(int /*i*/) { note_lamps(); }

void gui_lcd_set(std::string /*text*/) { note_lamps(); }

bool gui_choosefile(bool /*save*/, std::string title, std::string /*filter_name*/, std::string /*extension*/,
                    std::string& filename) {
    const std::optional<std::string> answer = take_answer(title);
    filename = answer.value_or(filename);
    return answer.has_value();
}

std::string gui_gettext(std::string /*prompt*/, int /*max_length*/) {
    return take_answer(SERIAL_PORT).value_or("");
}

void gui_serial_setup() {}

void gui_serial_append(char c) {
    ++batch.run.serial_bytes;
    append_to_stream(batch.serial, {&c, 1});
    if (c == '\r') {
        return;
    }
    if (batch.run.serial_output.size() == MOST_SERIAL_OUTPUT) {
        batch.run.serial_truncated = true;
    } else if (batch.options.report_format != "none") {
        batch.run.serial_output += c;
    }
    if (batch.options.console) {
        std::cout.put(c);
    }
}

void gui_serial_input() {
    if (batch.console_next) {
        if (*batch.console_next < batch.console_input.size()) {
            io_serial_press(batch.console_input[(*batch.console_next)++]);
        }
        return;
    }
    if (!batch.options.console || batch.console_ended || is_interrupted()) {
        return;
    }
    std::cout.flush();
    flush_stream(batch.serial);
    int c = read_input_byte();
    while (c == '\0') { // no key gives it
        c = read_input_byte();
    }
    if (is_interrupted()) {
        return;
    }
    batch.console_ended = c < 0;
    const char key = batch.console_ended ? END_OF_TRANSMISSION : static_cast<char>(c);
    if (batch.console_input.size() < MOST_CONSOLE_INPUT) {
        batch.console_input += key;
    }
    io_serial_press(key);
}

// What these would show, the report reads from the machine itself.
void gui_runstop_set(std::string /*text*/) {}
void gui_status_set(std::string /*text*/) {}
void gui_pc_set(std::string /*text*/) {}
void gui_time_set(std::string /*text*/) {}
void gui_sw_draw(int /*i*/) {}
void gui_vga_cursor(bool /*active*/) {}
void gui_camera_set(bool /*on*/) {}
void gui_mic_set(bool /*on*/) {}
void print_memory() {}
