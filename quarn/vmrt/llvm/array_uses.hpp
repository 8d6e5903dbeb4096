// How the array values of a function are used, which decides whether reading an array variable
// copies anything. No LLVM here.
#pragma once

#include <qn/function.hpp>

#include <cstdint>
#include <unordered_set>
#include <vector>

namespace QN::VMRT {

class ArrayUses {
public:
    explicit ArrayUses(const Cfg& cfg);

    /// The variable as which the value of a load may be used, since nothing changes the variable
    /// until the value's last use; null for other nodes.
    [[nodiscard]] const Var* aliasOf(const Node& node) const noexcept {
        return aliases_[node.id()];
    }
    /// The node of the same block after which the value is not used any more; null if it is used
    /// in other blocks, too.
    [[nodiscard]] const Node* lastUse(const Node& node) const noexcept {
        return lastUses_[node.id()];
    }
    /// Whether the address of a variable is taken, so that it must lie in memory.
    [[nodiscard]] bool hasAddress(const Var& var) const noexcept { return inMemory_[var.id()]; }
    /// Whether anything but its first value is ever in a variable.
    [[nodiscard]] bool isChanged(const Var& var) const noexcept { return changed_[var.id()]; }

private:
    void study(const Node& node);

    std::vector<const Var*> aliases_;   // by node id
    std::vector<const Node*> lastUses_; // by node id
    std::vector<bool> inMemory_;        // by variable id
    std::vector<bool> changed_;         // by variable id
};

} // namespace QN::VMRT
