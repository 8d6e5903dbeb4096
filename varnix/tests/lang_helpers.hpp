// Helpers of the script engine's tests: run code and look at what it printed or raised, and a
// script class to try member accesses on.
#pragma once

#include "lang/interpreter.hpp"
#include "object/package_tree.hpp"
#include "shell/console.hpp"

#include <objsys/objsys.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace varnix::test {

/// What the code prints, in a fresh interpreter.
inline std::string printed(const std::string& code) {
    Interpreter interpreter;
    const console::Capture capture;
    interpreter.runCode(code, "<test>");
    return capture.text();
}

/// The error that the code raises; an empty identifier when it raises none.
inline objsys::COSError errorOf(Interpreter& interpreter, const std::string& code) {
    const console::Capture capture;
    try {
        interpreter.runCode(code, "<test>");
    } catch (const objsys::COSError& error) {
        return error;
    }
    return {"", ""};
}
inline objsys::COSError errorOf(const std::string& code) {
    Interpreter interpreter;
    return errorOf(interpreter, code);
}

/// "identifier line:column" of an error, its place being the innermost.
inline std::string placeOf(const std::string& code) {
    const objsys::COSError error = errorOf(code);
    if (error.stack().empty())
        return error.identifier();
    return error.identifier() + " " + std::to_string(error.stack()[0].line) + ":" +
           std::to_string(error.stack()[0].column);
}

// ---- the class internal.langtest.Probe

/// A native object with a logical, a number, a text, a child, and methods that count their calls.
class Probe : public objsys::factory::full::Wrappable {
public:
    bool enabled = false;
    double level = 0;
    std::uint32_t count = 0;
    std::string label;
    int calls = 0;
    bool isChild = false;
    std::unique_ptr<Probe> child;
};

namespace detail {

using objsys::COSInterface;
using objsys::COSNameID;
using objsys::COSValue;

inline Probe& probeOf(COSInterface* instance) {
    return *static_cast<Probe*>(instance->getNativeObject(COSNameID("internal.langtest.Probe")));
}

class Getter : public objsys::factory::impl::Getter {
public:
    using Read = COSValue (*)(Probe& probe, COSNameID type);
    Getter(const char* type, Read read) : type_(type), read_(read) {}
    COSValue getValue(COSInterface* instance) const override {
        return read_(probeOf(instance), type_);
    }
    COSNameID getDataType() const override { return type_; }
    int forward(COSInterface*, COSValue*) const override { return 0; }
    objsys::Enumeration<COSInterface*> getInterfaces(COSInterface*) const override { return {}; }
    bool canContainInterfaces() const override { return false; }

private:
    COSNameID type_;
    Read read_;
};

class Setter : public objsys::factory::impl::Setter {
public:
    using Write = void (*)(Probe& probe, const COSValue& value);
    Setter(const char* type, Write write) : type_(type), write_(write) {}
    void setValue(COSInterface* instance, const COSValue& value) override {
        write_(probeOf(instance), value);
    }
    COSNameID getDataType() const override { return type_; }

private:
    COSNameID type_;
    Write write_;
};

class Property : public objsys::COSPropertyInfo {
public:
    Property(const char* name, const char* type, Getter::Read read, Setter::Write write)
        : name_(name), getter_(type, read) {
        if (write)
            setter_ = std::make_unique<Setter>(type, write);
    }
    COSNameID getName() const override { return name_; }
    Getter* getGetter() const override { return &getter_; }
    Setter* getSetter() const override { return setter_.get(); }
    objsys::factory::PropertyAttributes getAttributes() const override { return {}; }

private:
    COSNameID name_;
    mutable Getter getter_;
    std::unique_ptr<Setter> setter_;
};

class Method : public objsys::COSMethodInfo {
public:
    enum Kind { Ordinary, Static, Constructor };
    using Call = COSValue (*)(const COSValue* inputs);
    Method(const char* name, Kind kind, const char* result, const char* self,
           std::vector<COSNameID> arguments, Call call)
        : name_(name), kind_(kind), call_(call) {
        signature_.result = COSNameID(result);
        signature_.hasSelf = kind == Ordinary;
        signature_.self = COSNameID(self);
        signature_.arguments = std::move(arguments);
    }
    COSNameID getName() const override { return name_; }
    objsys::factory::MethodAttributes getAttributes() const override {
        return kind_ == Static ? objsys::factory::MethodAttributes::Static()
                               : objsys::factory::MethodAttributes();
    }
    const char* getDescription() const override { return ""; }
    const objsys::COSMethodSignature& getSignature() const override { return signature_; }
    bool isConstructor() const override { return kind_ == Constructor; }
    int invoke(int, COSValue* outputs, const COSValue* inputs) const override {
        if (kind_ == Constructor)
            objsys::factory::basic::BindingRegistry::announceForConstructor(
                new Probe, COSNameID("internal.langtest.Probe"), outputs->asArray(), true);
        else
            outputs[0] = call_(inputs);
        return 1;
    }

private:
    COSNameID name_;
    Kind kind_;
    Call call_;
    objsys::COSMethodSignature signature_;
};

inline Probe& selfOf(const COSValue* inputs) {
    return probeOf(omGetArrayElement(inputs[0].asArray(), 0));
}

class ProbeClass : public objsys::COSClassInfo {
public:
    const char* getName() const override { return "Probe"; }
    bool isHandleClass() const override { return true; }
    bool destroyInstance(COSInterface*, objsys::factory::full::Wrappable* native) override {
        auto* const probe = static_cast<Probe*>(native);
        if (probe->isChild) // its parent's
            return objsys::factory::basic::BindingRegistry::remove(probe);
        delete probe;
        return true;
    }
    void defineClass(objsys::COSClassDefinition* definition) override {
        constexpr const char* name = "internal.langtest.Probe";
        definition->addMethod(new Method("Probe", Method::Constructor, name, "", {}, nullptr));
        definition->addProperty(new Property(
            "Enabled", "logical scalar",
            [](Probe& probe, COSNameID type) { return COSValue::ofLogical(probe.enabled, type); },
            [](Probe& probe, const COSValue& value) { probe.enabled = value.asLogical(); }));
        definition->addProperty(new Property(
            "Level", "double scalar",
            [](Probe& probe, COSNameID type) { return COSValue::ofDouble(probe.level, type); },
            [](Probe& probe, const COSValue& value) { probe.level = value.asDouble(); }));
        definition->addProperty(new Property(
            "Count", "uint32 scalar",
            [](Probe& probe, COSNameID type) { return COSValue::ofUInt32(probe.count, type); },
            [](Probe& probe, const COSValue& value) { probe.count = value.asUInt32(); }));
        definition->addProperty(new Property(
            "Label", "char",
            [](Probe& probe, COSNameID type) {
                return COSValue::ofArray(hvCreateString(probe.label.c_str()), type);
            },
            [](Probe& probe, const COSValue& value) {
                char* const text = hvArray2String(value.asArray());
                probe.label = text;
                hvFree(text);
            }));
        definition->addProperty(new Property(
            "Calls", "int32 scalar",
            [](Probe& probe, COSNameID type) { return COSValue::ofInt32(probe.calls, type); },
            nullptr));
        definition->addProperty(new Property(
            "Child", name,
            [](Probe& probe, COSNameID type) {
                if (!probe.child)
                    probe.child = std::make_unique<Probe>();
                probe.child->isChild = true;
                return COSValue::ofArray(
                    objsys::factory::basic::BindingRegistry::announce(probe.child.get(), type),
                    type);
            },
            nullptr));
        definition->addProperty(new Property(
            "Nobody", name,
            [](Probe&, COSNameID type) {
                return COSValue::ofArray(
                    objsys::factory::basic::BindingRegistry::announce(nullptr, type), type);
            },
            nullptr));
        definition->addProperty(new Property(
            "Broken", "double scalar",
            [](Probe&, COSNameID) -> COSValue { throw std::runtime_error("a native failure"); },
            nullptr));
        definition->addMethod(
            new Method("touch", Method::Ordinary, "void", name, {}, [](const COSValue* inputs) {
                ++selfOf(inputs).calls;
                return COSValue();
            }));
        definition->addMethod(
            new Method("plus", Method::Ordinary, "double scalar", name,
                       {COSNameID("double scalar")}, [](const COSValue* inputs) {
                           const double sum = selfOf(inputs).level + inputs[1].asDouble();
                           return COSValue::ofDouble(sum, COSNameID("double scalar"));
                       }));
        // A built-in function has this name too.
        definition->addMethod(
            new Method("upper", Method::Ordinary, "char", name, {}, [](const COSValue*) {
                return COSValue::ofArray(hvCreateString("PROBE"), COSNameID("char"));
            }));
        definition->addMethod(new Method(
            "howMany", Method::Ordinary, "double scalar", "internal.langtest.Probe vector", {},
            [](const COSValue* inputs) {
                const auto count = static_cast<double>(hvGetNumberOfElements(inputs[0].asArray()));
                return COSValue::ofDouble(count, COSNameID("double scalar"));
            }));
        definition->addMethod(
            new Method("answer", Method::Static, "double scalar", "", {}, [](const COSValue*) {
                return COSValue::ofDouble(42, COSNameID("double scalar"));
            }));
    }
};

class ProbePackage : public objsys::COSPackageInfo {
public:
    const char* getName() const override { return "langtest"; }
    void registerClasses(objsys::COSPackage* package) override {
        package->addClass(new ProbeClass);
    }
};

} // namespace detail

/// The class is there while this lives.
class ProbePackage {
public:
    ProbePackage() : mark_(objsys::PackageTree::mark()) {
        objsys::COSPackage::getPackage(objsys::COSNameID("internal"))
            ->addPackage(new detail::ProbePackage);
    }
    ~ProbePackage() { withdraw(); }
    ProbePackage(const ProbePackage&) = delete;
    ProbePackage& operator=(const ProbePackage&) = delete;

    void withdraw() {
        if (published_)
            objsys::PackageTree::withdrawSince(mark_);
        published_ = false;
    }

private:
    objsys::PackageTree::Mark mark_;
    bool published_ = true;
};

} // namespace varnix::test
