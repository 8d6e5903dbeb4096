// internal.quarn.StackTraces: which kinds of IR entities remember where in the compiler they were
// made.
#pragma once

#include "framework/class_info.hpp"

#include <objsys/factory/wrappable.hpp>

namespace quarn_vi::debug {

/// An empty object: the five switches are process-wide settings of the IR library.
class StackTraces : public objsys::factory::full::Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.StackTraces";

    bool tagNodes() const;
    void setTagNodes(bool value);
    bool tagConsts() const;
    void setTagConsts(bool value);
    bool tagVars() const;
    void setTagVars(bool value);
    bool tagTypes() const;
    void setTagTypes(bool value);
    bool trackDerivedNodes() const;
    void setTrackDerivedNodes(bool value);
};

class CosStackTraces : public objsys::factory::HandleClassInfo<StackTraces, 0> {
public:
    CosStackTraces();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
