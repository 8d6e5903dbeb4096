#include "process.hpp"

#include <array>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

/// Starts a program whose standard output is `output`, or ours if that is negative. Gives its
/// process id, or 0.
pid_t start(const std::vector<std::string>& command, int output) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (output >= 0) {
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    }
    pid_t child = 0;
    const int failure =
        posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failure != 0 ? 0 : child;
}

/// Waits for it; `used`, if not null, gets what it used.
int statusOf(pid_t child, rusage* used = nullptr) {
    int status = 0;
    wait4(child, &status, 0, used);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

int runProgram(const std::vector<std::string>& command) {
    const pid_t child = start(command, -1);
    return child == 0 ? 127 : statusOf(child);
}

double processorTimeOfProgram(const std::vector<std::string>& command) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const pid_t child = start(command, nowhere);
    close(nowhere);
    rusage used{};
    if (child == 0 || statusOf(child, &used) != 0) {
        throw std::runtime_error("this fails: " + command.front());
    }
    const auto nanoseconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_usec) * 1e3;
    };
    return nanoseconds(used.ru_utime) + nanoseconds(used.ru_stime);
}

std::string outputOfThisProgram(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {"/proc/self/exe"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t child = start(command, ends[1]);
    close(ends[1]);
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t got = 0; (got = read(ends[0], piece.data(), piece.size())) > 0;) {
        text.append(piece.data(), static_cast<std::size_t>(got));
    }
    close(ends[0]);
    if (child == 0 || statusOf(child) != 0) {
        throw std::runtime_error("a run of this program with other arguments failed: " +
                                 arguments.front());
    }
    return text;
}

} // namespace bench
