// isequal: comparing values whole.
//
// Works through a list of pairs rather than by recursion, so that no nesting is too deep for it; a
// pair of cell arrays or structs is visited once, however often they are shared.
#include "value/errors.hpp"
#include "value/kernels.hpp"
#include "value/numeric.hpp"
#include "value/ops.hpp"

#include <cstring>
#include <set>
#include <utility>
#include <vector>

namespace varnix {
namespace {

[[nodiscard]] bool isNumberLike(const Value& v) {
    return v.isNumeric() || v.isLogical();
}

[[nodiscard]] bool equalNumbers(const Value& a, const Value& b) {
    if (a.tag() == Tag::Double && b.tag() == Tag::Double)
        return a.asDouble() == b.asDouble();
    return a.count() == 0 || isTrue(kernels::compare(BinaryOp::Equal, a, b));
}

class Comparison {
public:
    [[nodiscard]] bool run(const Value& a, const Value& b) {
        pending_.emplace_back(a, b);
        while (!pending_.empty()) {
            const auto [x, y] = std::move(pending_.back());
            pending_.pop_back();
            if (!equalHere(x, y))
                return false;
        }
        return true;
    }

private:
    /// Compares what the two are themselves and puts off what they hold.
    [[nodiscard]] bool equalHere(const Value& a, const Value& b) {
        if (isNumberLike(a) && isNumberLike(b))
            return sameSize(a, b) && equalNumbers(a, b);
        if (a.classID() != b.classID() || !sameSize(a, b))
            return false;
        switch (a.classID()) {
        case hvUNKNOWN_CLASS:
            return true;
        case hvCHAR_CLASS:
            return a.textView() == b.textView();
        case hvOBJECT_CLASS:
            return std::equal(a.array()->objects(), a.array()->objects() + a.count(),
                              b.array()->objects());
        case hvFUNCTION_CLASS:
            return functionOf(a.array()).equals(functionOf(b.array()));
        case hvSTRUCT_CLASS:
            return structsFit(a, b);
        default:
            putOffCells(a, b);
            return true;
        }
    }

    [[nodiscard]] static bool sameSize(const Value& a, const Value& b) {
        return a.rows() == b.rows() && a.columns() == b.columns();
    }
    [[nodiscard]] bool isFirstVisit(const Value& a, const Value& b) {
        return (a.array()->refs <= 2 && b.array()->refs <= 2) ||
               visited_.insert({a.array(), b.array()}).second;
    }
    void putOffCells(const Value& a, const Value& b) {
        if (isFirstVisit(a, b))
            for (std::size_t i = a.count(); i-- > 0;)
                pending_.emplace_back(cellAt(a.array(), i), cellAt(b.array(), i));
    }
    [[nodiscard]] bool structsFit(const Value& a, const Value& b) {
        const StructRecord& x = structOf(a.array());
        const StructRecord& y = structOf(b.array());
        if (x.fields.size() != y.fields.size())
            return false;
        if (!isFirstVisit(a, b))
            return true;
        for (const auto& [name, value] : x.fields) {
            const Value* other = y.find(name);
            if (!other)
                return false;
            pending_.emplace_back(value, *other);
        }
        return true;
    }

    std::vector<std::pair<Value, Value>> pending_;
    std::set<std::pair<const hvArray*, const hvArray*>> visited_;
};

} // namespace

bool isEqual(const Value& a, const Value& b) {
    if (a.tag() == Tag::Double && b.tag() == Tag::Double)
        return a.asDouble() == b.asDouble();
    if (a.isChar() && b.isChar())
        return a.rows() == b.rows() && a.columns() == b.columns() && a.textView() == b.textView();
    return Comparison().run(a, b);
}

} // namespace varnix
