// Changes IR at random in ways that leave every result as it is, to bring out code that counts on
// an order or a form that nobody promised: reorders independent nodes, permutes local variables,
// replaces variables by pointers to them.
//
// What is done depends on the seed, the tag and side of the run and the IR itself, and on nothing
// else, so that a seed gives the same IR on every machine. One scramble is one block reordered, one
// permutation, or one variable replaced. Runs inside other runs are left alone. Owner: whoever
// makes it.
#pragma once

#include <qn/debug_service.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace QN {

class ScrambleService : public DebugService {
public:
    /// With the sides that are requested from the start.
    ScrambleService(bool before, bool after);
    ~ScrambleService() override;

    /// When this many scrambles have been made, no more are; halving it finds the one that matters.
    /// The largest size at start.
    [[nodiscard]] std::size_t getLimit() const noexcept { return limit_; }
    void setLimit(std::size_t scrambles) noexcept;
    /// Scrambles made since the start or the last reset.
    [[nodiscard]] std::size_t getCount() const noexcept { return count_; }
    void resetCount() noexcept;

    /// Whether nodes are put into another order inside their blocks; on at start.
    [[nodiscard]] bool scrambleNodeList() const noexcept { return nodes_; }
    void setScrambleNodeList(bool scramble) noexcept;
    /// Whether variables that are no parameters are declared in another order; on at start.
    [[nodiscard]] bool scrambleLocalVars() const noexcept { return locals_; }
    void setScrambleLocalVars(bool scramble) noexcept;
    /// Whether variables are replaced by pointers to them; off at start.
    [[nodiscard]] bool introducePointers() const noexcept { return pointers_; }
    void setIntroducePointers(bool introduce) noexcept;

    /// How many in a hundred scalar variables, and arrays, are replaced; 50 at start. 0 is none,
    /// 100 and more all.
    [[nodiscard]] int scalarVarPointerizationThresh() const noexcept { return scalarPercent_; }
    void setScalarVarPointerizationThresh(int percent) noexcept;
    [[nodiscard]] int aggregateVarPointerizationThresh() const noexcept { return arrayPercent_; }
    void setAggregateVarPointerizationThresh(int percent) noexcept;

    /// Whether each run that is scrambled is told on the console; off at start.
    [[nodiscard]] bool verbose() const noexcept { return verbose_; }
    void setVerbose(bool verbose) noexcept;

    /// 0 at start.
    void setSeed(unsigned seed) noexcept;

    void prepass(TransformRun& run) override;
    void postpass(TransformRun& run) override;

private:
    struct State;
    void scramble(TransformRun& run, bool after);

    std::size_t limit_ = SIZE_MAX;
    std::size_t count_ = 0;
    unsigned seed_ = 0;
    int scalarPercent_ = 50;
    int arrayPercent_ = 50;
    bool nodes_ = true;
    bool locals_ = true;
    bool pointers_ = false;
    bool verbose_ = false;
    std::unique_ptr<State> state_;
};

} // namespace QN
