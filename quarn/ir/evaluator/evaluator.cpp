// The machine: frames, and the loop over instructions.
#include "ir/evaluator/code.hpp"

#include <qn/arithmetic.hpp>
#include <qn/scope.hpp>

#include <utility>

namespace QN {

namespace {

using evaluator::CallSite;
using evaluator::Code;
using evaluator::Instruction;
using evaluator::Place;
using evaluator::Program;
using evaluator::Via;

/// The places of one running call. Their addresses stay the same while it runs, because pointers to
/// variables are addresses of places.
struct Frame {
    std::vector<std::uint64_t> slots;
    std::vector<ArrayValue> arrays;
};

struct Loaded {
    explicit Loaded(Program decoded) : program(std::move(decoded)) {}
    Program program;
    std::vector<const Function*> callees; // by call site; null: external, or not looked up yet
    std::vector<std::unique_ptr<Frame>> free;
};

constexpr volatile std::sig_atomic_t nobodyAsks = 0;

struct Activation {
    Loaded* code;
    std::unique_ptr<Frame> frame;
    std::size_t next; // instruction at which the call goes on
};

} // namespace

struct Evaluator::State {
    explicit State(const Scope& s) : scope(s) {}

    const Scope& scope;
    External external;
    std::uint64_t stepLimit = 0;
    std::size_t depthLimit = 100'000;
    const volatile std::sig_atomic_t* interruptFlag = &nobodyAsks;
    std::unordered_map<const Function*, std::unique_ptr<Loaded>> programs;

    Loaded& load(const Function& function) {
        std::unique_ptr<Loaded>& entry = programs[&function];
        if (entry == nullptr) {
            entry = std::make_unique<Loaded>(evaluator::decode(function));
            entry->callees.resize(entry->program.calls.size());
        }
        return *entry;
    }

    static std::unique_ptr<Frame> takeFrame(Loaded& code) {
        std::unique_ptr<Frame> frame;
        if (code.free.empty()) {
            frame = std::make_unique<Frame>();
            frame->arrays.resize(code.program.arrayKinds.size());
        } else {
            frame = std::move(code.free.back());
            code.free.pop_back();
        }
        frame->slots = code.program.initialSlots;
        for (std::size_t i = 0; i < frame->arrays.size(); ++i) {
            frame->arrays[i] = ArrayValue(code.program.arrayKinds[i], 0, 0);
        }
        return frame;
    }

    static void put(Frame& frame, const Place& place, const Value& value) {
        if (place.isArray) {
            frame.arrays[place.index] = value.array;
        } else {
            frame.slots[place.index] = value.bits;
        }
    }

    static Value get(const Frame& frame, const Place& place) {
        Value value;
        value.type = place.type;
        if (place.isArray) {
            value.array = frame.arrays[place.index];
        } else {
            value.bits = frame.slots[place.index];
        }
        return value;
    }

    Value run(const Function& function, std::span<const Value> arguments);
    /// Enters a callee of the scope, or runs an external one at once.
    void call(std::vector<Activation>& stack, const Instruction& instruction);
};

namespace {

[[noreturn]] void trap(TrapCode code, const Loaded& where, const Instruction& instruction,
                       const std::string& detail = {}) {
    throw EvaluationError(code, std::string(where.program.function->name()), instruction.line,
                          detail);
}

ArrayValue& arrayOf(Frame& frame, const Instruction& i, const Loaded& where) {
    if (i.via == Via::Place) {
        return frame.arrays[i.a];
    }
    auto* const array = reinterpret_cast<ArrayValue*>(frame.slots[i.a]);
    if (array == nullptr) {
        trap(TrapCode::InvalidIr, where, i, "a null pointer");
    }
    return *array;
}

/// The linear index that an element access means; traps outside the bounds.
std::int64_t elementIndex(const ArrayValue& array, const Frame& frame, const Instruction& i,
                          const Loaded& where) {
    const auto first = static_cast<std::int64_t>(frame.slots[i.b]);
    if (!i.twoIndices) {
        if (first < 1 || first > array.numel()) {
            trap(TrapCode::IndexOutOfBounds, where, i);
        }
        return first;
    }
    const auto col = static_cast<std::int64_t>(frame.slots[i.c]);
    if (first < 1 || first > array.rows() || col < 1 || col > array.cols()) {
        trap(TrapCode::IndexOutOfBounds, where, i);
    }
    return first + (col - 1) * array.rows();
}

void checkSize(std::int64_t rows, std::int64_t cols, const Loaded& where, const Instruction& i) {
    if (!ArrayValue::isPossibleSize(rows, cols)) {
        trap(TrapCode::BadSize, where, i);
    }
}

bool isOfType(const Value& value, const Type& type) {
    return value.type == &type && (!type.isArray() || value.array.kind() == type.scalarKind());
}

template <typename Pointee>
Pointee& pointee(std::uint64_t bits, const Loaded& where, const Instruction& i) {
    if (bits == 0) {
        trap(TrapCode::InvalidIr, where, i, "a null pointer");
    }
    return *reinterpret_cast<Pointee*>(bits);
}

} // namespace

void Evaluator::State::call(std::vector<Activation>& stack, const Instruction& instruction) {
    Activation& caller = stack.back();
    Loaded& code = *caller.code;
    const CallSite& site = code.program.calls[instruction.a];
    const Function*& callee = code.callees[instruction.a];
    if (callee == nullptr) {
        const Function* const found = scope.lookUp(site.callee);
        callee = found != nullptr && found->hasCfg() ? found : nullptr;
    }
    if (callee == nullptr) {
        std::vector<Value> arguments;
        arguments.reserve(site.arguments.size());
        for (const Place& place : site.arguments) {
            arguments.push_back(get(*caller.frame, place));
        }
        Value result;
        if (!external || !external(site.callee, arguments, *site.result.type, result)) {
            trap(TrapCode::UnknownFunction, code, instruction, site.callee);
        }
        if (site.hasResult) {
            if (!isOfType(result, *site.result.type)) {
                trap(TrapCode::InvalidIr, code, instruction,
                     "'" + site.callee + "' gave a result of another type");
            }
            put(*caller.frame, site.result, result);
        }
        return;
    }
    if (stack.size() >= depthLimit) {
        trap(TrapCode::StackOverflow, code, instruction);
    }
    if (*interruptFlag != 0) {
        trap(TrapCode::Interrupted, code, instruction);
    }
    Loaded& target = load(*callee);
    const std::vector<Place>& params = target.program.params;
    bool fits = params.size() == site.arguments.size() &&
                (!site.hasResult || callee->resultType() == site.result.type);
    std::unique_ptr<Frame> frame = takeFrame(target);
    for (std::size_t i = 0; fits && i < params.size(); ++i) {
        const Place& from = site.arguments[i];
        fits = params[i].type == from.type;
        if (params[i].isArray) {
            frame->arrays[params[i].index] = caller.frame->arrays[from.index];
        } else {
            frame->slots[params[i].index] = caller.frame->slots[from.index];
        }
    }
    if (!fits) {
        trap(TrapCode::InvalidIr, code, instruction,
             "'" + site.callee + "' is called with the wrong types");
    }
    stack.push_back({&target, std::move(frame), 0});
}

Value Evaluator::State::run(const Function& function, std::span<const Value> arguments) {
    std::vector<Activation> stack;
    Loaded& first = load(function);
    stack.push_back({&first, takeFrame(first), 0});
    if (arguments.size() != first.program.params.size()) {
        throw EvaluationError(TrapCode::InvalidIr, std::string(function.name()), function.line(),
                              "wrong number of arguments");
    }
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (!isOfType(arguments[i], *first.program.params[i].type)) {
            throw EvaluationError(TrapCode::InvalidIr, std::string(function.name()),
                                  function.line(), "an argument of another type");
        }
        put(*stack.back().frame, first.program.params[i], arguments[i]);
    }

    std::uint64_t steps = 0;
    for (;;) { // once per change of the running function
        Loaded& code = *stack.back().code;
        Frame& frame = *stack.back().frame;
        std::uint64_t* const slots = frame.slots.data();
        const Instruction* const instructions = code.program.instructions.data();
        const Instruction* at = instructions + stack.back().next;
        const auto asDoubles = [&](std::uint32_t slot) { return asDouble(slots[slot]); };
        const auto countStep = [&](const Instruction& branch) {
            if (stepLimit != 0 && ++steps > stepLimit) {
                trap(TrapCode::StepLimit, code, branch);
            }
            if (*interruptFlag != 0) {
                trap(TrapCode::Interrupted, code, branch);
            }
        };
        bool leaves = false;
        Value result;
        while (!leaves) {
            const Instruction& i = *at++;
            switch (i.code) {
            case Code::Move:
                slots[i.dst] = slots[i.a];
                break;
            case Code::MoveArray:
                frame.arrays[i.dst] = frame.arrays[i.a];
                break;
            case Code::AddressOf:
                slots[i.dst] = reinterpret_cast<std::uint64_t>(&slots[i.a]);
                break;
            case Code::AddressOfArray:
                slots[i.dst] = reinterpret_cast<std::uint64_t>(&frame.arrays[i.a]);
                break;
            case Code::LoadThrough:
                slots[i.dst] = pointee<std::uint64_t>(slots[i.a], code, i);
                break;
            case Code::StoreThrough:
                pointee<std::uint64_t>(slots[i.a], code, i) = slots[i.b];
                break;
            case Code::LoadArrayThrough:
                frame.arrays[i.dst] = pointee<ArrayValue>(slots[i.a], code, i);
                break;
            case Code::StoreArrayThrough:
                pointee<ArrayValue>(slots[i.a], code, i) = frame.arrays[i.b];
                break;
            case Code::AddDouble:
                slots[i.dst] = bitsOf(asDoubles(i.a) + asDoubles(i.b));
                break;
            case Code::SubDouble:
                slots[i.dst] = bitsOf(asDoubles(i.a) - asDoubles(i.b));
                break;
            case Code::MulDouble:
                slots[i.dst] = bitsOf(asDoubles(i.a) * asDoubles(i.b));
                break;
            case Code::DivDouble:
                slots[i.dst] = bitsOf(asDoubles(i.a) / asDoubles(i.b));
                break;
            case Code::NegDouble:
                slots[i.dst] = bitsOf(-asDoubles(i.a));
                break;
            case Code::EqDouble:
                slots[i.dst] = asDoubles(i.a) == asDoubles(i.b);
                break;
            case Code::NeDouble:
                slots[i.dst] = asDoubles(i.a) != asDoubles(i.b);
                break;
            case Code::LtDouble:
                slots[i.dst] = asDoubles(i.a) < asDoubles(i.b);
                break;
            case Code::LeDouble:
                slots[i.dst] = asDoubles(i.a) <= asDoubles(i.b);
                break;
            case Code::GtDouble:
                slots[i.dst] = asDoubles(i.a) > asDoubles(i.b);
                break;
            case Code::GeDouble:
                slots[i.dst] = asDoubles(i.a) >= asDoubles(i.b);
                break;
            case Code::AndLogical:
                slots[i.dst] = slots[i.a] & slots[i.b];
                break;
            case Code::OrLogical:
                slots[i.dst] = slots[i.a] | slots[i.b];
                break;
            case Code::NotLogical:
                slots[i.dst] = slots[i.a] ^ 1;
                break;
            case Code::Select:
                slots[i.dst] = slots[i.a] != 0 ? slots[i.b] : slots[i.c];
                break;
            case Code::SelectArray:
                frame.arrays[i.dst] = frame.arrays[slots[i.a] != 0 ? i.b : i.c];
                break;
            case Code::Scalar: {
                const std::uint64_t operands[2] = {slots[i.a], slots[i.b]};
                static_cast<void>(computeScalar(i.op, i.mode, *Type::scalar(i.resultKind),
                                                *Type::scalar(i.operandKind), operands,
                                                slots[i.dst]));
                break;
            }
            case Code::IndexOfDouble: {
                std::int64_t index = 0;
                if (!toIndex(asDoubles(i.a), index)) {
                    trap(TrapCode::BadIndex, code, i);
                }
                slots[i.dst] = static_cast<std::uint64_t>(index);
                break;
            }
            case Code::IndexOfInteger:
                if (!computeScalar(Op::ToIndex, i.mode, *Type::i64(), *Type::scalar(i.operandKind),
                                   &slots[i.a], slots[i.dst])) {
                    trap(TrapCode::BadIndex, code, i);
                }
                break;
            case Code::NewArray: {
                const auto rows = static_cast<std::int64_t>(slots[i.a]);
                const auto cols = static_cast<std::int64_t>(slots[i.b]);
                checkSize(rows, cols, code, i);
                frame.arrays[i.dst] = ArrayValue(i.resultKind, rows, cols);
                break;
            }
            case Code::Rows:
                slots[i.dst] = static_cast<std::uint64_t>(arrayOf(frame, i, code).rows());
                break;
            case Code::Cols:
                slots[i.dst] = static_cast<std::uint64_t>(arrayOf(frame, i, code).cols());
                break;
            case Code::Numel:
                slots[i.dst] = static_cast<std::uint64_t>(arrayOf(frame, i, code).numel());
                break;
            case Code::LoadElement: {
                const ArrayValue& array = arrayOf(frame, i, code);
                slots[i.dst] = array.get(elementIndex(array, frame, i, code));
                break;
            }
            case Code::LoadElementDouble: {
                const ArrayValue& array = arrayOf(frame, i, code);
                const std::int64_t index = elementIndex(array, frame, i, code);
                slots[i.dst] = static_cast<const std::uint64_t*>(array.data())[index - 1];
                break;
            }
            case Code::StoreElement: {
                ArrayValue& array = arrayOf(frame, i, code);
                array.set(elementIndex(array, frame, i, code), slots[i.d]);
                break;
            }
            case Code::StoreElementDouble: {
                ArrayValue& array = arrayOf(frame, i, code);
                const std::int64_t index = elementIndex(array, frame, i, code);
                static_cast<std::uint64_t*>(array.writableData())[index - 1] = slots[i.d];
                break;
            }
            case Code::Resize: {
                ArrayValue& array = arrayOf(frame, i, code);
                const auto rows = static_cast<std::int64_t>(slots[i.b]);
                const auto cols = static_cast<std::int64_t>(slots[i.c]);
                checkSize(rows, cols, code, i);
                array.resize(rows, cols);
                break;
            }
            case Code::CheckBounds: {
                const auto index = static_cast<std::int64_t>(slots[i.a]);
                if (index < 1 || index > static_cast<std::int64_t>(slots[i.b])) {
                    trap(TrapCode::IndexOutOfBounds, code, i);
                }
                break;
            }
            case Code::CheckZero:
                if (i.operandKind == ScalarKind::Double ? asDoubles(i.a) == 0 : slots[i.a] == 0) {
                    trap(TrapCode::DivisionByZero, code, i);
                }
                break;
            case Code::CheckLossy: {
                if (!isSameNumber(asDoubles(i.a), *Type::scalar(i.operandKind), slots[i.b])) {
                    trap(TrapCode::LossyConversion, code, i);
                }
                break;
            }
            case Code::Count:
                ++code.program.counters[i.a];
                break;
            case Code::Call:
                stack.back().next = static_cast<std::size_t>(at - instructions);
                call(stack, i);
                leaves = &*stack.back().frame != &frame; // a callee begins
                break;
            case Code::Jump:
                countStep(i);
                at = instructions + i.dst;
                break;
            case Code::Branch:
                countStep(i);
                at = instructions + (slots[i.a] != 0 ? i.b : i.c);
                break;
            case Code::Return:
                result.type = code.program.function->resultType();
                result.bits = slots[i.a];
                leaves = true;
                break;
            case Code::ReturnArray:
                result.type = code.program.function->resultType();
                result.array = std::move(frame.arrays[i.a]);
                leaves = true;
                break;
            case Code::ReturnNothing:
                leaves = true;
                break;
            case Code::Trap:
                trap(static_cast<TrapCode>(slots[i.a]), code, i);
            }
        }
        if (&*stack.back().frame != &frame) {
            continue;
        }
        // What a finished call still held would make the next write elsewhere copy.
        for (ArrayValue& array : frame.arrays) {
            array = ArrayValue();
        }
        code.free.push_back(std::move(stack.back().frame));
        stack.pop_back();
        if (stack.empty()) {
            return result;
        }
        const Activation& caller = stack.back();
        const Instruction& callSite = caller.code->program.instructions[caller.next - 1];
        if (const CallSite& site = caller.code->program.calls[callSite.a]; site.hasResult) {
            put(*caller.frame, site.result, result);
        }
    }
}

Evaluator::Evaluator(const Scope& scope) : state_(std::make_unique<State>(scope)) {}
Evaluator::~Evaluator() = default;

void Evaluator::setExternal(External external) {
    state_->external = std::move(external);
}
void Evaluator::setStepLimit(std::uint64_t blocks) noexcept {
    state_->stepLimit = blocks;
}
void Evaluator::setDepthLimit(std::size_t calls) noexcept {
    state_->depthLimit = calls;
}
void Evaluator::setInterruptFlag(const volatile std::sig_atomic_t* flag) noexcept {
    state_->interruptFlag = flag != nullptr ? flag : &nobodyAsks;
}

Value Evaluator::call(const Function& function, std::span<const Value> arguments) {
    return state_->run(function, arguments);
}

void Evaluator::forget(const Function& function) {
    state_->programs.erase(&function);
    for (auto& [other, loaded] : state_->programs) {
        for (const Function*& callee : loaded->callees) {
            callee = callee == &function ? nullptr : callee;
        }
    }
}

std::uint64_t Evaluator::counter(const Function& function, std::int64_t number) const {
    const auto found = state_->programs.find(&function);
    if (found == state_->programs.end() || number < 0) {
        return 0;
    }
    const auto& counters = found->second->program.counters;
    const auto index = static_cast<std::size_t>(number);
    return index < counters.size() ? counters[index] : 0;
}

std::int64_t Evaluator::counterLimit(const Function& function) const {
    const auto found = state_->programs.find(&function);
    return found == state_->programs.end()
               ? 0
               : static_cast<std::int64_t>(found->second->program.counters.size());
}

} // namespace QN
