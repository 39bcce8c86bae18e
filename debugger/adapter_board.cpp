// The board itself, for front ends that draw it: what it shows, and what its user does.

#include <algorithm>
#include <array>
#include <cstdio>
#include <deque>
#include <span>
#include <utility>

#include "base/machine.h"
#include "debugger/adapter_internal.h"
#include "debugger/history.h"
#include "devices/audio.h"
#include "devices/camera.h"
#include "devices/ledswitchtimer.h"
#include "devices/mouse.h"
#include "devices/ps2.h"
#include "devices/save.h"
#include "devices/serial.h"
#include "devices/wav.h"
#include "ui/screen.h"

namespace {

constexpr uint64_t US_BETWEEN_EVENTS = 1'000'000 / 30;
constexpr uint64_t US_BETWEEN_MOMENTS = 1'000'000 / 4; // where only time passes
constexpr int US_PER_MS = 1000;

// At most so many in one event: ten seconds.
constexpr size_t MOST_SAMPLES = 80'000;

// What is typed at once: the serial port keeps no more. It is remembered as long as the history.
constexpr size_t MOST_TYPED = 1024;

std::string typed(std::string text) {
    if (text.size() > MOST_TYPED) {
        throw refused_t{"more than " + std::to_string(MOST_TYPED) + " characters at once"};
    }
    return text;
}

std::string lcd_line(int line) {
    std::string text;
    for (const uint8_t character : machine.lcd_ram[line]) {
        text += character >= ' ' && character <= '~' ? static_cast<char>(character) : ' ';
    }
    return text;
}

std::string digits(int32_t value) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%04X", static_cast<uint32_t>(value) & 0xffff);
    return text.data();
}

// All but the screen and the sound.
json members_now() {
    return {{"switches", machine.sw},
            {"ledRed", machine.led_red},
            {"ledGreen", machine.led_green},
            {"hex", digits(machine.hex74) + digits(machine.hex30)},
            {"lcd", {lcd_line(0), lcd_line(1)}},
            {"mouseActive", machine.mouse_active == 1}};
}

std::string color_text(uint32_t color) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "#%06x", color & 0xffffff);
    return text.data();
}

json rectangle(const box_t& box) {
    return {{"x", box.x1}, {"y", box.y1}, {"width", box.x2 - box.x1 + 1}, {"height", box.y2 - box.y1 + 1}};
}

std::string pixels_in(const box_t& box) {
    std::string bytes;
    for (int32_t y = box.y1; y <= box.y2; ++y) {
        for (int32_t x = box.x1; x <= box.x2; ++x) {
            const uint32_t color = machine.vga_picture[y][x];
            bytes +=
                {static_cast<char>(color >> 16), static_cast<char>(color >> 8), static_cast<char>(color)};
        }
    }
    return bytes;
}

json screen_rectangles() {
    const screen_changes_t changes = take_screen_changes();
    json rectangles = json::array();
    if (changes.copy) {
        json one = rectangle(changes.area);
        one["rgb"] = base64_of(pixels_in(changes.area));
        rectangles.push_back(std::move(one));
        return rectangles;
    }
    for (const colored_box_t& fill : changes.fills) {
        json one = rectangle(fill.box);
        one["color"] = color_text(true_color(fill.color));
        rectangles.push_back(std::move(one));
    }
    return rectangles;
}

// What the speaker has played since the last call, the low byte of each sample first.
std::string new_sound() {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
    const std::vector<int16_t> played = std::exchange(front.played, {});
    return std::string(bytes_of(std::span(played)));
}

bool is_recording = false;
std::deque<sample_run_t> recorded;

void hear(int32_t sample) {
    if (front.hears && front.played.size() < MOST_SAMPLES) {
        front.played.push_back(sample_of_host(sample));
    }
    if (is_recording) {
        add_sample(recorded, sample);
    }
}

// An act of the user's, at the board.
void act(adapter_t& adapter, std::function<void()> what) {
    check_launched(adapter);
    session_act(std::move(what));
    if (adapter.phase != phase_e::RUNNING) {
        tell_changed(adapter, "variables");
    }
}

} // namespace

std::string lcd_text() { return lcd_line(0) + "|" + lcd_line(1); }

// What it showed in the past has been told.
void tell_lcd(adapter_t& adapter) {
    if (history_now() < history_newest()) {
        return;
    }
    if (const std::string text = lcd_text(); text != adapter.lcd_told) {
        adapter.lcd_told = text;
        tell_output(adapter, "console", "LCD: " + text + "\n");
    }
}

void tell_lcd_at_rest(adapter_t& adapter, uint64_t now_us) {
    constexpr uint64_t REST_US = 200'000;
    if (const std::string text = lcd_text(); text != adapter.lcd_seen) {
        adapter.lcd_seen = text;
        adapter.lcd_seen_us = now_us;
    } else if (adapter.phase == phase_e::RUNNING && now_us - adapter.lcd_seen_us >= REST_US) {
        tell_lcd(adapter);
    }
}

std::optional<int> tell_board(adapter_t& adapter, uint64_t now_us) {
    board_told_t& board = adapter.board;
    if (!board.wanted) {
        return std::nullopt;
    }
    if (board.at_us != 0 && now_us - board.at_us < US_BETWEEN_EVENTS) {
        return static_cast<int>((US_BETWEEN_EVENTS - (now_us - board.at_us)) / US_PER_MS + 1);
    }
    const json now = members_now();
    json body = json::object();
    for (const auto& [name, value] : now.items()) {
        if (member(board.members, name.c_str()) != value) {
            body[name] = value;
        }
    }
    if (board.screen) {
        if (json rectangles = screen_rectangles(); !rectangles.empty()) {
            body["screen"] = std::move(rectangles);
        }
    }
    if (board.sound) {
        if (const std::string sound = new_sound(); !sound.empty()) {
            body["sound"] = base64_of(sound);
        }
    }
    const bool only_time = body.empty();
    if (only_time && (adapter.phase != phase_e::RUNNING || now_us - board.at_us < US_BETWEEN_MOMENTS)) {
        return std::nullopt;
    }
    board.members = now;
    board.at_us = now_us;
    body["moment"] = history_now();
    tell(adapter, "tovik/board", std::move(body));
    return static_cast<int>(US_BETWEEN_EVENTS / US_PER_MS + 1);
}

json board_switch(adapter_t& adapter, const json& arguments) {
    const auto number = static_cast<int>(number_in(arguments, "number", 0, SWITCHES - 1));
    const bool on = flag_in(arguments, "on", (machine.sw >> number & 1) == 0);
    act(adapter, [=] {
        if ((machine.sw >> number & 1) != (on ? 1 : 0)) {
            io_sw_toggle(number);
        }
    });
    return {{"switches", machine.sw}};
}

json board_key(adapter_t& adapter, const json& arguments) {
    constexpr int HIGHEST_CODE = 255;
    if (flag_in(arguments, "controlM")) {
        act(adapter, [] { io_ps2_ctrlm(); });
        return nullptr;
    }
    if (const std::string text = typed(text_in(arguments, "text", "")); !text.empty()) {
        act(adapter, [text] {
            for (const char c : text) {
                io_ps2_press(c);
                io_ps2_release(c);
            }
        });
        return nullptr;
    }
    const auto c = static_cast<char>(number_in(arguments, "code", 0, HIGHEST_CODE));
    const bool down = flag_in(arguments, "down", true);
    act(adapter, [=] { (down ? io_ps2_press : io_ps2_release)(c); });
    return nullptr;
}

json board_pointer(adapter_t& adapter, const json& arguments) {
    constexpr int BUTTONS = 3;
    constexpr int FARTHEST = 1 << 20;
    const bool moves = !member(arguments, "x").is_null() || !member(arguments, "y").is_null();
    const auto x = moves ? static_cast<int>(number_in(arguments, "x", -FARTHEST, FARTHEST)) : 0;
    const auto y = moves ? static_cast<int>(number_in(arguments, "y", -FARTHEST, FARTHEST)) : 0;
    const auto button = static_cast<int>(number_in(arguments, "button", 1, BUTTONS, 0));
    const bool down = flag_in(arguments, "down", true);
    const json& inside = member(arguments, "inside");
    const bool enters = flag_in(arguments, "inside");
    const bool crosses = !inside.is_null();
    act(adapter, [=] {
        if (crosses && !enters) {
            io_mouse_deactivate();
        } else if (crosses && machine.mouse_active == 0) {
            io_mouse_activate();
        }
        if (moves) {
            io_mouse_motion(x, y);
        }
        if (button != 0) {
            (down ? io_mouse_press : io_mouse_release)(button - 1);
        }
    });
    return nullptr;
}

json board_serial(adapter_t& adapter, const json& arguments) {
    std::string bytes = text_in(arguments, "text", "");
    if (!member(arguments, "data").is_null()) {
        const std::optional<std::string> data = bytes_of_base64(text_in(arguments, "data"));
        if (!data) {
            throw refused_t{"data is not base64"};
        }
        bytes = *data;
    }
    act(adapter,
        [bytes = typed(std::move(bytes))] { std::for_each(bytes.begin(), bytes.end(), io_serial_press); });
    return nullptr;
}

json board_microphone(adapter_t& adapter, const json& arguments) {
    const bool on = flag_in(arguments, "on");
    act(adapter, [on] { (on ? microphone_connect : microphone_disconnect)(); });
    return {{"on", simulator.microphone_on}};
}

json board_camera(adapter_t& adapter, const json& arguments) {
    const bool on = flag_in(arguments, "on");
    act(adapter, [on] { (on ? camera_connect : camera_disconnect)(); });
    return {{"on", simulator.camera_on}};
}

void begin_sound(bool is_heard) {
    is_recording = false;
    recorded.clear();
    front.hears = front.hears || is_heard;
    speaker_recording = false;
    session_played = hear;
}

json board_record(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    is_recording = flag_in(arguments, "on");
    if (is_recording) {
        recorded.clear();
    }
    return nullptr;
}

json save_recording(adapter_t& /*adapter*/, const json& arguments) {
    saved_file_t file(text_in(arguments, "file"));
    write_wav(file, recorded);
    file.close();
    return nullptr;
}

json board_card(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    if (member(arguments, "goesBack").is_null()) {
        throw refused_t{"goesBack is neither true nor false"};
    }
    answer_card(adapter, flag_in(arguments, "goesBack"));
    return nullptr;
}

json answer_card(adapter_t& adapter, bool goes_back) {
    adapter.card_answer = goes_back;
    const std::string does = goes_back ? "goes back with" : "stays as it is at";
    return {{"result", "The card " + does + " the next change."}, {"variablesReference", 0}};
}

way_t<json> go_to_moment(adapter_t& adapter, json arguments) {
    check_begun(adapter);
    const auto moment = static_cast<moment_t>(number_in(arguments, "moment", 0, INT64_MAX));
    adapter.went_at = history_now();
    going_t going(adapter, "Going to another moment");
    const bool arrived = co_await session_go_to(moment, going.progress());
    adapter.stop = {};
    tell_stopped(adapter, "goto", arrived ? "" : "Given up on the way");
    co_return json({{"now", history_now()}});
}

json history_bounds(adapter_t& adapter, const json& /*arguments*/) {
    check_launched(adapter);
    return {{"first", history_first()}, {"now", history_now()}, {"newest", history_newest()}};
}

way_t<json> last_write(adapter_t& adapter, json arguments) {
    check_stopped(adapter);
    const int32_t place = place_named(text_in(arguments, "expression"));
    going_t going(adapter, LOOKS_BACK);
    const std::optional<change_t> written = co_await session_last_write(place, going.progress());
    going.check();
    if (!written) {
        co_return json({{"found", false}});
    }
    co_return json({{"found", true},
                    {"moment", written->moment},
                    {"count", written->count},
                    {"byUser", written->by_user},
                    {"instructionReference", memory_reference(written->pc)},
                    {"place", shown(where(session_places(), written->pc))}});
}
