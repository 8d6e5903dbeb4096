// The machine's code: instructions, constants, and the sites at which it remembers what it found.
//
// A register machine. A function's registers are its named variables in the order of its scope,
// then temporaries. An instruction is eight bytes: an operation and three 16-bit operands, of which
// the last two make one 32-bit operand in some. What does not fit (calls, member accesses, indices)
// is described by a site, a record beside the code to which the instruction refers; a site also
// holds the inline cache of its place.
//
// Conventions in the comments below: R[x] a register, K[x] a constant; "value" operands that are an
// unassigned variable's register are looked up as a function or class of that name.
#pragma once

#include "lang/builtin.hpp"
#include "lang/source.hpp"
#include "lang/tree.hpp"
#include "value/ops.hpp"
#include "value/value.hpp"

#include <objsys/class.hpp>
#include <objsys/name_id.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace varnix {

// One row per operation; operands a, b, c, or w, which is b and c taken together.
#define VARNIX_OPERATIONS(X)                                                                       \
    X(LoadConstant) /* R[a] = K[w] */                                                              \
    X(Copy)         /* R[a] = value R[b] */                                                        \
    X(Move)         /* R[a] = R[b], a temporary, which becomes unset */                            \
    X(Clear)        /* R[a] becomes unset, and those up to R[a + w - 1] */                         \
    X(Add)          /* R[a] = value R[b] op value R[c], and so on */                               \
    X(Subtract)                                                                                    \
    X(Multiply)                                                                                    \
    X(Divide)                                                                                      \
    X(TimesElement)                                                                                \
    X(DivideElement)                                                                               \
    X(Power)                                                                                       \
    X(PowerElement)                                                                                \
    X(Equal)                                                                                       \
    X(NotEqual)                                                                                    \
    X(Less)                                                                                        \
    X(LessEqual)                                                                                   \
    X(Greater)                                                                                     \
    X(GreaterEqual)                                                                                \
    X(And)                                                                                         \
    X(Or)                                                                                          \
    X(AddConstant) /* R[a] = value R[b] op K[c], a double */                                       \
    X(SubtractConstant)                                                                            \
    X(MultiplyConstant)                                                                            \
    X(DivideConstant)                                                                              \
    X(Plus) /* R[a] = op value R[b] */                                                             \
    X(Negate)                                                                                      \
    X(Not)                                                                                         \
    X(Truth)      /* R[a] = truth of value R[b], a logical */                                      \
    X(Range)      /* R[a] = R[b] : R[b + 1] : R[b + 2] */                                          \
    X(Jump)       /* on by w */                                                                    \
    X(JumpBack)   /* on by w, which is negative; looks for an interrupt */                         \
    X(JumpIfTrue) /* on by w if value R[a] is true */                                              \
    X(JumpIfFalse)                                                                                 \
    X(TestEqual) /* if (value R[a] op value R[b]) == c the Jump that follows is taken */           \
    X(TestNotEqual)                                                                                \
    X(TestLess)                                                                                    \
    X(TestLessEqual)                                                                               \
    X(TestGreater)                                                                                 \
    X(TestGreaterEqual)                                                                            \
    X(TestEqualConstant) /* the same with K[b], a double */                                        \
    X(TestNotEqualConstant)                                                                        \
    X(TestLessConstant)                                                                            \
    X(TestLessEqualConstant)                                                                       \
    X(TestGreaterConstant)                                                                         \
    X(TestGreaterEqualConstant)                                                                    \
    X(CaseTest)      /* if value R[a] does not match value R[b] the Jump that follows is taken */  \
    X(ForRange)      /* R[a], R[a + 1], R[a + 2] first, step, last: gets ready, jumps by w */      \
    X(ForRangeStep)  /* R[a] loop state, R[b] variable; the Jump that follows while it lasts */    \
    X(ForEach)       /* R[a + 2] what to walk over: gets ready, jumps by w */                      \
    X(ForEachStep)   /* R[a] loop state, R[b] variable; the Jump that follows while it lasts */    \
    X(Join)          /* R[a] = [R[b], ...], c of them, which become unset */                       \
    X(Stack)         /* R[a] = [R[b]; ...] */                                                      \
    X(MakeCell)      /* R[a] = {R[b], ...} */                                                      \
    X(EndOf)         /* R[a] = what `end` means in index c & 255 of c >> 8 into value R[b] */      \
    X(EndOfTarget)   /* the same; R[b] is a variable, 0 when it is unset */                        \
    X(Index)         /* R[a] = value R[b] [ value R[c] ] */                                        \
    X(IndexConstant) /* R[a] = value R[b] [ K[c] ] */                                              \
    X(IndexTwo)      /* R[a] = value R[b] [ R[c], R[c + 1] ] */                                    \
    X(IndexSite)     /* as site w says */                                                          \
    X(Brace)         /* R[a] = value R[b] { value R[c] } */                                        \
    X(StoreIndex)    /* R[a] [ value R[b] ] = value R[c] */                                        \
    X(StoreIndexConstant) /* R[a] [ K[b] ] = value R[c] */                                         \
    X(StoreIndexTwo)      /* R[a] [ R[b], R[b + 1] ] = value R[c] */                               \
    X(StorePath)          /* as path site w says */                                                \
    X(GetMember)          /* R[a] = value R[b] . site c */                                         \
    X(SetMember)          /* R[a] . site c = value R[b] */                                         \
    X(CallMember)         /* as member site w says, with arguments */                              \
    X(Call)               /* as call site w says */                                                \
    X(CallValue)          /* calls the function value in call site w's window */                   \
    X(CallPath)           /* as name path site w says */                                           \
    X(MakeFunction)       /* R[a] = function w of this code with what it captures */               \
    X(MakeHandle)         /* R[a] = fn name, with the path of name path site w */                  \
    X(Return)             /* R[a] ..., w of them */                                                \
    X(Echo)               /* shows the variable R[a] */                                            \
    X(EchoResult)         /* if R[a] is set: the variable R[b] gets it, and is shown if c */       \
    X(CatchError)         /* R[a] = the error being handled */

enum class Op : std::uint16_t {
#define X(name) name,
    VARNIX_OPERATIONS(X)
#undef X
};

struct Instruction {
    Op op;
    std::uint16_t a = 0;
    std::uint16_t b = 0;
    std::uint16_t c = 0;

    [[nodiscard]] std::uint32_t wide() const { return b | (static_cast<std::uint32_t>(c) << 16); }
    [[nodiscard]] std::int32_t offset() const { return static_cast<std::int32_t>(wide()); }
    void setWide(std::uint32_t value) {
        b = static_cast<std::uint16_t>(value);
        c = static_cast<std::uint16_t>(value >> 16);
    }
};
static_assert(sizeof(Instruction) == 8);

class Code;

/// The value of a slot operand that names no variable.
inline constexpr Slot noSlot = 0xFFFF;

/// Registers that a loop keeps its state in; see loops.cpp.
inline constexpr std::size_t loopState = 5;
/// The one of them in which what is walked over lies.
inline constexpr std::size_t loopSubject = 2;

/// What a call of any kind has in common: arguments in R[window] ..., results to R[result] ...
struct CallShape {
    std::uint16_t window = 0;
    std::uint16_t arguments = 0;
    std::uint16_t result = 0;
    std::uint16_t requested = 0; ///< 0: a statement, whose value may be missing
};

/// name(arguments), or a name alone.
struct CallSite : CallShape {
    objsys::COSNameID name;
    Slot slot = noSlot;   ///< the variable that comes first if it has a value
    bool written = false; ///< with parentheses

    // Cache: what the name meant while `epoch` was the resolver's.
    std::uint64_t epoch = 0;
    const Code* script = nullptr;
    const Builtin* builtin = nullptr;
    // Cache: what the class of the first argument has under the name (null: nothing).
    objsys::COSClass* methodClass = nullptr;
    std::uint64_t methodGeneration = 0;
    const objsys::COSMethod* method = nullptr;
};

/// value.name, value.name(arguments), value.name = e
struct MemberSite : CallShape {
    objsys::COSNameID name;
    std::uint16_t base = 0; ///< of CallMember
    bool written = false;   ///< with parentheses

    // Cache: what the class has under the name; both null: unknown. A class that is withdrawn
    // leaves no valid instances behind, so a valid instance in hand vouches for the pointers.
    objsys::COSClass* cls = nullptr;
    const objsys::COSProperty* property = nullptr;
    const objsys::COSMethod* method = nullptr;
    /// Assignments: the property's setter, and the tag of the values that go to it as they are.
    objsys::factory::impl::Setter* setter = nullptr;
    Tag plainTag = noTag;
    static constexpr Tag noTag{0xff}; ///< that of no value
    /// The other assignments that need no more than a look: whole numbers and texts where they are
    /// declared. False: nothing was done, toDoor must decide.
    bool assignConverted(objsys::COSInterface* instance, const Value& value) const;
    /// Calls: `method` takes one object and nothing else, as this site calls it.
    bool plainCall = false;
};

/// a.b.c(arguments) with a root that is probably no variable.
struct NamePathSite : CallShape {
    std::vector<objsys::COSNameID> names;
    Slot slot = noSlot;   ///< the variable that comes first if it has a value
    bool written = false; ///< with parentheses

    // Cache: the class that the path begins with, and how many names it took.
    objsys::COSClass* cls = nullptr;
    std::uint64_t generation = 0;
    std::size_t taken = 0;
    /// Set when these are all names and there are no arguments: the constructor to call.
    const objsys::COSMethodInfo* constructor = nullptr;
};

/// R[result] = R[base] [ R[window], ... ] in its general form.
struct IndexShape {
    std::uint16_t base = 0;
    std::uint16_t window = 0;
    std::uint16_t result = 0;
    std::uint8_t count = 0;
    std::uint8_t colons = 0; ///< bit i: index i is a colon, and its register is not used
    bool brace = false;
};

/// variable.a[i].b = e: the whole way from the variable to the place.
struct PathSite {
    struct Step {
        LinkKind kind = LinkKind::Member;
        objsys::COSNameID name;   ///< Member
        std::uint16_t window = 0; ///< Index and Brace: where the indices are
        std::uint8_t count = 0;
        std::uint8_t colons = 0;
    };
    Slot root = 0;
    std::uint16_t value = 0;
    std::vector<Step> steps;
};

class Unit;

/// A function that exists once per making: an anonymous function's code and where its captured
/// values are taken from.
struct FunctionMaker {
    std::unique_ptr<Code> code;
    std::vector<LambdaExpression::Capture> captures;
};

/// What the compiler of machine code keeps with a function; see compiled_functions.hpp.
class CompiledCode {
public:
    CompiledCode() = default;
    CompiledCode(const CompiledCode&) = delete;
    CompiledCode& operator=(const CompiledCode&) = delete;
    virtual ~CompiledCode() = default;
};

/// The compiled form of one function, anonymous function, or body of a source.
class Code {
public:
    Code();

    /// Never given again in a process, other than an address.
    const std::uint64_t serial;
    /// False once it is known that the function cannot be compiled with any arguments.
    mutable bool mayBeCompiled = true;
    mutable std::unique_ptr<CompiledCode> compiled;

    Unit* unit = nullptr;
    objsys::COSNameID name; ///< empty for the body of a source
    std::string text;       ///< of an anonymous function, as written
    std::string help;
    std::string signature;
    Place place;
    std::size_t parameters = 0;
    std::size_t registers = 0;            ///< all of them
    std::vector<objsys::COSNameID> names; ///< of the named ones, which come first
    std::unordered_map<objsys::COSNameID, Slot> slots;

    std::vector<Instruction> instructions;
    std::vector<Place> places; ///< one for each instruction
    std::vector<Value> constants;
    // Sites change while the code runs (their caches do); the code itself does not.
    mutable std::vector<CallSite> calls;
    mutable std::vector<MemberSite> members;
    mutable std::vector<NamePathSite> paths;
    std::vector<IndexShape> indices;
    std::vector<PathSite> stores;
    std::vector<FunctionMaker> makers;

    /// A part of the code whose errors are handled. Inner ones come first.
    struct Handler {
        std::uint32_t begin = 0;
        std::uint32_t end = 0;
        std::uint32_t target = 0;
        std::uint16_t temporaries = 0; ///< registers from here on are out of use at the target
    };
    std::vector<Handler> handlers;

    [[nodiscard]] bool isTemporary(std::size_t r) const { return r >= names.size(); }
};

/// All that one source was compiled to. Function values and running code keep it alive.
class Unit : public std::enable_shared_from_this<Unit> {
public:
    std::string name;   ///< in error places
    std::string folder; ///< where a script file lies; functions beside it are found
    /// For code of eval and capture: the unit whose functions it sees too.
    std::shared_ptr<Unit> parent;
    Code body;
    std::vector<std::unique_ptr<Code>> functions;

    [[nodiscard]] const Code* find(objsys::COSNameID function) const;
};

/// The code as text, one instruction per line, for tests and for people.
[[nodiscard]] std::string disassemble(const Code& code);
[[nodiscard]] const char* nameOf(Op op);

} // namespace varnix
