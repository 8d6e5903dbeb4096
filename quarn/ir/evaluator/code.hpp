// What the evaluator runs: one function as a flat list of instructions over numbered places.
//
// Scalars and pointers live in slots of 64 bits: constants first, then variables, then values.
// Arrays live in places of their own: aggregate variables, then array values.
#pragma once

#include <qn/evaluator.hpp>
#include <qn/function.hpp>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace QN::evaluator {

enum class Code : std::uint8_t {
    Move,      // dst = a
    MoveArray, // array dst = array a
    AddressOf, // dst = address of slot a
    AddressOfArray,
    LoadThrough,
    StoreThrough,
    LoadArrayThrough,
    StoreArrayThrough,
    AddDouble,
    SubDouble,
    MulDouble,
    DivDouble,
    NegDouble,
    EqDouble,
    NeDouble,
    LtDouble,
    LeDouble,
    GtDouble,
    GeDouble,
    AndLogical,
    OrLogical,
    NotLogical,
    Select,
    SelectArray,
    Scalar, // any other operation on scalars, by computeScalar()
    IndexOfDouble,
    IndexOfInteger,
    NewArray,
    Rows,
    Cols,
    Numel,
    LoadElement,
    LoadElementDouble,
    StoreElement,
    StoreElementDouble,
    Resize,
    CheckBounds,
    CheckZero,
    CheckLossy,
    Count,
    Call,
    Jump,
    Branch,
    Return,
    ReturnArray,
    ReturnNothing,
    Trap
};

/// How the aggregate of an instruction is named.
enum class Via : std::uint8_t { Place, Pointer };

struct Instruction {
    Code code;
    Op op;                    // Scalar
    Mode mode;                // Scalar
    Via via = Via::Place;     // element accesses, sizes, resize
    bool twoIndices = false;  // element accesses
    ScalarKind operandKind{}; // Scalar, IndexOf..., checks
    ScalarKind resultKind{};  // Scalar, NewArray
    std::uint32_t dst = 0;    // slot or array place; block of a branch's other side
    std::uint32_t a = 0;
    std::uint32_t b = 0;
    std::uint32_t c = 0;
    std::uint32_t d = 0;
    std::uint32_t line = 0;
};

/// An argument or result of a call.
struct Place {
    bool isArray;
    std::uint32_t index;
    const Type* type;
};

struct CallSite {
    std::string callee;
    std::vector<Place> arguments;
    bool hasResult;
    Place result;
};

struct Program {
    const Function* function;
    std::vector<Instruction> instructions;
    std::vector<CallSite> calls;
    std::vector<std::uint64_t> initialSlots; // constants, and zeros for the rest
    std::vector<ScalarKind> arrayKinds;      // by array place
    std::vector<Place> params;
    std::vector<std::uint64_t> counters;
};

/// Decodes a function; throws EvaluationError for IR that cannot be run.
[[nodiscard]] Program decode(const Function& function);

} // namespace QN::evaluator
