// One line from a person at a terminal: editing, history and completion by libedit.
#pragma once

#include "shell/completion.hpp"

#include <memory>
#include <string>

namespace varnix {

class LineEditor {
public:
    enum class Outcome {
        Line,      ///< a line was entered
        Cancelled, ///< Ctrl-C: what was typed is dropped
        End,       ///< Ctrl-D on an empty line, or the terminal is gone
    };

    /// Edits on standard input and output, which are a terminal. `world` must outlive the editor.
    /// History comes from `historyFile` and goes there after each line; with an empty name, or
    /// where the file cannot be read or written, it lasts as long as the editor.
    LineEditor(const NameWorld& world, std::string historyFile);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    enum class Place { Start, InBlock };

    /// Shows `prompt` and reads one line, given without its line end. At the beginning of a line
    /// Tab shows every name at the start of a statement, and indents inside a block.
    Outcome read(const std::string& prompt, Place place, std::string& line);
    /// Adds a line to the history, unless it is blank or repeats the last one.
    void remember(const std::string& line);

    struct State;

private:
    std::unique_ptr<State> state_;
};

/// Where the history is kept: $XDG_STATE_HOME/varnix/history, ~/.local/state/varnix/history; empty
/// when there is no home. Makes the folder.
[[nodiscard]] std::string historyFile();

} // namespace varnix
