// internal.quarn.DebugLogger: where debug output files go and what they are called.
#pragma once

#include "framework/class_info.hpp"

#include <objsys/factory/wrappable.hpp>

#include <string>

namespace quarn_vi::debug {

/// An empty object: every call fetches the process's debug log afresh.
class DebugLogger : public objsys::factory::full::Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.quarn.DebugLogger";

    std::string logDirectory() const;
    void setLogDirectory(const std::string& directory);
    /// "AUTO", "MANUAL", or "INVALID" for a mode that the log does not have today.
    std::string mode() const;
    bool usePIDInName() const;
    void setUsePIDInName(bool value);

    /// The path that the log composes from the two texts.
    std::string logFilePath(const std::string& first, const std::string& second);
    void resetCounter();
};

class CosDebugLogger : public objsys::factory::HandleClassInfo<DebugLogger, 0> {
public:
    CosDebugLogger();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
