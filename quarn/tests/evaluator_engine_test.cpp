// The evaluator behind the interface of engines: arguments and results as words, depth, interrupts,
// counters.
#include "vmrt_support.hpp"

#include <qn/builder.hpp>

#include <csignal>

namespace QN {
namespace {

using vmrt_test::callWith;

/// down(n) = n < 1 ? 0 : down(n - 1) + 1, with a counter at its start.
Function& addDown(Scope& scope) {
    Function& function = *scope.addFunction("down", Type::f64());
    Var* const n = function.addParam(Type::f64(), "n");
    Cfg& cfg = function.cfg();
    Block* const entry = cfg.addBlock();
    Block* const ends = cfg.addBlock();
    Block* const goesOn = cfg.addBlock();
    Builder b(cfg, entry);
    b.node(Op::Count, Type::voidType(), {cfg.constantInt(Type::i64(), 1)});
    b.branch(b.compare(Op::Lt, b.load(n), cfg.constantDouble(1)), ends, goesOn);
    b.atEndOf(ends);
    b.ret(cfg.constantDouble(0));
    b.atEndOf(goesOn);
    Entity* const less = b.binary(Op::Sub, b.load(n), cfg.constantDouble(1));
    Entity* const arguments[] = {less};
    b.ret(b.binary(Op::Add, b.call("down", Type::f64(), arguments), cfg.constantDouble(1)));
    return function;
}

TEST(EvaluatorEngine, CallsByWordsAndCounts) {
    Scope scope(ScopeFlavor::Unit, "unit");
    Function& down = addDown(scope);
    const auto engine = makeEvaluatorEngine();
    EXPECT_EQ(engine->name(), "evaluator");
    const auto code = engine->prepare(scope, down, "");
    EXPECT_TRUE(code->needsScope());
    EXPECT_EQ(callWith(*code, *Type::f64(), {Value::ofDouble(5)}).asDouble(), 5);
    const auto counters = code->counters();
    ASSERT_EQ(counters.size(), 2U);
    EXPECT_EQ(counters[1].function, "down");
    EXPECT_EQ(counters[1].number, 1);
    EXPECT_EQ(counters[1].count, 6U);
}

TEST(EvaluatorEngine, EndsWhereTheDepthIsUsedUp) {
    Scope scope(ScopeFlavor::Unit, "unit");
    const auto engine = makeEvaluatorEngine();
    const auto code = engine->prepare(scope, addDown(scope), "");
    EXPECT_EQ(callWith(*code, *Type::f64(), {Value::ofDouble(7)}, 7).asDouble(), 7);
    try {
        static_cast<void>(callWith(*code, *Type::f64(), {Value::ofDouble(8)}, 7));
        FAIL() << "deeper than allowed";
    } catch (const EvaluationError& error) {
        EXPECT_EQ(error.code(), TrapCode::StackOverflow);
    }
    EXPECT_EQ(callWith(*code, *Type::f64(), {Value::ofDouble(7)}, 7).asDouble(), 7);
}

TEST(EvaluatorEngine, EndsWhenSomebodyAsksForIt) {
    Scope scope(ScopeFlavor::Unit, "unit");
    Function& function = *scope.addFunction("forever", Type::voidType());
    Block* const entry = function.cfg().addBlock();
    Block* const loop = function.cfg().addBlock();
    Builder b(function.cfg(), entry);
    b.jump(loop);
    b.atEndOf(loop);
    b.jump(loop);
    const auto engine = makeEvaluatorEngine();
    const auto code = engine->prepare(scope, function, "");
    const volatile std::sig_atomic_t asked = 1;
    ExecutionContext context;
    context.interruptRequested = &asked;
    std::uint64_t none = 0;
    try {
        code->call(&none, context);
        FAIL() << "an endless loop ended by itself";
    } catch (const EvaluationError& error) {
        EXPECT_EQ(error.code(), TrapCode::Interrupted);
    }
}

} // namespace
} // namespace QN
