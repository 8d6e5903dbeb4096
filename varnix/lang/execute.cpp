// The machine's dispatch loop: one label per operation, the fast half of each here, the slow half
// in the member function it calls.
//
// Labels as values are an extension of g++ and clang++; with them each operation jumps straight to
// the next one, which predicts far better than one shared switch.
//
// A jump to a label runs no destructors: nothing that owns something may be in scope at NEXT().
//
// frame->ip tells the rest of the machine where execution is. It is stored before anything that can
// raise an error or look at frames, and only then.
#include "lang/interrupt.hpp"
#include "lang/machine.hpp"
#include "value/array.hpp"
#include "value/door.hpp"
#include "value/ops.hpp"

#include <new>

namespace varnix {

namespace {

using objsys::COSInterface;
using objsys::COSValue;
using objsys::ValueKind;

/// Stores a value that owns nothing.
[[gnu::always_inline]] inline void put(Value& place, const Value& scalar) {
    if (place.isCounted()) [[unlikely]]
        place = Value();
    new (&place) Value(scalar);
}
[[gnu::always_inline]] inline void putDouble(Value& place, double v) {
    put(place, Value::ofDouble(v));
}
[[gnu::always_inline]] inline void putLogical(Value& place, bool v) {
    put(place, Value::ofLogical(v));
}

[[gnu::always_inline]] inline bool areDoubles(const Value& a, const Value& b) {
    return a.tag() == Tag::Double && b.tag() == Tag::Double;
}

/// What came through the door from a property or method, into a register.
[[gnu::always_inline]] inline void putFromDoor(Value& place, COSValue value) {
    switch (value.type().kind()) {
    case ValueKind::Logical:
        return putLogical(place, value.asLogical());
    case ValueKind::Int32:
        return put(place, Value::ofInt32(value.asInt32()));
    case ValueKind::UInt32:
        return put(place, Value::ofUInt32(value.asUInt32()));
    case ValueKind::Int64:
        return put(place, Value::ofInt64(value.asInt64()));
    case ValueKind::UInt64:
        return put(place, Value::ofUInt64(value.asUInt64()));
    case ValueKind::Double:
        return putDouble(place, value.asDouble());
    default:
        place = fromDoor(value);
    }
}

/// A number as the position of an element, from 0; a huge one when it is no position.
[[gnu::always_inline]] inline std::size_t positionOf(double index) {
    constexpr std::size_t none = ~std::size_t{0};
    if (!(index >= 1 && index < 0x1p53))
        return none;
    const auto position = static_cast<std::size_t>(index);
    return static_cast<double>(position) == index ? position - 1 : none;
}

/// The elements of an array of doubles, or null for anything else.
[[gnu::always_inline]] inline const double* doublesOf(const Value& value) {
    return value.tag() == Tag::Array && value.array()->classID == hvDOUBLE_CLASS
               ? elements<double>(static_cast<const hvArray*>(value.array()))
               : nullptr;
}

/// The elements of an array of doubles that nobody else holds, or null.
[[gnu::always_inline]] inline double* ownDoublesOf(const Value& value) {
    return value.tag() == Tag::Array && value.array()->classID == hvDOUBLE_CLASS &&
                   value.array()->refs == 1
               ? elements<double>(value.array())
               : nullptr;
}

} // namespace

void Machine::execute() {
    static const void* const labels[] = {
#define X(name) &&do##name,
        VARNIX_OPERATIONS(X)
#undef X
    };

    Frame* frame = nullptr;
    const Instruction* ip = nullptr;
    Value* r = nullptr;
    const Code* code = nullptr;

    // The top frame has changed.
#define RELOAD()                                                                                   \
    do {                                                                                           \
        frame = &top();                                                                            \
        ip = frame->ip;                                                                            \
        r = frame->base;                                                                           \
        code = frame->code;                                                                        \
    } while (false)
#define DISPATCH() goto* labels[static_cast<std::size_t>(ip->op)]
#define NEXT()                                                                                     \
    do {                                                                                           \
        ++ip;                                                                                      \
        DISPATCH();                                                                                \
    } while (false)
#define SAVE() (frame->ip = ip)
    // A slow half that stays in this frame.
#define SLOW(call)                                                                                 \
    do {                                                                                           \
        SAVE();                                                                                    \
        call;                                                                                      \
        NEXT();                                                                                    \
    } while (false)
    // A call, which may have pushed a frame.
#define CALL(call)                                                                                 \
    do {                                                                                           \
        SAVE();                                                                                    \
        if (call) {                                                                                \
            RELOAD();                                                                              \
            DISPATCH();                                                                            \
        }                                                                                          \
        NEXT();                                                                                    \
    } while (false)

    RELOAD();
    DISPATCH();

doLoadConstant : {
    const Value& constant = code->constants[ip->wide()];
    if (!constant.isCounted()) [[likely]]
        put(r[ip->a], constant);
    else
        r[ip->a] = constant;
    NEXT();
}

doCopy : {
    const Value& source = r[ip->b];
    if (source.isUnset()) [[unlikely]] {
        SAVE();
        r[ip->a] = nameValue(*frame, ip->b);
    } else {
        r[ip->a] = source;
    }
    NEXT();
}

doMove:
    r[ip->a] = std::move(r[ip->b]);
    NEXT();

doClear : {
    Value* const first = r + ip->a;
    for (std::uint32_t i = 0, n = ip->wide(); i < n; ++i)
        first[i] = Value();
    NEXT();
}

// ---- operators

#define ARITHMETIC(name, op)                                                                       \
    do                                                                                             \
        ##name : {                                                                                 \
            const Value& left = r[ip->b];                                                          \
            const Value& right = r[ip->c];                                                         \
            if (areDoubles(left, right)) [[likely]] {                                              \
                putDouble(r[ip->a], left.asDouble() op right.asDouble());                          \
                NEXT();                                                                            \
            }                                                                                      \
            SLOW(binarySlow(*frame, BinaryOp::name, *ip));                                         \
        }
    ARITHMETIC(Add, +)
    ARITHMETIC(Subtract, -)
    ARITHMETIC(Multiply, *)
    ARITHMETIC(Divide, /)
    ARITHMETIC(TimesElement, *)
    ARITHMETIC(DivideElement, /)
#undef ARITHMETIC

#define ARITHMETIC_CONSTANT(name, op)                                                              \
    do                                                                                             \
        ##name##Constant : {                                                                       \
            const Value& left = r[ip->b];                                                          \
            if (left.tag() == Tag::Double) [[likely]] {                                            \
                putDouble(r[ip->a], left.asDouble() op code->constants[ip->c].asDouble());         \
                NEXT();                                                                            \
            }                                                                                      \
            SLOW(binaryConstantSlow(*frame, BinaryOp::name, *ip));                                 \
        }
    ARITHMETIC_CONSTANT(Add, +)
    ARITHMETIC_CONSTANT(Subtract, -)
    ARITHMETIC_CONSTANT(Multiply, *)
    ARITHMETIC_CONSTANT(Divide, /)
#undef ARITHMETIC_CONSTANT

doPower:
    SLOW(binarySlow(*frame, BinaryOp::Power, *ip));
doPowerElement:
    SLOW(binarySlow(*frame, BinaryOp::PowerElement, *ip));

#define COMPARISON(name, op)                                                                       \
    do                                                                                             \
        ##name : {                                                                                 \
            const Value& left = r[ip->b];                                                          \
            const Value& right = r[ip->c];                                                         \
            if (areDoubles(left, right)) [[likely]] {                                              \
                putLogical(r[ip->a], left.asDouble() op right.asDouble());                         \
                NEXT();                                                                            \
            }                                                                                      \
            SLOW(binarySlow(*frame, BinaryOp::name, *ip));                                         \
        }                                                                                          \
    doTest##name : {                                                                               \
        const Value& left = r[ip->a];                                                              \
        const Value& right = r[ip->b];                                                             \
        bool truth;                                                                                \
        if (areDoubles(left, right)) [[likely]] {                                                  \
            truth = left.asDouble() op right.asDouble();                                           \
        } else {                                                                                   \
            SAVE();                                                                                \
            truth = testSlow(*frame, BinaryOp::name, *ip);                                         \
        }                                                                                          \
        ++ip;                                                                                      \
        ip += truth == (ip[-1].c != 0) ? ip->offset() : 1;                                         \
        DISPATCH();                                                                                \
    }                                                                                              \
    doTest##name##Constant : {                                                                     \
        const Value& left = r[ip->a];                                                              \
        bool truth;                                                                                \
        if (left.tag() == Tag::Double) [[likely]] {                                                \
            truth = left.asDouble() op code->constants[ip->b].asDouble();                          \
        } else {                                                                                   \
            SAVE();                                                                                \
            truth = testConstantSlow(*frame, BinaryOp::name, *ip);                                 \
        }                                                                                          \
        ++ip;                                                                                      \
        ip += truth == (ip[-1].c != 0) ? ip->offset() : 1;                                         \
        DISPATCH();                                                                                \
    }
    COMPARISON(Equal, ==)
    COMPARISON(NotEqual, !=)
    COMPARISON(Less, <)
    COMPARISON(LessEqual, <=)
    COMPARISON(Greater, >)
    COMPARISON(GreaterEqual, >=)
#undef COMPARISON

doAnd:
    SLOW(binarySlow(*frame, BinaryOp::And, *ip));
doOr:
    SLOW(binarySlow(*frame, BinaryOp::Or, *ip));
doPlus:
    SLOW(unarySlow(*frame, UnaryOp::Plus, *ip));

doNegate:
    if (r[ip->b].tag() == Tag::Double) [[likely]] {
        putDouble(r[ip->a], -r[ip->b].asDouble());
        NEXT();
    }
    SLOW(unarySlow(*frame, UnaryOp::Negate, *ip));

doNot:
    if (r[ip->b].tag() == Tag::Logical) [[likely]] {
        putLogical(r[ip->a], !r[ip->b].asLogical());
        NEXT();
    }
    SLOW(unarySlow(*frame, UnaryOp::Not, *ip));

doTruth : {
    const Value& source = r[ip->b];
    if (source.tag() == Tag::Logical) [[likely]] {
        putLogical(r[ip->a], source.asLogical());
        NEXT();
    }
    SAVE();
    const bool truth = truthSlow(*frame, ip->b);
    putLogical(r[ip->a], truth);
    NEXT();
}

doRange:
    SLOW(makeRange(*frame, *ip));

    // ---- jumps

doJump:
    ip += ip->offset();
    DISPATCH();

doJumpBack:
    SAVE();
    detail::pollInterrupt();
    ip += ip->offset();
    DISPATCH();

doJumpIfTrue : {
    const Value& condition = r[ip->a];
    bool truth;
    if (condition.tag() == Tag::Logical) [[likely]] {
        truth = condition.asLogical();
    } else {
        SAVE();
        truth = truthSlow(*frame, ip->a);
    }
    ip += truth ? ip->offset() : 1;
    DISPATCH();
}

doJumpIfFalse : {
    const Value& condition = r[ip->a];
    bool truth;
    if (condition.tag() == Tag::Logical) [[likely]] {
        truth = condition.asLogical();
    } else {
        SAVE();
        truth = truthSlow(*frame, ip->a);
    }
    ip += truth ? 1 : ip->offset();
    DISPATCH();
}

doCaseTest : {
    SAVE();
    const bool matches = caseMatches(*frame, *ip);
    ++ip;
    ip += matches ? 1 : ip->offset();
    DISPATCH();
}

    // ---- loops

doForRange:
    SAVE();
    forRange(*frame, ip->a);
    ip += ip->offset();
    DISPATCH();

doForRangeStep : {
    Value* const state = r + ip->a;
    const std::int64_t index = state[0].asSigned();
    // In a loop that is not over doubles the count is -1.
    if (index < state[1].asSigned()) [[likely]] {
        if (detail::interruptRequested != 0) [[unlikely]] {
            SAVE();
            detail::raiseInterrupted();
        }
        putDouble(r[ip->b], state[2].asDouble() + static_cast<double>(index) * state[3].asDouble());
        new (&state[0]) Value(Value::ofInt64(index + 1));
        ++ip;
        ip += ip->offset();
        DISPATCH();
    }
    SAVE();
    const bool goesOn = forRangeEnd(*frame, ip->a, ip->b);
    ++ip;
    ip += goesOn ? ip->offset() : 1;
    DISPATCH();
}

doForEach:
    SAVE();
    forEach(*frame, ip->a);
    ip += ip->offset();
    DISPATCH();

doForEachStep : {
    SAVE();
    const bool goesOn = forEachStep(*frame, ip->a, ip->b);
    ++ip;
    ip += goesOn ? ip->offset() : 1;
    DISPATCH();
}

    // ---- arrays

doJoin:
doStack:
doMakeCell:
    SLOW(gather(*frame, *ip));
doEndOf:
    SLOW(endOfIndex(*frame, *ip, false));
doEndOfTarget:
    SLOW(endOfIndex(*frame, *ip, true));

doIndex : {
    const Value& base = r[ip->b];
    const double* const from = doublesOf(base);
    if (from != nullptr && r[ip->c].tag() == Tag::Double) [[likely]] {
        const std::size_t position = positionOf(r[ip->c].asDouble());
        if (position < base.array()->count()) [[likely]] {
            const double element = from[position];
            putDouble(r[ip->a], element);
            NEXT();
        }
    }
    SLOW(index(*frame, *ip));
}

doIndexConstant : {
    const Value& base = r[ip->b];
    if (const double* const from = doublesOf(base)) [[likely]] {
        const std::size_t position = positionOf(code->constants[ip->c].asDouble());
        if (position < base.array()->count()) [[likely]] {
            const double element = from[position];
            putDouble(r[ip->a], element);
            NEXT();
        }
    }
    SLOW(indexConstant(*frame, *ip));
}

doIndexTwo : {
    const Value& base = r[ip->b];
    const double* const from = doublesOf(base);
    if (from != nullptr && areDoubles(r[ip->c], r[ip->c + 1])) [[likely]] {
        const std::size_t row = positionOf(r[ip->c].asDouble());
        const std::size_t column = positionOf(r[ip->c + 1].asDouble());
        if (row < base.array()->rows && column < base.array()->columns) [[likely]] {
            const double element = from[column * base.array()->rows + row];
            putDouble(r[ip->a], element);
            NEXT();
        }
    }
    SLOW(indexTwo(*frame, *ip));
}

doIndexSite:
    SLOW(indexSite(*frame, code->indices[ip->wide()]));

doBrace : {
    const Value& base = r[ip->b];
    if (base.tag() == Tag::Array && base.array()->classID == hvCELL_CLASS &&
        r[ip->c].tag() == Tag::Double) [[likely]] {
        const std::size_t position = positionOf(r[ip->c].asDouble());
        if (position < base.array()->count()) [[likely]] {
            r[ip->a] = cellAt(base.array(), position);
            NEXT();
        }
    }
    SLOW(brace(*frame, *ip));
}

doStoreIndex : {
    const Value& base = r[ip->a];
    double* const to = ownDoublesOf(base);
    if (to != nullptr && areDoubles(r[ip->b], r[ip->c])) [[likely]] {
        const std::size_t position = positionOf(r[ip->b].asDouble());
        if (position < base.array()->count()) [[likely]] {
            to[position] = r[ip->c].asDouble();
            NEXT();
        }
    }
    SLOW(storeIndex(*frame, *ip));
}

doStoreIndexConstant : {
    const Value& base = r[ip->a];
    double* const to = ownDoublesOf(base);
    if (to != nullptr && r[ip->c].tag() == Tag::Double) [[likely]] {
        const std::size_t position = positionOf(code->constants[ip->b].asDouble());
        if (position < base.array()->count()) [[likely]] {
            to[position] = r[ip->c].asDouble();
            NEXT();
        }
    }
    SLOW(storeIndexConstant(*frame, *ip));
}

doStoreIndexTwo : {
    const Value& base = r[ip->a];
    double* const to = ownDoublesOf(base);
    if (to != nullptr && areDoubles(r[ip->b], r[ip->b + 1]) && r[ip->c].tag() == Tag::Double)
        [[likely]] {
        const std::size_t row = positionOf(r[ip->b].asDouble());
        const std::size_t column = positionOf(r[ip->b + 1].asDouble());
        if (row < base.array()->rows && column < base.array()->columns) [[likely]] {
            to[column * base.array()->rows + row] = r[ip->c].asDouble();
            NEXT();
        }
    }
    SLOW(storeIndexTwo(*frame, *ip));
}

doStorePath:
    SLOW(storePath(*frame, code->stores[ip->wide()]));

    // ---- members

doGetMember : {
    const Value& base = r[ip->b];
    const MemberSite& site = code->members[ip->c];
    if (base.isHandle() && site.property != nullptr && base.array()->objectClass == site.cls)
        [[likely]] {
        SAVE();
        putFromDoor(r[ip->a], site.property->get(COSInterface::ofHandle(base.array())));
        NEXT();
    }
    if (base.tag() == Tag::Array && base.array()->classID == hvSTRUCT_CLASS) [[likely]] {
        if (const Value* const field = structOf(base.array()).find(site.name)) [[likely]] {
            {
                Value value = *field; // the target may be what holds the struct
                r[ip->a] = std::move(value);
            }
            NEXT();
        }
    }
    SLOW(getMember(*frame, *ip));
}

doSetMember : {
    const Value& base = r[ip->a];
    const Value& value = r[ip->b];
    const MemberSite& site = code->members[ip->c];
    if (base.isHandle() && site.setter != nullptr && base.array()->objectClass == site.cls)
        [[likely]] {
        COSInterface* const instance = COSInterface::ofHandle(base.array());
        if (instance->isValid()) [[likely]] {
            SAVE();
            // A logical for a logical, a double for a double: nothing to convert.
            if (value.tag() == site.plainTag) {
                site.setter->setValue(instance,
                                      COSValue(value.asUnsigned(), site.property->dataType));
                NEXT();
            }
            if (site.assignConverted(instance, value))
                NEXT();
        }
    }
    SLOW(setMember(*frame, *ip));
}

doCallMember : {
    MemberSite& site = code->members[ip->wide()];
    const Value& base = r[site.base];
    if (base.isHandle() && site.plainCall && base.array()->objectClass == site.cls) [[likely]] {
        const objsys::COSMethod& method = *site.method;
        COSInterface* const instance = COSInterface::ofHandle(base.array());
        if (instance->isValid()) [[likely]] {
            SAVE();
            detail::pollInterrupt();
            const COSValue self = COSValue::ofArray(base.array(), method.signature->self);
            const COSValue result = method.call(&self);
            if (site.result == noSlot) {
                if (result.type().kind() >= ValueKind::Char)
                    hvDestroyArray(result.asArray()); // the reference that it carries
                NEXT();
            }
            if (result.type().kind() != ValueKind::Void || site.requested == 0) [[likely]] {
                putFromDoor(r[site.result], result);
                NEXT();
            }
            deliver(Value(), sinkOf(*frame, site), site.name.c_str()); // raises the error
        }
    }
    CALL(callMember(*frame, site));
}

    // ---- calls

doCall : {
    CallSite& site = code->calls[ip->wide()];
    // A script function that the site knows, and no object whose class could have a method.
    if (site.script != nullptr && site.epoch == names_.epoch() && r[site.slot].isUnset() &&
        (site.arguments == 0 || !r[site.window].isCounted())) [[likely]] {
        CALL(begin(*site.script, argumentsOf(*frame, site), sinkOf(*frame, site)));
    }
    CALL(callSite(*frame, site));
}
doCallValue:
    CALL(callValue(*frame, code->calls[ip->wide()]));
doCallPath:
    CALL(callPath(*frame, code->paths[ip->wide()]));
doMakeFunction:
    SLOW(makeFunction(*frame, *ip));
doMakeHandle:
    SLOW(makeHandle(*frame, *ip));

doReturn:
    // One value, for a caller in the same run that wants one or none.
    if (frame->flags == 0 && frame->requested <= 1 && ip->wide() == 1 && !r[ip->a].isUnset())
        [[likely]] {
        {
            Value result = std::move(r[ip->a]);
            const std::size_t target = frame->result;
            popFrame();
            RELOAD();
            if (target != noSlot)
                r[target] = std::move(result);
        }
        NEXT();
    }
    SAVE();
    if (leave(*frame, ip->a, ip->wide()))
        return;
    RELOAD();
    NEXT();

    // ---- the prompt, errors

doEcho:
    SLOW(echo(*frame, ip->a));
doEchoResult:
    SLOW(echoResult(*frame, *ip));
doCatchError:
    SLOW(r[ip->a] = errorValue());

#undef RELOAD
#undef DISPATCH
#undef NEXT
#undef SAVE
#undef SLOW
#undef CALL
}

} // namespace varnix
