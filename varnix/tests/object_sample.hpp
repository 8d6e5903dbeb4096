// Script classes for the tests of the object system: descriptions whose behaviour a test fills in,
// written straight against the public headers as a module in another language might.
//
//     ObjectTest                 a fixture with a package internal.objects that goes with the test
//     add("Lamp", [](auto& c) {...})   publishes a class; its descriptor says what it was asked
//     Store                      a native object that keeps the last value it was given
#pragma once

#include "object/calls.hpp"
#include "object/instances.hpp"
#include "object/package_tree.hpp"
#include "value/array.hpp"

#include <objsys/objsys.hpp>

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace sample {

using objsys::COSClass;
using objsys::COSClassDefinition;
using objsys::COSInterface;
using objsys::COSMethodSignature;
using objsys::COSNameID;
using objsys::COSPackage;
using objsys::COSProperty;
using objsys::COSValue;
using objsys::PackageTree;
using objsys::factory::MethodAttributes;
using objsys::factory::PropertyAttributes;
using objsys::factory::basic::BindingRegistry;
using objsys::factory::full::Wrappable;
using varnix::Value;

/// The native object behind every sample instance: keeps the last value assigned to it.
class Store : public Wrappable {
public:
    Store() { ++living; }
    ~Store() override {
        release();
        --living;
    }
    /// Keeps the value, with a reference of its own to an array in it.
    void keep(const COSValue& value) {
        if (value.type().kind() >= objsys::ValueKind::Char)
            hvShareArray(value.asArray());
        release();
        kept = value;
        ++assignments;
    }

    COSValue kept; // void: nothing was assigned yet
    int assignments = 0;
    std::function<void()> dies; // called by the destructor of a class that says so

    static inline int living = 0;

private:
    void release() {
        if (kept.type().kind() >= objsys::ValueKind::Char)
            hvDestroyArray(kept.asArray());
    }
};

inline Store* storeOf(COSInterface* instance) {
    return static_cast<Store*>(instance->getNativeObject(COSNameID("internal.objects.Store")));
}

class StoreGetter final : public objsys::factory::impl::Getter {
public:
    explicit StoreGetter(const char* type) : type_(type) {}
    COSValue getValue(COSInterface* instance) const override {
        const COSValue value = storeOf(instance)->kept;
        if (value.type().kind() >= objsys::ValueKind::Char)
            hvShareArray(value.asArray());
        return value;
    }
    COSNameID getDataType() const override { return type_; }
    int forward(COSInterface*, COSValue*) const override { return 0; }
    objsys::Enumeration<COSInterface*> getInterfaces(COSInterface*) const override { return {}; }
    bool canContainInterfaces() const override { return false; }

private:
    COSNameID type_;
};

class StoreSetter final : public objsys::factory::impl::Setter {
public:
    explicit StoreSetter(const char* type) : type_(type) {}
    void setValue(COSInterface* instance, const COSValue& value) override {
        storeOf(instance)->keep(value);
    }
    COSNameID getDataType() const override { return type_; }

private:
    COSNameID type_;
};

/// A property of the given data type that reads and writes the store.
class StoreProperty final : public objsys::COSPropertyInfo {
public:
    StoreProperty(const char* name, const char* type, bool readOnly = false)
        : name_(name), getter_(type), setter_(readOnly ? nullptr : new StoreSetter(type)) {
        ++living;
    }
    ~StoreProperty() override { --living; }
    COSNameID getName() const override { return COSNameID(name_); }
    objsys::factory::impl::Getter* getGetter() const override { return &getter_; }
    objsys::factory::impl::Setter* getSetter() const override { return setter_.get(); }
    PropertyAttributes getAttributes() const override { return {}; }

    static inline int living = 0;

private:
    std::string_view name_;
    mutable StoreGetter getter_;
    std::unique_ptr<StoreSetter> setter_;
};

/// A method, static method or constructor whose work is a function of the test's.
class FunctionMethod final : public objsys::COSMethodInfo {
public:
    using Function = std::function<int(int requested, COSValue* outputs, const COSValue* inputs)>;
    FunctionMethod(const char* name, COSMethodSignature signature, Function function,
                   bool constructor = false)
        : name_(name), signature_(std::move(signature)), function_(std::move(function)),
          constructor_(constructor) {
        ++living;
    }
    ~FunctionMethod() override { --living; }
    COSNameID getName() const override { return name_; }
    MethodAttributes getAttributes() const override {
        return signature_.hasSelf ? MethodAttributes() : MethodAttributes::Static();
    }
    const char* getDescription() const override { return ""; }
    const COSMethodSignature& getSignature() const override { return signature_; }
    bool isConstructor() const override { return constructor_; }
    int invoke(int requested, COSValue* outputs, const COSValue* inputs) const override {
        return function_(requested, outputs, inputs);
    }

    static inline int living = 0;

private:
    COSNameID name_;
    COSMethodSignature signature_;
    Function function_;
    bool constructor_;
};

inline COSMethodSignature signature(const char* result, const char* self,
                                    const std::vector<const char*>& arguments = {}) {
    COSMethodSignature made;
    made.result = COSNameID(result);
    made.hasSelf = self != nullptr;
    if (self)
        made.self = COSNameID(self);
    for (const char* argument : arguments)
        made.arguments.push_back(COSNameID(argument));
    return made;
}

/// Binds a new store to the instance under construction.
inline Store* bindStore(const COSValue& output) {
    auto store = std::make_unique<Store>();
    BindingRegistry::announceForConstructor(store.get(), output.type(), output.asArray(), true);
    return store.release();
}

/// A constructor that takes arguments of these types and keeps the last one.
inline FunctionMethod* storeConstructor(const char* className,
                                        const std::vector<const char*>& arguments = {}) {
    const std::size_t count = arguments.size();
    return new FunctionMethod(
        className, signature(className, nullptr, arguments),
        [count](int, COSValue* outputs, const COSValue* inputs) {
            Store* const store = bindStore(outputs[0]);
            if (count != 0)
                store->keep(inputs[count - 1]);
            return 1;
        },
        true);
}

/// A description whose behaviour the test fills in. Native objects are deleted with their handle.
class SampleInfo final : public objsys::COSClassInfo {
public:
    explicit SampleInfo(std::string shortName) : shortName_(std::move(shortName)) { ++living; }
    ~SampleInfo() override { --living; }
    const char* getName() const override { return shortName_.c_str(); }
    const char* getDescription() const override { return "A class for the tests."; }
    void defineClass(COSClassDefinition* definition) override {
        ++defined;
        if (define)
            define(*definition);
    }
    bool destroyInstance(COSInterface* instance, Wrappable* native) override {
        ++destroyed;
        if (destroy)
            return destroy(instance, native);
        const bool removed = BindingRegistry::remove(native);
        delete native;
        return removed;
    }
    bool isHandleClass() const override { return true; }
    bool isSealed() const override { return sealed; }
    bool isAbstract() const override { return abstract; }
    bool isDestructible() const override { return destructible; }

    std::function<void(COSClassDefinition&)> define;
    std::function<bool(COSInterface*, Wrappable*)> destroy;
    bool sealed = false;
    bool abstract = false;
    bool destructible = true;
    int defined = 0;
    int destroyed = 0;

    static inline int living = 0;

private:
    std::string shortName_;
};

class SamplePackage final : public objsys::COSPackageInfo {
public:
    explicit SamplePackage(std::string name) : name_(std::move(name)) { ++living; }
    ~SamplePackage() override { --living; }
    const char* getName() const override { return name_.c_str(); }
    const char* getDescription() const override { return "A package for the tests."; }
    void registerClasses(COSPackage* package) override {
        ++populated;
        if (populate)
            populate(*package);
    }

    std::function<void(COSPackage&)> populate;

    static inline int living = 0;
    static inline int populated = 0;

private:
    std::string name_;
};

/// The identifier of the host error that `action` raises, or "no error".
template <class Action>
std::string identifierOf(Action&& action) {
    try {
        action();
    } catch (const objsys::COSError& error) {
        return error.identifier();
    }
    return "no error";
}

/// A package internal.objects that is withdrawn, with everything in it, after the test.
class ObjectTest : public testing::Test {
protected:
    ObjectTest() : mark_(PackageTree::mark()) {
        COSPackage::getPackage(COSNameID("internal"))->addPackage(new SamplePackage("objects"));
        package_ = COSPackage::getPackage(COSNameID("internal.objects"));
    }
    ~ObjectTest() override {
        PackageTree::withdrawSince(mark_);
        EXPECT_EQ(SampleInfo::living, 0);
        EXPECT_EQ(SamplePackage::living, 0);
        EXPECT_EQ(StoreProperty::living, 0);
        EXPECT_EQ(FunctionMethod::living, 0);
        EXPECT_EQ(Store::living, 0);
    }

    /// Publishes internal.objects.NAME; the reference holds until the class is withdrawn.
    SampleInfo& add(const char* shortName, std::function<void(COSClassDefinition&)> define = {}) {
        auto* const info = new SampleInfo(shortName);
        info->define = std::move(define);
        package_->addClass(info);
        return *info;
    }
    static std::string fullName(const char* shortName) {
        return std::string("internal.objects.") + shortName;
    }
    static COSNameID nameOf(const char* shortName) { return COSNameID(fullName(shortName)); }
    static COSClass& classOf(const char* shortName) { return COSClass::get(nameOf(shortName)); }
    /// Publishes a class with a constructor without arguments.
    SampleInfo& addConstructible(const char* shortName) {
        return add(shortName, [name = fullName(shortName)](COSClassDefinition& definition) {
            definition.addMethod(storeConstructor(name.c_str()));
        });
    }
    static Value make(const char* shortName, const std::vector<Value>& arguments = {}) {
        return varnix::construct(classOf(shortName), arguments);
    }
    static COSInterface* instanceOf(const Value& handle) {
        return COSInterface::ofHandle(handle.array());
    }

    PackageTree::Mark mark_;
    COSPackage* package_ = nullptr;
};

} // namespace sample
