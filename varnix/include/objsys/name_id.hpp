// Interned names of packages, classes, members and data types.
//
// A COSNameID is one pointer to an entry that lives for the process. Two names are equal exactly
// when their pointers are. Interning costs a hash and a look-up; do it once and keep the result.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace objsys {

class COSClass;

/// What a data-type name stands for, decided once when the name is interned.
enum class ValueKind : std::uint8_t {
    Void,    ///< "void"
    Logical, ///< "logical scalar"
    Int32,   ///< "int32 scalar"
    UInt32,  ///< "uint32 scalar"
    Int64,   ///< "int64 scalar"
    UInt64,  ///< "uint64 scalar"
    Double,  ///< "double scalar"
    Char,    ///< "char": an hvArray of class hvCHAR_CLASS
    Cell,    ///< "cell": an hvArray of any class; the receiver checks
    Any,     ///< "any": an hvArray of any class
    Object,  ///< a class name: an object array with one object
    Vector,  ///< "C vector": an object array
};

namespace detail {
/// One interned name. Entries are created by the intern table and never destroyed.
struct NameEntry {
    std::string text;
    std::size_t hash = 0;
    ValueKind kind = ValueKind::Object;
    /// For Vector names the element class's entry; for others the entry itself.
    NameEntry* element = nullptr;
    /// The class registered under this full name, or null. Maintained by the package system.
    COSClass* registeredClass = nullptr;
};
/// The entry of `text`, made on first use. Throws std::bad_alloc only.
NameEntry* intern(std::string_view text);
/// The entries of "" and "void", which need no look-up.
extern NameEntry emptyName;
extern NameEntry voidName;
} // namespace detail

/// An interned name: trivially copyable, compared by pointer.
class COSNameID {
public:
    /// The empty name "".
    COSNameID() : entry_(&detail::emptyName) {}
    /// Interns a NUL-terminated text, for example "internal.quarn.Debug"; null is the empty name.
    explicit COSNameID(const char* text)
        : entry_(detail::intern(text ? std::string_view(text) : std::string_view())) {}
    /// Interns a text given by pointer and length; it may hold any characters.
    explicit COSNameID(std::string_view text) : entry_(detail::intern(text)) {}

    /// The name "void": no value.
    static COSNameID voidType() { return COSNameID(&detail::voidName); }

    /// The text; valid for the life of the process.
    [[nodiscard]] const std::string& str() const { return entry_->text; }
    /// The text, NUL-terminated; valid for the life of the process.
    [[nodiscard]] const char* c_str() const { return entry_->text.c_str(); }
    [[nodiscard]] bool empty() const { return entry_->text.empty(); }
    /// Computed once, when the name was interned.
    [[nodiscard]] std::size_t hash() const { return entry_->hash; }
    /// What the name means as a data-type name; every unknown text is taken for a class name.
    [[nodiscard]] ValueKind kind() const { return entry_->kind; }
    /// The host's record of this name; for the host's own inline functions.
    [[nodiscard]] detail::NameEntry* entry() const { return entry_; }

    friend bool operator==(COSNameID a, COSNameID b) { return a.entry_ == b.entry_; }
    friend bool operator!=(COSNameID a, COSNameID b) { return a.entry_ != b.entry_; }

private:
    explicit COSNameID(detail::NameEntry* entry) : entry_(entry) {}

    detail::NameEntry* entry_;
};

} // namespace objsys

template <>
struct std::hash<objsys::COSNameID> {
    std::size_t operator()(objsys::COSNameID name) const noexcept { return name.hash(); }
};
