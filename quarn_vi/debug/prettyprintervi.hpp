// internal.quarn.PrettyPrinter: dumps of the IR around each transform.
#pragma once

#include "debug/debugservicevi.hpp"
#include "debug/stacktraces.hpp"

#include <memory>
#include <string>

namespace QN {
class PrettyPrintService;
}

namespace quarn_vi::debug {

/// Controls the one pretty-print service of the process, and owns a StackTraces controller.
class PrettyPrinterVI : public DebugServiceVI {
public:
    static constexpr const char* scriptClassName = "internal.quarn.PrettyPrinter";

    PrettyPrinterVI();

    /// The service that all these controllers share, made on first use.
    static QN::PrettyPrintService& sharedPrettyPrintService();

    std::string prettyPrintDir() const;
    StackTraces* stackTraces() const { return stackTraces_.get(); }
    /// "HTML", "TEXT", "QNEL" or "DOT".
    std::string outputFormat() const;
    /// One of these in any letter case; anything else prints a message and changes nothing.
    void setOutputFormat(const std::string& format);
    bool enabledPrintRoundingOverflow() const;
    void setEnabledPrintRoundingOverflow(bool value);
    bool enabledSanityChecking() const;
    void setEnabledSanityChecking(bool value);
    bool varNameDisambiguation() const;
    void setVarNameDisambiguation(bool value);
    bool gaplessNumbering() const;
    void setGaplessNumbering(bool value);
    bool removeIdenticalFiles() const;
    void setRemoveIdenticalFiles(bool value);

    std::string hello();

private:
    std::unique_ptr<StackTraces> stackTraces_;
};

class CosPrettyPrinter : public objsys::factory::HandleClassInfo<CosPrettyPrinter, 0> {
public:
    CosPrettyPrinter();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
