#include "grade/store.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "base/files.h"
#include "base/machine.h"
#include "base/saved_file.h"
#include "grade/alike.h"
#include "grade/digest.h"
#include "grade/outputs.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* CLASS_FILE = "class.json";
constexpr const char* GRADED_FOLDER = "graded";

void save(const fs::path& file_name, const std::string& text) {
    saved_file_t file(file_name.string());
    file.write(text);
    file.close();
}

template <typename record_t> std::string json_of(const record_t& record) {
    return nlohmann::json(record).dump(1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

// Nothing when the text is not of such a record.
template <typename record_t> std::optional<record_t> record_of(const std::string& text) {
    try {
        return nlohmann::json::parse(text).get<record_t>();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

std::string text_of(const fs::path& name) {
    std::ifstream file = open_stream(name.string());
    return {std::istreambuf_iterator<char>(file), {}};
}

fs::path result_file(const std::string& folder, const std::string& file_name) {
    return fs::path(folder) / GRADED_FOLDER / (file_name + ".json");
}

// A file in the folder itself, and none that is hidden: others are not written over for what a folder says.
bool is_file_name(const std::string& name) {
    return !name.empty() && !name.starts_with('.') && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

bool has_its_pictures(const std::string& folder, const std::string& file_name,
                      const student_result_t& result) {
    const auto is_there = [&](const std::string& picture) {
        std::error_code unknown;
        return is_file_name(picture) && picture.starts_with(file_name + "-") &&
               fs::is_regular_file(fs::path(folder) / picture, unknown);
    };
    return std::all_of(result.cases.begin(), result.cases.end(), [&](const case_result_t& one) {
        return std::all_of(one.checks.begin(), one.checks.end(), [&](const check_result_t& check) {
            return std::all_of(check.pictures.begin(), check.pictures.end(), is_there);
        });
    });
}

// "ada" of "ada-1-2-seen.png"; empty: that is no picture of a check.
std::string owner_of_picture(std::string name) {
    for (const std::string_view end : {"-expected.png", "-seen.png", "-difference.png"}) {
        if (!name.ends_with(end)) {
            continue;
        }
        name.resize(name.size() - end.size());
        for (int i = 0; i < 2; ++i) {
            const size_t dash = name.find_last_not_of("0123456789");
            if (dash == std::string::npos || dash + 1 == name.size() || name[dash] != '-') {
                return "";
            }
            name.resize(dash);
        }
        return name;
    }
    return "";
}

// An earlier grading has left pictures that nobody shows any more.
void remove_old_pictures(const fs::path& folder, const std::vector<student_result_t>& results) {
    std::set<std::string> graded;
    std::set<std::string> shown;
    for (const student_result_t& result : results) {
        if (result.trouble.empty()) {
            graded.insert(result.file_name);
        }
        for (const case_result_t& one : result.cases) {
            for (const check_result_t& check : one.checks) {
                shown.insert(check.pictures.begin(), check.pictures.end());
            }
        }
    }
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, ignored)) {
        const std::string name = entry.path().filename().string();
        if (graded.contains(owner_of_picture(name)) && !shown.contains(name)) {
            fs::remove(entry.path(), ignored);
        }
    }
}

void make_folder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw tovik_error("can't make folder " + folder.string() + ": " + error.message());
    }
}

// A grading that was killed leaves a file that has not taken its name (base/saved_file.h).
void remove_unfinished(const fs::path& folder) {
    constexpr size_t MADE_UP = 7; // ".XXXXXX" behind the name
    std::vector<fs::path> unfinished;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        const size_t end = name.size() - std::min(name.size(), MADE_UP);
        const std::string_view kind = std::string_view(name).substr(0, end);
        const bool is_result = kind.ends_with(".json") || kind.ends_with(".md") || kind.ends_with(".png") ||
                               kind.ends_with(".csv") || kind.ends_with(".tap") || kind.ends_with(".xml");
        if (is_result && name[0] == '.' && name[end] == '.' && entry.is_regular_file()) {
            unfinished.push_back(entry.path());
        }
    }
    for (const fs::path& file : unfinished) {
        fs::remove(file);
    }
}

// ---- Joining

class_t load_class(const std::string& folder) {
    std::optional<class_t> all = record_of<class_t>(text_of(fs::path(folder) / CLASS_FILE));
    if (!all || all->part == 0 || all->part > all->parts || all->file_names.size() != all->students.size() ||
        !std::all_of(all->file_names.begin(), all->file_names.end(), is_file_name)) {
        throw tovik_error(folder + " has no results of a class: " + CLASS_FILE + " is missing or not whole");
    }
    return *all;
}

std::string part_text(size_t part, size_t parts) {
    return "part " + std::to_string(part) + " of " + std::to_string(parts);
}

void check_same(const class_t& first, const class_t& other, const std::vector<std::string>& folders,
                const std::string& folder) {
    if (other.task != first.task) {
        throw tovik_error(folder + " is of another task, or by another version, than " + folders.front());
    }
    if (other.students != first.students || other.file_names != first.file_names) {
        throw tovik_error(folder + " is of another class than " + folders.front());
    }
    if (other.parts != first.parts) {
        throw tovik_error(folders.front() + " is " + part_text(first.part, first.parts) + ", " + folder +
                          " is " + part_text(other.part, other.parts));
    }
}

// The folder of each part.
std::vector<std::string> sorted_by_part(const std::vector<std::string>& folders, const class_t& first) {
    std::map<size_t, std::string> by_part;
    for (const std::string& folder : folders) {
        const class_t one = load_class(folder);
        check_same(first, one, folders, folder);
        std::string& place = by_part[one.part];
        if (!place.empty()) {
            throw tovik_error(std::string(place).append(" and ").append(folder).append(" are both ") +
                              part_text(one.part, one.parts));
        }
        place = folder;
    }
    std::vector<std::string> sorted;
    for (const auto& [part, folder] : by_part) {
        if (part != sorted.size() + 1) {
            break;
        }
        sorted.push_back(folder);
    }
    if (sorted.size() < first.parts) {
        throw tovik_error(part_text(sorted.size() + 1, first.parts) + " is missing");
    }
    return sorted;
}

void copy_pictures(const std::string& from, const std::string& to, const student_result_t& result) {
    for (const case_result_t& one : result.cases) {
        for (const check_result_t& check : one.checks) {
            for (const std::string& picture : check.pictures) {
                save(fs::path(to) / picture, text_of(fs::path(from) / picture));
            }
        }
    }
}

ready_task_t task_of(const class_t& all) {
    ready_task_t ready;
    ready.digest = all.task;
    ready.fingerprints = all.fingerprints;
    ready.task.title = all.title;
    ready.task.source = all.source;
    ready.task.visibility = all.visibility;
    for (const std::string& name : all.cases) {
        ready.task.cases.emplace_back().name = name;
    }
    return ready;
}

} // namespace

std::vector<std::string> store_folders(const std::string& folder) {
    return folder.empty() ? std::vector<std::string>{}
                          : std::vector<std::string>{folder, (fs::path(folder) / GRADED_FOLDER).string()};
}

class_t class_of(const ready_task_t& ready, const std::vector<submission_t>& submissions) {
    class_t all;
    all.task = ready.digest;
    all.title = ready.task.title;
    all.source = ready.task.source;
    all.visibility = ready.task.visibility;
    all.fingerprints = ready.fingerprints;
    for (const case_t& one : ready.task.cases) {
        all.cases.push_back(one.name);
    }
    for (const submission_t& submission : submissions) {
        all.students.push_back(submission.student);
        all.file_names.push_back(submission.file_name);
    }
    return all;
}

void begin_store(const std::string& folder, const class_t& all) {
    make_folder(fs::path(folder) / GRADED_FOLDER);
    remove_unfinished(folder);
    remove_unfinished(fs::path(folder) / GRADED_FOLDER);
    save(fs::path(folder) / CLASS_FILE, json_of(all));
}

void save_result(const std::string& folder, const task_t& task, const student_result_t& result) {
    save(fs::path(folder) / (result.file_name + ".md"), feedback(task, result));
    save(fs::path(folder) / (result.file_name + ".gradescope.json"), to_gradescope(task, result));
    save(result_file(folder, result.file_name), json_of(result));
}

std::optional<student_result_t> load_result(const std::string& folder, const std::string& file_name) {
    std::optional<student_result_t> result =
        record_of<student_result_t>(text_of(result_file(folder, file_name)));
    return result && has_its_pictures(folder, file_name, *result) ? result : std::nullopt;
}

bool is_current(const student_result_t& result, const ready_task_t& ready, const submission_t& submission) {
    const handed_in_t now = read_submission(submission, ready.task.source);
    return now.trouble.empty() && result.digest == ready.digest + "-" + digest_of(now);
}

void save_tables(const std::string& folder, const ready_task_t& ready,
                 const std::vector<student_result_t>& results) {
    const fs::path to = folder;
    save(to / "results.csv", to_csv(ready.task, results));
    save(to / "results.json", to_json(ready.task, results));
    save(to / "results.tap", to_tap(ready.task, results));
    save(to / "results.xml", to_junit(ready.task, results));
    const std::vector<alike_t> alike = find_alike(results, ready.fingerprints);
    save(to / "alike.csv", alike_csv(alike));
    save(to / "alike.md", alike_markdown(alike));
    remove_old_pictures(folder, results);
}

joined_t join_stores(const std::vector<std::string>& folders, const std::string& to) {
    joined_t joined{load_class(folders.front()), {}, {}};
    const std::vector<std::string> sorted = sorted_by_part(folders, joined.all);
    std::error_code unknown;
    for (const std::string& folder : folders) {
        if (fs::equivalent(folder, to, unknown)) {
            throw tovik_error(to + " is one of the folders to be joined");
        }
    }
    joined.ready = task_of(joined.all);
    for (size_t i = 0; i < joined.all.students.size(); ++i) {
        const std::string& folder = sorted[i % sorted.size()];
        std::optional<student_result_t> result = load_result(folder, joined.all.file_names[i]);
        // What an earlier grading has left there is no result.
        if (!result || (result->trouble.empty() && !result->digest.starts_with(joined.all.task))) {
            throw tovik_error(folder + " has no result of " + joined.all.students[i] +
                              "; the grading that has not come to its end goes on with --resume");
        }
        result->student = joined.all.students[i];
        result->file_name = joined.all.file_names[i];
        joined.results.push_back(std::move(*result));
    }
    joined.all.part = joined.all.parts = 1;
    begin_store(to, joined.all);
    for (size_t i = 0; i < joined.results.size(); ++i) {
        copy_pictures(sorted[i % sorted.size()], to, joined.results[i]);
        save_result(to, joined.ready.task, joined.results[i]);
    }
    save_tables(to, joined.ready, joined.results);
    return joined;
}
