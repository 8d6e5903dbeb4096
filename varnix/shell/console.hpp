// The console: the one place where the process's console text goes out.
//
// Built-ins, hvxPrintf, utPrintf and the prompt's echo all print here. Text goes to standard
// output, flushed at each line end on a terminal and at exit; a capture on top of the stack takes
// it instead. Error texts of the command line do not pass here; they go to standard error.
#pragma once

#include <string>
#include <string_view>

namespace varnix::console {

/// Prints text as it stands.
void print(std::string_view text);
/// Prints a line end, unless the console text so far ends with one.
void endLine();
/// Sends everything on its way; call before the process ends or another one starts.
void flush();

/// While it lives, console text is collected here. Captures nest; the innermost takes the text.
class Capture {
public:
    Capture();
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;
    [[nodiscard]] const std::string& text() const { return text_; }

private:
    friend void print(std::string_view text);

    std::string text_;
    Capture* below_;
};

} // namespace varnix::console
