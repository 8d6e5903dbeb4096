// Methods: results and arguments of every type, on objects and on the class, through the host's
// call and through the invoke operation alone.

#include "tests/sample.hpp"

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using namespace sample;
using testing::ElementsAre;

class Tool : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Tool";
    static void declareMembers(COSClassDefinition*) {}
};

class Workshop : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Workshop";

    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Workshop> declare(definition);
        declare.method<&Workshop::touch>("touch");
        declare.method<&Workshop::isOpen>("isOpen");
        declare.method<&Workshop::floor>("floor");
        declare.method<&Workshop::rooms>("rooms");
        declare.method<&Workshop::stock>("stock");
        declare.method<&Workshop::balance>("balance");
        declare.method<&Workshop::area>("area");
        declare.method<&Workshop::sign>("sign");
        declare.method<&Workshop::staff>("staff");
        declare.method<&Workshop::tool>("tool");
        declare.method<&Workshop::tools>("tools");
        declare.method<&Workshop::everything>("everything");
        declare.method<&Workshop::byReference>("byReference");
        declare.method<&Workshop::fails>("fails");
        declare.method<&Workshop::touch>("withMembership", MethodAttributes::ForceMembership());
        declare.method<&Workshop::touch>("withoutMembership",
                                         MethodAttributes(MethodAttributes::ForceMembership())
                                             .remove(MethodAttributes::ForceMembership()));
        declare.vectorMethod<&Workshop::countTouched>("countTouched");
        declare.vectorMethod<&Workshop::count>("count", MethodAttributes::ForceMembership());
        declare.staticMethod<&Workshop::open>("open");
        declare.staticMethod<&Workshop::sum>("sum");
        declare.staticMethod<&Workshop::spell>("spell");
        declare.staticMethod<&Workshop::common>("common");
        declare.staticMethod<&Workshop::open>("openByForce", MethodAttributes::ForceMembership());
    }

    void touch() { ++touched; }
    bool isOpen() const { return true; }
    std::int32_t floor() const { return -2; }
    std::uint32_t rooms() { return 4'000'000'000u; }
    std::uint64_t stock() const noexcept { return ~0ull; }
    std::int64_t balance() { return std::numeric_limits<std::int64_t>::min(); }
    double area() const { return 12.5; }
    std::string sign() const { return "We are open"; }
    const std::vector<std::string>& staff() const { return staff_; }
    Tool* tool() { return tool_; }
    std::vector<Tool*> tools() const {
        return tool_ ? std::vector<Tool*>{tool_} : std::vector<Tool*>{};
    }
    std::string everything(bool b, std::int32_t i, std::uint32_t u, std::uint64_t U, std::int64_t I,
                           double d, std::string s, std::vector<std::string> c) {
        std::string all = (b ? "true " : "false ") + std::to_string(i) + " " + std::to_string(u) +
                          " " + std::to_string(U) + " " + std::to_string(I) + " " +
                          std::to_string(d) + " " + s;
        for (const std::string& line : c)
            all += "/" + line;
        return all;
    }
    void byReference(const std::string& s, const std::vector<std::string>& c,
                     const double& d) const {
        noted = s + std::to_string(c.size()) + std::to_string(static_cast<int>(d));
    }
    std::string fails(const std::string& why) { throw std::runtime_error(why); }

    static std::int32_t countTouched(const std::vector<Workshop*>& row, double atLeast) {
        std::int32_t touched = 0;
        for (const Workshop* workshop : row)
            touched += workshop->touched >= atLeast ? 1 : 0;
        return touched;
    }
    static std::uint64_t count(std::vector<Workshop*> row) { return row.size(); }
    static void open() { ++opened; }
    static double sum(double a, double b) { return a + b; }
    static std::vector<std::string> spell(const std::string& word) {
        std::vector<std::string> letters;
        for (const char c : word)
            letters.emplace_back(1, c);
        return letters;
    }
    static Tool* common() noexcept { return commonTool; }

    int touched = 0;
    mutable std::string noted;
    std::vector<std::string> staff_{"ann", "bob"};
    Tool* tool_ = nullptr;
    static inline int opened = 0;
    static inline Tool* commonTool = nullptr;
};

class Methods : public testing::Test {
protected:
    Methods() : handle_(handleOf(&workshop_)) { published<Tool>(); }

    COSValue call(const char* name, const std::vector<COSValue>& arguments = {}) {
        return method(published<Workshop>(), name).callConverted(handle_.get(), arguments);
    }
    static COSValue callStatic(const char* name, const std::vector<COSValue>& arguments = {}) {
        return method(published<Workshop>(), name).callConverted(nullptr, arguments);
    }

    Workshop workshop_;
    Array handle_;
};

// ---- results

TEST_F(Methods, GiveResultsOfEveryType) {
    EXPECT_EQ(call("isOpen").payload(), 1u);
    EXPECT_EQ(call("isOpen").type().str(), "logical scalar");
    EXPECT_EQ(call("floor").asInt32(), -2);
    EXPECT_EQ(call("floor").type().str(), "int32 scalar");
    EXPECT_EQ(call("rooms").asUInt32(), 4'000'000'000u);
    EXPECT_EQ(call("rooms").type().str(), "uint32 scalar");
    EXPECT_EQ(call("stock").asUInt64(), ~0ull);
    EXPECT_EQ(call("stock").type().str(), "uint64 scalar");
    EXPECT_EQ(call("balance").asInt64(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(call("balance").type().str(), "int64 scalar");
    EXPECT_EQ(call("area").asDouble(), 12.5);
    EXPECT_EQ(call("area").type().str(), "double scalar");

    const COSValue sign = call("sign");
    EXPECT_EQ(sign.type().str(), "char");
    EXPECT_EQ(charactersOf(Array(sign.asArray()).get()), "We are open");

    const COSValue staff = call("staff");
    EXPECT_EQ(staff.type().str(), "cell");
    const Array cell(staff.asArray());
    EXPECT_EQ(hvGetM(cell.get()), 2u);
    EXPECT_EQ(hvGetN(cell.get()), 1u);
    EXPECT_EQ(charactersOf(hvGetCell(cell.get(), 1)), "bob");
}

TEST_F(Methods, GiveNothingWhenVoid) {
    const COSValue result = call("touch");
    EXPECT_EQ(result.type(), COSNameID::voidType());
    EXPECT_EQ(workshop_.touched, 1);
}

TEST_F(Methods, GiveObjects) {
    Tool tool;
    workshop_.tool_ = &tool;
    const COSValue one = call("tool");
    const Array handle(one.asArray());
    EXPECT_EQ(one.type().str(), "internal.sample.Tool");
    EXPECT_EQ(nativeIn<Tool>(handle), &tool);
    EXPECT_EQ(handle->refs, 1u);

    const COSValue row = call("tools");
    const Array tools(row.asArray());
    EXPECT_EQ(row.type().str(), "internal.sample.Tool vector");
    ASSERT_EQ(hvGetNumberOfElements(tools.get()), 1u);
    EXPECT_EQ(omGetArrayElement(tools.get(), 0), instanceIn(handle));
}

TEST_F(Methods, GiveEmptyArraysOfTheClassForNoObjects) {
    const COSValue none = call("tool");
    const Array empty(none.asArray());
    EXPECT_EQ(none.type().str(), "internal.sample.Tool");
    EXPECT_EQ(hvGetM(empty.get()), 0u);
    EXPECT_EQ(hvGetN(empty.get()), 0u);
    EXPECT_EQ(empty->objectClass, &published<Tool>());

    const Array row(call("tools").asArray());
    EXPECT_EQ(hvGetM(row.get()), 1u);
    EXPECT_EQ(hvGetN(row.get()), 0u);
}

// ---- arguments

TEST_F(Methods, TakeArgumentsOfEveryType) {
    const Array word = text("word");
    const Array cell = cellOf(1, 2, {hvCreateString("a"), hvCreateString("b")});
    const COSValue result = call("everything", {logical(true), number(-3), number(4e9),
                                                HostType<std::uint64_t>::pack(~0ull), number(-9e15),
                                                number(0.5), arrayValue(word), arrayValue(cell)});
    EXPECT_EQ(charactersOf(Array(result.asArray()).get()),
              "true -3 4000000000 18446744073709551615 -9000000000000000 0.500000 word/a/b");
    EXPECT_EQ(word->refs, 1u);
    EXPECT_EQ(cell->refs, 1u);
}

TEST_F(Methods, TakeArgumentsByReference) {
    const Array word = text("x");
    const Array cell = cellOf(3, 1, {hvCreateString(""), hvCreateString(""), hvCreateString("")});
    (void)call("byReference", {arrayValue(word), arrayValue(cell), number(8)});
    EXPECT_EQ(workshop_.noted, "x38");
}

TEST_F(Methods, RefuseWrongArguments) {
    const Array word = text("word");
    const Array numbers = cellOf(2, 1, {hvCreateString("a"), hvCreateDoubleScalar(1)});
    EXPECT_EQ(errorOf([&] { (void)call("byReference", {arrayValue(word)}); }),
              "varnix:notEnoughInputs");
    EXPECT_EQ(errorOf([&] { (void)call("touch", {number(1)}); }), "varnix:tooManyInputs");
    EXPECT_EQ(errorOf([&] {
                  (void)call("byReference", {number(1), arrayValue(word), number(1)});
              }),
              "varnix:wrongType");
    EXPECT_EQ(errorOf([&] {
                  (void)call("byReference", {arrayValue(word), arrayValue(word), number(1)});
              }),
              "varnix:mustBeCellArray");
    EXPECT_EQ(errorOf([&] {
                  (void)call("byReference", {arrayValue(word), arrayValue(numbers), number(1)});
              }),
              "varnix:mustBeString");
    EXPECT_EQ(workshop_.noted, "");
}

TEST_F(Methods, PassErrorsOnAndGiveNoResultThen) {
    const Array why = text("because");
    EXPECT_THROW((void)call("fails", {arrayValue(why)}), std::runtime_error);

    const COSMethod& fails = method(published<Workshop>(), "fails");
    const COSValue inputs[] = {COSValue::ofArray(handle_.get(), HostType<Workshop*>::name()),
                               COSValue::ofArray(why.get(), HostType<std::string>::name())};
    COSValue output = number(42);
    EXPECT_THROW(fails.info->invoke(1, &output, inputs), std::runtime_error);
    EXPECT_EQ(output.asDouble(), 42);
}

// ---- the object

TEST_F(Methods, RefuseAnEmptyFirstArgument) {
    const Array none(omCreateOBJSYSMatrix(0, 0, COSNameID(Workshop::scriptClassName)));
    const Array row(omCreateOBJSYSMatrix(1, 0, COSNameID(Workshop::scriptClassName)));
    const Array absent(omCreateOBJSYSMatrix(1, 1, COSNameID(Workshop::scriptClassName)));
    for (const Array* self : {&none, &row, &absent}) {
        const COSMethod& touch = method(published<Workshop>(), "touch");
        EXPECT_EQ(errorOf([&] { (void)touch.callConverted(self->get(), {}); }), "varnix:nullSelf");
        const COSValue input = COSValue::ofArray(self->get(), HostType<Workshop*>::name());
        COSValue output;
        EXPECT_EQ(errorOf([&] { touch.info->invoke(1, &output, &input); }), "varnix:nullSelf");
    }
    EXPECT_EQ(workshop_.touched, 0);
}

TEST_F(Methods, RefuseNoObjectAtAll) {
    EXPECT_EQ(errorOf([&] { (void)callStatic("touch"); }), "varnix:nullSelf");
    const COSValue nothing = COSValue::ofArray(nullptr, HostType<Workshop*>::name());
    COSValue output;
    const COSMethod& touch = method(published<Workshop>(), "touch");
    EXPECT_EQ(errorOf([&] { touch.info->invoke(1, &output, &nothing); }), "varnix:nullSelf");
}

TEST_F(Methods, RefuseAnObjectOfAnotherClass) {
    Tool tool;
    const Array other = handleOf(&tool);
    const COSMethod& touch = method(published<Workshop>(), "touch");
    EXPECT_EQ(errorOf([&] { (void)touch.callConverted(other.get(), {}); }), "varnix:nullSelf");
}

TEST_F(Methods, RefuseAnObjectThatDied) {
    BindingRegistry::retract(&workshop_);
    EXPECT_EQ(errorOf([&] { (void)call("touch"); }), "varnix:invalidHandle");
    const COSValue dead = COSValue::ofArray(handle_.get(), HostType<Workshop*>::name());
    COSValue output;
    const COSMethod& touch = method(published<Workshop>(), "touch");
    EXPECT_EQ(errorOf([&] { touch.info->invoke(1, &output, &dead); }), "varnix:nullSelf");
}

// Element 0 of the first argument is the object, whatever else stands in the array.
TEST_F(Methods, TakeTheFirstElementOfTheFirstArgument) {
    Workshop second;
    const Array secondHandle = handleOf(&second);
    const Array row(omCreateOBJSYSMatrix(1, 2, COSNameID(Workshop::scriptClassName)));
    omSetArrayElement(row.get(), 0, instanceIn(secondHandle));
    omSetArrayElement(row.get(), 1, instanceIn(handle_));
    const COSValue input = COSValue::ofArray(row.get(), HostType<Workshop*>::name());
    COSValue output;
    method(published<Workshop>(), "touch").info->invoke(1, &output, &input);
    EXPECT_EQ(second.touched, 1);
    EXPECT_EQ(workshop_.touched, 0);
}

// ---- outputs

TEST_F(Methods, GiveAtLeastOneOutput) {
    const COSValue input = COSValue::ofArray(handle_.get(), HostType<Workshop*>::name());
    for (const char* name : {"area", "touch", "open"}) {
        const COSMethod& any = method(published<Workshop>(), name);
        for (const int requested : {0, 1, 2, 5}) {
            COSValue outputs[5];
            EXPECT_EQ(any.info->invoke(requested, outputs, &input), requested == 0 ? 1 : requested);
        }
    }
}

TEST_F(Methods, StoreAResultInOutputZeroOnly) {
    const COSValue input = COSValue::ofArray(handle_.get(), HostType<Workshop*>::name());
    COSValue outputs[2] = {logical(true), logical(true)};
    method(published<Workshop>(), "touch").info->invoke(2, outputs, &input);
    EXPECT_EQ(outputs[0].type().str(), "logical scalar"); // void: left as it was
    method(published<Workshop>(), "area").info->invoke(2, outputs, &input);
    EXPECT_EQ(outputs[0].asDouble(), 12.5);
    EXPECT_EQ(outputs[1].type().str(), "logical scalar");
}

// ---- static methods

TEST_F(Methods, OfTheClassNeedNoObject) {
    Workshop::opened = 0;
    EXPECT_EQ(callStatic("open").type(), COSNameID::voidType());
    EXPECT_EQ(Workshop::opened, 1);
    EXPECT_EQ(callStatic("sum", {number(1.25), number(2)}).asDouble(), 3.25);

    const Array word = text("abc");
    const Array letters(callStatic("spell", {arrayValue(word)}).asArray());
    EXPECT_EQ(hvGetM(letters.get()), 3u);
    EXPECT_EQ(charactersOf(hvGetCell(letters.get(), 2)), "c");

    Tool tool;
    Workshop::commonTool = &tool;
    const Array common(callStatic("common").asArray());
    EXPECT_EQ(nativeIn<Tool>(common), &tool);
    Workshop::commonTool = nullptr;
    const Array none(callStatic("common").asArray());
    EXPECT_EQ(hvGetNumberOfElements(none.get()), 0u);
}

TEST_F(Methods, OfTheClassCheckTheirArguments) {
    EXPECT_EQ(errorOf([&] { (void)callStatic("sum", {number(1)}); }), "varnix:notEnoughInputs");
    const Array word = text("1");
    EXPECT_EQ(errorOf([&] {
                  (void)callStatic("sum", {number(1), arrayValue(word)});
              }),
              "varnix:wrongType");
    EXPECT_EQ(errorOf([&] { (void)callStatic("spell", {number(1)}); }), "varnix:wrongType");
}

// ---- methods on rows of objects

TEST_F(Methods, OfARowTakeItsObjectsInOrder) {
    Workshop second;
    second.touched = 3;
    const Array secondHandle = handleOf(&second);
    const Array row(omCreateOBJSYSMatrix(1, 3, COSNameID(Workshop::scriptClassName)));
    omSetArrayElement(row.get(), 0, instanceIn(handle_));
    omSetArrayElement(row.get(), 1, instanceIn(secondHandle));
    omSetArrayElement(row.get(), 2, instanceIn(secondHandle));
    const COSMethod& countTouched = method(published<Workshop>(), "countTouched");
    const COSValue three = number(3);
    EXPECT_EQ(countTouched.callConverted(row.get(), std::span(&three, 1)).asInt32(), 2);
    const COSMethod& count = method(published<Workshop>(), "count");
    EXPECT_EQ(count.callConverted(row.get(), {}).asUInt64(), 3u);
    EXPECT_EQ(count.callConverted(handle_.get(), {}).asUInt64(), 1u);
    EXPECT_EQ(count.info->getSignature().self.str(), "internal.sample.Workshop vector");
    EXPECT_TRUE(count.info->getSignature().hasSelf);
    EXPECT_EQ(count.info->getAttributes(), MethodAttributes::ForceMembership());
}

TEST_F(Methods, OfARowTakeAnEmptyOneToo) {
    const Array none(omCreateOBJSYSMatrix(1, 0, COSNameID(Workshop::scriptClassName)));
    EXPECT_EQ(method(published<Workshop>(), "count").callConverted(none.get(), {}).asUInt64(), 0u);
}

TEST_F(Methods, OfARowRefuseWhatIsNoObjectOfTheirs) {
    const COSMethod& count = method(published<Workshop>(), "count");
    const auto refusal = [&](const Array& self) {
        return errorOf([&] { (void)count.callConverted(self.get(), {}); });
    };
    Tool tool;
    EXPECT_EQ(refusal(handleOf(&tool)), "varnix:wrongType");
    EXPECT_EQ(refusal(text("row")), "varnix:wrongType");
    const Array gap(omCreateOBJSYSMatrix(1, 2, COSNameID(Workshop::scriptClassName)));
    omSetArrayElement(gap.get(), 1, instanceIn(handle_));
    EXPECT_EQ(refusal(gap), "varnix:nullSelf");
    BindingRegistry::retract(&workshop_);
    omSetArrayElement(gap.get(), 0, instanceIn(handle_));
    EXPECT_EQ(refusal(gap), "varnix:invalidHandle");
}

// ---- what methods say about themselves

TEST_F(Methods, DescribeTheirSignature) {
    const COSMethod& everything = method(published<Workshop>(), "everything");
    const objsys::COSMethodSignature& signature = everything.info->getSignature();
    EXPECT_EQ(signature.text, "");
    EXPECT_EQ(signature.result.str(), "char");
    EXPECT_TRUE(signature.hasSelf);
    EXPECT_EQ(signature.self.str(), "internal.sample.Workshop");
    std::vector<std::string> arguments;
    for (const COSNameID argument : signature.arguments)
        arguments.push_back(argument.str());
    EXPECT_THAT(arguments,
                ElementsAre("logical scalar", "int32 scalar", "uint32 scalar", "uint64 scalar",
                            "int64 scalar", "double scalar", "char", "cell"));
    EXPECT_FALSE(everything.info->isConstructor());
    EXPECT_STREQ(everything.info->getDescription(), "");

    EXPECT_EQ(method(published<Workshop>(), "touch").info->getSignature().result.str(), "void");
    const auto& sum = method(published<Workshop>(), "sum").info->getSignature();
    EXPECT_FALSE(sum.hasSelf);
    EXPECT_EQ(sum.arguments.size(), 2u);
    EXPECT_EQ(sum.result.str(), "double scalar");
}

TEST_F(Methods, DescribeTheirAttributes) {
    const auto attributes = [](const char* name) {
        return method(published<Workshop>(), name).info->getAttributes();
    };
    const auto membership = MethodAttributes::ForceMembership();
    const auto isStatic = MethodAttributes::Static();
    EXPECT_EQ(attributes("touch"), MethodAttributes());
    EXPECT_EQ(attributes("withMembership"), membership);
    EXPECT_EQ(attributes("withoutMembership"), MethodAttributes());
    EXPECT_EQ(attributes("open"), isStatic);
    EXPECT_TRUE(attributes("openByForce").has(isStatic));
    EXPECT_TRUE(attributes("openByForce").has(membership));
    EXPECT_TRUE(method(published<Workshop>(), "open").isStatic());
    EXPECT_FALSE(method(published<Workshop>(), "withMembership").isStatic());
}

TEST(MethodAttributes, AreASet) {
    using objsys::factory::MethodAttributes;
    MethodAttributes set;
    EXPECT_FALSE(set.has(MethodAttributes::Static()));
    set.add(MethodAttributes::Static()).add(MethodAttributes::ForceMembership());
    EXPECT_TRUE(set.has(MethodAttributes::Static()));
    set.remove(MethodAttributes::ForceMembership()).remove(MethodAttributes::ForceMembership());
    EXPECT_EQ(set, MethodAttributes::Static());
}

// A method that a base declares is called on objects of derived native types.
class Forge : public Workshop {
public:
    static constexpr const char* scriptClassName = "internal.sample.Forge";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Forge> declare(definition);
        declare.superclass("internal.sample.Workshop");
    }
};

TEST(InheritedMethod, IsCalledOnTheDerivedObject) {
    published<Workshop>();
    Forge forge;
    Workshop workshop;
    const Array forgeHandle = handleOf(&forge);
    const Array workshopHandle = handleOf(&workshop);
    const COSMethod& touch = method(published<Forge>(), "touch");
    EXPECT_EQ(touch.declaringClass, &published<Workshop>());
    (void)touch.callConverted(forgeHandle.get(), {});
    (void)touch.callConverted(workshopHandle.get(), {});
    (void)touch.callConverted(forgeHandle.get(), {});
    EXPECT_EQ(forge.touched, 2);
    EXPECT_EQ(workshop.touched, 1);
}

} // namespace
