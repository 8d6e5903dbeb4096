// See generate.hpp. Statements are nested as in a program; values made inside a nested part are
// forgotten behind it, where they would not dominate their uses.
#include "tools/generate.hpp"

#include <qn/arithmetic.hpp>
#include <qn/builder.hpp>

#include <cmath>
#include <limits>
#include <string>
#include <unordered_map>
#include <utility>

namespace QN::tools {

namespace {

constexpr std::int64_t arrayRows = 3;
constexpr std::int64_t arrayCols = 4;

class Random {
public:
    explicit Random(std::uint32_t seed) : engine_(seed) {}
    std::uint32_t below(std::size_t limit) { return static_cast<std::uint32_t>(engine_() % limit); }
    bool chance(std::uint32_t percent) { return below(100) < percent; }
    std::uint64_t bits() {
        const std::uint64_t high = engine_();
        return (high << 32) | engine_();
    }
    template <typename T>
    const T& among(const std::vector<T>& choices) {
        return choices[below(choices.size())];
    }

private:
    std::mt19937 engine_;
};

const std::vector<ScalarKind> kinds = {ScalarKind::Double,  ScalarKind::Double, ScalarKind::Double,
                                       ScalarKind::Logical, ScalarKind::Int8,   ScalarKind::Uint8,
                                       ScalarKind::Int16,   ScalarKind::Int32,  ScalarKind::Int32,
                                       ScalarKind::Uint32,  ScalarKind::Int64,  ScalarKind::Uint64};

std::uint64_t randomScalar(Random& random, const Type& type) {
    if (type.isLogical()) {
        return random.below(2);
    }
    if (type.isDouble()) {
        const std::vector<double> special = {0.0,  -0.0,         1.0,   -1.0,  2.0,      0.5,
                                             -2.5, 3.0,          10.0,  1e10,  INFINITY, -INFINITY,
                                             NAN,  2147483648.0, 1e300, 5e-324};
        return bitsOf(random.chance(60) ? random.among(special)
                                        : static_cast<double>(random.below(2001)) / 8 - 100);
    }
    const std::uint64_t extremes[] = {0,
                                      1,
                                      2,
                                      7,
                                      ~std::uint64_t{0},
                                      std::uint64_t{1} << (type.bits() - 1),
                                      (std::uint64_t{1} << (type.bits() - 1)) - 1};
    return normalizeScalar(type, random.chance(50) ? extremes[random.below(7)] : random.bits());
}

/// Functions that can be called, by the type of their result, in the order of the scope.
using Callables = std::unordered_map<const Type*, std::vector<const Function*>>;

class Generator {
public:
    Generator(Random& random, const Callables& callables, Function& function, int statements)
        : random_(random), callables_(callables), function_(function), cfg_(function.cfg()),
          builder_(cfg_, cfg_.addBlock()), budget_(statements) {}

    void run() {
        declare();
        while (budget_ > 0) {
            statement(0);
        }
        builder_.setLine(++line_);
        if (function_.resultType()->isArray()) {
            builder_.ret(builder_.load(varOf(*function_.resultType())));
        } else {
            builder_.ret(value(*function_.resultType(), 2));
        }
    }

private:
    void declare() {
        const auto params = random_.below(4);
        for (std::uint32_t i = 0; i < params; ++i) {
            const ScalarKind kind = random_.among(kinds);
            function_.addParam(random_.chance(20) ? Type::array(kind) : Type::scalar(kind),
                               "p" + std::to_string(i));
        }
        const auto locals = 3 + random_.below(5);
        for (std::uint32_t i = 0; i < locals; ++i) {
            const ScalarKind kind = random_.among(kinds);
            const Type* const type = random_.chance(25) ? Type::array(kind) : Type::scalar(kind);
            cfg_.addVar(VarKind::User, type, random_.chance(10) ? "x" : "v" + std::to_string(i));
        }
        cfg_.addVar(VarKind::User, Type::f64(), "d");
        cfg_.addVar(VarKind::User, Type::array(ScalarKind::Double), "a");
        cfg_.addVar(VarKind::User, Type::i32(), "i");
        if (function_.resultType()->isArray()) {
            cfg_.addVar(VarKind::User, function_.resultType(), "result");
        }
        for (Var& var : cfg_.vars()) {
            vars_.push_back(&var);
            if (var.isAggregate() && var.varKind() != VarKind::Param) {
                builder_.store(&var, newArray(*var.type()));
            }
        }
    }

    Const* i64(std::int64_t number) { return cfg_.constantInt(Type::i64(), number); }

    Node* newArray(const Type& type) {
        Const* const cols = i64(arrayCols);
        return builder_.newArray(type.scalarKind(), i64(arrayRows), cols);
    }

    /// A variable of the type; a new one if there is none.
    Var* varOf(const Type& type) {
        std::vector<Var*> candidates;
        for (Var* const var : vars_) {
            if (var->type() == &type) {
                candidates.push_back(var);
            }
        }
        if (!candidates.empty()) {
            return random_.among(candidates);
        }
        Var* const made = cfg_.addVar(VarKind::User, &type, "n" + std::to_string(vars_.size()));
        if (type.isArray()) {
            // Not vars_: elsewhere it might be used before this block has given it its size.
            builder_.store(made, newArray(type));
        } else {
            vars_.push_back(made);
        }
        return made;
    }

    Var* someArray() {
        std::vector<Var*> candidates;
        for (Var* const var : vars_) {
            if (var->isAggregate()) {
                candidates.push_back(var);
            }
        }
        return random_.among(candidates); // there is always "a"
    }

    /// An index from 1 to `limit`, now and then one outside.
    Entity* index(std::int64_t limit) {
        if (random_.chance(1)) {
            return i64(limit + 1 + random_.below(3));
        }
        if (random_.chance(50)) {
            return i64(1 + random_.below(static_cast<std::size_t>(limit)));
        }
        if (random_.chance(50)) {
            Entity* const from = value(*Type::i32(), 1);
            Entity* const small =
                builder_.binary(Op::Mod, from, cfg_.constantInt(Type::i32(), limit));
            return keep(builder_.toIndex(
                builder_.binary(Op::Add, small, cfg_.constantInt(Type::i32(), 1))));
        }
        Entity* const any = builder_.convert(value(*Type::f64(), 1), Type::i64());
        Const* const one = i64(1);
        return keep(builder_.binary(Op::Add, builder_.binary(Op::Mod, any, i64(limit)), one));
    }

    Node* keep(Node* node) {
        values_.push_back(node);
        valuesOf_[node->type()].push_back(node);
        return node;
    }

    /// Forgets all values but the first `count`.
    void forgetFrom(std::size_t count) {
        for (; values_.size() > count; values_.pop_back()) {
            valuesOf_[values_.back()->type()].pop_back();
        }
    }

    Mode mode() {
        if (random_.chance(70)) {
            return {};
        }
        return {static_cast<Rounding>(random_.below(5)), static_cast<Overflow>(random_.below(2))};
    }

    Entity* value(const Type& type, int depth) {
        if (random_.chance(30)) {
            if (const std::vector<Node*>& known = valuesOf_[&type]; !known.empty()) {
                return random_.among(known);
            }
        }
        if (depth <= 0 || random_.chance(25)) {
            return random_.chance(35)
                       ? static_cast<Entity*>(cfg_.constant(&type, randomScalar(random_, type)))
                       : keep(builder_.load(varOf(type)));
        }
        return keep(operation(type, depth - 1));
    }

    Node* operation(const Type& type, int depth) {
        if (random_.chance(8)) {
            if (Node* const call = callFor(type, depth); call != nullptr) {
                return call;
            }
        }
        if (random_.chance(12)) {
            return element(type, depth);
        }
        if (random_.chance(10)) {
            Entity* const otherwise = value(type, depth);
            Entity* const chosen = value(type, depth);
            return builder_.select(value(*Type::logical(), depth), chosen, otherwise);
        }
        if (type.isLogical()) {
            return logicalOperation(depth);
        }
        if (random_.chance(15)) {
            const Mode how = mode();
            return builder_.convert(value(*Type::scalar(random_.among(kinds)), depth), &type, how);
        }
        static const std::vector<Op> common = {Op::Add, Op::Add, Op::Sub, Op::Mul, Op::Div, Op::Neg,
                                               Op::Abs, Op::Min, Op::Max, Op::Mod, Op::Rem};
        static const std::vector<Op> ofDoubles = {Op::Sqrt,  Op::Floor, Op::Ceil, Op::Round,
                                                  Op::Trunc, Op::Sin,   Op::Pow};
        const Op op = random_.among(type.isDouble() && random_.chance(20) ? ofDoubles : common);
        const Mode how = hasFlag(op, OpFlag::Arithmetic) && type.isInteger() ? mode() : Mode();
        Entity* const x = value(type, depth);
        return infoOf(op).operands.size() == 1 ? builder_.unary(op, x, how)
                                               : builder_.binary(op, x, value(type, depth), how);
    }

    Node* logicalOperation(int depth) {
        static const std::vector<Op> comparisons = {Op::Eq, Op::Ne, Op::Lt, Op::Le, Op::Gt, Op::Ge};
        static const std::vector<Op> connectives = {Op::And, Op::Or, Op::Xor};
        if (random_.chance(60)) {
            const Type& compared = *Type::scalar(random_.among(kinds));
            Entity* const y = value(compared, depth);
            Entity* const x = value(compared, depth);
            return builder_.compare(random_.among(comparisons), x, y);
        }
        Entity* const x = value(*Type::logical(), depth);
        if (random_.chance(30)) {
            return builder_.unary(Op::Not, x);
        }
        Entity* const y = value(*Type::logical(), depth);
        return builder_.binary(random_.among(connectives), x, y);
    }

    /// An element of an array, converted if it has another type; or a size.
    Node* element(const Type& type, int depth) {
        static_cast<void>(depth);
        Entity* array = someArray();
        const Type& elementType = *static_cast<Var*>(array)->type()->element();
        if (random_.chance(15)) {
            array = keep(builder_.addressOf(static_cast<Var*>(array)));
        }
        Node* node;
        if (random_.chance(15)) {
            static const std::vector<Op> sizes = {Op::Rows, Op::Cols, Op::Numel};
            node = builder_.sizeOf(random_.among(sizes), array);
        } else if (random_.chance(50)) {
            Entity* const at = index(arrayRows * arrayCols);
            node = builder_.loadElement(array, at);
        } else {
            Entity* const row = index(arrayRows);
            Entity* const col = index(arrayCols);
            node = builder_.loadElement(array, row, col);
        }
        static_cast<void>(elementType);
        return node->type() == &type ? node : builder_.convert(keep(node), &type);
    }

    Node* callFor(const Type& type, int depth) {
        const auto candidates = callables_.find(&type);
        if (candidates == callables_.end() || calls_ >= 3) {
            return nullptr;
        }
        ++calls_;
        const Function& callee = *random_.among(candidates->second);
        std::vector<Entity*> arguments;
        for (const Type* const param : callee.paramTypes()) {
            arguments.push_back(param->isArray() ? keep(builder_.load(varOf(*param)))
                                                 : value(*param, depth));
        }
        return builder_.call(callee.name(), callee.resultType(), arguments);
    }

    void statement(int depth) {
        --budget_;
        builder_.setLine(++line_);
        const auto choice = random_.below(100);
        if (choice < 12 && depth < 3) {
            branch(depth);
        } else if (choice < 22 && depth < 2) {
            loop(depth);
        } else if (choice < 40) {
            storeElement();
        } else if (choice < 50) {
            throughPointer();
        } else if (choice < 54) {
            copyArray();
        } else if (choice < 62) {
            chooseInteger();
        } else {
            Var* const var = random_.among(vars_);
            if (var->isAggregate()) {
                storeElement();
            } else {
                builder_.store(var, value(*var->type(), 3));
            }
        }
    }

    void nested(int depth) {
        const std::size_t known = values_.size();
        for (auto n = 1 + random_.below(3); n > 0; --n) {
            statement(depth + 1);
        }
        forgetFrom(known);
    }

    void branch(int depth) {
        Entity* const condition = value(*Type::logical(), 2);
        Block* const yes = cfg_.addBlock();
        Block* const no = cfg_.addBlock();
        Block* const after = cfg_.addBlock();
        builder_.branch(condition, yes, no);
        builder_.atEndOf(yes);
        nested(depth);
        builder_.jump(after);
        builder_.atEndOf(no);
        if (random_.chance(60)) {
            nested(depth);
        }
        builder_.jump(after);
        builder_.atEndOf(after);
    }

    /// One integer or another, by a remainder; the divisions may be exact then.
    void chooseInteger() {
        Var* const var = random_.among(vars_);
        const Type& type = *var->type();
        if (!type.isInteger()) {
            builder_.store(var, var->isAggregate() ? builder_.load(var) : value(type, 1));
            return;
        }
        const auto power = [&] {
            const int bits = type.bits() - (type.isSigned() ? 1 : 0);
            const auto most = static_cast<std::size_t>(std::min(bits, 8));
            return cfg_.constantInt(&type, std::int64_t{1} << random_.below(most));
        };
        Const* const divisor = power();
        Entity* const x = value(type, 1);
        Node* const rest =
            keep(builder_.binary(random_.chance(50) ? Op::Mod : Op::Rem, x, divisor));
        Block* const sides[2] = {cfg_.addBlock(), cfg_.addBlock()};
        Block* const after = cfg_.addBlock();
        builder_.branch(builder_.compare(random_.chance(50) ? Op::Eq : Op::Ne, rest,
                                         cfg_.constantInt(&type, 0)),
                        sides[0], sides[1]);
        for (Block* const side : sides) {
            builder_.atEndOf(side);
            Entity* result = x;
            for (auto n = random_.below(3); n > 0; --n) {
                const std::uint32_t kind = random_.below(4);
                const Op op = kind == 0   ? Op::Mul
                              : kind == 1 ? Op::Add
                              : kind == 2 ? Op::Sub
                                          : Op::Div;
                Entity* const other = op == Op::Div
                                          ? (random_.chance(70) ? divisor : power())
                                          : cfg_.constant(&type, randomScalar(random_, type));
                result = builder_.binary(op, result, other, mode());
            }
            builder_.store(var, result);
            builder_.jump(after);
        }
        builder_.atEndOf(after);
    }

    void loop(int depth) {
        Var* const counter = cfg_.addVar(VarKind::Temp, Type::i64(), random_.chance(50) ? "" : "k");
        builder_.store(counter, i64(0));
        Block* const head = cfg_.addBlock();
        Block* const body = cfg_.addBlock();
        Block* const after = cfg_.addBlock();
        builder_.jump(head);
        builder_.atEndOf(head);
        Node* const count = keep(builder_.load(counter));
        builder_.branch(builder_.compare(Op::Lt, count, i64(1 + random_.below(4))), body, after);
        builder_.atEndOf(body);
        nested(depth);
        builder_.store(counter, builder_.binary(Op::Add, count, i64(1)));
        builder_.jump(head);
        builder_.atEndOf(after);
    }

    void storeElement() {
        Var* const array = someArray();
        Entity* const stored = value(*array->type()->element(), 2);
        Entity* target = array;
        if (random_.chance(15)) {
            target = keep(builder_.addressOf(array));
        }
        if (random_.chance(50)) {
            builder_.storeElement(target, index(arrayRows * arrayCols), stored);
        } else {
            Entity* const row = index(arrayRows);
            Entity* const col = index(arrayCols);
            builder_.storeElement(target, row, col, stored);
        }
    }

    void throughPointer() {
        Var* const var = random_.among(vars_);
        if (var->isAggregate()) {
            storeElement();
            return;
        }
        Node* const pointer = keep(builder_.addressOf(var));
        if (random_.chance(60)) {
            builder_.storeThrough(pointer, value(*var->type(), 2));
        } else {
            keep(builder_.loadThrough(pointer));
        }
    }

    void copyArray() {
        Var* const from = someArray();
        if (random_.chance(30)) {
            Const* const cols = i64(arrayCols + random_.below(2));
            builder_.resize(from, i64(arrayRows + random_.below(2)), cols);
            return;
        }
        Node* const loaded = builder_.load(from);
        builder_.store(varOf(*from->type()), loaded);
    }

    Random& random_;
    const Callables& callables_;
    Function& function_;
    Cfg& cfg_;
    Builder builder_;
    int budget_;
    int calls_ = 0;
    std::uint32_t line_ = 0;
    std::vector<Var*> vars_;
    std::vector<Node*> values_; // those that dominate the present place
    std::unordered_map<const Type*, std::vector<Node*>> valuesOf_; // the same by type
};

} // namespace

std::unique_ptr<Scope> generate(GenerateOptions options) {
    Random random(options.seed);
    auto scope = std::make_unique<Scope>(ScopeFlavor::Unit, "generated");
    Callables callables;
    for (int i = 0; i < options.functions; ++i) {
        const ScalarKind kind = random.among(kinds);
        const Type* const result = random.chance(15) ? Type::array(kind) : Type::scalar(kind);
        Function* const function = scope->addFunction("f" + std::to_string(i), result);
        function->setExported(i + 1 == options.functions || random.chance(50));
        Generator(
            random, callables, *function,
            1 + static_cast<int>(random.below(2 * static_cast<std::size_t>(options.statements))))
            .run();
        callables[result].push_back(function);
    }
    return scope;
}

std::vector<Value> generateArguments(const Function& function, std::uint32_t seed) {
    Random random(seed);
    std::vector<Value> arguments;
    for (const Type* const type : function.paramTypes()) {
        Value value;
        value.type = type;
        if (type->isArray()) {
            value.array = ArrayValue(type->scalarKind(), arrayRows, arrayCols);
            for (std::int64_t i = 1; i <= value.array.numel(); ++i) {
                value.array.set(i, randomScalar(random, *type->element()));
            }
        } else {
            value.bits = randomScalar(random, *type);
        }
        arguments.push_back(std::move(value));
    }
    return arguments;
}

namespace {

std::string shown(const Type& type, std::uint64_t bits) {
    return type.isDouble() && std::isnan(asDouble(bits)) ? "nan" : std::to_string(bits);
}

} // namespace

std::string outcomeOf(const Scope& scope, const Function& function,
                      const std::vector<Value>& arguments) {
    Evaluator evaluator(scope);
    evaluator.setStepLimit(2'000'000);
    try {
        const Value result = evaluator.call(function, arguments);
        if (!result.type->isArray()) {
            return shown(*result.type, result.bits);
        }
        std::string text =
            std::to_string(result.array.rows()) + "x" + std::to_string(result.array.cols());
        for (std::int64_t i = 1; i <= result.array.numel(); ++i) {
            text += " " + shown(*result.type->element(), result.array.get(i));
        }
        return text;
    } catch (const EvaluationError& error) {
        return "trap at " + std::to_string(error.line()) + ": " + error.what();
    }
}

} // namespace QN::tools
