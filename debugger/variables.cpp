// The values of words and registers, as a user looks at them.

#include <algorithm>
#include <array>
#include <cstdio>

#include "base/machine.h"
#include "core/engine.h"
#include "core/memory.h"
#include "debugger/ports.h"
#include "debugger/session_state.h"
#include "devices/io.h"

namespace session {
namespace {

// A word that the label's array goes on with: data without a label of its own.
bool continues_array(int32_t address, const std::vector<bool>& is_labelled) {
    const source_map_t& map = state.places.analysis.map;
    return address < MEMORY_SIZE && map.words[static_cast<size_t>(address)].kind == word_e::DATA &&
           !is_labelled[static_cast<size_t>(address)];
}

std::string since_begin() {
    const moment_t first = history_first();
    return "since the history began" + (first > 0 ? ", after instruction " + std::to_string(first) : "");
}

way_t<std::string> when_text(std::string text, progress_t progress) {
    const expression_t condition = parse(text);
    const std::optional<change_t> change = co_await session_became_true(condition, progress);
    if (!change) {
        co_return (evaluate(condition) != 0 ? "it has been true " : "it has not become true ") +
            since_begin();
    }
    co_return "after instruction " + std::to_string(change->moment) + ", " +
        (change->by_user ? "by the user" : shown(where(state.places, change->pc)));
}

way_t<std::string> last_write_text(std::string text, progress_t progress) {
    const std::optional<int32_t> address = address_of(parse(text));
    if (!address) {
        throw tovik_error("'" + text + "' is no word and no register");
    }
    const std::optional<change_t> written = co_await session_last_write(*address, progress);
    if (!written) {
        co_return "nobody has written it " + since_begin();
    }
    const std::string who = written->by_user ? "the user, before " : "";
    co_return who + shown(where(state.places, written->pc)) + ", instruction " +
        std::to_string(written->count);
}

} // namespace

void remember_values() {
    state.memory_before.assign(std::begin(machine.memory), std::end(machine.memory));
    state.registers_before.assign(IO_SLOTS, 0);
    for (int32_t offset = 0; offset < IO_SLOTS; ++offset) {
        state.registers_before[static_cast<size_t>(offset)] = peek_register(offset).value_or(0);
    }
}

expression_t parse(const std::string& text) {
    return parse_expression(text, [](std::string_view name) -> std::optional<int32_t> {
        const auto found = state.places.labels.find(name);
        return found == state.places.labels.end() ? std::nullopt : std::optional(found->second);
    });
}

} // namespace session

using namespace session;

std::vector<variable_t> session_variables() {
    const source_map_t& map = state.places.analysis.map;
    std::vector<bool> is_labelled(MEMORY_SIZE);
    for (const auto& [name, address] : state.places.labels) {
        is_labelled[static_cast<size_t>(address)] = true;
    }
    std::vector<variable_t> variables;
    for (const auto& [name, address] : state.places.labels) {
        if (!map.words.empty() && map.words[static_cast<size_t>(address)].kind != word_e::DATA) {
            continue;
        }
        variable_t variable = {.name = name, .address = address};
        while (!map.words.empty() && continues_array(address + variable.count, is_labelled)) {
            ++variable.count;
        }
        for (int32_t i = 0; i < variable.count; ++i) {
            variable.changed |= session_changed(address + i);
        }
        variables.push_back(variable);
    }
    return variables;
}

bool session_changed(int32_t address) {
    if (address >= 0) {
        return address < MEMORY_SIZE &&
               state.memory_before[static_cast<size_t>(address)] != machine.memory[address];
    }
    const int32_t offset = io_offset(address);
    return offset < IO_SLOTS &&
           state.registers_before[static_cast<size_t>(offset)] != peek_register(offset).value_or(0);
}

std::string shown_value(int32_t value) {
    std::array<char, 32> rest{};
    const bool is_character = value >= ' ' && value <= '~';
    std::snprintf(rest.data(), rest.size(), is_character ? " (0x%x, '%c')" : " (0x%x)",
                  static_cast<unsigned>(value), value);
    return std::to_string(value) + rest.data();
}

way_t<std::string> session_evaluate(std::string text, progress_t progress) {
    constexpr std::string_view LAST_WRITE = "last write ";
    constexpr std::string_view WHEN = "when ";
    if (text.starts_with(LAST_WRITE)) {
        co_return co_await last_write_text(text.substr(LAST_WRITE.size()), progress);
    }
    if (text.starts_with(WHEN)) {
        co_return co_await when_text(text.substr(WHEN.size()), progress);
    }
    co_return shown_value(evaluate(parse(text)));
}
