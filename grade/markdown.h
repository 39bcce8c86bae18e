#pragma once

// Texts of students inside Markdown (CommonMark with the tables of GitHub), and names of files.

#include <string>
#include <string_view>
#include <vector>

// The text in one line, of which nothing is markup.
std::string in_markdown(std::string_view text);

// Lines as they are. They cannot end the block.
std::string fenced(std::string_view text);

// A place in a link or picture that stands for the name of a file.
std::string link_to(std::string_view file_name);

// Names for the files of each of these, in the same order: ASCII letters, digits, "_", and "." and "-"
// inside, other characters of UTF-8, and "_" for all else; all different, also where capitals do not count.
std::vector<std::string> file_names_for(const std::vector<std::string>& names);
