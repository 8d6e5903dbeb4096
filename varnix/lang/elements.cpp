// Elements: reading and assigning by index, and assignments that reach deep into a value.
//
// An assignment works on the variable's own array where nobody else holds it. What lies in between
// (a field, a cell) is changed in its place; nothing is lost when an error is raised on the way.
#include "lang/machine.hpp"
#include "object/calls.hpp"
#include "value/array.hpp"
#include "value/errors.hpp"

#include <array>
#include <cmath>

namespace varnix {

namespace {

using Step = PathSite::Step;

/// The indices of one access as the index functions take them.
class Indices {
public:
    Indices(const Frame& frame, std::size_t window, std::size_t count, std::size_t colons)
        : count_(count) {
        for (std::size_t i = 0; i < count; ++i) {
            list_[i].colon = ((colons >> i) & 1) != 0;
            if (!list_[i].colon)
                list_[i].value = frame.base[window + i];
        }
    }
    Indices(const Frame& frame, const Step& step)
        : Indices(frame, step.window, step.count, step.colons) {}
    explicit Indices(const Value& only) : count_(1) { list_[0].value = only; }
    // NOLINTNEXTLINE(google-explicit-constructor): it is what the functions take
    operator std::span<const Index>() const { return {list_.data(), count_}; }

private:
    std::array<Index, 2> list_;
    std::size_t count_;
};

/// The cell that one index or two name in an array, or nothing when they name another number of
/// cells or one outside.
std::optional<std::size_t> cellNamed(const Value& cells, const Frame& frame, const Step& step) {
    if (step.colons != 0)
        return std::nullopt;
    std::array<std::size_t, 2> at{};
    for (std::size_t i = 0; i < step.count; ++i) {
        const Value& index = frame.base[step.window + i];
        if (index.tag() != Tag::Double)
            return std::nullopt;
        const double number = index.asDouble();
        const std::size_t extent = step.count == 1 ? cells.count()
                                   : i == 0        ? cells.rows()
                                                   : cells.columns();
        if (!(number >= 1 && number <= static_cast<double>(extent)) || number != std::trunc(number))
            return std::nullopt;
        at[i] = static_cast<std::size_t>(number) - 1;
    }
    return at[0] + at[1] * cells.rows();
}

} // namespace

// ---- reading

void Machine::index(Frame& frame, const Instruction& at) {
    Value base;
    Value subscript;
    const Indices indices(operand(frame, at.c, subscript));
    frame.base[at.a] = indexValue(operand(frame, at.b, base), indices);
}

void Machine::indexConstant(Frame& frame, const Instruction& at) {
    Value base;
    const Indices indices(frame.code->constants[at.c]);
    frame.base[at.a] = indexValue(operand(frame, at.b, base), indices);
}

void Machine::indexTwo(Frame& frame, const Instruction& at) {
    Value base;
    const Indices indices(frame, at.c, 2, 0);
    frame.base[at.a] = indexValue(operand(frame, at.b, base), indices);
}

void Machine::indexSite(Frame& frame, const IndexShape& shape) {
    Value holder;
    const Value& base = operand(frame, shape.base, holder);
    const Indices indices(frame, shape.window, shape.count, shape.colons);
    frame.base[shape.result] = shape.brace ? indexCell(base, indices) : indexValue(base, indices);
}

void Machine::brace(Frame& frame, const Instruction& at) {
    Value base;
    Value subscript;
    const Indices indices(operand(frame, at.c, subscript));
    frame.base[at.a] = indexCell(operand(frame, at.b, base), indices);
}

void Machine::endOfIndex(Frame& frame, const Instruction& at, bool target) {
    const std::size_t which = at.c & 0xFFu;
    const std::size_t total = at.c >> 8u;
    // What has no value yet is an empty array to an assignment.
    std::size_t last = 0;
    if (!target || !frame.base[at.b].isUnset()) {
        Value holder;
        last = endOf(operand(frame, at.b, holder), which, total);
    }
    frame.base[at.a] = Value::ofDouble(static_cast<double>(last));
}

// ---- assigning

void Machine::storeIndex(Frame& frame, const Instruction& at) {
    Value subscript;
    Value holder;
    const Indices indices(operand(frame, at.b, subscript));
    const Value value = operand(frame, at.c, holder); // x[i] = x: a reference of its own
    assignIndex(frame.base[at.a], indices, value);
    clearTemporary(frame, at.c);
}

void Machine::storeIndexConstant(Frame& frame, const Instruction& at) {
    Value holder;
    const Indices indices(frame.code->constants[at.b]);
    const Value value = operand(frame, at.c, holder);
    assignIndex(frame.base[at.a], indices, value);
    clearTemporary(frame, at.c);
}

void Machine::storeIndexTwo(Frame& frame, const Instruction& at) {
    Value holder;
    const Indices indices(frame, at.b, 2, 0);
    const Value value = operand(frame, at.c, holder);
    assignIndex(frame.base[at.a], indices, value);
    clearTemporary(frame, at.c);
}

void Machine::storePath(Frame& frame, const PathSite& site) {
    Value holder;
    const Value value = operand(frame, site.value, holder);
    clearTemporary(frame, site.value);
    storeInto(frame, frame.base[site.root], site.steps, value);
}

/// Assigns to what the steps lead to from `place`, which may be unset.
void Machine::storeInto(const Frame& frame, Value& place, std::span<const Step> steps,
                        const Value& value) {
    const Step& step = steps.front();
    if (step.kind == LinkKind::Member)
        return storeIntoMember(frame, place, steps, value);
    if (step.kind == LinkKind::Brace)
        return storeIntoCell(frame, place, steps, value);
    const Indices indices(frame, step);
    if (steps.size() == 1) {
        assignIndex(place, indices, value);
        return;
    }
    if (place.isUnset())
        fail(id::badIndex, "an element that does not exist yet has no members");
    Value element = indexValue(place, indices);
    const bool isObject = element.isObject(); // a handle: the object itself changes
    storeInto(frame, element, steps.subspan(1), value);
    if (!isObject)
        assignIndex(place, indices, element);
}

void Machine::storeIntoMember(const Frame& frame, Value& place, std::span<const Step> steps,
                              const Value& value) {
    const Step& step = steps.front();
    if (steps.size() == 1) {
        assignMember(place, step.name, value, nullptr);
        return;
    }
    const auto rest = steps.subspan(1);
    if (place.isStruct()) {
        if (structOf(place.array()).find(step.name) != nullptr) {
            place.unshare();
            storeInto(frame, *structOf(place.array()).find(step.name), rest, value);
            return;
        }
    } else if (!place.isUnset()) {
        Value member = memberOf(place, step.name, nullptr);
        const bool isObject = member.isObject();
        storeInto(frame, member, rest, value);
        if (!isObject)
            assignMember(place, step.name, member, nullptr);
        return;
    }
    // A new field comes into being only when what goes into it has.
    Value fresh;
    storeInto(frame, fresh, rest, value);
    assignMember(place, step.name, fresh, nullptr);
}

void Machine::storeIntoCell(const Frame& frame, Value& place, std::span<const Step> steps,
                            const Value& value) {
    const Step& step = steps.front();
    const Indices indices(frame, step);
    if (steps.size() == 1) {
        assignCell(place, indices, value);
        return;
    }
    const auto rest = steps.subspan(1);
    Value content;
    if (!place.isUnset()) {
        const auto at = place.isCell() ? cellNamed(place, frame, step) : std::nullopt;
        if (at) {
            // Taken out while it changes, so that it is not shared, and put back in any case.
            hvArray* const cells = place.unshare();
            content = Value::fromArray(std::exchange(cells->cells()[*at], nullptr));
            struct PutBack {
                hvArray* cells;
                std::size_t at;
                Value& content;
                ~PutBack() {
                    if (!content.isUnset())
                        setCell(cells, at, content);
                }
            } const putBack{cells, *at, content};
            storeInto(frame, content, rest, value);
            return;
        }
        const double number =
            frame.base[step.window].tag() == Tag::Double ? frame.base[step.window].asDouble() : 0;
        const bool appends = place.isCell() && step.count == 1 && step.colons == 0 &&
                             number > static_cast<double>(place.count());
        if (!appends)
            content = indexCell(place, indices);
    }
    storeInto(frame, content, rest, value);
    assignCell(place, indices, content);
}

} // namespace varnix
