#include "assembler/source.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <limits>
#include <memory>
#include <utility>

#include "base/files.h"
#include "base/text.h"

namespace {

constexpr size_t BUFFER_SIZE = 64 * 1024;

// Offsets in a text are 32 bits wide.
constexpr size_t LARGEST_FILE = std::numeric_limits<uint32_t>::max() - BUFFER_SIZE;

constexpr std::array<bool, 256> make_separators() {
    std::array<bool, 256> separators{};
    for (const char c : WHITE_SPACE) {
        separators[static_cast<unsigned char>(c)] = true;
    }
    return separators;
}

constexpr std::array<bool, 256> SEPARATORS = make_separators();

bool separates(char c) { return SEPARATORS[static_cast<unsigned char>(c)]; }

// Reads until the file ends, or has come to its largest size. Returns 0, or the errno of the failure; the
// text is what came before.
int read_text(int descriptor, std::string& text, size_t largest) {
    const std::unique_ptr<char[]> buffer(new char[BUFFER_SIZE]);
    for (;;) {
        const ssize_t count = read_some(descriptor, buffer.get(), BUFFER_SIZE);
        if (count < 0) {
            return errno;
        }
        if (count == 0) {
            return 0;
        }
        if (text.size() > largest) {
            return EFBIG;
        }
        text.append(buffer.get(), static_cast<size_t>(count));
    }
}

// Two names of one file, such as a.k and lib/../a.k. Links are not followed: the files may be an editor's.
std::string path_of(const std::string& name) {
    return std::filesystem::path(name).lexically_normal().string();
}

// Index of the file of that name, which is new or has been met before.
uint32_t file_of(reading_t& reading, source_map_t& map, const std::string& name) {
    const auto file = static_cast<uint32_t>(map.files.size());
    const auto [known, is_new] = reading.names.emplace(name, file);
    if (is_new) {
        map.files.push_back({.name = name, .text = {}});
        const uint32_t identity = reading.paths.emplace(path_of(name), file).first->second;
        reading.known.push_back({.identity = identity});
    }
    return known->second;
}

bool is_open(const reading_t& reading, const source_map_t& map, uint32_t file) {
    return std::any_of(reading.open.begin(), reading.open.end(), [&](const level_t& level) {
        return reading.known[map.inclusions[level.inclusion].file].identity == reading.known[file].identity;
    });
}

// From the disk. The text is read once, but the file is opened each time.
opening_t open_on_disk(reading_t& reading, source_map_t& map, uint32_t file, held_file_t& held) {
    source_file_t& source = map.files[file];
    const int descriptor = open_regular(source.name);
    if (descriptor < 0) {
        return {.result = opening_e::FAILED, .file = file, .error = errno};
    }
    held = held_file_t(descriptor);
    if (!std::exchange(reading.known[file].opened, true)) {
        source.error = read_text(descriptor, source.text, LARGEST_FILE);
    }
    return {.result = opening_e::OPENED, .file = file};
}

// Where texts are given. Each is asked for once.
opening_t open_given(reading_t& reading, source_map_t& map, uint32_t file, bool is_new) {
    if (is_open(reading, map, file)) {
        return {.result = opening_e::CYCLE, .file = file};
    }
    source_file_t& source = map.files[file];
    if (is_new) {
        file_text_t given = (*reading.read)(source.name);
        reading.known[file].opened = given.opened;
        source.error = given.error;
        source.text = std::move(given.text);
    }
    const opening_e result = reading.known[file].opened ? opening_e::OPENED : opening_e::FAILED;
    return {.result = result, .file = file, .error = source.error};
}

} // namespace

held_file_t::~held_file_t() { close_file(descriptor_); }

held_file_t::held_file_t(held_file_t&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

held_file_t& held_file_t::operator=(held_file_t&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

file_text_t read_file(const std::string& name) {
    int descriptor = open_regular(name);
    if (descriptor < 0) {
        return {.text = {}, .error = errno, .opened = false};
    }
    const held_file_t held(descriptor);
    file_text_t file;
    // At a line that lies behind this `analyse` has stopped. A file can have any size and be empty space.
    const int error = read_text(descriptor, file.text, size_t{MOST_BYTES} + MOST_LINES);
    file.error = error == EFBIG ? 0 : error;
    return file;
}

bool pathname_is_absolute(std::string_view name) { return name.starts_with('/'); }

std::string resolve_name(const reading_t& reading, const source_map_t& map, std::string_view name) {
    if (pathname_is_absolute(name) || reading.open.empty()) {
        return std::string(name);
    }
    const std::string_view including = map.files[map.inclusions[reading.open.back().inclusion].file].name;
    const size_t slash = including.rfind('/');
    const size_t directory_length = slash == std::string_view::npos ? 0 : slash + 1;
    return std::string(including.substr(0, directory_length)).append(name);
}

opening_t open_file(reading_t& reading, source_map_t& map, const std::string& name) {
    const size_t met = map.files.size();
    const uint32_t file = file_of(reading, map, name);
    level_t level{.inclusion = static_cast<uint32_t>(map.inclusions.size() - 1)};
    const opening_t opening = reading.read == nullptr ? open_on_disk(reading, map, file, level.held)
                                                      : open_given(reading, map, file, file == met);
    if (opening.result == opening_e::OPENED) {
        known_file_t& known = reading.known[file];
        known.inclusion = std::min(known.inclusion, level.inclusion);
        map.inclusions.back().file = file;
        reading.open.push_back(std::move(level));
    }
    return opening;
}

std::optional<line_t> read_line(level_t& level, const source_file_t& file) {
    const std::string_view rest = std::string_view(file.text).substr(level.position);
    const size_t size = std::min(rest.find('\n'), rest.size());
    // Of a line that could not be read on nobody knows what it says.
    if (rest.empty() || (size == rest.size() && file.error != 0)) {
        return std::nullopt;
    }
    const line_t line{.begin = level.position, .text = rest.substr(0, size)};
    level.position += static_cast<uint32_t>(std::min(size + 1, rest.size()));
    ++level.line_number;
    return line;
}

size_t stray_carriage_return(std::string_view line) {
    const size_t carriage_return = line.find('\r');
    return carriage_return + 1 == line.size() ? std::string_view::npos : carriage_return;
}

std::string_view without_comment(std::string_view line) { return line.substr(0, line.find("//")); }

span_t take_token(std::string_view text, uint32_t& position) {
    while (position < text.size() && separates(text[position])) {
        ++position;
    }
    const uint32_t begin = position;
    while (position < text.size() && !separates(text[position])) {
        ++position;
    }
    return {.begin = begin, .size = position - begin};
}

bool split_line(const line_t& line, statement_t& statement) {
    const std::string_view text = without_comment(line.text);
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) {
        return false;
    }
    uint32_t position = 0;
    const auto take = [&] {
        span_t token = take_token(text, position);
        token.begin += line.begin;
        return token;
    };
    statement.label = first == 0 ? take() : span_t();
    statement.opcode = take();
    for (operand_t& operand : statement.operands) {
        operand.token = take();
    }
    statement.extra = take();
    return true;
}
