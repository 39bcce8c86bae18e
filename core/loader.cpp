#include "core/loader.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <optional>
#include <string_view>
#include <vector>

#include "base/files.h"
#include "base/machine.h"
#include "base/messages.h"
#include "base/text.h"
#include "core/engine.h"
#include "core/memory.h"
#include "core/simulate.h"

namespace {

constexpr int32_t HEADER_LINES = 6;

struct word_t {
    int32_t address;
    int32_t value;
};

void skip_blanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(WHITE_SPACE), text.size()));
}

// Takes a decimal integer, after blanks and with an optional sign, from the front of the text.
std::optional<int32_t> take_integer(std::string_view& text) {
    skip_blanks(text);
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) {
            return std::nullopt;
        }
    }
    int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{}) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return value;
}

// A line of the content: an address, a separator that can be any word, a value; what follows is ignored.
std::optional<word_t> parse_word(std::string_view line) {
    const std::optional<int32_t> address = take_integer(line);
    if (!address) {
        return std::nullopt;
    }
    skip_blanks(line);
    if (line.empty()) {
        return std::nullopt;
    }
    line.remove_prefix(std::min(line.find_first_of(WHITE_SPACE), line.size()));
    const std::optional<int32_t> value = take_integer(line);
    if (!value || *address < 0 || *address >= MEMORY_SIZE) {
        return std::nullopt;
    }
    return word_t{*address, *value};
}

struct content_t {
    load_t load{};
    std::vector<int32_t> memory = std::vector<int32_t>(MEMORY_SIZE);
    std::vector<bool> given = std::vector<bool>(MEMORY_SIZE); // which words the image holds
};

content_t read_content(std::istream& image) {
    content_t content;
    load_t& load = content.load;
    load.opened = true;
    std::string line;
    for (int32_t line_number = 1; std::getline(image, line); ++line_number) {
        if (line_number <= HEADER_LINES) {
            load.begun = line.starts_with("BEGIN");
            continue;
        }
        if (line.find("END;") != std::string::npos) {
            load.ended = true;
            break;
        }
        if (const std::optional<word_t> word = parse_word(line)) {
            content.memory[static_cast<size_t>(word->address)] = word->value;
            content.given[static_cast<size_t>(word->address)] = true;
            ++load.words;
        } else if (line.find_first_not_of(WHITE_SPACE) != std::string::npos && load.skipped++ == 0) {
            load.first_skipped = line_number;
        }
    }
    return content;
}

std::ifstream open_image(const std::string& name) {
    std::ifstream image = open_stream(name);
    if (!image.is_open()) {
        throw tovik_error("Can't open " + name);
    }
    return image;
}

} // namespace

load_t simulate_load(const std::string& filename) {
    const std::string name = filename.substr(0, filename.size() - (filename.empty() ? 0 : 1)) + "mif";
    try {
        std::ifstream image = open_image(name);
        const content_t content = read_content(image);
        // Half a program must not run: nothing has changed so far.
        if (image.bad()) {
            throw tovik_error("Can't read " + name + ": " + system_error_text(errno));
        }
        clear_memory();
        std::copy(content.memory.begin(), content.memory.end(), machine.memory);
        std::copy(content.given.begin(), content.given.end(), machine.modified);
        forget_proofs();
        reset_machine();
        return content.load;
    } catch (const tovik_error& error) {
        show_error(error.message);
        return {};
    }
}
