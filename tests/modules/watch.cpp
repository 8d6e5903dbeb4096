// A module that watches every compilation of a program from outside its script: all checks before
// and after each run of a transform, in pools with records and canaries; and if it is asked to, the
// scrambler around them. For tests of whole programs.
//
// Environment: WATCH_REPORT names the file that gets the outcome when the module ends.
// WATCH_SCRAMBLE is "SEED SETTING PERCENT": the bits of SETTING are nodes, locals, pointers;
// PERCENT of the variables go behind pointers.
#include "entry_points.hpp"

#include <qn/sanity_check_service.hpp>
#include <qn/scramble_service.hpp>
#include <qn/testing_hooks.hpp>
#include <qn/transform_run.hpp>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

namespace {

class Checks final : public QN::SanityCheckService {
public:
    Checks() : SanityCheckService(true, true, OutputType::None) { setRequestedGlobalScope(true); }
    void prepass(QN::TransformRun& run) override {
        SanityCheckService::prepass(run);
        ++before_;
    }
    void postpass(QN::TransformRun& run) override {
        SanityCheckService::postpass(run);
        ++after_;
    }
    void report(std::ostream& out) const {
        out << "before " << before_ << "\nafter " << after_ << "\nviolations "
            << getDetailedReport().size() << '\n';
        for (const ReportRow& row : getDetailedReport()) {
            out << foundWhenToString(row.foundWhen()) << ' ' << row.testpoint() << ": "
                << row.message() << '\n';
        }
    }

private:
    std::size_t before_ = 0;
    std::size_t after_ = 0;
};

std::unique_ptr<QN::ScrambleService> scrambler;
std::unique_ptr<Checks> checks;

void addScrambler(const char* wish) {
    unsigned seed = 0;
    unsigned setting = 0;
    int percent = 0;
    std::istringstream(wish) >> seed >> setting >> percent;
    scrambler = std::make_unique<QN::ScrambleService>(true, true);
    scrambler->setSeed(seed);
    scrambler->setScrambleNodeList((setting & 1) != 0);
    scrambler->setScrambleLocalVars((setting & 2) != 0);
    scrambler->setIntroducePointers((setting & 4) != 0);
    scrambler->setScalarVarPointerizationThresh(percent);
    scrambler->setAggregateVarPointerizationThresh(percent);
}

void initialize() {
    TSFEAT_QUARNCfgPoolInternalLeakDetection->setHookValFromC(1);
    TSFEAT_QUARNPoolSanityChecks->setHookValFromC(1);
    if (const char* const wish = std::getenv("WATCH_SCRAMBLE"); wish != nullptr)
        addScrambler(wish);
    checks = std::make_unique<Checks>();
}

void terminate() {
    if (const char* const path = std::getenv("WATCH_REPORT"); path != nullptr) {
        std::ofstream out(path);
        out << "scrambles " << (scrambler != nullptr ? scrambler->getCount() : 0) << '\n';
        checks->report(out);
    }
    checks.reset();
    scrambler.reset();
}

} // namespace

MODULE_ENTRY_POINTS(watch, initialize, terminate)
