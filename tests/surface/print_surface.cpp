// Prints the published surface of a module: every class in the order of the package, with what its
// descriptor and its declared members say. surface.golden holds the expected text.
//
//     print_surface MODULE.so
//
// Everything comes from the loaded module itself. Whether a handle deletes its native object, which
// no description tells, is tried out with an object that notices.

#include <objsys/objsys.hpp>

#include <cstdio>
#include <dlfcn.h>
#include <exception>
#include <memory>
#include <string>

namespace {

using objsys::COSClass;
using objsys::COSMethodInfo;
using objsys::COSNameID;
using objsys::COSPackage;
using objsys::factory::MethodAttributes;

/// Stands behind a handle of any class and notices when it is deleted.
class Probe : public objsys::factory::full::Wrappable {
public:
    explicit Probe(bool& deleted) : deleted_(deleted) {}
    ~Probe() override { deleted_ = true; }

private:
    bool& deleted_;
};

bool deletesItsNativeObject(const COSClass& cls) {
    bool deleted = false;
    auto probe = std::make_unique<Probe>(deleted);
    hvDestroyArray(
        objsys::factory::basic::BindingRegistry::announce(probe.get(), cls.getFullName()));
    if (deleted)
        (void)probe.release();
    return deleted;
}

std::string argumentsOf(const COSMethodInfo& method) {
    std::string list = "(";
    for (const COSNameID argument : method.getSignature().arguments)
        list += (list.size() > 1 ? ", " : "") + argument.str();
    return list + ")";
}

void printMethod(const COSMethodInfo& method, const COSClass& owner) {
    const objsys::COSMethodSignature& signature = method.getSignature();
    std::string line = std::string("  ") + (signature.hasSelf ? "method " : "static method ") +
                       method.getName().str() + argumentsOf(method);
    if (signature.result != COSNameID::voidType())
        line += " -> " + signature.result.str();
    if (signature.hasSelf && signature.self != owner.getFullName())
        line += ", called on " + signature.self.str();
    if (method.getAttributes().has(MethodAttributes::Static()) == signature.hasSelf)
        line += ", attribute Static does not match the signature";
    if (method.getAttributes().has(MethodAttributes::ForceMembership()))
        line += ", ForceMembership";
    if (*method.getDescription())
        line += std::string(", \"") + method.getDescription() + "\"";
    std::puts(line.c_str());
}

void printProperty(const objsys::COSProperty& property) {
    std::string line = "  property " + property.name.str() + ": " +
                       property.info->getGetter()->getDataType().str();
    if (!property.setter)
        line += ", read-only";
    else if (property.setter->getDataType() != property.getter->getDataType())
        line += ", assigned as " + property.setter->getDataType().str();
    if (const unsigned bits = property.info->getAttributes().bits(); bits != 0) {
        char text[32];
        std::snprintf(text, sizeof text, ", attributes 0x%X", bits);
        line += text;
    }
    std::puts(line.c_str());
}

void printClass(COSClass& cls) {
    std::printf("\nclass %s\n", cls.getFullName().c_str());
    std::printf("  description \"%s\"\n", cls.info().getDescription());
    if (std::string(cls.info().getDetailedDescription()) != cls.info().getDescription())
        std::printf("  detailed description \"%s\"\n", cls.info().getDetailedDescription());
    for (const COSClass* const super : cls.superclasses())
        std::printf("  superclass %s\n", super->getFullName().c_str());
    std::printf("  its handle %s the native object\n",
                deletesItsNativeObject(cls) ? "deletes" : "only unbinds");
    for (const COSMethodInfo* const constructor : cls.constructors())
        std::printf("  constructor %s%s -> %s\n", constructor->getName().c_str(),
                    argumentsOf(*constructor).c_str(), constructor->getSignature().result.c_str());
    for (const objsys::COSProperty& property : cls.properties())
        if (property.declaringClass == &cls)
            printProperty(property);
    for (const objsys::COSMethod& method : cls.methods())
        if (method.declaringClass == &cls)
            printMethod(*method.info, cls);
}

int printSurface(const char* path) {
    void* const library = dlopen(path, RTLD_NOW);
    if (!library) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    auto* const initialize = reinterpret_cast<void (*)()>(dlsym(library, "VNInitialize_quarn_vi"));
    if (!initialize) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    initialize();
    const COSPackage* const package = COSPackage::getPackage(COSNameID("internal.quarn"));
    if (!package) {
        std::fprintf(stderr, "there is no package internal.quarn\n");
        return 1;
    }
    std::printf("package %s \"%s\"\n", package->getFullName().c_str(), package->getDescription());
    for (const auto& cls : package->classes())
        printClass(*cls);
    return 0;
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: print_surface MODULE.so\n");
        return 2;
    }
    try {
        return printSurface(arguments[1]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
