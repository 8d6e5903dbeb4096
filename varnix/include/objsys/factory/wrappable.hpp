// The base of every native object that stands behind a script handle.
#pragma once

#include <objsys/interface.hpp>

namespace objsys::factory {

namespace basic {
class BindingRegistry;
}

namespace full {

/// Derive this to let the binding registry hand an object out as a script handle. The object is
/// not owned by its handle; what happens to it when the handle dies is its class's decision
/// (COSClassInfo::destroyInstance). An object that dies first takes its binding with it: the
/// handle becomes invalid.
class Wrappable {
public:
    Wrappable() = default;
    Wrappable(const Wrappable&) = delete;
    Wrappable& operator=(const Wrappable&) = delete;
    virtual ~Wrappable();

private:
    friend class basic::BindingRegistry;

    COSInterface* instance_ = nullptr; // the live instance bound to this object
};

} // namespace full
} // namespace objsys::factory
