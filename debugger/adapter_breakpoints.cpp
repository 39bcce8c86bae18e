// Where to stop.

#include <cstdlib>
#include <utility>

#include "base/machine.h"
#include "debugger/adapter_internal.h"
#include "devices/io.h"
#include "devices/registers.h"

namespace {

constexpr int64_t MOST_OFFSET = int64_t{1} << 32;

breakpoint_t breakpoint_in(const json& wanted) {
    breakpoint_t breakpoint;
    breakpoint.condition = text_in(wanted, "condition", "");
    breakpoint.hits = text_in(wanted, "hitCondition", "");
    breakpoint.log = text_in(wanted, "logMessage", "");
    return breakpoint;
}

const json& list_in(const json& arguments) {
    static const json none = json::array();
    const json& list = member(arguments, "breakpoints");
    if (!list.is_null() && !list.is_array()) {
        throw refused_t{"breakpoints is not a list"};
    }
    return list.is_null() ? none : list;
}

// Breakpoints that are set `again` for a new session have the numbers that they had.
int told_id(adapter_t& adapter, int id, const std::vector<int>& again, size_t index) {
    const auto known = adapter.ids.find(id);
    if (known != adapter.ids.end()) {
        return known->second;
    }
    const int told = index < again.size() ? again[index] : adapter.next_id++;
    adapter.ids.emplace(id, told);
    return told;
}

json shown_breakpoint(const adapter_t& adapter, const breakpoint_t& breakpoint, const char* nowhere) {
    json shown = {{"verified", false}};
    if (breakpoint.address < 0) {
        shown["message"] = nowhere;
        return shown;
    }
    shown["instructionReference"] = memory_reference(breakpoint.address);
    const where_t place = where(session_places(), breakpoint.address);
    if (place.line > 0) {
        shown["line"] = place.line - 1 + adapter.client.first_line;
        shown["source"] = source_of(place.file);
    }
    if (breakpoint.fault.empty()) {
        shown["verified"] = true;
    } else {
        shown["message"] = breakpoint.fault;
    }
    return shown;
}

template <typename stop_t>
std::vector<int> told_ids(adapter_t& adapter, const std::vector<stop_t>& stops,
                          const std::vector<int>& again) {
    std::vector<int> ids;
    ids.reserve(stops.size());
    for (const stop_t& stop : stops) {
        ids.push_back(told_id(adapter, stop.id, again, ids.size()));
    }
    return ids;
}

json shown_breakpoints(const adapter_t& adapter, const std::vector<breakpoint_t>& breakpoints,
                       const std::vector<int>& ids, const char* nowhere) {
    json list = json::array();
    for (size_t i = 0; i < breakpoints.size(); ++i) {
        json shown = shown_breakpoint(adapter, breakpoints[i], nowhere);
        shown["id"] = ids[i];
        list.push_back(std::move(shown));
    }
    return {{"breakpoints", list}};
}

// Of the bytes of a word each is the word's.
int32_t word_of_reference(const std::string& reference, int64_t offset) {
    constexpr int BYTES = 4;
    const int64_t byte = byte_of_reference(reference) + offset;
    return byte >= 0 && byte < int64_t{MEMORY_SIZE} * BYTES ? static_cast<int32_t>(byte / BYTES) : -1;
}

access_kind_e access_in(const json& wanted) {
    const std::string kind = text_in(wanted, "accessType", "write");
    if (kind == "read") {
        return access_kind_e::READ;
    }
    if (kind == "readWrite") {
        return access_kind_e::READ_WRITE;
    }
    if (kind == "change") {
        return access_kind_e::CHANGE;
    }
    if (kind != "write") {
        throw refused_t{"accessType: '" + kind + "' is none of read, write, readWrite and change"};
    }
    return access_kind_e::WRITE;
}

// What dataBreakpointInfo has named.
int32_t place_of_data(const std::string& id) {
    constexpr int DECIMAL = 10;
    char* end = nullptr;
    const long long place = std::strtoll(id.c_str(), &end, DECIMAL);
    if (id.empty() || *end != '\0' || place < INT32_MIN || place >= MEMORY_SIZE ||
        (place < 0 && find_device(io_offset(static_cast<int32_t>(place))) == nullptr)) {
        throw refused_t{"dataId: '" + id + "' is not one that dataBreakpointInfo has given"};
    }
    return static_cast<int32_t>(place);
}

json set_in_file(adapter_t& adapter, const json& arguments, const std::vector<int>& again) {
    const std::string file = text_in(member(arguments, "source"), "path");
    std::vector<breakpoint_t> wanted;
    for (const json& one : list_in(arguments)) {
        breakpoint_t breakpoint = breakpoint_in(one);
        const auto line =
            static_cast<int32_t>(number_in(one, "line", adapter.client.first_line, HIGHEST_LINE));
        breakpoint.address =
            address_of_line(session_places(), file, line + 1 - adapter.client.first_line).address;
        wanted.push_back(std::move(breakpoint));
    }
    const std::vector<breakpoint_t> set = session_set_breakpoints(file, std::move(wanted));
    const std::vector<int> ids = told_ids(adapter, set, again);
    adapter.breakpoints[file] = {arguments, ids};
    return shown_breakpoints(adapter, set, ids, "the program has no instruction here or below");
}

json set_at_addresses(adapter_t& adapter, const json& arguments, const std::vector<int>& again) {
    std::vector<breakpoint_t> wanted;
    for (const json& one : list_in(arguments)) {
        breakpoint_t breakpoint = breakpoint_in(one);
        breakpoint.address = word_of_reference(text_in(one, "instructionReference"),
                                               number_in(one, "offset", -MOST_OFFSET, MOST_OFFSET, 0));
        wanted.push_back(std::move(breakpoint));
    }
    const std::vector<breakpoint_t> set = session_set_address_breakpoints(std::move(wanted));
    const std::vector<int> ids = told_ids(adapter, set, again);
    adapter.address_breakpoints = {arguments, ids};
    return shown_breakpoints(adapter, set, ids, "this is no address in memory");
}

json set_on_data(adapter_t& adapter, const json& arguments, const std::vector<int>& again) {
    std::vector<watch_t> wanted;
    for (const json& one : list_in(arguments)) {
        watch_t watch;
        watch.address = place_of_data(text_in(one, "dataId"));
        watch.kind = access_in(one);
        watch.condition = text_in(one, "condition", "");
        watch.hits = text_in(one, "hitCondition", "");
        wanted.push_back(std::move(watch));
    }
    const std::vector<watch_t> set = session_set_watches(std::move(wanted));
    const std::vector<int> ids = told_ids(adapter, set, again);
    adapter.watches = {arguments, ids};
    json list = json::array();
    for (size_t i = 0; i < set.size(); ++i) {
        json shown = {{"id", ids[i]}, {"verified", set[i].fault.empty()}};
        if (!set[i].fault.empty()) {
            shown["message"] = set[i].fault;
        }
        list.push_back(std::move(shown));
    }
    return {{"breakpoints", list}};
}

} // namespace

json set_breakpoints(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    return set_in_file(adapter, arguments, {});
}

json set_instruction_breakpoints(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    return set_at_addresses(adapter, arguments, {});
}

json set_data_breakpoints(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    return set_on_data(adapter, arguments, {});
}

// There are none to choose from: a fault always stops.
json set_exception_breakpoints(adapter_t& /*adapter*/, const json& /*arguments*/) {
    return {{"breakpoints", json::array()}};
}

json data_breakpoint_info(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    const std::string name = text_in(arguments, "name");
    const int64_t reference = number_in(arguments, "variablesReference", 0, INT32_MAX, 0);
    int32_t place = 0;
    try {
        place = reference != 0 ? place_of_variable(reference, name) : place_named(name);
    } catch (const refused_t& error) {
        return {{"dataId", nullptr}, {"description", error.message}};
    } catch (const tovik_error& error) {
        return {{"dataId", nullptr}, {"description", error.message}};
    }
    const std::string what = place < 0 ? "port " + name : name + " (address " + std::to_string(place) + ")";
    return {{"dataId", std::to_string(place)},
            {"description", what},
            {"accessTypes", {"read", "write", "readWrite"}},
            {"canPersist", true}};
}

// The program may have changed: lines have other addresses, and what has moved is told.
void set_all_breakpoints(adapter_t& adapter) {
    adapter.ids.clear();
    const auto set_again = [&](json (*set)(adapter_t&, const json&, const std::vector<int>&),
                               const breakpoints_told_t& told) {
        if (told.arguments.is_null()) {
            return;
        }
        const json body = set(adapter, told.arguments, told.ids);
        for (const json& breakpoint : body.at("breakpoints")) {
            tell(adapter, "breakpoint", {{"reason", "changed"}, {"breakpoint", breakpoint}});
        }
    };
    const std::map<std::string, breakpoints_told_t> by_file = adapter.breakpoints;
    for (const auto& [file, told] : by_file) {
        set_again(set_in_file, told);
    }
    set_again(set_at_addresses, breakpoints_told_t(adapter.address_breakpoints));
    set_again(set_on_data, breakpoints_told_t(adapter.watches));
}
