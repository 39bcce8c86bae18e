#pragma once

// An example of a task, with a class that has handed it in.

#include <string>

// Writes it into a folder that does not exist or is empty. Throws tovik_error when it cannot.
void write_example(const std::string& folder);
