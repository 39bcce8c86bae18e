// Diagnostics for the services that show the findings of checkers beside a repository's files.

#include <algorithm>
#include <string_view>

#include <nlohmann/json.hpp>

#include "language/characters.h"
#include "language/codes.h"
#include "language/line_index.h"
#include "language/output.h"
#include "language/uri.h"

namespace {

using json = nlohmann::ordered_json;

json text(std::string_view text) { return {{"text", readable(text)}}; }

json rules() {
    json rules = json::array();
    for (const code_info_t& info : all_codes()) {
        rules.push_back({{"id", info.code},
                         {"shortDescription", text(info.title)},
                         {"fullDescription", text(info.why)},
                         {"help", text(info.remedy)},
                         {"defaultConfiguration", {{"level", name_of(info.severity)}}}});
    }
    return rules;
}

json artifact(const source_map_t& map, const place_t& place) {
    return {{"uri", uri_reference(map.files[place.file].name)}};
}

json region(line_index_t& lines, const place_t& place) {
    return {{"startLine", place.line},
            {"startColumn", column_behind(lines, place.file, place.line, place.first - 1)},
            {"endColumn", column_behind(lines, place.file, place.line, place.last)}};
}

json location(const source_map_t& map, line_index_t& lines, const place_t& place) {
    json physical{{"artifactLocation", artifact(map, place)}};
    if (place.line > 0) {
        physical["region"] = region(lines, place);
    }
    return {{"physicalLocation", physical}};
}

json fix(const source_map_t& map, line_index_t& lines, const diagnostic_t& diagnostic) {
    json changes = json::array();
    for (const edit_t& edit : diagnostic.fix) {
        changes.push_back(
            {{"artifactLocation", artifact(map, edit.place)},
             {"replacements",
              {{{"deletedRegion", region(lines, edit.place)}, {"insertedContent", text(edit.text)}}}}});
    }
    return {{"description", text(diagnostic.help)}, {"artifactChanges", changes}};
}

json result(const source_map_t& map, line_index_t& lines, const diagnostic_t& diagnostic) {
    const std::string help = diagnostic.help.empty() ? "" : ": " + diagnostic.help;
    json result{{"ruleId", diagnostic.code},
                {"level", name_of(diagnostic.severity)},
                {"message", text(diagnostic.message + help)},
                {"locations", {location(map, lines, diagnostic.place)}}};
    if (const code_info_t* const info = find_code(diagnostic.code)) {
        result["ruleIndex"] = info - all_codes().data();
    }
    for (const related_t& related : diagnostic.related) {
        json place = location(map, lines, related.place);
        place["message"] = text(related.message);
        result["relatedLocations"].push_back(place);
    }
    if (!diagnostic.fix.empty()) {
        result["fixes"] = {fix(map, lines, diagnostic)};
    }
    return result;
}

} // namespace

std::string to_sarif(const std::vector<analysis_t>& programs, const std::string& version) {
    json results = json::array();
    for (const analysis_t& program : programs) {
        line_index_t lines(program.map);
        for (const diagnostic_t& diagnostic : program.diagnostics.list) {
            results.push_back(result(program.map, lines, diagnostic));
        }
    }
    const json driver{{"name", "tovik-check"}, {"version", version}, {"rules", rules()}};
    const json run{{"tool", {{"driver", driver}}}, {"columnKind", "unicodeCodePoints"}, {"results", results}};
    return json{{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
                {"version", "2.1.0"},
                {"runs", json::array({run})}}
               .dump(2) +
           "\n";
}
