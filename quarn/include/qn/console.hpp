// Where the library's console text goes. The library has no console of its own: the host installs a
// sink, and without one the text goes to standard output.
//
// One thread only.
#pragma once

#include <string_view>

namespace QN {

/// Receives console text, which may hold several lines or a part of one. `context` is what was
/// given to setConsoleSink(); `text` lives until the call returns.
using ConsoleSink = void (*)(void* context, std::string_view text);

/// Installs `sink` for the process; null puts back standard output. The caller keeps `context`
/// alive as long as the sink is installed.
void setConsoleSink(ConsoleSink sink, void* context) noexcept;

/// Writes `text` to the console as it is; no line end is added.
void consoleWrite(std::string_view text);

} // namespace QN
