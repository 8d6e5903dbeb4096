// Life and death of script instances.
//
// An instance is counted by its handle array. It ends when the last reference goes, when a script
// deletes it, or when its class is withdrawn; ending calls the class's destroyInstance, once, for a
// bound native object. An instance that ended while references remain stays as an invalid one.
//
// Each class owns the memory of its instances, in slabs that stay for the process as the class
// does. An instance that is free has no references and keeps all that is the same for the next one;
// what differs is set by create.
#pragma once

#include <objsys/class.hpp>
#include <objsys/interface.hpp>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace objsys {

class InstanceAccess {
public:
    /// A new unbound instance; the caller gets the one reference to its handle.
    static COSInterface* create(COSClass* cls) {
        COSInterface* instance = cls->freeInstances_;
        if (!instance) [[unlikely]] {
            addSlab(cls);
            instance = cls->freeInstances_;
        }
        setUsable(instance, true);
        cls->freeInstances_ = static_cast<COSInterface*>(instance->storage_);
        instance->storage_ = nullptr;
        instance->self_.refs = 1;
        return instance;
    }
    /// Ends the instance: the class destroys or unbinds the native object. Nothing happens when it
    /// has ended already. Errors of the module are swallowed: nobody could handle them here.
    static void end(COSInterface* instance) noexcept;
    /// The last reference to its handle went: ends it and frees it.
    static void handleReleased(hvArray* handle) noexcept;
    /// Ends all instances of a class that is withdrawn, also those that are made meanwhile.
    static void endAll(COSClass* cls) noexcept;

private:
    static constexpr std::size_t instancesPerSlab = 64;

    static void addSlab(COSClass* cls);
    /// Gives an instance back to its class.
    static void recycle(COSInterface* instance) noexcept {
        COSClass* const cls = instance->self_.objectClass;
        instance->storage_ = cls->freeInstances_;
        cls->freeInstances_ = instance;
        setUsable(instance, false);
    }
    /// Lets AddressSanitizer see who touches an instance that is free; its count may be read.
    static void setUsable([[maybe_unused]] COSInterface* instance, [[maybe_unused]] bool usable) {
#if defined(__SANITIZE_ADDRESS__)
        char* const begin = reinterpret_cast<char*>(&instance->self_.objectClass);
        char* const end = reinterpret_cast<char*>(instance + 1);
        if (usable)
            ASAN_UNPOISON_MEMORY_REGION(begin, end - begin);
        else
            ASAN_POISON_MEMORY_REGION(begin, end - begin);
#endif
    }
};

/// delete(h) for one instance. Raises "varnix:invalidHandle" when it was deleted already and
/// "varnix:notDeletable" when its class does not allow it.
void deleteInstance(COSInterface* instance);

} // namespace objsys
