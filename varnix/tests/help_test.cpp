// Help texts and live completion over a small package, declared here as a module would declare it.
#include "lang/interpreter.hpp"
#include "object/package_tree.hpp"
#include "shell/completion.hpp"
#include "shell/help.hpp"
#include "shell/live_names.hpp"

#include <objsys/objsys.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace objsys;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// Completion and help must never read a property or call a method.
[[noreturn]] void mustNotRun() {
    throw std::logic_error("a member of the class was run");
}

class TypedGetter : public factory::impl::Getter {
public:
    explicit TypedGetter(const char* type) : type_(type) {}
    COSValue getValue(COSInterface*) const override { mustNotRun(); }
    COSNameID getDataType() const override { return type_; }
    int forward(COSInterface*, COSValue*) const override { return 0; }
    Enumeration<COSInterface*> getInterfaces(COSInterface*) const override { return {}; }
    bool canContainInterfaces() const override { return false; }

private:
    COSNameID type_;
};

class TypedSetter : public factory::impl::Setter {
public:
    explicit TypedSetter(const char* type) : type_(type) {}
    void setValue(COSInterface*, const COSValue&) override { mustNotRun(); }
    COSNameID getDataType() const override { return type_; }

private:
    COSNameID type_;
};

class Property : public COSPropertyInfo {
public:
    Property(const char* name, const char* type, bool writable, bool hidden = false)
        : name_(name), getter_(type), setter_(type), writable_(writable), hidden_(hidden) {}
    COSNameID getName() const override { return name_; }
    factory::impl::Getter* getGetter() const override { return &getter_; }
    factory::impl::Setter* getSetter() const override { return writable_ ? &setter_ : nullptr; }
    factory::PropertyAttributes getAttributes() const override {
        return factory::PropertyAttributes(hidden_ ? 1 : 0);
    }

private:
    COSNameID name_;
    mutable TypedGetter getter_;
    mutable TypedSetter setter_;
    bool writable_;
    bool hidden_;
};

class Method : public COSMethodInfo {
public:
    enum class Kind { Ordinary, Static, Constructor };
    Method(const char* name, Kind kind, const char* result, std::vector<COSNameID> arguments)
        : name_(name),
          kind_(kind), signature_{"", COSNameID(result), kind == Kind::Ordinary,
                                  COSNameID("internal.helping.Base"), std::move(arguments)} {}
    COSNameID getName() const override { return name_; }
    factory::MethodAttributes getAttributes() const override {
        return kind_ == Kind::Static ? factory::MethodAttributes::Static()
                                     : factory::MethodAttributes();
    }
    const char* getDescription() const override { return ""; }
    const COSMethodSignature& getSignature() const override { return signature_; }
    bool isConstructor() const override { return kind_ == Kind::Constructor; }
    int invoke(int, COSValue*, const COSValue*) const override { mustNotRun(); }

private:
    COSNameID name_;
    Kind kind_;
    COSMethodSignature signature_;
};

class Base : public COSClassInfo {
public:
    const char* getName() const override { return "Base"; }
    const char* getDescription() const override { return "A base."; }
    void defineClass(COSClassDefinition* d) override {
        d->addProperty(new Property("Count", "int32 scalar", true));
        d->addProperty(new Property("Secret", "char", true, true));
        d->addMethod(new Method("hello", Method::Kind::Ordinary, "char", {}));
    }
};

class Derived : public COSClassInfo {
public:
    const char* getName() const override { return "Derived"; }
    const char* getDescription() const override { return "A derived class."; }
    void defineClass(COSClassDefinition* d) override {
        d->addSuperclass(COSNameID("internal.helping.Base"), 1, 0, 1);
        d->addMethod(new Method("Derived", Method::Kind::Constructor, "internal.helping.Derived",
                                {COSNameID("char")}));
        d->addProperty(new Property("Partner", "internal.helping.Derived", false));
        d->addProperty(new Property("Children", "internal.helping.Base vector", false));
        d->addMethod(new Method("go", Method::Kind::Ordinary, "void",
                                {COSNameID("char"), COSNameID("double scalar")}));
        d->addMethod(new Method("make", Method::Kind::Static, "internal.helping.Derived", {}));
    }
};

class Hidden : public COSClassInfo {
public:
    const char* getName() const override { return "Hidden"; }
    void defineClass(COSClassDefinition*) override {}
    bool isHidden() const override { return true; }
};

class Broken : public COSClassInfo {
public:
    const char* getName() const override { return "Broken"; }
    void defineClass(COSClassDefinition* d) override { d->addProperty(nullptr); }
};

class Helping : public COSPackageInfo {
public:
    const char* getName() const override { return "helping"; }
    const char* getDescription() const override { return "For tests of help."; }
    void registerClasses(COSPackage* package) override {
        package->addClass(new Base);
        package->addClass(new Derived);
        package->addClass(new Hidden);
        package->addClass(new Broken);
    }
};

class Help : public testing::Test {
protected:
    Help() { COSPackage::getPackage(COSNameID("internal"))->addPackage(new Helping); }
    ~Help() override { PackageTree::withdrawSince(begin_); }
    [[nodiscard]] std::string help(std::string_view name) const {
        return varnix::helpText(interpreter, name);
    }
    [[nodiscard]] std::string failure(std::string_view name) const {
        try {
            return "no error: " + help(name);
        } catch (const COSError& error) {
            EXPECT_EQ(error.identifier(), "varnix:undefined");
            return error.message();
        }
    }
    [[nodiscard]] std::vector<std::string> candidates(std::string_view text) const {
        return complete(text, text.size(), varnix::LiveNames(interpreter)).candidates;
    }

    PackageTree::Mark begin_ = PackageTree::mark();
    varnix::Interpreter interpreter;
};

TEST_F(Help, OfAClassIsWhatItDeclares) {
    EXPECT_EQ(help("internal.helping.Derived"),
              "internal.helping.Derived: A derived class.\n"
              "Superclass: internal.helping.Base\n"
              "Constructor: internal.helping.Derived(char)\n"
              "Properties:\n"
              "  Count     int32 scalar\n"
              "  Partner   internal.helping.Derived      read-only\n"
              "  Children  internal.helping.Base vector  read-only\n"
              "Methods:\n"
              "  hello() -> char\n"
              "  go(char, double scalar)\n"
              "  static make() -> internal.helping.Derived\n");
}

TEST_F(Help, OfAClassWithoutConstructorSaysSo) {
    EXPECT_THAT(help("internal.helping.Base"),
                AllOf(HasSubstr("\nConstructor: none"), Not(HasSubstr("Superclass")),
                      Not(HasSubstr("Secret"))));
    EXPECT_THAT(help("internal.helping.Hidden"),
                AllOf(StartsWith("internal.helping.Hidden\n"), HasSubstr("Properties: none\n"),
                      HasSubstr("Methods: none\n")));
}

TEST_F(Help, OfAPackageListsWhatItHolds) {
    EXPECT_EQ(help("internal.helping"), "internal.helping: For tests of help.\n"
                                        "Classes:\n"
                                        "  internal.helping.Base: A base.\n"
                                        "  internal.helping.Derived: A derived class.\n"
                                        "  internal.helping.Broken\n");
    EXPECT_THAT(help("internal"), HasSubstr("Packages:\n  internal.helping: For tests of help.\n"));
}

TEST_F(Help, OfAMember) {
    EXPECT_EQ(help("internal.helping.Derived.Count"),
              "internal.helping.Derived.Count: property of internal.helping.Base\n"
              "  int32 scalar\n");
    EXPECT_EQ(help("internal.helping.Derived.Partner"),
              "internal.helping.Derived.Partner: property of internal.helping.Derived\n"
              "  internal.helping.Derived, read-only\n");
    EXPECT_EQ(help("internal.helping.Derived.make"),
              "internal.helping.Derived.make: method of internal.helping.Derived\n"
              "  static make() -> internal.helping.Derived\n");
}

TEST_F(Help, OfABuiltInIsItsSignatureAndText) {
    EXPECT_THAT(help("sqrt"), StartsWith("sqrt("));
    EXPECT_THAT(help("sqrt"), HasSubstr("\n  "));
}

TEST_F(Help, OfAnUnknownNameOffersNearOnes) {
    EXPECT_EQ(failure("prinft"), "there is no help for 'prinft'; near it: printf, sprintf");
    EXPECT_EQ(failure("Derivd"),
              "there is no help for 'Derivd'; near it: internal.helping.Derived");
    EXPECT_EQ(failure("internal.helping.Derived.Cuont"),
              "there is no help for 'internal.helping.Derived.Cuont'; near it: "
              "internal.helping.Derived.Count");
    EXPECT_EQ(failure("@!"), "there is no help for '@!'");
    EXPECT_EQ(failure("."), "there is no help for '.'");
}

TEST_F(Help, OfAClassThatCannotBeDefinedIsItsError) {
    EXPECT_THROW((void)help("internal.helping.Broken"), COSError);
}

TEST_F(Help, WithoutANameIsAnOverview) {
    EXPECT_THAT(help(""), AllOf(HasSubstr(" printf "), HasSubstr(" internal.helping"),
                                HasSubstr("help NAME")));
}

TEST_F(Help, CompletionKnowsTheLiveNames) {
    interpreter.runCode("someVariable = 1", "<test>");
    EXPECT_THAT(candidates("someVa"), ElementsAre("someVariable"));
    EXPECT_THAT(candidates("sq"), Contains("sqrt"));
    EXPECT_THAT(candidates("otherw"), ElementsAre("otherwise"));
    EXPECT_THAT(candidates("intern"), ElementsAre("internal."));
    EXPECT_THAT(candidates("internal.help"), ElementsAre("helping."));
    EXPECT_THAT(candidates("internal.helping."), ElementsAre("Base", "Broken", "Derived"));
    EXPECT_THAT(candidates("internal.helping.Derived."), ElementsAre("make"));
    EXPECT_THAT(candidates("internal.helping.Broken."), ElementsAre());
}

TEST_F(Help, CompletionFollowsDeclaredTypesWithoutReadingAnything) {
    EXPECT_THAT(candidates("internal.helping.Derived(\"x\")."),
                ElementsAre("Children", "Count", "Partner", "go", "hello", "make"));
    EXPECT_THAT(candidates("internal.helping.Derived(1).Partner.Partner.Ch"),
                ElementsAre("Children"));
    EXPECT_THAT(candidates("internal.helping.Derived(1).Children[2]."),
                ElementsAre("Count", "hello"));
    EXPECT_THAT(candidates("internal.helping.Derived.make().Pa"), ElementsAre("Partner"));
    EXPECT_THAT(candidates("internal.helping.Derived(1).Count."), ElementsAre());
}

TEST_F(Help, CompletionKnowsTheFieldsOfAStruct) {
    interpreter.runCode("s = struct(); s.one = 1; s.two = struct(); s.two.three = 3;", "<test>");
    EXPECT_THAT(candidates("s."), ElementsAre("one", "two"));
    EXPECT_THAT(candidates("s.two.t"), ElementsAre("three"));
}

} // namespace
