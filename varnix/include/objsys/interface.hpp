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

class alignas(64) COSInterface {
public:
    COSInterface(const COSInterface&) = delete;
    COSInterface& operator=(const COSInterface&) = delete;

    /// The native object bound to this instance, or null when there is none (not yet bound, or the
    /// native object died first). The instance is the key: the same object answers to the full name
    /// of its own class, of a superclass, and to a name that only a native base class uses.
    [[nodiscard]] factory::full::Wrappable* getNativeObject(COSNameID) const { return native_; }

    /// Memory that the host reserved for the native object of an instance under construction, or
    /// null: then the constructor allocates. Large enough and aligned for the class it was
    /// reserved for; stays the host's.
    [[nodiscard]] void* getNativeStorage(COSNameID) const { return storage_; }
    /// Reserves `storage` (or nothing, with null) for the instance's native object.
    void setNativeStorage(void* storage) { storage_ = storage; }

    /// The script class of the instance; never null. Once the class was withdrawn with its module,
    /// what is left of it has its name and no members.
    [[nodiscard]] COSClass* getClass() const { return self_.objectClass; }

    /// False once the instance was deleted or its native object died.
    [[nodiscard]] bool isValid() const { return native_ != nullptr; }

    /// The 1 by 1 object array that holds this instance; lives inside the instance. Sharing it
    /// keeps the instance alive.
    [[nodiscard]] hvArray* handle() { return &self_; }
    /// The instance whose handle() is `array`; `array` must be a handle.
    static COSInterface* ofHandle(const hvArray* array) {
        return reinterpret_cast<COSInterface*>(const_cast<hvArray*>(array)); // its first member
    }

private:
    friend class factory::basic::BindingRegistry;
    friend class COSClass;
    friend class InstanceAccess;

    explicit COSInterface(COSClass* cls);
    ~COSInterface() = default;

    hvArray self_;
    COSInterface* selfPointer_; // what self_.data points at
    factory::full::Wrappable* native_ = nullptr;
    void* storage_ = nullptr; // of a free instance: the next free one of the class
};

static_assert(std::is_standard_layout_v<COSInterface>); // for ofHandle

} // namespace objsys
