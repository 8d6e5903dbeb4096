// internal.quarn.Scrambler: rearranges the IR on purpose, to find code that relies on its order.
#pragma once

#include "debug/debugservicevi.hpp"

#include <cstdint>
#include <string>

namespace QN {
class ScrambleService;
}

namespace quarn_vi::debug {

/// Controls the one scramble service of the process. Keeps nothing of its own.
class ScramblerVI : public DebugServiceVI {
public:
    static constexpr const char* scriptClassName = "internal.quarn.Scrambler";

    ScramblerVI();

    /// The service that all these controllers share, made on first use.
    static QN::ScrambleService& sharedScrambleService();

    std::uint64_t scrambleLimit() const;
    void setScrambleLimit(std::uint64_t limit);
    std::uint64_t scrambleCount() const;
    bool scrambleNodeList() const;
    void setScrambleNodeList(bool value);
    bool scrambleLocalVars() const;
    void setScrambleLocalVars(bool value);
    bool introducePointers() const;
    void setIntroducePointers(bool value);
    std::int32_t scalarVarPointerizationThresh() const;
    /// Per cent, 0 to 100; anything else prints a message and changes nothing.
    void setScalarVarPointerizationThresh(std::int32_t percent);
    std::int32_t aggregateVarPointerizationThresh() const;
    /// Per cent, 0 to 100; anything else prints a message and changes nothing.
    void setAggregateVarPointerizationThresh(std::int32_t percent);
    bool verbose() const;
    void setVerbose(bool value);

    std::string hello();
    void resetScrambleCount();
    void randomSeed(std::uint32_t seed);
};

class CosScrambler : public objsys::factory::HandleClassInfo<CosScrambler, 0> {
public:
    CosScrambler();
    void defineClass(objsys::COSClassDefinition* definition) override;
};

} // namespace quarn_vi::debug
