#include "grade/grading.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <limits>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include "base/files.h"
#include "base/machine.h"
#include "base/saved_file.h"
#include "devices/vga.h"
#include "grade/alike.h"
#include "grade/digest.h"
#include "grade/ending.h"
#include "grade/process.h"
#include "grade/run.h"
#include "grade/verdict.h"
#include "language/characters.h"
#include "language/output.h"
#include "ui/gui_batch/picture.h"

namespace {

// Hundreds of millions of instructions a second are usual; a tenth is allowed for.
constexpr int64_t INSTRUCTIONS_PER_SECOND = 20'000'000;
constexpr int LEAST_SECONDS = 5; // for a case
constexpr int ASSEMBLY_SECONDS = 10;
constexpr double MOST_SECONDS = 1e9;
constexpr size_t MEMORY_BYTES = size_t{2} << 30;
constexpr size_t FILE_BYTES = size_t{256} << 20;
constexpr int PATIENCE = 4; // times the limit, for what has met it
constexpr uint64_t US_PER_SECOND = 1'000'000;
constexpr size_t MOST_TEXT = 2000; // bytes, of what a program or a source makes somebody say
constexpr size_t MOST_DIAGNOSTICS = 20'000;

constexpr const char* TOO_SLOW = "takes too long on any machine";
constexpr const char* OUT_OF_TIME = "out of time: this machine is too busy";

// What a second attempt gets.
struct effort_t {
    int times = 1;
};

// Commands may wait for something; their processor time is their own.
int seconds_of_commands(const case_t& one) {
    double seconds = 0;
    for (const task_check_t<rule_t>& check : one.checks) {
        const auto* const command = std::get_if<command_rule_t>(&check.rule);
        seconds += command != nullptr ? command->seconds + 1 : 0;
    }
    return static_cast<int>(std::min(seconds, MOST_SECONDS));
}

bounds_t bounds_of(const case_t& one, effort_t effort) {
    const int64_t seconds = std::min<int64_t>(one.limit / INSTRUCTIONS_PER_SECOND, 3600) + LEAST_SECONDS;
    const int most = static_cast<int>(seconds) * effort.times;
    return {most, 2 * most + seconds_of_commands(one), MEMORY_BYTES, FILE_BYTES};
}

// Beside its runs, which have processor time of their own, a submission is only assembled.
bounds_t bounds_of(const task_t& task, effort_t effort) {
    const int most = ASSEMBLY_SECONDS * effort.times;
    double seconds = 2 * most;
    for (const case_t& one : task.cases) {
        seconds += (bounds_of(one, effort).seconds + 1.0) * static_cast<double>(one.seeds.size());
    }
    return {most, static_cast<int>(std::min(seconds, MOST_SECONDS)), MEMORY_BYTES, FILE_BYTES};
}

// Whoever has had less than was meant has not been too slow: the machine had other things to do.
bool has_had_its_time(const ended_t& ended, const bounds_t& bounds) {
    constexpr uint64_t NEARLY = US_PER_SECOND * 9 / 10; // the system counts for itself
    return ended.processor_us >= static_cast<uint64_t>(bounds.processor_seconds) * NEARLY;
}

// A folder that goes with what is in it.
class folder_t {
  public:
    folder_t() {
        std::string name = (std::filesystem::temp_directory_path() / "tovik-grade-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw tovik_error("can't make a folder " + name + ": " + system_error_text(errno));
        }
        path_ = name;
    }
    folder_t(const folder_t&) = delete;
    folder_t& operator=(const folder_t&) = delete;
    ~folder_t() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

void go_to_new(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directory(folder, error);
    if (!error) {
        std::filesystem::current_path(folder, error);
    }
    if (error) {
        throw tovik_error("can't use folder " + folder.string() + ": " + error.message());
    }
}

// The board is silent here: what it says is in the report.
void be_silent() {
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nowhere < 0 || dup2(nowhere, STDIN_FILENO) < 0 || dup2(nowhere, STDOUT_FILENO) < 0 ||
        dup2(nowhere, STDERR_FILENO) < 0) {
        throw tovik_error("can't open /dev/null: " + system_error_text(errno));
    }
}

// ---- One case

std::string ended_text(const nlohmann::json& report) {
    std::string text = report.at("reason").get<std::string>();
    if (const std::string message = report.at("message").get<std::string>(); !message.empty()) {
        text += ": " + message;
    }
    const nlohmann::json& place = report.at("place");
    if (const int line = place.at("line").get<int>(); line > 0) {
        text += " (" + place.at("file").get<std::string>() + ":" + std::to_string(line) + ": " +
                place.at("text").get<std::string>() + ")";
    }
    const std::string reason = report.at("reason_text").get<std::string>();
    std::replace(text.begin(), text.end(), '\n', ' ');
    return shortened(reason.empty() ? text : text + ". " + reason, MOST_TEXT);
}

// For a pipe. Bytes that are no text are replaced.
template <typename record_t> std::string bytes_of(const record_t& record) {
    return nlohmann::json(record).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

struct attempt_t {
    const ready_task_t* ready;
    const submission_t* submission;
    std::filesystem::path folder; // for its files
    bool keeps_pictures;
    effort_t effort;
};

// Where a picture is until it is known that it is wanted: the run may be ended at any time, and another seed
// may have a worse one.
std::filesystem::path kept_picture(const attempt_t& attempt, uint64_t seed, const std::string& name) {
    return attempt.folder / (std::to_string(seed) + "-" + name);
}

// Returns the names of their files, which begin with `name`.
std::vector<std::string> save_pictures(const attempt_t& attempt, uint64_t seed, const std::string& name,
                                       const std::vector<picture_t>& pictures) {
    constexpr std::array<const char*, 3> ENDS = {"-expected.png", "-seen.png", "-difference.png"};
    std::vector<std::string> names;
    for (size_t i = 0; i < pictures.size(); ++i) {
        names.push_back(name + ENDS.at(i));
        saved_file_t file(kept_picture(attempt, seed, names.back()).string());
        file.write(png_of(pictures[i], VGA_WIDTH, names.back()));
        file.close();
    }
    return names;
}

// All checks of a case without a run have failed.
case_result_t not_run(const case_t& one) {
    case_result_t result;
    for (const task_check_t<rule_t>& check : one.checks) {
        result.checks.push_back({check.name, check.points, false, {}, {}, check.message, {}});
    }
    return result;
}

// In the process of the case.
case_result_t run_and_judge(const attempt_t& attempt, analysis_t program, size_t number, size_t seed) {
    const case_t& one = attempt.ready->task.cases[number];
    const std::optional<seen_t>& reference = attempt.ready->references[number][seed];
    const seen_t seen = run_case(std::move(program), one, static_cast<uint64_t>(one.seeds[seed]));
    case_result_t result;
    result.ended = ended_text(seen.report);
    result.instructions = seen.report.at("instructions").get<uint64_t>();
    for (const task_check_t<rule_t>& check : one.checks) {
        verdict_t verdict = judge(check.rule, seen, reference ? &*reference : nullptr);
        std::vector<std::string> pictures;
        if (attempt.keeps_pictures && !one.hidden) {
            const std::string name = attempt.submission->file_name + "-" + std::to_string(number + 1) + "-" +
                                     std::to_string(result.checks.size() + 1);
            pictures = save_pictures(attempt, static_cast<uint64_t>(one.seeds[seed]), name, verdict.pictures);
        }
        result.checks.push_back({check.name, check.points, verdict.passed,
                                 shortened(std::move(verdict.expected), MOST_TEXT),
                                 shortened(std::move(verdict.seen), MOST_TEXT),
                                 verdict.passed ? "" : check.message, std::move(pictures)});
    }
    return result;
}

// Of a process that has not come to an end by itself.
void add_end(const ended_t& ended, const bounds_t& bounds, effort_t effort, case_result_t& result) {
    if (ended.ending == ending_e::FAILED) {
        result.trouble = ended.why;
    } else if (effort.times > 1 && !has_had_its_time(ended, bounds)) {
        result.trouble = OUT_OF_TIME;
    } else {
        result.slow = true;
        result.fault = TOO_SLOW;
    }
}

// The program is moved from in the other process only: that need not copy it.
case_result_t try_seed(const attempt_t& attempt, analysis_t& program, size_t number, size_t seed) {
    const case_t& one = attempt.ready->task.cases[number];
    const bounds_t bounds = bounds_of(one, attempt.effort);
    const ended_t ended = run_apart(bounds, [&] {
        if (leaves_files(one)) {
            go_to_new("case" + std::to_string(number) + "-" + std::to_string(seed));
        }
        return bytes_of(run_and_judge(attempt, std::move(program), number, seed));
    });
    if (ended.ending == ending_e::ANSWERED) {
        return nlohmann::json::parse(ended.answer).get<case_result_t>();
    }
    case_result_t result = not_run(one);
    add_end(ended, bounds, attempt.effort, result);
    return result;
}

// What is worth `points` together, of which some checks have passed.
double share_of(const std::vector<check_result_t>& checks, double points) {
    double all = 0;
    double passed = 0;
    for (const check_result_t& check : checks) {
        all += check.points;
        passed += check.passed ? check.points : 0;
    }
    return all == 0 ? 0 : points * passed / all;
}

template <typename some_rule_t> double sum_of(const std::vector<task_check_t<some_rule_t>>& checks) {
    double sum = 0;
    for (const task_check_t<some_rule_t>& check : checks) {
        sum += check.points;
    }
    return sum;
}

case_result_t grade_case(const attempt_t& attempt, analysis_t& program, size_t number) {
    const case_t& one = attempt.ready->task.cases[number];
    std::optional<case_result_t> worst;
    if (const std::string label = missing_label(program, one); !label.empty()) {
        worst = not_run(one);
        worst->fault = "there is no label " + label;
        worst->seed = static_cast<uint64_t>(one.seeds.front());
    }
    const double points = one.points.value_or(sum_of(one.checks));
    for (size_t seed = 0; seed < one.seeds.size() && !(worst && !worst->fault.empty()); ++seed) {
        case_result_t result = try_seed(attempt, program, number, seed);
        result.seed = static_cast<uint64_t>(one.seeds[seed]);
        result.got = share_of(result.checks, points);
        if (!worst || result.got < worst->got || !result.trouble.empty()) {
            worst = std::move(result);
        }
    }
    worst->name = one.name;
    worst->hidden = one.hidden;
    worst->given = given_text(one.input);
    worst->points = points;
    return std::move(*worst);
}

// ---- One submission

double worth(const task_t& task) {
    double points = sum_of(task.source_checks);
    for (const case_t& one : task.cases) {
        points += one.points.value_or(sum_of(one.checks));
    }
    return points;
}

// All points are in proportion to what the task is worth.
void add_points(const task_t& task, student_result_t& result) {
    const double all = worth(task);
    result.points = task.points.value_or(all);
    result.got = share_of(result.source_checks, sum_of(task.source_checks));
    for (const case_result_t& one : result.cases) {
        result.got += one.got;
        result.trouble =
            result.trouble.empty() && !one.trouble.empty() ? one.name + ": " + one.trouble : result.trouble;
    }
    result.got *= all == 0 ? 0 : result.points / all;
}

void grade_program(const attempt_t& attempt, analysis_t& program, student_result_t& result) {
    const task_t& task = attempt.ready->task;
    for (const task_check_t<source_rule_t>& check : task.source_checks) {
        verdict_t verdict = judge_source(check.rule, program);
        result.source_checks.push_back({check.name,
                                        check.points,
                                        verdict.passed,
                                        shortened(std::move(verdict.expected), MOST_TEXT),
                                        shortened(std::move(verdict.seen), MOST_TEXT),
                                        verdict.passed ? "" : check.message,
                                        {}});
    }
    for (size_t number = 0; number < task.cases.size(); ++number) {
        result.cases.push_back(grade_case(attempt, program, number));
    }
}

// In the process of the submission, and in its folder.
student_result_t grade_submission(const attempt_t& attempt) {
    const task_t& task = attempt.ready->task;
    student_result_t result;
    handed_in_t handed_in = read_submission(*attempt.submission, task.source);
    result.fault = handed_in.fault;
    result.trouble = handed_in.trouble;
    result.digest = attempt.ready->digest + "-" + digest_of(handed_in);
    if (result.fault.empty() && result.trouble.empty()) {
        program_text_t program = analyse_submission(task.source, handed_in.text, attempt.ready->library);
        if (!program.forbidden.empty()) {
            result.fault = task.source + " includes " + shortened(program.forbidden, MOST_TEXT) +
                           ", which is no file of the task";
        } else if (program.analysis.diagnostics.faults > 0) {
            result.fault = "does not assemble";
            result.assembly = shortened(to_text(program.analysis, false), MOST_DIAGNOSTICS);
        } else {
            result.fingerprint = fingerprint_of(program.analysis.map);
            grade_program(attempt, program.analysis, result);
        }
    }
    add_points(task, result);
    return result;
}

bool is_slow(const student_result_t& result) {
    return std::any_of(result.cases.begin(), result.cases.end(),
                       [](const case_result_t& one) { return one.slow; });
}

student_result_t result_of(const attempt_t& attempt, const ended_t& ended) {
    student_result_t result;
    if (ended.ending == ending_e::ANSWERED) {
        result = nlohmann::json::parse(ended.answer).get<student_result_t>();
    } else {
        case_result_t whole;
        add_end(ended, bounds_of(attempt.ready->task, attempt.effort), attempt.effort, whole);
        result.fault = whole.fault;
        result.trouble = whole.trouble;
        result.points = attempt.ready->task.points.value_or(worth(attempt.ready->task));
        if (!result.fault.empty()) {
            result.digest = attempt.ready->digest + "-" +
                            digest_of(read_submission(*attempt.submission, attempt.ready->task.source));
        }
    }
    result.student = attempt.submission->student;
    result.file_name = attempt.submission->file_name;
    return result;
}

void take_pictures(const student_result_t& result, const attempt_t& attempt,
                   const std::filesystem::path& to) {
    for (const case_result_t& one : result.cases) {
        for (const check_result_t& check : one.checks) {
            for (const std::string& name : check.pictures) {
                const std::string from = kept_picture(attempt, one.seed, name).string();
                saved_file_t file((to / name).string());
                file.write(read_whole(from));
                file.close();
            }
        }
    }
}

work_t work_of(const attempt_t& attempt) {
    return [&attempt] {
        go_to_new(attempt.folder);
        be_silent();
        return bytes_of(grade_submission(attempt));
    };
}

// ---- The reference solutions

// What many cases show, as the noise of the start, is kept once: each process has all of it.
void share_picture(const ready_task_t& ready, seen_t& seen) {
    for (const auto& references : ready.references) {
        for (const std::optional<seen_t>& other : references) {
            if (other && std::equal(other->picture.begin(), other->picture.end(), seen.picture.begin(),
                                    seen.picture.end())) {
                seen.kept = other->kept;
                seen.picture = other->picture;
                return;
            }
        }
    }
}

seen_t reference_of(ready_task_t& ready, const case_t& one, size_t seed,
                    const std::filesystem::path& folder) {
    const program_text_t program =
        analyse_submission(ready.task.source, read_whole(one.reference), ready.library);
    if (program.analysis.diagnostics.faults > 0) {
        throw tovik_error(one.reference + " does not assemble:\n" + to_text(program.analysis, false));
    }
    if (const std::string label = missing_label(program.analysis, one); !label.empty()) {
        throw tovik_error(one.reference + " has no label " + label);
    }
    ready.fingerprints.push_back(fingerprint_of(program.analysis.map));
    const ended_t ended = run_apart(bounds_of(one, {}), [&] {
        go_to_new(folder);
        be_silent();
        return to_bytes(run_case(program.analysis, one, static_cast<uint64_t>(one.seeds[seed])));
    });
    if (ended.ending != ending_e::ANSWERED) {
        throw tovik_error(one.reference + ", case " + one.name + ": " +
                          (ended.ending == ending_e::FAILED ? ended.why : "takes too long"));
    }
    seen_t seen = seen_of(ended.answer);
    share_picture(ready, seen);
    return seen;
}

} // namespace

ready_task_t prepare(task_t task) {
    ready_task_t ready;
    ready.task = std::move(task);
    ready.digest = digest_of(ready.task);
    ready.library = read_library(ready.task);
    if (!ready.task.cases.empty()) {
        make_noise(static_cast<uint64_t>(ready.task.cases.front().seeds.front()));
    }
    const folder_t folder;
    for (const case_t& one : ready.task.cases) {
        auto& references = ready.references.emplace_back(one.seeds.size());
        for (size_t seed = 0; seed < one.seeds.size() && !one.reference.empty(); ++seed) {
            references[seed] = reference_of(
                ready, one, seed,
                folder.path() / (std::to_string(ready.references.size()) + "-" + std::to_string(seed)));
        }
    }
    malloc_trim(0); // each process gets what is kept
    return ready;
}

std::vector<student_result_t> grade_class(const ready_task_t& ready,
                                          const std::vector<submission_t>& submissions,
                                          const grading_options_t& options,
                                          const std::function<bool(const student_result_t&)>& done) {
    const folder_t folder;
    std::vector<attempt_t> attempts;
    attempts.reserve(submissions.size());
    for (const submission_t& submission : submissions) {
        attempts.push_back({&ready,
                            &submission,
                            folder.path() / std::to_string(attempts.size()),
                            !options.pictures_folder.empty(),
                            {}});
    }
    const ended_t not_begun = {ending_e::FAILED, {}, "the grading was ended", 0};
    std::vector<student_result_t> results;
    std::transform(attempts.begin(), attempts.end(), std::back_inserter(results),
                   [&](const attempt_t& attempt) { return result_of(attempt, not_begun); });
    std::vector<size_t> slow;
    bool goes_on = true;
    const auto clear = [&](size_t number) {
        std::error_code ignored;
        std::filesystem::remove_all(attempts[number].folder, ignored);
    };
    const auto finish = [&](size_t number) {
        take_pictures(results[number], attempts[number], options.pictures_folder);
        clear(number);
        goes_on = done(results[number]);
    };
    run_many(
        submissions.size(), options.at_once, bounds_of(ready.task, {}),
        [&](size_t number) { return work_of(attempts[number]); },
        [&](size_t number, const ended_t& ended) {
            results[number] = result_of(attempts[number], ended);
            if (is_slow(results[number]) || ended.ending == ending_e::OUT_OF_TIME) {
                slow.push_back(number);
                clear(number);
            } else {
                finish(number);
            }
            return goes_on;
        });
    // Alone, so that nobody's limit is met for what others do.
    std::sort(slow.begin(), slow.end());
    for (const size_t number : slow) {
        attempt_t& attempt = attempts[number];
        attempt.effort.times = PATIENCE;
        const ended_t ended = goes_on && !is_end_asked()
                                  ? run_apart(bounds_of(ready.task, attempt.effort), work_of(attempt))
                                  : not_begun;
        results[number] = result_of(attempt, ended);
        if (goes_on && !is_end_asked()) {
            finish(number);
        }
    }
    return results;
}
