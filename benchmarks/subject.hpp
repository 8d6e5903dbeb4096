// A subject: one way for a program in C++ and a script to reach the same native object. Ours is
// one; the peers are others.
//
// Why it exists: every subject exposes the same Statistics object (statistics.hpp) and runs the
// same operations, so the tables compare like with like. To extend: a new operation is one
// enumerator, one row of `operations`, and one case in every subject, which the compiler asks for.
#pragma once

#include "measure.hpp"

#include <array>
#include <cstddef>
#include <memory>
#include <string>

namespace bench {

enum class Operation {
    getBool,
    setBool,
    getInt32,
    setInt32,
    getUint64,
    setUint64,
    getString,
    setString,    ///< a value made before
    setNewString, ///< the value is made of characters each time
    getStrings,
    getObject,
    voidCall,
    stringCall,
    construct,
    getObjects1000,
    getObjects100000,
    emptyLoop, ///< from a script only: what a turn of the loop costs
};

/// An operation, the name of its row, and the name of the script function that loops over it; null
/// when a script has no such operation.
struct OperationName {
    Operation operation;
    const char* row;
    const char* function;
};

inline constexpr std::array<OperationName, 17> operations = {{
    {Operation::emptyLoop, "empty turn of the loop", "empty_turn"},
    {Operation::getBool, "get bool", "get_bool"},
    {Operation::setBool, "set bool", "set_bool"},
    {Operation::getInt32, "get int32", "get_int32"},
    {Operation::setInt32, "set int32", "set_int32"},
    {Operation::getUint64, "get uint64", "get_uint64"},
    {Operation::setUint64, "set uint64", "set_uint64"},
    {Operation::getString, "get short string", "get_string"},
    {Operation::setString, "set short string", "set_string"},
    {Operation::setNewString, "make and set short string", nullptr},
    {Operation::getStrings, "list of 10 strings", "get_strings"},
    {Operation::getObject, "live object", "get_object"},
    {Operation::voidCall, "void call", "void_call"},
    {Operation::stringCall, "string call", "string_call"},
    {Operation::construct, "construct, destroy", "construct"},
    {Operation::getObjects1000, "1,000 live objects", "get_objects"},
    {Operation::getObjects100000, "100,000 live objects", "get_objects"},
}};

/// The name of the script function that loops over `operation`, or null.
const char* scriptFunction(Operation operation);

/// How many live objects the Statistics object of this operation has: none for most.
constexpr std::size_t liveObjects(Operation operation) {
    return operation == Operation::getObjects1000     ? 1'000
           : operation == Operation::getObjects100000 ? 100'000
                                                      : 0;
}

class Subject {
public:
    Subject() = default;
    Subject(const Subject&) = delete;
    Subject& operator=(const Subject&) = delete;
    virtual ~Subject() = default;

    /// The title of the subject's column.
    virtual std::string name() const = 0;

    /// Checks that the operations do what they are said to do: values arrive, the same native
    /// object has the same handle. Throws std::runtime_error when something is wrong.
    virtual void verify() = 0;

    /// The operation, from C++ through the subject's own interface, names resolved beforehand.
    /// Empty when there is none.
    virtual Loop fromNative(Operation operation) = 0;

    /// The operation, from a loop of the subject's own language; one turn is one operation.
    virtual Loop fromScript(Operation operation) = 0;
};

/// Our side: the host with a class declared by the module's framework.
std::unique_ptr<Subject> makeVarnix();

/// The peers. The two CPython ones and pybind11 share one interpreter.
std::unique_ptr<Subject> makeCPython();         ///< hand-written type, reached by interned names
std::unique_ptr<Subject> makeCPythonResolved(); ///< the same, reached by descriptors found before
std::unique_ptr<Subject> makePybind11();
std::unique_ptr<Subject> makeLua();

/// Throws std::runtime_error("SUBJECT: WHAT") unless `holds`.
void require(bool holds, const Subject& subject, const char* what);

} // namespace bench
