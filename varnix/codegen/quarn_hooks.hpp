// What the host installs in the IR library, which knows nothing of its host: where console text
// goes and how a failed assertion is reported.
#pragma once

namespace varnix {

/// Installs the console sink and the assertion handler. A failed assertion prints one line on the
/// console, "QUARN assertion failed: MESSAGE (FILE:LINE)", and execution goes on.
void installQuarnHooks();

} // namespace varnix
