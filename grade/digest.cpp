#include "grade/digest.h"

#include <filesystem>
#include <variant>
#include <vector>

#include "base/files.h"
#include "base/machine.h"
#include "grade/hash.h"

namespace {

using names_t = std::vector<std::string>;

void add_names(const field_rule_t& /*rule*/, names_t& /*names*/) {}
void add_names(const text_rule_t& /*rule*/, names_t& /*names*/) {}
void add_names(const words_rule_t& /*rule*/, names_t& /*names*/) {}
void add_names(const instructions_rule_t& /*rule*/, names_t& /*names*/) {}
void add_names(const events_rule_t& /*rule*/, names_t& /*names*/) {}
void add_names(const same_rule_t& /*rule*/, names_t& /*names*/) {}
void add_names(const picture_rule_t& rule, names_t& names) { names.push_back(rule.file); }
void add_names(const sound_rule_t& rule, names_t& names) { names.push_back(rule.file); }

// "python3" is none, "/home/ann/check.py" is.
void add_names(const command_rule_t& rule, names_t& names) {
    for (const std::string& word : rule.words) {
        std::error_code unknown;
        if (word.find('/') != std::string::npos && std::filesystem::is_regular_file(word, unknown)) {
            names.push_back(word);
        }
    }
}

void add_names(const case_t& one, names_t& names) {
    names.push_back(one.reference);
    for (const names_t* const files : {&one.input.cards, &one.input.recordings, &one.input.movies}) {
        names.insert(names.end(), files->begin(), files->end());
    }
    for (const task_check_t<rule_t>& check : one.checks) {
        std::visit([&](const auto& rule) { add_names(rule, names); }, check.rule);
    }
}

} // namespace

std::string digest_of(const task_t& task) {
    names_t names = {task.file};
    for (const std::string& name : task.library) {
        names.push_back((std::filesystem::path(task.folder) / name).string());
    }
    hash_t hash;
    add_text(hash, TOVIK_VERSION);
    for (const case_t& one : task.cases) {
        add_text(hash, one.input.script);
        add_names(one, names);
    }
    for (const std::string& name : names) {
        if (!name.empty()) {
            add_text(hash, read_whole(name));
        }
    }
    return digits_of(hash);
}

std::string digest_of(const handed_in_t& handed_in) {
    hash_t hash;
    add_text(hash, handed_in.text);
    add_text(hash, handed_in.fault);
    return digits_of(hash);
}
