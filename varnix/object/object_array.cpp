// Arrays of script objects beyond what is inline.

#include "object/deferred_rows.hpp"
#include "value/array.hpp"
#include "value/errors.hpp"

#include <objsys/class.hpp>
#include <objsys/object_array.hpp>

#include <span>

using objsys::COSClass;
using objsys::COSInterface;

hvArray* omCreateOBJSYSMatrix(std::size_t rows, std::size_t columns, objsys::COSNameID className) {
    COSClass& cls = COSClass::get(className);
    hvArray* const array = varnix::newArray(hvOBJECT_CLASS, rows, columns);
    array->objectClass = &cls;
    array->flags = hvArray::Uniform;
    return array;
}

void omSetArrayElement(hvArray* array, std::size_t index, COSInterface* element) {
    if (!array || array->classID != hvOBJECT_CLASS || array->isHandle() || index >= array->count())
        varnix::fail(varnix::id::badIndex, "object array has no element {}", index);
    objsys::DeferredRows::settle(array);
    COSInterface* const old = array->objects()[index];
    if (element) {
        ++element->handle()->refs;
        if (element->getClass() != array->objectClass)
            array->flags = static_cast<std::uint8_t>(array->flags & ~hvArray::Uniform);
    }
    array->objects()[index] = element;
    if (old)
        hvDestroyArray(old->handle());
}

namespace {

/// The first class in `candidate` and its superclasses, nearest first, that `other` is too.
COSClass* commonClass(COSClass* candidate, COSClass* other) {
    if (other->isA(candidate))
        return candidate;
    for (COSClass* const super : candidate->superclasses())
        if (COSClass* const common = commonClass(super, other))
            return common;
    return nullptr;
}

} // namespace

void omSetClassOfHeterogeneousArray(hvArray* array) {
    if (!array || array->classID != hvOBJECT_CLASS || array->isHandle() ||
        (array->flags & hvArray::Uniform))
        return;
    COSClass* common = nullptr;
    bool mixed = false;
    for (const COSInterface* const element : std::span(array->objects(), array->count())) {
        COSClass* const cls = element ? element->getClass() : nullptr;
        if (!cls || cls == common)
            continue;
        mixed = mixed || common != nullptr;
        COSClass* const next = common ? commonClass(common, cls) : cls;
        if (!next)
            varnix::fail(
                varnix::id::wrongType,
                "objects of {} and {} cannot stand in one array: they have no class in common",
                common->getFullName().str(), cls->getFullName().str());
        common = next;
    }
    if (common)
        array->objectClass = common;
    if (mixed)
        array->flags = static_cast<std::uint8_t>(array->flags | hvArray::Heterogeneous);
}
