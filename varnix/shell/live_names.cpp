// See live_names.hpp.
#include "shell/live_names.hpp"

#include "lang/builtin.hpp"
#include "lang/interpreter.hpp"
#include "object/package_tree.hpp"
#include "shell/names.hpp"
#include "value/array.hpp"

#include <objsys/class.hpp>

namespace varnix {

namespace {

using objsys::COSClass;
using objsys::COSMethod;
using objsys::COSNameID;
using objsys::COSPackage;
using objsys::COSProperty;

std::unique_ptr<NamedThing> thingOfType(COSNameID dataType);

/// What the definition of a class gives; nothing when the class cannot be defined. Completion is
/// no place to report that.
template <class F>
auto ifDefined(F&& f) -> decltype(f()) {
    try {
        return f();
    } catch (const std::exception&) {
        return {};
    }
}

/// An object, or a row of objects, of a class.
class ObjectThing : public NamedThing {
public:
    explicit ObjectThing(COSClass& cls) : class_(cls) {}

    std::vector<std::string> members() const override {
        return ifDefined([&] {
            std::vector<std::string> names;
            for (const COSProperty& property : class_.properties())
                if (!property.info->isHidden())
                    names.push_back(property.name.str());
            for (const COSMethod& method : class_.methods())
                names.push_back(method.name.str());
            return names;
        });
    }
    std::unique_ptr<NamedThing> member(std::string_view name) const override {
        return ifDefined([&]() -> std::unique_ptr<NamedThing> {
            const COSNameID id(name);
            if (const COSProperty* property = class_.findProperty(id))
                return thingOfType(property->dataType);
            if (const COSMethod* method = class_.findMethod(id))
                return thingOfType(method->signature->result);
            return nullptr;
        });
    }
    std::unique_ptr<NamedThing> indexed() const override {
        return std::make_unique<ObjectThing>(class_);
    }
    /// `x.method(...)`: member() already gave what the call gives.
    std::unique_ptr<NamedThing> called() const override {
        return std::make_unique<ObjectThing>(class_);
    }

private:
    COSClass& class_;
};

/// A class named by its full name: it constructs, and has class-level methods.
class ClassThing : public NamedThing {
public:
    explicit ClassThing(COSClass& cls) : class_(cls) {}

    std::vector<std::string> members() const override {
        return ifDefined([&] {
            std::vector<std::string> names;
            for (const COSMethod& method : class_.methods())
                if (method.isStatic())
                    names.push_back(method.name.str());
            return names;
        });
    }
    std::unique_ptr<NamedThing> member(std::string_view name) const override {
        return ifDefined([&]() -> std::unique_ptr<NamedThing> {
            const COSMethod* const method = class_.findMethod(COSNameID(name));
            return method && method->isStatic() ? thingOfType(method->signature->result) : nullptr;
        });
    }
    std::unique_ptr<NamedThing> indexed() const override { return nullptr; }
    std::unique_ptr<NamedThing> called() const override {
        return std::make_unique<ObjectThing>(class_);
    }

private:
    COSClass& class_;
};

class PackageThing : public NamedThing {
public:
    explicit PackageThing(const COSPackage& package) : package_(package) {}

    std::vector<std::string> members() const override {
        std::vector<std::string> names;
        for (const auto& inner : package_.packages())
            names.push_back(inner->getName() + ".");
        for (const auto& cls : package_.classes())
            if (!cls->info().isHidden())
                names.push_back(cls->getName());
        return names;
    }
    std::unique_ptr<NamedThing> member(std::string_view name) const override {
        if (const COSPackage* inner = package_.findPackage(name))
            return std::make_unique<PackageThing>(*inner);
        if (COSClass* cls = package_.findClass(name))
            return std::make_unique<ClassThing>(*cls);
        return nullptr;
    }
    std::unique_ptr<NamedThing> indexed() const override { return nullptr; }
    std::unique_ptr<NamedThing> called() const override { return nullptr; }

private:
    const COSPackage& package_;
};

std::unique_ptr<NamedThing> thingOfValue(const Value& value);

/// A struct variable: its fields are there to be read.
class StructThing : public NamedThing {
public:
    explicit StructThing(Value value) : value_(std::move(value)) {}

    std::vector<std::string> members() const override {
        std::vector<std::string> names;
        for (const auto& [name, value] : structOf(value_.array()).fields)
            names.push_back(name.str());
        return names;
    }
    std::unique_ptr<NamedThing> member(std::string_view name) const override {
        const Value* const field = structOf(value_.array()).find(COSNameID(name));
        return field ? thingOfValue(*field) : nullptr;
    }
    std::unique_ptr<NamedThing> indexed() const override {
        return std::make_unique<StructThing>(value_);
    }
    std::unique_ptr<NamedThing> called() const override { return nullptr; }

private:
    Value value_;
};

std::unique_ptr<NamedThing> thingOfValue(const Value& value) {
    if (value.isStruct())
        return std::make_unique<StructThing>(value);
    if (value.isObject() && value.array()->objectClass != nullptr)
        return std::make_unique<ObjectThing>(*value.array()->objectClass);
    return nullptr;
}

std::unique_ptr<NamedThing> thingOfType(COSNameID dataType) {
    COSClass* cls = nullptr;
    if (dataType.kind() == objsys::ValueKind::Object)
        cls = COSClass::find(dataType);
    else if (dataType.kind() == objsys::ValueKind::Vector)
        cls = dataType.entry()->element->registeredClass;
    if (cls == nullptr)
        return nullptr;
    return std::make_unique<ObjectThing>(*cls);
}

} // namespace

std::vector<std::string> LiveNames::names() const {
    std::vector<std::string> names = interpreter_.globalNames();
    for (const std::string& function : interpreter_.functionNames())
        names.push_back(function);
    for (const Builtin* builtin : allBuiltins())
        names.emplace_back(builtin->name);
    for (const auto& root : objsys::PackageTree::roots())
        names.push_back(root->getName() + ".");
    names.insert(names.end(), keywords().begin(), keywords().end());
    return names;
}

std::unique_ptr<NamedThing> LiveNames::find(std::string_view name) const {
    if (const std::optional<Value> value = interpreter_.global(name))
        return thingOfValue(*value);
    if (const COSPackage* root = objsys::PackageTree::findRoot(name))
        return std::make_unique<PackageThing>(*root);
    return nullptr;
}

} // namespace varnix
