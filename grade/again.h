#pragma once

// One case of one student, looked at closely.

#include <string>
#include <vector>

#include "grade/task.h"

// Runs a case, by its name or its number from 1 on, for the student of that name, and prints what has come
// out, also of a hidden case, and how a shell does the same. Returns the exit status. Throws tovik_error when
// there is no such case or student.
int run_again(task_t task, const std::vector<std::string>& folders, const std::string& student,
              const std::string& which);
