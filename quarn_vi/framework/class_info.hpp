// Descriptors of script classes: ObjsysFactoryClassInfo keeps name and description, and
// HandleClassInfo<T, D> adds what every handle class of the package has in common. One class
// Cos<Name> per script class derives HandleClassInfo and declares its members in defineClass.
#pragma once

#include <objsys/class_info.hpp>
#include <objsys/factory/binding_registry.hpp>

#include <string>

namespace objsys::factory {

class ObjsysFactoryClassInfo : public COSClassInfo {
public:
    /// Both texts are copied.
    ObjsysFactoryClassInfo(const char* name, const char* description)
        : name_(name), description_(description) {}
    ~ObjsysFactoryClassInfo() override;

    const char* getName() const override;
    const char* getDescription() const override;
    /// The same text as the description.
    const char* getDetailedDescription() const override;
    void defineClass(COSClassDefinition* definition) override = 0;
    bool hasNativeInstances() const override;

private:
    std::string name_;
    std::string description_;
};

/// `T` only makes the instantiation distinct. `D` decides about the native object when the host
/// destroys a script instance: 0 only unbinds it, 1 deletes it as well.
template <class T, int D>
class HandleClassInfo : public ObjsysFactoryClassInfo {
    static_assert(D == 0 || D == 1);

public:
    using ObjsysFactoryClassInfo::ObjsysFactoryClassInfo;

    COSInterface* getDefaultInstance() override { return nullptr; }

    bool destroyInstance(COSInterface*, full::Wrappable* object) override {
        const bool removed = basic::BindingRegistry::remove(object);
        if constexpr (D == 1)
            if (removed && object)
                delete object;
        return removed;
    }

    bool isHandleClass() const override { return true; }
};

} // namespace objsys::factory
