#include "grade/seen.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <variant>

namespace {

bool is_among(const same_rule_t& rule, const char* what) {
    return std::find(rule.what.begin(), rule.what.end(), what) != rule.what.end();
}

// Numbers one by one would take a hundred times as long.
template <typename number_t> nlohmann::json packed(std::span<const number_t> numbers) {
    std::vector<uint8_t> bytes(numbers.size_bytes());
    if (!bytes.empty()) {
        std::memcpy(bytes.data(), numbers.data(), bytes.size());
    }
    return nlohmann::json::binary(std::move(bytes));
}

template <typename number_t> std::vector<number_t> unpacked(const nlohmann::json& packed) {
    const nlohmann::json::binary_t& bytes = packed.get_binary();
    std::vector<number_t> numbers(bytes.size() / sizeof(number_t));
    if (!numbers.empty()) {
        std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(number_t));
    }
    return numbers;
}

} // namespace

wanted_t wanted_by(const case_t& one) {
    wanted_t wanted;
    for (const task_check_t<rule_t>& check : one.checks) {
        const auto* const same = std::get_if<same_rule_t>(&check.rule);
        wanted.events |= std::holds_alternative<events_rule_t>(check.rule);
        wanted.picture |= std::holds_alternative<picture_rule_t>(check.rule) ||
                          (same != nullptr && is_among(*same, "picture"));
        wanted.sound |=
            std::holds_alternative<sound_rule_t>(check.rule) || (same != nullptr && is_among(*same, "sound"));
        if (const auto* const words = std::get_if<words_rule_t>(&check.rule)) {
            wanted.words.insert(wanted.words.end(), words->words.begin(), words->words.end());
        }
    }
    return wanted;
}

std::string to_bytes(const seen_t& seen) {
    const nlohmann::json all = {
        seen.report,         seen.events, packed<uint32_t>(seen.picture), packed<int32_t>(seen.sound.samples),
        seen.sound.complete, seen.words};
    const std::vector<uint8_t> bytes = nlohmann::json::to_cbor(all);
    return {bytes.begin(), bytes.end()};
}

seen_t seen_of(const std::string& bytes) {
    const nlohmann::json all = nlohmann::json::from_cbor(bytes);
    seen_t seen;
    seen.report = all.at(0);
    seen.events = all.at(1).get<std::vector<nlohmann::json>>();
    seen.kept = std::make_shared<const picture_t>(unpacked<uint32_t>(all.at(2)));
    seen.picture = *seen.kept;
    seen.sound = {unpacked<int32_t>(all.at(3)), all.at(4).get<bool>()};
    seen.words = all.at(5).get<std::map<std::string, std::vector<int32_t>>>();
    return seen;
}
