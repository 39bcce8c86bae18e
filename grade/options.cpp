#include "grade/options.h"

#include <iostream>
#include <limits>

#include <CLI/CLI.hpp>

#include "base/text.h"
#include "grade/status.h"

namespace {

constexpr int64_t MOST_PARTS = 1'000'000;
constexpr int MOST_JOBS = 1024;

// "K/N"; nothing for anything else.
std::optional<part_t> part_of(const std::string& text) {
    const size_t slash = std::min(text.find('/'), text.size());
    const std::optional<int64_t> of =
        parse_number(std::string_view(text).substr(std::min(slash + 1, text.size())), 1, MOST_PARTS);
    const std::optional<int64_t> number =
        of ? parse_number(std::string_view(text).substr(0, slash), 1, *of) : std::nullopt;
    return number ? std::optional(part_t{static_cast<size_t>(*number), static_cast<size_t>(*of)})
                  : std::nullopt;
}

// What the library cannot tell. Empty: nothing is wrong.
std::string what_is_wrong(const options_given_t& options) {
    if (!options.example.empty()) {
        return options.task.empty() ? "" : "--new takes one folder, and nothing else";
    }
    if (!options.merge.empty()) {
        if (!options.task.empty()) {
            return "--merge takes the folders of parts, and --out the new one";
        }
        return options.out.empty() ? "--merge needs --out" : "";
    }
    if (options.task.empty() || options.folders.empty()) {
        return options.task.empty() ? "TASK is missing" : "FOLDER is missing";
    }
    return "";
}

} // namespace

std::optional<options_given_t> parse_options(int argc, char** argv, int& status) {
    options_given_t options;
    std::string part = "1/1";
    CLI::App app("Grades a class: runs each submission with the cases of a task.", "tovik-grade");
    app.add_option("TASK", options.task, "the task's file");
    app.add_option("FOLDER", options.folders, "the submissions, or a folder of them");
    CLI::Option* const out =
        app.add_option("--out", options.out, "a folder for the feedback and the results");
    CLI::Option* const jobs =
        app.add_option("--jobs", options.jobs, "how many submissions at the same time; as many as processors")
            ->check(CLI::Range(1, MOST_JOBS));
    CLI::Option* const resume =
        app.add_flag("--resume", options.resume, "grade only what --out has no result of, or an old one")
            ->needs(out);
    CLI::Option* const shard =
        app.add_option("--shard", part, "K/N: only the submissions K, K+N, K+2N... of the class")
            ->check(CLI::Validator(
                [](const std::string& text) {
                    return part_of(text) ? "" : "'" + text + "' is not K/N, with K from 1 to N";
                },
                ""));
    CLI::Option* const merge = app.add_option("--merge", options.merge, "join the results of all shards")
                                   ->excludes(jobs)
                                   ->excludes(resume)
                                   ->excludes(shard);
    CLI::Option* const again =
        app.add_option("--again", options.again, "run one case of this student, and say how to do it by hand")
            ->excludes(out)
            ->excludes(shard)
            ->excludes(merge);
    CLI::Option* const which =
        app.add_option("--case", options.again_case, "the name or the number of that case")->needs(again);
    again->needs(which);
    CLI::Option* const example =
        app.add_option("--new", options.example, "a new folder with an example of a task");
    for (CLI::Option* const other : {out, jobs, resume, shard, merge, again}) {
        example->excludes(other);
    }
    app.set_version_flag("--version", std::string("tovik-grade ") + TOVIK_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        status = app.exit(error) == 0 ? EXIT_GRADED : EXIT_NOT_GRADED;
        return std::nullopt;
    }
    if (const std::string wrong = what_is_wrong(options); !wrong.empty()) {
        std::cerr << wrong << "\nRun with --help for more information.\n";
        status = EXIT_NOT_GRADED;
        return std::nullopt;
    }
    options.part = *part_of(part);
    return options;
}
