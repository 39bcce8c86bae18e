#include "ui/gui_batch/labels.h"

#include <charconv>
#include <fstream>

#include "core/machine.h"
#include "ui/gui_batch/options.h"

labels_t read_labels(const std::string& file_name) {
    labels_t labels;
    std::ifstream file(file_name);
    std::string line;
    while (std::getline(file, line)) {
        const size_t tab = line.find('\t');
        if (tab == std::string::npos) {
            continue;
        }
        int32_t address = 0;
        const char* const digits = line.data() + tab + 1;
        if (std::from_chars(digits, line.data() + line.size(), address).ec == std::errc{}) {
            labels.emplace(line.substr(0, tab), address);
        }
    }
    return labels;
}

std::optional<int32_t> find_address(std::string_view text, const labels_t& labels) {
    if (const auto label = labels.find(text); label != labels.end()) {
        return label->second;
    }
    const std::optional<int64_t> number = parse_number(text, 0, MEMORY_SIZE - 1);
    return number ? std::optional(static_cast<int32_t>(*number)) : std::nullopt;
}

std::string nearest_label(int32_t address, const labels_t& labels) {
    const labels_t::value_type* nearest = nullptr;
    for (const auto& label : labels) {
        if (label.second <= address && (nearest == nullptr || label.second > nearest->second)) {
            nearest = &label;
        }
    }
    if (nearest == nullptr) {
        return "";
    }
    const int32_t offset = address - nearest->second;
    return offset == 0 ? nearest->first : nearest->first + "+" + std::to_string(offset);
}
