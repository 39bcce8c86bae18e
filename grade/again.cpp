#include "grade/again.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <set>
#include <utility>

#include "base/machine.h"
#include "base/text.h"
#include "grade/grading.h"
#include "grade/outputs.h"
#include "grade/run.h"
#include "grade/status.h"
#include "grade/submission.h"

namespace {

case_t find_case(const task_t& task, const std::string& which) {
    const auto named = std::find_if(task.cases.begin(), task.cases.end(),
                                    [&](const case_t& one) { return one.name == which; });
    if (named != task.cases.end()) {
        return *named;
    }
    const std::optional<int64_t> number = parse_number(which, 1, static_cast<int64_t>(task.cases.size()));
    if (!number) {
        throw tovik_error("no case has the name " + which + ", nor this number: there are " +
                          std::to_string(task.cases.size()));
    }
    return task.cases[static_cast<size_t>(*number - 1)];
}

submission_t find_student(const std::vector<submission_t>& submissions, const std::string& student) {
    const auto found = std::find_if(submissions.begin(), submissions.end(), [&](const submission_t& one) {
        return one.student == student || one.file_name == student;
    });
    if (found == submissions.end()) {
        throw tovik_error("no student has the name " + student);
    }
    return *found;
}

std::string copy_line(const std::filesystem::path& from, const std::string& to) {
    return "cp -- " + quoted_for_shell(from.string()) + " " + quoted_for_shell(to) + "\n";
}

// The assembler writes beside the source, which is the student's: so a copy is assembled.
std::string shell_text(const task_t& task, const submission_t& submission, uint64_t seed) {
    std::string lines = "cd \"$(mktemp -d)\"\n";
    std::set<std::string> folders;
    lines += copy_line(std::filesystem::path(submission.folder) / task.source, "./" + task.source);
    for (const std::string& name : task.library) {
        const std::string folder = std::filesystem::path(name).parent_path().string();
        if (!folder.empty() && folders.insert(folder).second) {
            lines += "mkdir -p -- " + quoted_for_shell(folder) + "\n";
        }
        lines += copy_line(std::filesystem::path(task.folder) / name, "./" + name);
    }
    return lines + command_for(task.source, task.cases.front(), seed);
}

} // namespace

int run_again(task_t task, const std::vector<std::string>& folders, const std::string& student,
              const std::string& which) {
    case_t one = find_case(task, which);
    one.hidden = false;
    task.cases = {std::move(one)};
    task.source_checks.clear();
    task.points.reset();
    const submission_t submission = find_student(find_submissions(folders, task.source), student);
    const ready_task_t ready = prepare(std::move(task));
    const std::vector<student_result_t> results =
        grade_class(ready, {submission}, {}, [](const student_result_t&) { return true; });
    const student_result_t& result = results.front();
    std::cout << feedback(ready.task, result);
    if (!result.cases.empty()) {
        std::cout << "\nThe same in a shell:\n\n" << shell_text(ready.task, submission, result.cases[0].seed);
    }
    return result.trouble.empty() ? EXIT_GRADED : EXIT_NOT_GRADED;
}
