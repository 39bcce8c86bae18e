// The entry of tovik-grade: grades a class.

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "base/files.h"
#include "base/machine.h"
#include "base/messages.h"
#include "base/saved_file.h"
#include "grade/alike.h"
#include "grade/grading.h"
#include "grade/outputs.h"

namespace {

constexpr int EXIT_GRADED = 0;
constexpr int EXIT_NOT_GRADED = 2; // wrong usage, a wrong task, or the machine was in the way

struct options_given_t {
    std::string task;
    std::vector<std::string> folders;
    std::string out;
    int jobs = 0;
};

std::optional<options_given_t> parse(int argc, char** argv, int& status) {
    options_given_t options;
    CLI::App app("Grades a class: runs each submission with the cases of a task.", "tovik-grade");
    app.add_option("TASK", options.task, "the task's file")->required();
    app.add_option("FOLDER", options.folders, "the submissions, or a folder of them")->required();
    app.add_option("--out", options.out, "a folder for the feedback and the results");
    app.add_option("--jobs", options.jobs, "how many submissions at the same time; as many as processors")
        ->check(CLI::Range(1, 1024));
    app.set_version_flag("--version", std::string("tovik-grade ") + TOVIK_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        status = app.exit(error) == 0 ? EXIT_GRADED : EXIT_NOT_GRADED;
        return std::nullopt;
    }
    return options;
}

void write(const std::filesystem::path& folder, const std::string& name, const std::string& text) {
    saved_file_t file((folder / name).string());
    file.write(text);
    file.close();
}

void write_all_results(const std::filesystem::path& out, const task_t& task,
                       const std::vector<student_result_t>& results) {
    for (const student_result_t& result : results) {
        write(out, result.file_name + ".md", feedback(task, result));
        write(out, result.file_name + ".gradescope.json", to_gradescope(task, result));
    }
    write(out, "results.csv", to_csv(task, results));
    write(out, "results.json", to_json(task, results));
    write(out, "results.tap", to_tap(task, results));
    write(out, "results.xml", to_junit(task, results));
}

int grade(const options_given_t& options) {
    const ready_task_t ready = prepare(read_task(options.task));
    const std::vector<submission_t> submissions = find_submissions(options.folders, ready.task.source);
    grading_options_t grading;
    grading.at_once =
        options.jobs > 0 ? options.jobs : static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    if (!options.out.empty()) {
        std::filesystem::create_directories(options.out);
        grading.pictures_folder = std::filesystem::absolute(options.out).string();
    }
    const bool is_watched = isatty(STDERR_FILENO) != 0;
    size_t count = 0;
    const std::vector<student_result_t> results =
        grade_class(ready, submissions, grading, [&](const student_result_t&) {
            ++count;
            if (is_watched) {
                std::cerr << '\r' << count << " of " << submissions.size() << std::flush;
            }
            return true;
        });
    std::cerr << (is_watched ? "\r" : "");
    bool all_graded = true;
    for (const student_result_t& result : results) {
        std::cout << table_row(result);
        all_graded &= result.trouble.empty();
    }
    const std::vector<alike_t> alike = find_alike(results, ready.fingerprints);
    std::cout << alike_text(alike);
    if (!options.out.empty()) {
        write_all_results(options.out, ready.task, results);
        write(options.out, "alike.csv", alike_csv(alike));
        write(options.out, "alike.md", alike_markdown(alike));
    }
    return all_graded ? EXIT_GRADED : EXIT_NOT_GRADED;
}

} // namespace

int main(int argc, char** argv) {
    hold_standard_streams();
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    graphical_display = true;
    int status = EXIT_GRADED;
    const std::optional<options_given_t> options = parse(argc, argv, status);
    if (!options) {
        return status;
    }
    try {
        return grade(*options);
    } catch (const tovik_error& error) {
        std::cerr << "tovik-grade: " << error.message << std::endl;
    } catch (const std::filesystem::filesystem_error& error) {
        std::cerr << "tovik-grade: " << error.what() << std::endl;
    }
    return EXIT_NOT_GRADED;
}
