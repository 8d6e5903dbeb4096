// Each scalar operation as machine code against qn/arithmetic.hpp, over values at the edges of its
// types, in every mode; and folded by LLVM where the operands are constants.
#include "vmrt_support.hpp"

#include <qn/builder.hpp>

#include <limits>

using namespace QN;
using namespace QN::vmrt_test;

namespace {

const ScalarKind kinds[] = {ScalarKind::Double, ScalarKind::Logical, ScalarKind::Int8,
                            ScalarKind::Int16,  ScalarKind::Int32,   ScalarKind::Int64,
                            ScalarKind::Uint8,  ScalarKind::Uint16,  ScalarKind::Uint32,
                            ScalarKind::Uint64};

std::vector<std::uint64_t> valuesOf(const Type& type) {
    if (type.isLogical()) {
        return {0, 1};
    }
    std::vector<std::uint64_t> values;
    if (type.isDouble()) {
        const double infinity = std::numeric_limits<double>::infinity();
        for (const double value : {0.0,
                                   -0.0,
                                   1.0,
                                   -1.0,
                                   0.5,
                                   -0.5,
                                   1.5,
                                   -1.5,
                                   2.5,
                                   -2.5,
                                   2.0,
                                   3.0,
                                   -7.0,
                                   127.5,
                                   255.5,
                                   -128.5,
                                   32767.5,
                                   1e10,
                                   -1e10,
                                   2147483647.5,
                                   -2147483648.5,
                                   0x1p31,
                                   0x1p32,
                                   0x1p53,
                                   0x1p53 + 2,
                                   0x1p63,
                                   -0x1p63,
                                   0x1p64,
                                   0x1.8p64,
                                   1e300,
                                   -1e300,
                                   infinity,
                                   -infinity,
                                   5e-324,
                                   0.49999999999999994,
                                   4503599627370495.5,
                                   6.25,
                                   std::nan("")}) {
            values.push_back(bitsOf(value));
        }
        return values;
    }
    for (const std::uint64_t bits :
         {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{2}, std::uint64_t{3}, std::uint64_t{7},
          std::uint64_t{10}, ~std::uint64_t{0}, ~std::uint64_t{1}, ~std::uint64_t{6},
          std::uint64_t{1} << (type.bits() - 1), (std::uint64_t{1} << (type.bits() - 1)) - 1,
          (std::uint64_t{1} << (type.bits() - 1)) + 1, std::uint64_t{1} << (type.bits() / 2),
          (std::uint64_t{1} << 53) + 1, std::uint64_t{0x123456789abcdef}}) {
        values.push_back(normalizeScalar(type, bits));
    }
    return values;
}

std::vector<Mode> modesOf(Op op, const Type& type, const Type& result) {
    const bool matters =
        hasFlag(op, OpFlag::Arithmetic) && (type.isInteger() || result.isInteger());
    std::vector<Mode> modes;
    for (int rounding = 0; rounding < (matters ? 5 : 1); ++rounding) {
        for (int overflow = 0; overflow < (matters ? 2 : 1); ++overflow) {
            modes.emplace_back(static_cast<Rounding>(rounding), static_cast<Overflow>(overflow));
        }
    }
    return modes;
}

/// Calls `visit` for each operation on scalars, each type of its operands and of its result.
template <typename Visit>
void forEachOperation(Visit visit) {
    for (std::size_t i = 0; i < opCount; ++i) {
        const Op op = static_cast<Op>(i);
        const std::size_t operands = infoOf(op).operands.size();
        const bool scalar = hasFlag(op, OpFlag::Pure) && op != Op::AddrOf && op != Op::Select;
        for (const ScalarKind kind : kinds) {
            const Type& type = *Type::scalar(kind);
            for (const ScalarKind resultKind : kinds) {
                const Type& result = *Type::scalar(resultKind);
                const bool fits = op == Op::Convert               ? true
                                  : hasFlag(op, OpFlag::Compares) ? result.isLogical()
                                                                  : &result == &type;
                const std::uint64_t probe[2] = {1, 1};
                std::uint64_t ignored;
                if (scalar && fits && computeScalar(op, {}, result, type, probe, ignored)) {
                    visit(op, operands, type, result);
                }
            }
        }
    }
}

void checkOperations(const VMEngineConfig& config, bool allModes) {
    const auto engine = VMRT::makeEngine(config);
    std::size_t functions = 0;
    forEachOperation([&](Op op, std::size_t operands, const Type& type, const Type& result) {
        for (const Mode mode : modesOf(op, type, result)) {
            if (!allModes && mode.bits() % 3 != 0) {
                continue;
            }
            Scope scope(ScopeFlavor::Unit, "operations");
            Function& function = *scope.addFunction("f", &result);
            for (std::size_t i = 0; i < operands; ++i) {
                function.addParam(&type, i == 0 ? "a" : "b");
            }
            Builder build(function.cfg(), function.cfg().addBlock());
            std::vector<Entity*> loaded;
            for (Var& var : function.cfg().vars()) {
                loaded.push_back(build.load(&var));
            }
            build.ret(build.node(op, &result, loaded, mode));
            const auto code = engine->prepare(scope, function, "");
            ++functions;
            ExecutionContext context;
            for (const std::uint64_t a : valuesOf(type)) {
                for (const std::uint64_t b : valuesOf(type)) {
                    const std::uint64_t values[2] = {a, b};
                    std::uint64_t expected = 0;
                    ASSERT_TRUE(computeScalar(op, mode, result, type, values, expected));
                    std::uint64_t words[3] = {a, b, 0};
                    code->call(words, context);
                    ASSERT_EQ(shown(result, words[operands]), shown(result, expected))
                        << infoOf(op).text << " of " << type.name() << " to " << result.name()
                        << ", mode " << int{mode.bits()} << ": " << shown(type, a) << ", "
                        << shown(type, b);
                    if (operands == 1) {
                        break;
                    }
                }
            }
        }
    });
    EXPECT_GT(functions, 300U);
}

} // namespace

TEST(VmrtOperations, GiveTheBitsOfTheArithmeticWithoutOptimization) {
    checkOperations(atLevel(VMEngineConfig::OptNone), true);
}

TEST(VmrtOperations, AndWithIt) {
    checkOperations(atLevel(VMEngineConfig::OptDefault), false);
}

TEST(VmrtOperations, AndForThisProcessor) {
    checkOperations(atLevel(VMEngineConfig::OptAccelerator), false);
}

TEST(VmrtOperations, AndInSoftFloat) {
    VMEngineConfig config = atLevel(VMEngineConfig::OptNone);
    config.setUseSoftFloat(true);
    checkOperations(config, true);
}

TEST(VmrtOperations, GiveTheSameWhenLlvmKnowsTheOperands) {
    const auto engine = VMRT::makeEngine(atLevel(VMEngineConfig::OptDefault));
    forEachOperation([&](Op op, std::size_t operands, const Type& type, const Type& result) {
        Scope scope(ScopeFlavor::Unit, "operations");
        Function& function = *scope.addFunction("f", Type::array(result.scalarKind()));
        Cfg& cfg = function.cfg();
        Builder build(cfg, cfg.addBlock());
        Var* const into = cfg.addVar(VarKind::User, function.resultType(), "into");
        const std::vector<std::uint64_t> values = valuesOf(type);
        const auto i64 = [&](std::size_t n) {
            return cfg.constantInt(Type::i64(), static_cast<std::int64_t>(n));
        };
        build.store(into, build.newArray(result.scalarKind(), i64(values.size()), i64(1)));
        std::vector<std::uint64_t> expected;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const std::uint64_t pair[2] = {values[i], values[(i * 7 + 3) % values.size()]};
            Entity* const constants[2] = {cfg.constant(&type, pair[0]),
                                          cfg.constant(&type, pair[1])};
            build.storeElement(into, i64(i + 1),
                               build.node(op, &result, std::span(constants, operands)));
            ASSERT_TRUE(computeScalar(op, {}, result, type, pair, expected.emplace_back()));
        }
        build.ret(build.load(into));
        const auto code = engine->prepare(scope, function, "");
        const Value value = callWith(*code, *function.resultType(), {});
        for (std::size_t i = 0; i < values.size(); ++i) {
            EXPECT_EQ(shown(result, value.array.get(static_cast<std::int64_t>(i) + 1)),
                      shown(result, expected[i]))
                << infoOf(op).text << " of " << type.name() << " to " << result.name() << ": "
                << shown(type, values[i]);
        }
    });
}
