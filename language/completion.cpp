// What can be typed next, and what the operands of an operation are.

#include "language/features.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "assembler/operations.h"
#include "devices/registers.h"
#include "language/protocol.h"

namespace {

// The protocol's numbers.
constexpr int KIND_FUNCTION = 3;
constexpr int KIND_VARIABLE = 6;
constexpr int KIND_KEYWORD = 14;
constexpr int KIND_FILE = 17;
constexpr int KIND_CONSTANT = 21;
constexpr int SNIPPET = 2;

// More are sent when more letters have been typed.
constexpr size_t MOST_ITEMS = 1000;

// What has been typed of a token, and what it is in its line.
struct typing_t {
    bytes_t bytes;
    std::string_view typed{};
    std::string_view operation{}; // in front of it, empty when there is none
    int operand = -1;
    bool file = false;
    bool label = false;
};

typing_t typing_at(const spot_t& spot) {
    const std::string_view text = spot.view.text.bytes;
    const tokens_t tokens = tokens_of(text, spot.line);
    typing_t typing{.bytes = {spot.offset, spot.offset}};
    typing.label = spot.offset == spot.line.begin;
    for (const token_t& token : tokens) {
        const size_t begin = token.span.begin;
        const bool here = begin <= spot.offset && spot.offset <= begin + token.span.size;
        if (here) {
            typing.bytes.begin = begin;
            typing.operand = token.operand;
            typing.label = begin == spot.line.begin;
            typing.file = token.kind == token_e::FILE_NAME;
            break;
        }
        if (begin > spot.offset) {
            break;
        }
        typing.file = token.kind == token_e::INCLUDE;
        typing.operand = token.kind == token_e::OPERATION ? 0 : token.operand + 1;
        if (token.kind == token_e::OPERATION) {
            typing.operation = text_in(text, token.span);
        }
    }
    typing.typed = text.substr(typing.bytes.begin, spot.offset - typing.bytes.begin);
    return typing;
}

bool in_comment(const spot_t& spot) {
    return spot.line.comment.begin < spot.line.comment.end && spot.offset > spot.line.comment.begin;
}

struct list_t {
    const server_t& server;
    const spot_t& spot;
    const typing_t& typing;
    json items = json::array();
    bool complete = true;
};

json& add_item(list_t& list, std::string_view label, int kind, std::string_view new_text) {
    json item = {{"label", label},
                 {"kind", kind},
                 {"textEdit", edit_of(list.server, list.spot.view.text, list.typing.bytes, new_text)}};
    list.items.push_back(std::move(item));
    return list.items.back();
}

void add_operations(list_t& list) {
    constexpr size_t OPERATION_WIDTH = 8;
    const bool alone = list.spot.line.statement.operands[0].token.size == 0;
    for (const operation_t& operation : operations()) {
        std::string text(operation.name);
        if (alone && list.server.client.snippets && operation.count > 0) {
            text.resize(OPERATION_WIDTH, ' ');
            for (size_t i = 0; i < operation.count; ++i) {
                text += (i == 0 ? "${" : " ${") + std::to_string(i + 1) + ":" +
                        std::string(operation.operands[i].name) + "}";
            }
        }
        json& item = add_item(list, operation.name, KIND_KEYWORD, text);
        item["detail"] = form_of(operation);
        item["documentation"] = std::string(operation.effect) + ".";
        if (text != operation.name) {
            item["insertTextFormat"] = SNIPPET;
        }
    }
}

// Those that fit the operand come first.
void add_labels(list_t& list, const project_t& program, role_e role) {
    const source_map_t& map = program.analysis.map;
    for (const label_t& label : map.labels) {
        const std::string_view name = name_of(map, label);
        if (list.items.size() >= MOST_ITEMS) {
            list.complete = false;
            return;
        }
        if (map.labels.size() > MOST_ITEMS && !name.starts_with(list.typing.typed)) {
            list.complete = false;
            continue;
        }
        const definition_t found = definition_of(program, name);
        const bool code = found.content != nullptr && found.content->operation != nullptr &&
                          !is_data(*found.content->operation);
        json& item = add_item(list, name, code ? KIND_FUNCTION : KIND_VARIABLE, name);
        item["detail"] = "address " + std::to_string(label.address) + ", " +
                         std::string(base_name(program.paths[found.line->file]));
        item["sortText"] = ((role == role_e::TARGET) == code ? "0" : "1") + std::string(name);
    }
}

// In hexadecimal, found by their names. Those that the operand can read or write come first.
void add_ports(list_t& list, role_e role) {
    if (role == role_e::TARGET) {
        return;
    }
    for (const device_t& device : board_devices()) {
        for (const board_register_t& port : device.registers) {
            constexpr std::string_view DIGITS = "0123456789abcdef";
            const auto offset = static_cast<size_t>(port.offset);
            const std::string address =
                std::string("0x800000") + DIGITS[offset / 16 % 16] + DIGITS[offset % 16];
            const bool plain = port.kind == register_e::PLAIN; // a device of its own
            const std::string name = (plain ? "" : std::string(device.name) + ": ") + std::string(port.name);
            const bool fits = role == (port.access == direction_e::READ ? role_e::READ : role_e::WRITTEN) ||
                              role == role_e::VALUE || role == role_e::BASE;
            json& item = add_item(list, name, KIND_CONSTANT, address);
            item["detail"] = address + (port.access == direction_e::READ ? ", read" : ", written");
            item["documentation"] = std::string(port.meaning) + ".";
            item["sortText"] = (fits ? "2" : "3") + address;
            // Who types a number finds it as well.
            item["filterText"] = list.typing.typed.starts_with("0x") ? address : name;
        }
    }
}

// The sources of the folder that the file is in and of the workspace, as the file would name them.
void add_files(list_t& list) {
    const std::string& path = list.spot.view.path;
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    std::vector<std::string> folders = list.server.folders;
    folders.push_back(folder);
    std::set<std::string> names;
    for (const std::string& one : folders) {
        for (const std::string& name : list.server.list(one)) {
            names.insert(path_of_name(name));
        }
    }
    for (const auto& [name, document] : list.server.documents) {
        names.insert(name);
    }
    for (const std::string& name : names) {
        if (name != path && name.starts_with('/') && list.items.size() < MOST_ITEMS) {
            const std::string relative = std::filesystem::path(name).lexically_relative(folder).string();
            add_item(list, relative, KIND_FILE, relative);
        }
    }
}

// Names that are used and not defined yet.
void add_new_labels(list_t& list, const project_t& program) {
    add_item(list, "#include", KIND_KEYWORD, "#include ");
    for (const diagnostic_t& diagnostic : program.analysis.diagnostics.list) {
        if (diagnostic.code == code::UNDEFINED_LABEL) {
            const text_t& text = program.texts[diagnostic.place.file];
            const bytes_t bytes = bytes_of(text, diagnostic.place);
            const std::string_view name =
                std::string_view(text.bytes).substr(bytes.begin, bytes.end - bytes.begin);
            add_item(list, name, KIND_VARIABLE, name)["detail"] = "not defined yet";
        }
    }
}

role_e role_of(const typing_t& typing) {
    const operation_t* const operation = find_operation(typing.operation);
    const auto index = static_cast<size_t>(typing.operand);
    return operation == nullptr || index >= operation->count ? role_e::NONE : operation->operands[index].role;
}

} // namespace

json completion(server_t& server, const json& params) {
    spot_t spot;
    find_spot(server, params, spot);
    const typing_t typing = typing_at(spot);
    list_t list{.server = server, .spot = spot, .typing = typing};
    const project_t& program = program_of(server, spot.view.path);
    if (in_comment(spot)) {
        return nullptr;
    }
    if (typing.file) {
        add_files(list);
    } else if (typing.label) {
        add_new_labels(list, program);
    } else if (typing.operation.empty() && !spot.line.include) {
        add_operations(list);
    } else if (const role_e role = role_of(typing); role != role_e::NONE) {
        add_labels(list, program, role);
        add_ports(list, role);
    }
    return {{"isIncomplete", !list.complete}, {"items", std::move(list.items)}};
}

json signature_help(server_t& server, const json& params) {
    spot_t spot;
    find_spot(server, params, spot);
    const typing_t typing = typing_at(spot);
    const operation_t* const operation = find_operation(typing.operation);
    if (in_comment(spot) || operation == nullptr || typing.operand > std::max(operation->count - 1, 0)) {
        return nullptr; // behind the last operand no operand is next
    }
    json operands = json::array();
    for (size_t i = 0; i < operation->count; ++i) {
        operands.push_back({{"label", operation->operands[i].name}});
    }
    const json signature = {{"label", form_of(*operation)},
                            {"documentation", std::string(operation->effect) + "."},
                            {"parameters", operands}};
    return {{"signatures", json::array({signature})},
            {"activeSignature", 0},
            {"activeParameter", typing.operand}};
}
