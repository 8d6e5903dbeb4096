// Conversions at the door: for every declared data type, the values that are accepted with what
// arrives, and the values that are refused, each of them leaving the setting as it was.

#include "tests/object_sample.hpp"
#include "value/door.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace sample;
using varnix::Tag;

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double two53 = 9007199254740992.0;
constexpr double two63 = 9223372036854775808.0;
constexpr double two64 = 18446744073709551616.0;

/// A function value of no particular meaning.
class SomeFunction final : public varnix::FunctionRecord {
public:
    std::string describe() const override { return "fn some"; }
    bool equals(const FunctionRecord& other) const override { return this == &other; }
};

Value number(double v) {
    return Value::ofDouble(v);
}
Value arrayOf(hvClassID id, std::size_t rows, std::size_t columns) {
    return Value::fromArray(hvCreateArray(id, rows, columns));
}
Value cellOf(const Value& content) {
    hvArray* const cell = hvCreateCellMatrix(1, 1);
    varnix::setCell(cell, 0, content);
    return Value::fromArray(cell);
}

class Door : public ObjectTest {
protected:
    Door() {
        addConstructible("Thing");
        add("DerivedThing", [](COSClassDefinition& definition) {
            definition.addSuperclass(COSNameID("internal.objects.Thing"), 1, 0, 1);
            definition.addMethod(storeConstructor("internal.objects.DerivedThing"));
        });
        addConstructible("OtherThing");
    }
    ~Door() override { holder_ = {}; }

    /// A class with one property of that data type, an object of it, and a method that takes it.
    void declare(const char* type) {
        type_ = type;
        add("Holder", [type](COSClassDefinition& definition) {
            definition.addMethod(storeConstructor("internal.objects.Holder"));
            definition.addProperty(new StoreProperty("Held", type));
            definition.addMethod(new FunctionMethod(
                "hold", signature("void", "internal.objects.Holder", {type}),
                [](int, COSValue*, const COSValue* inputs) {
                    storeOf(omGetArrayElement(inputs[0].asArray(), 0))->keep(inputs[1]);
                    return 1;
                }));
        });
        holder_ = make("Holder");
    }
    Store& store() { return *storeOf(instanceOf(holder_)); }
    void assign(const Value& value) {
        varnix::setProperty(*classOf("Holder").findProperty(COSNameID("Held")), instanceOf(holder_),
                            value);
    }
    void call(const Value& value) {
        (void)varnix::callMethod(*classOf("Holder").findMethod(COSNameID("hold")), holder_,
                                 std::span(&value, 1));
    }

    /// The value goes through, as a property and as an argument; its payload is what is given.
    void accepts(const Value& value, std::uint64_t payload, const char* what) {
        SCOPED_TRACE(what);
        const int before = store().assignments;
        EXPECT_EQ(identifierOf([&] { assign(value); }), "no error");
        EXPECT_EQ(store().assignments, before + 1);
        EXPECT_EQ(store().kept.payload(), payload);
        EXPECT_EQ(store().kept.type().str(), type_);
        EXPECT_EQ(identifierOf([&] { call(value); }), "no error");
        EXPECT_EQ(store().assignments, before + 2);
        EXPECT_EQ(store().kept.payload(), payload);
        EXPECT_EQ(store().kept.type().str(), type_);
    }
    /// The value is refused both ways, and what was there before is still there.
    void refuses(const Value& value, const char* what, const char* identifier) {
        SCOPED_TRACE(what);
        const int before = store().assignments;
        const COSValue kept = store().kept;
        EXPECT_EQ(identifierOf([&] { assign(value); }), identifier);
        EXPECT_EQ(identifierOf([&] { call(value); }), identifier);
        EXPECT_EQ(store().assignments, before);
        EXPECT_EQ(store().kept.payload(), kept.payload());
        EXPECT_EQ(store().kept.type(), kept.type());
    }

#define ACCEPTS(VALUE, PAYLOAD) accepts(VALUE, static_cast<std::uint64_t>(PAYLOAD), #VALUE)
#define REFUSES(VALUE) refuses(VALUE, #VALUE, "varnix:wrongType")
#define REFUSES_AS(VALUE, IDENTIFIER) refuses(VALUE, #VALUE, IDENTIFIER)

    /// What no scalar type accepts.
    void refusesEverythingButScalars() {
        REFUSES(Value());
        REFUSES(Value::text("1"));
        REFUSES(Value::text("true"));
        REFUSES(Value::text(""));
        REFUSES(arrayOf(hvDOUBLE_CLASS, 0, 0));
        REFUSES(arrayOf(hvDOUBLE_CLASS, 1, 2));
        REFUSES(arrayOf(hvDOUBLE_CLASS, 2, 1));
        REFUSES(arrayOf(hvLOGICAL_CLASS, 2, 2));
        REFUSES(arrayOf(hvLOGICAL_CLASS, 1, 0));
        REFUSES(arrayOf(hvINT32_CLASS, 1, 3));
        REFUSES(arrayOf(hvUINT64_CLASS, 0, 1));
        REFUSES(cellOf(number(1)));
        REFUSES(Value::fromArray(hvCreateCellMatrix(0, 0)));
        REFUSES(varnix::newStruct());
        REFUSES(varnix::newFunction(std::make_shared<SomeFunction>()));
        REFUSES(make("Thing"));
        REFUSES(holder_);
        REFUSES(Value::fromArray(omCreateOBJSYSMatrix(1, 0, nameOf("Thing"))));
    }

    const char* type_ = "";
    Value holder_;
};

// ---- logical

TEST_F(Door, LogicalTakesLogicals) {
    declare("logical scalar");
    ACCEPTS(Value::ofLogical(true), 1);
    ACCEPTS(Value::ofLogical(false), 0);
    ACCEPTS(Value::fromArray(hvCreateLogicalScalar(true)), 1);
}

TEST_F(Door, LogicalTakesNumbersThatAreNotNan) {
    declare("logical scalar");
    ACCEPTS(number(1), 1);
    ACCEPTS(number(0), 0);
    ACCEPTS(number(-0.0), 0);
    ACCEPTS(number(0.5), 1);
    ACCEPTS(number(-3), 1);
    ACCEPTS(number(5e-324), 1);
    ACCEPTS(number(inf), 1);
    ACCEPTS(number(-inf), 1);
    REFUSES(number(nan));
    REFUSES(number(-nan));
}

TEST_F(Door, LogicalTakesIntegersOfEveryClass) {
    declare("logical scalar");
    for (const Tag tag : {Tag::Int8, Tag::Int16, Tag::Int32, Tag::Int64}) {
        ACCEPTS(Value::ofSigned(tag, 0), 0);
        ACCEPTS(Value::ofSigned(tag, 1), 1);
        ACCEPTS(Value::ofSigned(tag, -128), 1);
    }
    for (const Tag tag : {Tag::UInt8, Tag::UInt16, Tag::UInt32, Tag::UInt64}) {
        ACCEPTS(Value::ofUnsigned(tag, 0), 0);
        ACCEPTS(Value::ofUnsigned(tag, 255), 1);
    }
    ACCEPTS(Value::ofInt64(std::numeric_limits<std::int64_t>::min()), 1);
}

TEST_F(Door, LogicalRefusesTheRest) {
    declare("logical scalar");
    assign(Value::ofLogical(true));
    refusesEverythingButScalars();
}

// ---- integers

/// Whether `value` lies in the range of the integer type, and its payload there, by arithmetic that
/// is wider than all of them.
using Wide = __int128;
template <class T>
bool inRange(Wide value) {
    return value >= Wide{std::numeric_limits<T>::min()} &&
           value <= Wide{std::numeric_limits<T>::max()};
}

template <class T>
struct IntegerType;
template <>
struct IntegerType<std::int32_t> {
    static constexpr const char* name = "int32 scalar";
};
template <>
struct IntegerType<std::uint32_t> {
    static constexpr const char* name = "uint32 scalar";
};
template <>
struct IntegerType<std::int64_t> {
    static constexpr const char* name = "int64 scalar";
};
template <>
struct IntegerType<std::uint64_t> {
    static constexpr const char* name = "uint64 scalar";
};

template <class T>
class IntegerDoor : public Door {
protected:
    IntegerDoor() { declare(IntegerType<T>::name); }

    /// The value, an integer equal to `exact`, goes through exactly when it is in the range.
    void check(const Value& value, Wide exact, const std::string& what) {
        if (inRange<T>(exact))
            accepts(value, static_cast<std::uint64_t>(exact), what.c_str());
        else
            refuses(value, what.c_str(), "varnix:wrongType");
    }
};
using IntegerTypes = testing::Types<std::int32_t, std::uint32_t, std::int64_t, std::uint64_t>;
TYPED_TEST_SUITE(IntegerDoor, IntegerTypes);

TYPED_TEST(IntegerDoor, TakesDoublesWithIntegralValuesInRange) {
    for (const double v : {0.0, -0.0, 1.0, -1.0, 127.0, 2147483647.0, 2147483648.0, -2147483648.0,
                           -2147483649.0, 4294967295.0, 4294967296.0, two53, two53 + 2, -two53})
        this->check(number(v), static_cast<Wide>(v), std::to_string(v));
    // The largest doubles below the bounds of the 64-bit types, the bounds, the next ones.
    for (const double v : {two63, -two63, std::nextafter(two63, 0.0), std::nextafter(-two63, -inf),
                           two64, std::nextafter(two64, 0.0), std::nextafter(two64, inf)})
        this->check(number(v), static_cast<Wide>(v), std::to_string(v));
}

TYPED_TEST(IntegerDoor, RefusesDoublesThatAreNotIntegral) {
    this->assign(number(7));
    for (const double v : {0.5, -0.5, 1.5, 2147483646.5, 5e-324, inf, -inf, nan, 1e300, -1e300, 0.1,
                           4503599627370495.5}) {
        SCOPED_TRACE(v);
        this->refuses(number(v), "double", "varnix:wrongType");
    }
    EXPECT_EQ(this->store().kept.payload(), 7u);
}

TYPED_TEST(IntegerDoor, TakesLogicals) {
    this->accepts(Value::ofLogical(true), 1, "true");
    this->accepts(Value::ofLogical(false), 0, "false");
}

TYPED_TEST(IntegerDoor, TakesIntegersOfEveryClassInRange) {
    const auto signedBounds = [&]<class S>(Tag tag, S) {
        for (const S v :
             {std::numeric_limits<S>::min(), S{-1}, S{0}, S{1}, std::numeric_limits<S>::max()})
            this->check(Value::ofSigned(tag, v), Wide{v}, std::to_string(v));
    };
    const auto unsignedBounds = [&]<class U>(Tag tag, U) {
        for (const U v : {U{0}, U{1}, std::numeric_limits<U>::max()})
            this->check(Value::ofUnsigned(tag, v), Wide{v}, std::to_string(v));
    };
    signedBounds(Tag::Int8, std::int8_t{});
    signedBounds(Tag::Int16, std::int16_t{});
    signedBounds(Tag::Int32, std::int32_t{});
    signedBounds(Tag::Int64, std::int64_t{});
    unsignedBounds(Tag::UInt8, std::uint8_t{});
    unsignedBounds(Tag::UInt16, std::uint16_t{});
    unsignedBounds(Tag::UInt32, std::uint32_t{});
    unsignedBounds(Tag::UInt64, std::uint64_t{});
    for (const std::int64_t v :
         {std::int64_t{2147483647}, std::int64_t{2147483648}, std::int64_t{-2147483648},
          std::int64_t{-2147483649}, std::int64_t{4294967295}, std::int64_t{4294967296},
          (std::int64_t{1} << 53) + 1})
        this->check(Value::ofInt64(v), Wide{v}, std::to_string(v));
    for (const std::uint64_t v :
         {std::uint64_t{1} << 63, (std::uint64_t{1} << 63) - 1, (std::uint64_t{1} << 53) + 1})
        this->check(Value::ofUInt64(v), Wide{v}, std::to_string(v));
}

TYPED_TEST(IntegerDoor, RefusesTheRest) {
    this->assign(number(7));
    this->refusesEverythingButScalars();
    EXPECT_EQ(this->store().kept.payload(), 7u);
}

// ---- double

std::uint64_t bitsOf(double v) {
    return std::bit_cast<std::uint64_t>(v);
}

TEST_F(Door, DoubleTakesEveryDoubleAsItIs) {
    declare("double scalar");
    for (const double v : {0.0, -0.0, 0.1, -1.5, two53 + 2, 1e308, 5e-324, inf, -inf, nan}) {
        SCOPED_TRACE(v);
        ACCEPTS(number(v), bitsOf(v));
    }
}

TEST_F(Door, DoubleTakesLogicalsAndIntegers) {
    declare("double scalar");
    ACCEPTS(Value::ofLogical(true), bitsOf(1));
    ACCEPTS(Value::ofLogical(false), bitsOf(0));
    for (const Tag tag : {Tag::Int8, Tag::Int16, Tag::Int32, Tag::Int64})
        ACCEPTS(Value::ofSigned(tag, -128), bitsOf(-128));
    for (const Tag tag : {Tag::UInt8, Tag::UInt16, Tag::UInt32, Tag::UInt64})
        ACCEPTS(Value::ofUnsigned(tag, 255), bitsOf(255));
    // Beyond 2^53 the nearest double.
    ACCEPTS(Value::ofInt64((std::int64_t{1} << 53) + 1), bitsOf(two53));
    ACCEPTS(Value::ofInt64((std::int64_t{1} << 53) + 3), bitsOf(two53 + 4));
    ACCEPTS(Value::ofInt64(std::numeric_limits<std::int64_t>::min()), bitsOf(-two63));
    ACCEPTS(Value::ofUInt64(std::numeric_limits<std::uint64_t>::max()), bitsOf(two64));
}

TEST_F(Door, DoubleRefusesTheRest) {
    declare("double scalar");
    assign(number(2.5));
    refusesEverythingButScalars();
    EXPECT_EQ(store().kept.asDouble(), 2.5);
}

// ---- char

TEST_F(Door, CharTakesRowsAndEmptyTexts) {
    declare("char");
    const Value texts[] = {Value::text("row"),
                           Value::text("x"),
                           Value::text(""),
                           Value::text(std::string_view("with\0nul", 8)),
                           arrayOf(hvCHAR_CLASS, 0, 0),
                           arrayOf(hvCHAR_CLASS, 0, 1),
                           arrayOf(hvCHAR_CLASS, 5, 0),
                           arrayOf(hvCHAR_CLASS, 1, 1)};
    for (const Value& text : texts)
        ACCEPTS(text, reinterpret_cast<std::uintptr_t>(text.array()));
}

TEST_F(Door, CharRefusesTheRest) {
    declare("char");
    assign(Value::text("before"));
    REFUSES(Value());
    REFUSES(arrayOf(hvCHAR_CLASS, 2, 1));
    REFUSES(arrayOf(hvCHAR_CLASS, 2, 2));
    REFUSES(number(65));
    REFUSES(Value::ofLogical(true));
    REFUSES(Value::ofUnsigned(Tag::UInt8, 65));
    REFUSES(arrayOf(hvDOUBLE_CLASS, 0, 0));
    REFUSES(arrayOf(hvDOUBLE_CLASS, 1, 3));
    REFUSES(cellOf(Value::text("in a cell")));
    REFUSES(varnix::newStruct());
    REFUSES(varnix::newFunction(std::make_shared<SomeFunction>()));
    REFUSES(make("Thing"));
    EXPECT_EQ(Value::fromArray(hvShareArray(store().kept.asArray())).textView(), "before");
}

// ---- cell and any: everything goes through, the receiver checks

class AnythingDoor : public Door, public testing::WithParamInterface<const char*> {};

TEST_P(AnythingDoor, TakesArraysAsTheyAre) {
    declare(GetParam());
    const Value values[] = {cellOf(Value::text("text")),
                            Value::fromArray(hvCreateCellMatrix(0, 1)),
                            Value::text("text"),
                            arrayOf(hvCHAR_CLASS, 2, 2),
                            arrayOf(hvDOUBLE_CLASS, 0, 0),
                            arrayOf(hvINT16_CLASS, 3, 3),
                            varnix::newStruct(),
                            varnix::newFunction(std::make_shared<SomeFunction>()),
                            make("Thing"),
                            Value::fromArray(omCreateOBJSYSMatrix(1, 0, nameOf("Thing")))};
    for (const Value& value : values)
        ACCEPTS(value, reinterpret_cast<std::uintptr_t>(value.array()));
}

TEST_P(AnythingDoor, BoxesScalars) {
    declare(GetParam());
    const auto boxed = [&](const Value& value) -> const hvArray* {
        assign(value);
        const hvArray* const array = store().kept.asArray();
        EXPECT_EQ(array->rows, 1u);
        EXPECT_EQ(array->columns, 1u);
        EXPECT_EQ(array->refs, 1u); // the store's own: the box went with the call
        return array;
    };
    const hvArray* array = boxed(number(2.5));
    EXPECT_EQ(array->classID, hvDOUBLE_CLASS);
    EXPECT_EQ(*varnix::elements<double>(array), 2.5);
    array = boxed(Value::ofLogical(true));
    EXPECT_EQ(array->classID, hvLOGICAL_CLASS);
    EXPECT_TRUE(*varnix::elements<bool>(array));
    array = boxed(Value::ofSigned(Tag::Int16, -7));
    EXPECT_EQ(array->classID, hvINT16_CLASS);
    EXPECT_EQ(*varnix::elements<std::int16_t>(array), -7);
    array = boxed(Value::ofUInt64(~0ull));
    EXPECT_EQ(array->classID, hvUINT64_CLASS);
    EXPECT_EQ(*varnix::elements<std::uint64_t>(array), ~0ull);
}

TEST_P(AnythingDoor, TakesNothingAsNull) {
    declare(GetParam());
    ACCEPTS(Value(), 0);
}

INSTANTIATE_TEST_SUITE_P(CellAndAny, AnythingDoor, testing::Values("cell", "any"));

// ---- objects

TEST_F(Door, ObjectTakesOneOfTheClassOrOfADerivedOne) {
    declare("internal.objects.Thing");
    const Value thing = make("Thing");
    const Value derived = make("DerivedThing");
    ACCEPTS(thing, reinterpret_cast<std::uintptr_t>(thing.array()));
    ACCEPTS(derived, reinterpret_cast<std::uintptr_t>(derived.array()));
    store().keep({});
}

TEST_F(Door, ObjectTakesARowOfOneForTheObjectInIt) {
    declare("internal.objects.Thing");
    const Value thing = make("Thing");
    hvArray* const row = omCreateOBJSYSMatrix(1, 1, nameOf("Thing"));
    omSetArrayElement(row, 0, instanceOf(thing));
    ACCEPTS(Value::fromArray(row), reinterpret_cast<std::uintptr_t>(thing.array()));
    store().keep({});
}

TEST_F(Door, ObjectRefusesTheRest) {
    declare("internal.objects.DerivedThing");
    const Value derived = make("DerivedThing");
    assign(derived);
    REFUSES(make("Thing")); // a superclass is not enough
    REFUSES(make("OtherThing"));
    REFUSES(holder_);
    REFUSES(Value());
    REFUSES(number(1));
    REFUSES(Value::ofLogical(true));
    REFUSES(Value::text("internal.objects.DerivedThing"));
    REFUSES(arrayOf(hvDOUBLE_CLASS, 0, 0));
    REFUSES(cellOf(derived));
    REFUSES(varnix::newStruct());
    REFUSES(Value::fromArray(omCreateOBJSYSMatrix(0, 0, nameOf("DerivedThing"))));
    REFUSES(Value::fromArray(omCreateOBJSYSMatrix(1, 1, nameOf("DerivedThing")))); // an empty place
    hvArray* const pair = omCreateOBJSYSMatrix(1, 2, nameOf("DerivedThing"));
    omSetArrayElement(pair, 0, instanceOf(derived));
    omSetArrayElement(pair, 1, instanceOf(derived));
    REFUSES(Value::fromArray(pair));
    EXPECT_EQ(store().kept.asArray(), derived.array());
    store().keep({});
}

TEST_F(Door, ObjectRefusesADeletedOne) {
    declare("internal.objects.Thing");
    const Value thing = make("Thing");
    objsys::deleteInstance(instanceOf(thing));
    REFUSES_AS(thing, "varnix:invalidHandle");
    // A deleted object of another class is of the wrong type first.
    const Value other = make("OtherThing");
    objsys::deleteInstance(instanceOf(other));
    REFUSES(other);
}

TEST_F(Door, ObjectOfAClassThatIsNotThereTakesNothing) {
    declare("internal.objects.Missing");
    REFUSES(make("Thing"));
    REFUSES(number(1));
}

// ---- rows of objects

TEST_F(Door, VectorTakesArraysOfTheClassOrADerivedOne) {
    declare("internal.objects.Thing vector");
    const Value thing = make("Thing");
    const Value derived = make("DerivedThing");
    hvArray* const mixed = omCreateOBJSYSMatrix(1, 2, nameOf("Thing"));
    omSetArrayElement(mixed, 0, instanceOf(thing));
    omSetArrayElement(mixed, 1, instanceOf(derived));
    const Value row = Value::fromArray(mixed);
    const Value none = Value::fromArray(omCreateOBJSYSMatrix(1, 0, nameOf("Thing")));
    const Value noneDerived = Value::fromArray(omCreateOBJSYSMatrix(0, 0, nameOf("DerivedThing")));
    for (const Value& value : {row, none, noneDerived, thing, derived})
        ACCEPTS(value, reinterpret_cast<std::uintptr_t>(value.array()));
    store().keep({});
}

TEST_F(Door, VectorRefusesTheRest) {
    declare("internal.objects.DerivedThing vector");
    const Value derived = make("DerivedThing");
    assign(derived);
    REFUSES(make("Thing"));
    REFUSES(make("OtherThing"));
    REFUSES(Value::fromArray(omCreateOBJSYSMatrix(1, 0, nameOf("Thing"))));
    REFUSES(Value());
    REFUSES(number(1));
    REFUSES(Value::text("x"));
    REFUSES(arrayOf(hvDOUBLE_CLASS, 0, 0));
    REFUSES(cellOf(derived));
    EXPECT_EQ(store().kept.asArray(), derived.array());
    store().keep({});
}

TEST_F(Door, VectorRefusesDeletedObjects) {
    declare("internal.objects.Thing vector");
    const Value kept = make("Thing");
    const Value deleted = make("Thing");
    hvArray* const pair = omCreateOBJSYSMatrix(1, 2, nameOf("Thing"));
    omSetArrayElement(pair, 0, instanceOf(kept));
    omSetArrayElement(pair, 1, instanceOf(deleted));
    const Value row = Value::fromArray(pair);
    objsys::deleteInstance(instanceOf(deleted));
    REFUSES_AS(row, "varnix:invalidHandle");
    REFUSES_AS(deleted, "varnix:invalidHandle");
}

// ---- the public way in

// COSProperty::set takes a value of the declared type at once and converts every other one.
TEST_F(Door, PropertyConvertsTypedValues) {
    declare("int32 scalar");
    const COSProperty& held = *classOf("Holder").findProperty(COSNameID("Held"));
    COSInterface* const instance = instanceOf(holder_);
    held.set(instance, COSValue::ofInt32(-5, COSNameID("int32 scalar")));
    EXPECT_EQ(store().kept.asInt32(), -5);
    held.set(instance, COSValue::ofDouble(12, COSNameID("double scalar")));
    EXPECT_EQ(store().kept.asInt32(), 12);
    EXPECT_EQ(store().kept.type().str(), "int32 scalar");
    held.set(instance, COSValue::ofLogical(true, COSNameID("logical scalar")));
    EXPECT_EQ(store().kept.asInt32(), 1);
    EXPECT_EQ(identifierOf(
                  [&] { held.set(instance, COSValue::ofDouble(0.5, COSNameID("double scalar"))); }),
              "varnix:wrongType");
    EXPECT_EQ(identifierOf([&] {
                  held.set(instance, COSValue::ofUInt64(1ull << 40, COSNameID("uint64 scalar")));
              }),
              "varnix:wrongType");
    EXPECT_EQ(store().kept.asInt32(), 1);
}

TEST_F(Door, PropertyChecksTextsOfItsOwnType) {
    declare("char");
    const COSProperty& held = *classOf("Holder").findProperty(COSNameID("Held"));
    COSInterface* const instance = instanceOf(holder_);
    const COSNameID type("char");
    const Value row = Value::text("row");
    const Value matrix = arrayOf(hvCHAR_CLASS, 2, 2);
    const Value numbers = arrayOf(hvDOUBLE_CLASS, 1, 2);
    held.set(instance, COSValue::ofArray(row.array(), type));
    EXPECT_EQ(store().kept.asArray(), row.array());
    for (const Value& wrong : {matrix, numbers})
        EXPECT_EQ(identifierOf([&] { held.set(instance, COSValue::ofArray(wrong.array(), type)); }),
                  "varnix:wrongType");
    EXPECT_EQ(identifierOf([&] { held.set(instance, COSValue::ofArray(nullptr, type)); }),
              "varnix:wrongType");
    EXPECT_EQ(store().kept.asArray(), row.array());
}

TEST_F(Door, PropertyOfAnInvalidHandleIsNeitherReadNorWritten) {
    declare("double scalar");
    const COSProperty& held = *classOf("Holder").findProperty(COSNameID("Held"));
    objsys::deleteInstance(instanceOf(holder_));
    COSInterface* const instance = instanceOf(holder_);
    EXPECT_EQ(identifierOf([&] { (void)held.get(instance); }), "varnix:invalidHandle");
    EXPECT_EQ(identifierOf([&] { (void)varnix::getProperty(held, instance); }),
              "varnix:invalidHandle");
    EXPECT_EQ(identifierOf(
                  [&] { held.set(instance, COSValue::ofDouble(1, COSNameID("double scalar"))); }),
              "varnix:invalidHandle");
    EXPECT_EQ(identifierOf([&] { varnix::setProperty(held, instance, number(1)); }),
              "varnix:invalidHandle");
    EXPECT_EQ(identifierOf([&] { call(number(1)); }), "varnix:invalidHandle");
}

TEST_F(Door, ReadOnlyPropertyRefusesEveryValue) {
    add("Fixed", [](COSClassDefinition& definition) {
        definition.addMethod(storeConstructor("internal.objects.Fixed"));
        definition.addProperty(new StoreProperty("Held", "double scalar", true));
    });
    const Value handle = make("Fixed");
    const COSProperty& held = *classOf("Fixed").findProperty(COSNameID("Held"));
    EXPECT_EQ(identifierOf([&] { varnix::setProperty(held, instanceOf(handle), number(1)); }),
              "varnix:readOnlyProperty");
    EXPECT_EQ(identifierOf([&] {
                  held.set(instanceOf(handle), COSValue::ofDouble(1, COSNameID("double scalar")));
              }),
              "varnix:readOnlyProperty");
    EXPECT_EQ(storeOf(instanceOf(handle))->assignments, 0);
}

// ---- messages and the way back

TEST_F(Door, RefusalNamesThePlaceTheTypeAndTheValue) {
    declare("uint32 scalar");
    const auto messageOf = [](const auto& action) -> std::string {
        try {
            action();
        } catch (const objsys::COSError& error) {
            return error.message();
        }
        return "no error";
    };
    EXPECT_EQ(
        messageOf([&] { assign(Value::text("abc")); }),
        "property 'Held' of internal.objects.Holder takes a uint32 scalar, not a 1 by 3 char");
    // Some numbers are taken, so a refused one is named.
    EXPECT_EQ(messageOf([&] { call(number(-1)); }),
              "argument 1 of internal.objects.Holder.hold takes a uint32 scalar, not -1");
    EXPECT_EQ(messageOf([&] { assign(number(0.5)); }),
              "property 'Held' of internal.objects.Holder takes a uint32 scalar, not 0.5");
    EXPECT_EQ(messageOf([&] { assign(number(std::nan(""))); }),
              "property 'Held' of internal.objects.Holder takes a uint32 scalar, not nan");
    EXPECT_EQ(messageOf([&] { assign(Value()); }),
              "property 'Held' of internal.objects.Holder takes a uint32 scalar, not nothing");
}

TEST_F(Door, ValuesComeBackAsTheyAreTyped) {
    const auto back = [](COSValue value) { return varnix::fromDoor(value); };
    EXPECT_EQ(back(COSValue::ofLogical(true, COSNameID("logical scalar"))).tag(), Tag::Logical);
    EXPECT_EQ(back(COSValue::ofInt32(-2, COSNameID("int32 scalar"))).asSigned(), -2);
    EXPECT_EQ(back(COSValue::ofInt32(-2, COSNameID("int32 scalar"))).tag(), Tag::Int32);
    EXPECT_EQ(back(COSValue::ofUInt32(~0u, COSNameID("uint32 scalar"))).asUnsigned(), ~0u);
    EXPECT_EQ(back(COSValue::ofUInt32(~0u, COSNameID("uint32 scalar"))).tag(), Tag::UInt32);
    EXPECT_EQ(back(COSValue::ofInt64(-2, COSNameID("int64 scalar"))).tag(), Tag::Int64);
    EXPECT_EQ(back(COSValue::ofUInt64(~0ull, COSNameID("uint64 scalar"))).asUnsigned(), ~0ull);
    EXPECT_EQ(back(COSValue::ofUInt64(~0ull, COSNameID("uint64 scalar"))).tag(), Tag::UInt64);
    EXPECT_EQ(back(COSValue::ofDouble(0.1, COSNameID("double scalar"))).asDouble(), 0.1);
    EXPECT_TRUE(back(COSValue()).isUnset());
    EXPECT_EQ(back(COSValue::ofArray(hvCreateString("abc"), COSNameID("char"))).textView(), "abc");
    EXPECT_TRUE(back(COSValue::ofArray(nullptr, COSNameID("cell"))).isUnset());
}

TEST_F(Door, BorrowedValuesStayTheirOwners) {
    const Value text = Value::text("kept");
    {
        const Value borrowed =
            varnix::fromDoorBorrowed(COSValue::ofArray(text.array(), COSNameID("char")));
        EXPECT_EQ(text.array()->refs, 2u);
    }
    EXPECT_EQ(text.array()->refs, 1u);
    const Value owned =
        varnix::fromDoor(COSValue::ofArray(hvShareArray(text.array()), COSNameID("char")));
    EXPECT_EQ(text.array()->refs, 2u);
}

} // namespace
