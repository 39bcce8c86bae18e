// Diagnostics, sent for all files of a program at each change.

#include "language/features.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "language/codes.h"
#include "language/protocol.h"

namespace {

// The protocol's numbers.
constexpr int SEVERITY_ERROR = 1;
constexpr int SEVERITY_WARNING = 2;
constexpr int SEVERITY_INFORMATION = 3;
constexpr int SEVERITY_HINT = 4;

constexpr int TAG_UNNECESSARY = 1;

// The program that includes the file may well define it.
bool may_be_defined(const project_t& program, const diagnostic_t& diagnostic) {
    return program.part && diagnostic.code == code::UNDEFINED_LABEL;
}

int severity_of(const project_t& program, const diagnostic_t& diagnostic) {
    if (may_be_defined(program, diagnostic)) {
        return SEVERITY_HINT;
    }
    switch (diagnostic.severity) {
    case severity_e::ERROR:
        return SEVERITY_ERROR;
    case severity_e::WARNING:
        return SEVERITY_WARNING;
    case severity_e::NOTE:
        return SEVERITY_INFORMATION;
    }
    return SEVERITY_ERROR;
}

std::string sentence_of(const project_t& program, const diagnostic_t& diagnostic) {
    std::string sentence = diagnostic.message;
    if (may_be_defined(program, diagnostic)) {
        sentence += ", unless a program that includes this file defines it";
    }
    return diagnostic.help.empty() ? sentence : sentence + "; " + diagnostic.help;
}

json related_json(const server_t& server, const project_t& program, const diagnostic_t& diagnostic) {
    json list = json::array();
    for (const auto& [place, message] : diagnostic.related) {
        const text_t& text = program.texts[place.file];
        list.push_back(
            {{"location", location_of(server, program.paths[place.file], text, bytes_of(text, place))},
             {"message", message}});
    }
    return list;
}

// The programs whose diagnostics count first are those of the documents that were opened last.
std::vector<std::string> by_opening(const server_t& server) {
    std::map<std::string, uint64_t> opened;
    for (const auto& [path, document] : server.documents) {
        uint64_t& last = opened[document.main];
        last = std::max(last, document.opened);
    }
    std::vector<std::string> mains;
    for (const auto& [main, program] : server.programs) {
        mains.push_back(main);
    }
    std::sort(mains.begin(), mains.end(),
              [&](const std::string& a, const std::string& b) { return opened[a] > opened[b]; });
    return mains;
}

// The program that says what is wrong with each file.
std::map<std::string, std::string> owners_of(const server_t& server) {
    std::map<std::string, std::string> owners;
    for (const auto& [path, document] : server.documents) {
        owners.emplace(path, document.main);
    }
    for (const std::string& main : by_opening(server)) {
        for (const std::string& path : server.programs.at(main).paths) {
            owners.emplace(path, main);
        }
    }
    return owners;
}

// By path, those files without any as well.
std::map<std::string, json> diagnostics_of(const server_t& server, const project_t& program) {
    std::map<std::string, json> lists;
    for (const std::string& path : program.paths) {
        lists.emplace(path, json::array());
    }
    for (const diagnostic_t& diagnostic : program.analysis.diagnostics.list) {
        const uint32_t file = diagnostic.place.file;
        lists[program.paths[file]].push_back(diagnostic_json(server, program, diagnostic));
    }
    return lists;
}

json notification(const server_t& server, const std::string& path, json list) {
    json message = {{"jsonrpc", "2.0"}, {"method", "textDocument/publishDiagnostics"}};
    json& params = message["params"];
    params["uri"] = uri_of(server, path);
    params["diagnostics"] = std::move(list);
    const auto document = server.documents.find(path);
    if (document != server.documents.end()) {
        params["version"] = document->second.version;
    }
    return message;
}

} // namespace

json diagnostic_json(const server_t& server, const project_t& program, const diagnostic_t& diagnostic) {
    const text_t& text = program.texts[diagnostic.place.file];
    json result;
    result["range"] = range_of(server, text, bytes_of(text, diagnostic.place));
    result["severity"] = severity_of(program, diagnostic);
    result["code"] = diagnostic.code;
    result["source"] = "tovik";
    result["message"] = sentence_of(program, diagnostic);
    if (!diagnostic.related.empty()) {
        result["relatedInformation"] = related_json(server, program, diagnostic);
    }
    if (diagnostic.code == code::UNUSED_LABEL || diagnostic.code == code::UNREACHED) {
        result["tags"] = json::array({TAG_UNNECESSARY});
    }
    return result;
}

std::vector<json> publish_changed(server_t& server) {
    const std::vector<std::string> translated = translate_changed(server);
    std::map<std::string, std::string> owners = owners_of(server);
    std::set<std::string> news(translated.begin(), translated.end());
    // A program that has not changed speaks for a file anew when the one that did has been closed.
    for (const auto& [path, owner] : owners) {
        if (const auto before = server.owners.find(path);
            before != server.owners.end() && before->second != owner) {
            news.insert(owner);
        }
    }
    std::vector<json> messages;
    std::map<std::string, json> now;
    for (const std::string& main : news) {
        for (auto& [path, list] : diagnostics_of(server, server.programs.at(main))) {
            const auto owner = owners.find(path);
            if (owner != owners.end() && owner->second == main) {
                now.emplace(path, std::move(list));
            }
        }
    }
    for (const auto& [path, list] : server.published) {
        if (!owners.contains(path)) {
            now.emplace(path, json::array());
        }
    }
    for (auto& [path, list] : now) {
        const bool open = server.documents.contains(path);
        const auto before = server.published.find(path);
        const bool same = before == server.published.end() ? list.empty() : before->second == list;
        if (list.empty()) {
            server.published.erase(path);
        } else {
            server.published[path] = open ? json() : list;
        }
        if (open || !same) {
            messages.push_back(notification(server, path, std::move(list)));
        }
    }
    server.owners = std::move(owners);
    return messages;
}
