#pragma once

// The page for browsers with a program and an assignment in it. The page itself saves the same.

#include <cstddef>
#include <string>
#include <vector>

constexpr size_t LONGEST_NAME = 80; // characters

struct wish_t {
    std::string page;    // the file of the page as it was built
    std::string program; // the file where the program begins; its name ends in ".k"
    std::string text;    // the file of the assignment, in Markdown; empty for none
    std::string name;    // of the program in the page, LONGEST_NAME at most; empty for that of its file
};

struct made_page_t {
    std::string text;
    std::vector<std::string> read; // the names of the files that it is made of
};

// The page with the program, all that this includes and the page does not have in its library, and the text.
// The program may have faults, but not hide what it includes. Throws tovik_error for a file that cannot be
// read, for what the page would not take, and where the page is none or has a program already.
made_page_t make_page(const wish_t& wish);
