// Value: what a script variable, a register of the machine and a cell of a cell array hold.
//
// Sixteen bytes: a tag and a payload. Real scalars of every numeric class and logical scalars are
// held in place and never touch the heap; everything else is a counted hvArray. One canonical form
// for each value, kept by fromArray(): a 1 by 1 double, logical or integer array is a scalar Value,
// a 1 by 1 object array is the instance's own handle.
//
// Ownership: a Value that refers to an array holds one reference to it.
#pragma once

#include <hv/array.hpp>
#include <hv/detail/array_layout.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace varnix {

enum class Tag : std::uint8_t {
    Unset,  ///< no value: an unassigned variable, a missing result
    Double, // scalars in place
    Logical,
    Int8,
    Int16,
    Int32,
    Int64,
    UInt8,
    UInt16,
    UInt32,
    UInt64,
    Array,  // counted: any array that is not a scalar above nor a handle
    Handle, // counted: the handle array of one script instance
};

[[nodiscard]] constexpr bool isScalarTag(Tag t) {
    return t >= Tag::Double && t <= Tag::UInt64;
}
[[nodiscard]] constexpr bool isIntegerTag(Tag t) {
    return t >= Tag::Int8 && t <= Tag::UInt64;
}
/// The array class that holds elements of a scalar tag.
[[nodiscard]] hvClassID classOfTag(Tag tag);
/// The scalar tag of a numeric or logical array class; Unset for other classes.
[[nodiscard]] Tag tagOfClass(hvClassID id);

class Value {
public:
    Value() : tag_(Tag::Unset) { bits_.u = 0; }
    Value(const Value& other) : tag_(other.tag_), bits_(other.bits_) { retain(); }
    Value(Value&& other) noexcept : tag_(other.tag_), bits_(other.bits_) {
        other.tag_ = Tag::Unset;
    }
    Value& operator=(const Value& other) {
        other.retain();
        release();
        tag_ = other.tag_;
        bits_ = other.bits_;
        return *this;
    }
    Value& operator=(Value&& other) noexcept {
        if (this != &other) {
            release();
            tag_ = other.tag_;
            bits_ = other.bits_;
            other.tag_ = Tag::Unset;
        }
        return *this;
    }
    ~Value() { release(); }

    static Value ofDouble(double v) {
        Value r(Tag::Double);
        r.bits_.d = v;
        return r;
    }
    static Value ofLogical(bool v) {
        Value r(Tag::Logical);
        r.bits_.u = v;
        return r;
    }
    /// A signed integer scalar of the tag given; `v` must be in its range.
    static Value ofSigned(Tag tag, std::int64_t v) {
        Value r(tag);
        r.bits_.i = v;
        return r;
    }
    /// An unsigned integer scalar of the tag given; `v` must be in its range.
    static Value ofUnsigned(Tag tag, std::uint64_t v) {
        Value r(tag);
        r.bits_.u = v;
        return r;
    }
    static Value ofInt32(std::int32_t v) { return ofSigned(Tag::Int32, v); }
    static Value ofUInt32(std::uint32_t v) { return ofUnsigned(Tag::UInt32, v); }
    static Value ofInt64(std::int64_t v) { return ofSigned(Tag::Int64, v); }
    static Value ofUInt64(std::uint64_t v) { return ofUnsigned(Tag::UInt64, v); }

    /// Takes over one reference to the array and brings it to canonical form; null is Unset.
    static Value fromArray(hvArray* array);
    /// Takes over one reference to the handle of an instance.
    static Value ofHandle(hvArray* handle) {
        Value r(Tag::Handle);
        r.bits_.a = handle;
        return r;
    }
    /// fromArray without the canonical form: for keeping an array alive, not for scripts to see.
    static Value keeping(hvArray* array) {
        Value r(Tag::Array);
        r.bits_.a = array;
        return r;
    }
    /// A 1 by N text; the empty text is 1 by 0.
    static Value text(std::string_view characters);
    /// A 0 by 0 double: what an absent cell reads as.
    static Value emptyDouble();

    [[nodiscard]] Tag tag() const { return tag_; }
    [[nodiscard]] bool isUnset() const { return tag_ == Tag::Unset; }
    [[nodiscard]] bool isScalar() const { return isScalarTag(tag_); }
    [[nodiscard]] bool isInteger() const { return isIntegerTag(tag_); }
    [[nodiscard]] bool isCounted() const { return tag_ >= Tag::Array; }
    [[nodiscard]] bool isHandle() const { return tag_ == Tag::Handle; }

    [[nodiscard]] double asDouble() const { return bits_.d; }
    [[nodiscard]] bool asLogical() const { return bits_.u != 0; }
    [[nodiscard]] std::int64_t asSigned() const { return bits_.i; }
    [[nodiscard]] std::uint64_t asUnsigned() const { return bits_.u; }
    /// The array of an Array or Handle value, still owned by this value.
    [[nodiscard]] hvArray* array() const { return bits_.a; }

    /// The class of the value as an array class, for scalars too; hvUNKNOWN_CLASS when unset.
    [[nodiscard]] hvClassID classID() const {
        return isCounted() ? bits_.a->classID : classOfTag(tag_);
    }
    [[nodiscard]] std::size_t rows() const { return isCounted() ? bits_.a->rows : 1; }
    [[nodiscard]] std::size_t columns() const { return isCounted() ? bits_.a->columns : 1; }
    [[nodiscard]] std::size_t count() const { return isCounted() ? bits_.a->count() : 1; }
    [[nodiscard]] bool isChar() const { return classID() == hvCHAR_CLASS; }
    [[nodiscard]] bool isCell() const { return classID() == hvCELL_CLASS; }
    [[nodiscard]] bool isStruct() const { return classID() == hvSTRUCT_CLASS; }
    [[nodiscard]] bool isFunction() const { return classID() == hvFUNCTION_CLASS; }
    [[nodiscard]] bool isObject() const { return classID() == hvOBJECT_CLASS; }
    [[nodiscard]] bool isNumeric() const {
        const hvClassID id = classID();
        return id == hvDOUBLE_CLASS || id >= hvINT8_CLASS;
    }
    [[nodiscard]] bool isLogical() const { return classID() == hvLOGICAL_CLASS; }
    /// A 1 by N text or an empty character array.
    [[nodiscard]] bool isTextRow() const {
        return isChar() && (bits_.a->rows == 1 || bits_.a->count() == 0);
    }
    /// The characters of a character array, valid while the value lives.
    [[nodiscard]] std::string_view textView() const {
        return {static_cast<const char*>(bits_.a->data), bits_.a->count()};
    }

    /// A new reference to the value as an array; scalars are boxed. The caller releases it.
    [[nodiscard]] hvArray* toArray() const;

    /// Makes sure that this value is the only holder of its array, copying it if need be, and
    /// returns it for writing. Only for Array values; never for handles.
    hvArray* unshare();

private:
    explicit Value(Tag tag) : tag_(tag) {}
    void retain() const {
        if (isCounted())
            ++bits_.a->refs;
    }
    void release() {
        if (isCounted())
            hvDestroyArray(bits_.a);
    }

    Tag tag_;
    union {
        double d;
        std::int64_t i;
        std::uint64_t u;
        hvArray* a;
    } bits_;
};

static_assert(sizeof(Value) == 16);

} // namespace varnix
