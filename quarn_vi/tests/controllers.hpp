// What the tests of the controllers share: script objects of the published package, used through
// the host's own interface as a script would use them, and what they print.
#pragma once

#include "quarn_package.hpp"
#include "tests/sample.hpp"

#include <cstdint>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <vector>

namespace controllers {

using sample::Array;

/// A class of internal.quarn by its short name; publishes the package on first use.
inline objsys::COSClass& scriptClass(const char* shortName) {
    if (!objsys::COSPackage::getPackage(objsys::COSNameID("internal.quarn")))
        quarn_vi::publishPackage();
    return objsys::COSClass::get(objsys::COSNameID(std::string("internal.quarn.") + shortName));
}

/// A script object.
class Object {
public:
    /// Constructs one, as a script does.
    explicit Object(const char* shortName, const std::vector<objsys::COSValue>& arguments = {})
        : Object(Array(scriptClass(shortName).construct(arguments))) {}
    /// Takes over a handle.
    explicit Object(Array handle) : handle_(std::move(handle)) {}

    [[nodiscard]] hvArray* handle() const { return handle_.get(); }
    [[nodiscard]] objsys::COSInterface* instance() const {
        return omGetArrayElement(handle_.get(), 0);
    }
    [[nodiscard]] objsys::COSClass& cls() const { return *handle_->objectClass; }
    /// The native controller.
    template <class Native>
    [[nodiscard]] Native& native() const {
        return dynamic_cast<Native&>(*instance()->getNativeObject(objsys::COSNameID()));
    }

    [[nodiscard]] objsys::COSValue get(const char* property) const {
        return sample::property(cls(), property).get(instance());
    }
    [[nodiscard]] bool flag(const char* property) const { return get(property).asLogical(); }
    [[nodiscard]] std::int32_t int32(const char* property) const { return get(property).asInt32(); }
    [[nodiscard]] std::uint64_t uint64(const char* property) const {
        return get(property).asUInt64();
    }
    [[nodiscard]] double real(const char* property) const { return get(property).asDouble(); }
    [[nodiscard]] std::string text(const char* property) const {
        return sample::charactersOf(Array(get(property).asArray()).get());
    }
    /// A property that is an object.
    [[nodiscard]] Object child(const char* property) const {
        return Object(Array(get(property).asArray()));
    }
    /// The texts of a column of texts.
    [[nodiscard]] std::vector<std::string> texts(const char* property) const {
        const Array cell(get(property).asArray());
        std::vector<std::string> result;
        for (std::size_t i = 0; i < hvGetNumberOfElements(cell.get()); ++i)
            result.push_back(sample::charactersOf(hvGetCell(cell.get(), i)));
        return result;
    }

    void set(const char* property, const objsys::COSValue& value) const {
        sample::property(cls(), property).set(instance(), value);
    }
    void set(const char* property, bool value) const { set(property, sample::logical(value)); }
    void set(const char* property, double value) const { set(property, sample::number(value)); }
    void set(const char* property, const char* value) const {
        const Array characters = sample::text(value);
        set(property, sample::arrayValue(characters));
    }
    void set(const char* property, const std::vector<std::string>& values) const {
        std::vector<hvArray*> cells;
        for (const std::string& value : values)
            cells.push_back(hvCreateString(value.c_str()));
        const Array cell = sample::cellOf(1, cells.size(), cells);
        set(property, sample::arrayValue(cell));
    }

    /// Calls a method; an array in the result is the caller's to release.
    objsys::COSValue call(const char* method,
                          const std::vector<objsys::COSValue>& arguments = {}) const {
        return sample::method(cls(), method).callConverted(handle_.get(), arguments);
    }
    [[nodiscard]] std::string callText(const char* method,
                                       const std::vector<objsys::COSValue>& arguments = {}) const {
        return sample::charactersOf(Array(call(method, arguments).asArray()).get());
    }

private:
    Array handle_;
};

/// What `action` prints on the console.
template <class Action>
std::string printed(Action&& action) {
    testing::internal::CaptureStdout();
    action();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

/// One member as a class declares it, for comparing with a table.
struct Member {
    std::string name;
    std::string type;
    bool readOnly = false;
    unsigned attributes = 0;
    bool operator==(const Member&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Member& m) {
    return out << m.name << " (" << m.type << (m.readOnly ? ", read-only, " : ", ") << m.attributes
               << ")";
}

/// The properties of a class in order, inherited ones first.
inline std::vector<Member> propertiesOf(const char* shortName) {
    std::vector<Member> members;
    for (const objsys::COSProperty& p : scriptClass(shortName).properties())
        members.push_back(
            {p.name.str(), p.dataType.str(), p.setter == nullptr, p.info->getAttributes().bits()});
    return members;
}

/// The methods of a class in order: "result name(self, arguments)", "static" in front of static
/// ones.
inline std::vector<std::string> methodsOf(const char* shortName) {
    std::vector<std::string> members;
    for (const objsys::COSMethod& m : scriptClass(shortName).methods()) {
        std::string text = m.isStatic() ? "static " : "";
        text += m.signature->result.str() + " " + m.name.str() + "(";
        std::string separator;
        if (m.signature->hasSelf) {
            text += m.signature->self.str();
            separator = ", ";
        }
        for (const objsys::COSNameID argument : m.signature->arguments) {
            text += separator + argument.str();
            separator = ", ";
        }
        members.push_back(text + ")");
    }
    return members;
}

/// Every property of an object that takes `good` refuses `wrong` with a host error and keeps what
/// it had.
inline void expectWrongType(const Object& object, const char* property,
                            const objsys::COSValue& wrong) {
    EXPECT_EQ(sample::errorOf([&] { object.set(property, wrong); }), "varnix:wrongType")
        << property;
}

} // namespace controllers
