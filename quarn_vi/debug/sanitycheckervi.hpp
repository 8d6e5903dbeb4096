// internal.quarn.SanityChecker: checks of the IR around each transform, and their report.
#pragma once

#include "debug/debugservicevi.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace QN {
class SanityCheckService;
}

namespace quarn_vi::debug {

class SanityViolationVI;

/// Controls the one sanity-check service of the process. Keeps nothing of its own.
class SanityCheckerVI : public DebugServiceVI {
public:
    static constexpr const char* scriptClassName = "internal.quarn.SanityChecker";

    SanityCheckerVI();

    /// The service that all these controllers share, made on first use.
    static QN::SanityCheckService& sharedSanityCheckService();

    /// "NONE", "SUMMARY", "DETAILS_TO_FILE" or "DETAILS_TO_VARNIX".
    std::string outputType() const;
    /// One of these in any letter case; anything else prints a message and changes nothing.
    void setOutputType(const std::string& type);
    std::int32_t warningThreshold() const;
    void setWarningThreshold(std::int32_t value);
    std::int32_t errorThreshold() const;
    void setErrorThreshold(std::int32_t value);
    /// Counts as a use of the testing hook.
    bool inDataOutDataChecking() const;
    void setInDataOutDataChecking(bool value);
    std::vector<std::string> selectDetails() const;
    /// Names of report fields in any letter case, kept as written. At the first unknown one a
    /// message with all valid names is printed and nothing changes.
    void setSelectDetails(const std::vector<std::string>& fields);
    std::string lineFilter() const;
    void setLineFilter(const std::string& pattern);
    /// A new object for each row of the report, in order; the objects live until the process ends.
    std::vector<SanityViolationVI*> violations() const;
    bool assertOnRecordViolation() const;
    void setAssertOnRecordViolation(bool value);

    std::string hello();
    void clearViolations();
    /// Every check identifier that QUARN knows, in the order of its catalogue.
    std::vector<std::string> allCheckIds();
};

class CosSanityChecker : public objsys::factory::HandleClassInfo<CosSanityChecker, 0> {
public:
    CosSanityChecker();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
