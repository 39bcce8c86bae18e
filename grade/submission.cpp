#include "grade/submission.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <set>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"
#include "base/machine.h"
#include "grade/markdown.h"
#include "language/characters.h"
#include "language/warnings.h"

namespace {

// More than any program that fits into the memory needs.
constexpr off_t MOST_BYTES_OF_A_SOURCE = 1 << 20;

bool is_there(const std::filesystem::path& path) {
    std::error_code unknown;
    return std::filesystem::symlink_status(path, unknown).type() != std::filesystem::file_type::not_found;
}

// A link is none, but who has one in the place of a folder is not to be missed.
bool is_student(const std::filesystem::directory_entry& entry) {
    if (entry.path().filename().string().starts_with('.')) {
        return false;
    }
    std::error_code error;
    const bool is_folder = entry.is_directory(error);
    if (entry.symlink_status().type() == std::filesystem::file_type::symlink) {
        return is_folder || error;
    }
    if (error) {
        throw tovik_error("can't look at " + entry.path().string() + ": " + error.message());
    }
    return is_folder;
}

// "class/ada/" is ada's, and so is "." there.
submission_t submission_of(const std::filesystem::path& folder) {
    std::filesystem::path path = std::filesystem::absolute(folder).lexically_normal();
    if (!path.has_filename()) {
        path = path.parent_path();
    }
    return {readable(path.filename().string()), path.string(), {}};
}

std::vector<submission_t> folders_in(const std::filesystem::path& folder,
                                     const std::vector<std::string>& except) {
    std::set<std::string> others;
    std::transform(except.begin(), except.end(), std::inserter(others, others.end()),
                   [](const std::string& other) { return submission_of(other).folder; });
    std::vector<submission_t> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (is_student(entry) && !others.contains(submission_of(entry.path()).folder)) {
            found.push_back(submission_of(entry.path()));
        }
    }
    std::sort(found.begin(), found.end(),
              [](const submission_t& one, const submission_t& other) { return one.folder < other.folder; });
    return found;
}

// Two folders may have one name, and also with those before them.
void name_students(std::vector<submission_t>& submissions) {
    std::map<std::string, int> count;
    for (const submission_t& one : submissions) {
        ++count[one.student];
    }
    std::set<std::string> taken;
    for (submission_t& one : submissions) {
        if (count[one.student] > 1) {
            const std::filesystem::path before = std::filesystem::path(one.folder).parent_path().filename();
            one.student = readable(before.string()) + "/" + one.student;
        }
        const std::string name = one.student;
        for (int number = 2; !taken.insert(one.student).second; ++number) {
            one.student = name + " (" + std::to_string(number) + ")";
        }
    }
}

void name_files(std::vector<submission_t>& submissions) {
    std::vector<std::string> students;
    std::transform(submissions.begin(), submissions.end(), std::back_inserter(students),
                   [](const submission_t& one) { return one.student; });
    const std::vector<std::string> names = file_names_for(students);
    for (size_t i = 0; i < names.size(); ++i) {
        submissions[i].file_name = names[i];
    }
}

// What an errno says of a student's folder, or of the machine.
handed_in_t not_opened(const std::string& what, int error) {
    switch (error) {
    case ELOOP:
    case EMLINK:
        return {{}, what + " is a link", {}};
    case ENOENT:
        return {{}, "no " + what, {}};
    case ENOTDIR:
        return {{}, what + " is a link, or no folder", {}};
    default:
        return {{}, {}, what + ": " + system_error_text(error)};
    }
}

bool is_same_time(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

bool is_same_state(const struct stat& one, const struct stat& other) {
    return one.st_size == other.st_size && is_same_time(one.st_mtim, other.st_mtim) &&
           is_same_time(one.st_ctim, other.st_ctim);
}

handed_in_t read_source(int file, const std::string& source) {
    struct stat before {};
    if (fstat(file, &before) != 0) {
        return not_opened(source, errno);
    }
    if (!S_ISREG(before.st_mode)) {
        return {{}, source + " is not a file", {}};
    }
    if (before.st_size > MOST_BYTES_OF_A_SOURCE) {
        return {{}, source + " is larger than a megabyte", {}};
    }
    std::string text(static_cast<size_t>(before.st_size) + 1, '\0');
    const ssize_t count = read_full(file, text, 0);
    struct stat after {};
    if (count < 0 || fstat(file, &after) != 0) {
        return not_opened(source, errno);
    }
    if (count != before.st_size || !is_same_state(before, after)) {
        return {{}, {}, source + " has changed while it was read"};
    }
    text.resize(static_cast<size_t>(count));
    return {std::move(text), {}, {}};
}

verdict_t judge_one(const size_rule_t& rule, const analysis_t& analysis) {
    const auto is_set = [](const word_t& word) { return word.kind != word_e::NONE; };
    const auto words = std::count_if(analysis.map.words.begin(), analysis.map.words.end(), is_set);
    return {words <= rule.most, "at most " + std::to_string(rule.most) + " words",
            std::to_string(words) + " words"};
}

std::string place(const source_map_t& map, const statement_t& statement) {
    return map.files[statement.file].name + ":" + std::to_string(statement.line);
}

// In what is handed in; the library may use all.
verdict_t judge_one(const forbidden_rule_t& rule, const analysis_t& analysis) {
    std::string names;
    for (const std::string& name : rule.operations) {
        names += (names.empty() ? "no " : ", no ") + name;
    }
    for (const statement_t& statement : analysis.map.statements) {
        if (statement.file == 0 && statement.operation != nullptr &&
            std::find(rule.operations.begin(), rule.operations.end(), statement.operation->name) !=
                rule.operations.end()) {
            return {false, names,
                    std::string(statement.operation->name) + " in " + place(analysis.map, statement)};
        }
    }
    return {true, names, "none"};
}

verdict_t judge_one(const labels_rule_t& rule, const analysis_t& analysis) {
    for (const std::string& name : rule.labels) {
        const uint32_t label = find_label(analysis.map, name);
        if (label == NOTHING) {
            return {false, "a label " + name, "no such label"};
        }
        if (analysis.map.labels[label].use_count == 0) {
            return {false, "a label " + name + " that is used", "it is never used"};
        }
    }
    return {true, "the labels that were asked for", "they are there"};
}

verdict_t judge_one(const warnings_rule_t& rule, const analysis_t& analysis) {
    for (const diagnostic_t& one : analysis.diagnostics.list) {
        if (one.place.file == 0 && (rule.codes.empty() || std::find(rule.codes.begin(), rule.codes.end(),
                                                                    one.code) != rule.codes.end())) {
            return {false, "no warnings",
                    analysis.map.files[0].name + ":" + std::to_string(one.place.line) + ": " + one.message};
        }
    }
    return {true, "no warnings", "none"};
}

} // namespace

std::vector<submission_t> find_submissions(const std::vector<std::string>& folders, const std::string& source,
                                           const std::vector<std::string>& except) {
    std::vector<submission_t> all;
    for (const std::string& folder : folders) {
        if (!std::filesystem::is_directory(folder)) {
            throw tovik_error(folder + " is not a folder");
        }
        const std::vector<submission_t> inside = is_there(std::filesystem::path(folder) / source)
                                                     ? std::vector<submission_t>{}
                                                     : folders_in(folder, except);
        if (inside.empty()) {
            all.push_back(submission_of(folder));
        } else {
            all.insert(all.end(), inside.begin(), inside.end());
        }
    }
    std::set<std::string> seen;
    all.erase(std::remove_if(all.begin(), all.end(),
                             [&](const submission_t& one) { return !seen.insert(one.folder).second; }),
              all.end());
    name_students(all);
    name_files(all);
    return all;
}

handed_in_t read_submission(const submission_t& submission, const std::string& source) {
    int folder = open(submission.folder.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0) {
        return not_opened("the folder", errno);
    }
    // A device is not even opened, unless it comes into the place of a file between the two.
    struct stat found {};
    const bool is_other = fstatat(folder, source.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 &&
                          !S_ISREG(found.st_mode) && !S_ISLNK(found.st_mode);
    int file =
        is_other ? -1
                 : openat(folder, source.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    const int error = errno;
    close_file(folder);
    if (is_other) {
        return {{}, source + " is not a file", {}};
    }
    if (file < 0) {
        return not_opened(source, error);
    }
    handed_in_t handed_in = read_source(file, source);
    close_file(file);
    return handed_in;
}

library_t read_library(const task_t& task) {
    library_t library;
    for (const std::string& name : task.library) {
        const std::string path = (std::filesystem::path(task.folder) / name).string();
        library[std::filesystem::path(name).lexically_normal().string()] = read_whole(path);
    }
    return library;
}

program_text_t analyse_submission(const std::string& source, const std::string& text,
                                  const library_t& library) {
    program_text_t program;
    program.analysis = analyse(source, [&](const std::string& name) -> file_text_t {
        if (name == source) {
            return {text, 0, true};
        }
        const auto file = library.find(std::filesystem::path(name).lexically_normal().string());
        if (file != library.end()) {
            return {file->second, 0, true};
        }
        program.forbidden = program.forbidden.empty() ? readable(name) : program.forbidden;
        return {{}, EACCES, false};
    });
    if (program.analysis.diagnostics.faults == 0) {
        add_warnings(program.analysis);
    }
    return program;
}

verdict_t judge_source(const source_rule_t& rule, const analysis_t& analysis) {
    return std::visit([&](const auto& one) { return judge_one(one, analysis); }, rule);
}
