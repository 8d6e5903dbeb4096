#include "object/calls.hpp"

#include "value/door.hpp"
#include "value/errors.hpp"

#include <array>
#include <memory>

namespace varnix {

namespace {

using objsys::COSClass;
using objsys::COSInterface;
using objsys::COSMethod;
using objsys::COSMethodInfo;
using objsys::COSMethodSignature;
using objsys::COSNameID;
using objsys::COSProperty;
using objsys::COSValue;

/// Converted inputs of one call: on the stack for the usual few.
class Inputs {
public:
    explicit Inputs(std::size_t count) : count_(count) {
        if (count > few) {
            manyValues_ = std::make_unique<COSValue[]>(count);
            manyBoxes_ = std::make_unique<Value[]>(count);
        }
    }
    [[nodiscard]] COSValue* values() {
        return count_ > few ? manyValues_.get() : fewValues_.data();
    }
    [[nodiscard]] Value& box(std::size_t i) { return count_ > few ? manyBoxes_[i] : fewBoxes_[i]; }

private:
    static constexpr std::size_t few = 4;
    std::size_t count_;
    std::array<COSValue, few> fewValues_;
    std::array<Value, few> fewBoxes_;
    std::unique_ptr<COSValue[]> manyValues_;
    std::unique_ptr<Value[]> manyBoxes_;
};

void checkCount(const COSMethodSignature& signature, COSNameID owner, COSNameID member,
                std::size_t given) {
    const std::size_t wanted = signature.arguments.size();
    if (given == wanted)
        return;
    fail(given > wanted ? id::tooManyInputs : id::notEnoughInputs,
         "{}.{} takes {} argument{}, not {}", owner.str(), member.str(), wanted,
         wanted == 1 ? "" : "s", given);
}

void convertArguments(const COSMethodSignature& signature, COSNameID owner, COSNameID member,
                      std::span<const Value> arguments, Inputs& inputs, std::size_t first) {
    for (std::size_t i = 0; i < arguments.size(); ++i)
        inputs.values()[first + i] = toDoor(arguments[i], signature.arguments[i],
                                            DoorPlace{owner, member, i + 1}, inputs.box(first + i));
}

/// Checks the object a method is called on and gives it as input 0.
COSValue convertSelf(const COSMethod& method, const Value& self, Value& box) {
    const COSMethodSignature& signature = *method.signature;
    if (signature.self.kind() == objsys::ValueKind::Vector)
        return toDoor(self, signature.self,
                      DoorPlace{method.declaringClass->getFullName(), method.name, 0}, box);
    if (self.isHandle()) {
        COSInterface* const instance = COSInterface::ofHandle(self.array());
        if (!instance->isValid())
            objsys::detail::raiseInvalidHandle(instance);
    } else if (!self.isObject()) {
        fail(id::nullSelf, "{} was called without an object", method.name.str());
    } else if (self.count() > 1) {
        fail(id::wrongType, "{} takes one object, not an array of {}; name one with [i]",
             method.name.str(), self.count());
    }
    return COSValue::ofArray(self.array(), signature.self); // an empty array: the module refuses it
}

[[noreturn]] void raiseReadOnly(const COSProperty& property) {
    fail(id::readOnlyProperty, "property '{}' of {} is read-only", property.name.str(),
         property.declaringClass->getFullName().str());
}

/// The constructor that takes that many arguments.
const COSMethodInfo& findConstructor(COSClass& cls, std::size_t count) {
    const auto& constructors = cls.constructors();
    if (constructors.empty() || cls.info().isAbstract())
        fail(id::notConstructible, "objects of class {} cannot be made by a script",
             cls.getFullName().str());
    std::size_t most = 0;
    for (const COSMethodInfo* const constructor : constructors) {
        const std::size_t wanted = constructor->getSignature().arguments.size();
        if (wanted == count)
            return *constructor;
        most = std::max(most, wanted);
    }
    fail(count > most ? id::tooManyInputs : id::notEnoughInputs,
         "no constructor of {} takes {} argument{}", cls.getFullName().str(), count,
         count == 1 ? "" : "s");
}

/// The method's result as it comes; an array in it carries a reference.
COSValue callRaw(const COSMethod& method, const Value& self, std::span<const Value> arguments) {
    const COSMethodSignature& signature = *method.signature;
    const COSNameID owner = method.declaringClass->getFullName();
    checkCount(signature, owner, method.name, arguments.size());
    if (arguments.empty()) {
        Value box;
        COSValue input;
        if (signature.hasSelf)
            input = convertSelf(method, self, box);
        return method.call(&input);
    }
    const std::size_t first = signature.hasSelf ? 1 : 0;
    Inputs inputs(first + arguments.size());
    if (signature.hasSelf)
        inputs.values()[0] = convertSelf(method, self, inputs.box(0));
    convertArguments(signature, owner, method.name, arguments, inputs, first);
    return method.call(inputs.values());
}

} // namespace

Value getProperty(const COSProperty& property, COSInterface* instance) {
    return fromDoor(property.get(instance));
}

void setProperty(const COSProperty& property, COSInterface* instance, const Value& value) {
    if (!instance->isValid())
        objsys::detail::raiseInvalidHandle(instance);
    if (!property.setter)
        raiseReadOnly(property);
    Value box;
    property.setter->setValue(
        instance, toDoor(value, property.dataType,
                         DoorPlace{property.declaringClass->getFullName(), property.name, 0}, box));
}

Value callMethod(const COSMethod& method, const Value& self, std::span<const Value> arguments) {
    return fromDoor(callRaw(method, self, arguments));
}

Value construct(COSClass& cls, std::span<const Value> arguments) {
    if (const COSMethodInfo* const plain = arguments.empty() ? cls.plainConstructor() : nullptr)
        return Value::ofHandle(cls.constructWith(*plain, nullptr));
    const COSMethodInfo& constructor = findConstructor(cls, arguments.size());
    Inputs inputs(arguments.size());
    convertArguments(constructor.getSignature(), cls.getFullName(), constructor.getName(),
                     arguments, inputs, 0);
    return Value::ofHandle(cls.constructWith(constructor, inputs.values()));
}

} // namespace varnix

namespace objsys {

void COSProperty::setConverted(COSInterface* instance, const COSValue& value) const {
    varnix::setProperty(*this, instance, varnix::fromDoorBorrowed(value));
}

namespace {
std::vector<varnix::Value> borrowed(std::span<const COSValue> arguments) {
    std::vector<varnix::Value> values;
    values.reserve(arguments.size());
    for (const COSValue& argument : arguments)
        values.push_back(varnix::fromDoorBorrowed(argument));
    return values;
}
} // namespace

COSValue COSMethod::callConverted(hvArray* self, std::span<const COSValue> arguments) const {
    const varnix::Value object = varnix::Value::fromArray(hvShareArray(self));
    return varnix::callRaw(*this, object, borrowed(arguments));
}

hvArray* COSClass::constructConverted(std::span<const COSValue> arguments) {
    return varnix::construct(*this, borrowed(arguments)).toArray();
}

} // namespace objsys
