// One script instance: what a handle refers to.
//
// Ownership: a COSInterface is counted by the handle arrays that refer to it and dies with the last
// of them, or is made invalid earlier by delete(h). The native object behind it is bound by the
// class framework and owned as its class says (see COSClassInfo::destroyInstance). The binding is a
// pair of pointers, one here and one in Wrappable, so finding, binding and unbinding need no table.
#pragma once

#include <hv/detail/array_layout.hpp>
#include <objsys/name_id.hpp>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace objsys {

namespace factory {
namespace basic {
class BindingRegistry;
}
namespace full {
class Wrappable;
}
} // namespace factory

class COSClass;

namespace detail {

class InstancePool;

/// What the word in front of a native object's memory says. In memory behind an instance that word
/// is the last one of the instance. In front of a block of its own stands the size of the block,
/// which is larger than any of these.
namespace native_memory {
inline constexpr std::uint64_t none = 0;     ///< there is no memory behind the instance
inline constexpr std::uint64_t free = 1;     ///< no native object is in it
inline constexpr std::uint64_t taken = 2;    ///< a native object is in it
inline constexpr std::uint64_t orphaned = 3; ///< the same, and the instance is gone
} // namespace native_memory

} // namespace detail

class alignas(64) COSInterface {
public:
    COSInterface(const COSInterface&) = delete;
    COSInterface& operator=(const COSInterface&) = delete;

    /// The native object bound to this instance, or null when there is none (not yet bound, or the
    /// native object died first). The instance is the key: the same object answers to the full name
    /// of its own class, of a superclass, and to a name that only a native base class uses.
    [[nodiscard]] factory::full::Wrappable* getNativeObject(COSNameID) const { return native_; }

    /// Memory that the host reserved for the native object of an instance under construction, or
    /// null: then the constructor allocates. It is as large as the class's constructors say in
    /// their signatures, lies behind the instance, aligned to 16, and stays the host's. Null, too,
    /// while a native object is in it.
    [[nodiscard]] void* getNativeStorage(COSNameID) {
        return nativeMemory_ == detail::native_memory::free ? this + 1 : nullptr;
    }
    /// Says that a native object was built in that memory. From then on the memory is in use until
    /// the object is deleted, whether or not the instance lives that long; Wrappable's operator
    /// delete gives it back.
    void takeNativeStorage() { nativeMemory_ = detail::native_memory::taken; }

    /// The script class of the instance; never null. Once the class was withdrawn with its module,
    /// what is left of it has its name and no members.
    [[nodiscard]] COSClass* getClass() const { return self_.objectClass; }

    /// False once the instance was deleted or its native object died.
    [[nodiscard]] bool isValid() const { return native_ != nullptr; }

    /// The 1 by 1 object array that holds this instance; lives inside the instance. Sharing it
    /// keeps the instance alive.
    [[nodiscard]] hvArray* handle() {
        if (!self_.isHandle())
            __builtin_unreachable(); // so that nobody tests it again
        return &self_;
    }
    /// The instance whose handle() is `array`; `array` must be a handle.
    static COSInterface* ofHandle(const hvArray* array) {
        return reinterpret_cast<COSInterface*>(const_cast<hvArray*>(array)); // its first member
    }

private:
    friend class factory::basic::BindingRegistry;
    friend class COSClass;
    friend class InstanceAccess;
    friend class detail::InstancePool;

    COSInterface(COSClass* cls, std::uint64_t nativeMemory);
    ~COSInterface() = default;

    hvArray self_;
    COSInterface* selfPointer_; // what self_.data points at; of a free instance: the next free one
    factory::full::Wrappable* native_ = nullptr;
    std::uint64_t nativeMemory_; // one of native_memory; the last word, see there
};

static_assert(std::is_standard_layout_v<COSInterface>); // for ofHandle

} // namespace objsys
