#pragma once

#include <string>
#include <string_view>

// The URI of a file's name, or, for a name that does not begin with a slash, a reference relative to its
// folder.
std::string uri_reference(std::string_view name);
