// What the framework's tests share: a package internal.sample in the real host, into which each
// test file publishes native classes of its own, and short names for the host's calls.
//
// A native class says how it is declared:
//
//     struct Lamp : Wrappable {
//         static constexpr const char* scriptClassName = "internal.sample.Lamp";
//         static void declareMembers(COSClassDefinition* definition) {
//             ClassDeclaration<Lamp> declare(definition);
//             declare.constructor();
//         }
//     };
//     COSClass& lamps = published<Lamp, 1>(); // 1: a handle deletes its native object
//
// Where declareMembers takes the descriptor as well and hands it on to ClassDeclaration, objects
// that die with their handles lie behind their instances.
//
// Classes stay published until the process ends.
#pragma once

#include "framework/class_info.hpp"
#include "framework/declaration.hpp"

#include <objsys/objsys.hpp>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sample {

using objsys::COSClass;
using objsys::COSClassDefinition;
using objsys::COSInterface;
using objsys::COSMethod;
using objsys::COSNameID;
using objsys::COSPackage;
using objsys::COSProperty;
using objsys::COSValue;
using objsys::factory::ClassDeclaration;
using objsys::factory::MethodAttributes;
using objsys::factory::PropertyAttributes;
using objsys::factory::basic::BindingRegistry;
using objsys::factory::full::Wrappable;
using objsys::factory::impl::HostType;
/// One reference to a host array.
using Array = objsys::factory::impl::ArrayHolder;

class SamplePackage final : public objsys::COSPackageInfo {
public:
    const char* getName() const override { return "sample"; }
};

inline COSPackage& package() {
    static const COSNameID fullName("internal.sample");
    if (!COSPackage::getPackage(fullName))
        COSPackage::getPackage(COSNameID("internal"))->addPackage(new SamplePackage);
    return *COSPackage::getPackage(fullName);
}

template <class Native, int D>
class CosSample final : public objsys::factory::HandleClassInfo<Native, D> {
public:
    CosSample()
        : objsys::factory::HandleClassInfo<Native, D>(shortName().c_str(), "A sample class.") {}
    void defineClass(objsys::COSClassDefinition* definition) override {
        if constexpr (requires { Native::declareMembers(definition, this); })
            Native::declareMembers(definition, this);
        else
            Native::declareMembers(definition);
    }
    static std::string shortName() {
        const std::string full = Native::scriptClassName;
        return full.substr(full.rfind('.') + 1);
    }
};

/// The script class of a native class, published on first use.
template <class Native, int D = 0>
COSClass& published() {
    const COSNameID fullName(Native::scriptClassName);
    if (!COSClass::find(fullName))
        package().addClass(new CosSample<Native, D>);
    return COSClass::get(fullName);
}

/// The handle of a native object, bound on first use.
template <class Native>
Array handleOf(Native* object) {
    published<Native>();
    return Array(BindingRegistry::announce(object, COSNameID(Native::scriptClassName)));
}

inline COSInterface* instanceIn(const Array& handle) {
    return omGetArrayElement(handle.get(), 0);
}

/// The native object behind a handle, null when it is gone.
template <class Native>
Native* nativeIn(const Array& handle) {
    return dynamic_cast<Native*>(
        instanceIn(handle)->getNativeObject(COSNameID(Native::scriptClassName)));
}

inline Array construct(COSClass& cls, const std::vector<COSValue>& arguments = {}) {
    return Array(cls.construct(arguments));
}

inline const COSProperty& property(COSClass& cls, const char* name) {
    const COSProperty* const found = cls.findProperty(COSNameID(name));
    if (!found)
        throw std::logic_error(std::string("no property ") + name);
    return *found;
}

inline const COSMethod& method(COSClass& cls, const char* name) {
    const COSMethod* const found = cls.findMethod(COSNameID(name));
    if (!found)
        throw std::logic_error(std::string("no method ") + name);
    return *found;
}

// Values as a script would hand them over.
inline COSValue number(double v) {
    return HostType<double>::pack(v);
}
inline COSValue logical(bool v) {
    return HostType<bool>::pack(v);
}
/// The array stays the caller's.
inline COSValue arrayValue(const Array& array) {
    return COSValue::ofArray(array.get(), COSNameID("any"));
}
inline Array text(std::string_view characters) {
    return Array(hvCreateStringN(characters.data(), characters.size()));
}
inline Array cellOf(std::size_t rows, std::size_t columns, const std::vector<hvArray*>& contents) {
    Array cell(hvCreateCellMatrix(rows, columns));
    for (std::size_t i = 0; i < contents.size(); ++i)
        hvSetCell(cell.get(), i, contents[i]);
    return cell;
}

/// The characters of a character array.
inline std::string charactersOf(const hvArray* array) {
    if (hvGetClassID(array) != hvCHAR_CLASS)
        return "(no text)";
    return {static_cast<const char*>(hvGetData(array)), hvGetNumberOfElements(array)};
}

/// The identifier of the host error that `action` raises, or "no error".
template <class Action>
std::string errorOf(Action&& action) {
    try {
        action();
    } catch (const objsys::COSError& error) {
        return error.identifier();
    }
    return "no error";
}

/// The message of that error.
template <class Action>
std::string messageOf(Action&& action) {
    try {
        action();
    } catch (const objsys::COSError& error) {
        return error.message();
    }
    return "no error";
}

} // namespace sample
