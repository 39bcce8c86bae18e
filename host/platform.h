#pragma once

// The doors to the computer, as each platform has them: what the headers beside say, in a namespace of its
// own. Only `doors` calls these, which also notes what comes through; devices and front ends call the
// functions of the headers.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace platform {

// capture.h
[[nodiscard]] bool capture_open();
[[nodiscard]] bool capture_ready(int most_ms);
[[nodiscard]] bool capture_settled(int most_ms);
[[nodiscard]] const uint8_t* capture_take();
void capture_give_back();
[[nodiscard]] bool capture_stop();
void capture_close();

// clock.h
uint64_t time_ms();

// line.h
struct line_broken_t {
    std::string reason; // why a line can no longer be written to
};
void line_open_device(const std::string& name);
void line_open_cable(const std::string& name);
[[nodiscard]] std::optional<std::string> line_connect();
[[nodiscard]] bool line_ready(int most_ms);
[[nodiscard]] size_t line_read(std::span<char> room);
[[nodiscard]] size_t line_write(std::span<const char> bytes);
void line_close();

// sound.h
void playback_open();
size_t playback_room(int most_ms);
void playback_write(std::span<const int16_t> samples);
void playback_close();
void record_open();
[[nodiscard]] bool record_ready(int most_ms);
[[nodiscard]] int16_t record_read();
void record_close();

// What storage.h is made of. A file that exists, as a number of the platform's own; or the negative errno.
[[nodiscard]] int file_open(const std::string& name, bool to_write);

// What a file is and when it was last written: equal as long as it is the same, unchanged.
struct file_stamp_t {
    uint64_t device;
    uint64_t number;
    int64_t changed_ns; // since 1970
    int64_t size;       // bytes, or the negative errno where there is no end
    bool operator==(const file_stamp_t&) const = default;
};
[[nodiscard]] file_stamp_t file_stamp(int file);

// The bytes read, fewer where the file ends, or the negative errno; 0 or the errno.
[[nodiscard]] int64_t file_read(int file, std::span<char> bytes, int64_t offset);
[[nodiscard]] int file_write(int file, std::span<const char> bytes, int64_t offset);
[[nodiscard]] int file_resize(int file, int64_t size);
void file_close(int file);

} // namespace platform
