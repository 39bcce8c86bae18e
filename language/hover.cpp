// What is told about the word under the pointer.

#include "language/features.h"

#include "assembler/numbers.h"
#include "assembler/operations.h"
#include "base/text.h"
#include "language/protocol.h"

namespace {

using paragraphs_t = std::vector<std::string>;

// "65 = 0x41 = 'A'"
std::string in_all_forms(int32_t value) {
    struct control_t {
        int32_t code;
        std::string_view name;
    };
    // Those that cannot be shown in backquotes.
    constexpr control_t CONTROLS[] = {{8, "backspace"},        {9, "tab"},     {10, "line feed"},
                                      {13, "carriage return"}, {27, "escape"}, {32, "space"},
                                      {96, "backquote"}};
    std::string text = "`" + std::to_string(value) + "` = `" + hexadecimal(value) + "`";
    for (const control_t& control : CONTROLS) {
        if (control.code == value) {
            return text + ", the character " + std::string(control.name);
        }
    }
    if (value > ' ' && value <= '~') {
        text += std::string(" = `'") + static_cast<char>(value) + "'`";
    }
    return text;
}

// From a clause without a full stop.
std::string sentence(std::string_view clause) {
    std::string text(clause);
    if (!text.empty() && text.front() >= 'a' && text.front() <= 'z') {
        text.front() = static_cast<char>(text.front() - 'a' + 'A');
    }
    return text + ".";
}

std::string_view role_text(role_e role) {
    switch (role) {
    case role_e::NONE:
        return "";
    case role_e::READ:
        return "the address of a word that is read";
    case role_e::WRITTEN:
        return "the address of a word that is written";
    case role_e::BASE:
        return "the address where an array begins";
    case role_e::TARGET:
        return "the address of an instruction";
    case role_e::VALUE:
        return "a number, or the address of a label as a number";
    }
    return "";
}

paragraphs_t about_operation(std::string_view name) {
    const operation_t* const operation = find_operation(name);
    if (operation == nullptr) {
        return {};
    }
    paragraphs_t paragraphs{"`" + form_of(*operation) + "`", sentence(operation->effect)};
    std::string list;
    for (size_t i = 0; i < operation->count; ++i) {
        const operand_info_t& operand = operation->operands[i];
        list += (list.empty() ? "- `" : "\n- `") + std::string(operand.name) +
                "`: " + std::string(role_text(operand.role));
    }
    if (!list.empty()) {
        paragraphs.push_back(list);
    }
    return paragraphs;
}

// Of an address below 0.
int32_t offset_of(int32_t address) {
    constexpr uint32_t PORTS = 0x80000000;
    return static_cast<int32_t>(static_cast<uint32_t>(address) - PORTS);
}

// The device behind an address, in two paragraphs at most.
paragraphs_t about_port(int32_t address) {
    if (address >= 0) {
        return {};
    }
    const device_t* const device = find_device(offset_of(address));
    if (device == nullptr) {
        return {"No device has this address."};
    }
    const board_register_t* const port = port_at(address);
    if (port == nullptr) {
        return {"No device has this address: a read gives 0, a write does nothing."};
    }
    const bool plain = port->kind == register_e::PLAIN; // a device of its own
    const std::string name = plain ? "**" + std::string(port->name) + "**"
                                   : "**" + std::string(device->name) + "**, " + std::string(port->name);
    const bool one_bit = port->bits.find('-') == std::string_view::npos;
    paragraphs_t paragraphs{name + ", " + (port->access == direction_e::READ ? "read" : "written") + ": " +
                            std::string(port->meaning) + (one_bit ? ". Bit " : ". Bits ") +
                            std::string(port->bits) + "."};
    if (!plain) {
        paragraphs.push_back(sentence(device->handshake));
    }
    return paragraphs;
}

std::string place_text(const project_t& program, const statement_t& statement) {
    return "line " + std::to_string(statement.line) + " of " +
           std::string(base_name(program.paths[statement.file]));
}

paragraphs_t about_label(const project_t& program, std::string_view name) {
    const definition_t found = definition_of(program, name);
    if (found.label == nullptr) {
        return {"`" + std::string(name) + "`: no line begins with this label."};
    }
    const int32_t address = found.label->address;
    paragraphs_t paragraphs{"`" + std::string(name) + "`: address `" + std::to_string(address) + "` = `" +
                            hexadecimal(address) + "`"};
    if (found.content != nullptr && found.content->operation != nullptr) {
        const source_map_t& map = program.analysis.map;
        const auto word = static_cast<size_t>(address);
        const bool data = is_data(*found.content->operation);
        if (data && address >= 0 && word < map.words.size() && map.words[word].kind == word_e::DATA) {
            paragraphs.push_back("Holds " + in_all_forms(map.words[word].value) + " when the program starts");
        } else if (!data) {
            paragraphs.push_back("An instruction, `" + std::string(found.content->operation->name) + "`");
        }
    }
    const uint32_t uses = found.label->use_count;
    const std::string used = uses == 0   ? "not used"
                             : uses == 1 ? "used once"
                                         : "used " + std::to_string(uses) + " times";
    paragraphs.push_back("Defined in " + place_text(program, *found.line) + ", " + used);
    return paragraphs;
}

// What a number is depends on the operand that it is: a value, an address, or a port.
paragraphs_t about_number(const project_t& program, const spot_t& spot, std::string_view text) {
    const std::optional<int32_t> value = read_number(text);
    if (!value) {
        return {};
    }
    paragraphs_t paragraphs{in_all_forms(*value)};
    if (spot.token.kind == token_e::ORIGIN) {
        paragraphs.push_back("In the first column: the address of the next word.");
    }
    const operation_t* const operation =
        find_operation(text_in(spot.view.text.bytes, spot.line.statement.opcode));
    const auto index = static_cast<size_t>(spot.token.operand);
    if (spot.token.kind != token_e::NUMBER || operation == nullptr || index >= operation->count) {
        return paragraphs;
    }
    const role_e role = operation->operands[index].role;
    // A constant is more often a number below 0 than a pointer to where no device is.
    if (role != role_e::VALUE || port_at(*value) != nullptr) {
        for (std::string& paragraph : about_port(*value)) {
            paragraphs.push_back(std::move(paragraph));
        }
    }
    if (role == role_e::VALUE || *value < 0) {
        return paragraphs;
    }
    for (const label_t& label : program.analysis.map.labels) {
        if (label.address == *value) {
            paragraphs.push_back("The address of `" + std::string(name_of(program.analysis.map, label)) +
                                 "`");
            return paragraphs;
        }
    }
    paragraphs.push_back("Here a number is an address: the word at " + std::to_string(*value) + ".");
    return paragraphs;
}

paragraphs_t about_file(const project_t& program, const spot_t& spot, std::string_view name) {
    for (const inclusion_t& inclusion : program.analysis.map.inclusions) {
        const uint32_t parent =
            inclusion.parent == NOTHING ? NOTHING : program.analysis.map.inclusions[inclusion.parent].file;
        if (inclusion.file != NOTHING && parent != NOTHING && program.paths[parent] == spot.view.path &&
            text_of(program.analysis.map, parent, inclusion.name) == name) {
            return {"`" + program.paths[inclusion.file] + "`"};
        }
    }
    return {};
}

json contents_of(const server_t& server, const paragraphs_t& paragraphs) {
    std::string text;
    for (const std::string& paragraph : paragraphs) {
        text += (text.empty() ? "" : "\n\n") + paragraph;
    }
    if (!server.client.markdown) {
        std::erase(text, '`');
        for (size_t bold = text.find("**"); bold != std::string::npos; bold = text.find("**", bold)) {
            text.erase(bold, 2);
        }
    }
    return {{"kind", server.client.markdown ? "markdown" : "plaintext"}, {"value", text}};
}

} // namespace

std::string form_of(const operation_t& operation) {
    std::string form(operation.name);
    for (size_t i = 0; i < operation.count; ++i) {
        form.append(" ").append(operation.operands[i].name);
    }
    return form;
}

const board_register_t* port_at(int32_t address) {
    return address >= 0 ? nullptr : find_register(offset_of(address));
}

definition_t definition_of(const project_t& program, std::string_view name) {
    const source_map_t& map = program.analysis.map;
    const uint32_t index = find_label(map, name);
    if (index == NOTHING) {
        return {};
    }
    definition_t found{.label = &map.labels[index], .line = &map.statements[map.labels[index].statement]};
    const uint32_t content = program.contents[found.label->statement];
    // What a number in the first column moves away from the label is not its content.
    if (content != NOTHING && map.statements[content].address == found.label->address) {
        found.content = &map.statements[content];
    }
    return found;
}

json hover(server_t& server, const json& params) {
    spot_t spot;
    find_spot(server, params, spot);
    const std::string_view text = text_in(spot.view.text.bytes, spot.token.span);
    const project_t& program = program_of(server, spot.view.path);
    paragraphs_t paragraphs;
    switch (spot.token.kind) {
    case token_e::OPERATION:
        paragraphs = about_operation(text);
        break;
    case token_e::LABEL:
    case token_e::NAME:
        paragraphs = about_label(program, text);
        break;
    case token_e::NUMBER:
    case token_e::ORIGIN:
        paragraphs = about_number(program, spot, text);
        break;
    case token_e::FILE_NAME:
        paragraphs = about_file(program, spot, text);
        break;
    case token_e::INCLUDE:
        paragraphs = {"`#include NAME`", "The lines of that file take its place."};
        break;
    case token_e::COMMENT:
    case token_e::NONE:
        break;
    }
    if (paragraphs.empty()) {
        return nullptr;
    }
    return {{"contents", contents_of(server, paragraphs)},
            {"range", range_of(server, spot.view.text, bytes_of(spot.token.span))}};
}
