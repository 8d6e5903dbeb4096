// Native objects and their handles: who lives how long, and that one object has one handle.

#include "tests/sample.hpp"

#include <array>
#include <gtest/gtest.h>

namespace {

using namespace sample;

template <int D>
class Counted : public Wrappable {
public:
    static constexpr const char* scriptClassName =
        D == 1 ? "internal.sample.Deleted" : "internal.sample.Unbound";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Counted> declare(definition);
        declare.constructor();
        declare.template readOnly<&Counted::number>("Number");
    }
    Counted() { ++living; }
    ~Counted() override { --living; }
    std::int32_t number() const { return 5; }

    static inline int living = 0;
};
using Deleted = Counted<1>;
using Unbound = Counted<0>;

COSClass& deleted() {
    return published<Deleted, 1>();
}
COSClass& unbound() {
    return published<Unbound, 0>();
}

TEST(HandleThatDies, DeletesTheNativeObjectOfClassesThatSaySo) {
    Array handle = construct(deleted());
    EXPECT_EQ(Deleted::living, 1);
    handle.reset();
    EXPECT_EQ(Deleted::living, 0);
}

TEST(HandleThatDies, OnlyUnbindsTheNativeObjectOfTheOthers) {
    Array handle = construct(unbound());
    const std::unique_ptr<Unbound> native(nativeIn<Unbound>(handle));
    handle.reset();
    EXPECT_EQ(Unbound::living, 1);
    EXPECT_EQ(BindingRegistry::instanceOf(native.get()), nullptr);
}

TEST(HandleThatDies, WaitsForItsLastReference) {
    Array first = construct(deleted());
    Array second(hvShareArray(first.get()));
    first.reset();
    EXPECT_EQ(Deleted::living, 1);
    EXPECT_TRUE(instanceIn(second)->isValid());
    second.reset();
    EXPECT_EQ(Deleted::living, 0);
}

TEST(HandleThatDies, IsHeldByArraysToo) {
    Array row(omCreateOBJSYSMatrix(1, 2, deleted().getFullName()));
    for (std::size_t i = 0; i < 2; ++i)
        omSetArrayElement(row.get(), i, instanceIn(construct(deleted())));
    EXPECT_EQ(Deleted::living, 2);
    const Array cell = cellOf(1, 1, {row.release()});
    EXPECT_EQ(Deleted::living, 2);
    hvSetCell(cell.get(), 0, nullptr);
    EXPECT_EQ(Deleted::living, 0);
}

// The descriptor's own operation, as the host calls it.
TEST(DestroyInstance, ReportsWhetherItUnbound) {
    Unbound object;
    const Array handle = handleOf(&object);
    objsys::COSClassInfo& info = unbound().info();
    EXPECT_TRUE(info.destroyInstance(instanceIn(handle), &object));
    EXPECT_EQ(BindingRegistry::instanceOf(&object), nullptr);
    EXPECT_FALSE(instanceIn(handle)->isValid());
    EXPECT_FALSE(info.destroyInstance(instanceIn(handle), &object));
    EXPECT_FALSE(info.destroyInstance(instanceIn(handle), nullptr));
}

TEST(DestroyInstance, DeletesOnlyWhatItUnbound) {
    Deleted object; // on the stack: deleting it would be seen
    objsys::COSClassInfo& info = deleted().info();
    EXPECT_FALSE(info.destroyInstance(nullptr, &object));
    EXPECT_FALSE(info.destroyInstance(nullptr, nullptr));
    EXPECT_EQ(Deleted::living, 1);

    auto* const bound = new Deleted;
    Array handle(BindingRegistry::announce(bound, COSNameID(Deleted::scriptClassName)));
    EXPECT_TRUE(info.destroyInstance(instanceIn(handle), bound));
    EXPECT_EQ(Deleted::living, 1);
    EXPECT_FALSE(instanceIn(handle)->isValid());
}

// Through its virtual destructor: what is deleted may be of a class derived from the declared one.
class DeletedWithMore : public Deleted {
public:
    ~DeletedWithMore() override { ++destroyed; }
    std::string more = "something with memory of its own, so that a leak would be seen";
    static inline int destroyed = 0;
};

TEST(DestroyInstance, DeletesThroughTheVirtualDestructor) {
    deleted();
    Array handle(
        BindingRegistry::announce(new DeletedWithMore, COSNameID(Deleted::scriptClassName)));
    handle.reset();
    EXPECT_EQ(DeletedWithMore::destroyed, 1);
    EXPECT_EQ(Deleted::living, 0);
}

TEST(NativeObjectThatDiesFirst, LeavesAnInvalidHandle) {
    auto object = std::make_unique<Unbound>();
    const Array handle = handleOf(object.get());
    const COSProperty& number = property(unbound(), "Number");
    EXPECT_EQ(number.get(instanceIn(handle)).asInt32(), 5);
    object.reset();
    EXPECT_FALSE(instanceIn(handle)->isValid());
    EXPECT_EQ(errorOf([&] { (void)number.get(instanceIn(handle)); }), "varnix:invalidHandle");
}

TEST(NativeObjectThatDiesFirst, IsNotDeletedAgain) {
    Array handle = construct(deleted());
    delete nativeIn<Deleted>(handle);
    EXPECT_EQ(Deleted::living, 0);
    EXPECT_FALSE(instanceIn(handle)->isValid());
    handle.reset();
    EXPECT_EQ(Deleted::living, 0);
}

TEST(NativeObjectThatDiesFirst, WithoutAHandleIsNobodysConcern) {
    {
        Unbound object;
        EXPECT_EQ(BindingRegistry::instanceOf(&object), nullptr);
    }
    EXPECT_EQ(Unbound::living, 0);
}

TEST(Identity, OneObjectHasOneHandle) {
    Unbound object;
    const Array first = handleOf(&object);
    const Array second = handleOf(&object);
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(first->refs, 2u);
    EXPECT_EQ(BindingRegistry::instanceOf(&object), instanceIn(first));
}

TEST(Identity, TwoObjectsHaveTwoHandles) {
    Unbound one;
    Unbound other;
    EXPECT_NE(handleOf(&one).get(), handleOf(&other).get());
}

TEST(Identity, HandleOfTheScriptIsTheOneAnnounced) {
    const Array handle = construct(deleted());
    const Array announced(
        BindingRegistry::announce(nativeIn<Deleted>(handle), COSNameID(Deleted::scriptClassName)));
    EXPECT_EQ(announced.get(), handle.get());
}

TEST(Identity, AfterItsHandleDiedAnObjectGetsANewOne) {
    Unbound object;
    Array first = handleOf(&object);
    first.reset();
    EXPECT_EQ(BindingRegistry::instanceOf(&object), nullptr);
    const Array second = handleOf(&object);
    EXPECT_TRUE(instanceIn(second)->isValid());
    EXPECT_EQ(nativeIn<Unbound>(second), &object);
}

TEST(Identity, RetractedObjectGetsANewHandleWhileTheOldOneStays) {
    Unbound object;
    const Array old = handleOf(&object);
    BindingRegistry::retract(&object);
    EXPECT_FALSE(instanceIn(old)->isValid());
    const Array renewed = handleOf(&object);
    EXPECT_NE(renewed.get(), old.get());
    EXPECT_FALSE(instanceIn(old)->isValid());
    EXPECT_TRUE(instanceIn(renewed)->isValid());
    BindingRegistry::retract(&object);
    BindingRegistry::retract(&object);
    BindingRegistry::retract(nullptr);
}

TEST(AnnouncingNull, GivesAnEmptyArrayOfTheClass) {
    unbound();
    const Array none(BindingRegistry::announce(nullptr, COSNameID(Unbound::scriptClassName)));
    EXPECT_EQ(hvGetClassID(none.get()), hvOBJECT_CLASS);
    EXPECT_EQ(hvGetM(none.get()), 0u);
    EXPECT_EQ(hvGetN(none.get()), 0u);
    EXPECT_EQ(none->objectClass, &unbound());
    EXPECT_EQ(omGetArrayElement(none.get(), 0), nullptr);
}

TEST(AnnounceForConstructor, BindsOnceAndOnlyOnce) {
    Unbound object;
    Unbound other;
    const COSNameID name(Unbound::scriptClassName);
    const Array handle = handleOf(&object);
    const auto announce = [&](Wrappable* native, hvArray* instance) {
        return errorOf(
            [&] { BindingRegistry::announceForConstructor(native, name, instance, true); });
    };
    EXPECT_EQ(announce(&object, handle.get()), "no error"); // bound to just this one already
    EXPECT_EQ(announce(&other, handle.get()), "varnix:alreadyBound");
    const Array otherHandle = handleOf(&other);
    EXPECT_EQ(announce(&object, otherHandle.get()), "varnix:alreadyBound");
    EXPECT_EQ(announce(nullptr, handle.get()), "varnix:nullSelf");
    const Array none(omCreateOBJSYSMatrix(0, 0, name));
    EXPECT_EQ(announce(&object, none.get()), "varnix:nullSelf");
    EXPECT_EQ(nativeIn<Unbound>(handle), &object);
    EXPECT_EQ(nativeIn<Unbound>(otherHandle), &other);

    BindingRegistry::retract(&object);
    EXPECT_EQ(announce(&object, handle.get()), "no error");
    EXPECT_EQ(nativeIn<Unbound>(handle), &object);
}

/// A parent that owns a child and hands it out.
class Parent : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Parent";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Parent> declare(definition);
        declare.constructor();
        declare.readOnly<&Parent::child>("Child");
    }
    Unbound* child() { return &child_; }

private:
    Unbound child_;
};

TEST(ChildOfAParent, StaysItsParents) {
    unbound();
    Array parent = construct(published<Parent, 1>());
    const COSProperty& child = property(published<Parent, 1>(), "Child");
    Array handle(child.get(instanceIn(parent)).asArray());
    handle.reset();
    EXPECT_EQ(Unbound::living, 1);
    handle.reset(child.get(instanceIn(parent)).asArray());
    EXPECT_TRUE(instanceIn(handle)->isValid());
    parent.reset();
    EXPECT_EQ(Unbound::living, 0);
    EXPECT_FALSE(instanceIn(handle)->isValid());
}

} // namespace
