#pragma once

// What has come out, written for people and for other programs. Each is the content of one file.

#include <string>
#include <string_view>
#include <vector>

#include "grade/results.h"
#include "grade/task.h"

// "7", "7.5": at most three digits behind the point.
std::string points_text(double points);

// A field of a CSV file. A spreadsheet would take a student's text for a formula that begins like one, so
// such a text has a "'" in front.
std::string quoted_for_csv(std::string_view text);

// Why points are missing, in a line.
std::string remarks(const student_result_t& result);

// A row for each student; control characters are replaced. The columns have a tab between them, or stand one
// below the other.
std::string table(const std::vector<student_result_t>& results, bool aligned);

// One student's feedback, in Markdown. Of hidden cases only the name is told.
std::string feedback(const task_t& task, const student_result_t& result);

std::string to_csv(const task_t& task, const std::vector<student_result_t>& results);
std::string to_junit(const task_t& task, const std::vector<student_result_t>& results);
std::string to_tap(const task_t& task, const std::vector<student_result_t>& results);
std::string to_gradescope(const task_t& task, const student_result_t& result);
std::string to_json(const task_t& task, const std::vector<student_result_t>& results);
