#include "grade/command.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "base/files.h"
#include "base/machine.h"
#include "base/text.h"
#include "grade/process.h"
#include "language/characters.h"

namespace {

constexpr const char* OUTPUT = "output.txt"; // in the current folder
constexpr size_t LONGEST_OUTPUT = 2000;      // bytes, that are shown
constexpr size_t MEMORY_BYTES = size_t{4} << 30;
constexpr size_t FILE_BYTES = size_t{64} << 20;
constexpr int SIGNALLED = 128;

// Returns the exit status.
int start_and_wait(const std::vector<std::string>& words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files{};
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, OUTPUT, O_WRONLY | O_CREAT | O_TRUNC,
                                     NEW_FILE_MODE);
    posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, arguments[0], &files, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        throw tovik_error("can't start " + words.front() + ": " + system_error_text(error));
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? SIGNALLED + WTERMSIG(status) : WEXITSTATUS(status);
}

// Its lines as a screen shows them, in UTF-8: what it prints may be what a student has sent.
std::string beginning_of_output() {
    std::ifstream file(OUTPUT, std::ios::binary);
    std::string bytes(LONGEST_OUTPUT, '\0');
    file.read(bytes.data(), LONGEST_OUTPUT);
    bytes.resize(static_cast<size_t>(file.gcount()));
    std::string text;
    std::istringstream lines(bytes);
    for (std::string line; std::getline(lines, line);) {
        line.erase(line.find_last_not_of(WHITE_SPACE) + 1);
        std::replace(line.begin(), line.end(), '\t', ' ');
        text += readable(line) + "\n";
    }
    return text.erase(text.find_last_not_of('\n') + 1);
}

} // namespace

command_result_t run_command(const command_rule_t& rule) {
    const int seconds = static_cast<int>(std::ceil(rule.seconds));
    const ended_t ended = run_apart({seconds, seconds, MEMORY_BYTES, FILE_BYTES},
                                    [&] { return std::to_string(start_and_wait(rule.words)); });
    if (ended.ending == ending_e::FAILED) {
        throw tovik_error(ended.why);
    }
    if (ended.ending == ending_e::OUT_OF_TIME) {
        return {SIGNALLED + SIGXCPU, "takes longer than " + std::to_string(seconds) + " s"};
    }
    return {std::stoi(ended.answer), beginning_of_output()};
}
