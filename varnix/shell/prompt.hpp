// The interactive command line: reads, runs, prints, until `exit` or the end of input.
//
// On a terminal: line editing, history kept between sessions, completion, Ctrl-C. Where standard
// input is no terminal, the same without prompts: one statement after the other is read and run.
#pragma once

namespace varnix {

class Interpreter;

/// Runs the interactive command line and returns the process's exit status: what `exit` was given;
/// else 0, or 1 when standard input is no terminal and one of the statements failed.
int runPromptLoop(Interpreter& interpreter);

} // namespace varnix
