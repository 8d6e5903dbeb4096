// Life and death of script instances.
//
// An instance is counted by its handle array. It ends when the last reference goes, when a script
// deletes it, or when its class is withdrawn; ending calls the class's destroyInstance, once, for a
// bound native object. An instance that ended while references remain stays as an invalid one.
//
// The memory of instances is their class's (<objsys/detail/instance_pool.hpp>). An instance behind
// which its native object lies is free again when both are gone.
#pragma once

#include <objsys/class.hpp>
#include <objsys/interface.hpp>

namespace objsys {

class InstanceAccess {
public:
    /// A new unbound instance; the caller gets the one reference to its handle.
    static COSInterface* create(COSClass& cls) { return cls.instances_.take(); }
    /// Ends the instance: the class destroys or unbinds the native object. Nothing happens when it
    /// has ended already. Errors of the module are swallowed: nobody could handle them here.
    static void end(COSInterface* instance) noexcept;
    /// The last reference to its handle went: ends it and frees it.
    static void handleReleased(hvArray* handle) noexcept;
    /// Ends all instances of a class that is withdrawn, also those that are made meanwhile.
    static void endAll(COSClass* cls) noexcept;
    /// Takes back the memory of a native object that lay behind an instance. False: it did not.
    static bool releaseNative(void* memory) noexcept;
};

/// delete(h) for one instance. Raises "varnix:invalidHandle" when it was deleted already and
/// "varnix:notDeletable" when its class does not allow it.
void deleteInstance(COSInterface* instance);

} // namespace objsys
