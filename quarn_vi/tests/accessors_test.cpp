// Getters and setters of properties: every data type, const or not, by value or by reference; how
// the native object is found; the getter's further operations.

#include "tests/sample.hpp"

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace sample;
using objsys::Enumeration;
using objsys::factory::impl::ClassGetter;
using objsys::factory::impl::ClassSetter;

/// A native object with one value and each way to read and write it.
template <class T>
class Box : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Box";
    static void declareMembers(COSClassDefinition*) {}

    Box() = default;
    explicit Box(T initial) : value(initial) {}

    T read() { return value; }
    T readConst() const { return value; }
    const T& readReference() const { return value; }
    void write(T v) { value = v; }
    void writeReference(const T& v) { value = v; }
    void writeConst(T v) const { value = v; }
    T readNothrow() const noexcept { return value; }
    void writeNothrow(T v) noexcept { value = v; }

    mutable T value{};
};

template <class T, auto Member>
using BoxGetter = ClassGetter<T, Box<T>, Member>;
template <class T, auto Member>
using BoxSetter = ClassSetter<T, Box<T>, Member>;

template <class T>
struct Row;
template <>
struct Row<bool> {
    static constexpr const char* name = "logical scalar";
    static constexpr bool samples[] = {false, true};
    static std::uint64_t payload(bool v) { return v ? 1 : 0; }
};
template <>
struct Row<std::int32_t> {
    static constexpr const char* name = "int32 scalar";
    static constexpr std::int32_t samples[] = {0, 1, -1, std::numeric_limits<std::int32_t>::min(),
                                               std::numeric_limits<std::int32_t>::max()};
    static std::uint64_t payload(std::int32_t v) { return static_cast<std::uint64_t>(v); }
};
template <>
struct Row<std::uint32_t> {
    static constexpr const char* name = "uint32 scalar";
    static constexpr std::uint32_t samples[] = {0, 1, std::numeric_limits<std::uint32_t>::max()};
    static std::uint64_t payload(std::uint32_t v) { return v; }
};
template <>
struct Row<std::uint64_t> {
    static constexpr const char* name = "uint64 scalar";
    static constexpr std::uint64_t samples[] = {0, 1, (1ull << 53) + 1,
                                                std::numeric_limits<std::uint64_t>::max()};
    static std::uint64_t payload(std::uint64_t v) { return v; }
};
template <>
struct Row<std::int64_t> {
    static constexpr const char* name = "int64 scalar";
    static constexpr std::int64_t samples[] = {0, -1, std::numeric_limits<std::int64_t>::min(),
                                               std::numeric_limits<std::int64_t>::max()};
    static std::uint64_t payload(std::int64_t v) { return static_cast<std::uint64_t>(v); }
};
template <>
struct Row<double> {
    static constexpr const char* name = "double scalar";
    static constexpr double samples[] = {0.0, -0.0, 0.1, -1e308,
                                         std::numeric_limits<double>::infinity()};
    static std::uint64_t payload(double v) { return std::bit_cast<std::uint64_t>(v); }
};

template <class T>
class ScalarAccessors : public testing::Test {};
using ScalarTypes =
    testing::Types<bool, std::int32_t, std::uint32_t, std::uint64_t, std::int64_t, double>;
TYPED_TEST_SUITE(ScalarAccessors, ScalarTypes);

TYPED_TEST(ScalarAccessors, NameTheirDataType) {
    using T = TypeParam;
    const BoxGetter<T, &Box<T>::read> getter;
    const BoxSetter<T, &Box<T>::write> setter;
    EXPECT_EQ(getter.getDataType().str(), Row<T>::name);
    EXPECT_EQ(setter.getDataType().str(), Row<T>::name);
}

TYPED_TEST(ScalarAccessors, ReadThroughEveryFormOfMember) {
    using T = TypeParam;
    Box<T> box;
    const Array handle = handleOf(&box);
    const BoxGetter<T, &Box<T>::read> plain;
    const BoxGetter<T, &Box<T>::readConst> constant;
    const BoxGetter<T, &Box<T>::readReference> reference;
    const BoxGetter<T, &Box<T>::readNothrow> nothrow;
    for (const T sample : Row<T>::samples) {
        box.value = sample;
        const objsys::factory::impl::Getter* const getters[] = {&plain, &constant, &reference,
                                                                &nothrow};
        for (const auto* getter : getters) {
            const COSValue value = getter->getValue(instanceIn(handle));
            EXPECT_EQ(value.payload(), Row<T>::payload(sample));
            EXPECT_EQ(value.type().str(), Row<T>::name);
        }
    }
}

TYPED_TEST(ScalarAccessors, WriteThroughEveryFormOfMember) {
    using T = TypeParam;
    Box<T> box;
    const Array handle = handleOf(&box);
    BoxSetter<T, &Box<T>::write> plain;
    BoxSetter<T, &Box<T>::writeReference> reference;
    BoxSetter<T, &Box<T>::writeConst> constant;
    BoxSetter<T, &Box<T>::writeNothrow> nothrow;
    objsys::factory::impl::Setter* const setters[] = {&plain, &reference, &constant, &nothrow};
    for (auto* setter : setters) {
        for (const T sample : Row<T>::samples) {
            box.value = T{};
            setter->setValue(instanceIn(handle),
                             COSValue(Row<T>::payload(sample), COSNameID(Row<T>::name)));
            EXPECT_EQ(Row<T>::payload(box.value), Row<T>::payload(sample));
        }
    }
}

TYPED_TEST(ScalarAccessors, HoldNoInterfaces) {
    using T = TypeParam;
    Box<T> box;
    const Array handle = handleOf(&box);
    const BoxGetter<T, &Box<T>::read> getter;
    EXPECT_FALSE(getter.getInterfaces(instanceIn(handle)).hasMore());
    EXPECT_FALSE(getter.canContainInterfaces());
}

TEST(LogicalSetter, TakesEveryPayloadButZeroForTrue) {
    Box<bool> box;
    const Array handle = handleOf(&box);
    BoxSetter<bool, &Box<bool>::write> setter;
    const std::uint64_t payloads[] = {1, 2, 256, 1ull << 32, 1ull << 63, ~0ull};
    for (const std::uint64_t payload : payloads) {
        box.value = false;
        setter.setValue(instanceIn(handle), COSValue(payload, HostType<bool>::name()));
        EXPECT_TRUE(box.value) << payload;
    }
    setter.setValue(instanceIn(handle), COSValue(0, HostType<bool>::name()));
    EXPECT_FALSE(box.value);
}

// Only the types of the table cross the door: anything else does not compile.
template <class T>
concept CrossesTheDoor = requires {
    HostType<T>::name();
};
template <class T>
concept CanBeAssigned = requires(const COSValue& v) {
    HostType<T>::unpack(v);
};
static_assert(CrossesTheDoor<bool> && CrossesTheDoor<void> && CrossesTheDoor<Box<bool>*>);
static_assert(!CrossesTheDoor<float> && !CrossesTheDoor<short> && !CrossesTheDoor<char>);
static_assert(!CrossesTheDoor<const char*> && !CrossesTheDoor<std::vector<int>>);
static_assert(!CrossesTheDoor<Box<bool>> && !CrossesTheDoor<std::string*>);
static_assert(CanBeAssigned<bool> && !CanBeAssigned<Box<bool>*>);

// ---- finding the native object

/// A base that declares an accessor under a name that is no script class.
class Switched : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.NoClassOfThisName";
    virtual int which() { return 0; }
    bool on() { return on_; }
    void setOn(bool value) { on_ = value; }

private:
    bool on_ = false;
};

/// Published; its accessor is the base's.
class Motor : public Switched {
public:
    static constexpr const char* scriptClassName = "internal.sample.Motor";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Motor> declare(definition);
        declare.property<&Switched::on, &Switched::setOn>("On");
        declare.readOnly<&Motor::turns>("Turns");
    }
    int which() override { return 1; }
    std::int32_t turns() const { return 7; }
};

/// A script class derived from a script class; the inherited accessors are asked for its instances.
class Pump : public Motor {
public:
    static constexpr const char* scriptClassName = "internal.sample.Pump";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Pump> declare(definition);
        declare.superclass("internal.sample.Motor");
    }
    int which() override { return 2; }
};

/// The same base at another distance inside the object.
struct Ballast {
    virtual ~Ballast() = default;
    std::uint64_t words[5] = {11, 12, 13, 14, 15};
};
class Shifted : public Ballast, public Motor {
public:
    static constexpr const char* scriptClassName = "internal.sample.Shifted";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Shifted> declare(definition);
        declare.superclass("internal.sample.Motor");
    }
    int which() override { return 3; }
};

TEST(FindingTheNativeObject, UnderTheNameOfANativeBaseThatIsNoScriptClass) {
    published<Motor>();
    ASSERT_EQ(COSClass::find(COSNameID(Switched::scriptClassName)), nullptr);
    Motor motor;
    const Array handle = handleOf(&motor);
    const COSProperty& on = property(published<Motor>(), "On");
    EXPECT_FALSE(on.get(instanceIn(handle)).asLogical());
    on.set(instanceIn(handle), logical(true));
    EXPECT_TRUE(motor.on());
    EXPECT_TRUE(on.get(instanceIn(handle)).asLogical());
}

TEST(FindingTheNativeObject, UnderTheNameOfASuperclass) {
    published<Motor>();
    Pump pump;
    const Array handle = handleOf(&pump);
    const COSProperty& turns = property(published<Pump>(), "Turns");
    EXPECT_EQ(turns.declaringClass, &published<Motor>());
    EXPECT_EQ(turns.get(instanceIn(handle)).asInt32(), 7);
}

// One accessor sees objects of several native types in turn, with its base at several distances.
TEST(FindingTheNativeObject, WhateverTypeCameBefore) {
    published<Motor>();
    Motor motor;
    Pump pump;
    Shifted shifted;
    const Array motorHandle = handleOf(&motor);
    const Array pumpHandle = handleOf(&pump);
    const Array shiftedHandle = handleOf(&shifted);
    ClassGetter<bool, Switched, &Switched::on> getter;
    ClassSetter<bool, Switched, &Switched::setOn> setter;
    Switched* const objects[] = {&motor, &pump, &shifted};
    const Array* const handles[] = {&motorHandle, &pumpHandle, &shiftedHandle};
    for (const int i : {0, 1, 0, 2, 2, 1, 2, 0}) {
        const bool before = objects[i]->on();
        setter.setValue(instanceIn(*handles[i]), logical(!before));
        EXPECT_EQ(objects[i]->on(), !before) << i;
        EXPECT_EQ(getter.getValue(instanceIn(*handles[i])).asLogical(), !before) << i;
    }
    EXPECT_EQ(shifted.words[0], 11u);
    EXPECT_EQ(shifted.words[4], 15u);
}

// With a virtual base the way from the bound object to the declaring class has another length in
// each native type.
class Movable : public virtual Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Movable";
    static void declareMembers(COSClassDefinition*) {}
    double position() const { return position_; }
    void setPosition(double value) { position_ = value; }

private:
    double position_ = 0;
};
class Cart : public Movable {
public:
    double load[3] = {21, 22, 23}; // stands between the declaring class and the virtual base
};

TEST(FindingTheNativeObject, AtWhateverDistanceItLies) {
    const COSNameID name(Movable::scriptClassName);
    published<Movable>();
    Movable movable;
    Cart cart;
    Movable* const objects[] = {&movable, &cart};
    ClassGetter<double, Movable, &Movable::position> getter;
    ClassSetter<double, Movable, &Movable::setPosition> setter;
    for (const int turn : {0, 1, 1, 0, 1, 0}) {
        Movable* const object = objects[turn];
        const Array handle(BindingRegistry::announce(object, name));
        object->setPosition(-1);
        EXPECT_EQ(getter.getValue(instanceIn(handle)).asDouble(), -1);
        setter.setValue(instanceIn(handle), number(turn + 0.5));
        EXPECT_EQ(object->position(), turn + 0.5);
    }
    EXPECT_EQ(cart.load[0], 21);
    EXPECT_EQ(cart.load[2], 23);
}

TEST(FindingTheNativeObject, RefusesAnObjectOfAnotherNativeClass) {
    Box<bool> box(true);
    const Array handle = handleOf(&box);
    const ClassGetter<bool, Switched, &Switched::on> getter;
    ClassSetter<bool, Switched, &Switched::setOn> setter;
    EXPECT_EQ(errorOf([&] { (void)getter.getValue(instanceIn(handle)); }), "varnix:nullSelf");
    EXPECT_EQ(errorOf([&] { setter.setValue(instanceIn(handle), logical(false)); }),
              "varnix:nullSelf");
    EXPECT_TRUE(box.value);
}

TEST(FindingTheNativeObject, RefusesAnInstanceWithoutOne) {
    Array handle;
    {
        Box<bool> box;
        handle = handleOf(&box);
    }
    const BoxGetter<bool, &Box<bool>::read> getter;
    BoxSetter<bool, &Box<bool>::write> setter;
    EXPECT_EQ(errorOf([&] { (void)getter.getValue(instanceIn(handle)); }), "varnix:nullSelf");
    EXPECT_EQ(errorOf([&] { setter.setValue(instanceIn(handle), logical(true)); }),
              "varnix:nullSelf");
    EXPECT_EQ(errorOf([&] { (void)getter.getValue(nullptr); }), "varnix:nullSelf");
}

// ---- the getter's further operations

int lastForwarded = 0;
int forwardTo(COSInterface* instance, COSValue* value) {
    *value = HostType<bool>::pack(instance != nullptr);
    return ++lastForwarded;
}

TEST(Accessors, HoldTheMemberThatTheyCall) {
    const BoxGetter<bool, &Box<bool>::readConst> getter;
    const BoxSetter<bool, &Box<bool>::writeReference> setter;
    EXPECT_EQ(getter.member(), &Box<bool>::readConst);
    EXPECT_EQ(setter.member(), &Box<bool>::writeReference);
}

TEST(Getter, ForwardsOnlyWhenSomebodyHookedIt) {
    Box<bool> box;
    const Array handle = handleOf(&box);
    BoxGetter<bool, &Box<bool>::read> getter;
    COSValue value;
    EXPECT_EQ(getter.forward(instanceIn(handle), &value), 0);
    EXPECT_EQ(value.type(), COSNameID::voidType());

    lastForwarded = 41;
    getter.setHook(forwardTo);
    EXPECT_EQ(getter.forward(instanceIn(handle), &value), 42);
    EXPECT_TRUE(value.asLogical());
    getter.setHook(nullptr);
    EXPECT_EQ(getter.forward(instanceIn(handle), &value), 0);
}

class Owner : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Owner";
    static void declareMembers(COSClassDefinition*) {}
    Box<bool>* child() const { return child_; }
    std::vector<Box<bool>*> children() const { return {child_}; }
    Box<bool>* child_ = nullptr;
};

TEST(Getter, OfAPointerGivesTheInterfaceOfItsObject) {
    Owner owner;
    const Array handle = handleOf(&owner);
    const ClassGetter<Box<bool>*, Owner, &Owner::child> getter;
    EXPECT_FALSE(getter.canContainInterfaces());
    EXPECT_FALSE(getter.getInterfaces(instanceIn(handle)).hasMore());

    Box<bool> child;
    owner.child_ = &child;
    const Array childHandle = handleOf(&child);
    Enumeration<COSInterface*> interfaces = getter.getInterfaces(instanceIn(handle));
    ASSERT_EQ(interfaces.size(), 1u);
    EXPECT_EQ(interfaces.next(), instanceIn(childHandle));
    EXPECT_FALSE(interfaces.hasMore());
}

TEST(Getter, OfAVectorHoldsNoInterfaces) {
    Owner owner;
    Box<bool> child;
    owner.child_ = &child;
    const Array handle = handleOf(&owner);
    const Array childHandle = handleOf(&child);
    const ClassGetter<std::vector<Box<bool>*>, Owner, &Owner::children> getter;
    EXPECT_FALSE(getter.getInterfaces(instanceIn(handle)).hasMore());
    EXPECT_FALSE(getter.canContainInterfaces());
}

} // namespace
