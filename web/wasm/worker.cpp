// tovik in a browser's worker: the language server and the debug adapter with the board, whose messages are
// handed in and out as texts, and the doors to the page. The worker's own program, web/worker/worker.ts,
// calls these functions; none of them waits, and none ends anything.

#include <algorithm>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <emscripten/emscripten.h>

#include "base/files.h"
#include "base/machine.h"
#include "base/messages.h"
#include "debugger/adapter.h"
#include "debugger/front.h"
#include "host/web.h"
#include "language/server.h"
#include "ui/screen.h"

namespace {

// The files of the page are few.
std::vector<std::string> list_sources(const std::string& folder) {
    namespace fs = std::filesystem;
    std::vector<std::string> names;
    std::error_code error;
    for (fs::recursive_directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        if (std::string name = at->path().string(); name.ends_with(".k")) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

server_t server{.read = read_file, .list = list_sources, .version = TOVIK_VERSION};

adapter_t new_adapter() {
    adapter_t adapter;
    adapter.version = TOVIK_VERSION;
    adapter.piece_us = 2'000; // the worker puts several together, and looks at its clock in between
    return adapter;
}

adapter_t adapter = new_adapter();
adapter_pass_t pass;

// What has come behind the end is for the next one, which may come to its end as well.
void begin_anew_if_over(std::vector<std::string>& messages) {
    while (adapter.over) {
        const std::deque<nlohmann::json> waiting = std::move(adapter.waiting);
        adapter = new_adapter();
        for (const nlohmann::json& message : waiting) {
            const std::vector<std::string> answers = adapter_take(adapter, message.dump());
            messages.insert(messages.end(), answers.begin(), answers.end());
        }
    }
}

// Texts for the page, which stay until the next call. No JSON text has a line end of its own.
const char* handed_out(const std::vector<std::string>& texts) {
    static std::string lines;
    lines.clear();
    for (const std::string& text : texts) {
        lines += text;
        lines += '\n';
    }
    return lines.c_str();
}

std::vector<uint32_t> pixels; // of the screen, for the page
box_t pixels_box;

// The colours of a canvas have red first and are opaque.
uint32_t canvas_color(uint32_t color) {
    return 0xff000000U | (color & 0xff) << 16 | (color & 0xff00) | (color >> 16 & 0xff);
}

box_t bounds_of(const screen_changes_t& changes) {
    if (changes.copy) {
        return changes.area;
    }
    box_t bounds = changes.fills.front().box;
    for (const colored_box_t& fill : changes.fills) {
        bounds = {std::min(bounds.x1, fill.box.x1), std::min(bounds.y1, fill.box.y1),
                  std::max(bounds.x2, fill.box.x2), std::max(bounds.y2, fill.box.y2)};
    }
    return bounds;
}

} // namespace

extern "C" {

// ---- The servers: each takes a message and returns those to be sent, a line each.

EMSCRIPTEN_KEEPALIVE const char* language_take(const char* message) {
    return handed_out(answer_text(server, message));
}

EMSCRIPTEN_KEEPALIVE const char* board_take(const char* message) {
    std::vector<std::string> answers = adapter_take(adapter, message);
    begin_anew_if_over(answers);
    return handed_out(answers);
}

// Goes on with the board. `speaker_us` is the time of what the loudspeaker has asked for; negative: there is
// none.
EMSCRIPTEN_KEEPALIVE const char* board_run(double now_us, double speaker_us) {
    adapter.speaker_us = speaker_us < 0 ? std::nullopt : std::optional(static_cast<uint64_t>(speaker_us));
    pass = adapter_run(adapter, static_cast<uint64_t>(now_us));
    begin_anew_if_over(pass.messages);
    return handed_out(pass.messages);
}

// After how many milliseconds to call board_run again, unless something comes before; -1: when it does.
EMSCRIPTEN_KEEPALIVE int board_next_ms() { return pass.next_ms.value_or(-1); }

// Whether the program waits for something of the page's, and it has not come.
EMSCRIPTEN_KEEPALIVE bool board_waits() { return pass.wait != nullptr && !pass.wait(0); }

// ---- The screen

// Whether something has changed since the last call: then `screen_box` has its corners, which are both in it,
// and `screen_pixels` its pixels row by row, as a canvas has them.
EMSCRIPTEN_KEEPALIVE bool screen_take() {
    // The picture is then one of somewhere on the way.
    if (adapter_is_on_its_way(adapter)) {
        return false;
    }
    const screen_changes_t changes = take_screen_changes();
    if (!changes.copy && changes.fills.empty()) {
        return false;
    }
    pixels_box = bounds_of(changes);
    pixels.clear();
    for (int32_t y = pixels_box.y1; y <= pixels_box.y2; ++y) {
        std::transform(&machine.vga_picture[y][pixels_box.x1], &machine.vga_picture[y][pixels_box.x2] + 1,
                       std::back_inserter(pixels), canvas_color);
    }
    return true;
}

EMSCRIPTEN_KEEPALIVE const box_t* screen_box() { return &pixels_box; }

EMSCRIPTEN_KEEPALIVE const uint32_t* screen_pixels() { return pixels.data(); }

// ---- Sound

// Whether what the speaker plays is wanted. What it has played, 16 bits a sample, until `speaker_clear`.
EMSCRIPTEN_KEEPALIVE void speaker_hear(bool on) {
    front.hears = on;
    front.played.clear();
}

EMSCRIPTEN_KEEPALIVE const int16_t* speaker_samples() { return front.played.data(); }

EMSCRIPTEN_KEEPALIVE size_t speaker_count() { return front.played.size(); }

EMSCRIPTEN_KEEPALIVE void speaker_clear() { front.played.clear(); }

EMSCRIPTEN_KEEPALIVE void microphone_attach(bool on) { web_host.has_microphone = on; }

EMSCRIPTEN_KEEPALIVE void microphone_put(const int16_t* samples, size_t count) {
    constexpr size_t MOST = 8000; // a second: a program that reads slower gets the newest
    web_host.recorded.insert(web_host.recorded.end(), samples, samples + count);
    while (web_host.recorded.size() > MOST) {
        web_host.recorded.pop_front();
    }
}

// ---- Camera

EMSCRIPTEN_KEEPALIVE void camera_attach(bool on) { web_host.has_camera = on; }

EMSCRIPTEN_KEEPALIVE void camera_put(const uint8_t* yuyv, size_t count) {
    web_host.frame = std::vector<uint8_t>(yuyv, yuyv + count);
}

// Whether the program has not taken the frame yet.
EMSCRIPTEN_KEEPALIVE bool camera_keeps() { return web_host.frame.has_value(); }

// ---- Serial line

// What the program wants of it: 0 closed, 1 a device, 2 a cable; and its name.
EMSCRIPTEN_KEEPALIVE int line_wanted() { return static_cast<int>(web_host.line); }

EMSCRIPTEN_KEEPALIVE const char* line_wanted_name() { return web_host.line_name.c_str(); }

// Changes each time that the program wants something.
EMSCRIPTEN_KEEPALIVE uint32_t line_times() { return web_host.line_times; }

EMSCRIPTEN_KEEPALIVE void line_opened(const char* partner) { web_host.partner = partner; }

EMSCRIPTEN_KEEPALIVE void line_failed(const char* reason) { web_host.line_failure = reason; }

EMSCRIPTEN_KEEPALIVE void line_put(const char* bytes, size_t count) {
    constexpr size_t MOST = 65536; // what comes while nobody reads is lost in the end, as on any line
    count = std::min(count, MOST - std::min(MOST, web_host.line_in.size()));
    web_host.line_in.insert(web_host.line_in.end(), bytes, bytes + count);
}

EMSCRIPTEN_KEEPALIVE const char* line_sent() { return web_host.line_out.data(); }

EMSCRIPTEN_KEEPALIVE size_t line_sent_count() { return web_host.line_out.size(); }

EMSCRIPTEN_KEEPALIVE void line_clear() { web_host.line_out.clear(); }
}

int main() {
    graphical_display = true;
    return 0;
}
