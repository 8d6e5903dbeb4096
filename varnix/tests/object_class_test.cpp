// Script classes: how they are defined from their descriptions, what goes wrong on the way, how
// members are found, and construction.

#include "tests/object_sample.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using namespace sample;
using testing::ElementsAre;

class ClassTest : public ObjectTest {
protected:
    static std::vector<std::string> propertyNames(const char* cls) {
        std::vector<std::string> names;
        for (const COSProperty& property : classOf(cls).properties())
            names.push_back(property.name.str());
        return names;
    }
    static std::vector<std::string> methodNames(const char* cls) {
        std::vector<std::string> names;
        for (const objsys::COSMethod& method : classOf(cls).methods())
            names.push_back(method.name.str());
        return names;
    }
    /// A method of class `cls` without arguments that answers with a number.
    static FunctionMethod* answering(const char* name, const char* cls, double answer) {
        return new FunctionMethod(name, signature("double scalar", cls),
                                  [answer](int, COSValue* outputs, const COSValue*) {
                                      outputs[0] =
                                          COSValue::ofDouble(answer, COSNameID("double scalar"));
                                      return 1;
                                  });
    }
    static double answer(const Value& object, const char* cls, const char* method) {
        return varnix::callMethod(*classOf(cls).findMethod(COSNameID(method)), object, {})
            .asDouble();
    }
    static void declareBase(COSClassDefinition& definition) {
        definition.addMethod(storeConstructor("internal.objects.Base"));
        definition.addProperty(new StoreProperty("First", "double scalar"));
        definition.addProperty(new StoreProperty("Second", "char"));
        definition.addMethod(answering("hello", "internal.objects.Base", 1));
        definition.addMethod(answering("other", "internal.objects.Base", 2));
    }
};

TEST_F(ClassTest, SinkNamesTheClass) {
    std::string shortName;
    std::string full;
    add("Named", [&](COSClassDefinition& definition) {
        shortName = definition.getClassName();
        full = definition.getFullClassName().str();
    });
    (void)classOf("Named").properties();
    EXPECT_EQ(shortName, "Named");
    EXPECT_EQ(full, "internal.objects.Named");
}

TEST_F(ClassTest, MembersComeInTheOrderOfDeclaration) {
    add("Base", declareBase);
    EXPECT_THAT(propertyNames("Base"), ElementsAre("First", "Second"));
    EXPECT_THAT(methodNames("Base"), ElementsAre("hello", "other")); // without the constructor
    EXPECT_EQ(classOf("Base").constructors().size(), 1u);
}

TEST_F(ClassTest, InheritedMembersComeFirst) {
    add("Base", declareBase);
    add("Derived", [](COSClassDefinition& definition) {
        definition.addSuperclass(COSNameID("internal.objects.Base"), 1, 0, 1);
        definition.addProperty(new StoreProperty("Third", "cell"));
        definition.addMethod(answering("third", "internal.objects.Derived", 3));
    });
    EXPECT_THAT(propertyNames("Derived"), ElementsAre("First", "Second", "Third"));
    EXPECT_THAT(methodNames("Derived"), ElementsAre("hello", "other", "third"));
    EXPECT_EQ(classOf("Derived").findProperty(COSNameID("First"))->declaringClass,
              &classOf("Base"));
    EXPECT_TRUE(classOf("Derived").constructors().empty()); // constructors are not inherited
    EXPECT_THAT(classOf("Derived").superclasses(), ElementsAre(&classOf("Base")));
}

TEST_F(ClassTest, OwnMembersReplaceInheritedOnesInTheirPlace) {
    add("Base", declareBase);
    add("Derived", [](COSClassDefinition& definition) {
        definition.addSuperclass(COSNameID("internal.objects.Base"), 1, 0, 1);
        definition.addMethod(storeConstructor("internal.objects.Derived"));
        definition.addProperty(new StoreProperty("First", "cell"));
        definition.addMethod(answering("hello", "internal.objects.Derived", 10));
    });
    EXPECT_THAT(propertyNames("Derived"), ElementsAre("First", "Second"));
    EXPECT_EQ(classOf("Derived").findProperty(COSNameID("First"))->dataType.str(), "cell");
    EXPECT_EQ(classOf("Base").findProperty(COSNameID("First"))->dataType.str(), "double scalar");
    const Value derived = make("Derived");
    EXPECT_EQ(answer(derived, "Derived", "hello"), 10);
    EXPECT_EQ(answer(derived, "Derived", "other"), 2);
    EXPECT_EQ(answer(make("Base"), "Base", "hello"), 1);
}

TEST_F(ClassTest, HiddenSuperclassGivesItsKindButNotItsMembers) {
    add("Base", declareBase);
    add("Derived", [](COSClassDefinition& definition) {
        definition.addSuperclass(COSNameID("internal.objects.Base"), 0, 0, 1);
    });
    EXPECT_TRUE(propertyNames("Derived").empty());
    EXPECT_TRUE(classOf("Derived").isA(&classOf("Base")));
}

TEST_F(ClassTest, SharedAncestorIsInheritedOnce) {
    add("Base", declareBase);
    for (const char* name : {"Left", "Right"})
        add(name, [](COSClassDefinition& definition) {
            definition.addSuperclass(COSNameID("internal.objects.Base"), 1, 0, 1);
        });
    add("Both", [](COSClassDefinition& definition) {
        definition.addSuperclass(COSNameID("internal.objects.Left"), 1, 0, 1);
        definition.addSuperclass(COSNameID("internal.objects.Right"), 1, 0, 1);
    });
    EXPECT_THAT(propertyNames("Both"), ElementsAre("First", "Second"));
    EXPECT_TRUE(classOf("Both").isA(&classOf("Base")));
    EXPECT_TRUE(classOf("Both").isA(&classOf("Right")));
    EXPECT_FALSE(classOf("Left").isA(&classOf("Right")));
    EXPECT_FALSE(classOf("Base").isA(&classOf("Both")));
}

TEST_F(ClassTest, MembersAreFoundByTheirExactName) {
    add("Base", declareBase);
    COSClass& cls = classOf("Base");
    ASSERT_NE(cls.findProperty(COSNameID("First")), nullptr);
    EXPECT_EQ(cls.findProperty(COSNameID("first")), nullptr);
    EXPECT_EQ(cls.findProperty(COSNameID("")), nullptr);
    EXPECT_EQ(cls.findProperty(COSNameID("hello")), nullptr);
    ASSERT_NE(cls.findMethod(COSNameID("hello")), nullptr);
    EXPECT_EQ(cls.findMethod(COSNameID("First")), nullptr);
    EXPECT_EQ(cls.findMethod(COSNameID("Base")), nullptr); // the constructor is no method
}

// ---- definitions that fail

/// Defining fails with that error, leaves nothing behind, and succeeds once the cause is gone.
class FailingDefinition : public ClassTest {
protected:
    void expectFailure(const char* identifier,
                       const std::function<void(COSClassDefinition&)>& declare) {
        const int properties = StoreProperty::living;
        const int methods = FunctionMethod::living;
        SampleInfo& info = add("Failing", declare);
        COSClass& cls = classOf("Failing");
        for (int attempt = 1; attempt <= 2; ++attempt) {
            EXPECT_EQ(identifierOf([&] { (void)cls.properties(); }), identifier);
            EXPECT_EQ(info.defined, attempt);
            EXPECT_EQ(StoreProperty::living, properties); // what was added is released
            EXPECT_EQ(FunctionMethod::living, methods);
        }
        EXPECT_EQ(identifierOf([&] { (void)cls.construct({}); }), identifier);
        info.define = [](COSClassDefinition& definition) {
            definition.addMethod(storeConstructor("internal.objects.Failing"));
            definition.addProperty(new StoreProperty("Sound", "char"));
        };
        EXPECT_THAT(propertyNames("Failing"), ElementsAre("Sound"));
        EXPECT_TRUE(instanceOf(make("Failing"))->isValid());
        EXPECT_TRUE(cls.superclasses().empty());
    }
};

TEST_F(FailingDefinition, TwoPropertiesOfOneName) {
    expectFailure("varnix:duplicateMember", [](COSClassDefinition& definition) {
        definition.addProperty(new StoreProperty("Same", "char"));
        definition.addProperty(new StoreProperty("Between", "char"));
        definition.addProperty(new StoreProperty("Same", "cell"));
    });
}

TEST_F(FailingDefinition, TwoMethodsOfOneName) {
    expectFailure("varnix:duplicateMember", [](COSClassDefinition& definition) {
        definition.addMethod(answering("same", "internal.objects.Failing", 1));
        definition.addMethod(answering("same", "internal.objects.Failing", 2));
    });
}

TEST_F(FailingDefinition, TwoPropertiesThatReplaceOneInherited) {
    add("Base", declareBase);
    (void)classOf("Base").properties();
    expectFailure("varnix:duplicateMember", [](COSClassDefinition& definition) {
        definition.addSuperclass(COSNameID("internal.objects.Base"), 1, 0, 1);
        definition.addProperty(new StoreProperty("First", "char"));
        definition.addProperty(new StoreProperty("First", "char"));
    });
}

TEST_F(FailingDefinition, TwoConstructorsOfOneCount) {
    expectFailure("varnix:duplicateMember", [](COSClassDefinition& definition) {
        definition.addMethod(storeConstructor("internal.objects.Failing", {"char"}));
        definition.addMethod(storeConstructor("internal.objects.Failing"));
        definition.addMethod(storeConstructor("internal.objects.Failing", {"double scalar"}));
    });
}

TEST_F(FailingDefinition, NullMethod) {
    expectFailure("varnix:outOfMemory", [](COSClassDefinition& definition) {
        definition.addProperty(new StoreProperty("First", "char"));
        definition.addMethod(nullptr);
        definition.addProperty(new StoreProperty("Second", "char"));
    });
}

TEST_F(FailingDefinition, NullProperty) {
    expectFailure("varnix:outOfMemory", [](COSClassDefinition& definition) {
        definition.addProperty(nullptr);
        definition.addMethod(answering("hello", "internal.objects.Failing", 1));
    });
}

TEST_F(FailingDefinition, UnknownSuperclass) {
    expectFailure("varnix:undefined", [](COSClassDefinition& definition) {
        definition.addProperty(new StoreProperty("First", "char"));
        definition.addSuperclass(COSNameID("internal.objects.Missing"), 1, 0, 1);
    });
}

TEST_F(FailingDefinition, SealedSuperclass) {
    add("Sealed").sealed = true;
    expectFailure("varnix:sealed", [](COSClassDefinition& definition) {
        definition.addSuperclass(COSNameID("internal.objects.Sealed"), 1, 0, 1);
    });
}

TEST_F(FailingDefinition, ItselfAsSuperclass) {
    expectFailure("varnix:recursiveDefinition", [](COSClassDefinition& definition) {
        definition.addSuperclass(COSNameID("internal.objects.Failing"), 1, 0, 1);
    });
}

TEST_F(FailingDefinition, TwoClassesAsEachOthersSuperclass) {
    add("Mutual", [](COSClassDefinition& definition) {
        definition.addSuperclass(COSNameID("internal.objects.Failing"), 1, 0, 1);
    });
    expectFailure("varnix:recursiveDefinition", [](COSClassDefinition& definition) {
        definition.addSuperclass(COSNameID("internal.objects.Mutual"), 1, 0, 1);
    });
    EXPECT_TRUE(classOf("Mutual").isA(&classOf("Failing")));
}

TEST_F(FailingDefinition, SuperclassThatFails) {
    SampleInfo& super =
        add("Super", [](COSClassDefinition&) { objsys::raise("test:super", "no"); });
    expectFailure("test:super", [](COSClassDefinition& definition) {
        definition.addSuperclass(COSNameID("internal.objects.Super"), 1, 0, 1);
    });
    super.define = {};
    EXPECT_TRUE(classOf("Super").properties().empty());
}

TEST_F(FailingDefinition, ErrorOfTheModule) {
    expectFailure("test:definition", [](COSClassDefinition& definition) {
        definition.addMethod(answering("hello", "internal.objects.Failing", 1));
        objsys::raise("test:definition", "not now");
    });
}

TEST_F(FailingDefinition, ForeignException) {
    SampleInfo& info = add("Foreign", [](COSClassDefinition& definition) {
        definition.addProperty(new StoreProperty("First", "char"));
        throw std::runtime_error("not one of the host's");
    });
    COSClass& cls = classOf("Foreign");
    EXPECT_THROW((void)cls.properties(), std::runtime_error);
    info.define = {};
    EXPECT_TRUE(cls.properties().empty());
}

// ---- construction

class Construction : public ClassTest {};

TEST_F(Construction, IsChosenByTheNumberOfArguments) {
    add("Many", [](COSClassDefinition& definition) {
        definition.addMethod(storeConstructor("internal.objects.Many", {"char"}));
        definition.addMethod(storeConstructor("internal.objects.Many"));
        definition.addMethod(
            storeConstructor("internal.objects.Many", {"char", "char", "int32 scalar"}));
    });
    const auto kept = [&](const std::vector<Value>& arguments) {
        return storeOf(instanceOf(make("Many", arguments)))->kept.type().str();
    };
    EXPECT_EQ(kept({}), "void");
    EXPECT_EQ(kept({Value::text("a")}), "char");
    EXPECT_EQ(kept({Value::text("a"), Value::text("b"), Value::ofDouble(3)}), "int32 scalar");
    EXPECT_EQ(identifierOf([&] {
                  (void)kept({Value::text("a"), Value::text("b")});
              }),
              "varnix:notEnoughInputs");
    EXPECT_EQ(identifierOf([&] { (void)kept(std::vector<Value>(4, Value::text("a"))); }),
              "varnix:tooManyInputs");
    EXPECT_EQ(identifierOf([&] { (void)kept({Value::ofDouble(1)}); }), "varnix:wrongType");
}

TEST_F(Construction, NeedsAConstructor) {
    add("Without", [](COSClassDefinition& definition) {
        definition.addProperty(new StoreProperty("First", "char"));
    });
    EXPECT_EQ(identifierOf([&] { (void)make("Without"); }), "varnix:notConstructible");
}

TEST_F(Construction, NeedsAClassThatIsNotAbstract) {
    addConstructible("Abstract").abstract = true;
    EXPECT_EQ(identifierOf([&] { (void)make("Abstract"); }), "varnix:notConstructible");
    EXPECT_EQ(identifierOf([] {
                  (void)COSClass::get(COSNameID("varnix.mixin.Heterogeneous")).construct({});
              }),
              "varnix:notConstructible");
}

TEST_F(Construction, GivesOneReference) {
    addConstructible("Plain");
    hvArray* const handle = classOf("Plain").construct({});
    EXPECT_EQ(handle->refs, 1u);
    hvDestroyArray(handle);
    EXPECT_EQ(Store::living, 0);
}

TEST_F(Construction, ThatBindsNothingFails) {
    SampleInfo& info = add("Idle", [](COSClassDefinition& definition) {
        definition.addMethod(new FunctionMethod(
            "Idle", signature("internal.objects.Idle", nullptr),
            [](int, COSValue*, const COSValue*) { return 1; }, true));
    });
    EXPECT_EQ(identifierOf([&] { (void)make("Idle"); }), "varnix:notConstructible");
    EXPECT_EQ(info.destroyed, 0);
}

TEST_F(Construction, ThatRaisesAnErrorLeavesNothingBehind) {
    SampleInfo& info = add("Raising", [](COSClassDefinition& definition) {
        definition.addMethod(new FunctionMethod(
            "Raising", signature("internal.objects.Raising", nullptr),
            [](int, COSValue*, const COSValue*) -> int { objsys::raise("test:raised", "no"); },
            true));
        definition.addMethod(new FunctionMethod(
            "Raising", signature("internal.objects.Raising", nullptr, {"char"}),
            [](int, COSValue* outputs, const COSValue*) -> int {
                bindStore(outputs[0]);
                objsys::raise("test:late", "after it was bound");
            },
            true));
    });
    EXPECT_EQ(identifierOf([&] { (void)make("Raising"); }), "test:raised");
    EXPECT_EQ(info.destroyed, 0);
    EXPECT_EQ(identifierOf([&] { (void)make("Raising", {Value::text("")}); }), "test:late");
    EXPECT_EQ(info.destroyed, 1);
    EXPECT_EQ(Store::living, 0);
}

// ---- calls

class Calls : public ClassTest {
protected:
    Calls() {
        add("Callee", [](COSClassDefinition& definition) {
            definition.addMethod(storeConstructor("internal.objects.Callee"));
            definition.addMethod(new FunctionMethod(
                "sum",
                signature("double scalar", "internal.objects.Callee",
                          {"double scalar", "double scalar", "double scalar", "double scalar",
                           "double scalar"}),
                [](int, COSValue* outputs, const COSValue* inputs) {
                    double sum = 0;
                    for (int i = 1; i <= 5; ++i)
                        sum += inputs[i].asDouble();
                    outputs[0] = COSValue::ofDouble(sum, COSNameID("double scalar"));
                    return 1;
                }));
            definition.addMethod(new FunctionMethod(
                "echo", signature("any", nullptr, {"any"}),
                [](int, COSValue* outputs, const COSValue* inputs) {
                    outputs[0] =
                        COSValue::ofArray(hvShareArray(inputs[0].asArray()), COSNameID("any"));
                    return 1;
                }));
            definition.addMethod(new FunctionMethod(
                "count", signature("double scalar", "internal.objects.Callee vector"),
                [](int, COSValue* outputs, const COSValue* inputs) {
                    const auto n = static_cast<double>(hvGetNumberOfElements(inputs[0].asArray()));
                    outputs[0] = COSValue::ofDouble(n, COSNameID("double scalar"));
                    return 1;
                }));
            definition.addMethod(answering("hello", "internal.objects.Callee", 1));
        });
    }
    static const objsys::COSMethod& find(const char* name) {
        return *classOf("Callee").findMethod(COSNameID(name));
    }
};

TEST_F(Calls, TakeManyArguments) {
    const Value callee = make("Callee");
    const std::vector<Value> five(5, Value::ofDouble(1.5));
    EXPECT_EQ(varnix::callMethod(find("sum"), callee, five).asDouble(), 7.5);
    const std::vector<Value> four(4, Value::ofDouble(1));
    EXPECT_EQ(identifierOf([&] { (void)varnix::callMethod(find("sum"), callee, four); }),
              "varnix:notEnoughInputs");
    const std::vector<Value> six(6, Value::ofDouble(1));
    EXPECT_EQ(identifierOf([&] { (void)varnix::callMethod(find("sum"), callee, six); }),
              "varnix:tooManyInputs");
}

TEST_F(Calls, NeedOneObject) {
    const auto call = [](const Value& self) {
        return identifierOf([&] { (void)varnix::callMethod(find("hello"), self, {}); });
    };
    const Value callee = make("Callee");
    EXPECT_EQ(call(callee), "no error");
    EXPECT_EQ(call(Value()), "varnix:nullSelf");
    EXPECT_EQ(call(Value::ofDouble(1)), "varnix:nullSelf");
    EXPECT_EQ(call(Value::text("object")), "varnix:nullSelf");
    hvArray* const pair = omCreateOBJSYSMatrix(1, 2, nameOf("Callee"));
    omSetArrayElement(pair, 0, instanceOf(callee));
    EXPECT_EQ(call(Value::fromArray(pair)), "varnix:wrongType");
    objsys::deleteInstance(instanceOf(callee));
    EXPECT_EQ(call(callee), "varnix:invalidHandle");
}

TEST_F(Calls, OnRowsTakeRowsAndSingleObjects) {
    const auto count = [](const Value& self) {
        return varnix::callMethod(find("count"), self, {}).asDouble();
    };
    const Value callee = make("Callee");
    hvArray* const three = omCreateOBJSYSMatrix(1, 3, nameOf("Callee"));
    for (std::size_t i = 0; i < 3; ++i)
        omSetArrayElement(three, i, instanceOf(callee));
    EXPECT_EQ(count(Value::fromArray(three)), 3);
    EXPECT_EQ(count(callee), 1);
    EXPECT_EQ(count(Value::fromArray(omCreateOBJSYSMatrix(1, 0, nameOf("Callee")))), 0);
    addConstructible("Other");
    EXPECT_EQ(identifierOf([&] { (void)count(make("Other")); }), "varnix:wrongType");
    EXPECT_EQ(identifierOf([&] { (void)count(Value::ofDouble(1)); }), "varnix:wrongType");
}

// What a method gives comes back with one reference, scalars in their boxes included.
TEST_F(Calls, GiveTheirResultsToTheCaller) {
    const COSValue scalar = COSValue::ofDouble(2.5, COSNameID("double scalar"));
    const COSValue result = find("echo").callConverted(nullptr, std::span(&scalar, 1));
    EXPECT_EQ(result.type().str(), "any");
    ASSERT_NE(result.asArray(), nullptr);
    EXPECT_EQ(result.asArray()->refs, 1u);
    EXPECT_EQ(*varnix::elements<double>(result.asArray()), 2.5);
    hvDestroyArray(result.asArray());

    const Value text = Value::text("text");
    const COSValue typed = COSValue::ofArray(text.array(), COSNameID("char"));
    const COSValue same = find("echo").callConverted(nullptr, std::span(&typed, 1));
    EXPECT_EQ(same.asArray(), text.array());
    EXPECT_EQ(text.array()->refs, 2u);
    hvDestroyArray(same.asArray());
}

// ---- names

TEST(ObjectNames, AreInterned) {
    const COSNameID one("internal.objects.name");
    const COSNameID other(std::string_view("internal.objects.name and more", 21));
    EXPECT_EQ(one, other);
    EXPECT_EQ(one.entry(), other.entry());
    EXPECT_EQ(one.hash(), other.hash());
    EXPECT_EQ(&one.str(), &other.str());
    EXPECT_NE(one, COSNameID("internal.objects.nam"));
    EXPECT_NE(one, COSNameID("Internal.objects.name"));
}

TEST(ObjectNames, MayBeEmpty) {
    EXPECT_TRUE(COSNameID().empty());
    EXPECT_EQ(COSNameID(), COSNameID(""));
    EXPECT_EQ(COSNameID(), COSNameID(static_cast<const char*>(nullptr)));
    EXPECT_EQ(COSNameID(), COSNameID(std::string_view()));
    EXPECT_STREQ(COSNameID().c_str(), "");
    EXPECT_NE(COSNameID(std::string_view("\0", 1)), COSNameID());
}

TEST(ObjectNames, KnowTheirKind) {
    using objsys::ValueKind;
    const std::pair<const char*, ValueKind> kinds[] = {
        {"void", ValueKind::Void},
        {"logical scalar", ValueKind::Logical},
        {"int32 scalar", ValueKind::Int32},
        {"uint32 scalar", ValueKind::UInt32},
        {"int64 scalar", ValueKind::Int64},
        {"uint64 scalar", ValueKind::UInt64},
        {"double scalar", ValueKind::Double},
        {"char", ValueKind::Char},
        {"cell", ValueKind::Cell},
        {"any", ValueKind::Any},
        {"internal.objects.Thing", ValueKind::Object},
        {"internal.objects.Thing vector", ValueKind::Vector},
        {"Logical scalar", ValueKind::Object},
        {"vector", ValueKind::Object},
    };
    for (const auto& [name, kind] : kinds)
        EXPECT_EQ(COSNameID(name).kind(), kind) << name;
    EXPECT_EQ(COSNameID("void"), COSNameID::voidType());
    EXPECT_EQ(COSNameID("internal.objects.Thing vector").entry()->element,
              COSNameID("internal.objects.Thing").entry());
}

} // namespace
