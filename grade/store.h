#pragma once

// The folder that a grading leaves. Feedback and tables are for people and other programs; class.json and
// graded/ are what a grading needs that goes on with it, or joins several.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "grade/grading.h"
#include "grade/results.h"
#include "grade/submission.h"

// What all results have in common.
struct class_t {
    std::string task; // its digest
    std::string title;
    std::string source;
    std::string visibility;
    std::vector<std::string> cases;        // their names
    std::vector<std::string> fingerprints; // of the reference solutions
    std::vector<std::string> students;     // all of the class, in its order
    std::vector<std::string> file_names;   // theirs
    size_t part = 1; // the folder has the students with the numbers part, part + parts, ...
    size_t parts = 1;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(class_t, task, title, source, visibility, cases, fingerprints, students,
                                   file_names, part, parts)

// The folders that it has or is: it may be in the class's own. None for no folder.
std::vector<std::string> store_folders(const std::string& folder);

class_t class_of(const ready_task_t& ready, const std::vector<submission_t>& submissions);

// Makes a folder ready for results: what a grading that was killed has not finished goes. As all that write
// there, throws tovik_error or filesystem_error when that cannot be.
void begin_store(const std::string& folder, const class_t& all);

// Writes one student's files; the result, which says that they are there, at the end.
void save_result(const std::string& folder, const task_t& task, const student_result_t& result);

// Nothing where there is none that can be read, or its pictures are not there.
std::optional<student_result_t> load_result(const std::string& folder, const std::string& file_name);

// Whether a result is of this task and of what the student has handed in now.
bool is_current(const student_result_t& result, const ready_task_t& ready, const submission_t& submission);

// Writes what has all students in it.
void save_tables(const std::string& folder, const ready_task_t& ready,
                 const std::vector<student_result_t>& results);

// The results of all parts of a class, in its order, with as much of the task as tables need.
struct joined_t {
    class_t all;
    ready_task_t ready;
    std::vector<student_result_t> results;
};

// Reads the folders of all parts and writes all that is in them into another one. Throws tovik_error when
// parts are missing, are there twice, or are of something else, and leaves nothing then.
joined_t join_stores(const std::vector<std::string>& folders, const std::string& to);
