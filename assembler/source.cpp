#include "assembler/source.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/files.h"
#include "base/machine.h"
#include "base/text.h"

namespace {

constexpr size_t BUFFER_SIZE = 64 * 1024;

std::string_view without_comment(std::string_view line) { return line.substr(0, line.find("//")); }

// Takes the next token from the front of the text; empty when there is none.
std::string_view take_token(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(WHITE_SPACE), text.size()));
    const std::string_view token = text.substr(0, text.find_first_of(WHITE_SPACE));
    text.remove_prefix(token.size());
    return token;
}

std::string resolve_name(const file_stack_t& files, std::string_view name) {
    if (pathname_is_absolute(name) || files.open.empty()) {
        return std::string(name);
    }
    const std::string_view including = files.open.back()->name;
    const size_t slash = including.rfind('/');
    const size_t directory_length = slash == std::string_view::npos ? 0 : slash + 1;
    return std::string(including.substr(0, directory_length)).append(name);
}

} // namespace

input_stream_t::input_stream_t(const std::string& name)
    : descriptor_(open_regular(name)), error_(descriptor_ < 0 ? errno : 0) {}

input_stream_t::~input_stream_t() { close_file(descriptor_); }

bool input_stream_t::fill() {
    if (buffer_ == nullptr) {
        buffer_ = std::make_unique_for_overwrite<char[]>(BUFFER_SIZE);
    }
    ssize_t count = read_some(descriptor_, buffer_.get(), BUFFER_SIZE);
    if (count < 0) {
        error_ = errno;
        count = 0;
    }
    position_ = 0;
    size_ = static_cast<uint32_t>(count);
    return size_ > 0;
}

bool input_stream_t::read_line(std::string& line) {
    if (position_ == size_ && !fill()) {
        return false;
    }
    line.clear();
    do {
        const char* const start = buffer_.get() + position_;
        const char* const end = buffer_.get() + size_;
        const char* const line_feed = std::find(start, end, '\n');
        line.append(start, line_feed);
        if (line_feed != end) {
            position_ = static_cast<uint32_t>(line_feed + 1 - buffer_.get());
            return true;
        }
    } while (fill());
    return error_ == 0;
}

void input_stream_t::suspend() {
    if (const int error = go_back(descriptor_, size_ - position_); error != 0) {
        error_ = error;
    }
    buffer_.reset();
    position_ = 0;
    size_ = 0;
}

bool pathname_is_absolute(std::string_view name) { return name.starts_with('/'); }

void open_file(file_stack_t& files, std::string_view name) {
    const std::string& resolved = *files.names.insert(resolve_name(files, name)).first;
    // Built in place: a stream does not move.
    std::unique_ptr<input_file_t> file(new input_file_t{resolved, input_stream_t(resolved), 0});
    if (file->handle.error() != 0) {
        throw tovik_error(cant_open_text(resolved, file->handle.error()));
    }
    if (!files.open.empty()) {
        files.open.back()->handle.suspend();
    }
    files.open.push_back(std::move(file));
}

bool get_parse_line(input_file_t& file, parsed_line_t& parsed) {
    while (file.handle.read_line(parsed.line)) {
        ++file.line_number;
        const std::string_view line = parsed.line;
        const size_t carriage_return = line.find('\r');
        if (carriage_return != std::string_view::npos && carriage_return + 1 != line.size()) {
            throw tovik_error("carriage return in the middle of a line");
        }
        std::string_view text = without_comment(line);
        const size_t first = text.find_first_not_of(" \t\r");
        if (first == std::string_view::npos) {
            continue;
        }
        parsed.label = first == 0 ? take_token(text) : std::string_view();
        parsed.opcode = take_token(text);
        for (std::string_view& operand : parsed.operands) {
            operand = take_token(text);
        }
        parsed.extra = take_token(text);
        return true;
    }
    if (file.handle.error() != 0) {
        throw tovik_error(cant_read_text(std::string(file.name), file.handle.error()));
    }
    return false;
}

void check_empty(std::string_view text) {
    if (!text.empty()) {
        throw tovik_error("extra characters at end of line");
    }
}
