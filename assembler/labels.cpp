#include "assembler/labels.h"

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "base/files.h"
#include "base/machine.h"
#include "base/text.h"

labels_t read_labels(const std::string& file_name) {
    labels_t labels;
    std::error_code error;
    if (!std::filesystem::is_regular_file(file_name, error)) {
        // The image's name may be so long that there can be no list beside it.
        if (error && error != std::errc::no_such_file_or_directory && error != std::errc::filename_too_long) {
            throw tovik_error(cant_open_text(file_name, error.value()));
        }
        return labels;
    }
    std::ifstream file(file_name);
    if (!file) {
        throw tovik_error(cant_open_text(file_name, errno));
    }
    std::string line;
    while (std::getline(file, line)) {
        const size_t tab = line.find('\t');
        if (tab == std::string::npos) {
            continue;
        }
        const size_t digits = tab + 1;
        const std::string_view address =
            std::string_view(line).substr(digits, line.find('\t', digits) - digits);
        if (const std::optional<int64_t> number = parse_number(address, 0, MEMORY_SIZE - 1)) {
            labels.emplace(line.substr(0, tab), static_cast<int32_t>(*number));
        }
    }
    if (file.bad()) {
        throw tovik_error(cant_read_text(file_name, errno));
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

std::optional<range_t> find_range(std::string_view text, const labels_t& labels) {
    if (const auto whole = find_address(text, labels)) {
        return range_t{*whole, *whole};
    }
    for (size_t dash = text.find('-'); dash != std::string_view::npos; dash = text.find('-', dash + 1)) {
        const auto first = find_address(text.substr(0, dash), labels);
        const auto last = find_address(text.substr(dash + 1), labels);
        if (first && last && *first <= *last) {
            return range_t{*first, *last};
        }
    }
    return std::nullopt;
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
