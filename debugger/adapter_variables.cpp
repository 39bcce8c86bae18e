// What the program's words and the devices' registers hold: scopes, expressions, changes.

#include <algorithm>
#include <cctype>
#include <utility>

#include "base/machine.h"
#include "base/text.h"
#include "debugger/adapter_internal.h"
#include "debugger/ports.h"
#include "devices/io.h"
#include "devices/registers.h"

namespace {

// A reference to what has variables is one of these, or names the words that it has.
constexpr int64_t LABELS = 1;
constexpr int64_t MEMORY = 2;
constexpr int64_t FIRST_DEVICE = 16;

constexpr int64_t WORDS_MARK = int64_t{1} << 29;   // with the address and the count of the words
constexpr int64_t STRETCH_MARK = int64_t{1} << 30; // the same, of a part of memory that is no array
constexpr int COUNT_BITS = 15;
static_assert(MEMORY_SIZE < 1 << COUNT_BITS && COUNT_BITS + ADDRESS_BITS <= 29);

// The user turns over what a program only reads.
constexpr int32_t SWITCHES_OFFSET = 0;

// So many words of memory are one line of the scope.
constexpr int32_t STRETCH = 256;

struct child_t {
    std::string name;
    int32_t address;
    int32_t count = 1;
    std::string expression;
    bool is_stretch = false;
    bool read_only = false;
};

int64_t reference_of(int32_t address, int32_t count, int64_t mark) {
    return mark | int64_t{address} << COUNT_BITS | count;
}

bool is_plain_name(const std::string& name) {
    const auto is_letter = [](char c) {
        return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
    };
    const auto goes_on = [&](char c) {
        return is_letter(c) || std::isdigit(static_cast<unsigned char>(c)) != 0;
    };
    return !name.empty() && is_letter(name.front()) && std::all_of(name.begin(), name.end(), goes_on) &&
           name != "pc" && name != "instructions" && !find_register_name(name);
}

std::string name_in_expressions(const std::string& label) {
    return is_plain_name(label) ? label : "\"" + label + "\"";
}

std::vector<child_t> labels_children() {
    std::vector<child_t> children;
    for (const variable_t& variable : session_variables()) {
        children.push_back({variable.name, variable.address, variable.count,
                            name_in_expressions(variable.name) + (variable.count > 1 ? "[0]" : "")});
    }
    return children;
}

std::vector<child_t> memory_children() {
    std::vector<child_t> children;
    for (int32_t address = 0; address < MEMORY_SIZE; address += STRETCH) {
        children.push_back({std::to_string(address) + "-" + std::to_string(address + STRETCH - 1), address,
                            STRETCH, "", true});
    }
    return children;
}

std::vector<child_t> stretch_children(int32_t address, int32_t count) {
    std::vector<child_t> children;
    for (int32_t at = address; at < address + count; ++at) {
        children.push_back({std::to_string(at), at, 1, "[" + std::to_string(at) + "]"});
    }
    return children;
}

std::vector<child_t> array_children(int32_t address, int32_t count) {
    const std::string name = nearest_label(address, session_places().labels);
    const auto label = session_places().labels.find(name);
    const bool named = label != session_places().labels.end() && label->second == address;
    std::vector<child_t> children;
    for (int32_t i = 0; i < count; ++i) {
        const std::string index = "[" + std::to_string(i) + "]";
        children.push_back(
            {index, address + i, 1,
             named ? name_in_expressions(name) + index : "[" + std::to_string(address + i) + "]"});
    }
    return children;
}

std::vector<child_t> device_children(const device_t& device) {
    std::vector<child_t> children;
    for (const board_register_t& one : device.registers) {
        children.push_back({std::string(one.name), IO_BASE + one.offset, 1, register_name(one.offset), false,
                            one.access == direction_e::READ && one.offset != SWITCHES_OFFSET});
    }
    return children;
}

std::vector<child_t> children_of(int64_t reference) {
    if (reference == LABELS) {
        return labels_children();
    }
    if (reference == MEMORY) {
        return memory_children();
    }
    const auto devices = board_devices();
    const int64_t device = reference - FIRST_DEVICE;
    if (device >= 0 && device < static_cast<int64_t>(devices.size())) {
        return device_children(devices[static_cast<size_t>(device)]);
    }
    const auto address = static_cast<int32_t>(reference >> COUNT_BITS & (MEMORY_SIZE - 1));
    const auto count = static_cast<int32_t>(reference & ((1 << COUNT_BITS) - 1));
    if (count > 0 && address + count <= MEMORY_SIZE) {
        if (reference == reference_of(address, count, STRETCH_MARK)) {
            return stretch_children(address, count);
        }
        if (reference == reference_of(address, count, WORDS_MARK)) {
            return array_children(address, count);
        }
    }
    throw refused_t{"variablesReference: there is nothing with this number"};
}

std::string value_text(std::optional<int32_t> value, bool hex) {
    if (!value) {
        return "not readable";
    }
    return hex ? hexadecimal(*value) : shown_value(*value);
}

std::string array_text(int32_t address, int32_t count, bool hex) {
    constexpr int32_t MOST = 8;
    std::string text = "{";
    for (int32_t i = 0; i < std::min(count, MOST); ++i) {
        const int32_t value = machine.memory[address + i];
        text += (i > 0 ? ", " : "") + (hex ? hexadecimal(value) : std::to_string(value));
    }
    return text + (count > MOST ? ", ...}" : "}");
}

bool any_changed(const child_t& child) {
    for (int32_t i = 0; i < child.count; ++i) {
        if (session_changed(child.address + i)) {
            return true;
        }
    }
    return false;
}

json shown_child(const child_t& child, bool hex) {
    json shown = {{"name", child.name}, {"variablesReference", 0}};
    if (!child.expression.empty()) {
        shown["evaluateName"] = child.expression;
    }
    if (child.count > 1) {
        shown["value"] = child.is_stretch ? "" : array_text(child.address, child.count, hex);
        shown["variablesReference"] =
            reference_of(child.address, child.count, child.is_stretch ? STRETCH_MARK : WORDS_MARK);
        shown["indexedVariables"] = child.count;
    } else {
        shown["value"] = value_text(value_at(child.address), hex);
    }
    if (child.address >= 0) {
        shown["memoryReference"] = memory_reference(child.address);
    }
    json attributes = json::array();
    if (child.read_only || child.is_stretch) {
        attributes.push_back("readOnly");
    }
    if (any_changed(child)) {
        attributes.push_back("changed");
    }
    if (!attributes.empty()) {
        shown["presentationHint"] = {{"attributes", attributes}};
    }
    return shown;
}

bool wants_hex(const json& arguments) {
    const json& format = member(arguments, "format");
    return format.is_object() && flag_in(format, "hex");
}

const child_t& child_called(const std::vector<child_t>& children, const std::string& name) {
    const auto found =
        std::find_if(children.begin(), children.end(), [&](const child_t& one) { return one.name == name; });
    if (found == children.end()) {
        throw refused_t{"there is no variable " + name};
    }
    return *found;
}

json change(adapter_t& adapter, int32_t address, const std::string& text, bool hex) {
    session_set_word(address, evaluate(parse(text)));
    tell_changed(adapter, "variables");
    json body = {{"value", value_text(value_at(address), hex)}};
    if (address >= 0) {
        body["memoryReference"] = memory_reference(address);
    }
    return body;
}

// Where a text assigns: the place of its "=", which is none of "==", "<=", ">=" and "!=".
size_t find_assignment(const std::string& text) {
    for (size_t i = 1; i + 1 < text.size(); ++i) {
        const bool alone = std::string_view("=<>!").find(text[i - 1]) == std::string_view::npos;
        if (text[i] == '=' && alone && text[i + 1] != '=') {
            return i;
        }
    }
    return std::string::npos;
}

// An array, where a text is the name of one.
std::optional<child_t> array_called(const std::string& text) {
    for (const child_t& child : labels_children()) {
        if (child.count > 1 && (text == child.name || text == name_in_expressions(child.name))) {
            return child;
        }
    }
    return std::nullopt;
}

json evaluated(const std::string& text, bool hex) {
    if (const std::optional<child_t> array = array_called(text)) {
        const json shown = shown_child(*array, hex);
        return {{"result", shown["value"]},
                {"variablesReference", shown["variablesReference"]},
                {"indexedVariables", array->count},
                {"memoryReference", shown["memoryReference"]}};
    }
    const expression_t expression = parse(text);
    json body = {{"result", value_text(evaluate(expression), hex)}, {"variablesReference", 0}};
    if (const std::optional<int32_t> address = address_of(expression); address && *address >= 0) {
        body["memoryReference"] = memory_reference(*address);
    }
    return body;
}

constexpr const char* CARD_GOES_BACK = "card goes back";
constexpr const char* CARD_STAYS = "card stays";

bool is_command(const std::string& text) {
    return text.starts_with("last write ") || text.starts_with("when ");
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view BLANK = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(BLANK), text.size()));
    return text.substr(0, text.find_last_not_of(BLANK) + 1);
}

// How many bytes of UTF-8 so many units of UTF-16 are.
size_t bytes_of_units(std::string_view text, int64_t units) {
    size_t at = 0;
    while (at < text.size() && units > 0) {
        const auto lead = static_cast<unsigned char>(text[at]);
        units -= lead >= 0xf0 ? 2 : 1;
        do {
            ++at;
        } while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80);
    }
    return at;
}

std::vector<std::pair<std::string, const char*>> all_names() {
    std::vector<std::pair<std::string, const char*>> names = {
        {"pc", "keyword"},    {"instructions", "keyword"}, {"last write ", "keyword"},
        {"when ", "keyword"}, {CARD_GOES_BACK, "keyword"}, {CARD_STAYS, "keyword"}};
    for (const auto& [label, address] : session_places().labels) {
        names.emplace_back(name_in_expressions(label), "variable");
    }
    for (const device_t& device : board_devices()) {
        for (const board_register_t& one : device.registers) {
            names.emplace_back(register_name(one.offset), "property");
        }
    }
    return names;
}

} // namespace

expression_t parse(const std::string& text) {
    return parse_expression(text, [](std::string_view name) -> std::optional<int32_t> {
        const auto label = session_places().labels.find(name);
        return label == session_places().labels.end() ? std::nullopt : std::optional(label->second);
    });
}

int32_t place_named(const std::string& text) {
    const std::optional<int32_t> address = address_of(parse(text));
    if (!address || *address >= MEMORY_SIZE ||
        (*address < 0 && find_register(io_offset(*address)) == nullptr)) {
        throw refused_t{"'" + text + "' is no word of memory and no register"};
    }
    return *address;
}

std::optional<int32_t> value_at(int32_t address) {
    if (address < 0) {
        return peek_register(io_offset(address));
    }
    return address < MEMORY_SIZE ? std::optional(machine.memory[address]) : std::nullopt;
}

int32_t place_of_variable(int64_t reference, const std::string& name) {
    const std::vector<child_t> children = children_of(reference);
    const child_t& child = child_called(children, name);
    if (child.is_stretch) {
        throw refused_t{name + " is more than one word"};
    }
    return child.address;
}

json scopes(adapter_t& adapter, const json& /*arguments*/) {
    check_launched(adapter);
    json list = json::array();
    list.push_back({{"name", "Labels"},
                    {"presentationHint", "locals"},
                    {"variablesReference", LABELS},
                    {"namedVariables", session_variables().size()},
                    {"expensive", false}});
    list.push_back({{"name", "Memory"},
                    {"variablesReference", MEMORY},
                    {"namedVariables", MEMORY_SIZE / STRETCH},
                    {"expensive", true}});
    int64_t reference = FIRST_DEVICE;
    for (const device_t& device : board_devices()) {
        if (!device.registers.empty()) {
            list.push_back({{"name", device.name},
                            {"presentationHint", "registers"},
                            {"variablesReference", reference},
                            {"namedVariables", device.registers.size()},
                            {"expensive", true}});
        }
        ++reference;
    }
    return {{"scopes", list}};
}

json variables(adapter_t& adapter, const json& arguments) {
    check_stopped(adapter);
    const int64_t reference = number_in(arguments, "variablesReference", 1, INT32_MAX);
    const std::vector<child_t> children = children_of(reference);
    const auto start = static_cast<size_t>(number_in(arguments, "start", 0, INT32_MAX, 0));
    const auto count = static_cast<size_t>(number_in(arguments, "count", 0, INT32_MAX, 0));
    const bool indexed = reference >= WORDS_MARK;
    const std::string filter = text_in(arguments, "filter", indexed ? "indexed" : "named");
    json list = json::array();
    for (size_t i = start; (filter == "indexed") == indexed && i < children.size(); ++i) {
        if (count != 0 && i - start >= count) {
            break;
        }
        list.push_back(shown_child(children[i], wants_hex(arguments)));
    }
    return {{"variables", list}};
}

json set_variable(adapter_t& adapter, const json& arguments) {
    check_stopped(adapter);
    const std::vector<child_t> children =
        children_of(number_in(arguments, "variablesReference", 1, INT32_MAX));
    const child_t& child = child_called(children, text_in(arguments, "name"));
    if (child.count > 1) {
        throw refused_t{child.name + " is more than one word"};
    }
    return change(adapter, child.address, text_in(arguments, "value"), wants_hex(arguments));
}

json set_expression(adapter_t& adapter, const json& arguments) {
    check_stopped(adapter);
    return change(adapter, place_named(text_in(arguments, "expression")), text_in(arguments, "value"),
                  wants_hex(arguments));
}

// In the console also an assignment, and there and where something is watched what takes a search through the
// past. A client may have a command that says "watch" instead of a console.
way_t<json> evaluate_text(adapter_t& adapter, json arguments) {
    check_launched(adapter);
    const std::string text(trimmed(text_in(arguments, "expression")));
    const bool hex = wants_hex(arguments);
    const std::string context = text_in(arguments, "context", "");
    if (is_command(text) && (context == "repl" || context == "watch")) {
        check_stopped(adapter);
        going_t going(adapter, LOOKS_BACK);
        const std::string result = co_await session_evaluate(text, going.progress());
        going.check();
        co_return json({{"result", result}, {"variablesReference", 0}});
    }
    if (text == CARD_GOES_BACK || text == CARD_STAYS) {
        co_return answer_card(adapter, text == CARD_GOES_BACK);
    }
    if (context != "repl") {
        co_return evaluated(text, hex);
    }
    if (const size_t equals = find_assignment(text); equals != std::string::npos) {
        check_stopped(adapter);
        const int32_t place = place_named(text.substr(0, equals));
        co_return json({{"result", change(adapter, place, text.substr(equals + 1), hex)["value"]},
                        {"variablesReference", 0}});
    }
    co_return evaluated(text, hex);
}

json completions(adapter_t& adapter, const json& arguments) {
    constexpr size_t MOST_TARGETS = 200;
    check_launched(adapter);
    const std::string text = text_in(arguments, "text");
    const int first = adapter.client.first_column;
    const int64_t column = number_in(arguments, "column", first, INT32_MAX) - first;
    const std::string_view before = std::string_view(text).substr(0, bytes_of_units(text, column));
    size_t begin = before.size();
    while (begin > 0 && (std::isalnum(static_cast<unsigned char>(before[begin - 1])) != 0 ||
                         before[begin - 1] == '_' || before[begin - 1] == '.')) {
        --begin;
    }
    const std::string_view word = before.substr(begin);
    json targets = json::array();
    for (const auto& [name, type] : all_names()) {
        if (targets.size() < MOST_TARGETS && name.starts_with(word)) {
            // What the word begins has only characters of one unit.
            const int64_t start = column - static_cast<int64_t>(word.size());
            targets.push_back({{"label", name},
                               {"type", type},
                               {"start", start + first},
                               {"length", static_cast<int64_t>(word.size())}});
        }
    }
    return {{"targets", targets}};
}
