// Reading the arguments of built-in functions.
#include "lang/builtins/arguments.hpp"

#include "value/format.hpp"

#include <algorithm>
#include <cmath>

namespace varnix::builtins {

std::string describe(const Value& v) {
    if (v.isUnset())
        return "nothing";
    if (v.isScalar())
        return className(v);
    if (v.isTextRow())
        return "a text";
    if (v.isStruct() || v.isFunction())
        return "a " + className(v);
    if (v.isHandle())
        return className(v) + " object";
    return numeric::sizeText(v) + " " + className(v);
}

void Arguments::wrongType(std::size_t i, std::string_view expected) const {
    fail(id::wrongType, "{}: argument {} must be {}, not {}", name(), i + 1, expected,
         describe(call_.arguments[i]));
}

void Arguments::bad(std::size_t i, std::string_view problem) const {
    fail(id::badArgument, "{}: argument {} {}", name(), i + 1, problem);
}

void Arguments::failWith(std::string_view identifier, std::string_view message) const {
    fail(identifier, "{}: {}", name(), message);
}

std::string_view Arguments::text(std::size_t i) const {
    const Value& v = call_.arguments[i];
    if (!v.isTextRow())
        wrongType(i, "a text");
    return v.textView();
}

std::string Arguments::path(std::size_t i) const {
    const std::string_view t = text(i);
    if (t.empty())
        bad(i, "is an empty text");
    if (t.find('\0') != std::string_view::npos)
        bad(i, "holds a NUL character");
    return std::string(t);
}

std::vector<std::string_view> Arguments::texts(std::size_t i) const {
    const Value& v = call_.arguments[i];
    if (!v.isCell())
        return {text(i)};
    std::vector<std::string_view> result;
    result.reserve(v.count());
    for (std::size_t k = 0; k < v.count(); ++k) {
        const Value held = cellAt(v.array(), k);
        if (!held.isTextRow())
            fail(id::wrongType, "{}: argument {} must be a cell of texts, but cell {} holds {}",
                 name(), i + 1, k + 1, describe(held));
        result.push_back(held.textView()); // the cell keeps it alive
    }
    return result;
}

double Arguments::real(std::size_t i) const {
    const Value& v = call_.arguments[i];
    if (v.tag() == Tag::Double)
        return v.asDouble();
    if (!v.isScalar())
        wrongType(i, "a numeric scalar");
    return numeric::View(v).at(0);
}

std::int64_t Arguments::whole(std::size_t i, std::int64_t least, std::int64_t most) const {
    const double d = real(i);
    if (!(d == std::trunc(d)) || !(std::fabs(d) < 0x1p63) || static_cast<std::int64_t>(d) < least ||
        static_cast<std::int64_t>(d) > most)
        bad(i,
            most == std::numeric_limits<std::int64_t>::max()
                ? fmt::format("must be a whole number from {} up, not {}", least, formatNumber(d))
                : fmt::format("must be a whole number from {} to {}, not {}", least, most,
                              formatNumber(d)));
    return static_cast<std::int64_t>(d);
}

const Value& Arguments::numbers(std::size_t i) const {
    const Value& v = call_.arguments[i];
    if (!numeric::isArithmeticClass(v.classID()))
        wrongType(i, "numeric");
    return v;
}

Value Arguments::doubles(std::size_t i) const {
    const Value& v = call_.arguments[i];
    if (!v.isNumeric() && !v.isLogical())
        wrongType(i, "numeric");
    return convertTo(hvDOUBLE_CLASS, v);
}

std::size_t Arguments::extent(std::size_t i, double n) const {
    if (!(n >= 0) || n != std::trunc(n))
        bad(i, fmt::format("must be a whole number from 0 up, not {}", formatNumber(n)));
    if (n >= static_cast<double>(maxArrayBytes))
        failWith(id::tooLarge, fmt::format("an extent of {} is too large", formatNumber(n)));
    return static_cast<std::size_t>(n);
}

std::pair<std::size_t, std::size_t> Arguments::size(std::size_t i, std::size_t end) const {
    const std::size_t given = std::min(end, count()) - std::min(i, std::min(end, count()));
    if (given == 0)
        return {1, 1};
    if (given >= 2)
        return {extent(i, real(i)), extent(i + 1, real(i + 1))};
    const Value v = doubles(i);
    if (v.count() == 2) {
        const numeric::View view(v);
        return {extent(i, view.at(0)), extent(i, view.at(1))};
    }
    const std::size_t n = extent(i, real(i));
    return {n, n};
}

} // namespace varnix::builtins
