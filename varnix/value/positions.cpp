// Index lists: numbers, logical masks and colons as places from 0.
#include "value/positions.hpp"

#include "value/errors.hpp"
#include "value/format.hpp"

#include <objsys/class.hpp>

#include <algorithm>

namespace varnix::indexing {
namespace {

[[nodiscard]] std::size_t placeOf(double d) {
    if (!(d >= 1 && d <= 0x1p53 && d == std::trunc(d)))
        fail(id::badIndex, "index {} is no whole number from 1 up", formatNumber(d));
    return static_cast<std::size_t>(d) - 1;
}
template <class T>
[[nodiscard]] std::size_t placeOf(T n) {
    if (n < 1)
        fail(id::badIndex, "index {} is no whole number from 1 up", +n);
    return static_cast<std::size_t>(n) - 1;
}

[[nodiscard]] Positions fromMask(const numeric::View& mask) {
    Positions p;
    const bool* bits = mask.as<bool>();
    for (std::size_t i = 0; i < mask.count(); ++i)
        if (bits[i])
            p.list.push_back(i);
    p.count = p.list.size();
    p.limit = p.list.empty() ? 0 : p.list.back() + 1;
    const bool row = mask.rows() == 1;
    p.rows = row ? 1 : p.count;
    p.columns = row ? p.count : 1;
    return p;
}

} // namespace

Positions resolve(const Index& index, std::size_t extent) {
    if (index.colon)
        return Positions::all(extent);
    const Value& v = index.value;
    if (!v.isNumeric() && !v.isLogical())
        fail(id::wrongType, "an index must be a number, a logical or a colon, not {}",
             v.isUnset()  ? "nothing"
             : v.isChar() ? "a text"
                          : className(v));
    const numeric::View view(v);
    if (v.isLogical())
        return fromMask(view);
    Positions p;
    p.count = view.count();
    p.rows = view.rows();
    p.columns = view.columns();
    numeric::withElementType(view.classID(), [&]<class T>(T) {
        const T* in = view.as<T>();
        if constexpr (!std::is_same_v<T, bool>) {
            if (p.count == 1) {
                p.first = placeOf(*in);
                p.limit = p.first + 1;
                return;
            }
            p.list.reserve(p.count);
            for (std::size_t i = 0; i < p.count; ++i) {
                p.list.push_back(placeOf(in[i]));
                p.limit = std::max(p.limit, p.list.back() + 1);
            }
        }
    });
    return p;
}

Positions resolveInside(const Index& index, std::size_t extent, const char* what) {
    Positions p = resolve(index, extent);
    if (p.limit > extent)
        fail(id::badIndex, "index {} is outside: there {} {} {}", p.limit,
             extent == 1 ? "is" : "are", extent == 0 ? "no" : std::to_string(extent),
             extent == 1 ? std::string(what, std::char_traits<char>::length(what) - 1)
                         : std::string(what));
    return p;
}

void requireOneOrTwo(std::span<const Index> indices) {
    if (indices.size() != 1 && indices.size() != 2)
        fail(id::badIndex, "arrays take one or two indices, not {}", indices.size());
}

void retainElements(hvArray* array, std::size_t from, std::size_t n) {
    if (array->classID == hvCELL_CLASS) {
        for (std::size_t i = from; i < from + n; ++i)
            hvShareArray(array->cells()[i]);
    } else if (array->classID == hvOBJECT_CLASS) {
        for (std::size_t i = from; i < from + n; ++i)
            if (objsys::COSInterface* element = array->objects()[i])
                hvShareArray(element->handle());
    }
}

bool mayJoin(const hvArray* a, const hvArray* b) {
    if (a->objectClass == b->objectClass)
        return true;
    static const objsys::COSNameID name("varnix.mixin.Heterogeneous");
    const objsys::COSClass* mixin = objsys::COSClass::find(name);
    return mixin && a->objectClass && b->objectClass && a->objectClass->isA(mixin) &&
           b->objectClass->isA(mixin);
}

} // namespace varnix::indexing
