#pragma once

// What has come out: of a check, a case, a submission.

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

struct check_result_t {
    std::string name;
    double points = 0; // it is worth
    bool passed = false;
    std::string expected;
    std::string seen;
    std::string message; // the instructor's, of one that failed
    std::vector<std::string>
        pictures; // of a wrong one, files beside the feedback: expected, seen, difference
};

struct case_result_t {
    std::string name;
    bool hidden = false;
    std::string given;   // to the program, in words; lines of a script below
    std::string ended;   // how the run ended, in words
    std::string fault;   // why there was no run; of the student's
    std::string trouble; // why there was none; of the machine's
    bool slow = false;   // it has met the limit of time
    uint64_t seed = 0;
    uint64_t instructions = 0;
    double points = 0; // they are worth together
    double got = 0;
    std::vector<check_result_t> checks;
};

struct student_result_t {
    std::string student;
    std::string file_name; // with which the names of its files begin
    std::string fault;     // why there is nothing to grade; of the student's
    std::string trouble;   // why it was not graded; of the machine's
    std::string assembly;  // what the checker says, for a source with faults
    double points = 0;     // the task is worth
    double got = 0;
    std::vector<check_result_t> source_checks;
    std::vector<case_result_t> cases;
    std::string fingerprint; // see grade/alike.h
    std::string digest;      // of the task, and behind a "-" of what was handed in
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(check_result_t, name, points, passed, expected, seen, message, pictures)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(case_result_t, name, hidden, given, ended, fault, trouble, slow, seed,
                                   instructions, points, got, checks)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(student_result_t, student, file_name, fault, trouble, assembly, points,
                                   got, source_checks, cases, fingerprint, digest)
