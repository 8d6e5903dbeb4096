// The compiler's entry, registers, labels and constants.
#include "lang/compiler.hpp"

#include "lang/compiler_state.hpp"
#include "lang/parser.hpp"
#include "value/errors.hpp"

#include <bit>
#include <limits>

namespace varnix {

namespace {

constexpr std::size_t maxRegisters = 60000;
constexpr std::size_t maxOperand = std::numeric_limits<std::uint16_t>::max();

void describeFunction(const FunctionTree& tree, Unit& unit, Code& code) {
    code.unit = &unit;
    code.name = tree.name;
    code.help = tree.help;
    code.signature = tree.signature;
    code.place = tree.place;
    code.parameters = tree.parameters;
}

} // namespace

std::shared_ptr<Unit> compile(const Source& source, const CompileOptions& options) {
    const std::unique_ptr<SyntaxTree> tree =
        options.expression ? parseExpression(source) : parseScript(source);
    auto unit = std::make_shared<Unit>();
    unit->name = source.name;
    unit->folder = source.folder;
    unit->parent = options.parent;
    for (const FunctionTree& function : tree->functions) {
        const bool isBody = &function == tree->body;
        Code& code = isBody ? unit->body : *unit->functions.emplace_back(std::make_unique<Code>());
        describeFunction(function, *unit, code);
        CompileOptions own = options;
        if (!isBody) {
            own.echo = false;
            own.isVariable = nullptr;
        }
        FunctionCompiler compiler(source, own, code, *function.scope, nullptr);
        if (own.echo)
            compiler.addAnswer();
        compiler.body(function.block);
    }
    return unit;
}

FunctionCompiler::FunctionCompiler(const Source& source, const CompileOptions& options, Code& code,
                                   const Scope& scope, FunctionCompiler* outer)
    : source_(source), options_(options), code_(code), scope_(scope), outer_(outer) {
    for (const Scope::Entry& entry : scope.entries)
        code_.names.push_back(entry.name);
    code_.slots = scope.slots;
    next_ = code_.registers = code_.names.size();
}

void FunctionCompiler::addAnswer() {
    const objsys::COSNameID name("ans");
    const auto [where, isNew] =
        code_.slots.try_emplace(name, static_cast<Slot>(code_.names.size()));
    if (isNew)
        code_.names.push_back(name);
    answer_ = where->second;
    next_ = code_.registers = code_.names.size();
}

// ---- emission

void FunctionCompiler::tooLarge(Place place) const {
    raiseAt(id::tooLarge, source_, place, "this code is too large for one function or script");
}

std::size_t FunctionCompiler::emit(Place place, Op op, std::size_t a, std::size_t b,
                                   std::size_t c) {
    if (a > maxOperand || b > maxOperand || c > maxOperand ||
        code_.instructions.size() >= std::numeric_limits<std::int32_t>::max())
        tooLarge(place);
    code_.instructions.push_back({.op = op,
                                  .a = static_cast<std::uint16_t>(a),
                                  .b = static_cast<std::uint16_t>(b),
                                  .c = static_cast<std::uint16_t>(c)});
    code_.places.push_back(place);
    return code_.instructions.size() - 1;
}

std::size_t FunctionCompiler::emitWide(Place place, Op op, std::size_t a, std::size_t wide) {
    const std::size_t at = emit(place, op, a);
    code_.instructions[at].setWide(static_cast<std::uint32_t>(wide));
    return at;
}

void FunctionCompiler::jump(Place place, Op op, Register a, Label& label) {
    const std::size_t at = emit(place, op, a);
    if (label.position)
        patch(at, *label.position);
    else
        label.jumps.push_back(at);
}

void FunctionCompiler::bind(Label& label) {
    label.position = code_.instructions.size();
    for (const std::size_t at : label.jumps)
        patch(at, *label.position);
    label.jumps.clear();
}

void FunctionCompiler::patch(std::size_t at, std::size_t target) {
    const auto distance = static_cast<std::int64_t>(target) - static_cast<std::int64_t>(at);
    code_.instructions[at].setWide(static_cast<std::uint32_t>(static_cast<std::int32_t>(distance)));
}

Register FunctionCompiler::take(Place place, std::size_t count) {
    const std::size_t first = next_;
    next_ += count;
    if (next_ > maxRegisters)
        tooLarge(place);
    if (next_ > code_.registers)
        code_.registers = next_;
    return static_cast<Register>(first);
}

bool FunctionCompiler::isVariable(Slot slot) const {
    if (slot >= scope_.entries.size())
        return true; // ans
    const Scope::Entry& entry = scope_.entries[slot];
    if (entry.assigned || entry.parameter)
        return true;
    if (outer_ != nullptr) {
        const auto found = outer_->code_.slots.find(entry.name);
        return found != outer_->code_.slots.end() && outer_->isVariable(found->second);
    }
    return options_.isVariable && options_.isVariable(entry.name);
}

std::size_t FunctionCompiler::constant(const Value& value) {
    code_.constants.push_back(value);
    return code_.constants.size() - 1;
}

std::size_t FunctionCompiler::doubleConstant(double value) {
    // By bits: 0 and -0 differ, and a NaN equals itself.
    const auto [where, isNew] = doubles_.try_emplace(std::bit_cast<std::uint64_t>(value), 0);
    if (isNew)
        where->second = constant(Value::ofDouble(value));
    return where->second;
}

std::size_t FunctionCompiler::textConstant(std::string_view text) {
    const auto found = texts_.find(text);
    if (found != texts_.end())
        return found->second;
    const std::size_t index = constant(Value::text(text));
    texts_.emplace(text, index);
    return index;
}

} // namespace varnix
