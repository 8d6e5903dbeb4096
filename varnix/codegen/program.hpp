// One compilation: a script function with the types of its arguments, and all that it calls.
//
// An Instance is one function with one list of argument types. Its types are found by translating
// its bytecode without a graph until nothing changes; then each instance is translated once more
// into a function of the IR.
#pragma once

#include "codegen/operations.hpp"
#include "lang/bytecode.hpp"
#include "lang/names.hpp"

#include <qn/scope.hpp>

#include <deque>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace varnix::codegen {

/// What is known of a register at one place of the bytecode.
struct RegisterState {
    enum class Status : std::uint8_t {
        Unset,
        Set,
        Unknown, ///< different things on different ways here; not to be read
        Loop,    ///< the first register of a loop's state
    };
    Status status = Status::Unset;
    ValueType type;                  ///< Set; Loop: of the variable
    bool isText = false;             ///< Set, with `constant`
    const Value* constant = nullptr; ///< Set: what it is, if that is known
    bool isUncut = false;            ///< Loop: its last value is one like the others

    friend bool operator==(const RegisterState&, const RegisterState&) = default;
};
using State = std::vector<RegisterState>;

/// A function that a name meant when the compilation looked.
struct Dependency {
    objsys::COSNameID name;
    const Unit* unit = nullptr;
    std::uint64_t script = 0; ///< the serial number of its code; 0: a built-in
    const Builtin* builtin = nullptr;
};

struct Instance {
    const Code* code = nullptr;
    std::vector<ValueType> arguments;
    std::size_t requested = 1; ///< results that the caller takes; 0 or more

    /// Once a way to a return is known.
    bool returns = false;
    std::vector<ValueType> results;

    /// By the index of the instruction that a block begins with.
    struct Block {
        std::uint32_t begin = 0;
        std::uint32_t end = 0; ///< one behind its last instruction
        bool isReached = false;
        bool isQueued = false;
        State in;
    };
    std::vector<Block> blocks;
    std::vector<std::uint32_t> blockAt; ///< by instruction; only valid at the begin of blocks

    std::set<Instance*> callers;
    bool isQueued = false;
    std::string name;                 ///< in the IR
    QN::Function* function = nullptr; ///< in the IR
};

class Program {
public:
    explicit Program(NameResolver& names) : names_(names) {}

    /// Finds the types of the entry and of all that it calls. Throws Outside.
    Instance& analyse(const Code& code, std::vector<ValueType> arguments, std::size_t requested);
    /// Writes all instances into `unit`; returns the entry's function.
    QN::Function& write(QN::Scope& unit);

    // For the translation.
    [[nodiscard]] NameResolver::Found resolve(objsys::COSNameID name, const Unit* unit);
    [[nodiscard]] Instance& instance(const Code& code, std::vector<ValueType> arguments,
                                     std::size_t requested);
    /// The instance's results have changed: who calls it must be looked at again.
    void resultsChanged(Instance& instance);

    [[nodiscard]] const std::vector<Dependency>& dependencies() const { return dependencies_; }
    [[nodiscard]] const std::deque<Instance>& instances() const { return instances_; }

private:
    void enqueue(Instance& instance);
    void nameInstances();

    NameResolver& names_;
    std::deque<Instance> instances_; // the entry first
    std::vector<Instance*> queue_;
    std::vector<Dependency> dependencies_;
};

/// How many values the returns give that code can reach: least and most.
struct ReturnCounts {
    std::size_t least = 0;
    std::size_t most = 0;
};
[[nodiscard]] ReturnCounts countReturns(const Code& code);

} // namespace varnix::codegen
