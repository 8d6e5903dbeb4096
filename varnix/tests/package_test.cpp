// The tree of packages: look-up by name, adding, and taking back what a module published.

#include "tests/object_sample.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace sample;
using testing::ElementsAre;

COSPackage* find(const char* name) {
    return COSPackage::getPackage(COSNameID(name));
}

std::vector<std::string> classNames(const COSPackage& package) {
    std::vector<std::string> names;
    for (const auto& cls : package.classes())
        names.push_back(cls->getName());
    return names;
}

class PackageTest : public ObjectTest {};

TEST_F(PackageTest, TheHostsOwnAreAlwaysThere) {
    ASSERT_NE(find("internal"), nullptr);
    ASSERT_NE(find("varnix"), nullptr);
    ASSERT_NE(find("varnix.mixin"), nullptr);
    EXPECT_NE(COSClass::find(COSNameID("varnix.mixin.Heterogeneous")), nullptr);
    EXPECT_EQ(PackageTree::findRoot("internal"), find("internal"));
    EXPECT_EQ(PackageTree::findRoot("quarn"), nullptr);
    ASSERT_GE(PackageTree::roots().size(), 2u);
    EXPECT_EQ(PackageTree::roots()[0]->getName(), "varnix");
    EXPECT_EQ(PackageTree::roots()[1]->getName(), "internal");
}

TEST_F(PackageTest, IsFoundByItsFullNameOnly) {
    EXPECT_EQ(find("internal.objects"), package_);
    EXPECT_EQ(package_->getFullName().str(), "internal.objects");
    EXPECT_EQ(package_->getName(), "objects");
    EXPECT_STREQ(package_->getDescription(), "A package for the tests.");
    for (const char* name : {"", ".", "objects", "internal.", ".internal", "internal..objects",
                             "internal.objects.", "internal.object", "internal.objectsx",
                             "Internal.objects", "internal.objects.more", "internal objects"})
        EXPECT_EQ(find(name), nullptr) << name;
}

TEST_F(PackageTest, IsPopulatedAtOnceWhenAdded) {
    const int before = SamplePackage::populated;
    auto* const info = new SamplePackage("inner");
    info->populate = [](COSPackage& package) {
        EXPECT_EQ(package.getFullName().str(), "internal.objects.inner");
        EXPECT_EQ(find("internal.objects.inner"), &package); // already there for what it adds
        package.addClass(new SampleInfo("First"));
        package.addClass(new SampleInfo("Second"));
        package.addPackage(new SamplePackage("innermost"));
    };
    package_->addPackage(info);
    EXPECT_EQ(SamplePackage::populated, before + 2);
    EXPECT_THAT(classNames(*find("internal.objects.inner")), ElementsAre("First", "Second"));
    EXPECT_NE(find("internal.objects.inner.innermost"), nullptr);
    EXPECT_NE(COSClass::find(COSNameID("internal.objects.inner.Second")), nullptr);
}

TEST_F(PackageTest, RefusesNull) {
    EXPECT_EQ(identifierOf([&] { package_->addPackage(nullptr); }), "varnix:outOfMemory");
    EXPECT_EQ(identifierOf([&] { package_->addClass(nullptr); }), "varnix:outOfMemory");
    EXPECT_TRUE(package_->classes().empty());
    EXPECT_TRUE(package_->packages().empty());
}

TEST_F(PackageTest, RefusesASecondPackageOfAName) {
    package_->addPackage(new SamplePackage("inner"));
    const COSPackage* const first = find("internal.objects.inner");
    const int living = SamplePackage::living;
    const int populated = SamplePackage::populated;
    EXPECT_EQ(identifierOf([&] { package_->addPackage(new SamplePackage("inner")); }),
              "varnix:duplicatePackage");
    EXPECT_EQ(find("internal.objects.inner"), first);
    EXPECT_EQ(package_->packages().size(), 1u);
    EXPECT_EQ(SamplePackage::living, living); // the description was released
    EXPECT_EQ(SamplePackage::populated, populated);
}

TEST_F(PackageTest, RefusesASecondClassOfAName) {
    add("Once");
    const COSClass* const first = COSClass::find(nameOf("Once"));
    EXPECT_EQ(identifierOf([&] { package_->addClass(new SampleInfo("Once")); }),
              "varnix:duplicateClass");
    EXPECT_EQ(SampleInfo::living, 1);
    EXPECT_EQ(COSClass::find(nameOf("Once")), first);
    EXPECT_EQ(package_->classes().size(), 1u);
}

TEST_F(PackageTest, ListsClassesInTheOrderOfAdding) {
    for (const char* name : {"Zebra", "Ant", "Mouse"})
        add(name);
    EXPECT_THAT(classNames(*package_), ElementsAre("Zebra", "Ant", "Mouse"));
    EXPECT_EQ(package_->findClass("Ant"), &classOf("Ant"));
    EXPECT_EQ(package_->findClass("ant"), nullptr);
    EXPECT_EQ(package_->findClass(""), nullptr);
    EXPECT_EQ(package_->findPackage("Ant"), nullptr);
    EXPECT_EQ(classOf("Ant").getPackage(), package_);
    EXPECT_EQ(classOf("Ant").getFullName().str(), "internal.objects.Ant");
}

TEST_F(PackageTest, AddingDefinesNothing) {
    const SampleInfo& info = add("Lazy");
    EXPECT_EQ(info.defined, 0);
    EXPECT_TRUE(classOf("Lazy").properties().empty());
    EXPECT_EQ(info.defined, 1);
    (void)classOf("Lazy").methods();
    EXPECT_EQ(info.defined, 1);
}

TEST_F(PackageTest, UnknownClassIsAnError) {
    EXPECT_EQ(COSClass::find(nameOf("Nothing")), nullptr);
    EXPECT_EQ(identifierOf([] { (void)COSClass::get(nameOf("Nothing")); }), "varnix:undefined");
    // A package is no class, and a name of a data type is none either.
    EXPECT_EQ(COSClass::find(COSNameID("internal.objects")), nullptr);
    EXPECT_EQ(COSClass::find(COSNameID("double scalar")), nullptr);
}

// ---- withdrawing

class Withdrawing : public ObjectTest {};

TEST_F(Withdrawing, TakesBackClassesAndPackages) {
    const PackageTree::Mark mark = PackageTree::mark();
    add("Module");
    package_->addPackage(new SamplePackage("inner"));
    find("internal.objects.inner")->addClass(new SampleInfo("Deep"));
    EXPECT_EQ(SampleInfo::living, 2);
    const auto generation = objsys::detail::classGeneration;

    PackageTree::withdrawSince(mark);
    EXPECT_EQ(SampleInfo::living, 0);
    EXPECT_EQ(SamplePackage::living, 1); // what was there before the mark stays
    EXPECT_EQ(find("internal.objects"), package_);
    EXPECT_EQ(find("internal.objects.inner"), nullptr);
    EXPECT_EQ(COSClass::find(nameOf("Module")), nullptr);
    EXPECT_EQ(COSClass::find(COSNameID("internal.objects.inner.Deep")), nullptr);
    EXPECT_TRUE(package_->classes().empty());
    EXPECT_TRUE(package_->packages().empty());
    EXPECT_NE(objsys::detail::classGeneration, generation);
}

TEST_F(Withdrawing, LetsTheNameBeTakenAgain) {
    const PackageTree::Mark mark = PackageTree::mark();
    addConstructible("Module");
    COSClass* const old = &classOf("Module");
    PackageTree::withdrawSince(mark);
    addConstructible("Module");
    EXPECT_NE(&classOf("Module"), old);
    EXPECT_TRUE(instanceOf(make("Module"))->isValid());
}

TEST_F(Withdrawing, TwiceIsHarmless) {
    const PackageTree::Mark mark = PackageTree::mark();
    add("Module");
    PackageTree::withdrawSince(mark);
    PackageTree::withdrawSince(mark);
    EXPECT_EQ(SampleInfo::living, 0);
}

TEST_F(Withdrawing, BetweenTwoMarksLeavesTheRest) {
    add("Before");
    const PackageTree::Mark begin = PackageTree::mark();
    add("Between");
    const PackageTree::Mark end = PackageTree::mark();
    add("After");
    PackageTree::withdrawBetween(begin, end);
    EXPECT_THAT(classNames(*package_), ElementsAre("Before", "After"));
    EXPECT_EQ(COSClass::find(nameOf("Between")), nullptr);
}

TEST_F(Withdrawing, PackageToWhichOthersAddedStaysAsAFolder) {
    const PackageTree::Mark begin = PackageTree::mark();
    package_->addPackage(new SamplePackage("shared"));
    find("internal.objects.shared")->addClass(new SampleInfo("First"));
    const PackageTree::Mark end = PackageTree::mark();
    COSPackage* const shared = find("internal.objects.shared");
    shared->addClass(new SampleInfo("OfAnother"));

    PackageTree::withdrawBetween(begin, end);
    EXPECT_EQ(find("internal.objects.shared"), shared);
    EXPECT_THAT(classNames(*shared), ElementsAre("OfAnother"));
    EXPECT_STREQ(shared->getDescription(), ""); // its description left with its module
    EXPECT_EQ(SamplePackage::living, 1);

    PackageTree::withdrawSince(end); // the last thing in it takes the folder along
    EXPECT_EQ(find("internal.objects.shared"), nullptr);
    EXPECT_TRUE(package_->packages().empty());
}

TEST_F(Withdrawing, DestroysInstancesFirst) {
    const PackageTree::Mark mark = PackageTree::mark();
    addConstructible("Module");
    std::vector<Value> handles;
    for (int i = 0; i < 5; ++i)
        handles.push_back(make("Module"));
    EXPECT_EQ(Store::living, 5);
    PackageTree::withdrawSince(mark);
    EXPECT_EQ(Store::living, 0);
    for (const Value& handle : handles) {
        EXPECT_FALSE(instanceOf(handle)->isValid());
        EXPECT_EQ(identifierOf([&] { objsys::deleteInstance(instanceOf(handle)); }),
                  "varnix:invalidHandle");
        EXPECT_EQ(varnix::className(handle), "internal.objects.Module");
    }
}

TEST_F(Withdrawing, LeavesArraysThatReferToTheClass) {
    const PackageTree::Mark mark = PackageTree::mark();
    addConstructible("Module");
    Value element = make("Module");
    hvArray* const pair = omCreateOBJSYSMatrix(1, 2, nameOf("Module"));
    omSetArrayElement(pair, 0, instanceOf(element));
    omSetArrayElement(pair, 1, instanceOf(element));
    Value row = Value::fromArray(pair);
    const Value none = Value::fromArray(omCreateOBJSYSMatrix(0, 0, nameOf("Module")));
    PackageTree::withdrawSince(mark);

    EXPECT_EQ(varnix::className(row), "internal.objects.Module");
    EXPECT_EQ(varnix::className(none), "internal.objects.Module");
    EXPECT_FALSE(omGetArrayElement(row.array(), 1)->isValid());
    EXPECT_EQ(omGetArrayElement(row.array(), 0), instanceOf(element));
    Value copy = row;
    copy.unshare();
    EXPECT_EQ(varnix::className(copy), "internal.objects.Module");
    EXPECT_FALSE(instanceOf(varnix::elementAt(copy, 0))->isValid());
    element = {};
    row = {};
    EXPECT_FALSE(omGetArrayElement(copy.array(), 0)->isValid());
}

TEST_F(Withdrawing, LeavesABareNameWithoutMembers) {
    const PackageTree::Mark mark = PackageTree::mark();
    add("Module", [](COSClassDefinition& definition) {
        definition.addSuperclass(COSNameID("varnix.mixin.Heterogeneous"), 1, 0, 1);
        definition.addMethod(storeConstructor("internal.objects.Module"));
        definition.addProperty(new StoreProperty("Held", "char"));
    });
    COSClass& cls = classOf("Module");
    EXPECT_EQ(cls.properties().size(), 1u);
    const Value handle = make("Module");
    PackageTree::withdrawSince(mark);

    EXPECT_EQ(StoreProperty::living, 0);
    EXPECT_EQ(cls.getFullName().str(), "internal.objects.Module");
    EXPECT_EQ(cls.getPackage(), nullptr);
    EXPECT_EQ(identifierOf([&] { (void)cls.properties(); }), "varnix:undefined");
    EXPECT_EQ(identifierOf([&] { (void)cls.findMethod(COSNameID("any")); }), "varnix:undefined");
    EXPECT_EQ(identifierOf([&] { (void)cls.construct({}); }), "varnix:undefined");
    EXPECT_TRUE(cls.isA(&cls)); // arrays still ask
    EXPECT_FALSE(cls.isA(COSClass::find(COSNameID("internal.objects.Other"))));
}

TEST_F(Withdrawing, ObjectsOfTheOldClassAreNotOfTheNewOne) {
    const PackageTree::Mark mark = PackageTree::mark();
    addConstructible("Module");
    const Value none = Value::fromArray(omCreateOBJSYSMatrix(1, 0, nameOf("Module")));
    PackageTree::withdrawSince(mark);
    add("Module", [](COSClassDefinition& definition) {
        definition.addMethod(storeConstructor("internal.objects.Module"));
        definition.addProperty(new StoreProperty("Others", "internal.objects.Module vector"));
    });
    const Value handle = make("Module");
    const COSProperty& others = *classOf("Module").findProperty(COSNameID("Others"));
    EXPECT_EQ(identifierOf([&] { varnix::setProperty(others, instanceOf(handle), none); }),
              "varnix:wrongType");
}

// A native object whose end makes another instance end.
TEST_F(Withdrawing, InstancesMayDieOfEachOther) {
    const PackageTree::Mark mark = PackageTree::mark();
    SampleInfo& info = addConstructible("Module");
    info.destroy = [](COSInterface*, Wrappable* native) {
        auto* const store = static_cast<Store*>(native);
        const bool removed = BindingRegistry::remove(native);
        if (store->dies)
            store->dies();
        delete native;
        return removed;
    };
    Value first = make("Module");
    Value second = make("Module");
    Value third = make("Module");
    storeOf(instanceOf(second))->dies = [&] { first = third = {}; };
    PackageTree::withdrawSince(mark);
    EXPECT_EQ(Store::living, 0);
    EXPECT_TRUE(first.isUnset());
    EXPECT_FALSE(instanceOf(second)->isValid());
}

} // namespace
