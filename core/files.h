#pragma once

// What every module that writes a file of the user's needs.

#include <string>
#include <string_view>

// The system's text for an errno, at most 100 characters.
std::string system_error_text(int error);

// Writes all of the data to a descriptor. Returns 0, or the errno of the failure.
[[nodiscard]] int write_all(int descriptor, std::string_view data);
