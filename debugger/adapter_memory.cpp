// Memory as bytes, and as instructions; the sources.

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <utility>

#include "assembler/operations.h"
#include "base/machine.h"
#include "core/instructions.h"
#include "debugger/adapter_internal.h"

namespace {

constexpr int BYTES = 4; // in a word
constexpr int BITS = 8;  // in a byte
constexpr int64_t MEMORY_BYTES = int64_t{MEMORY_SIZE} * BYTES;
constexpr int64_t MOST_OFFSET = int64_t{1} << 32;

constexpr std::string_view DIGITS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string reference_of_byte(int64_t byte) {
    std::array<char, 20> text{};
    std::snprintf(text.data(), text.size(), "0x%08llx", static_cast<unsigned long long>(byte));
    return text.data();
}

std::string label_at(int32_t address) {
    const std::string name = nearest_label(address, session_places().labels);
    return session_places().labels.contains(name) ? name : "";
}

std::string operand(int32_t value) {
    if (value >= 0) {
        const std::string name = label_at(value);
        return name.empty() ? std::to_string(value) : name;
    }
    return reference_of_byte(static_cast<uint32_t>(value));
}

// Where the lines of a listing begin, with one at an address.
std::vector<int32_t> listing_with(int32_t at) {
    std::vector<int32_t> begins;
    for (int32_t address = 0; address < MEMORY_SIZE;) {
        begins.push_back(address);
        const int32_t next = address + decode(address).size;
        const bool passes = address < at && next > at;
        address = passes ? address + 1 : next;
    }
    return begins;
}

json shown_instruction(const adapter_t& adapter, int32_t address) {
    const decoded_t decoded = decode(address);
    std::string words;
    for (int32_t i = 0; i < decoded.size; ++i) {
        words += (i > 0 ? " " : "") + std::to_string(machine.memory[address + i]);
    }
    json shown = {{"address", memory_reference(address)},
                  {"instructionBytes", words},
                  {"instruction", std::to_string(address) + ": " + decoded.text}};
    if (const std::string label = label_at(address); !label.empty()) {
        shown["symbol"] = label;
    }
    if (const where_t place = where(session_places(), address); place.line > 0) {
        shown["location"] = source_of(place.file);
        shown["line"] = place.line - 1 + adapter.client.first_line;
    }
    return shown;
}

uint8_t byte_at(int64_t byte) {
    const auto word = static_cast<uint32_t>(machine.memory[byte / BYTES]);
    return static_cast<uint8_t>(word >> (byte % BYTES * BITS));
}

int32_t with_byte(int32_t word, int64_t byte, uint8_t value) {
    const auto shift = static_cast<uint32_t>(byte % BYTES * BITS);
    const uint32_t rest = static_cast<uint32_t>(word) & ~(uint32_t{0xff} << shift);
    return static_cast<int32_t>(rest | uint32_t{value} << shift);
}

} // namespace

std::string memory_reference(int32_t address) { return reference_of_byte(int64_t{address} * BYTES); }

int64_t byte_of_reference(const std::string& reference) {
    constexpr int DECIMAL = 10;
    constexpr int HEXADECIMAL = 16;
    const bool hexadecimal = reference.starts_with("0x");
    const char* const begin = reference.data() + (hexadecimal ? 2 : 0);
    const char* const end = reference.data() + reference.size();
    int64_t byte = 0;
    const auto [stopped, error] = std::from_chars(begin, end, byte, hexadecimal ? HEXADECIMAL : DECIMAL);
    if (error != std::errc{} || stopped != end || byte < 0 || byte > MOST_OFFSET) {
        throw refused_t{"'" + reference + "' is no reference to memory"};
    }
    return byte;
}

// Data is what the source says is data, or what cannot be an instruction.
decoded_t decode(int32_t address) {
    const int32_t word = machine.memory[address];
    const statement_t* const statement = statement_at(session_places(), address);
    const bool begins =
        statement == nullptr ||
        (statement->address == address && statement->operation != nullptr && !is_data(*statement->operation));
    if (!begins || !is_opcode(word) || !whole_in_memory(address)) {
        return {".data " + std::to_string(word), 1, false};
    }
    const bool is_named = statement != nullptr && is_cpdata(*statement->operation);
    const words_t words = words_at(address);
    std::string text(mnemonic_of(word));
    if (is_named && words.arg2 == address + CPDATA_VALUE_OFFSET) {
        return {"cpdata " + operand(words.arg1) + " " + std::to_string(words.arg3), WORDS_PER_INSTRUCTION,
                true};
    }
    const uses_t uses = uses_of(word);
    for (const auto& [used, value] :
         {std::pair{uses.arg1, words.arg1}, {uses.arg2, words.arg2}, {uses.arg3, words.arg3}}) {
        text += used ? " " + operand(value) : "";
    }
    return {text, WORDS_PER_INSTRUCTION, true};
}

json disassemble(adapter_t& adapter, const json& arguments) {
    constexpr int64_t MOST_INSTRUCTIONS = 100'000;
    check_launched(adapter);
    const int64_t byte = byte_of_reference(text_in(arguments, "memoryReference")) +
                         number_in(arguments, "offset", -MOST_OFFSET, MOST_OFFSET, 0);
    const int64_t skip = number_in(arguments, "instructionOffset", -MOST_OFFSET, MOST_OFFSET, 0);
    const int64_t count = number_in(arguments, "instructionCount", 0, MOST_INSTRUCTIONS);
    const int64_t word = std::clamp<int64_t>(byte / BYTES, 0, MEMORY_SIZE);
    const std::vector<int32_t> begins = listing_with(static_cast<int32_t>(word));
    const int64_t first = std::lower_bound(begins.begin(), begins.end(), word) - begins.begin() + skip;
    json instructions = json::array();
    // As many as are asked for, whether they exist or not.
    for (int64_t i = first; i < first + count; ++i) {
        if (i >= 0 && i < static_cast<int64_t>(begins.size())) {
            instructions.push_back(shown_instruction(adapter, begins[static_cast<size_t>(i)]));
        } else {
            const int64_t beyond =
                i < 0 ? 0 : MEMORY_BYTES + (i - static_cast<int64_t>(begins.size())) * BYTES;
            instructions.push_back({{"address", reference_of_byte(beyond)},
                                    {"instruction", "no memory"},
                                    {"presentationHint", "invalid"}});
        }
    }
    return {{"instructions", instructions}};
}

json read_memory(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    const int64_t begin = byte_of_reference(text_in(arguments, "memoryReference")) +
                          number_in(arguments, "offset", -MOST_OFFSET, MOST_OFFSET, 0);
    const int64_t count = number_in(arguments, "count", 0, MOST_OFFSET);
    const bool inside = begin >= 0 && begin < MEMORY_BYTES;
    const int64_t readable = inside ? std::min(count, MEMORY_BYTES - begin) : 0;
    std::string bytes;
    for (int64_t i = 0; i < readable; ++i) {
        bytes += static_cast<char>(byte_at(begin + i));
    }
    json body = {{"address", reference_of_byte(std::max<int64_t>(begin, 0))}, {"data", base64_of(bytes)}};
    if (readable < count) {
        body["unreadableBytes"] = count - readable;
    }
    return body;
}

json write_memory(adapter_t& adapter, const json& arguments) {
    check_stopped(adapter);
    const int64_t begin = byte_of_reference(text_in(arguments, "memoryReference")) +
                          number_in(arguments, "offset", -MOST_OFFSET, MOST_OFFSET, 0);
    const bool partly = flag_in(arguments, "allowPartial");
    std::optional<std::string> bytes = bytes_of_base64(text_in(arguments, "data"));
    if (!bytes) {
        throw refused_t{"data is not base64"};
    }
    const int64_t room = begin >= 0 && begin < MEMORY_BYTES ? MEMORY_BYTES - begin : 0;
    if (static_cast<int64_t>(bytes->size()) > room) {
        if (!partly) {
            throw refused_t{"that is outside of memory, which has " + std::to_string(MEMORY_BYTES) +
                            " bytes"};
        }
        bytes->resize(static_cast<size_t>(room));
    }
    for (size_t i = 0; i < bytes->size();) {
        const int64_t first = begin + static_cast<int64_t>(i);
        const int64_t word = first / BYTES;
        int32_t value = machine.memory[word];
        for (int64_t byte = first; byte / BYTES == word && i < bytes->size(); ++byte, ++i) {
            value = with_byte(value, byte, static_cast<uint8_t>((*bytes)[i]));
        }
        if (value != machine.memory[word]) {
            session_set_word(static_cast<int32_t>(word), value);
        }
    }
    tell_changed(adapter, "all");
    return {{"bytesWritten", bytes->size()}};
}

json source_of(const std::string& file) {
    return {{"name", file.substr(file.rfind('/') + 1)}, {"path", file}};
}

json source(adapter_t& adapter, const json& arguments) {
    check_launched(adapter);
    const std::string path = text_in(member(arguments, "source"), "path");
    for (const source_file_t& file : session_places().analysis.map.files) {
        if (file.name == path) {
            return {{"content", file.text}, {"mimeType", "text/x-k24"}};
        }
    }
    throw refused_t{path + " is no source of the program"};
}

json loaded_sources(adapter_t& adapter, const json& /*arguments*/) {
    check_launched(adapter);
    json sources = json::array();
    for (const source_file_t& file : session_places().analysis.map.files) {
        sources.push_back(source_of(file.name));
    }
    return {{"sources", sources}};
}

std::string base64_of(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = std::min<size_t>(bytes.size() - i, 3);
        uint32_t group = 0;
        for (size_t j = 0; j < 3; ++j) {
            group = group << 8 | (j < count ? static_cast<uint8_t>(bytes[i + j]) : 0U);
        }
        for (size_t j = 0; j < 4; ++j) {
            text += j <= count ? DIGITS[group >> (18 - 6 * j) & 0x3f] : '=';
        }
    }
    return text;
}

std::optional<std::string> bytes_of_base64(std::string_view text) {
    std::string bytes;
    uint32_t bits = 0;
    int count = 0;
    const size_t end = std::min(text.find_last_not_of('=') + 1, text.size());
    if (text.size() % 4 != 0 || text.size() - end > 2) {
        return std::nullopt;
    }
    for (const char c : text.substr(0, end)) {
        const size_t digit = DIGITS.find(c);
        if (digit == std::string_view::npos) {
            return std::nullopt;
        }
        bits = bits << 6 | static_cast<uint32_t>(digit);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count);
        }
    }
    return bytes;
}
