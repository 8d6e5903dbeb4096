// A small extension module, and with one definition each the ways in which a module file can be
// broken. CMakeLists.txt beside it builds one library for each way, named after it.
//
// The sound one publishes the package internal.<name> with one class, Probe, and says on the
// console when it is initialized and terminated.
#include <hv/array.hpp>
#include <objsys/objsys.hpp>

#include <cstdint>
#include <stdexcept>

#define JOIN_(a, b) a##b
#define JOIN(a, b) JOIN_(a, b)
#define TEXT_(a) #a
#define TEXT(a) TEXT_(a)

namespace {

using namespace objsys;

class ProbeObject : public factory::full::Wrappable {
public:
    ~ProbeObject() override { hvxPrintf("probe destroyed\n"); }
};

class Constructor : public COSMethodInfo {
public:
    COSNameID getName() const override { return COSNameID("Probe"); }
    factory::MethodAttributes getAttributes() const override { return {}; }
    const char* getDescription() const override { return ""; }
    const COSMethodSignature& getSignature() const override { return signature_; }
    bool isConstructor() const override { return true; }
    int invoke(int, COSValue* outputs, const COSValue*) const override {
        factory::basic::BindingRegistry::announceForConstructor(
            new ProbeObject, COSNameID("internal." TEXT(MODULE) ".Probe"), outputs[0].asArray(),
            true);
        return 1;
    }

private:
    COSMethodSignature signature_{"", COSNameID("internal." TEXT(MODULE) ".Probe"), false, {}, {}};
};

class Probe : public COSClassInfo {
public:
    const char* getName() const override { return "Probe"; }
    const char* getDescription() const override { return "For tests of module loading."; }
    void defineClass(COSClassDefinition* definition) override {
        definition->addMethod(new Constructor);
    }
    bool isHandleClass() const override { return true; }
    bool destroyInstance(COSInterface*, factory::full::Wrappable* native) override {
        const bool bound = factory::basic::BindingRegistry::remove(native);
        delete native;
        return bound;
    }
};

class Package : public COSPackageInfo {
public:
    const char* getName() const override { return TEXT(MODULE); }
    void registerClasses(COSPackage* package) override { package->addClass(new Probe); }
};

struct Table {
    const void* const* entries;
    std::uint64_t first;
    std::uint64_t second;
};

[[maybe_unused]] const void* const noEntries[] = {nullptr};

[[maybe_unused]] const Table table = {
#ifdef NULL_ENTRIES
    nullptr,
#else
    noEntries,
#endif
#ifdef WRONG_FIRST_WORD
    0x1F26B7F0,
#else
    0x1F26B7F1,
#endif
#ifdef WRONG_SECOND_WORD
    0x1000000057925B47, // the upper half counts too
#else
    0x57925B47,
#endif
};

} // namespace

#ifdef UNRESOLVED
void thisFunctionIsNowhere();
#endif

#define EXPORT extern "C" __attribute__((visibility("default")))

#ifndef NO_INITIALIZE
EXPORT void JOIN(VNInitialize_, MODULE)() {
    hvxPrintf("%s: initialize\n", TEXT(MODULE));
#ifdef UNRESOLVED
    thisFunctionIsNowhere();
#endif
#ifdef THROWS_HOST_ERROR
    raise("testing:start", "the start failed");
#endif
#ifdef THROWS_STANDARD_ERROR
    throw std::runtime_error("a standard error");
#endif
#ifdef THROWS_NUMBER
    throw 5;
#endif
    COSPackage::getPackage(COSNameID("internal"))->addPackage(new Package);
#ifdef THROWS_AFTER_PUBLISHING
    struct OwnError : std::runtime_error {
        using std::runtime_error::runtime_error;
    };
    throw OwnError("an error of a type of its own");
#endif
}
#endif

#ifndef NO_TERMINATE
EXPORT void JOIN(VNTerminate_, MODULE)() {
    hvxPrintf("%s: terminate\n", TEXT(MODULE));
#ifdef TERMINATE_THROWS
    raise("testing:end", "the end failed");
#endif
}
#endif

#ifndef NO_QUERY
EXPORT const void* JOIN(QueryVNFcnTable_, MODULE)() {
#ifdef NULL_TABLE
    return nullptr;
#else
    return &table;
#endif
}
#endif

#define EXPORT_DATA __attribute__((visibility("default")))

extern "C" {
#ifndef NO_VERSION
#ifdef NULL_VERSION
EXPORT_DATA const char* JOIN(MODULE, _version) = nullptr;
#else
EXPORT_DATA const char* JOIN(MODULE, _version) = "1.2.3";
#endif
#endif
#ifndef NO_BUILD_DATE
EXPORT_DATA const char* JOIN(MODULE, _build_date) = "Jan 1 2001";
#endif
}
