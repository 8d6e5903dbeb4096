// Life and death of script instances.
//
// An instance is counted by its handle array. It ends when the last reference goes, when a script
// deletes it, or when its class is withdrawn; ending calls the class's destroyInstance, once, for a
// bound native object. An instance that ended while references remain stays as an invalid one.
#pragma once

#include <objsys/interface.hpp>

namespace objsys {

class InstanceAccess {
public:
    /// A new unbound instance; the caller gets the one reference to its handle.
    static COSInterface* create(COSClass* cls);
    /// Ends the instance: the class destroys or unbinds the native object. Nothing happens when it
    /// has ended already. Errors of the module are swallowed: nobody could handle them here.
    static void end(COSInterface* instance) noexcept;
    /// The last reference to its handle went: ends it and frees it.
    static void handleReleased(hvArray* handle) noexcept;
    /// Takes the class from an instance whose class goes away.
    static void detachClass(COSInterface* instance) noexcept;
    static COSInterface* next(COSInterface* instance) { return instance->next_; }
};

/// delete(h) for one instance. Raises "varnix:invalidHandle" when it was deleted already and
/// "varnix:notDeletable" when its class does not allow it.
void deleteInstance(COSInterface* instance);

} // namespace objsys
