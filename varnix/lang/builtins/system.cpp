// Built-in functions on the machine around the program: other programs, the environment, time.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"
#include "lang/interpreter.hpp"
#include "shell/console.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/wait.h>
#include <thread>

namespace varnix::builtins {
namespace {

using Clock = std::chrono::steady_clock;

/// Runs a command by /bin/sh; what it prints is a result, or goes to the console where nobody
/// takes that. Its error output is the program's own.
void shell(BuiltinCall& call) {
    const Arguments in(call);
    const std::string command = in.path(0);
    console::flush();
    std::FILE* const pipe = ::popen(command.c_str(), "re");
    if (!pipe)
        in.failWith(id::ioError, fmt::format("cannot run {}: {}", command, std::strerror(errno)));
    std::string output;
    char buffer[16384];
    while (const std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe)) {
        if (call.requested < 2)
            console::print({buffer, n});
        else
            output.append(buffer, n);
    }
    const int ended = ::pclose(pipe);
    const int status = WIFEXITED(ended) ? WEXITSTATUS(ended) : 128 + WTERMSIG(ended);
    call.give(Value::ofDouble(status));
    if (call.requested > 1)
        call.give(Value::text(output));
}

/// The name of an environment variable.
[[nodiscard]] std::string variableName(const Arguments& in) {
    std::string name = in.path(0);
    if (name.find('=') != std::string::npos)
        in.bad(0, "holds the character =");
    return name;
}

void getenv_(BuiltinCall& call) {
    const char* const value = std::getenv(variableName(Arguments(call)).c_str());
    call.give(Value::text(value ? value : ""));
}

void setenv_(BuiltinCall& call) {
    const Arguments in(call);
    const std::string name = variableName(in);
    const std::string value(in.text(1));
    if (value.find('\0') != std::string::npos)
        in.bad(1, "holds a NUL character");
    if (::setenv(name.c_str(), value.c_str(), 1) != 0)
        in.failWith(id::ioError, std::strerror(errno));
}

/// The moment of the last tic without a result; the start of the program before that.
Clock::time_point stopwatch = Clock::now();

[[nodiscard]] std::uint64_t nanoseconds(Clock::time_point t) {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(t.time_since_epoch()).count());
}

void tic(BuiltinCall& call) {
    const Clock::time_point now = Clock::now();
    if (call.requested == 0)
        stopwatch = now;
    else
        call.give(Value::ofUInt64(nanoseconds(now)));
}

void toc(BuiltinCall& call) {
    const Clock::time_point now = Clock::now();
    const Arguments in(call);
    if (in.has(0) && in[0].tag() != Tag::UInt64)
        in.wrongType(0, "a result of tic");
    const std::uint64_t started = in.has(0) ? in[0].asUnsigned() : nanoseconds(stopwatch);
    if (started > nanoseconds(now))
        in.bad(0, "is no result of tic");
    call.give(Value::ofDouble(static_cast<double>(nanoseconds(now) - started) * 1e-9));
}

void now(BuiltinCall& call) {
    const auto since = std::chrono::system_clock::now().time_since_epoch();
    call.give(Value::ofDouble(std::chrono::duration<double>(since).count()));
}

void timestamp(BuiltinCall& call) {
    const Arguments in(call);
    const double seconds = in.has(0) ? in.real(0) : static_cast<double>(std::time(nullptr));
    if (!(std::fabs(seconds) < 1e11))
        in.bad(0, "is no time in seconds since 1970");
    const auto whole = static_cast<std::time_t>(std::floor(seconds));
    std::tm parts = {};
    ::localtime_r(&whole, &parts);
    char text[64];
    const std::size_t n = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    call.give(Value::text({text, n}));
}

void pause(BuiltinCall& call) {
    const Arguments in(call);
    const double seconds = in.real(0);
    if (!(seconds >= 0 && seconds <= 1e9))
        in.bad(0, "must be a number of seconds from 0 to 1e9");
    console::flush();
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(seconds));
    for (;;) { // in short turns, so that an interrupt is heard
        Interpreter::checkInterrupt();
        const auto left = end - Clock::now();
        if (left <= Clock::duration::zero())
            return;
        std::this_thread::sleep_for(std::min<Clock::duration>(left, std::chrono::milliseconds(20)));
    }
}

constexpr Builtin table[] = {
    {"shell", "shell(command)",
     "Runs a command by /bin/sh and gives its exit status, 128 and the signal's number where one "
     "ended it; the second result is what it printed, which else goes to the console.\n"
     "Example: shell(\"exit 3\") gives 3",
     1, 1, 2, shell},
    {"getenv", "getenv(name)",
     "The value of an environment variable, \"\" where there is none.\n"
     "Example: istext(getenv(\"HOME\")) gives true",
     1, 1, 1, getenv_},
    {"setenv", "setenv(name, value)",
     "Sets an environment variable of this program and of those it starts.", 2, 2, 0, setenv_},
    {"tic", "tic",
     "Starts the stopwatch; with a result gives the moment, for toc, and leaves the stopwatch.\n"
     "Example: class(tic) gives \"uint64\"",
     0, 0, 1, tic},
    {"toc", "toc or toc(start)",
     "The seconds since tic, or since the moment that a tic gave.\nExample: toc(tic) >= 0 gives "
     "true",
     0, 1, 1, toc},
    {"now", "now", "The time in seconds since 1970.\nExample: now > 1e9 gives true", 0, 0, 1, now},
    {"timestamp", "timestamp(seconds)",
     "A time in seconds since 1970, now without an argument, as local date and time.\n"
     "Example: length(timestamp) gives 19",
     0, 1, 1, timestamp},
    {"pause", "pause(seconds)", "Waits; an interrupt ends the wait.", 1, 1, 0, pause},
};

} // namespace

Table system() {
    return table;
}

} // namespace varnix::builtins
