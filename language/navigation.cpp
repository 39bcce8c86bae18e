// Where names stand: definition, references, rename.

#include "language/features.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "assembler/numbers.h"
#include "base/text.h"
#include "language/protocol.h"

namespace {

bool is_name(const token_t& token) { return token.kind == token_e::LABEL || token.kind == token_e::NAME; }

// A label's name in one file.
struct occurrence_t {
    bytes_t bytes;
    bool defines;
};

std::vector<occurrence_t> occurrences_of(std::string_view text, std::string_view name) {
    std::vector<occurrence_t> occurrences;
    // Most lines do not have it: they need not be split.
    for (size_t at = text.find(name); at != std::string_view::npos; at = text.find(name, at)) {
        const source_line_t line = line_at(text, at);
        for (const token_t& token : tokens_of(text, line)) {
            if (is_name(token) && text_in(text, token.span) == name) {
                occurrences.push_back({bytes_of(token.span), token.kind == token_e::LABEL});
            }
        }
        at = line.begin + line.text.size();
    }
    return occurrences;
}

std::string_view word_of(const spot_t& spot) { return text_in(spot.view.text.bytes, spot.token.span); }

// The file that the include at the spot opens; empty when it opens none.
std::string included_at(const project_t& program, const spot_t& spot) {
    const source_map_t& map = program.analysis.map;
    for (const inclusion_t& inclusion : map.inclusions) {
        if (inclusion.file != NOTHING && inclusion.parent != NOTHING &&
            program.paths[map.inclusions[inclusion.parent].file] == spot.view.path &&
            inclusion.name.begin == spot.token.span.begin) {
            return program.paths[inclusion.file];
        }
    }
    return {};
}

// Rename.

[[noreturn]] void refuse(std::string reason) {
    throw request_error_t{error_code::REQUEST_FAILED, std::move(reason)};
}

void check_new_name(std::string_view name) {
    if (name.empty() || name.find_first_of(WHITE_SPACE) != std::string_view::npos) {
        refuse("a label has no blanks and is not empty");
    }
    if (numeric(name)) {
        refuse("a label does not begin with a digit or a sign");
    }
    if (name.find("//") != std::string_view::npos || name.ends_with('/')) {
        refuse("two slashes begin a comment");
    }
    if (name == "#include") {
        refuse("#include is not a label");
    }
}

// The programs in which the name means the same label: those that share a file in which it stands.
std::map<std::string, project_t> programs_with(server_t& server, const std::string& path,
                                               std::string_view name) {
    std::map<std::string, project_t> programs;
    std::set<std::string> met{path};
    std::vector<std::string> to_visit{path};
    while (!to_visit.empty()) {
        std::vector<std::string> mains = mains_of(server, to_visit.back());
        mains.push_back(main_of(server, to_visit.back()));
        to_visit.pop_back();
        for (const std::string& main : mains) {
            if (programs.contains(main)) {
                continue;
            }
            const project_t& program = programs.emplace(main, translate_program(server, main)).first->second;
            for (const file_view_t& view : views_of(program)) {
                if (!occurrences_of(view.text.bytes, name).empty() && met.insert(view.path).second) {
                    to_visit.push_back(view.path);
                }
            }
        }
    }
    return programs;
}

} // namespace

void find_spot(const server_t& server, const json& params, spot_t& spot) {
    spot.view = view_of(server, path_in(params));
    const text_t& text = spot.view.text;
    spot.offset = offset_at(text, position_in(params.at("position")), server.client.encoding);
    spot.line = line_at(text.bytes, spot.offset);
    spot.token = token_at(text.bytes, spot.line, spot.offset);
}

json definition(server_t& server, const json& params) {
    spot_t spot;
    find_spot(server, params, spot);
    const project_t& program = program_of(server, spot.view.path);
    if (spot.token.kind == token_e::FILE_NAME) {
        const std::string path = included_at(program, spot);
        return path.empty() ? json() : location_of(server, path, text_t(), {});
    }
    const definition_t found = is_name(spot.token) ? definition_of(program, word_of(spot)) : definition_t();
    if (found.label == nullptr) {
        return nullptr;
    }
    const text_t& text = program.texts[found.line->file];
    return location_of(server, program.paths[found.line->file], text, bytes_of(found.label->name));
}

json references(server_t& server, const json& params) {
    spot_t spot;
    find_spot(server, params, spot);
    json locations = json::array();
    if (!is_name(spot.token)) {
        return locations;
    }
    const bool definitions = params.at("context").at("includeDeclaration");
    for (const file_view_t& view : views_of(program_of(server, spot.view.path))) {
        for (const occurrence_t& occurrence : occurrences_of(view.text.bytes, word_of(spot))) {
            if (definitions || !occurrence.defines) {
                locations.push_back(location_of(server, view.path, view.text, occurrence.bytes));
            }
        }
    }
    return locations;
}

json prepare_rename(server_t& server, const json& params) {
    spot_t spot;
    find_spot(server, params, spot);
    if (!is_name(spot.token)) {
        return nullptr;
    }
    return {{"range", range_of(server, spot.view.text, bytes_of(spot.token.span))},
            {"placeholder", word_of(spot)}};
}

json rename_label(server_t& server, const json& params) {
    spot_t spot;
    find_spot(server, params, spot);
    const std::string new_name = params.at("newName");
    if (!is_name(spot.token)) {
        refuse("there is no label here");
    }
    const std::string_view name = word_of(spot);
    check_new_name(new_name);
    json changes = json::object();
    if (name == new_name) {
        return {{"changes", changes}};
    }
    for (const auto& [main, program] : programs_with(server, spot.view.path, name)) {
        for (const file_view_t& view : views_of(program)) {
            // Also where it is only used: the definition would be the renamed one.
            if (!occurrences_of(view.text.bytes, new_name).empty()) {
                refuse(new_name + " is in use in " + view.path);
            }
            json edits = json::array();
            for (const occurrence_t& occurrence : occurrences_of(view.text.bytes, name)) {
                edits.push_back(edit_of(server, view.text, occurrence.bytes, new_name));
            }
            if (!edits.empty()) {
                changes[uri_of(server, view.path)] = std::move(edits);
            }
        }
    }
    return {{"changes", changes}};
}
