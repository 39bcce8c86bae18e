#pragma once

// Processes of their own for what may go wrong, under limits.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

struct bounds_t {
    int processor_seconds;
    int seconds; // in all
    size_t memory_bytes;
    size_t file_bytes; // of each file that is written
};

enum class ending_e : uint8_t {
    ANSWERED,
    OUT_OF_TIME,
    FAILED, // ended in another way
};

struct ended_t {
    ending_e ending;
    std::string answer;    // where it has ANSWERED
    std::string why;       // it has FAILED
    uint64_t processor_us; // that it has used, with its own children
};

// What is to be done in a process of its own; its result is the answer. What it throws as tovik_error is why
// it has failed.
using work_t = std::function<std::string()>;

// Does one thing and waits for it. When the end is asked for (grade/ending.h), or there can be no more
// processes, it has FAILED. What it has started, and has not ended, is ended.
ended_t run_apart(const bounds_t& bounds, const work_t& work);

// Does many things in the same way, some of them at the same time. `work` gives the thing with a number,
// `done` gets how it ended, in whatever order; it returns whether to go on. When the end is asked for, or
// `done` throws, the other processes are ended, and `done` never hears of them.
void run_many(size_t count, int at_once, const bounds_t& bounds,
              const std::function<work_t(size_t number)>& work,
              const std::function<bool(size_t number, ended_t ended)>& done);
