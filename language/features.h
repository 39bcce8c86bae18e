#pragma once

// What an editor can ask for. Each takes the parameters of the request and returns its result, null where
// there is none.

#include <string>
#include <string_view>
#include <vector>

#include "devices/registers.h"
#include "language/lines.h"
#include "language/server.h"
#include "language/workspace.h"

// A request about a place: its file, and the line and the token that are there.
struct spot_t {
    view_t view{};
    size_t offset = 0;
    source_line_t line{};
    token_t token{};
};

// Fills in a record that stays where it is: the line leads into its text.
void find_spot(const server_t& server, const json& params, spot_t& spot);

// Notifications for the files whose diagnostics may have changed.
std::vector<json> publish_changed(server_t& server);

// A diagnostic of a program in the protocol's form.
json diagnostic_json(const server_t& server, const project_t& program, const diagnostic_t& diagnostic);

json hover(server_t& server, const json& params);
json completion(server_t& server, const json& params);
json signature_help(server_t& server, const json& params);
json definition(server_t& server, const json& params);
json references(server_t& server, const json& params);
json prepare_rename(server_t& server, const json& params);
json rename_label(server_t& server, const json& params);
json document_symbols(server_t& server, const json& params);
json folding_ranges(server_t& server, const json& params);
json semantic_tokens(server_t& server, const json& params);
json semantic_tokens_legend();
json code_actions(server_t& server, const json& params);
json formatting(server_t& server, const json& params);
json range_formatting(server_t& server, const json& params);

// `add a b c`
std::string form_of(const operation_t& operation);

// The register at an address of the board's devices; null when there is none.
const board_register_t* port_at(int32_t address);

// What a name is defined as in a program, and the statement; null when it is not.
struct definition_t {
    const label_t* label = nullptr;
    const statement_t* line = nullptr;    // of the label
    const statement_t* content = nullptr; // the first line from there on that makes words there
};
definition_t definition_of(const project_t& program, std::string_view name);
