// Loops: over a range without making it, and over the columns of anything else.
#include "lang/interrupt.hpp"
#include "lang/machine.hpp"
#include "value/array.hpp"
#include "value/ops.hpp"

#include <cmath>
#include <limits>

namespace varnix {

// State of a loop over a range of doubles: R[0] index and R[1] count as int64, R[2] first, R[3]
// step; R[4] is the last value where first + i * step would pass it by a rounding error, and then
// the count is one less. The values are those of range(), to the last bit.
//
// State of any other loop: R[0] next column, R[1] -1 (so that no turn looks like a plain one of a
// range), R[2] what is walked over, R[3] unset.

void Machine::forRange(Frame& frame, std::size_t state) {
    Value* const r = frame.base + state;
    if (r[0].tag() != Tag::Double || r[1].tag() != Tag::Double || r[2].tag() != Tag::Double ||
        std::isnan(r[0].asDouble()) || std::isnan(r[1].asDouble()) || std::isnan(r[2].asDouble())) {
        // Integers, or an error that range() reports.
        r[loopSubject] = range(r[0], r[1], r[2]);
        forEach(frame, state);
        return;
    }
    const double first = r[0].asDouble();
    const double step = r[1].asDouble();
    const double last = r[2].asDouble();
    double steps = (last - first) / step;
    steps = std::floor(steps + std::fabs(steps) * 4 * std::numeric_limits<double>::epsilon());
    std::int64_t count = 0;
    if (step != 0 && steps >= 0) // false for NaN
        count = steps < 0x1p62 ? static_cast<std::int64_t>(steps) + 1 : std::int64_t{1} << 62;
    r[4] = Value();
    if (count > 1) {
        const double end = first + static_cast<double>(count - 1) * step;
        if (step > 0 ? end > last : end < last) {
            --count;
            r[4] = Value::ofDouble(last);
        }
    }
    r[0] = Value::ofInt64(0);
    r[1] = Value::ofInt64(count);
    r[2] = Value::ofDouble(first);
    r[3] = Value::ofDouble(step);
}

/// The turns of a range loop that are not plain: the last one where it is special, and all of a
/// loop over integers.
bool Machine::forRangeEnd(Frame& frame, std::size_t state, std::size_t variable) {
    Value* const r = frame.base + state;
    if (r[3].isUnset())
        return forEachStep(frame, state, variable);
    if (r[4].isUnset())
        return false;
    frame.base[variable] = std::move(r[4]);
    return true;
}

void Machine::forEach(Frame& frame, std::size_t state) {
    Value* const r = frame.base + state;
    r[0] = Value::ofInt64(0);
    r[1] = Value::ofInt64(-1);
    r[3] = Value();
}

bool Machine::forEachStep(Frame& frame, std::size_t state, std::size_t variable) {
    detail::pollInterrupt();
    Value* const r = frame.base + state;
    const Value& all = r[loopSubject];
    const auto column = static_cast<std::size_t>(r[0].asSigned());
    if (all.count() == 0 || column >= all.columns())
        return false;
    Value turn;
    if (!all.isCounted() || all.isHandle() || all.isStruct() || all.isFunction()) {
        turn = all;
    } else if (all.rows() == 1) {
        turn = all.isCell() ? cellAt(all.array(), column) : elementAt(all, column);
    } else {
        const Index whole[] = {{.colon = true, .value = {}},
                               {.value = Value::ofDouble(static_cast<double>(column + 1))}};
        turn = indexValue(all, whole);
    }
    r[0] = Value::ofInt64(static_cast<std::int64_t>(column + 1));
    frame.base[variable] = std::move(turn);
    return true;
}

} // namespace varnix
