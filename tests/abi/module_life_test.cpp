// The built module in a process: loaded, initialized, terminated, unloaded and loaded again, with
// nothing of the host's module loader in between, so that each entry point is seen by itself.

#include "object/package_tree.hpp"

#include <objsys/class.hpp>
#include <objsys/factory/binding_registry.hpp>
#include <objsys/factory/wrappable.hpp>
#include <objsys/object_array.hpp>
#include <objsys/package.hpp>
#include <qn/default_services.hpp>

#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace {

using objsys::COSClass;
using objsys::COSInterface;
using objsys::COSNameID;
using objsys::COSPackage;
using objsys::PackageTree;

std::string modulePath() {
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    return (program.parent_path().parent_path() / "lib/varnix/modules/quarn_vi.so").string();
}

/// Whether the module's code lies in this process.
bool isMapped() {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find("/quarn_vi.so") != std::string::npos)
            return true;
    return false;
}

std::size_t threads() {
    const auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

/// The module, loaded; what it publishes meanwhile is withdrawn before it is unloaded.
class Module {
public:
    Module() : mark_(PackageTree::mark()), library_(dlopen(modulePath().c_str(), RTLD_NOW)) {
        if (!library_)
            throw std::runtime_error(dlerror());
    }
    ~Module() { unload(); }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    void initialize() { function<void()>("VNInitialize_quarn_vi")(); }
    void terminate() { function<void()>("VNTerminate_quarn_vi")(); }
    const void* functionTable() { return function<const void*()>("QueryVNFcnTable_quarn_vi")(); }
    /// A data export: a pointer to a text.
    const char* text(const char* name) { return *static_cast<const char* const*>(symbol(name)); }
    void withdraw() { PackageTree::withdrawSince(mark_); }
    void unload() {
        if (!library_)
            return;
        withdraw();
        dlclose(std::exchange(library_, nullptr));
    }

private:
    void* symbol(const char* name) {
        void* const found = dlsym(library_, name);
        if (!found)
            throw std::runtime_error(std::string("no symbol ") + name);
        return found;
    }
    template <class Signature>
    Signature* function(const char* name) {
        return reinterpret_cast<Signature*>(symbol(name));
    }

    PackageTree::Mark mark_;
    void* library_;
};

COSPackage* quarnPackage() {
    return COSPackage::getPackage(COSNameID("internal.quarn"));
}

std::vector<std::string> classNames() {
    std::vector<std::string> names;
    if (const COSPackage* const package = quarnPackage())
        for (const auto& cls : package->classes())
            names.push_back(cls->getName());
    return names;
}

struct Release {
    void operator()(hvArray* array) const { hvDestroyArray(array); }
};
using Array = std::unique_ptr<hvArray, Release>;

const COSNameID statisticsName() {
    return COSNameID("internal.quarn.CollectStatistics");
}

/// A CollectStatistics object, and its native one, which its handle never deletes.
struct Statistics {
    Array handle{COSClass::get(statisticsName()).construct({})};
    std::unique_ptr<objsys::factory::full::Wrappable> native{
        instance()->getNativeObject(statisticsName())};
    COSInterface* instance() const { return omGetArrayElement(handle.get(), 0); }
};

TEST(ModuleData, NamesVersionAndBuildDate) {
    Module module;
    EXPECT_STREQ(module.text("quarn_vi_version"), "9.1.0.666610");
    EXPECT_STREQ(module.text("quarn_vi_build_date"), "Jun 27 2017");
}

/// The record as the host reads it.
struct FunctionTable {
    const void* const* entries;
    std::uint64_t first;
    std::uint64_t second;
};

TEST(ModuleFunctionTable, IsEmptyAndIdentifiesItself) {
    Module module;
    FunctionTable table;
    static_assert(sizeof table == 24);
    std::memcpy(&table, module.functionTable(), sizeof table);
    ASSERT_NE(table.entries, nullptr);
    EXPECT_EQ(table.entries[0], nullptr);
    EXPECT_EQ(table.first, 0x1F26B7F1u);
    EXPECT_EQ(table.second, 0x57925B47u);
}

TEST(ModuleFunctionTable, IsAlwaysTheSameRecord) {
    Module module;
    const void* const before = module.functionTable();
    FunctionTable copy;
    std::memcpy(&copy, before, sizeof copy);
    module.initialize();
    EXPECT_EQ(module.functionTable(), before);
    module.terminate();
    EXPECT_EQ(module.functionTable(), before);
    EXPECT_EQ(std::memcmp(before, &copy, sizeof copy), 0);
}

TEST(ModuleInitialize, PublishesAPackage) {
    Module module;
    EXPECT_EQ(quarnPackage(), nullptr); // loading alone publishes nothing
    COSPackage* const internal = COSPackage::getPackage(COSNameID("internal"));
    const std::size_t before = internal->packages().size();
    module.initialize();
    ASSERT_NE(quarnPackage(), nullptr);
    EXPECT_EQ(internal->packages().size(), before + 1);
    EXPECT_EQ(internal->findPackage("quarn"), quarnPackage());
    EXPECT_THAT(classNames(), testing::Contains("CollectStatistics"));
}

TEST(ModuleInitialize, StartsNoServiceAndNoThread) {
    const std::size_t before = threads();
    const auto generation = QN::DefaultServices::debugServices().generation();
    Module module;
    EXPECT_EQ(threads(), before);
    module.initialize();
    EXPECT_EQ(threads(), before);
    EXPECT_TRUE(QN::DefaultServices::debugServices().empty());
    for (const auto& cls : quarnPackage()->classes())
        (void)cls->properties(); // nor does defining the classes
    EXPECT_EQ(threads(), before);
    EXPECT_TRUE(QN::DefaultServices::debugServices().empty());
    EXPECT_EQ(QN::DefaultServices::debugServices().generation(), generation);
}

TEST(ModuleInitialize, DoesNothingTheSecondTime) {
    Module module;
    module.initialize();
    const std::vector<std::string> names = classNames();
    COSClass* const cls = COSClass::find(statisticsName());
    EXPECT_NO_THROW(module.initialize());
    EXPECT_EQ(classNames(), names);
    EXPECT_EQ(COSClass::find(statisticsName()), cls);
    // Nor when there would be something to do.
    module.withdraw();
    module.initialize();
    EXPECT_EQ(quarnPackage(), nullptr);
}

TEST(ModuleInitialize, DoesNothingAfterTerminate) {
    Module module;
    module.initialize();
    module.terminate();
    EXPECT_NO_THROW(module.initialize());
    module.withdraw();
    module.initialize();
    module.terminate();
    module.initialize();
    EXPECT_EQ(quarnPackage(), nullptr);
}

/// A package internal.quarn of somebody else's, with a class in it.
class OthersClass final : public objsys::COSClassInfo {
public:
    const char* getName() const override { return "OfAnother"; }
    void defineClass(objsys::COSClassDefinition*) override {}
};
class OthersPackage final : public objsys::COSPackageInfo {
public:
    const char* getName() const override { return "quarn"; }
    const char* getDescription() const override { return "Somebody else's."; }
    void registerClasses(COSPackage* package) override { package->addClass(new OthersClass); }
};

TEST(ModuleInitialize, AddsToAPackageThatExists) {
    Module first;
    first.initialize();
    const std::vector<std::string> published = classNames();
    first.unload();

    Module module;
    COSPackage* const internal = COSPackage::getPackage(COSNameID("internal"));
    internal->addPackage(new OthersPackage);
    COSPackage* const package = quarnPackage();
    const std::size_t packages = internal->packages().size();
    module.initialize();
    EXPECT_EQ(quarnPackage(), package);
    EXPECT_EQ(internal->packages().size(), packages);
    EXPECT_STREQ(package->getDescription(), "Somebody else's.");
    std::vector<std::string> expected{"OfAnother"};
    expected.insert(expected.end(), published.begin(), published.end());
    EXPECT_EQ(classNames(), expected);
}

TEST(ModuleTerminate, LeavesEverythingInPlace) {
    Module module;
    module.initialize();
    const std::vector<std::string> names = classNames();
    module.terminate();
    module.terminate();
    EXPECT_EQ(classNames(), names);
    const Statistics statistics;
    EXPECT_TRUE(statistics.instance()->isValid());
}

TEST(ModuleTerminate, MayComeFirst) {
    Module module;
    module.terminate();
    module.initialize();
    EXPECT_NE(quarnPackage(), nullptr);
}

TEST(ModuleUnload, LeavesTheProcessAndMayComeBack) {
    EXPECT_FALSE(isMapped());
    std::vector<std::string> names;
    for (int turn = 0; turn < 3; ++turn) {
        Module module;
        EXPECT_TRUE(isMapped());
        EXPECT_EQ(quarnPackage(), nullptr);
        module.initialize();
        if (turn == 0)
            names = classNames();
        EXPECT_EQ(classNames(), names);
        {
            // Used in every way: defined, constructed, read, written, destroyed.
            for (const auto& cls : quarnPackage()->classes())
                (void)cls->properties();
            const Statistics statistics;
            const objsys::COSProperty* const enabled =
                COSClass::get(statisticsName()).findProperty(COSNameID("Enabled"));
            ASSERT_NE(enabled, nullptr);
            enabled->set(statistics.instance(),
                         objsys::COSValue::ofLogical(true, COSNameID("logical scalar")));
            EXPECT_TRUE(enabled->get(statistics.instance()).asLogical());
        }
        module.terminate();
        module.unload();
        EXPECT_FALSE(isMapped());
        EXPECT_EQ(dlopen(modulePath().c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
        EXPECT_EQ(quarnPackage(), nullptr);
        EXPECT_EQ(COSClass::find(statisticsName()), nullptr);
        EXPECT_TRUE(QN::DefaultServices::debugServices().empty());
    }
}

TEST(ModuleUnload, LeavesHandlesBehindThatAreInvalid) {
    Module module;
    module.initialize();
    Statistics statistics;
    Array row(omCreateOBJSYSMatrix(1, 1, statisticsName()));
    omSetArrayElement(row.get(), 0, statistics.instance());
    statistics.native.reset(); // its code goes too
    const Array none(omCreateOBJSYSMatrix(0, 0, statisticsName()));
    module.unload();
    ASSERT_FALSE(isMapped());
    EXPECT_FALSE(statistics.instance()->isValid());
    statistics.handle.reset();
    EXPECT_FALSE(omGetArrayElement(row.get(), 0)->isValid());
    EXPECT_EQ(none->objectClass->getFullName(), statisticsName());
}

// Instances that are alive when their class is withdrawn are ended while the code is still there.
TEST(ModuleUnload, EndsLiveInstances) {
    Module module;
    module.initialize();
    Statistics statistics;
    objsys::factory::full::Wrappable* const native = statistics.native.get();
    EXPECT_TRUE(statistics.instance()->isValid());
    module.withdraw();
    EXPECT_FALSE(statistics.instance()->isValid());
    EXPECT_EQ(objsys::factory::basic::BindingRegistry::instanceOf(native), nullptr);
    statistics.native.reset();
    module.unload();
    EXPECT_FALSE(isMapped());
}

} // namespace
