// The native base of controllers that own one QUARN service and switch it by putting it into the
// IR library's debug-services container or taking it out.
#pragma once

#include <objsys/factory/wrappable.hpp>

namespace QN {
class Service;
}

namespace quarn_vi::debug {

class Registerable : public objsys::factory::full::Wrappable {
public:
    /// A key for finding the object only; no script class has this name.
    static constexpr const char* scriptClassName = "internal.quarn.Registerable";

    /// The controlled service, owned by the controller. Every concrete controller overrides this;
    /// the base reports an assertion and gives null.
    virtual QN::Service* service();

    /// Whether the container holds the service. Asked afresh each time: the container is the only
    /// truth.
    bool enabled();
    void setEnabled(bool value);
};

} // namespace quarn_vi::debug
