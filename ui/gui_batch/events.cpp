#include "ui/gui_batch/events.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "base/machine.h"
#include "devices/audio.h"
#include "devices/serial.h"
#include "devices/vga.h"
#include "ui/gui_batch/report.h"
#include "ui/screen.h"

namespace {

using json_t = nlohmann::ordered_json;

// A speaker whose sample stays the same for so long is silent: 20 ms, half a turn of 25 Hz.
constexpr uint64_t SILENT_TICKS = SAMPLES_PER_SECOND / 50;

struct happening_t {
    uint64_t count;
    std::string line;
};

struct lamps_t {
    int32_t led_red;
    int32_t led_green;
    int32_t hex74;
    int32_t hex30;
    std::array<uint8_t, sizeof machine.lcd_ram> lcd;
};

// What the speaker plays, followed through its recording.
struct sound_t {
    size_t run = 0;         // the stretch of the recording that is being followed
    uint64_t run_ticks = 0; // how much of it
    int32_t sample = 0;
    uint64_t ticks = 0;       // all that have been followed
    uint64_t last_change = 0; // the tick
    bool sounds = false;
};

struct events_t {
    stream_t file;
    bool keep_sound = false;
    std::optional<uint64_t> displays_left; // events that may be told, and then no others
    std::vector<happening_t> waiting;      // what comes before them may not be known yet
    lamps_t lamps{};
    sound_t sound;
};

events_t events;

bool is_on() { return events.file.descriptor >= 0; }

std::string seconds_at(uint64_t count) {
    constexpr uint64_t NS_PER_SECOND = 1'000'000'000;
    const uint64_t ns = count * NS_PER_INSTRUCTION;
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%llu.%09llu",
                  static_cast<unsigned long long>(ns / NS_PER_SECOND),
                  static_cast<unsigned long long>(ns % NS_PER_SECOND));
    return text.data();
}

void add(uint64_t count, const std::string& event, const json_t& facts = json_t::object()) {
    std::string line = "{\"count\":" + std::to_string(count) + ",\"time\":" + seconds_at(count) +
                       ",\"event\":\"" + event + "\"";
    if (!facts.empty()) {
        line += "," + facts.dump().substr(1);
    } else {
        line += "}";
    }
    events.waiting.push_back({count, std::move(line) + "\n"});
    if (events.displays_left && *events.displays_left > 0) {
        --*events.displays_left; // several may come at once
    }
}

std::string four_digits(int32_t value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04x", static_cast<unsigned>(value));
    return text.data();
}

lamps_t lamps_now() {
    lamps_t lamps = {.led_red = machine.led_red,
                     .led_green = machine.led_green,
                     .hex74 = machine.hex74,
                     .hex30 = machine.hex30,
                     .lcd = {}};
    std::memcpy(lamps.lcd.data(), machine.lcd_ram, sizeof machine.lcd_ram);
    return lamps;
}

void note_sent(char byte) { add(machine.instr_count, "serial", {{"byte", static_cast<uint8_t>(byte)}}); }

void note_painted(const box_t& box, const uint16_t* color) {
    json_t facts = {{"x1", box.x1}, {"y1", box.y1}, {"x2", box.x2}, {"y2", box.y2}};
    if (color == nullptr) {
        // A picture of the camera, which may be smaller than the box in which the screen looks for changes.
        const int32_t shift = 3 - machine.camera_scale;
        facts["x2"] = std::min(box.x1 + (VGA_WIDTH >> shift), VGA_WIDTH) - 1;
        facts["y2"] = std::min(box.y1 + (VGA_HEIGHT >> shift), VGA_HEIGHT) - 1;
        if (box.x1 >= VGA_WIDTH || box.y1 >= VGA_HEIGHT) {
            return;
        }
    } else {
        facts["color"] = *color;
        facts["done"] = machine.vga_response_instr;
    }
    add(machine.instr_count, color == nullptr ? "camera" : "picture", facts);
}

uint64_t count_at_tick(uint64_t tick) { return tick * INSTRUCTIONS_PER_AUDIO_TICK; }

void follow_samples(int32_t sample, uint64_t ticks) {
    sound_t& sound = events.sound;
    if (sample != sound.sample) {
        sound.sample = sample;
        sound.last_change = sound.ticks + 1;
        if (!std::exchange(sound.sounds, true)) {
            add(count_at_tick(sound.last_change), "tone_start");
        }
    }
    sound.ticks += ticks;
    if (sound.sounds && sound.ticks - sound.last_change >= SILENT_TICKS) {
        sound.sounds = false;
        add(count_at_tick(sound.last_change), "tone_stop");
    }
}

void follow_sound() {
    if (events.displays_left) {
        return;
    }
    sound_t& sound = events.sound;
    for (; sound.run < machine.speaker_samples.size(); ++sound.run, sound.run_ticks = 0) {
        const sample_run_t& run = machine.speaker_samples[sound.run];
        if (run.times > sound.run_ticks) {
            follow_samples(run.sample, run.times - sound.run_ticks);
        }
        if (sound.run + 1 == machine.speaker_samples.size()) {
            sound.run_ticks = run.times; // it may become longer
            break;
        }
    }
    if (!events.keep_sound) {
        machine.speaker_samples.clear();
        sound.run = 0;
        sound.run_ticks = 0;
    }
}

// A tone that sounds may turn out to have stopped at its last change.
void write_until(uint64_t count) {
    std::stable_sort(
        events.waiting.begin(), events.waiting.end(),
        [](const happening_t& left, const happening_t& right) { return left.count < right.count; });
    const auto end = std::upper_bound(events.waiting.begin(), events.waiting.end(), count,
                                      [](uint64_t most, const happening_t& one) { return most < one.count; });
    for (auto one = events.waiting.begin(); one != end; ++one) {
        append_to_stream(events.file, one->line);
    }
    events.waiting.erase(events.waiting.begin(), end);
    flush_stream(events.file);
}

} // namespace

void begin_events(stream_t file, bool keep_sound, std::optional<uint64_t> display_events) {
    events = {.file = std::move(file),
              .keep_sound = keep_sound,
              .displays_left = display_events,
              .waiting = {},
              .lamps = lamps_now(),
              .sound = {}};
    if (!is_on()) {
        return;
    }
    begin_stream(events.file);
    if (display_events) {
        return;
    }
    speaker_recording = true;
    serial_sent = note_sent;
    screen_painted = note_painted;
}

void note_lamps() {
    if (!is_on() || events.displays_left == 0U) {
        return;
    }
    const lamps_t now = lamps_now();
    const lamps_t before = std::exchange(events.lamps, now);
    for (const auto& [name, lamp] :
         {std::pair{"led_red", &lamps_t::led_red}, {"led_green", &lamps_t::led_green}}) {
        if (now.*lamp != before.*lamp) {
            add(machine.instr_count, name, {{"value", now.*lamp}});
        }
    }
    for (const auto& [name, display] : {std::pair{"hex74", &lamps_t::hex74}, {"hex30", &lamps_t::hex30}}) {
        if (now.*display != before.*display) {
            add(machine.instr_count, name, {{"digits", four_digits(now.*display)}});
        }
    }
    if (now.lcd != before.lcd) {
        add(machine.instr_count, "lcd",
            {{"lines", {characters(machine.lcd_ram[0]), characters(machine.lcd_ram[1])}}});
    }
}

bool write_events() {
    if (is_on()) {
        follow_sound();
        const sound_t& sound = events.sound;
        write_until(sound.sounds ? count_at_tick(sound.last_change) - 1 : machine.instr_count);
    }
    return events.file.error == 0;
}

bool end_events() {
    if (!is_on()) {
        return true;
    }
    serial_sent = nullptr;
    screen_painted = nullptr;
    follow_sound();
    write_until(UINT64_MAX);
    return close_stream(events.file);
}
