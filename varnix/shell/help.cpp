// See help.hpp. Everything said about a class comes from what the class itself declared.
#include "shell/help.hpp"

#include "lang/builtin.hpp"
#include "lang/interpreter.hpp"
#include "object/package_tree.hpp"
#include "shell/names.hpp"
#include "value/errors.hpp"

#include <objsys/class.hpp>

#include <algorithm>
#include <fmt/format.h>

namespace varnix {

namespace {

using objsys::COSClass;
using objsys::COSMethod;
using objsys::COSMethodInfo;
using objsys::COSNameID;
using objsys::COSPackage;
using objsys::COSProperty;

/// `NAME: DESCRIPTION` and a line end, or only the name where there is no description.
std::string titled(std::string_view name, const char* description) {
    if (description == nullptr || *description == '\0')
        return fmt::format("{}\n", name);
    return fmt::format("{}: {}\n", name, description);
}

/// The lines of a text, each moved in by two blanks and broken at blanks before column 80.
std::string indented(std::string_view text) {
    constexpr std::size_t width = 77;
    std::string result;
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        std::size_t used = line.size() + 1;
        if (line.size() > width) {
            const std::size_t blank = line.rfind(' ', width);
            if (blank != std::string_view::npos && blank > 0) {
                line = line.substr(0, blank);
                used = blank + 1;
            }
        }
        text.remove_prefix(std::min(text.size(), used));
        result += line.empty() ? "\n" : fmt::format("  {}\n", line);
    }
    return result;
}

/// "name(char, int32 scalar) -> logical scalar"
std::string signatureOf(std::string_view name, const objsys::COSMethodSignature& signature,
                        bool withResult) {
    std::string text = fmt::format("{}(", name);
    for (std::size_t i = 0; i < signature.arguments.size(); ++i)
        text += (i == 0 ? "" : ", ") + signature.arguments[i].str();
    text += ')';
    if (withResult && signature.result != COSNameID::voidType() && !signature.result.empty())
        text += " -> " + signature.result.str();
    return text;
}

std::string methodLine(const COSMethod& method) {
    return (method.isStatic() ? "static " : "") +
           signatureOf(method.name.str(), *method.signature, true);
}

std::string propertyLine(const COSProperty& property, std::size_t nameWidth,
                         std::size_t typeWidth) {
    std::string line = fmt::format("{:<{}}  {:<{}}", property.name.str(), nameWidth,
                                   property.dataType.str(), typeWidth);
    if (property.setter == nullptr)
        line += "  read-only";
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

std::string classHelp(COSClass& cls) {
    std::string text = titled(cls.getFullName().str(), cls.info().getDescription());
    for (const COSClass* base : cls.superclasses())
        text += fmt::format("Superclass: {}\n", base->getFullName().str());

    if (cls.constructors().empty())
        text += "Constructor: none, scripts get objects of this class from others\n";
    else
        for (const COSMethodInfo* constructor : cls.constructors())
            text +=
                fmt::format("Constructor: {}\n", signatureOf(cls.getFullName().str(),
                                                             constructor->getSignature(), false));

    std::size_t nameWidth = 0;
    std::size_t typeWidth = 0;
    for (const COSProperty& property : cls.properties()) {
        nameWidth = std::max(nameWidth, property.name.str().size());
        typeWidth = std::max(typeWidth, property.dataType.str().size());
    }
    std::string properties;
    for (const COSProperty& property : cls.properties())
        if (!property.info->isHidden())
            properties += fmt::format("  {}\n", propertyLine(property, nameWidth, typeWidth));
    text += properties.empty() ? "Properties: none\n" : "Properties:\n" + properties;

    std::string methods;
    for (const COSMethod& method : cls.methods())
        methods += fmt::format("  {}\n", methodLine(method));
    text += methods.empty() ? "Methods: none\n" : "Methods:\n" + methods;
    return text;
}

std::string packageHelp(const COSPackage& package) {
    std::string text = titled(package.getFullName().str(), package.getDescription());
    std::string classes;
    for (const auto& cls : package.classes())
        if (!cls->info().isHidden())
            classes += "  " + titled(cls->getFullName().str(), cls->info().getDescription());
    std::string packages;
    for (const auto& inner : package.packages())
        packages += "  " + titled(inner->getFullName().str(), inner->getDescription());
    if (!classes.empty())
        text += "Classes:\n" + classes;
    if (!packages.empty())
        text += "Packages:\n" + packages;
    if (classes.empty() && packages.empty())
        text += "Empty.\n";
    return text;
}

/// Help for a property or method, named `CLASS.member`; empty when there is none.
std::string memberHelp(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos)
        return {};
    COSClass* const cls = COSClass::find(COSNameID(name.substr(0, dot)));
    if (cls == nullptr)
        return {};
    const COSNameID member(name.substr(dot + 1));
    if (const COSProperty* property = cls->findProperty(member)) {
        std::string text =
            fmt::format("{}: property of {}\n  {}", name,
                        property->declaringClass->getFullName().str(), property->dataType.str());
        if (property->setter == nullptr)
            text += ", read-only";
        return text + "\n";
    }
    if (const COSMethod* method = cls->findMethod(member))
        return fmt::format("{}: method of {}\n  {}\n{}", name,
                           method->declaringClass->getFullName().str(), methodLine(*method),
                           indented(method->info->getDescription()));
    return {};
}

std::string builtinHelp(const Builtin& builtin) {
    return fmt::format("{}\n{}", builtin.signature, indented(builtin.help));
}

/// Names in rows of at most 78 characters, moved in by two blanks.
std::string inRows(const std::vector<std::string>& names) {
    std::string text;
    std::string row = " ";
    for (const std::string& name : names) {
        if (row.size() + 1 + name.size() > 78) {
            text += row + "\n";
            row = " ";
        }
        row += " " + name;
    }
    return row == " " ? text : text + row + "\n";
}

std::string overview(const Interpreter& interpreter) {
    std::string text = "help NAME tells about a built-in function, a function of yours, a package, "
                       "a class or a\nmember of a class: help printf, help internal.\n";
    std::vector<std::string> names;
    for (const Builtin* builtin : allBuiltins())
        names.emplace_back(builtin->name);
    text += "Built-in functions:\n" + inRows(names);
    names = interpreter.functionNames();
    if (!names.empty())
        text += "Functions in files:\n" + inRows(names);
    names.clear();
    for (const std::string& name : packageAndClassNames())
        if (COSPackage::getPackage(COSNameID(name)) != nullptr)
            names.push_back(name);
    text += "Packages:\n" + inRows(names);
    return text;
}

/// What a person may have meant by an unknown name, as full names.
std::vector<std::string> namesNear(const Interpreter& interpreter, std::string_view name) {
    constexpr std::size_t most = 3;
    std::vector<std::string> known;
    const std::size_t dot = name.rfind('.');
    if (dot != std::string_view::npos)
        if (COSClass* const cls = COSClass::find(COSNameID(name.substr(0, dot)))) {
            for (const COSProperty& property : cls->properties())
                if (!property.info->isHidden())
                    known.push_back(property.name.str());
            for (const COSMethod& method : cls->methods())
                known.push_back(method.name.str());
            std::vector<std::string> near = nearestNames(name.substr(dot + 1), known, most);
            for (std::string& member : near)
                member.insert(0, cls->getFullName().str() + ".");
            return near;
        }
    for (const Builtin* builtin : allBuiltins())
        known.emplace_back(builtin->name);
    for (auto&& more : {interpreter.functionNames(), packageAndClassNames()})
        known.insert(known.end(), more.begin(), more.end());
    return nearestNames(name, known, most);
}

[[noreturn]] void failUnknown(const Interpreter& interpreter, std::string_view name) {
    const std::vector<std::string> near = namesNear(interpreter, name);
    if (near.empty())
        fail(id::undefined, "there is no help for '{}'", name);
    fail(id::undefined, "there is no help for '{}'; near it: {}", name, fmt::join(near, ", "));
}

} // namespace

std::string helpText(const Interpreter& interpreter, std::string_view name) {
    if (name.empty())
        return overview(interpreter);
    // A variable that holds an object: its class.
    if (name.find('.') == std::string_view::npos)
        if (const std::optional<Value> value = interpreter.global(name))
            if (value->isObject() && value->array()->objectClass != nullptr)
                return classHelp(*value->array()->objectClass);
    const std::string kind = interpreter.kindOfName(name);
    if (kind == "function") {
        const std::string comment = interpreter.functionHelp(name);
        return titled(name, "function") +
               (comment.empty() ? "  It has no comment.\n" : indented(comment));
    }
    if (const Builtin* builtin = findBuiltin(name))
        return builtinHelp(*builtin);
    if (COSClass* cls = COSClass::find(COSNameID(name)))
        return classHelp(*cls);
    if (const COSPackage* package = COSPackage::getPackage(COSNameID(name)))
        return packageHelp(*package);
    if (std::string text = memberHelp(name); !text.empty())
        return text;
    failUnknown(interpreter, name);
}

} // namespace varnix
