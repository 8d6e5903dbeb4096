// The list that debuggers read, and the function at which they put a breakpoint. Both are LLVM's: a
// process has one of each.
#include "vmrt/llvm/debugger.hpp"

#include <cstdint>
#include <utility>

// The interface is declared in gdb's manual, "JIT Compilation Interface".
extern "C" {
struct jit_code_entry {
    jit_code_entry* next_entry;
    jit_code_entry* prev_entry;
    const char* symfile_addr;
    std::uint64_t symfile_size;
};
struct jit_descriptor {
    std::uint32_t version;
    std::uint32_t action_flag; // 0 nothing, 1 a new entry, 2 an entry goes
    jit_code_entry* relevant_entry;
    jit_code_entry* first_entry;
};
extern jit_descriptor __jit_debug_descriptor; // NOLINT: the name that debuggers look for
void __jit_debug_register_code();             // NOLINT
}

namespace QN::VMRT {

struct DebuggerRegistration::Entry {
    std::string object;
    jit_code_entry node{};
};

DebuggerRegistration::DebuggerRegistration(std::string object)
    : entry_(std::make_unique<Entry>(Entry{std::move(object), {}})) {
    jit_code_entry& node = entry_->node;
    node.symfile_addr = entry_->object.data();
    node.symfile_size = entry_->object.size();
    node.next_entry = __jit_debug_descriptor.first_entry;
    if (node.next_entry != nullptr) {
        node.next_entry->prev_entry = &node;
    }
    __jit_debug_descriptor.first_entry = &node;
    __jit_debug_descriptor.relevant_entry = &node;
    __jit_debug_descriptor.action_flag = 1;
    __jit_debug_register_code();
}

DebuggerRegistration::~DebuggerRegistration() {
    jit_code_entry& node = entry_->node;
    if (node.prev_entry != nullptr) {
        node.prev_entry->next_entry = node.next_entry;
    } else {
        __jit_debug_descriptor.first_entry = node.next_entry;
    }
    if (node.next_entry != nullptr) {
        node.next_entry->prev_entry = node.prev_entry;
    }
    __jit_debug_descriptor.relevant_entry = &node;
    __jit_debug_descriptor.action_flag = 2;
    __jit_debug_register_code();
}

} // namespace QN::VMRT
