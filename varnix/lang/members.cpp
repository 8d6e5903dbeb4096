// Members: properties and methods of objects, fields of structs.
//
// The fast halves, for a site that has seen the class before, are in execute.cpp; what is here
// fills the sites.
#include "lang/machine.hpp"
#include "object/calls.hpp"
#include "value/array.hpp"
#include "value/door.hpp"
#include "value/errors.hpp"

namespace varnix {

namespace {

using objsys::COSClass;
using objsys::COSInterface;
using objsys::COSMethod;
using objsys::COSNameID;
using objsys::COSProperty;

[[noreturn]] void raiseNoField(const Value& record, COSNameID name) {
    std::vector<std::string> fields;
    for (const auto& [field, value] : structOf(record.array()).fields)
        fields.push_back(field.str());
    fail(id::noSuchMember, "the struct has no field '{}'{}", name.str(),
         suggestion(name.str(), fields));
}

[[noreturn]] void raiseNoMember(COSClass& cls, COSNameID name, const char* kind) {
    std::vector<std::string> members;
    for (const COSProperty& property : cls.properties())
        members.push_back(property.name.str());
    for (const COSMethod& method : cls.methods())
        members.push_back(method.name.str());
    fail(id::noSuchMember, "class {} has no {} '{}'{}", cls.getFullName().str(), kind, name.str(),
         suggestion(name.str(), members));
}

/// The class of an object or object array, for looking up a member.
COSClass& classOf(const Value& object) {
    if (object.isHandle()) {
        COSInterface* const instance = COSInterface::ofHandle(object.array());
        if (!instance->isValid())
            objsys::detail::raiseInvalidHandle(instance);
    }
    COSClass* const cls = object.array()->objectClass;
    if (cls == nullptr)
        fail(id::invalidHandle, "the class of the object was withdrawn with its module");
    return *cls;
}

/// A property belongs to one object, not to an array of them.
COSInterface* oneObject(const Value& object, COSNameID name) {
    if (object.isHandle())
        return COSInterface::ofHandle(object.array());
    if (object.count() == 0)
        fail(id::nullSelf, "'{}' was asked of an empty array of {}: there is no object", name.str(),
             className(object));
    fail(id::wrongType, "'{}' was asked of an array of {} objects; name one with [i]", name.str(),
         object.count());
}

std::string describeWithArticle(const Value& value) {
    const std::string name = className(value);
    return (name.find_first_of("aeiou") == 0 ? "an " : "a ") + name;
}

Value callOn(const COSMethod& method, const Value& object, std::span<const Value> arguments) {
    return callMethod(method, method.isStatic() ? Value() : object, arguments);
}

void clearAll(std::span<Value> values) {
    for (Value& value : values)
        value = Value();
}

} // namespace

// ---- reading

void Machine::getMember(Frame& frame, const Instruction& at) {
    Value holder;
    const Value& base = operand(frame, at.b, holder);
    MemberSite& site = frame.code->members[at.c];
    if (base.isStruct() || base.isObject()) {
        Value result = memberOf(base, site.name, &site);
        if (result.isUnset())
            fail(id::tooManyOutputs, "'{}' gives no result", site.name.str());
        frame.base[at.a] = std::move(result);
        return;
    }
    fail(id::noSuchMember, "{} has no members such as '{}'", describeWithArticle(base),
         site.name.str());
}

/// A field, a property's value, or the result of a method called without arguments; unset when the
/// method gives none. Fills the site, if there is one.
Value Machine::memberOf(const Value& base, COSNameID name, MemberSite* site) {
    if (base.isStruct()) {
        const Value* const field = structOf(base.array()).find(name);
        if (field == nullptr)
            raiseNoField(base, name);
        return *field;
    }
    if (!base.isObject())
        fail(id::noSuchMember, "{} has no members such as '{}'", describeWithArticle(base),
             name.str());
    COSClass& cls = classOf(base);
    if (const COSProperty* const property = cls.findProperty(name)) {
        COSInterface* const instance = oneObject(base, name);
        if (site != nullptr) {
            site->cls = &cls;
            site->property = property;
            site->method = nullptr;
        }
        return getProperty(*property, instance);
    }
    const COSMethod* const method = cls.findMethod(name);
    if (method == nullptr)
        raiseNoMember(cls, name, "property or method");
    return callOn(*method, base, {});
}

// ---- assigning

void Machine::setMember(Frame& frame, const Instruction& at) {
    Value holder;
    const Value value = operand(frame, at.b, holder); // x.a = x: a reference of its own
    clearTemporary(frame, at.b);
    MemberSite& site = frame.code->members[at.c];
    assignMember(frame.base[at.a], site.name, value, &site);
}

void Machine::assignMember(Value& base, COSNameID name, const Value& value, MemberSite* site) {
    if (base.isUnset()) {
        Value record = newStruct();
        structOf(record.array()).place(name) = value;
        base = std::move(record);
        return;
    }
    if (base.isStruct()) {
        structOf(base.unshare()).place(name) = value;
        return;
    }
    if (!base.isObject())
        fail(id::noSuchMember, "{} has no fields; '{}' cannot be assigned",
             describeWithArticle(base), name.str());
    COSClass& cls = classOf(base);
    const COSProperty* const property = cls.findProperty(name);
    if (property == nullptr) {
        if (cls.findMethod(name) != nullptr)
            fail(id::noSuchMember, "'{}' is a method of class {}; it cannot be assigned",
                 name.str(), cls.getFullName().str());
        raiseNoMember(cls, name, "property");
    }
    COSInterface* const instance = oneObject(base, name);
    if (site != nullptr) {
        const objsys::ValueKind kind = property->dataType.kind();
        site->cls = &cls;
        site->setter = property->setter;
        site->plainTag = kind == objsys::ValueKind::Logical  ? Tag::Logical
                         : kind == objsys::ValueKind::Double ? Tag::Double
                                                             : MemberSite::noTag;
        site->property = property;
    }
    setProperty(*property, instance, value);
}

bool MemberSite::assignConverted(COSInterface* instance, const Value& value) const {
    const COSNameID type = property->dataType;
    if (value.tag() == Tag::Double) {
        std::uint64_t payload = 0;
        if (!toIntegerPayload(value.asDouble(), type.kind(), payload))
            return false;
        setter->setValue(instance, objsys::COSValue(payload, type));
        return true;
    }
    if (type.kind() == objsys::ValueKind::Char && value.isCounted() && value.isTextRow()) {
        const Value kept = value; // whatever the setter does, its text stays
        setter->setValue(instance, objsys::COSValue::ofArray(kept.array(), type));
        return true;
    }
    return false;
}

// ---- calling

bool Machine::callMember(Frame& frame, MemberSite& site) {
    Value holder;
    const Value& base = operand(frame, site.base, holder);
    return callMemberOf(base, site.name, site.written, argumentsOf(frame, site),
                        sinkOf(frame, site), &site);
}

bool Machine::callMemberOf(const Value& base, COSNameID name, bool written,
                           std::span<Value> arguments, const Sink& sink, MemberSite* site) {
    if (base.isObject()) {
        COSClass& cls = classOf(base);
        if (const COSMethod* const method = cls.findMethod(name)) {
            if (site != nullptr) {
                site->cls = &cls;
                site->method = method;
                site->plainCall = site->arguments == 0 && site->requested <= 1 &&
                                  method->signature->arguments.empty() &&
                                  method->signature->hasSelf &&
                                  method->signature->self.kind() == objsys::ValueKind::Object;
            }
            Value result = callOn(*method, base, arguments);
            clearAll(arguments);
            deliver(std::move(result), sink, name.c_str());
            return false;
        }
        if (cls.findProperty(name) == nullptr)
            raiseNoMember(cls, name, written ? "method" : "property or method");
    }
    // A field or a property; what it holds may itself be called.
    Value member = memberOf(base, name, nullptr);
    if (!written) {
        deliver(std::move(member), sink, name.c_str());
        return false;
    }
    if (!member.isFunction())
        fail(id::wrongType, "'{}' is no method but holds {}; elements are written {}[i]",
             name.str(), describeWithArticle(member), name.str());
    return beginFunction(member, arguments, sink);
}

} // namespace varnix
