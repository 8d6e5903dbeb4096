// internal.quarn.DebugService: the four settings that every debug service has, published once as a
// superclass; and the native base of the controllers that derive it.
#pragma once

#include "framework/class_info.hpp"

#include <objsys/factory/wrappable.hpp>

#include <string>

namespace QN {
class DebugService;
}

namespace quarn_vi::debug {

/// Points at a service that is owned elsewhere and outlives the controller. Keeps no setting.
class DebugServiceVI : public objsys::factory::full::Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.DebugService";

    explicit DebugServiceVI(QN::DebugService* service) : service_(service) {}

    bool enabledBefore() const;
    void setEnabledBefore(bool value);
    bool enabledAfter() const;
    void setEnabledAfter(bool value);
    bool enabledGlobalScope() const;
    void setEnabledGlobalScope(bool value);
    std::string filterRegEx() const;
    /// Any text; what a malformed pattern means is the service's business.
    void setFilterRegEx(const std::string& pattern);

private:
    QN::DebugService* service_;
};

/// Scripts cannot construct a DebugService: there is no constructor.
class CosDebugService : public objsys::factory::HandleClassInfo<DebugServiceVI, 0> {
public:
    CosDebugService();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
