// LLVM's options belong to the whole process: each compilation leaves them as they were, whatever
// becomes of it. A program of its own, as it is linked with LLVM.
#include "tests/vmrt_support.hpp"

#include <algorithm>
#include <gmock/gmock.h>
#include <iterator>
#include <llvm/Support/CommandLine.h>
#include <llvm/Support/raw_ostream.h>
#include <set>
#include <sstream>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

using namespace QN;
using namespace QN::vmrt_test;

namespace {

llvm::cl::Option& optionNamed(llvm::StringRef name) {
    const auto found = llvm::cl::getRegisteredOptions().find(name);
    if (found == llvm::cl::getRegisteredOptions().end()) {
        throw std::runtime_error("LLVM has no option " + name.str());
    }
    return *found->second;
}

/// Each option that was set, and the value of each that is not known to be as LLVM has it by
/// itself.
std::set<std::string> options() {
    std::set<std::string> lines;
    ::testing::internal::CaptureStdout();
    for (const auto& [name, each] : llvm::cl::getRegisteredOptions()) {
        each->printOptionValue(name.size(), /*Force=*/false);
        if (each->getNumOccurrences() != 0) {
            lines.insert(name.str() + " was set");
        }
    }
    llvm::outs().flush();
    std::istringstream values(::testing::internal::GetCapturedStdout());
    for (std::string line; std::getline(values, line);) {
        lines.insert(line);
    }
    return lines;
}

/// The lines of options() that have come or gone.
std::vector<std::string> changesSince(const std::set<std::string>& before) {
    const std::set<std::string> now = options();
    std::vector<std::string> changes;
    std::ranges::set_symmetric_difference(before, now, std::back_inserter(changes));
    return changes;
}

/// An option as somebody else in the process sets it, for as long as this is there.
class SetByAnother {
public:
    SetByAnother(llvm::StringRef name, llvm::StringRef value) : option_(optionNamed(name)) {
        option_.addOccurrence(0, name, value);
    }
    SetByAnother(const SetByAnother&) = delete;
    SetByAnother& operator=(const SetByAnother&) = delete;
    ~SetByAnother() { option_.reset(); }

private:
    llvm::cl::Option& option_;
};

/// A loop that sums what it computes from its turns, in a function that another one calls: two
/// functions, so that LLVM goes through its transforms of whole modules too.
const char* const sumTwice = R"((function sum f64 (param $n f64) (user $s f64) (user $i f64)
  (block b0 (jump b1))
  (block b1 (%1 f64 load $i) (%2 f64 load $n) (%3 logical lt %1 %2) (br %3 b2 b3))
  (block b2 (%4 f64 add %1 1.0) (store $i %4) (%5 f64 div 1.0 %4) (%6 f64 load $s)
            (%7 f64 add %6 %5) (store $s %7) (jump b1))
  (block b3 (%8 f64 load $s) (ret %8)))
(function twice f64 (param $n f64)
  (block b0 (%1 f64 load $n) (%2 f64 call &sum %1) (%3 f64 call &sum %1) (%4 f64 add %2 %3)
            (ret %4))))";

std::unique_ptr<Executable> compile(VMRT::MachineCodeEngine& engine, const char* entry) {
    const auto scope = parsed(sumTwice);
    return engine.prepare(*scope, *scope->find(entry), "");
}

} // namespace

TEST(ProcessOptions, AreWhatTheyWereAfterACompilation) {
    const std::set<std::string> before = options();
    for (const auto level : allLevels) {
        VMEngineConfig config = atLevel(level);
        config.setEnableFastISel(false);
        const auto engine = VMRT::makeEngine(config);
        EXPECT_THAT(changesSince(before), ::testing::IsEmpty()) << level;
        for (const char* const entry : {"sum", "twice"}) {
            static_cast<void>(compile(*engine, entry));
            EXPECT_THAT(changesSince(before), ::testing::IsEmpty()) << entry << " at " << level;
        }
    }
}

TEST(ProcessOptions, AreWhatTheyWereAfterAnErrorInATransform) {
#if defined(__SANITIZE_ADDRESS__)
    const __lsan::ScopedDisabler lost; // what LLVM held when it stopped in the middle
#endif
    const SetByAnother unreadable("forceattrs-csv-path", "/nowhere/at/all.csv");
    const std::set<std::string> before = options();
    // The other levels do without the transform that reads this file.
    for (const auto level :
         {VMEngineConfig::OptLess, VMEngineConfig::OptAggressive, VMEngineConfig::OptAccelerator}) {
        const auto engine = VMRT::makeEngine(atLevel(level));
        try {
            static_cast<void>(compile(*engine, "twice"));
            ADD_FAILURE() << "nothing failed at " << level;
        } catch (const CompilationRefused& refused) {
            EXPECT_STREQ(refused.what(), "twice: Cannot open CSV file.");
        }
        EXPECT_THAT(changesSince(before), ::testing::IsEmpty()) << level;
    }
}

TEST(ProcessOptions, ThatSomebodyElseHasSetStay) {
    const SetByAnother ordered("force-ordered-reductions", "true");
    const SetByAnother fast("fast-isel", "true");
    const std::set<std::string> before = options();
    for (const auto level : allLevels) {
        VMEngineConfig config = atLevel(level);
        config.setEnableFastISel(false);
        static_cast<void>(compile(*VMRT::makeEngine(config), "twice"));
        EXPECT_THAT(changesSince(before), ::testing::IsEmpty()) << level;
    }
}
