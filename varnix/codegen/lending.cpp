// See lending.hpp.
#include "codegen/lending.hpp"

#include "value/array.hpp"

#include <cstring>
#include <memory>
#include <vector>

namespace varnix::codegen {

namespace {

/// A reference to a host's array in the form in which compiled code counts them.
struct Lent : QN::ArrayBuffer {
    hvArray* array = nullptr;
    Lent* next = nullptr; ///< while it is not in use
};

/// Lent buffers that are not in use. They are needed by the call, and a call takes nanoseconds.
Lent* idle = nullptr;

void giveBack(QN::ArrayBuffer& buffer) noexcept {
    auto& lent = static_cast<Lent&>(buffer);
    hvDestroyArray(std::exchange(lent.array, nullptr));
    lent.next = idle;
    idle = &lent;
}

} // namespace

QN::ArrayValue lend(const Value& value) {
    hvArray* const array = value.array();
    const QN::ScalarKind kind = kindOfTag(tagOfClass(array->classID));
    const auto rows = static_cast<std::int64_t>(array->rows);
    const auto columns = static_cast<std::int64_t>(array->columns);
    if (array->count() == 0)
        return {kind, rows, columns};
    Lent* lent = idle;
    if (lent != nullptr)
        idle = lent->next;
    else
        lent = new Lent; // goes back to the idle ones, for the life of the process
    lent->references = 1;
    lent->capacity = 0;
    lent->release = giveBack;
    lent->array = hvShareArray(array);
    return {kind, rows, columns, array->data, *lent};
}

Value takeBack(const QN::ArrayValue& array, std::span<const Value> arguments) {
    const hvClassID id = classOfTag(tagOfKind(array.kind()));
    const auto rows = static_cast<std::size_t>(array.rows());
    const auto columns = static_cast<std::size_t>(array.cols());
    for (const Value& each : arguments)
        if (each.tag() == Tag::Array && each.array()->data == array.data() &&
            each.array()->classID == id && each.rows() == rows && each.columns() == columns &&
            each.count() > 0)
            return each;
    hvArray* const result = newArray(id, rows, columns);
    if (array.numel() > 0)
        std::memcpy(result->data, array.data(), result->count() * elementSize(id));
    return Value::fromArray(result);
}

} // namespace varnix::codegen
