#include "language/workspace.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

#include "assembler/source.h"
#include "base/machine.h"
#include "language/codes.h"
#include "language/lines.h"
#include "language/protocol.h"
#include "language/warnings.h"

namespace {

constexpr std::string_view INCLUDE = "#include";

file_text_t read_now(const server_t& server, const std::string& name) {
    const auto document = server.documents.find(path_of_name(name));
    return document == server.documents.end() ? server.read(name)
                                              : file_text_t{.text = document->second.text.bytes};
}

// The paths of the files that a text includes.
std::vector<std::string> includes_in(const std::string& path, const std::string& text) {
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    std::vector<std::string> paths;
    for (size_t at = text.find(INCLUDE); at != std::string::npos; at = text.find(INCLUDE, at + 1)) {
        if (at != 0 && text[at - 1] != '\n') {
            continue;
        }
        const source_line_t line = line_at(text, at);
        const std::string name(text_in(text, line.statement.opcode));
        if (line.include && !name.empty()) {
            paths.push_back(path_of_name(pathname_is_absolute(name) ? name : folder + name));
        }
    }
    return paths;
}

// Those that include each file.
std::multimap<std::string_view, std::string_view> includers_of(const server_t& server) {
    std::multimap<std::string_view, std::string_view> includers;
    for (const auto& [path, included] : server.includes) {
        for (const std::string& other : included) {
            if (other != path) {
                includers.emplace(other, path);
            }
        }
    }
    return includers;
}

std::vector<std::string> mains_above(const std::multimap<std::string_view, std::string_view>& includers,
                                     const std::string& path) {
    std::set<std::string_view> met{path};
    std::vector<std::string_view> to_visit{path};
    std::vector<std::string> mains;
    while (!to_visit.empty()) {
        const std::string_view at = to_visit.back();
        to_visit.pop_back();
        const auto [begin, end] = includers.equal_range(at);
        if (begin == end) {
            mains.emplace_back(at);
        }
        for (auto includer = begin; includer != end; ++includer) {
            if (met.insert(includer->second).second) {
                to_visit.push_back(includer->second);
            }
        }
    }
    std::sort(mains.begin(), mains.end());
    return mains;
}

uint64_t opened(const server_t& server, const std::string& path) {
    const auto document = server.documents.find(path);
    return document == server.documents.end() ? 0 : document->second.opened;
}

// Where files include each other in a circle, none of them is the main one.
std::string choose_main(const server_t& server, const std::vector<std::string>& mains,
                        const std::string& path) {
    const auto last =
        std::max_element(mains.begin(), mains.end(), [&](const std::string& a, const std::string& b) {
            return opened(server, a) < opened(server, b);
        });
    return last == mains.end() ? path : *last;
}

void assign_mains(server_t& server) {
    const auto includers = includers_of(server);
    for (auto& [path, document] : server.documents) {
        document.main = choose_main(server, mains_above(includers, path), path);
    }
}

bool has_file(const project_t& program, const std::string& path) {
    return std::find(program.paths.begin(), program.paths.end(), path) != program.paths.end();
}

// Takes note of what a file includes. Returns whether that is news.
bool note_includes(server_t& server, const std::string& path, std::vector<std::string> included) {
    const auto known = server.includes.find(path);
    if (known != server.includes.end() ? known->second == included : included.empty()) {
        return false;
    }
    server.includes[path] = std::move(included);
    return true;
}

// Files that no folder has, and those that have changed or gone without a word.
bool note_program(server_t& server, const project_t& program) {
    bool news = false;
    std::set<std::string_view> met;
    for (size_t i = 0; i < program.paths.size(); ++i) {
        // An include of a file within itself has another name and no text.
        if (met.insert(program.paths[i]).second) {
            news |= note_includes(server, program.paths[i],
                                  includes_in(program.paths[i], program.analysis.map.files[i].text));
        }
    }
    return news;
}

// Whether the way from a line comes to a ret that is its own, not one of what it calls.
bool comes_back(const project_t& program, uint32_t first) {
    const source_map_t& map = program.analysis.map;
    std::vector<bool> met(map.statements.size());
    std::vector<uint32_t> to_visit{first};
    const auto go_to = [&](size_t index) {
        if (index < met.size()) {
            to_visit.push_back(program.contents[index]);
        }
    };
    while (!to_visit.empty()) {
        const uint32_t at = to_visit.back();
        to_visit.pop_back();
        if (at == NOTHING || met[at]) {
            continue;
        }
        met[at] = true;
        const operation_t* const operation = map.statements[at].operation;
        if (operation == nullptr) {
            go_to(at + 1); // it is being typed
            continue;
        }
        if (is_data(*operation) || operation->opcode == K24_HALT) {
            continue;
        }
        if (operation->opcode == K24_RET) {
            return true;
        }
        const statement_t& statement = map.statements[at];
        const auto token = [&](size_t i) {
            return text_of(map, statement.file, statement.operands[i].token);
        };
        const bool jump = operation->opcode == K24_BE && token(1) == token(2);
        if (!jump) {
            go_to(at + 1);
        }
        const bool target = operation->operands[0].role == role_e::TARGET && operation->opcode != K24_CALL;
        if (const uint32_t label = statement.operands[0].label; target && label != NOTHING) {
            go_to(map.labels[label].statement);
        }
    }
    return false;
}

// Subroutines and data that are made to be included: code that begins with a label and returns, and that does
// not end the program. Lines that are no instructions yet may become any.
bool looks_like_part(const project_t& program) {
    const source_map_t& map = program.analysis.map;
    bool label_before = false;
    bool has_unknown = false;
    uint32_t first = NOTHING;
    for (uint32_t i = 0; i < map.statements.size(); ++i) {
        const statement_t& statement = map.statements[i];
        label_before |= statement.label.size != 0;
        has_unknown |= statement.operation == nullptr && statement.opcode.size != 0;
        if (statement.operation == nullptr || is_data(*statement.operation)) {
            continue;
        }
        if (statement.operation->opcode == K24_HALT || !label_before) {
            return false;
        }
        first = std::min(first, i);
    }
    return first == NOTHING ? !has_unknown : comes_back(program, first);
}

// Without the rest of the program only these can be told.
void keep_local_warnings(diagnostics_t& diagnostics) {
    constexpr std::array LOCAL = {code::BARE_NUMBER,        code::ILLEGAL_ADDRESS, code::LABEL_CASE,
                                  code::OPERATION_AS_LABEL, code::LABEL_COLON,     code::PORT_DIRECTION};
    std::erase_if(diagnostics.list, [&](const diagnostic_t& diagnostic) {
        return diagnostic.severity != severity_e::ERROR &&
               std::find(LOCAL.begin(), LOCAL.end(), diagnostic.code) == LOCAL.end();
    });
}

std::vector<uint32_t> contents_of(const source_map_t& map) {
    std::vector<uint32_t> contents(map.statements.size());
    uint32_t content = NOTHING;
    for (size_t i = contents.size(); i-- > 0;) {
        content = map.statements[i].opcode.size != 0 ? static_cast<uint32_t>(i) : content;
        contents[i] = content;
    }
    return contents;
}

} // namespace

void open_document(server_t& server, const std::string& path, document_t document) {
    document.opened = ++server.opened;
    server.documents.insert_or_assign(path, std::move(document));
    if (!server.client.watches) {
        scan_folders(server);
    }
    text_changed(server, path);
    assign_mains(server);
}

void close_document(server_t& server, const std::string& path) {
    server.documents.erase(path);
    text_changed(server, path);
    assign_mains(server);
}

void text_changed(server_t& server, const std::string& path) {
    std::erase_if(server.programs, [&](const auto& item) { return has_file(item.second, path); });
    server.visitors.clear();
    const file_text_t file = read_now(server, path);
    if (note_includes(server, path,
                      file.opened ? includes_in(path, file.text) : std::vector<std::string>())) {
        assign_mains(server);
    }
}

void scan_folders(server_t& server) {
    for (const std::string& folder : server.folders) {
        for (const std::string& name : server.list(folder)) {
            const std::string path = path_of_name(name);
            note_includes(server, path, includes_in(path, read_now(server, name).text));
        }
    }
    assign_mains(server);
}

std::vector<std::string> translate_changed(server_t& server) {
    std::vector<std::string> translated;
    bool news = true;
    while (news) {
        news = false;
        std::set<std::string> mains;
        for (const auto& [path, document] : server.documents) {
            mains.insert(document.main);
        }
        std::erase_if(server.programs, [&](const auto& item) { return !mains.contains(item.first); });
        for (const std::string& main : mains) {
            if (!server.programs.contains(main)) {
                project_t program = translate_program(server, main);
                news |= note_program(server, program);
                server.programs.emplace(main, std::move(program));
                translated.push_back(main);
            }
        }
        if (news) {
            assign_mains(server);
        }
    }
    // A main file that was gone is none.
    std::erase_if(translated, [&](const std::string& main) { return !server.programs.contains(main); });
    return translated;
}

std::string main_of(const server_t& server, const std::string& path) {
    const auto document = server.documents.find(path);
    return document != server.documents.end() ? document->second.main
                                              : choose_main(server, mains_of(server, path), path);
}

std::vector<std::string> mains_of(const server_t& server, const std::string& path) {
    return mains_above(includers_of(server), path);
}

const project_t& program_of(server_t& server, const std::string& path) {
    const std::string main = main_of(server, path);
    const auto known = server.programs.find(main);
    if (known != server.programs.end()) {
        return known->second;
    }
    server.visitors.clear();
    return server.visitors.emplace(main, translate_program(server, main)).first->second;
}

project_t translate_program(const server_t& server, const std::string& main) {
    project_t program;
    program.analysis = analyse(main, [&](const std::string& name) { return read_now(server, name); });
    for (const source_file_t& file : program.analysis.map.files) {
        program.paths.push_back(path_of_name(file.name));
        const auto document = server.documents.find(program.paths.back());
        program.texts.push_back(document == server.documents.end() ? make_text(file.text)
                                                                   : document->second.text);
    }
    program.contents = contents_of(program.analysis.map);
    program.part = looks_like_part(program);
    add_warnings(program.analysis);
    if (program.part) {
        keep_local_warnings(program.analysis.diagnostics);
    }
    return program;
}

view_t view_of(const server_t& server, const std::string& path) {
    const auto document = server.documents.find(path);
    if (document != server.documents.end()) {
        return {.path = path, .text = document->second.text};
    }
    file_text_t file = server.read(path);
    if (!file.opened) {
        throw request_error_t{error_code::INVALID_PARAMS, "there is no file " + path};
    }
    return {.path = path, .text = make_text(std::move(file.text))};
}

std::vector<file_view_t> views_of(const project_t& program) {
    std::vector<file_view_t> views;
    std::set<std::string_view> met;
    for (size_t i = 0; i < program.paths.size(); ++i) {
        if (met.insert(program.paths[i]).second) {
            views.push_back({program.paths[i], program.texts[i]});
        }
    }
    return views;
}
