#include "tests/support/listing.h"

std::string text_of_place(const source_map_t& map, const place_t& place) {
    return (place.file == 0 ? "" : map.files[place.file].name + ":") + std::to_string(place.line) + ":" +
           std::to_string(place.first) + "-" + std::to_string(place.last);
}

std::string listing(const analysis_t& analysis) {
    std::string text;
    for (const diagnostic_t& diagnostic : analysis.diagnostics.list) {
        text += text_of_place(analysis.map, diagnostic.place) + " " + std::string(diagnostic.code) + ": " +
                diagnostic.message;
        text += diagnostic.help.empty() ? "" : "; " + diagnostic.help;
        for (const related_t& related : diagnostic.related) {
            text += " (" + text_of_place(analysis.map, related.place) + " " + related.message + ")";
        }
        for (const edit_t& edit : diagnostic.fix) {
            text += " -> " + text_of_place(analysis.map, edit.place) + " '" + edit.text + "'";
        }
        text += "\n";
    }
    return text;
}
