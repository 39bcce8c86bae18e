#pragma once

// Grades the submissions of a class, each in a process of its own and each case in another one.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "grade/results.h"
#include "grade/seen.h"
#include "grade/submission.h"
#include "grade/task.h"

// A task with all that its runs need.
struct ready_task_t {
    task_t task;
    library_t library;
    std::vector<std::vector<std::optional<seen_t>>> references; // by case and seed; none: the case has none
    std::vector<std::string> fingerprints;                      // of the reference solutions
    std::string digest;                                         // see grade/digest.h
};

// Reads the library and runs the reference solutions. Throws tovik_error with what is wrong with the task.
ready_task_t prepare(task_t task);

struct grading_options_t {
    int at_once = 1;             // submissions
    std::string pictures_folder; // where pictures of what is wrong go; empty: nowhere
};

// In the order of the submissions. `done` is told of each that is over, in whatever order; it returns
// whether to go on. What was not graded any more, also when the end is asked for (grade/ending.h), is in
// trouble.
std::vector<student_result_t> grade_class(const ready_task_t& ready,
                                          const std::vector<submission_t>& submissions,
                                          const grading_options_t& options,
                                          const std::function<bool(const student_result_t&)>& done);
