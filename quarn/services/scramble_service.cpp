// See the header; the changes themselves are in scrambling.cpp.
#include "services/open_runs.hpp"
#include "services/run_facts.hpp"
#include "services/scrambling.hpp"

#include <qn/console.hpp>
#include <qn/scramble_service.hpp>

#include <string>

namespace QN {

namespace {

struct Settings {
    bool nodes;
    bool locals;
    bool pointers;
    int scalarPercent;
    int arrayPercent;
};

struct Scrambled {
    std::size_t blocks = 0;
    std::size_t permutations = 0;
    std::size_t pointers = 0;
    [[nodiscard]] std::size_t total() const noexcept { return blocks + permutations + pointers; }
};

// The choices are drawn whether or not they are used up by the limit, so that a lower limit makes
// fewer changes and no others.
void scrambleGraph(Cfg& cfg, const Settings& settings, std::size_t limit, detail::Random& random,
                   Scrambled& done) {
    if (settings.pointers) {
        std::vector<Var*> chosen;
        for (Var& var : cfg.vars()) {
            const int percent = var.isAggregate() ? settings.arrayPercent : settings.scalarPercent;
            if (detail::canIntroducePointer(var) && static_cast<int>(random.below(100)) < percent) {
                chosen.push_back(&var);
            }
        }
        for (Var* const var : chosen) {
            if (done.total() < limit) {
                detail::introducePointer(cfg, *var);
                ++done.pointers;
            }
        }
    }
    if (settings.locals && done.total() < limit) {
        done.permutations += detail::permuteLocals(cfg, random) ? 1 : 0;
    }
    if (settings.nodes) {
        const std::vector<bool> addressTaken = detail::findAddressTaken(cfg);
        for (Block& block : cfg.blocks()) {
            if (done.total() == limit) {
                break;
            }
            done.blocks += detail::reorderNodes(cfg, block, addressTaken, random) ? 1 : 0;
        }
    }
}

std::string counted(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + (count == 1 ? one : many);
}

} // namespace

struct ScrambleService::State {
    struct Nothing {};
    detail::OpenRuns<Nothing> open;
};

ScrambleService::ScrambleService(bool before, bool after)
    : DebugService(before, after), state_(std::make_unique<State>()) {}

ScrambleService::~ScrambleService() = default;

void ScrambleService::setLimit(std::size_t scrambles) noexcept {
    limit_ = scrambles;
    settingChanged();
}
void ScrambleService::resetCount() noexcept {
    count_ = 0;
    settingChanged();
}
void ScrambleService::setScrambleNodeList(bool scramble) noexcept {
    nodes_ = scramble;
    settingChanged();
}
void ScrambleService::setScrambleLocalVars(bool scramble) noexcept {
    locals_ = scramble;
    settingChanged();
}
void ScrambleService::setIntroducePointers(bool introduce) noexcept {
    pointers_ = introduce;
    settingChanged();
}
void ScrambleService::setScalarVarPointerizationThresh(int percent) noexcept {
    scalarPercent_ = percent;
    settingChanged();
}
void ScrambleService::setAggregateVarPointerizationThresh(int percent) noexcept {
    arrayPercent_ = percent;
    settingChanged();
}
void ScrambleService::setVerbose(bool verbose) noexcept {
    verbose_ = verbose;
    settingChanged();
}
void ScrambleService::setSeed(unsigned seed) noexcept {
    seed_ = seed;
    settingChanged();
}

void ScrambleService::prepass(TransformRun& run) {
    if (state_->open.depth() == 0 && wantsBefore(run)) {
        scramble(run, false);
    }
    state_->open.open(run);
}

void ScrambleService::postpass(TransformRun& run) {
    state_->open.close(run);
    // A transform that failed has left IR that need not be valid.
    if (state_->open.depth() == 0 && wantsAfter(run) && !run.failed()) {
        scramble(run, true);
    }
}

void ScrambleService::scramble(TransformRun& run, bool after) {
    const Settings settings{nodes_, locals_, pointers_, scalarPercent_, arrayPercent_};
    const std::size_t left = limit_ > count_ ? limit_ - count_ : 0;
    const std::uint64_t start =
        detail::hashOf(run.tag(), detail::hashOf(after ? "after" : "before")) ^
        detail::Random(seed_).next();
    Scrambled done;
    detail::forEachFunctionOf(run, [&](Function& function) {
        Cfg& cfg = function.cfg();
        if (cfg.entry() == nullptr || cfg.entry()->empty() || done.total() >= left) {
            return;
        }
        detail::Random random(start ^ detail::hashOf(function.name()));
        scrambleGraph(cfg, settings, left, random, done);
    });
    count_ += done.total();
    if (verbose_ && done.total() != 0) {
        consoleWrite(
            "Scrambled " + std::string(after ? "after " : "before ") + run.tag() + ": " +
            counted(done.blocks, " block reordered, ", " blocks reordered, ") +
            counted(done.permutations, " permutation of locals, ", " permutations of locals, ") +
            counted(done.pointers, " variable", " variables") + " behind pointers; count " +
            std::to_string(count_) + "\n");
    }
}

} // namespace QN
