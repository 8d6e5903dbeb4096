// See intrinsics.hpp. What each function computes is said in lang/builtins/; here is only how.
#include "codegen/intrinsics.hpp"

#include "value/array.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>

namespace varnix::codegen {

using QN::Op;
using QN::ScalarKind;
using Ref = Emitter::Ref;

namespace {

using Arguments = std::span<const Operand>;
using Results = std::vector<Operand>;

[[noreturn]] void refuse(const char* why) {
    throw Outside{why};
}

[[nodiscard]] std::optional<ScalarKind> kindNamed(std::string_view name) {
    for (int k = 0; k < QN::scalarKindCount; ++k) {
        const auto kind = static_cast<ScalarKind>(k);
        if (name == className(classOfTag(tagOfKind(kind))))
            return kind;
    }
    return std::nullopt;
}

void refuseTexts(Arguments arguments) {
    for (const Operand& each : arguments)
        if (each.isText)
            refuse("a text");
}

// ---- element by element

template <Op Node>
Results real(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    const ScalarKind kind = in[0].type.kind;
    return {ops.map(ScalarKind::Double, in[0], [&](Ref x) {
        return ops.emitter().unary(Node, ops.emitter().convert(x, kind, ScalarKind::Double));
    })};
}

template <Op Node>
Results rounding(Operations& ops, Arguments in, std::size_t requested) {
    refuseTexts(in);
    return isInteger(in[0].type.kind) ? Results{in[0]} : real<Node>(ops, in, requested);
}

Results absolute(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    const ScalarKind kind = in[0].type.kind;
    const ScalarKind result = isInteger(kind) ? kind : ScalarKind::Double;
    return {ops.map(result, in[0], [&](Ref x) {
        return ops.emitter().unary(Op::Abs, ops.emitter().convert(x, kind, result));
    })};
}

Results atan2(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    Emitter& e = ops.emitter();
    return {ops.mapPairs(ScalarKind::Double, in[0], in[1], [&](Ref y, Ref x) {
        const Ref first = e.convert(y, in[0].type.kind, ScalarKind::Double);
        return e.binary(Op::Atan2, first, e.convert(x, in[1].type.kind, ScalarKind::Double));
    })};
}

/// The class of the result of mod, rem, min and max; integers only with their own class.
[[nodiscard]] ScalarKind commonKind(Arguments in) {
    const ScalarKind kind = Operations::arithmeticKind(in[0].type.kind, in[1].type.kind);
    return kind;
}

template <bool SignOfDivisor>
Results remainder(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    Emitter& e = ops.emitter();
    const ScalarKind kind = commonKind(in);
    if (isInteger(kind) && !(Operations::isOf(kind, in[0]) && Operations::isOf(kind, in[1])))
        refuse("a remainder of an integer and a double");
    constexpr Op node = SignOfDivisor ? Op::Mod : Op::Rem;
    return {ops.mapPairs(kind, in[0], in[1], [&](Ref a, Ref b) {
        const Ref x = e.convert(a, in[0].type.kind, kind);
        const Ref y = e.convert(b, in[1].type.kind, kind);
        const Ref plain = e.binary(node, x, y);
        const Ref byZero = e.compare(Op::Eq, y, e.small(kind, 0));
        if (isInteger(kind))
            return SignOfDivisor ? plain : e.select(byZero, e.small(kind, 0), plain);
        // A remainder of zero has no sign.
        const Ref unsignedZero = e.binary(Op::Add, plain, e.number(0));
        return e.select(byZero,
                        SignOfDivisor ? x : e.number(std::numeric_limits<double>::quiet_NaN()),
                        unsignedZero);
    })};
}

template <ScalarKind Kind>
Results convert(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    return {ops.convertedTo(Kind, in[0])};
}

template <int Which> // 0: nan, 1: infinite, 2: finite
Results classify(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    Emitter& e = ops.emitter();
    const ScalarKind kind = in[0].type.kind;
    return {ops.map(ScalarKind::Logical, in[0], [&](Ref v) {
        const Ref x = e.convert(v, kind, ScalarKind::Double);
        const Ref infinite = e.compare(Op::Eq, e.unary(Op::Abs, x),
                                       e.number(std::numeric_limits<double>::infinity()));
        const Ref number = e.compare(Op::Eq, x, x);
        return Which == 0   ? e.negation(number)
               : Which == 1 ? infinite
                            : e.both(number, e.negation(infinite));
    })};
}

// ---- making arrays

/// An extent: a whole number from 0 up that is not absurdly large.
[[nodiscard]] Ref extent(Operations& ops, Ref d) {
    Emitter& e = ops.emitter();
    const Ref whole = e.compare(Op::Eq, e.unary(Op::Trunc, d), d);
    const Ref modest = e.compare(Op::Le, d, e.number(0x1p27));
    const Ref inside = e.both(e.compare(Op::Ge, d, e.number(0)), modest);
    e.require(e.both(whole, inside), HostTrap::Assumption);
    return e.convert(d, ScalarKind::Double, ScalarKind::Int64);
}

struct Size {
    Ref rows;
    Ref columns;
};
[[nodiscard]] Size sizeFrom(Operations& ops, Arguments in) {
    Emitter& e = ops.emitter();
    refuseTexts(in);
    if (in.empty())
        return {e.index(1), e.index(1)};
    if (in.size() >= 2) {
        const Ref rows = extent(ops, ops.onlyDouble(in[0]));
        return {rows, extent(ops, ops.onlyDouble(in[1]))};
    }
    if (!in[0].type.isArray) {
        const Ref n = extent(ops, ops.onlyDouble(in[0]));
        return {n, n};
    }
    e.require(e.compare(Op::Eq, ops.countOf(in[0]), e.index(2)), HostTrap::Assumption);
    const auto at = [&](int k) {
        return extent(ops, e.convert(e.element(in[0].array, e.index(k)), in[0].type.kind,
                                     ScalarKind::Double));
    };
    const Ref rows = at(1);
    return {rows, at(2)};
}

/// The class named by a last argument; takes it off.
[[nodiscard]] ScalarKind classFrom(Arguments& in) {
    if (in.empty() || !in.back().isText)
        return ScalarKind::Double;
    const auto kind = kindNamed(in.back().constant->textView());
    if (!kind)
        refuse("a name that is no numeric class");
    in = in.first(in.size() - 1);
    return *kind;
}

enum class Filling : std::uint8_t { Zeros, Ones, Diagonal };

template <Filling Fill>
Results filled(Operations& ops, Arguments in, std::size_t) {
    Emitter& e = ops.emitter();
    const ScalarKind kind = classFrom(in);
    if (in.size() > 2)
        refuse("three sizes");
    const Size size = sizeFrom(ops, in);
    ops.requireRoom(kind, size.rows, size.columns);
    const Operand result = ops.newArray(kind, size.rows, size.columns);
    if (Fill == Filling::Ones)
        e.loop(e.index(1), e.count(result.array),
               [&](Ref k) { e.setElement(result.array, k, e.small(kind, 1)); });
    if (Fill == Filling::Diagonal)
        e.loop(e.index(1), e.binary(Op::Min, size.rows, size.columns),
               [&](Ref k) { e.setElement(result.array, k, k, e.small(kind, 1)); });
    return {result};
}

Results constantOf(Operations& ops, Arguments in, double value) {
    Emitter& e = ops.emitter();
    if (in.empty())
        return {ops.scalar(ScalarKind::Double, e.number(value))};
    const Size size = sizeFrom(ops, in);
    ops.requireRoom(ScalarKind::Double, size.rows, size.columns);
    const Operand result = ops.newArray(ScalarKind::Double, size.rows, size.columns);
    e.loop(e.index(1), e.count(result.array),
           [&](Ref k) { e.setElement(result.array, k, e.number(value)); });
    return {result};
}
Results infinity(Operations& ops, Arguments in, std::size_t) {
    return constantOf(ops, in, std::numeric_limits<double>::infinity());
}
Results notANumber(Operations& ops, Arguments in, std::size_t) {
    return constantOf(ops, in, std::numeric_limits<double>::quiet_NaN());
}
Results pi(Operations& ops, Arguments, std::size_t) {
    return {ops.scalar(ScalarKind::Double, ops.emitter().number(3.141592653589793))};
}
Results epsilon(Operations& ops, Arguments in, std::size_t) {
    if (!in.empty())
        refuse("eps of a number");
    return {ops.scalar(ScalarKind::Double,
                       ops.emitter().number(std::numeric_limits<double>::epsilon()))};
}

template <bool Greatest>
Results limit(Operations& ops, Arguments in, std::size_t) {
    ScalarKind kind = ScalarKind::Int32;
    if (!in.empty()) {
        const auto named =
            in[0].isText ? kindNamed(in[0].constant->textView()) : std::optional(in[0].type.kind);
        if (!named || !isInteger(*named))
            refuse("the limits of what is no integer class");
        kind = *named;
    }
    const int bits = QN::Type::scalar(kind)->bits();
    const std::uint64_t most =
        isSigned(kind) ? (std::uint64_t{1} << (bits - 1)) - 1 : ~std::uint64_t{0} >> (64 - bits);
    const std::uint64_t least = isSigned(kind) ? ~most : 0; // extended by its sign
    return {ops.scalar(kind, ops.emitter().constant(kind, Greatest ? most : least))};
}

Results transpose(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    Emitter& e = ops.emitter();
    if (!in[0].type.isArray)
        return {in[0]};
    const Ref rows = ops.rowsOf(in[0]);
    const Operand result = ops.newArray(in[0].type.kind, ops.columnsOf(in[0]), rows);
    e.loop(e.index(1), ops.columnsOf(in[0]), [&](Ref j) {
        e.loop(e.index(1), ops.rowsOf(in[0]),
               [&](Ref i) { e.setElement(result.array, j, i, e.element(in[0].array, i, j)); });
    });
    return {result};
}

// ---- sizes

[[nodiscard]] Operand asNumber(Operations& ops, Ref size) {
    return ops.scalar(ScalarKind::Double,
                      ops.emitter().convert(size, ScalarKind::Int64, ScalarKind::Double));
}

Results sizeOf(Operations& ops, Arguments in, std::size_t requested) {
    Emitter& e = ops.emitter();
    refuseTexts(in);
    if (in.size() == 2) {
        if (requested > 1 || in[1].constant == nullptr || in[1].constant->tag() != Tag::Double ||
            (in[1].constant->asDouble() != 1 && in[1].constant->asDouble() != 2))
            refuse("a dimension that is not 1 or 2");
        return {asNumber(ops, in[1].constant->asDouble() == 1 ? ops.rowsOf(in[0])
                                                              : ops.columnsOf(in[0]))};
    }
    const Operand rows = asNumber(ops, ops.rowsOf(in[0]));
    const Operand columns = asNumber(ops, ops.columnsOf(in[0]));
    if (requested > 1)
        return {rows, columns};
    const Ref two = e.index(2);
    const Ref one = e.index(1);
    const Operand result = ops.newArray(ScalarKind::Double, one, two);
    e.setElement(result.array, one, rows.value);
    e.setElement(result.array, two, columns.value);
    return {result};
}
Results length(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    return {asNumber(ops, ops.countOf(in[0]))};
}
Results rows(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    return {asNumber(ops, ops.rowsOf(in[0]))};
}
Results columns(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    return {asNumber(ops, ops.columnsOf(in[0]))};
}
Results isEmpty(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    Emitter& e = ops.emitter();
    const Ref zero = e.index(0);
    return {ops.scalar(ScalarKind::Logical, e.compare(Op::Eq, ops.countOf(in[0]), zero))};
}

// ---- bringing an array down to a number. A matrix, of which they give a row, is left to the
// interpreter: what a variable holds would not be known before it runs.

void requireLine(Operations& ops, const Operand& x) {
    Emitter& e = ops.emitter();
    const Ref rows = ops.rowsOf(x);
    const Ref columns = ops.columnsOf(x);
    const auto is = [&](Ref n, int value) { return e.compare(Op::Eq, n, e.index(value)); };
    const Ref noColumns = is(columns, 0);
    const Ref empty = e.both(is(rows, 0), noColumns);
    const Ref oneColumn = is(columns, 1);
    const Ref line = e.either(is(rows, 1), oneColumn);
    e.require(e.either(line, empty), HostTrap::Assumption);
}

/// step(total so far, element of `from`) over all elements.
template <typename Step>
[[nodiscard]] Ref fold(Operations& ops, const Operand& x, ScalarKind kind, Ref start, Step&& step) {
    Emitter& e = ops.emitter();
    if (!x.type.isArray)
        return step(start, x.value);
    requireLine(ops, x);
    QN::Var* const total = e.temporary(QN::Type::scalar(kind));
    e.store(total, start);
    e.loop(e.index(1), ops.countOf(x), [&](Ref k) {
        const Ref element = e.element(x.array, k);
        e.store(total, step(e.load(total), element));
    });
    return e.load(total);
}

template <Op Node>
Results accumulate(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    if (in.size() != 1)
        refuse("a dimension");
    Emitter& e = ops.emitter();
    const ScalarKind from = in[0].type.kind;
    const ScalarKind kind = isInteger(from) ? from : ScalarKind::Double;
    // Sums of integers are exact and saturate at the end.
    const bool exact = Node == Op::Add && isInteger(kind);
    if (exact && isWide(kind) && in[0].type.isArray)
        refuse("a sum of 64-bit integers");
    const ScalarKind sumKind = exact && !isWide(kind) ? ScalarKind::Int64 : kind;
    const Ref total =
        fold(ops, in[0], sumKind, e.small(sumKind, Node == Op::Add ? 0 : 1),
             [&](Ref sum, Ref x) { return e.binary(Node, sum, e.convert(x, from, sumKind)); });
    return {ops.scalar(kind, e.convert(total, sumKind, kind))};
}

template <bool Decisive>
Results truth(Operations& ops, Arguments in, std::size_t) {
    refuseTexts(in);
    if (in.size() != 1)
        refuse("a dimension");
    Emitter& e = ops.emitter();
    const Ref result =
        fold(ops, in[0], ScalarKind::Logical, e.truth(!Decisive), [&](Ref so, Ref x) {
            return e.binary(Decisive ? Op::Or : Op::And, so,
                            ops.truthOfElement(x, in[0].type.kind));
        });
    return {ops.scalar(ScalarKind::Logical, result)};
}

template <bool Greatest>
Results extreme(Operations& ops, Arguments in, std::size_t requested) {
    refuseTexts(in);
    Emitter& e = ops.emitter();
    constexpr Op node = Greatest ? Op::Max : Op::Min;
    if (in.size() == 2) {
        if (requested > 1)
            refuse("places of the greater of two");
        const ScalarKind kind = commonKind(in);
        return {ops.mapPairs(kind, in[0], in[1], [&](Ref a, Ref b) {
            const Ref x = ops.converted(a, in[0].type.kind, kind);
            return e.binary(node, x, ops.converted(b, in[1].type.kind, kind));
        })};
    }
    if (in.size() != 1)
        refuse("a dimension");
    const ScalarKind from = in[0].type.kind;
    const ScalarKind kind = isInteger(from) ? from : ScalarKind::Double;
    if (!in[0].type.isArray)
        return {ops.scalar(kind, e.convert(in[0].value, from, kind)),
                ops.scalar(ScalarKind::Double, e.number(1))};
    requireLine(ops, in[0]);
    const Ref count = ops.countOf(in[0]);
    e.require(e.compare(Op::Gt, count, e.index(0)), HostTrap::Assumption);
    QN::Var* const best = e.temporary(QN::Type::scalar(kind));
    QN::Var* const place = e.temporary(QN::Type::i64());
    const auto at = [&](Ref k) { return e.convert(e.element(in[0].array, k), from, kind); };
    e.store(best, at(e.index(1)));
    e.store(place, e.index(1));
    e.loop(e.index(2), count, [&](Ref k) {
        const Ref x = at(k);
        const Ref old = e.load(best);
        Ref better = e.compare(Greatest ? Op::Gt : Op::Lt, x, old);
        if (kind == ScalarKind::Double) {
            const Ref isNumber = e.compare(Op::Eq, x, x);
            better = e.either(better, e.both(e.compare(Op::Ne, old, old), isNumber));
        }
        e.store(place, e.select(better, k, e.load(place)));
        e.store(best, e.select(better, x, old));
    });
    return {ops.scalar(kind, e.load(best)), asNumber(ops, e.load(place))};
}

struct Row {
    std::string_view name;
    Results (*emit)(Operations&, Arguments, std::size_t requested);
};

constexpr Row table[] = {
    {"abs", absolute},
    {"all", truth<false>},
    {"any", truth<true>},
    {"atan2", atan2},
    {"ceil", rounding<Op::Ceil>},
    {"columns", columns},
    {"cos", real<Op::Cos>},
    {"double", convert<ScalarKind::Double>},
    {"eps", epsilon},
    {"exp", real<Op::Exp>},
    {"eye", filled<Filling::Diagonal>},
    {"floor", rounding<Op::Floor>},
    {"inf", infinity},
    {"int16", convert<ScalarKind::Int16>},
    {"int32", convert<ScalarKind::Int32>},
    {"int64", convert<ScalarKind::Int64>},
    {"int8", convert<ScalarKind::Int8>},
    {"intmax", limit<true>},
    {"intmin", limit<false>},
    {"isempty", isEmpty},
    {"isfinite", classify<2>},
    {"isinf", classify<1>},
    {"isnan", classify<0>},
    {"length", length},
    {"log", real<Op::Log>},
    {"logical", convert<ScalarKind::Logical>},
    {"max", extreme<true>},
    {"min", extreme<false>},
    {"mod", remainder<true>},
    {"nan", notANumber},
    {"numel", length},
    {"ones", filled<Filling::Ones>},
    {"pi", pi},
    {"prod", accumulate<Op::Mul>},
    {"rem", remainder<false>},
    {"round", rounding<Op::Round>},
    {"rows", rows},
    {"sin", real<Op::Sin>},
    {"size", sizeOf},
    {"sqrt", real<Op::Sqrt>},
    {"sum", accumulate<Op::Add>},
    {"tan", real<Op::Tan>},
    {"transpose", transpose},
    {"trunc", rounding<Op::Trunc>},
    {"uint16", convert<ScalarKind::Uint16>},
    {"uint32", convert<ScalarKind::Uint32>},
    {"uint64", convert<ScalarKind::Uint64>},
    {"uint8", convert<ScalarKind::Uint8>},
    {"zeros", filled<Filling::Zeros>},
};

} // namespace

std::vector<Operand> callIntrinsic(Operations& operations, const Builtin& builtin,
                                   std::span<const Operand> arguments, std::size_t requested) {
    const std::string_view name = builtin.name;
    const auto* const row = std::find_if(std::begin(table), std::end(table),
                                         [&](const Row& each) { return each.name == name; });
    if (row == std::end(table))
        throw Outside{"a call of " + std::string(name)};
    if (arguments.size() < builtin.minArguments || arguments.size() > builtin.maxArguments ||
        requested > builtin.maxResults)
        throw Outside{"a call that " + std::string(name) + " refuses"};
    return row->emit(operations, arguments, requested);
}

} // namespace varnix::codegen
