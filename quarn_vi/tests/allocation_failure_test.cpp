// What happens when there is no memory while a class is declared or published: a null entry goes to
// the host, and the host refuses the definition, which may be tried again.
//
// Descriptions come from the host's class allocators, accessors and properties from the nothrow
// form of operator new, native objects from Wrappable's, all else from the plain one. This program
// puts its own in their place, which fail when they are told to, and which write down what goes.

#include "debug/collectstatistics.hpp"
#include "debug/debug.hpp"
#include "debug/debuglogger.hpp"
#include "debug/llvmdebugger.hpp"
#include "debug/memoryanalyzervi.hpp"
#include "debug/nameprinter.hpp"
#include "debug/prettyprintervi.hpp"
#include "debug/sanitycheckervi.hpp"
#include "debug/scramblervi.hpp"
#include "debug/serializerfbtservicevi.hpp"
#include "debug/sharedservice.hpp"
#include "debug/transformlogservicevi.hpp"
#include "debug/transformprofilervi.hpp"
#include "debug/uservarloggingvi.hpp"
#include "quarn_package.hpp"
#include "tests/sample.hpp"

#include <qn/assertion.hpp>
#include <qn/collect_statistics_service.hpp>
#include <qn/default_services.hpp>
#include <qn/pool_memory_tracking_service.hpp>
#include <qn/pretty_print_service.hpp>
#include <qn/sanity_check_service.hpp>
#include <qn/scramble_service.hpp>
#include <qn/serializer_fbt_service.hpp>
#include <qn/transform_log_service.hpp>
#include <qn/transform_profiler_service.hpp>
#include <qn/user_var_logging_service.hpp>
#include <ut/ut.hpp>

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <sys/wait.h>

namespace {

/// Counts down to the allocation that fails; negative: none does.
int callsUntilFailure = -1;
/// The same for native objects, and for what plain operator new gives.
int nativesUntilFailure = -1;
int plainUntilFailure = -1;

bool failsNow(int& countdown = callsUntilFailure) {
    return countdown >= 0 && countdown-- == 0;
}

/// Where the addresses of native objects go whose memory is released; null when nobody asks.
std::vector<void*>* released = nullptr;

} // namespace

void* objsys::COSClassInfo::operator new(std::size_t bytes) noexcept {
    return failsNow() ? nullptr : utMalloc(bytes);
}
void* objsys::COSMethodInfo::operator new(std::size_t bytes) noexcept {
    return failsNow() ? nullptr : utMalloc(bytes);
}
void* objsys::COSPackageInfo::operator new(std::size_t bytes) noexcept {
    return failsNow() ? nullptr : utMalloc(bytes);
}

void* objsys::factory::full::Wrappable::operator new(std::size_t bytes) {
    if (failsNow(nativesUntilFailure))
        throw std::bad_alloc();
    // The size stands in front, as it does in the host.
    auto* const block = static_cast<std::size_t*>(utMalloc(bytes + 16));
    block[1] = bytes + 16;
    return block + 2;
}
/// What operator delete calls for an object that does not lie behind an instance, and under the
/// sanitizers for all. Memory behind an instance is the host's.
void objsys::factory::full::Wrappable::release(void* memory) noexcept {
    if (static_cast<const std::uint64_t*>(memory)[-1] <= detail::native_memory::orphaned) {
        using Release = void (*)(void*);
        static const auto hosts = reinterpret_cast<Release>(
            dlsym(RTLD_NEXT, "_ZN6objsys7factory4full9Wrappable7releaseEPv"));
        return hosts(memory);
    }
    if (released)
        released->push_back(memory);
    utFree(static_cast<std::size_t*>(memory) - 2);
}

void* operator new(std::size_t bytes) {
    void* const memory = failsNow(plainUntilFailure) ? nullptr : std::malloc(bytes ? bytes : 1);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return failsNow() ? nullptr : std::malloc(bytes ? bytes : 1);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

namespace {

using namespace sample;

class Fragile : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Fragile";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Fragile> declare(definition);
        declare.constructor();                                                  // 1 allocation
        declare.property<&Fragile::value, &Fragile::setValue>("Value");         // 3
        declare.readOnly<&Fragile::value>("Fixed", PropertyAttributes(0x2000)); // 2
        declare.method<&Fragile::reset>("reset");                               // 1
        declare.staticMethod<&Fragile::count>("count");                         // 1
    }
    double value() const { return value_; }
    void setValue(double value) { value_ = value; }
    void reset() { value_ = 0; }
    static double count() { return 1; }

private:
    double value_ = 0;
};
constexpr int allocations = 8;

/// Passes on what is declared and counts the entries that are null.
class NullCounter final : public objsys::COSClassDefinition {
public:
    const char* getClassName() const override { return "Fragile"; }
    COSNameID getFullClassName() const override { return COSNameID(Fragile::scriptClassName); }
    void addSuperclass(COSNameID, int, int, int) override {}
    void addMethod(objsys::COSMethodInfo* method) override {
        ++(method ? entries : nulls);
        delete method;
    }
    void addProperty(objsys::COSPropertyInfo* property) override {
        ++(property ? entries : nulls);
        delete property;
    }
    int entries = 0;
    int nulls = 0;
};

class NoMemory : public testing::Test {
protected:
    ~NoMemory() override {
        callsUntilFailure = nativesUntilFailure = plainUntilFailure = -1;
        released = nullptr;
    }
};

TEST_F(NoMemory, ForAnEntryHandsNullToTheSink) {
    CosSample<Fragile, 1> descriptor;
    for (int failing = 0; failing < allocations; ++failing) {
        NullCounter sink;
        callsUntilFailure = failing;
        descriptor.defineClass(&sink);
        EXPECT_EQ(sink.nulls, 1) << failing;
        EXPECT_EQ(sink.entries, 4) << failing;
        EXPECT_LT(callsUntilFailure, 0) << failing;
    }
    NullCounter sink;
    callsUntilFailure = allocations;
    descriptor.defineClass(&sink);
    EXPECT_EQ(sink.nulls, 0);
    EXPECT_EQ(callsUntilFailure, 0); // each of them was counted above
}

TEST_F(NoMemory, ForAnEntryMakesTheHostRefuseTheDefinition) {
    COSClass& cls = published<Fragile, 1>();
    for (int failing = 0; failing < allocations; ++failing) {
        callsUntilFailure = failing;
        EXPECT_EQ(errorOf([&] { (void)cls.properties(); }), "varnix:outOfMemory") << failing;
    }
    // There is memory again.
    callsUntilFailure = -1;
    EXPECT_EQ(cls.properties().size(), 2u);
    EXPECT_EQ(cls.methods().size(), 2u);
    EXPECT_TRUE(instanceIn(construct(cls))->isValid());
}

TEST_F(NoMemory, ForADescriptorGivesNull) {
    for (const quarn_vi::CatalogueRow& row : quarn_vi::catalogue()) {
        callsUntilFailure = 0;
        EXPECT_EQ(row.makeDescriptor(), nullptr);
    }
}

class UnluckyPackage final : public objsys::COSPackageInfo {
public:
    const char* getName() const override { return "unlucky"; }
};

TEST_F(NoMemory, ForADescriptorOrThePackageIsTheHostsError) {
    COSPackage& package = sample::package();
    callsUntilFailure = 0;
    EXPECT_EQ(errorOf([&] { package.addClass(new CosSample<Fragile, 0>); }), "varnix:outOfMemory");
    callsUntilFailure = 0;
    EXPECT_EQ(errorOf([&] { package.addPackage(new UnluckyPackage); }), "varnix:outOfMemory");
    EXPECT_EQ(package.findPackage("unlucky"), nullptr);
    callsUntilFailure = 0;
    EXPECT_EQ(static_cast<objsys::COSPackageInfo*>(new quarn_vi::QUARNPackage), nullptr);
}

// The controller is there without its service; the library says what it thinks of that.
TEST_F(NoMemory, ForAServiceLeavesTheControllerWithoutOne) {
    callsUntilFailure = 0;
    quarn_vi::debug::CollectStatistics controller;
    EXPECT_LT(callsUntilFailure, 0);
    EXPECT_EQ(controller.service(), nullptr);
    EXPECT_FALSE(controller.enabled());
    controller.setEnabled(false);

    static int assertions = 0;
    const QN::AssertionHandler before =
        QN::setAssertionHandler([](const char*, int, const char*) { ++assertions; });
    controller.setEnabled(true);
    QN::setAssertionHandler(before);
    EXPECT_EQ(assertions, 1);
    EXPECT_FALSE(controller.enabled());
    EXPECT_TRUE(QN::DefaultServices::debugServices().empty());
}

/// The hub with its utilities open.
class NoMemoryInTheHub : public NoMemory {
protected:
    NoMemoryInTheHub() { Debug::enable(); }
    ~NoMemoryInTheHub() override {
        Debug::disable();
        // It registers itself when it is made; other tests start from an empty container.
        QN::DefaultServices::debugServices().removeService(
            &quarn_vi::debug::TransformLogServiceVI::sharedTransformLogService());
    }

    using Debug = quarn_vi::debug::Debug;
    /// The accessors of all children, in the order of the hub's members.
    static std::vector<std::function<Wrappable*(Debug&)>> children() {
        return {std::mem_fn(&Debug::prettyPrinter),     std::mem_fn(&Debug::debugLogger),
                std::mem_fn(&Debug::namePrinter),       std::mem_fn(&Debug::memoryAnalyzer),
                std::mem_fn(&Debug::transformProfiler), std::mem_fn(&Debug::transformLogService),
                std::mem_fn(&Debug::scrambler),         std::mem_fn(&Debug::statisticsCollector),
                std::mem_fn(&Debug::sanityChecker),     std::mem_fn(&Debug::llvmDebugger)};
    }
};

TEST_F(NoMemoryInTheHub, LeavesTheMemberNull) {
    Debug hub;
    for (const auto& child : children()) {
        nativesUntilFailure = 0;
        EXPECT_THROW((void)child(hub), std::bad_alloc);
        EXPECT_LT(nativesUntilFailure, 0);
        Debug::disable(); // so that nothing is made
        EXPECT_EQ(child(hub), nullptr);
        Debug::enable(); // there is memory again
        EXPECT_NE(child(hub), nullptr);
    }
}

TEST_F(NoMemoryInTheHub, IsTheHostsErrorAtTheProperty) {
    if (!COSPackage::getPackage(COSNameID("internal.quarn")))
        quarn_vi::publishPackage();
    COSClass& cls = COSClass::get(COSNameID(Debug::scriptClassName));
    const Array handle = construct(cls);
    for (const char* const name : {"PrettyPrinter", "DebugLogger", "SanityChecker", "NamePrinter",
                                   "MemoryAnalyzer", "TransformProfiler", "TransformLogService",
                                   "Scrambler", "StatisticsCollector", "LlvmDebugger"}) {
        const COSProperty& child = property(cls, name);
        nativesUntilFailure = 0;
        EXPECT_THROW((void)child.get(instanceIn(handle)), std::bad_alloc) << name;
        const Array made(child.get(instanceIn(handle)).asArray());
        EXPECT_EQ(hvGetNumberOfElements(made.get()), 1u) << name;
    }
}

TEST_F(NoMemoryInTheHub, ForWhatAChildIsMadeOfDeletesTheChild) {
    for (const auto& child : children()) {
        Debug hub;
        (void)child(hub); // shared services are there now
        for (int failing = 0;; ++failing) {
            Debug fresh;
            plainUntilFailure = failing;
            try {
                (void)child(fresh);
                plainUntilFailure = -1;
                break;
            } catch (const std::bad_alloc&) {
                Debug::disable();
                EXPECT_EQ(child(fresh), nullptr);
                Debug::enable();
            }
        }
    }
}

// Not about missing memory, but the one place that sees which native object goes when.
TEST_F(NoMemoryInTheHub, ChildrenGoInTheReverseOrderOfTheMembers) {
    auto hub = std::make_unique<Debug>();
    std::vector<void*> expected{hub.get()};
    for (const auto& child : children()) {
        expected.push_back(dynamic_cast<void*>(child(*hub)));
        if (expected.size() == 2) // the pretty printer's own child goes just before it
            expected.push_back(hub->prettyPrinter()->stackTraces());
    }
    std::reverse(expected.begin(), expected.end());
    std::vector<void*> order;
    order.reserve(expected.size());
    released = &order;
    hub.reset();
    released = nullptr;
    EXPECT_EQ(order, expected);
}

TEST_F(NoMemoryInTheHub, ChildrenThatWereNeverMadeDoNotGo) {
    auto hub = std::make_unique<Debug>();
    const std::vector<void*> expected{hub->sanityChecker(), hub->scrambler(), hub->debugLogger(),
                                      hub.get()};
    std::vector<void*> order;
    order.reserve(expected.size());
    released = &order;
    hub.reset();
    released = nullptr;
    EXPECT_EQ(order, expected);
}

/// Throws at its first constructions.
struct Stubborn {
    Stubborn(bool before, bool after) {
        EXPECT_FALSE(before || after);
        if (++attempts <= 2)
            throw std::runtime_error("not yet");
    }
    static inline int attempts = 0;
};

TEST(SharedService, IsMadeAtTheNextUseWhenMakingItThrew) {
    const auto use = []() -> Stubborn& {
        return quarn_vi::debug::sharedService<Stubborn, false, false>();
    };
    EXPECT_THROW((void)use(), std::runtime_error);
    EXPECT_THROW((void)use(), std::runtime_error);
    EXPECT_EQ(Stubborn::attempts, 2);
    Stubborn& made = use();
    EXPECT_EQ(Stubborn::attempts, 3);
    EXPECT_EQ(&use(), &made);
    EXPECT_EQ(Stubborn::attempts, 3);
}

/// How often a shared service could not be made because one of its allocations failed; -1 if it is
/// not one and the same afterwards. For a process in which nobody has used the service.
template <class Service>
int failuresUntilMade(Service& (*shared)()) {
    for (int failing = 0;; ++failing) {
        plainUntilFailure = failing;
        try {
            Service& made = shared();
            plainUntilFailure = -1;
            return &shared() == &made ? failing : -1;
        } catch (const std::bad_alloc&) {
            if (plainUntilFailure >= 0)
                return -1; // not the planted one
        }
    }
}

// Each in a process of its own, in which the service was never used. The exit status is the number
// of allocations that were made to fail: at least that of the service itself.
template <class Service>
void expectRetried(Service& (*shared)()) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        std::exit(failuresUntilMade(shared)),
        [](int status) {
            return WIFEXITED(status) && WEXITSTATUS(status) >= 1 && WEXITSTATUS(status) < 100;
        },
        "");
}

TEST(SharedService, OfThePrettyPrinterIsMadeAtTheNextUse) {
    expectRetried(&quarn_vi::debug::PrettyPrinterVI::sharedPrettyPrintService);
}
TEST(SharedService, OfTheSanityCheckerIsMadeAtTheNextUse) {
    expectRetried(&quarn_vi::debug::SanityCheckerVI::sharedSanityCheckService);
}
TEST(SharedService, OfTheMemoryAnalyzerIsMadeAtTheNextUse) {
    expectRetried(&quarn_vi::debug::MemoryAnalyzerVI::sharedPoolMemoryTrackingService);
}
TEST(SharedService, OfTheScramblerIsMadeAtTheNextUse) {
    expectRetried(&quarn_vi::debug::ScramblerVI::sharedScrambleService);
}
TEST(SharedService, OfTheTransformProfilerIsMadeAtTheNextUse) {
    expectRetried(&quarn_vi::debug::TransformProfilerVI::sharedTransformProfilerService);
}
TEST(SharedService, OfTheTransformLogIsMadeAtTheNextUse) {
    expectRetried(&quarn_vi::debug::TransformLogServiceVI::sharedTransformLogService);
}
TEST(SharedService, OfTheSerializerIsMadeAtTheNextUse) {
    expectRetried(&quarn_vi::debug::SerializerFbtServiceVI::sharedSerializerFbtService);
}
TEST(SharedService, OfTheUserVariableLogIsMadeAtTheNextUse) {
    expectRetried(&quarn_vi::debug::UserVarLoggingVI::sharedUserVarLoggingService);
}

} // namespace
