// Files of generated code in the folder of the debug log.
#pragma once

#include <string>
#include <string_view>

namespace QN::VMRT {

/// Writes `text` into a new file of the debug log, FUNCTION[-PID]-NNNN.ENDING. What goes wrong is
/// said on the console; the compilation goes on.
void writeDump(const std::string& function, const std::string& ending, std::string_view text);

} // namespace QN::VMRT
