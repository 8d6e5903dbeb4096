#include "shell/console.hpp"

#include <cstdio>
#include <unistd.h>

namespace varnix::console {

namespace {

Capture* innermost = nullptr; // the captures form a stack, held by their own scopes

bool atLineStart = true; // where the text that went out so far left the cursor

/// Standard output's own buffer does the work: by line on a terminal, by block elsewhere.
bool isTerminal() {
    static const bool terminal = ::isatty(STDOUT_FILENO) != 0;
    return terminal;
}

} // namespace

void print(std::string_view text) {
    if (innermost) {
        innermost->text_ += text;
        return;
    }
    if (!text.empty())
        atLineStart = text.back() == '\n';
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (isTerminal() && text.find('\n') != std::string_view::npos)
        std::fflush(stdout);
}

void endLine() {
    if (!atLineStart)
        print("\n");
}

void flush() {
    std::fflush(stdout);
}

Capture::Capture() : below_(innermost) {
    innermost = this;
}

Capture::~Capture() {
    innermost = below_;
}

} // namespace varnix::console
