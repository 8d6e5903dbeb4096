// Tells debuggers about code, through the interface that they watch for code made at run time.
#pragma once

#include <memory>
#include <string>

namespace QN::VMRT {

/// While it lives, a debugger knows the functions of one object. `object` is an ELF file in which
/// the sections have the addresses at which they are loaded.
class DebuggerRegistration {
public:
    explicit DebuggerRegistration(std::string object);
    DebuggerRegistration(const DebuggerRegistration&) = delete;
    DebuggerRegistration& operator=(const DebuggerRegistration&) = delete;
    ~DebuggerRegistration();

private:
    struct Entry;
    std::unique_ptr<Entry> entry_;
};

} // namespace QN::VMRT
