// internal.quarn.LlvmDebugger over the runtime's prototype configuration.

#include "debug/llvmdebugger.hpp"
#include "tests/controllers.hpp"

#include <qn/default_services.hpp>
#include <qn/vmrt/engine_config.hpp>

#include <limits>

namespace {

using controllers::Member;
using controllers::Object;
using controllers::printed;
using Config = QN::VMRT::VMEngineConfig;

Config& config() {
    return Config::prototype();
}

/// Each test starts from the configuration that the process started with.
class LlvmDebugger : public testing::Test {
protected:
    ~LlvmDebugger() override { config() = before_; }

private:
    Config before_ = config();
};

TEST_F(LlvmDebugger, declaresItsMembersInOrder) {
    EXPECT_EQ(controllers::propertiesOf("LlvmDebugger"),
              (std::vector<Member>{{"enabled", "logical scalar", false, 0},
                                   {"abortOnError", "logical scalar", false, 0},
                                   {"defaultCodeSlabSizeKBytes", "uint64 scalar", false, 0},
                                   {"deleteCoreFcnCfgAfterConversion", "logical scalar", false, 0},
                                   {"jitOptimizationLevel", "char", false, 0},
                                   {"dumpLlvmIR", "logical scalar", false, 0},
                                   {"instrumentIRDebugPrint", "char", false, 0},
                                   {"instrumentIRVerbosityLLVMIR", "logical scalar", false, 0},
                                   {"instrumentIRVerbosityQUARN", "logical scalar", false, 0},
                                   {"dumpHostAssembly", "logical scalar", false, 0},
                                   {"framePointerPolicy", "char", false, 0},
                                   {"useSoftFloat", "logical scalar", false, 0},
                                   {"jitEmitDebugInfo", "logical scalar", false, 0},
                                   {"enableFastISel", "logical scalar", false, 0}}));
    objsys::COSClass& cls = controllers::scriptClass("LlvmDebugger");
    EXPECT_TRUE(controllers::methodsOf("LlvmDebugger").empty());
    EXPECT_TRUE(cls.superclasses().empty());
    ASSERT_EQ(cls.constructors().size(), 1u);
    EXPECT_TRUE(cls.constructors()[0]->getSignature().arguments.empty());
}

TEST_F(LlvmDebugger, hasNoDataOfItsOwn) {
    EXPECT_EQ(sizeof(quarn_vi::debug::LlvmDebugger), sizeof(quarn_vi::debug::Registerable));
}

/// A logical property that is nothing but one setting.
struct Switch {
    const char* property;
    bool (*read)();
    void (*write)(bool);
};
const Switch switches[] = {
    {"deleteCoreFcnCfgAfterConversion", [] { return config().deleteCoreFcnCfgAfterConversion(); },
     [](bool v) { config().setDeleteCoreFcnCfgAfterConversion(v); }},
    {"dumpLlvmIR", [] { return config().dumpLlvmIR(); }, [](bool v) { config().setDumpLlvmIR(v); }},
    {"instrumentIRVerbosityLLVMIR", [] { return config().instrumentIRVerbosityLLVMIR(); },
     [](bool v) { config().setInstrumentIRVerbosityLLVMIR(v); }},
    {"instrumentIRVerbosityQUARN", [] { return config().instrumentIRVerbosityQUARN(); },
     [](bool v) { config().setInstrumentIRVerbosityQUARN(v); }},
    {"dumpHostAssembly", [] { return config().dumpHostAssembly(); },
     [](bool v) { config().setDumpHostAssembly(v); }},
    {"useSoftFloat", [] { return config().useSoftFloat(); },
     [](bool v) { config().setUseSoftFloat(v); }},
    {"jitEmitDebugInfo", [] { return config().jitEmitDebugInfo(); },
     [](bool v) { config().setJitEmitDebugInfo(v); }},
    {"enableFastISel", [] { return config().enableFastISel(); },
     [](bool v) { config().setEnableFastISel(v); }},
};

TEST_F(LlvmDebugger, switchesAreSettingsThatEveryObjectShares) {
    const Object a("LlvmDebugger");
    const Object b("LlvmDebugger");
    const auto text = sample::text("true");
    for (const Switch& s : switches)
        for (const bool value : {true, false, true}) {
            EXPECT_EQ(printed([&] { a.set(s.property, value); }), "");
            EXPECT_EQ(s.read(), value) << s.property;
            EXPECT_EQ(b.flag(s.property), value) << s.property;
            controllers::expectWrongType(a, s.property, sample::arrayValue(text));
            EXPECT_EQ(s.read(), value) << s.property;
            s.write(!value); // behind the controllers' back
            EXPECT_EQ(a.flag(s.property), !value) << s.property;
        }
}

TEST_F(LlvmDebugger, eachSwitchChangesItsOwnSettingOnly) {
    const Object object("LlvmDebugger");
    for (const Switch& changed : switches) {
        for (const Switch& s : switches)
            s.write(false);
        object.set(changed.property, true);
        for (const Switch& s : switches)
            EXPECT_EQ(s.read(), &s == &changed) << changed.property << " and " << s.property;
    }
}

TEST_F(LlvmDebugger, enabledSwitchesChecksAndReporterOnButOnlyTheChecksOff) {
    const Object object("LlvmDebugger");
    config().setInsertRuntimeChecks(false);
    config().setUseDebugReporter(false);
    object.set("enabled", false);
    EXPECT_FALSE(object.flag("enabled"));
    object.set("enabled", true);
    EXPECT_TRUE(config().insertRuntimeChecks());
    EXPECT_TRUE(config().useDebugReporter());
    EXPECT_TRUE(object.flag("enabled"));
    object.set("enabled", false);
    EXPECT_FALSE(config().insertRuntimeChecks());
    EXPECT_TRUE(config().useDebugReporter());
    EXPECT_TRUE(object.flag("enabled"));
    EXPECT_FALSE(config().abortOnError());
}

TEST_F(LlvmDebugger, enabledReadsTheReporterAlone) {
    const Object object("LlvmDebugger");
    config().setUseDebugReporter(true);
    config().setInsertRuntimeChecks(false);
    EXPECT_TRUE(object.flag("enabled"));
    config().setUseDebugReporter(false);
    config().setInsertRuntimeChecks(true);
    EXPECT_FALSE(object.flag("enabled"));
}

TEST_F(LlvmDebugger, abortOnErrorBringsTheChecksAndTheReporter) {
    const Object object("LlvmDebugger");
    config().setInsertRuntimeChecks(false);
    config().setUseDebugReporter(false);
    object.set("abortOnError", true);
    EXPECT_TRUE(config().abortOnError());
    EXPECT_TRUE(config().insertRuntimeChecks());
    EXPECT_TRUE(config().useDebugReporter());
    EXPECT_TRUE(object.flag("abortOnError"));
    EXPECT_TRUE(object.flag("enabled"));
    object.set("abortOnError", false);
    EXPECT_FALSE(config().abortOnError());
    EXPECT_TRUE(config().insertRuntimeChecks());
    EXPECT_TRUE(config().useDebugReporter());
    EXPECT_FALSE(object.flag("abortOnError"));
    EXPECT_TRUE(object.flag("enabled"));
}

TEST_F(LlvmDebugger, abortOnErrorOffTouchesOnlyTheAbort) {
    const Object object("LlvmDebugger");
    config().setAbortOnError(true); // behind the controller's back: without the other two
    config().setInsertRuntimeChecks(false);
    config().setUseDebugReporter(false);
    EXPECT_TRUE(object.flag("abortOnError"));
    object.set("abortOnError", false);
    EXPECT_FALSE(config().abortOnError());
    EXPECT_FALSE(config().insertRuntimeChecks());
    EXPECT_FALSE(config().useDebugReporter());
    EXPECT_FALSE(object.flag("enabled"));
}

TEST_F(LlvmDebugger, coupledSwitchesRefuseWhatIsNotLogical) {
    const Object object("LlvmDebugger");
    const auto text = sample::text("true");
    for (const char* const property : {"enabled", "abortOnError"})
        for (const bool value : {true, false}) {
            config().setInsertRuntimeChecks(value);
            config().setUseDebugReporter(value);
            config().setAbortOnError(value);
            controllers::expectWrongType(object, property, sample::arrayValue(text));
            controllers::expectWrongType(object, property,
                                         sample::number(std::numeric_limits<double>::quiet_NaN()));
            EXPECT_EQ(config().insertRuntimeChecks(), value);
            EXPECT_EQ(config().useDebugReporter(), value);
            EXPECT_EQ(config().abortOnError(), value);
        }
}

TEST_F(LlvmDebugger, slabSizeIsInKilobytes) {
    const Object object("LlvmDebugger");
    EXPECT_EQ(printed([&] { object.set("defaultCodeSlabSizeKBytes", 64.0); }), "");
    EXPECT_EQ(config().defaultCodeSlabSize(), 65536u);
    EXPECT_EQ(object.uint64("defaultCodeSlabSizeKBytes"), 64u);
    object.set("defaultCodeSlabSizeKBytes", 1.0);
    EXPECT_EQ(config().defaultCodeSlabSize(), 1024u);
}

TEST_F(LlvmDebugger, slabSizeReadsRoundedDown) {
    const Object object("LlvmDebugger");
    struct Row {
        std::uint64_t bytes, kilobytes;
    };
    constexpr std::uint64_t all = ~std::uint64_t{0};
    for (const Row row : {Row{0, 0}, Row{1023, 0}, Row{1024, 1}, Row{2047, 1}, Row{65537, 64},
                          Row{all, all >> 10}}) {
        config().setDefaultCodeSlabSize(row.bytes); // behind the controller's back
        EXPECT_EQ(object.uint64("defaultCodeSlabSizeKBytes"), row.kilobytes) << row.bytes;
    }
}

TEST_F(LlvmDebugger, slabSizeOfZeroPrintsAMessageAndChangesNothing) {
    const Object object("LlvmDebugger");
    config().setDefaultCodeSlabSize(12345);
    EXPECT_EQ(printed([&] { object.set("defaultCodeSlabSizeKBytes", 0.0); }),
              "Illegal value 0 provided to LlvmDebugger::setDefaultCodeSlabSize (ignored)\n");
    EXPECT_EQ(config().defaultCodeSlabSize(), 12345u);
}

TEST_F(LlvmDebugger, slabSizeWrapsBeyondSixtyFourBits) {
    const Object object("LlvmDebugger");
    const auto set = [&](std::uint64_t kilobytes) {
        return printed([&] {
            object.set("defaultCodeSlabSizeKBytes",
                       sample::HostType<std::uint64_t>::pack(kilobytes));
        });
    };
    constexpr std::uint64_t wrap = std::uint64_t{1} << 54; // kilobytes in 2^64 bytes
    EXPECT_EQ(set(wrap - 1), "");
    EXPECT_EQ(config().defaultCodeSlabSize(), (wrap - 1) * 1024);
    EXPECT_EQ(set(wrap + 3), "");
    EXPECT_EQ(config().defaultCodeSlabSize(), 3u * 1024);
    EXPECT_EQ(object.uint64("defaultCodeSlabSizeKBytes"), 3u);
    EXPECT_EQ(set(wrap), ""); // not zero as given, so it is taken
    EXPECT_EQ(config().defaultCodeSlabSize(), 0u);
}

TEST_F(LlvmDebugger, slabSizeRefusesWhatIsNoUnsignedNumber) {
    const Object object("LlvmDebugger");
    config().setDefaultCodeSlabSize(4096);
    const auto text = sample::text("64");
    controllers::expectWrongType(object, "defaultCodeSlabSizeKBytes", sample::arrayValue(text));
    controllers::expectWrongType(object, "defaultCodeSlabSizeKBytes", sample::number(-1));
    controllers::expectWrongType(object, "defaultCodeSlabSizeKBytes", sample::number(1.5));
    controllers::expectWrongType(object, "defaultCodeSlabSizeKBytes",
                                 sample::number(18446744073709551616.0));
    EXPECT_EQ(config().defaultCodeSlabSize(), 4096u);
}

/// A property that takes one of a few keywords.
struct Choice {
    const char* property;
    std::vector<const char*> keywords; ///< by value, from 0
    std::vector<std::string> refused;
    std::string messageStart, messageEnd; ///< around the refused text
    int (*read)();
    void (*write)(int);
};
const Choice choices[] = {
    {"jitOptimizationLevel",
     {"None", "Less", "Default", "Aggressive", "Accelerator", "Unspecified"},
     {"aggressive", "AGGRESSIVE", "none", "", "Non", "Nones", "None ", " None", "Accelerato",
      "accelerator", "3", "O3"},
     "Ignoring illegal setting ",
     " provided to LlvmDebugger::setJitOptimizationLevel (valid settings: 'None', 'Less', "
     "'Default', 'Aggressive', 'Unspecified')\n",
     [] { return static_cast<int>(config().jitOptimizationLevel()); },
     [](int v) { config().setJitOptimizationLevel(static_cast<Config::JitOptimizationLevel>(v)); }},
    {"instrumentIRDebugPrint",
     {"None", "Printf", "ValgrindPrint"},
     {"Unspecified", "none", "printf", "PRINTF", "", "Print", "Printff", "Valgrind",
      "valgrindprint"},
     "Ignoring illegal value ",
     " provided to LlvmDebugger::setInstrumentIRDebugPrint (valid settings: 'None', 'Printf', "
     "'ValgrindPrint')\n",
     [] { return static_cast<int>(config().instrumentIRDebugPrint()); },
     [](int v) { config().setInstrumentIRDebugPrint(static_cast<Config::DebugPrintType>(v)); }},
    {"framePointerPolicy",
     {"Preserve", "Eliminate", "Unspecified"},
     {"preserve", "ELIMINATE", "unspecified", "", "Preserv", "Eliminated", "None", "Default"},
     "Ignoring illegal setting ",
     " provided to LlvmDebugger::setFramePointerPolicy (valid settings: 'Eliminate', 'Preserve', "
     "'Unspecified')\n",
     [] { return static_cast<int>(config().framePointerPolicy()); },
     [](int v) { config().setFramePointerPolicy(static_cast<Config::JitFramePointerPolicy>(v)); }},
};

TEST_F(LlvmDebugger, choicesTakeTheirKeywords) {
    const Object a("LlvmDebugger");
    const Object b("LlvmDebugger");
    for (const Choice& choice : choices)
        for (std::size_t value = 0; value < choice.keywords.size(); ++value) {
            const char* const keyword = choice.keywords[value];
            EXPECT_EQ(printed([&] { a.set(choice.property, keyword); }), "") << keyword;
            EXPECT_EQ(choice.read(), static_cast<int>(value)) << choice.property << keyword;
            EXPECT_EQ(b.text(choice.property), keyword) << choice.property;
        }
}

TEST_F(LlvmDebugger, choicesReadBackWhatOtherCodeSet) {
    const Object object("LlvmDebugger");
    for (const Choice& choice : choices)
        for (std::size_t value = 0; value < choice.keywords.size(); ++value) {
            choice.write(static_cast<int>(value));
            EXPECT_EQ(object.text(choice.property), choice.keywords[value]) << choice.property;
        }
}

TEST_F(LlvmDebugger, choicesReadUnspecifiedOutsideTheirTables) {
    const Object object("LlvmDebugger");
    for (const Choice& choice : choices) {
        const int outside = static_cast<int>(choice.keywords.size());
        for (const int value : {outside, outside + 1, -1, std::numeric_limits<int>::max()}) {
            choice.write(value);
            EXPECT_EQ(object.text(choice.property), "Unspecified") << choice.property << value;
            EXPECT_EQ(choice.read(), value); // reading changes nothing
        }
    }
}

TEST_F(LlvmDebugger, choicesRefuseOtherTextsWithAMessage) {
    const Object object("LlvmDebugger");
    for (const Choice& choice : choices)
        for (const int value : {1, 2})
            for (const std::string& text : choice.refused) {
                choice.write(value);
                EXPECT_EQ(printed([&] { object.set(choice.property, text.c_str()); }),
                          choice.messageStart + text + choice.messageEnd);
                EXPECT_EQ(choice.read(), value) << choice.property << " " << text;
            }
}

TEST_F(LlvmDebugger, choicesRefuseWhatIsNoText) {
    const Object object("LlvmDebugger");
    for (const Choice& choice : choices) {
        choice.write(1);
        controllers::expectWrongType(object, choice.property, sample::number(2));
        controllers::expectWrongType(object, choice.property, sample::logical(true));
        EXPECT_EQ(choice.read(), 1) << choice.property;
    }
}

TEST_F(LlvmDebugger, keywordEndsAtTheFirstNul) {
    const Object object("LlvmDebugger");
    const auto text = sample::text(std::string_view("Less\0er", 7));
    EXPECT_EQ(printed([&] { object.set("jitOptimizationLevel", sample::arrayValue(text)); }), "");
    EXPECT_EQ(config().jitOptimizationLevel(), Config::OptLess);
}

TEST_F(LlvmDebugger, settingsOutliveTheObject) {
    {
        const Object object("LlvmDebugger");
        object.set("jitOptimizationLevel", "Accelerator");
        object.set("dumpLlvmIR", true);
    }
    EXPECT_EQ(config().jitOptimizationLevel(), Config::OptAccelerator);
    EXPECT_EQ(Object("LlvmDebugger").text("jitOptimizationLevel"), "Accelerator");
    EXPECT_TRUE(Object("LlvmDebugger").flag("dumpLlvmIR"));
}

TEST_F(LlvmDebugger, twoSettingsAreForNativeCodeOnly) {
    quarn_vi::debug::LlvmDebugger native;
    for (const bool value : {true, false}) {
        native.setEmitDWARF(value);
        EXPECT_EQ(config().emitDWARF(), value);
        native.setUseMCJIT(value);
        EXPECT_EQ(config().useMCJIT(), value);
        config().setEmitDWARF(!value); // behind the controller's back
        EXPECT_EQ(native.emitDWARF(), !value);
        EXPECT_EQ(native.useMCJIT(), value);
        config().setUseMCJIT(!value);
        EXPECT_EQ(native.useMCJIT(), !value);
    }
    const Object object("LlvmDebugger");
    for (const char* const name : {"emitDWARF", "useMCJIT"})
        EXPECT_EQ(object.cls().findProperty(objsys::COSNameID(name)), nullptr);
}

TEST_F(LlvmDebugger, registersNothing) {
    const Object object("LlvmDebugger");
    object.set("enabled", true);
    object.set("abortOnError", true);
    EXPECT_TRUE(QN::DefaultServices::debugServices().empty());
}

} // namespace
