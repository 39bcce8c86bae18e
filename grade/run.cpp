#include "grade/run.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include "assembler/labels.h"
#include "base/files.h"
#include "base/machine.h"
#include "base/noise.h"
#include "base/saved_file.h"
#include "core/engine.h"
#include "core/script.h"
#include "core/simulate.h"
#include "devices/audio.h"
#include "devices/save.h"
#include "devices/sdram.h"
#include "devices/vga.h"
#include "ui/gui_batch/gui_batch.h"
#include "ui/gui_batch/picture.h"
#include "ui/gui_batch/usage.h"

namespace {

std::optional<uint64_t> noise_of; // the seed of what the memories hold

constexpr const char* EVENTS_FILE = "events.jsonl";
constexpr const char* SCRIPT_FILE = "input.script"; // where a shell does what a case does

labels_t labels_of(const source_map_t& map) {
    labels_t labels;
    for (const label_t& label : map.labels) {
        labels.emplace(name_of(map, label), label.address);
    }
    return labels;
}

// As the loader leaves it. The memory is clear: no other program has been in it.
void load(const source_map_t& map) {
    for (size_t address = 0; address < map.words.size(); ++address) {
        if (map.words[address].kind != word_e::NONE) {
            machine.memory[address] = map.words[address].value;
            machine.modified[address] = true;
        }
    }
    forget_proofs();
    reset_machine();
}

std::string set_text(const std::pair<std::string, std::vector<int32_t>>& words) {
    std::string text = words.first;
    for (const int32_t& value : words.second) {
        text += (&value == words.second.data() ? '=' : ',') + std::to_string(value);
    }
    return text;
}

// A card is written to, so each run has its own.
std::string card_name(size_t number) { return "card" + std::to_string(number); }

void copy_cards(const std::vector<std::string>& cards) {
    for (size_t i = 0; i < cards.size(); ++i) {
        std::error_code error;
        std::filesystem::copy_file(cards[i], card_name(i), error);
        if (error) {
            throw tovik_error("can't copy " + cards[i] + ": " + error.message());
        }
    }
}

options_t options_for(const std::string& source, const case_t& one, uint64_t seed, const wanted_t& wanted) {
    options_t options;
    options.program = source;
    options.limit = one.limit;
    options.switches = one.input.switches;
    options.seed = seed;
    std::transform(one.input.set.begin(), one.input.set.end(), std::back_inserter(options.set), set_text);
    options.mic_files = one.input.recordings;
    options.camera_files = one.input.movies;
    for (size_t i = 0; i < one.input.cards.size(); ++i) {
        options.sd_files.push_back(card_name(i));
    }
    if (wanted.events) {
        options.events_file = EVENTS_FILE;
        options.display_events = MOST_EVENTS;
    }
    options.report_format = "json";
    options.report_is_kept = true;
    options.runs_again = false;
    return options;
}

std::vector<nlohmann::json> read_events() {
    std::ifstream file(EVENTS_FILE);
    std::vector<nlohmann::json> events;
    if (!file.is_open()) {
        throw tovik_error("can't read what the program shows");
    }
    for (std::string line; std::getline(file, line);) {
        events.push_back(nlohmann::json::parse(line));
    }
    if (file.bad()) {
        throw tovik_error("can't read what the program shows");
    }
    return events;
}

// A run whose events could not be written has ended early.
void check_written(int status) {
    if (status == EXIT_NOT_WRITTEN) {
        throw tovik_error("can't write what the program shows");
    }
}

// What a device says of the file that it uses, which is the task's. Only a program that writes somewhere very
// far out on a card is itself in the way.
void check_device_files(const nlohmann::json& report) {
    std::vector<std::string> texts = {report.at("message").get<std::string>()};
    for (const nlohmann::json& message : report.at("messages")) {
        texts.push_back(message.at("text").get<std::string>());
    }
    for (const std::string& text : texts) {
        const bool is_of_file = text.starts_with("Can't open file ") || text.starts_with("Can't read ") ||
                                text.starts_with("Can't write ");
        if (is_of_file && text.find(system_error_text(EFBIG)) == std::string::npos) {
            throw tovik_error(text);
        }
    }
}

std::map<std::string, std::vector<int32_t>> words_wanted(const wanted_t& wanted, const labels_t& labels) {
    std::map<std::string, std::vector<int32_t>> words;
    for (const auto& [label, values] : wanted.words) {
        if (const auto found = labels.find(label); found != labels.end()) {
            const auto begin = machine.memory + found->second;
            const auto count =
                std::min<size_t>(values.size(), static_cast<size_t>(MEMORY_SIZE - found->second));
            words[label] = {begin, begin + count};
        }
    }
    return words;
}

seen_t look(const wanted_t& wanted, const labels_t& labels) {
    seen_t seen;
    seen.report = nlohmann::json::parse(run_report());
    check_device_files(seen.report);
    if (wanted.events) {
        seen.events = read_events();
    }
    if (wanted.picture) {
        seen.picture = picture_of_screen();
    }
    if (wanted.sound) {
        seen.sound = sound_of(machine.speaker_samples);
    }
    seen.words = words_wanted(wanted, labels);
    return seen;
}

void write_for_commands(const seen_t& seen) {
    const auto write = [](const std::string& name, const std::string& text) {
        saved_file_t file(name);
        file.write(text);
        file.close();
    };
    write("report.json", seen.report.dump(2));
    write("serial.txt", seen.report.at("serial_output").get<std::string>());
    write("screen.png", png_of_screen("screen.png"));
    saved_file_t sound("sound.wav");
    write_recording(sound);
    sound.close();
}

// Each as an option of the same name.
void add_options(std::string& command, const std::string& name, const std::vector<std::string>& values) {
    for (const std::string& value : values) {
        command += " --" + name + "=" + quoted_for_shell(value);
    }
}

bool has_command(const case_t& one) {
    return std::any_of(one.checks.begin(), one.checks.end(), [](const task_check_t<rule_t>& check) {
        return std::holds_alternative<command_rule_t>(check.rule);
    });
}

} // namespace

bool leaves_files(const case_t& one) {
    return !one.input.cards.empty() || wanted_by(one).events || has_command(one);
}

void make_noise(uint64_t seed) {
    noise_seed = seed;
    clear_vga();
    clear_sdram();
    noise_of = seed;
    prepare_proofs();
}

seen_t run_case(analysis_t program, const case_t& one, uint64_t seed) {
    const wanted_t wanted = wanted_by(one);
    const std::string source = program.map.files.front().name;
    simulate_init();
    if (noise_of != seed) {
        make_noise(seed);
    }
    speaker_recording = wanted.sound || has_command(one);
    load(program.map);
    places_t places;
    places.program = source;
    places.labels = labels_of(program.map);
    places.analysis = std::move(program);
    std::istringstream script(one.input.script);
    const labels_t labels = places.labels;
    copy_cards(one.input.cards);
    try {
        check_written(run_batch(options_for(source, one, seed, wanted), labels, std::move(places),
                                read_script(script, one.name)));
    } catch (const usage_error_t& error) {
        throw tovik_error(error.message);
    }
    seen_t seen = look(wanted, labels);
    if (has_command(one)) {
        write_for_commands(seen);
    }
    return seen;
}

std::string missing_label(const analysis_t& program, const case_t& one) {
    for (const auto& [label, values] : one.input.set) {
        if (find_label(program.map, label) == NOTHING) {
            return label;
        }
    }
    return "";
}

std::string quoted_for_shell(const std::string& word) {
    constexpr std::string_view PLAIN = "_-+=,./:@%";
    const auto is_plain = [&](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || PLAIN.find(c) != std::string_view::npos;
    };
    if (!word.empty() && std::all_of(word.begin(), word.end(), is_plain)) {
        return word;
    }
    // A terminal would obey a control character, so printf makes it; it leaves out only line feeds at the
    // end.
    const auto is_control = [](char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0; };
    const bool is_printed = std::any_of(word.begin(), word.end(), is_control);
    std::string quoted;
    for (const char c : word) {
        if (is_control(c)) {
            std::array<char, 5> octal{};
            std::snprintf(octal.data(), octal.size(), "\\%03o", static_cast<unsigned>(c));
            quoted += octal.data();
        } else if (c == '\'') {
            quoted += R"('\'')";
        } else {
            quoted += std::string(is_printed && (c == '%' || c == '\\') ? 1 : 0, c) + c;
        }
    }
    return is_printed ? "\"$(printf '" + quoted + "')\"" : "'" + quoted + "'";
}

std::string command_for(const std::string& source, const case_t& one, uint64_t seed) {
    const options_t options = options_for(source, one, seed, {});
    std::string lines;
    for (size_t i = 0; i < one.input.cards.size(); ++i) {
        lines += "cp -- " + quoted_for_shell(one.input.cards[i]) + " " + card_name(i) + "\n";
    }
    std::string command = "tovik-run --report=json --limit=" + std::to_string(*options.limit) +
                          " --seed=" + std::to_string(options.seed) +
                          " --switches=" + std::to_string(options.switches);
    add_options(command, "set", options.set);
    add_options(command, "mic", options.mic_files);
    add_options(command, "camera", options.camera_files);
    add_options(command, "sd", options.sd_files);
    if (!one.input.script.empty()) {
        // No line of a script is a lone END.
        lines += std::string("cat > ") + SCRIPT_FILE + " << 'END'\n" + one.input.script +
                 (one.input.script.ends_with('\n') ? "" : "\n") + "END\n";
        add_options(command, "script", {SCRIPT_FILE});
    }
    return lines + command + " -- " + quoted_for_shell(source) + "\n";
}
