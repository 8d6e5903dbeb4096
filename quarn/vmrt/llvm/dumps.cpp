// See dumps.hpp.
#include "vmrt/llvm/dumps.hpp"

#include "services/output_file.hpp"

#include <qn/default_services.hpp>
#include <ts/debug_log.hpp>

namespace QN::VMRT {

void writeDump(const std::string& function, const std::string& ending, std::string_view text) {
    static detail::FileWriter file; // says once what goes wrong
    static_cast<void>(file.write(
        DefaultServices::debugServices().debugLog().logFilePath(function, ending), text));
}

} // namespace QN::VMRT
