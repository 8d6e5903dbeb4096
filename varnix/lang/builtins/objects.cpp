// Built-in functions on objects and their classes.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"
#include "object/calls.hpp"
#include "object/instances.hpp"
#include "value/format.hpp"

#include <objsys/class.hpp>
#include <objsys/package.hpp>

namespace varnix::builtins {
namespace {

using objsys::COSClass;
using objsys::COSInterface;
using objsys::COSNameID;

[[nodiscard]] std::span<COSInterface* const> objects(const Arguments& in, std::size_t i) {
    if (!in[i].isObject())
        in.wrongType(i, "an object");
    return {in[i].array()->objects(), in[i].count()};
}

/// The class that a text names, or the class of an object.
[[nodiscard]] COSClass& classArgument(const Arguments& in, std::size_t i) {
    if (in[i].isObject()) {
        if (COSClass* const cls = in[i].array()->objectClass)
            return *cls;
        in.failWith(id::invalidHandle, "the object's class is gone");
    }
    if (!in[i].isTextRow())
        in.wrongType(i, "an object or the name of a class");
    COSClass* const cls = COSClass::find(COSNameID(in.text(i)));
    if (!cls)
        in.failWith(id::undefined, fmt::format("there is no class {}", in.text(i)));
    return *cls;
}

void isvalid(BuiltinCall& call) {
    const Arguments in(call);
    const auto handles = objects(in, 0);
    numeric::ArrayHolder result(newArray(hvLOGICAL_CLASS, in[0].rows(), in[0].columns()));
    for (std::size_t i = 0; i < handles.size(); ++i)
        elements<bool>(result.get())[i] = handles[i] && handles[i]->isValid();
    call.give(Value::fromArray(result.release()));
}

void deleteObjects(BuiltinCall& call) {
    const Arguments in(call);
    // Destructors of the module may run script code; the copy keeps the array as it is.
    const Value keep = in[0];
    for (COSInterface* const object : objects(in, 0))
        if (object)
            objsys::deleteInstance(object);
}

void properties(BuiltinCall& call) {
    std::vector<std::string_view> names;
    for (const objsys::COSProperty& p : classArgument(Arguments(call), 0).properties())
        if (!p.info->isHidden())
            names.emplace_back(p.name.str());
    call.give(textColumn(names));
}

void methods(BuiltinCall& call) {
    std::vector<std::string_view> names;
    for (const objsys::COSMethod& m : classArgument(Arguments(call), 0).methods())
        names.emplace_back(m.name.str());
    call.give(textColumn(names));
}

void classes(BuiltinCall& call) {
    const Arguments in(call);
    const objsys::COSPackage* const package = objsys::COSPackage::getPackage(COSNameID(in.text(0)));
    if (!package)
        in.failWith(id::undefined, fmt::format("there is no package {}", in.text(0)));
    std::vector<std::string_view> names;
    for (const auto& cls : package->classes())
        if (!cls->info().isHidden())
            names.emplace_back(cls->getFullName().str());
    call.give(textColumn(names));
}

void superclasses(BuiltinCall& call) {
    std::vector<std::string_view> names;
    for (const COSClass* const cls : classArgument(Arguments(call), 0).superclasses())
        names.emplace_back(cls->getFullName().str());
    call.give(textColumn(names));
}

/// The property of a single object that a text names.
[[nodiscard]] const objsys::COSProperty& propertyArgument(const Arguments& in) {
    if (objects(in, 0).size() != 1 || !in[0].isHandle())
        in.wrongType(0, "one object");
    COSClass& cls = classArgument(in, 0);
    const objsys::COSProperty* const property = cls.findProperty(COSNameID(in.text(1)));
    if (!property)
        in.failWith(id::noSuchMember,
                    fmt::format("{} has no property {}", cls.getFullName().str(), in.text(1)));
    return *property;
}

void getproperty(BuiltinCall& call) {
    const Arguments in(call);
    call.give(getProperty(propertyArgument(in), objects(in, 0)[0]));
}

void setproperty(BuiltinCall& call) {
    const Arguments in(call);
    setProperty(propertyArgument(in), objects(in, 0)[0], in[2]);
}

constexpr Builtin table[] = {
    {"isvalid", "isvalid(h)",
     "Which objects of an array still live: neither deleted nor ended with what they stand for.", 1,
     1, 1, isvalid},
    {"delete", "delete(h)",
     "Ends an object, or each of an array; its handles stay but are no longer valid.", 1, 1, 0,
     deleteObjects},
    {"properties", "properties(x)",
     "The names of the properties of an object or of the class of that name as an N by 1 cell, "
     "inherited ones first.",
     1, 1, 1, properties},
    {"methods", "methods(x)",
     "The names of the methods of an object or of the class of that name as an N by 1 cell, "
     "inherited ones first, without the constructor.",
     1, 1, 1, methods},
    {"classes", "classes(package)",
     "The full names of a package's classes as an N by 1 cell, in the order in which they were "
     "added.\nExample: iscell(classes(\"varnix.mixin\")) gives true",
     1, 1, 1, classes},
    {"superclasses", "superclasses(x)",
     "The full names of the classes from which the class of an object, or the class of that name, "
     "is derived, as an N by 1 cell.",
     1, 1, 1, superclasses},
    {"getproperty", "getproperty(h, name)",
     "The value of the property of that name; as h.NAME with a name found at run time.", 2, 2, 1,
     getproperty},
    {"setproperty", "setproperty(h, name, value)",
     "Assigns to the property of that name; as h.NAME = value with a name found at run time.", 3, 3,
     0, setproperty},
};

} // namespace

Table objects() {
    return table;
}

} // namespace varnix::builtins
