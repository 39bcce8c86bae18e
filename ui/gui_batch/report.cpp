#include "ui/gui_batch/report.h"

#include <array>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "base/arithmetic.h"
#include "base/machine.h"
#include "core/simulate.h"
#include "devices/io.h"
#include "devices/registers.h"

namespace {

constexpr double SECONDS_PER_INSTRUCTION = NS_PER_INSTRUCTION * 1e-9;

template <typename... values_t> std::string format(const char* pattern, values_t... values) {
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), pattern, values...);
    return text.data();
}

std::string status_of(const run_t& run) {
    if (run.reason == "error" || run.reason == "check") {
        return "error";
    }
    return run.reason == "halt" ? "halted" : "stopped";
}

std::string headline(const run_t& run) {
    if (run.reason == "error") {
        return "Stopped by a run-time error";
    }
    if (run.reason == "halt") {
        return "Halted";
    }
    if (run.reason == "check") {
        return "Stopped by a check";
    }
    if (run.reason == "interrupted") {
        return "Interrupted";
    }
    return "Stopped by the " + (run.reason == "limit" ? "limit of instructions" : run.reason);
}

// Where the program is: its address, and what is known of the instruction there, or of the `halt` before it.
std::string place(const run_t& run) {
    const where_t& where = run.why.place;
    std::string text = "PC " + std::to_string(machine.pc);
    if (run.reason == "halt" && where.line > 0) {
        text += ", after " + where.label + (where.label.empty() ? "" : ": ") + where.mnemonic;
    } else if (run.reason != "halt") {
        text += where.label.empty() ? "" : ", " + where.label;
        if (machine.pc >= 0 && machine.pc < MEMORY_SIZE) {
            text += ": " + (where.mnemonic.empty() ? "no instruction" : where.mnemonic);
        }
    }
    if (where.line > 0) {
        text += " (" + where.file + ":" + std::to_string(where.line) + ": " + where.text + ")";
    }
    return text;
}

nlohmann::ordered_json place_object(const run_t& run) {
    const where_t& where = run.why.place;
    const std::string name =
        run.places.labels.contains(where.label) ? where.label : where.label.substr(0, where.label.rfind('+'));
    const auto label = run.places.labels.find(name);
    nlohmann::ordered_json place;
    place["address"] = where.address;
    place["label"] = name;
    place["offset"] = label == run.places.labels.end() ? 0 : where.address - label->second;
    place["file"] = where.file;
    place["line"] = where.line;
    place["text"] = where.text;
    place["mnemonic"] = where.mnemonic;
    return place;
}

nlohmann::ordered_json awaited_array(const run_t& run) {
    nlohmann::ordered_json registers = nlohmann::ordered_json::array();
    for (const int32_t offset : run.why.waits_for) {
        const device_t& device = *find_device(offset);
        registers.push_back({{"address", wrap_add(IO_BASE, offset)},
                             {"device", device.name},
                             {"register", find_register(offset)->name}});
    }
    return registers;
}

std::span<const uint8_t> bytes_of(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::span<const uint8_t> lcd_line(size_t y) { return machine.lcd_ram[y]; }

// In quotes; what is no character of ASCII is escaped.
std::string quoted(std::span<const uint8_t> line) {
    std::string text = "\"";
    for (const uint8_t byte : line) {
        if (byte < ' ' || byte > '~') {
            text += format("\\x%02x", static_cast<unsigned>(byte));
            continue;
        }
        text += byte == '"' || byte == '\\' ? "\\" : "";
        text += static_cast<char>(byte);
    }
    return text + "\"";
}

} // namespace

std::string characters(std::span<const uint8_t> line) {
    std::string text;
    for (const uint8_t byte : line) {
        if (byte >= 0x80) {
            text += static_cast<char>(0xc0 | byte >> 6);
        }
        text += static_cast<char>(byte < 0x80 ? byte : 0x80 | (byte & 0x3f));
    }
    return text;
}

std::string message_of(const check_t& check) { return check.place + ": " + check.text; }

std::string text_report(const run_t& run) {
    std::string text = headline(run) + "\n";
    if (run.reason == "error") {
        text += last_stop().error;
        text += text.ends_with('\n') ? "" : "\n";
    } else if (run.reason == "check") {
        text += message_of(run.checks->back()) + "\n";
    }
    text += "  at              " + place(run) + "\n";
    if (!run.why.text.empty()) {
        text += "  reason          " + run.why.text + "\n";
    }
    if (!run.places.difference.empty()) {
        text += "  source          " + run.places.difference + "\n";
    }
    text += "  instructions    " + std::to_string(machine.instr_count) +
            format(" (%.6f s of board time)\n",
                   static_cast<double>(machine.instr_count) * SECONDS_PER_INSTRUCTION);
    text += format("  switches        0x%05x\n", static_cast<unsigned>(machine.sw));
    text += format("  red LEDs        0x%05x\n", static_cast<unsigned>(machine.led_red));
    text += format("  green LEDs      0x%02x\n", static_cast<unsigned>(machine.led_green));
    text += "  HEX7-HEX4       " + run.hex74 + "\n";
    text += "  HEX3-HEX0       " + run.hex30 + "\n";
    text += "  LCD             " + quoted(lcd_line(0)) + "\n";
    text += "                  " + quoted(lcd_line(1)) + "\n";
    if (!run.serial_output.empty()) {
        text += "  serial output   " + quoted(bytes_of(run.serial_output)) + "\n";
    }
    if (run.serial_truncated) {
        text +=
            "                  and more: " + std::to_string(run.serial_bytes) + " bytes were sent in all\n";
    }
    for (const int32_t address : run.memory) {
        const std::string name = "memory[" + std::to_string(address) + "]";
        text += format("  %-15s %d\n", name.c_str(), machine.memory[address]);
    }
    if (run.checks) {
        text += "  checks          " + std::to_string(run.checks->size()) +
                (run.checks->size() == 1 ? " finding\n" : " findings\n");
    }
    return text;
}

std::string json_report(const run_t& run) {
    nlohmann::ordered_json report;
    report["status"] = status_of(run);
    report["reason"] = run.reason;
    report["message"] = run.reason == "check" ? message_of(run.checks->back()) : last_stop().error;
    report["pc"] = machine.pc;
    report["instructions"] = machine.instr_count;
    report["switches"] = machine.sw;
    report["led_red"] = machine.led_red;
    report["led_green"] = machine.led_green;
    report["hex74"] = run.hex74;
    report["hex30"] = run.hex30;
    report["lcd"] = {characters(lcd_line(0)), characters(lcd_line(1))};
    report["serial_output"] = characters(bytes_of(run.serial_output));
    // Appended without the library's search for a key that is there already: the addresses are all different.
    nlohmann::ordered_json::object_t memory;
    for (const int32_t address : run.memory) {
        memory.emplace_back(std::to_string(address), machine.memory[address]);
    }
    report["memory"] = std::move(memory);
    report["messages"] = nlohmann::ordered_json::array();
    for (const message_t& message : run.messages) {
        report["messages"].push_back({{"error", message.error}, {"text", message.text}});
    }
    report["serial_bytes"] = run.serial_bytes;
    report["serial_truncated"] = run.serial_truncated;
    report["place"] = place_object(run);
    report["reason_text"] = run.why.text;
    report["waits_for"] = awaited_array(run);
    report["source_differs"] = run.places.difference;
    if (run.checks) {
        report["checks"] = nlohmann::ordered_json::array();
        for (const auto& [kind, place, label, address, text, count] : *run.checks) {
            report["checks"].push_back({{"kind", kind},
                                        {"place", place},
                                        {"label", label},
                                        {"address", address},
                                        {"text", text},
                                        {"count", count}});
        }
    }
    // A text may hold any bytes, a file's name for example; those that are not UTF-8 are replaced.
    return report.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}
