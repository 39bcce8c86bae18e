// The entry of tovik-grade: grades a class.

#include <algorithm>
#include <csignal>
#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "base/files.h"
#include "base/machine.h"
#include "base/messages.h"
#include "grade/again.h"
#include "grade/alike.h"
#include "grade/ending.h"
#include "grade/example.h"
#include "grade/grading.h"
#include "grade/options.h"
#include "grade/outputs.h"
#include "grade/status.h"
#include "grade/store.h"

namespace {

constexpr const char* TO_GO_ON = "the same command with --resume goes on";

void print_error(const std::string& text) { std::cerr << "tovik-grade: " << text << std::endl; }

// One line, where somebody looks at it.
class progress_t {
  public:
    explicit progress_t(size_t all) : all_(all), is_watched_(isatty(STDERR_FILENO) != 0) {}
    progress_t(const progress_t&) = delete;
    progress_t& operator=(const progress_t&) = delete;
    ~progress_t() {
        if (is_watched_ && count_ > 0) {
            std::cerr << '\r' << std::string(line().size(), ' ') << '\r' << std::flush;
        }
    }
    void step() {
        ++count_;
        if (is_watched_) {
            std::cerr << '\r' << line() << std::flush;
        }
    }

  private:
    [[nodiscard]] std::string line() const { return std::to_string(count_) + " of " + std::to_string(all_); }
    size_t all_;
    size_t count_ = 0;
    bool is_watched_;
};

void print_results(const ready_task_t& ready, const std::vector<student_result_t>& results) {
    std::cout << table(results, isatty(STDOUT_FILENO) != 0)
              << alike_text(find_alike(results, ready.fingerprints));
}

size_t count_not_graded(const std::vector<student_result_t>& results) {
    return static_cast<size_t>(
        std::count_if(results.begin(), results.end(),
                      [](const student_result_t& result) { return !result.trouble.empty(); }));
}

// Says how to go on. Returns the exit status.
int end_with(const std::vector<student_result_t>& results, bool can_resume) {
    const size_t count = count_not_graded(results);
    if (count == 0) {
        return EXIT_GRADED;
    }
    print_error(std::to_string(count) + " of " + std::to_string(results.size()) + " not graded" +
                (can_resume ? std::string("; ") + TO_GO_ON : ""));
    return EXIT_NOT_GRADED;
}

// ---- A class

std::vector<submission_t> submissions_of(const std::vector<submission_t>& all, const part_t& part) {
    std::vector<submission_t> some;
    for (size_t i = part.number - 1; i < all.size(); i += part.of) {
        some.push_back(all[i]);
    }
    return some;
}

// The result that is there, if it is of what is to be graded.
std::optional<student_result_t> old_result(const options_given_t& options, const ready_task_t& ready,
                                           const submission_t& submission) {
    std::optional<student_result_t> old =
        options.resume ? load_result(options.out, submission.file_name) : std::nullopt;
    if (!old || !old->trouble.empty() || !is_current(*old, ready, submission)) {
        return std::nullopt;
    }
    old->student = submission.student;
    old->file_name = submission.file_name;
    return old;
}

std::vector<student_result_t> grade_rest(const options_given_t& options, const ready_task_t& ready,
                                         const std::vector<submission_t>& submissions) {
    std::map<std::string, student_result_t> results; // by file name
    std::vector<submission_t> rest;
    const auto keep = [&](const student_result_t& result) {
        if (!options.out.empty()) {
            save_result(options.out, ready.task, result);
        }
    };
    for (const submission_t& submission : submissions) {
        if (const std::optional<student_result_t> old = old_result(options, ready, submission)) {
            keep(*old); // its feedback may be gone
            results[submission.file_name] = *old;
        } else {
            rest.push_back(submission);
        }
    }
    grading_options_t grading;
    grading.at_once =
        options.jobs > 0 ? options.jobs : static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    grading.pictures_folder = options.out.empty() ? "" : std::filesystem::absolute(options.out).string();
    progress_t progress(rest.size());
    for (student_result_t& result : grade_class(ready, rest, grading, [&](const student_result_t& one) {
             progress.step();
             keep(one);
             return true;
         })) {
        results[result.file_name] = std::move(result);
    }
    std::vector<student_result_t> sorted;
    sorted.reserve(submissions.size());
    for (const submission_t& submission : submissions) {
        sorted.push_back(std::move(results[submission.file_name]));
    }
    return sorted;
}

// From here on there is something to go on with.
int grade_into(const options_given_t& options, const ready_task_t& ready,
               const std::vector<submission_t>& all) {
    const std::vector<student_result_t> results =
        grade_rest(options, ready, submissions_of(all, options.part));
    if (!is_end_asked()) {
        print_results(ready, results);
    }
    if (!options.out.empty()) {
        save_tables(options.out, ready, results);
    }
    return end_with(results, !options.out.empty());
}

int grade(const options_given_t& options) {
    const ready_task_t ready = prepare(read_task(options.task));
    const std::vector<submission_t> all =
        find_submissions(options.folders, ready.task.source, store_folders(options.out));
    if (options.out.empty()) {
        return grade_into(options, ready, all);
    }
    class_t record = class_of(ready, all);
    record.part = options.part.number;
    record.parts = options.part.of;
    begin_store(options.out, record);
    try {
        return grade_into(options, ready, all);
    } catch (const tovik_error& error) {
        throw tovik_error(error.message + "; " + TO_GO_ON);
    }
}

int merge(const options_given_t& options) {
    const joined_t joined = join_stores(options.merge, options.out);
    print_results(joined.ready, joined.results);
    return end_with(joined.results, false);
}

int do_as_told(const options_given_t& options) {
    if (!options.example.empty()) {
        write_example(options.example);
        return EXIT_GRADED;
    }
    if (!options.merge.empty()) {
        return merge(options);
    }
    watch_for_end();
    return options.again.empty()
               ? grade(options)
               : run_again(read_task(options.task), options.folders, options.again, options.again_case);
}

int try_as_told(const options_given_t& options) {
    try {
        return do_as_told(options);
    } catch (const tovik_error& error) {
        print_error(error.message);
    } catch (const std::exception& error) {
        print_error(error.what());
    }
    return EXIT_NOT_GRADED;
}

} // namespace

int main(int argc, char** argv) {
    hold_standard_streams();
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL); // where it is ignored, nobody learns how a process has ended
    graphical_display = true;
    int status = EXIT_GRADED;
    const std::optional<options_given_t> options = parse_options(argc, argv, status);
    if (!options) {
        return status;
    }
    status = try_as_told(*options);
    if (!std::cout.flush()) {
        print_error("can't write to standard output");
        status = EXIT_NOT_GRADED;
    }
    return status;
}
