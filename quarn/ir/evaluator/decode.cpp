// From a graph to a list of instructions. All questions about operands and types are settled here,
// so that running asks none.
#include "ir/evaluator/code.hpp"

#include <qn/arithmetic.hpp>

#include <utility>

namespace QN::evaluator {

namespace {

class Decoder {
public:
    explicit Decoder(const Function& function) : cfg_(function.cfg()) {
        program_.function = &function;
    }

    Program run() {
        placeEntities();
        std::vector<std::uint32_t> blockStart(cfg_.blockIdLimit(), 0);
        if (cfg_.entry() == nullptr) {
            broken(0, "a function without blocks");
        }
        for (const Block& block : cfg_.blocks()) {
            blockStart[block.id()] = static_cast<std::uint32_t>(program_.instructions.size());
            if (block.terminator() == nullptr) {
                broken(0, "a block without a terminator");
            }
            for (const Node& node : block.nodes()) {
                if (node.isTerminator() && node.next() != nullptr) {
                    broken(node.line(), "a terminator inside a block");
                }
                decode(node);
            }
        }
        for (Instruction& instruction : program_.instructions) {
            if (instruction.code == Code::Jump) {
                instruction.dst = blockStart[instruction.dst];
            } else if (instruction.code == Code::Branch) {
                instruction.b = blockStart[instruction.b];
                instruction.c = blockStart[instruction.c];
            }
        }
        return std::move(program_);
    }

private:
    [[noreturn]] void broken(std::uint32_t line, const std::string& what) const {
        throw EvaluationError(TrapCode::InvalidIr, std::string(program_.function->name()), line,
                              what);
    }
    void require(bool holds, const Node& node, const char* what) const {
        if (!holds) {
            broken(node.line(), std::string(infoOf(node.op()).text) + ": " + what);
        }
    }

    std::uint32_t newSlot(std::uint64_t bits = 0) {
        program_.initialSlots.push_back(bits);
        return static_cast<std::uint32_t>(program_.initialSlots.size() - 1);
    }
    std::uint32_t newArray(const Type& type) {
        program_.arrayKinds.push_back(type.scalarKind());
        return static_cast<std::uint32_t>(program_.arrayKinds.size() - 1);
    }
    std::uint32_t placeFor(const Type& type) { return type.isArray() ? newArray(type) : newSlot(); }

    void placeEntities() {
        consts_.resize(cfg_.numConstants());
        for (const Const& constant : cfg_.constants()) {
            consts_[constant.id()] = newSlot(constant.bits());
        }
        vars_.resize(cfg_.varIdLimit());
        for (const Var& var : cfg_.vars()) {
            vars_[var.id()] = placeFor(*var.type());
            if (var.varKind() == VarKind::Param) {
                program_.params.push_back({var.isAggregate(), vars_[var.id()], var.type()});
            }
        }
        nodes_.resize(cfg_.nodeIdLimit());
        for (const Block& block : cfg_.blocks()) {
            for (const Node& node : block.nodes()) {
                if (node.hasValue()) {
                    nodes_[node.id()] = placeFor(*node.type());
                }
            }
        }
    }

    /// The type of operand `i`, which must be a value or a variable.
    const Type& typeOf(const Node& node, std::size_t i) const {
        const Entity* const operand = i < node.numOperands() ? node.operand(i) : nullptr;
        const Type* const type = operand != nullptr ? QN::typeOf(operand) : nullptr;
        require(type != nullptr && !type->isVoid(), node, "an operand without a type");
        return *type;
    }

    /// The place of operand `i`: a slot, or an array place if its type is an array.
    std::uint32_t place(const Node& node, std::size_t i) const {
        Entity* const operand = i < node.numOperands() ? node.operand(i) : nullptr;
        require(operand != nullptr, node, "an operand is missing");
        switch (operand->kind()) {
        case EntityKind::Node: {
            const auto& value = *static_cast<const Node*>(operand);
            require(value.block() != nullptr && value.hasValue(), node, "an operand has no value");
            return nodes_[value.id()];
        }
        case EntityKind::Const:
            return consts_[static_cast<const Const*>(operand)->id()];
        case EntityKind::Var:
            return vars_[static_cast<const Var*>(operand)->id()];
        default:
            broken(node.line(), "an operand of the wrong sort");
        }
    }

    std::uint32_t scalar(const Node& node, std::size_t i) const {
        require(typeOf(node, i).isScalar(), node, "an operand that is no scalar");
        require(asVar(node.operand(i)) == nullptr, node, "a variable where a value is expected");
        return place(node, i);
    }

    std::uint32_t integer64(const Node& node, std::size_t i) const {
        require(&typeOf(node, i) == Type::i64(), node, "an operand that is no i64");
        return scalar(node, i);
    }

    std::uint32_t blockId(const Node& node, std::size_t i) const {
        const Block* const block = asBlock(node.operand(i));
        require(block != nullptr, node, "a block is missing");
        return block->id();
    }

    Instruction& add(Code code, const Node& node) {
        Instruction instruction{};
        instruction.code = code;
        instruction.op = node.op();
        instruction.mode = node.mode();
        instruction.line = node.line();
        instruction.dst = node.hasValue() ? nodes_[node.id()] : 0;
        return program_.instructions.emplace_back(instruction);
    }

    void decodeVariable(const Node& node) {
        const Type& type = typeOf(node, 0);
        switch (node.op()) {
        case Op::Load:
            require(&type == node.type(), node, "types differ");
            add(type.isArray() ? Code::MoveArray : Code::Move, node).a = place(node, 0);
            break;
        case Op::Store: {
            require(&type == &typeOf(node, 1), node, "types differ");
            const std::uint32_t from = place(node, 1);
            Instruction& made = add(type.isArray() ? Code::MoveArray : Code::Move, node);
            made.dst = place(node, 0);
            made.a = from;
            break;
        }
        case Op::AddrOf:
            require(node.type()->isPointer() && node.type()->element() == &type, node,
                    "types differ");
            add(type.isArray() ? Code::AddressOfArray : Code::AddressOf, node).a = place(node, 0);
            break;
        case Op::LoadP:
            require(type.isPointer() && type.element() == node.type(), node, "types differ");
            add(node.type()->isArray() ? Code::LoadArrayThrough : Code::LoadThrough, node).a =
                place(node, 0);
            break;
        default: {
            require(type.isPointer() && type.element() == &typeOf(node, 1), node, "types differ");
            Instruction& made =
                add(type.element()->isArray() ? Code::StoreArrayThrough : Code::StoreThrough, node);
            made.a = place(node, 0);
            made.b = place(node, 1);
        }
        }
    }

    static Code fastCode(Op op, const Type& type) {
        if (type.isLogical()) {
            return op == Op::And   ? Code::AndLogical
                   : op == Op::Or  ? Code::OrLogical
                   : op == Op::Not ? Code::NotLogical
                                   : Code::Scalar;
        }
        if (!type.isDouble()) {
            return Code::Scalar;
        }
        switch (op) {
        case Op::Add:
            return Code::AddDouble;
        case Op::Sub:
            return Code::SubDouble;
        case Op::Mul:
            return Code::MulDouble;
        case Op::Div:
            return Code::DivDouble;
        case Op::Neg:
            return Code::NegDouble;
        case Op::Eq:
            return Code::EqDouble;
        case Op::Ne:
            return Code::NeDouble;
        case Op::Lt:
            return Code::LtDouble;
        case Op::Le:
            return Code::LeDouble;
        case Op::Gt:
            return Code::GtDouble;
        case Op::Ge:
            return Code::GeDouble;
        default:
            return Code::Scalar;
        }
    }

    void decodeScalar(const Node& node) {
        require(node.type()->isScalar() && node.numOperands() <= 2, node, "no scalar operation");
        const Type& type = typeOf(node, 0);
        const std::uint32_t a = scalar(node, 0);
        const std::uint32_t b = node.numOperands() > 1 ? scalar(node, 1) : a;
        require(node.numOperands() < 2 || &typeOf(node, 1) == &type, node, "types differ");
        const bool compares = node.has(OpFlag::Compares);
        require(compares ? node.type()->isLogical()
                         : node.op() == Op::Convert || node.type() == &type,
                node, "types differ");
        // Whether the operation exists for the type is asked of the arithmetic itself.
        const std::uint64_t probe[2] = {1, 1};
        std::uint64_t ignored;
        require(computeScalar(node.op(), node.mode(), *node.type(), type, probe, ignored), node,
                "no such operation on the type");
        Instruction& made = add(fastCode(node.op(), type), node);
        made.a = a;
        made.b = b;
        made.operandKind = type.scalarKind();
        made.resultKind = node.type()->scalarKind();
    }

    void decodeSelect(const Node& node) {
        require(typeOf(node, 0).isLogical() && &typeOf(node, 1) == node.type() &&
                    &typeOf(node, 2) == node.type(),
                node, "types differ");
        Instruction& made = add(node.type()->isArray() ? Code::SelectArray : Code::Select, node);
        made.a = place(node, 0);
        made.b = place(node, 1);
        made.c = place(node, 2);
    }

    /// The array type of operand 0, a variable or a pointer.
    const Type& aggregate(const Node& node, Instruction& made) const {
        const Type& type = typeOf(node, 0);
        made.a = place(node, 0);
        made.via = type.isPointer() ? Via::Pointer : Via::Place;
        const Type& array = type.isPointer() ? *type.element() : type;
        require(array.isArray(), node, "no array");
        require(type.isPointer() || asVar(node.operand(0)) != nullptr, node, "no variable");
        return array;
    }

    void decodeElement(const Node& node) {
        const bool stores = node.op() == Op::StElem || node.op() == Op::StElem2;
        const bool two = node.op() == Op::LdElem2 || node.op() == Op::StElem2;
        Instruction made{};
        const Type& element = *aggregate(node, made).element();
        const std::size_t valueAt = two ? 3 : 2;
        require(stores ? &typeOf(node, valueAt) == &element : node.type() == &element, node,
                "types differ");
        made.b = integer64(node, 1);
        made.c = two ? integer64(node, 2) : 0;
        made.d = stores ? scalar(node, valueAt) : 0;
        const Code code = element.isDouble()
                              ? (stores ? Code::StoreElementDouble : Code::LoadElementDouble)
                              : (stores ? Code::StoreElement : Code::LoadElement);
        Instruction& added = add(code, node);
        made.code = code;
        made.dst = added.dst;
        made.line = added.line;
        made.twoIndices = two;
        added = made;
    }

    void decodeArray(const Node& node) {
        switch (node.op()) {
        case Op::NewArray: {
            require(node.type()->isArray(), node, "no array");
            Instruction& made = add(Code::NewArray, node);
            made.a = integer64(node, 0);
            made.b = integer64(node, 1);
            made.resultKind = node.type()->scalarKind();
            break;
        }
        case Op::Resize: {
            Instruction& made = add(Code::Resize, node);
            aggregate(node, made);
            made.b = integer64(node, 1);
            made.c = integer64(node, 2);
            break;
        }
        default: {
            require(node.type() == Type::i64(), node, "the result is an i64");
            const Code code = node.op() == Op::Rows   ? Code::Rows
                              : node.op() == Op::Cols ? Code::Cols
                                                      : Code::Numel;
            aggregate(node, add(code, node));
        }
        }
    }

    void decodeCheck(const Node& node) {
        switch (node.op()) {
        case Op::ToIndex: {
            const Type& type = typeOf(node, 0);
            require(node.type() == Type::i64() && !type.isLogical(), node, "types differ");
            Instruction& made =
                add(type.isDouble() ? Code::IndexOfDouble : Code::IndexOfInteger, node);
            made.a = scalar(node, 0);
            made.operandKind = type.scalarKind();
            break;
        }
        case Op::ChkBounds: {
            Instruction& made = add(Code::CheckBounds, node);
            made.a = integer64(node, 0);
            made.b = integer64(node, 1);
            break;
        }
        case Op::ChkZero: {
            Instruction& made = add(Code::CheckZero, node);
            made.a = scalar(node, 0);
            made.operandKind = typeOf(node, 0).scalarKind();
            break;
        }
        default: {
            require(typeOf(node, 0).isDouble() && typeOf(node, 1).isInteger(), node,
                    "types differ");
            Instruction& made = add(Code::CheckLossy, node);
            made.a = scalar(node, 0);
            made.b = scalar(node, 1);
            made.operandKind = typeOf(node, 1).scalarKind();
        }
        }
    }

    void decodeCall(const Node& node) {
        const Callee* const callee = asCallee(node.operand(0));
        require(callee != nullptr, node, "no callee");
        CallSite site;
        site.callee = callee->name();
        for (std::size_t i = 1; i < node.numOperands(); ++i) {
            const Type& type = typeOf(node, i);
            site.arguments.push_back({type.isArray(), place(node, i), &type});
        }
        site.hasResult = node.hasValue();
        site.result = {node.type()->isArray(), site.hasResult ? nodes_[node.id()] : 0, node.type()};
        program_.calls.push_back(std::move(site));
        add(Code::Call, node).a = static_cast<std::uint32_t>(program_.calls.size() - 1);
    }

    void decodeTerminator(const Node& node) {
        switch (node.op()) {
        case Op::Jump:
            add(Code::Jump, node).dst = blockId(node, 0);
            break;
        case Op::Br: {
            require(typeOf(node, 0).isLogical(), node, "the condition is no logical");
            const std::uint32_t condition = scalar(node, 0);
            Instruction& made = add(Code::Branch, node);
            made.a = condition;
            made.b = blockId(node, 1);
            made.c = blockId(node, 2);
            break;
        }
        case Op::Ret: {
            const Type& result = *program_.function->resultType();
            if (node.numOperands() == 0) {
                require(result.isVoid(), node, "the result is missing");
                add(Code::ReturnNothing, node);
                break;
            }
            require(&typeOf(node, 0) == &result, node, "types differ");
            add(result.isArray() ? Code::ReturnArray : Code::Return, node).a = place(node, 0);
            break;
        }
        default: {
            const Const* const code = asConst(node.operand(0));
            require(code != nullptr, node, "no code");
            add(Code::Trap, node).a = place(node, 0);
        }
        }
    }

    void decodeCount(const Node& node) {
        const Const* const number = asConst(node.operand(0));
        require(number != nullptr && number->asInt() >= 0 && number->asInt() < (1 << 24), node,
                "no number of a counter");
        const auto index = static_cast<std::uint32_t>(number->asInt());
        if (program_.counters.size() <= index) {
            program_.counters.resize(index + 1);
        }
        add(Code::Count, node).a = index;
    }

    void decode(const Node& node) {
        switch (node.op()) {
        case Op::Load:
        case Op::Store:
        case Op::AddrOf:
        case Op::LoadP:
        case Op::StoreP:
            return decodeVariable(node);
        case Op::Select:
            return decodeSelect(node);
        case Op::NewArray:
        case Op::Rows:
        case Op::Cols:
        case Op::Numel:
        case Op::Resize:
            return decodeArray(node);
        case Op::LdElem:
        case Op::LdElem2:
        case Op::StElem:
        case Op::StElem2:
            return decodeElement(node);
        case Op::ToIndex:
        case Op::ChkBounds:
        case Op::ChkZero:
        case Op::ChkLossy:
            return decodeCheck(node);
        case Op::Call:
            return decodeCall(node);
        case Op::Count:
            return decodeCount(node);
        case Op::Jump:
        case Op::Br:
        case Op::Ret:
        case Op::Trap:
            return decodeTerminator(node);
        default:
            return decodeScalar(node);
        }
    }

    const Cfg& cfg_;
    Program program_;
    std::vector<std::uint32_t> consts_; // by id: slot
    std::vector<std::uint32_t> vars_;   // by id: slot or array place
    std::vector<std::uint32_t> nodes_;  // by id: slot or array place
};

} // namespace

Program decode(const Function& function) {
    return Decoder(function).run();
}

} // namespace QN::evaluator
