// See line_editor.hpp.
#include "shell/line_editor.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <histedit.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace varnix {

namespace {

constexpr int historyLength = 5000;

std::size_t terminalWidth() {
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

/// Keeps interrupt signals, which can only come from another process while a line is edited,
/// waiting until the terminal is in order again.
class InterruptsHeld {
public:
    InterruptsHeld() {
        sigset_t interrupt;
        sigemptyset(&interrupt);
        sigaddset(&interrupt, SIGINT);
        sigprocmask(SIG_BLOCK, &interrupt, &before_);
    }
    ~InterruptsHeld() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    InterruptsHeld(const InterruptsHeld&) = delete;
    InterruptsHeld& operator=(const InterruptsHeld&) = delete;

private:
    sigset_t before_ = {};
};

/// Prints names in columns, read downwards.
void printColumns(const std::vector<std::string>& names) {
    std::size_t longest = 0;
    for (const std::string& name : names)
        longest = std::max(longest, name.size());
    const std::size_t width = longest + 2;
    const std::size_t columns = std::max<std::size_t>(1, terminalWidth() / width);
    const std::size_t rows = (names.size() + columns - 1) / columns;
    std::string text = "\n";
    for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t i = row; i < names.size(); i += rows) {
            text += names[i];
            if (i + rows < names.size())
                text.append(width - names[i].size(), ' ');
        }
        text += '\n';
    }
    std::fputs(text.c_str(), stdout);
}

} // namespace

struct LineEditor::State {
    const NameWorld& world;
    std::string historyPath;
    std::string prompt;
    Place place = Place::Start;
    bool cancelled = false;
    EditLine* editor = nullptr;
    History* history = nullptr;
    HistEvent event = {};

    State(const NameWorld& w, std::string path) : world(w), historyPath(std::move(path)) {}
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() {
        if (editor != nullptr)
            el_end(editor);
        if (history != nullptr)
            history_end(history);
    }
};

namespace {

LineEditor::State& stateOf(EditLine* editor) {
    void* data = nullptr;
    el_get(editor, EL_CLIENTDATA, &data);
    return *static_cast<LineEditor::State*>(data);
}

char* promptText(EditLine* editor) {
    return stateOf(editor).prompt.data();
}

/// Tab: inserts what all candidates share, or shows them.
unsigned char onComplete(EditLine* editor, int /*key*/) {
    const LineInfo* const line = el_line(editor);
    const std::string_view text(line->buffer,
                                static_cast<std::size_t>(line->lastchar - line->buffer));
    const auto cursor = static_cast<std::size_t>(line->cursor - line->buffer);
    const bool blank = text.substr(0, cursor).find_first_not_of(" \t") == std::string_view::npos;
    if (blank && (cursor > 0 || stateOf(editor).place == LineEditor::Place::InBlock))
        return el_insertstr(editor, "    ") == 0 ? CC_REFRESH : CC_ERROR; // indents
    Completion completion;
    try {
        completion = complete(text, cursor, stateOf(editor).world);
    } catch (const std::exception&) {
        return CC_ERROR; // libedit is C: nothing may pass through it
    }
    if (completion.candidates.empty())
        return CC_ERROR;
    const std::string rest = completion.common().substr(cursor - completion.start);
    if (!rest.empty())
        return el_insertstr(editor, rest.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    if (completion.candidates.size() == 1)
        return CC_ERROR; // complete already
    printColumns(completion.candidates);
    return CC_REDISPLAY;
}

/// Ctrl-C: ends the line; read() sees the flag.
unsigned char onCancel(EditLine* editor, int /*key*/) {
    stateOf(editor).cancelled = true;
    std::fputs("^C\n", stdout);
    return CC_NEWLINE;
}

/// Ctrl-Z: gives the terminal back as it was, and stops the process until it is continued.
unsigned char onSuspend(EditLine* editor, int /*key*/) {
    el_set(editor, EL_PREP_TERM, 0);
    std::raise(SIGTSTP);
    el_set(editor, EL_PREP_TERM, 1);
    return CC_REDISPLAY;
}

} // namespace

LineEditor::LineEditor(const NameWorld& world, std::string historyPath)
    : state_(std::make_unique<State>(world, std::move(historyPath))) {
    State& state = *state_;
    state.history = history_init();
    history(state.history, &state.event, H_SETSIZE, historyLength);
    history(state.history, &state.event, H_SETUNIQUE, 1);
    if (!state.historyPath.empty())
        history(state.history, &state.event, H_LOAD, state.historyPath.c_str());

    state.editor = el_init("varnix", stdin, stdout, stderr);
    if (state.editor == nullptr)
        return;
    EditLine* const editor = state.editor;
    el_set(editor, EL_CLIENTDATA, &state);
    el_set(editor, EL_PROMPT, promptText);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_SIGNAL, 1);
    el_set(editor, EL_HIST, history, state.history);
    el_set(editor, EL_ADDFN, "varnix-complete", "Complete the name", onComplete);
    el_set(editor, EL_ADDFN, "varnix-cancel", "Drop the line", onCancel);
    el_set(editor, EL_ADDFN, "varnix-suspend", "Stop until continued", onSuspend);
    el_set(editor, EL_BIND, "^I", "varnix-complete", nullptr);
    el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    // While a line is edited Ctrl-C and Ctrl-Z are keys; while a script runs they are signals.
    el_set(editor, EL_SETTY, "-d", "-isig", nullptr);
    el_set(editor, EL_BIND, "^C", "varnix-cancel", nullptr);
    el_set(editor, EL_BIND, "^Z", "varnix-suspend", nullptr);
    el_source(editor, nullptr); // a person's own ~/.editrc
}

LineEditor::~LineEditor() = default;

LineEditor::Outcome LineEditor::read(const std::string& prompt, Place place, std::string& line) {
    State& state = *state_;
    line.clear();
    if (state.editor == nullptr)
        return Outcome::End;
    state.prompt = prompt;
    state.place = place;
    state.cancelled = false;
    const InterruptsHeld held;
    // Before the prompt shows: a person who sees it and presses Ctrl-C means the editor.
    el_set(state.editor, EL_PREP_TERM, 1);
    int count = 0;
    const char* const text = el_gets(state.editor, &count);
    const bool interrupted = text == nullptr && count < 0 && errno == EINTR;
    if (state.cancelled || interrupted)
        return Outcome::Cancelled;
    if (text == nullptr || count <= 0)
        return Outcome::End;
    line.assign(text, static_cast<std::size_t>(count));
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.pop_back();
    return Outcome::Line;
}

void LineEditor::remember(const std::string& line) {
    if (line.find_first_not_of(" \t") == std::string::npos)
        return;
    State& state = *state_;
    history(state.history, &state.event, H_ENTER, line.c_str());
    if (!state.historyPath.empty())
        history(state.history, &state.event, H_SAVE, state.historyPath.c_str());
}

std::string historyFile() {
    namespace fs = std::filesystem;
    const char* const state = std::getenv("XDG_STATE_HOME");
    const char* const home = std::getenv("HOME");
    fs::path folder;
    if (state != nullptr && *state == '/')
        folder = state;
    else if (home != nullptr && *home == '/')
        folder = fs::path(home) / ".local" / "state";
    else
        return {};
    folder /= "varnix";
    std::error_code ignored;
    fs::create_directories(folder, ignored);
    return (folder / "history").string();
}

} // namespace varnix
