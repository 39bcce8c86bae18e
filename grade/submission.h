#pragma once

// What students have handed in. All of it is hostile until shown otherwise: it is read once, links are not
// followed, and what it wants to include is looked at before anything is opened.

#include <map>
#include <string>
#include <vector>

#include "assembler/analyse.h"
#include "grade/task.h"
#include "grade/verdict.h"

// One student's folder.
struct submission_t {
    std::string student; // its name, for a screen
    std::string folder;
    std::string file_name; // with which the names of its files begin; each submission has another
};

// Of the folders that were named, each once: one that has other folders, but no source, stands for each of
// these, by name. Where several students have one name, the folder before theirs is part of it: "class1/ada".
// Those of `except` are found in no folder. Throws tovik_error when one of the folders is none, and
// filesystem_error when it cannot be read.
std::vector<submission_t> find_submissions(const std::vector<std::string>& folders, const std::string& source,
                                           const std::vector<std::string>& except = {});

// A file as it was handed in.
struct handed_in_t {
    std::string text;
    std::string fault;   // of the student's: there is nothing to grade; empty: there is
    std::string trouble; // of the machine's: it could not be read
};

handed_in_t read_submission(const submission_t& submission, const std::string& source);

// By the names with which they may be included.
using library_t = std::map<std::string, std::string>;

// Reads the files of a task's library. Throws tovik_error.
library_t read_library(const task_t& task);

struct program_text_t {
    analysis_t analysis;   // with the warnings, if it has no faults
    std::string forbidden; // the first file that it may not include
};

// Nothing but the library's files is included.
program_text_t analyse_submission(const std::string& source, const std::string& text,
                                  const library_t& library);

// Of a source without faults.
verdict_t judge_source(const source_rule_t& rule, const analysis_t& analysis);
