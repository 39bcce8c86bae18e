// Where to stop.

#include <cstdlib>
#include <utility>

#include "base/machine.h"
#include "debugger/adapter_internal.h"
#include "devices/io.h"
#include "devices/registers.h"

namespace {

constexpr int64_t HIGHEST_LINE = INT32_MAX;
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

json shown_breakpoint(const adapter_t& adapter, const breakpoint_t& breakpoint, const char* nowhere) {
    json shown = {{"id", breakpoint.id}, {"verified", false}};
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

json shown_breakpoints(const adapter_t& adapter, const std::vector<breakpoint_t>& breakpoints,
                       const char* nowhere) {
    json list = json::array();
    for (const breakpoint_t& breakpoint : breakpoints) {
        list.push_back(shown_breakpoint(adapter, breakpoint, nowhere));
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

} // namespace

json set_breakpoints(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    const std::string file = text_in(member(arguments, "source"), "path");
    std::vector<breakpoint_t> wanted;
    for (const json& one : list_in(arguments)) {
        breakpoint_t breakpoint = breakpoint_in(one);
        const auto line = static_cast<int32_t>(number_in(one, "line", adapter.client.first_line, HIGHEST_LINE));
        breakpoint.address =
            address_of_line(session_places(), file, line + 1 - adapter.client.first_line).address;
        wanted.push_back(std::move(breakpoint));
    }
    const std::vector<breakpoint_t> set = session_set_breakpoints(file, std::move(wanted));
    adapter.breakpoints[file] = arguments;
    return shown_breakpoints(adapter, set, "the program has no instruction here or below");
}

json set_instruction_breakpoints(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    std::vector<breakpoint_t> wanted;
    for (const json& one : list_in(arguments)) {
        breakpoint_t breakpoint = breakpoint_in(one);
        breakpoint.address = word_of_reference(text_in(one, "instructionReference"),
                                               number_in(one, "offset", -MOST_OFFSET, MOST_OFFSET, 0));
        wanted.push_back(std::move(breakpoint));
    }
    const std::vector<breakpoint_t> set = session_set_address_breakpoints(std::move(wanted));
    adapter.address_breakpoints = arguments;
    return shown_breakpoints(adapter, set, "this is no address in memory");
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

json set_data_breakpoints(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
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
    adapter.watches = arguments;
    json list = json::array();
    for (const watch_t& watch : set) {
        json shown = {{"id", watch.id}, {"verified", watch.fault.empty()}};
        if (!watch.fault.empty()) {
            shown["message"] = watch.fault;
        }
        list.push_back(std::move(shown));
    }
    return {{"breakpoints", list}};
}

// The program may have changed: lines have other addresses, and what has moved is told.
void set_all_breakpoints(adapter_t& adapter) {
    const auto tell_all = [&](const json& body) {
        for (const json& breakpoint : body.at("breakpoints")) {
            tell(adapter, "breakpoint", {{"reason", "changed"}, {"breakpoint", breakpoint}});
        }
    };
    const std::map<std::string, json> by_file = adapter.breakpoints;
    for (const auto& [file, arguments] : by_file) {
        tell_all(set_breakpoints(adapter, arguments));
    }
    if (const json arguments = adapter.address_breakpoints; !arguments.is_null()) {
        tell_all(set_instruction_breakpoints(adapter, arguments));
    }
    if (const json arguments = adapter.watches; !arguments.is_null()) {
        tell_all(set_data_breakpoints(adapter, arguments));
    }
}
