#pragma once

// Whether a task or a submission is still what it was when it was graded.

#include <string>

#include "grade/submission.h"
#include "grade/task.h"

// Of the task's file, of all that it names, and of the version of the program, wherever they are. Throws
// tovik_error when one cannot be read.
std::string digest_of(const task_t& task);

// Of what was handed in, or of why there is nothing.
std::string digest_of(const handed_in_t& handed_in);
