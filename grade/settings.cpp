#include "grade/settings.h"

#include <algorithm>
#include <limits>
#include <sstream>
#include <utility>

#include "assembler/similar.h"
#include "base/files.h"
#include "base/machine.h"

namespace {

std::string place(const settings_file_t& file, const toml::source_region& at) {
    return file.name + ":" + std::to_string(at.begin.line) + ":" + std::to_string(at.begin.column) + ": ";
}

void add_fault_at(settings_file_t& file, const toml::source_region& at, const std::string& text) {
    file.faults.push_back({at.begin, place(file, at) + text});
}

std::string full_name(const settings_t& settings, std::string_view key) {
    return (settings.path.empty() ? "" : settings.path + ".") + std::string(key);
}

void add_wrong(const settings_t& settings, std::string_view key, const toml::node& at,
               const std::string& wanted) {
    add_fault(*settings.file, at, full_name(settings, key) + " is to be " + wanted);
}

std::string range_text(const char* what, auto lowest, auto highest) {
    std::ostringstream text;
    text.precision(std::numeric_limits<double>::digits10); // 1000000 and not 1e+06
    text << what << " from " << lowest << " to " << highest;
    return text.str();
}

// Calls for a value that is no array, and for each element of one that is.
void for_each_of(const toml::node& node, const auto& act) {
    if (const toml::array* const array = node.as_array()) {
        for (const toml::node& element : *array) {
            act(element);
        }
    } else {
        act(node);
    }
}

std::optional<std::string> text_of(settings_t& settings, std::string_view key, const toml::node& node) {
    const toml::value<std::string>* const text = node.as_string();
    if (text == nullptr) {
        add_wrong(settings, key, node, "a text");
        return std::nullopt;
    }
    return text->get();
}

std::optional<int64_t> integer_of(settings_t& settings, std::string_view key, const toml::node& node,
                                  int64_t lowest, int64_t highest) {
    const toml::value<int64_t>* const number = node.as_integer();
    if (number == nullptr || number->get() < lowest || number->get() > highest) {
        add_wrong(settings, key, node, range_text("a number", lowest, highest));
        return std::nullopt;
    }
    return number->get();
}

} // namespace

settings_file_t read_settings(const std::string& file_name) {
    settings_file_t file{file_name, read_whole(file_name), {}, {}};
    try {
        file.root = toml::parse(file.text, file_name);
    } catch (const toml::parse_error& error) {
        throw tovik_error(place(file, error.source()) + std::string(error.description()));
    }
    return file;
}

std::string faults_text(const settings_file_t& file) {
    std::vector<fault_t> faults = file.faults;
    std::stable_sort(faults.begin(), faults.end(), [](const fault_t& one, const fault_t& other) {
        return std::pair(one.at.line, one.at.column) < std::pair(other.at.line, other.at.column);
    });
    std::string text =
        faults.size() < 2 ? "" : std::to_string(faults.size()) + " faults in " + file.name + ":\n";
    for (const fault_t& fault : faults) {
        text += (&fault == faults.data() ? "" : "\n") + fault.text;
    }
    return text;
}

settings_t root_of(settings_file_t& file) { return {&file, &file.root, "", {}}; }

void add_fault(settings_file_t& file, const toml::node& at, const std::string& text) {
    add_fault_at(file, at.source(), text);
}

void add_fault(const settings_t& settings, const std::string& text) {
    add_fault(*settings.file, *settings.table, text);
}

std::optional<int> first_line_of(const settings_file_t& file, const toml::node& text) {
    const toml::source_region& at = text.source();
    if (at.end.line == at.begin.line) {
        return std::nullopt;
    }
    std::istringstream lines(file.text);
    std::string line;
    for (toml::source_index number = 0; number < at.begin.line && std::getline(lines, line);) {
        ++number;
    }
    line.erase(line.find_last_not_of('\r') + 1);
    // A line feed right behind the quotes is no part of the text.
    const bool begins_below = line.ends_with(R"(""")") || line.ends_with("'''");
    return static_cast<int>(at.begin.line) + (begins_below ? 1 : 0);
}

std::string place_of(const settings_file_t& file, const toml::node& at) { return place(file, at.source()); }

const toml::node* find(settings_t& settings, std::string_view key) {
    settings.read.insert(key);
    return settings.table->get(key);
}

std::optional<std::string> read_text(settings_t& settings, std::string_view key) {
    const toml::node* const node = find(settings, key);
    return node == nullptr ? std::nullopt : text_of(settings, key, *node);
}

std::optional<bool> read_flag(settings_t& settings, std::string_view key) {
    const toml::node* const node = find(settings, key);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (!node->is_boolean()) {
        add_wrong(settings, key, *node, "true or false");
    }
    return node->value<bool>();
}

std::optional<int64_t> read_integer(settings_t& settings, std::string_view key, int64_t lowest,
                                    int64_t highest) {
    const toml::node* const node = find(settings, key);
    return node == nullptr ? std::nullopt : integer_of(settings, key, *node, lowest, highest);
}

std::optional<double> read_real(settings_t& settings, std::string_view key, double lowest, double highest) {
    const toml::node* const node = find(settings, key);
    if (node == nullptr) {
        return std::nullopt;
    }
    const std::optional<double> number = node->is_number() ? node->value<double>() : std::nullopt;
    // Not a number is in no range.
    if (!number || !(*number >= lowest && *number <= highest)) {
        add_wrong(settings, key, *node, range_text("a number", lowest, highest));
        return std::nullopt;
    }
    return number;
}

std::vector<std::string> read_texts(settings_t& settings, std::string_view key) {
    std::vector<std::string> texts;
    if (const toml::node* const node = find(settings, key)) {
        for_each_of(*node, [&](const toml::node& element) {
            if (std::optional<std::string> text = text_of(settings, key, element)) {
                texts.push_back(std::move(*text));
            }
        });
    }
    return texts;
}

std::vector<int64_t> read_integers(settings_t& settings, std::string_view key, int64_t lowest,
                                   int64_t highest) {
    std::vector<int64_t> numbers;
    if (const toml::node* const node = find(settings, key)) {
        for_each_of(*node, [&](const toml::node& element) {
            if (const std::optional<int64_t> number = integer_of(settings, key, element, lowest, highest)) {
                numbers.push_back(*number);
            }
        });
    }
    return numbers;
}

std::optional<settings_t> read_table(settings_t& settings, std::string_view key) {
    const toml::node* const node = find(settings, key);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (!node->is_table()) {
        add_wrong(settings, key, *node, "a table");
        return std::nullopt;
    }
    return settings_t{settings.file, node->as_table(), full_name(settings, key), {}};
}

std::vector<settings_t> read_tables(settings_t& settings, std::string_view key) {
    std::vector<settings_t> tables;
    if (const toml::node* const node = find(settings, key)) {
        for_each_of(*node, [&](const toml::node& element) {
            if (element.is_table()) {
                tables.push_back({settings.file, element.as_table(), full_name(settings, key), {}});
            } else {
                add_wrong(settings, key, element, "a table");
            }
        });
    }
    return tables;
}

void end_settings(const settings_t& settings) {
    std::vector<name_t> known;
    for (const std::string_view key : settings.read) {
        known.push_back(to_compare(key));
    }
    int64_t budget = std::numeric_limits<int32_t>::max();
    for (const auto& [key, node] : *settings.table) {
        if (!settings.read.contains(key.str())) {
            const std::string_view meant = nearest(key.str(), known, budget);
            add_fault_at(*settings.file, key.source(),
                         "unknown key " + full_name(settings, key.str()) +
                             (meant.empty() ? "" : "; did you mean " + std::string(meant) + "?"));
        }
    }
}
