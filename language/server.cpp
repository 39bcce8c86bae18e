#include "language/server.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "language/features.h"
#include "language/protocol.h"
#include "language/workspace.h"

namespace {

using messages_t = std::vector<json>;

json error_response(const json& id, int code, std::string_view text) {
    return {{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", text}}}};
}

// A member of nested objects, or null.
const json& look_up(const json& object, std::initializer_list<const char*> names) {
    static const json nothing;
    const json* at = &object;
    for (const char* const name : names) {
        if (!at->is_object() || !at->contains(name)) {
            return nothing;
        }
        at = &at->at(name);
    }
    return *at;
}

bool says_yes(const json& object, std::initializer_list<const char*> names) {
    return look_up(object, names) == json(true);
}

// Beginning and end.

encoding_e choose_encoding(const json& capabilities) {
    for (const json& offered : look_up(capabilities, {"general", "positionEncodings"})) {
        if (offered == "utf-8") {
            return encoding_e::UTF8;
        }
        if (offered == "utf-16") {
            break;
        }
    }
    return encoding_e::UTF16;
}

client_t client_of(const json& capabilities) {
    const json& formats = look_up(capabilities, {"textDocument", "hover", "contentFormat"});
    return {.encoding = choose_encoding(capabilities),
            .snippets =
                says_yes(capabilities, {"textDocument", "completion", "completionItem", "snippetSupport"}),
            .markdown = std::find(formats.begin(), formats.end(), json("markdown")) != formats.end(),
            .nested_symbols = says_yes(
                capabilities, {"textDocument", "documentSymbol", "hierarchicalDocumentSymbolSupport"}),
            .watches = says_yes(capabilities, {"workspace", "didChangeWatchedFiles", "dynamicRegistration"})};
}

json capabilities_of(const server_t& server) {
    constexpr int INCREMENTAL = 2;
    return {
        {"positionEncoding", server.client.encoding == encoding_e::UTF8 ? "utf-8" : "utf-16"},
        {"textDocumentSync", {{"openClose", true}, {"change", INCREMENTAL}, {"save", true}}},
        {"hoverProvider", true},
        {"completionProvider", {{"triggerCharacters", {"#", "/", "."}}}},
        {"signatureHelpProvider", {{"triggerCharacters", {" ", "\t"}}}},
        {"definitionProvider", true},
        {"referencesProvider", true},
        {"renameProvider", {{"prepareProvider", true}}},
        {"documentSymbolProvider", true},
        {"foldingRangeProvider", true},
        {"codeActionProvider", {{"codeActionKinds", {"quickfix"}}}},
        {"documentFormattingProvider", true},
        {"documentRangeFormattingProvider", true},
        {"semanticTokensProvider", {{"legend", semantic_tokens_legend()}, {"full", true}}},
        {"workspace", {{"workspaceFolders", {{"supported", true}, {"changeNotifications", true}}}}},
    };
}

void add_folder(server_t& server, const json& uri) {
    if (uri.is_string()) {
        server.folders.push_back(name_of_uri(uri.get_ref<const std::string&>()));
    }
}

json initialize(server_t& server, const json& params) {
    server.client = client_of(look_up(params, {"capabilities"}));
    const json& folders = look_up(params, {"workspaceFolders"});
    for (const json& folder : folders) {
        add_folder(server, look_up(folder, {"uri"}));
    }
    const json& root = look_up(params, {"rootUri"});
    if (folders.empty()) {
        add_folder(server, root);
    }
    if (server.folders.empty() && look_up(params, {"rootPath"}).is_string()) {
        server.folders.push_back(path_of_name(params["rootPath"].get<std::string>()));
    }
    server.stage = stage_e::RUNNING;
    scan_folders(server);
    return {{"capabilities", capabilities_of(server)},
            {"serverInfo", {{"name", "tovik-lsp"}, {"version", server.version}}}};
}

json shut_down(server_t& server, const json& /*params*/) {
    server.stage = stage_e::SHUT_DOWN;
    return nullptr;
}

// Notifications.

messages_t initialized(server_t& server, const json& /*params*/) {
    if (!server.client.watches) {
        return {};
    }
    const json watcher = {{"globPattern", "**/*.k"}};
    const json registration = {{"id", "sources"},
                               {"method", "workspace/didChangeWatchedFiles"},
                               {"registerOptions", {{"watchers", json::array({watcher})}}}};
    return {{{"jsonrpc", "2.0"},
             {"id", "watch"},
             {"method", "client/registerCapability"},
             {"params", {{"registrations", json::array({registration})}}}}};
}

// Some clients count nothing. The protocol's integers have 32 bits.
int64_t version_in(const json& document, int64_t otherwise) {
    const json& version = look_up(document, {"version"});
    return version.is_number_integer() ? static_cast<int32_t>(version.get<int64_t>()) : otherwise;
}

messages_t did_open(server_t& server, const json& params) {
    const json& item = params.at("textDocument");
    open_document(
        server, path_in(params),
        {.uri = item.at("uri"), .text = make_text(item.at("text")), .version = version_in(item, 0)});
    return publish_changed(server);
}

void apply_change(const server_t& server, text_t& text, const json& change) {
    const auto& new_text = change.at("text").get_ref<const std::string&>();
    if (!change.contains("range")) {
        text = make_text(new_text);
        return;
    }
    const json& range = change["range"];
    const size_t begin = offset_at(text, position_in(range.at("start")), server.client.encoding);
    const size_t end = offset_at(text, position_in(range.at("end")), server.client.encoding);
    replace(text, begin, std::max(begin, end), new_text);
}

messages_t did_change(server_t& server, const json& params) {
    const std::string path = path_in(params);
    const auto document = server.documents.find(path);
    if (document == server.documents.end()) {
        return {};
    }
    // All of them or none: after half of them nobody would know what the text is.
    text_t text = document->second.text;
    for (const json& change : params.at("contentChanges")) {
        apply_change(server, text, change);
    }
    document->second.text = std::move(text);
    document->second.version = version_in(params["textDocument"], document->second.version + 1);
    text_changed(server, path);
    return publish_changed(server);
}

messages_t did_close(server_t& server, const json& params) {
    close_document(server, path_in(params));
    return publish_changed(server);
}

// Other files of the programs may have been written with it, and not every client tells.
messages_t did_save(server_t& server, const json& /*params*/) {
    server.programs.clear();
    server.visitors.clear();
    return publish_changed(server);
}

messages_t did_change_watched(server_t& server, const json& params) {
    for (const json& change : params.at("changes")) {
        const std::string path = name_of_uri(change.at("uri").get_ref<const std::string&>());
        if (!server.documents.contains(path)) {
            text_changed(server, path);
        }
    }
    return publish_changed(server);
}

messages_t did_change_folders(server_t& server, const json& params) {
    for (const json& folder : look_up(params, {"event", "removed"})) {
        std::erase(server.folders, name_of_uri(folder.at("uri").get_ref<const std::string&>()));
    }
    for (const json& folder : look_up(params, {"event", "added"})) {
        add_folder(server, look_up(folder, {"uri"}));
    }
    scan_folders(server);
    return publish_changed(server);
}

messages_t leave(server_t& server, const json& /*params*/) {
    server.exit_status = server.stage == stage_e::SHUT_DOWN ? 0 : 1;
    return {};
}

// The tables.

struct request_t {
    std::string_view method;
    json (*handle)(server_t&, const json&);
};

constexpr request_t REQUESTS[] = {
    {"initialize", initialize},
    {"shutdown", shut_down},
    {"textDocument/hover", hover},
    {"textDocument/completion", completion},
    {"textDocument/signatureHelp", signature_help},
    {"textDocument/definition", definition},
    {"textDocument/references", references},
    {"textDocument/prepareRename", prepare_rename},
    {"textDocument/rename", rename_label},
    {"textDocument/documentSymbol", document_symbols},
    {"textDocument/foldingRange", folding_ranges},
    {"textDocument/semanticTokens/full", semantic_tokens},
    {"textDocument/codeAction", code_actions},
    {"textDocument/formatting", formatting},
    {"textDocument/rangeFormatting", range_formatting},
};

struct notification_t {
    std::string_view method;
    messages_t (*handle)(server_t&, const json&);
};

constexpr notification_t NOTIFICATIONS[] = {
    {"initialized", initialized},
    {"exit", leave},
    {"textDocument/didOpen", did_open},
    {"textDocument/didChange", did_change},
    {"textDocument/didClose", did_close},
    {"textDocument/didSave", did_save},
    {"workspace/didChangeWatchedFiles", did_change_watched},
    {"workspace/didChangeWorkspaceFolders", did_change_folders},
};

// A request that cannot be handled now, whatever it is.
void check_stage(const server_t& server, std::string_view method) {
    const bool begins = method == "initialize";
    if (server.stage == stage_e::STARTED && !begins) {
        throw request_error_t{error_code::NOT_INITIALIZED, "the server waits for initialize"};
    }
    if (server.stage == stage_e::RUNNING && begins) {
        throw request_error_t{error_code::INVALID_REQUEST, "initialize has been done"};
    }
    if (server.stage == stage_e::SHUT_DOWN) {
        throw request_error_t{error_code::INVALID_REQUEST, "the server has been shut down"};
    }
}

json answer_request(server_t& server, const std::string& method, const json& params, const json& id) {
    try {
        check_stage(server, method);
        const auto* const request = std::find_if(std::begin(REQUESTS), std::end(REQUESTS),
                                                 [&](const request_t& one) { return one.method == method; });
        if (request == std::end(REQUESTS)) {
            throw request_error_t{error_code::METHOD_NOT_FOUND, "there is no method " + method};
        }
        json response = {{"jsonrpc", "2.0"}, {"id", id}};
        response["result"] = request->handle(server, params);
        return response;
    } catch (const request_error_t& error) {
        return error_response(id, error.code, error.message);
    } catch (const json::exception& error) {
        return error_response(id, error_code::INVALID_PARAMS, error.what());
    } catch (const std::exception& error) {
        return error_response(id, error_code::INTERNAL, error.what());
    }
}

// One that is not understood has no answer; the client's log has it.
messages_t take_notification(server_t& server, const std::string& method, const json& params) {
    const auto* const known = std::find_if(std::begin(NOTIFICATIONS), std::end(NOTIFICATIONS),
                                           [&](const notification_t& one) { return one.method == method; });
    if (known == std::end(NOTIFICATIONS) || (server.stage != stage_e::RUNNING && known->handle != leave)) {
        return {};
    }
    std::string complaint;
    try {
        return known->handle(server, params);
    } catch (const request_error_t& error) {
        complaint = error.message;
    } catch (const std::exception& error) {
        complaint = error.what();
    }
    constexpr int LOG_ERROR = 1;
    return {{{"jsonrpc", "2.0"},
             {"method", "window/logMessage"},
             {"params", {{"type", LOG_ERROR}, {"message", method + ": " + complaint}}}}};
}

} // namespace

std::vector<json> answer(server_t& server, const json& message) {
    const json& method = look_up(message, {"method"});
    const json& id = look_up(message, {"id"});
    if (!method.is_string()) {
        // What answers one of the server's own requests.
        const bool response =
            message.is_object() && (message.contains("result") || message.contains("error"));
        return response ? messages_t()
                        : messages_t{error_response(id.is_number() || id.is_string() ? id : json(),
                                                    error_code::INVALID_REQUEST, "no method")};
    }
    const json& params = look_up(message, {"params"});
    if (!message.contains("id")) {
        return take_notification(server, method, params);
    }
    if (!id.is_number() && !id.is_string()) {
        return {error_response(nullptr, error_code::INVALID_REQUEST, "an id is a number or a text")};
    }
    messages_t messages;
    messages.push_back(answer_request(server, method, params, id));
    return messages;
}

std::vector<std::string> answer_text(server_t& server, std::string_view message) {
    constexpr bool NO_EXCEPTIONS = false;
    constexpr int DEEPEST = 100; // what copies a value does it by recursion
    bool too_deep = false;
    const auto keep = [&](int depth, json::parse_event_t /*event*/, json& /*value*/) {
        too_deep |= depth > DEEPEST;
        return !too_deep;
    };
    const json parsed = json::parse(message, keep, NO_EXCEPTIONS);
    const std::vector<json> answers =
        parsed.is_discarded() || too_deep
            ? messages_t{error_response(nullptr, error_code::PARSE,
                                        too_deep ? "this JSON is too deep" : "this is not JSON")}
            : answer(server, parsed);
    std::vector<std::string> texts;
    texts.reserve(answers.size());
    for (const json& message_out : answers) {
        // Sources need not be UTF-8.
        texts.push_back(message_out.dump(-1, ' ', false, json::error_handler_t::replace));
    }
    return texts;
}
