#include "grade/markdown.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <set>

#include "assembler/invisible.h"
#include "language/characters.h"

namespace {

constexpr size_t LEAST_FENCE = 3;
constexpr size_t LONGEST_FILE_NAME = 100; // bytes: a picture's name has more behind it

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_ascii(char c) { return static_cast<unsigned char>(c) < 0x80; }
bool is_alphanumeric(char c) { return is_ascii(c) && std::isalnum(static_cast<unsigned char>(c)) != 0; }

// Where a list or a line across the page could begin.
size_t dangerous_start(std::string_view text) {
    const auto end = std::find_if_not(text.begin(), text.end(), is_digit);
    const auto place = static_cast<size_t>(end - text.begin());
    const std::string_view rest = text.substr(place);
    const bool is_mark = rest.starts_with('-') || rest.starts_with('+');
    const bool is_number = place > 0 && (rest.starts_with('.') || rest.starts_with(')'));
    const bool stands_alone = rest.size() < 2 || rest[1] == ' ' || rest[1] == rest[0];
    return stands_alone && (place == 0 ? is_mark : is_number) ? place : std::string_view::npos;
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return is_ascii(c) ? static_cast<char>(std::tolower(c)) : c; });
    return text;
}

std::string file_name_for(const std::string& name) {
    std::string result;
    std::string rest = without_invisible(readable(name));
    while (!rest.empty() && result.size() < LONGEST_FILE_NAME) {
        const size_t size = character_size(rest);
        const bool fits_inside = rest.front() == '.' || rest.front() == '-';
        const bool is_kept = size > 1 || is_alphanumeric(rest.front()) || rest.front() == '_' ||
                             (fits_inside && !result.empty());
        result += is_kept ? rest.substr(0, size) : "_";
        rest.erase(0, size);
    }
    return result.empty() ? "_" : result;
}

} // namespace

std::string in_markdown(std::string_view text) {
    std::string line(text);
    std::replace(line.begin(), line.end(), '\n', ' ');
    std::replace(line.begin(), line.end(), '\t', ' ');
    line = readable(line);
    const size_t start = dangerous_start(line);
    std::string result;
    for (size_t i = 0; i < line.size(); ++i) {
        const std::string_view rest = std::string_view(line).substr(i);
        const bool is_markup = std::string_view("\\`*_[]<>|~&#$").find(line[i]) != std::string_view::npos;
        const bool is_address = rest.starts_with("://") ||
                                (rest.front() == '.' && i >= 3 && lower(line.substr(i - 3, 3)) == "www");
        result += is_markup || is_address || i == start ? "\\" : "";
        result += line[i];
    }
    return result;
}

std::string fenced(std::string_view text) {
    size_t longest = 0;
    size_t run = 0;
    for (const char c : text) {
        run = c == '`' ? run + 1 : 0;
        longest = std::max(longest, run);
    }
    const std::string fence(std::max(longest + 1, LEAST_FENCE), '`');
    std::string lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        std::string line(text.substr(begin, end - begin));
        std::replace(line.begin(), line.end(), '\t', ' ');
        lines += readable(line) + "\n";
        begin = end + 1;
    }
    return fence + "text\n" + lines + fence + "\n";
}

std::string link_to(std::string_view file_name) {
    std::string link;
    for (const char c : file_name) {
        if (is_alphanumeric(c) || c == '.' || c == '-' || c == '_') {
            link += c;
        } else {
            std::array<char, 4> text{};
            std::snprintf(text.data(), text.size(), "%%%02X", static_cast<unsigned char>(c));
            link += text.data();
        }
    }
    return link;
}

std::vector<std::string> file_names_for(const std::vector<std::string>& names) {
    std::set<std::string> taken = {"alike"}; // the list of those that are
    std::vector<std::string> results;
    for (const std::string& name : names) {
        const std::string first = file_name_for(name);
        std::string one = first;
        for (int number = 2; !taken.insert(lower(one)).second; ++number) {
            one = first + "-" + std::to_string(number);
        }
        results.push_back(one);
    }
    return results;
}
