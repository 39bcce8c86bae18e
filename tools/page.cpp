#include "tools/page.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "assembler/analyse.h"
#include "base/files.h"
#include "base/machine.h"
#include "base/text.h"
#include "language/characters.h"

namespace {

namespace fs = std::filesystem;
using json = nlohmann::ordered_json;

// What the page takes: web/page/program.ts, disk.ts and task.ts have the same numbers.
constexpr size_t LONGEST_TEXT = 1 << 20;  // bytes
constexpr size_t LONGEST_TASK = 1 << 15;  // characters, in UTF-16 and without pictures
constexpr size_t LONGEST_FILE_NAME = 100; // characters
constexpr size_t MOST_FILES = 200;

constexpr std::string_view TITLE = "<title data-page";
constexpr std::string_view TASK = "<script type=\"application/json\" id=\"tovik-task\" data-page";
constexpr std::string_view EXAMPLES = "<script type=\"application/json\" id=\"tovik-examples\" data-page";

using library_t = std::map<std::string, std::string>; // texts by names such as "lib/vga.k"

struct page_t {
    std::string name;
    std::string text;
};

// Of a page's text.
struct part_t {
    size_t begin;
    size_t size;
};

[[noreturn]] void refuse_page(const page_t& page) {
    throw tovik_error(page.name + " is no page of tovik, or of another version");
}

// What stands in the element whose first tag begins like that.
part_t find_part(const page_t& page, std::string_view tag, std::string_view end) {
    const size_t open = page.text.find(tag);
    const size_t begin = open == std::string::npos ? open : page.text.find('>', open);
    const size_t close = begin == std::string::npos ? begin : page.text.find(end, begin);
    if (close == std::string::npos) {
        refuse_page(page);
    }
    return {.begin = begin + 1, .size = close - begin - 1};
}

library_t library_of(const page_t& page) {
    const auto [begin, size] = find_part(page, EXAMPLES, "</script>");
    try {
        return json::parse(page.text.substr(begin, size)).at("library").get<library_t>();
    } catch (const json::exception&) {
        refuse_page(page);
    }
}

std::string replaced(std::string_view text,
                     std::initializer_list<std::pair<std::string_view, std::string_view>> words) {
    std::string made;
    while (!text.empty()) {
        const auto* const word = std::find_if(words.begin(), words.end(),
                                              [&](const auto& one) { return text.starts_with(one.first); });
        const bool found = word != words.end();
        made += found ? word->second : text.substr(0, 1);
        text.remove_prefix(found ? word->first.size() : 1);
    }
    return made;
}

// Puts the task in, and its name into the title.
void fill(page_t& page, const json& task) {
    const part_t place = find_part(page, TASK, "</script>");
    if (page.text.substr(place.begin, place.size).find_first_not_of(WHITE_SPACE) != std::string::npos) {
        throw tovik_error(page.name + " has a program in it already");
    }
    // A text must not end the element.
    const auto words = {std::pair<std::string_view, std::string_view>{"<", "\\u003c"},
                        {"\u2028", "\\u2028"},
                        {"\u2029", "\\u2029"}};
    page.text.replace(place.begin, place.size, replaced(task.dump(), words));
    const part_t title = find_part(page, TITLE, "</title>");
    const std::string name = task["name"];
    page.text.replace(title.begin, title.size, replaced(name, {{"&", "&amp;"}, {"<", "&lt;"}}) + " - tovik");
}

// In front of what is wrong there.
std::string place_text(const std::string& name, int64_t line) {
    return name + ":" + std::to_string(line) + ": ";
}

// Offset of the first byte that is no text in UTF-8, or npos.
size_t wrong_byte(std::string_view text) {
    for (size_t at = 0, size = 0; at < text.size(); at += size) {
        size = character_size(text.substr(at));
        if (text[at] == '\0' || (size == 1 && static_cast<uint8_t>(text[at]) >= 0x80)) {
            return at;
        }
    }
    return std::string_view::npos;
}

// Throws for what the page would not open.
void check_text(const std::string& name, std::string_view text) {
    if (text.size() > LONGEST_TEXT) {
        throw tovik_error(name + " is larger than 1 MiB");
    }
    if (const size_t at = wrong_byte(text); at != std::string_view::npos) {
        const std::string_view before = text.substr(0, at);
        const auto line = std::count(before.begin(), before.end(), '\n') + 1;
        throw tovik_error(place_text(name, line) + "this is no text in UTF-8");
    }
}

// Characters of an assignment. Of a picture in it only "data:" is counted.
size_t task_size(std::string_view text) {
    constexpr std::string_view BEGIN = "data:image/";
    constexpr std::string_view MIDDLE = ";base64,";
    const std::string word = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";
    size_t size = count_characters(text);
    size += static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return static_cast<uint8_t>(c) >= 0xf0; }));
    size_t end = 0;
    for (size_t at = text.find(BEGIN); at != std::string_view::npos; at = text.find(BEGIN, end)) {
        const size_t kind = at + BEGIN.size();
        end = std::min(text.find_first_not_of(word, kind), text.size());
        if (end > kind && text.substr(end).starts_with(MIDDLE)) {
            end = std::min(text.find_first_not_of(word + "+/=", end + MIDDLE.size()), text.size());
            size -= end - at - std::string_view("data:").size();
        }
    }
    return size;
}

// Why the page has no file of that name, or nothing.
std::string_view wrong_name(const std::string& name) {
    if (wrong_byte(name) != std::string::npos) {
        return " is no name in UTF-8";
    }
    if (!name.ends_with(".k")) {
        return " does not end in .k";
    }
    if (count_characters(name) > LONGEST_FILE_NAME) {
        return " is longer than 100 characters";
    }
    if (std::any_of(name.begin(), name.end(), [](char c) {
            return std::string_view("\\:*?\"<>|\x7f").find(c) != std::string_view::npos ||
                   (c >= 0 && c < ' ');
        })) {
        return " has one of : * ? \" < > | \\";
    }
    if (name.find(".k/") != std::string::npos) {
        return " is in a folder whose name ends in .k"; // it could be that of a file, too
    }
    const std::string bounds = "/" + name;
    return bounds.find("/.") != std::string::npos || bounds.find("/ ") != std::string::npos ||
                   bounds.find(" /") != std::string::npos
               ? " has a part that begins with a dot, or has a blank at an end"
               : "";
}

fs::path whole(const std::string& name) { return fs::absolute(name).lexically_normal(); }

std::string name_within(const fs::path& folder, const std::string& name) {
    return whole(name).lexically_relative(folder).string();
}

// What the page has in its library need not be beside the program.
analysis_t analyse_with(const wish_t& wish, const library_t& library) {
    const fs::path folder = whole(wish.program).parent_path();
    return analyse(wish.program, [&](const std::string& name) {
        file_text_t file = read_file(name);
        if (!file.opened && file.error == ENOENT) {
            if (const auto found = library.find(name_within(folder, name)); found != library.end()) {
                file = {.text = found->second};
            }
        }
        return file;
    });
}

// What else is wrong in a program is for those who get it. But all of its files must be known.
void check_complete(const analysis_t& analysis) {
    for (const diagnostic_t& diagnostic : analysis.diagnostics.list) {
        const std::string& name = analysis.map.files[diagnostic.place.file].name;
        if (diagnostic.code == code::MORE) {
            throw tovik_error(name + " has too many faults to be looked at");
        }
        if (diagnostic.code == code::CANNOT_OPEN || diagnostic.code == code::CANNOT_READ ||
            diagnostic.code == code::TOO_LONG) {
            const int32_t line = diagnostic.place.line;
            throw tovik_error((line > 0 ? place_text(name, line) : "") + diagnostic.message);
        }
    }
}

// The folder that stands for the page's: the program's own, or where it includes from outside, one above it.
fs::path common_folder(const source_map_t& map) {
    fs::path folder = whole(map.files.front().name).parent_path();
    for (const inclusion_t& inclusion : map.inclusions) {
        while (inclusion.file != NOTHING &&
               name_within(folder, map.files[inclusion.file].name).starts_with("../")) {
            folder = folder.parent_path();
        }
    }
    return folder;
}

// Throws where the page could not have the file of an inclusion, whose name there would be `name`.
void check_inclusion(const source_map_t& map, const inclusion_t& inclusion, const std::string& name) {
    std::string place;
    std::string_view wrong = wrong_name(name);
    if (inclusion.parent != NOTHING) {
        const uint32_t from = map.inclusions[inclusion.parent].file;
        place = place_text(map.files[from].name, inclusion.line);
        if (text_of(map, from, inclusion.name).starts_with('/')) {
            wrong = " is included by its whole path, which the page does not have";
        }
    }
    if (!wrong.empty()) {
        throw tovik_error(place + name + std::string(wrong));
    }
    const source_file_t& file = map.files[inclusion.file];
    check_text(file.name, file.text);
}

// What the page reads: version, name, files, main and text.
json task_of(const wish_t& wish, const analysis_t& analysis, const library_t& library) {
    const source_map_t& map = analysis.map;
    const fs::path folder = common_folder(map);
    json files;
    for (const inclusion_t& inclusion : map.inclusions) {
        if (inclusion.file != NOTHING) {
            const source_file_t& file = map.files[inclusion.file];
            const std::string name = name_within(folder, file.name);
            check_inclusion(map, inclusion, name);
            const auto known = library.find(name);
            if (known == library.end() || known->second != file.text) {
                files[name] = file.text;
            }
        }
    }
    if (files.size() > MOST_FILES) {
        throw tovik_error(wish.program + " is more than 200 files with what it includes");
    }
    const std::string text = wish.text.empty() ? "" : read_whole(wish.text);
    check_text(wish.text, text);
    if (task_size(text) > LONGEST_TASK) {
        throw tovik_error(wish.text + " is larger than 32 KiB, not counting its pictures");
    }
    const std::string name = wish.name.empty() ? fs::path(wish.program).stem().string() : wish.name;
    if (wrong_byte(name) != std::string::npos) {
        throw tovik_error("the name " + name + " is not in UTF-8");
    }
    return {{"version", 1},
            {"name", name},
            {"files", files},
            {"main", name_within(folder, wish.program)},
            {"text", text}};
}

} // namespace

made_page_t make_page(const wish_t& wish) {
    page_t page{.name = wish.page, .text = read_whole(wish.page)};
    const library_t library = library_of(page);
    const analysis_t analysis = analyse_with(wish, library);
    check_complete(analysis);
    fill(page, task_of(wish, analysis, library));
    made_page_t made{.text = std::move(page.text), .read = {wish.page}};
    if (!wish.text.empty()) {
        made.read.push_back(wish.text);
    }
    for (const source_file_t& file : analysis.map.files) {
        made.read.push_back(file.name);
    }
    return made;
}
