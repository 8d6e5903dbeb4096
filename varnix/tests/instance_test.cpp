// Script instances: how they end, who is told, and what is left of those that somebody still holds.

#include "tests/object_sample.hpp"

#include <gtest/gtest.h>
#include <set>
#include <stdexcept>
#include <vector>

namespace {

using namespace sample;

class InstanceTest : public ObjectTest {};

TEST_F(InstanceTest, EndsWithItsLastReference) {
    const SampleInfo& info = addConstructible("Thing");
    Value first = make("Thing");
    Value second = first;
    EXPECT_EQ(first.array()->refs, 2u);
    first = {};
    EXPECT_EQ(info.destroyed, 0);
    EXPECT_EQ(Store::living, 1);
    second = {};
    EXPECT_EQ(info.destroyed, 1);
    EXPECT_EQ(Store::living, 0);
}

TEST_F(InstanceTest, ItsClassIsToldWithBothObjects) {
    SampleInfo& info = addConstructible("Thing");
    Value handle = make("Thing");
    COSInterface* const instance = instanceOf(handle);
    Store* const store = storeOf(instance);
    info.destroy = [&](COSInterface* dying, Wrappable* native) {
        EXPECT_EQ(dying, instance);
        EXPECT_EQ(native, store);
        EXPECT_TRUE(dying->isValid()); // still bound while the class looks at it
        EXPECT_EQ(dying->getClass(), &classOf("Thing"));
        const bool removed = BindingRegistry::remove(native);
        EXPECT_TRUE(removed);
        delete native;
        return removed;
    };
    handle = {};
    EXPECT_EQ(info.destroyed, 1);
}

TEST_F(InstanceTest, DeletedByAScriptStaysAsAnInvalidHandle) {
    const SampleInfo& info = addConstructible("Thing");
    const Value handle = make("Thing");
    objsys::deleteInstance(instanceOf(handle));
    EXPECT_EQ(info.destroyed, 1);
    EXPECT_EQ(Store::living, 0);
    EXPECT_FALSE(instanceOf(handle)->isValid());
    EXPECT_EQ(instanceOf(handle)->getClass(), &classOf("Thing"));
    EXPECT_EQ(identifierOf([&] { objsys::deleteInstance(instanceOf(handle)); }),
              "varnix:invalidHandle");
    EXPECT_EQ(info.destroyed, 1);
}

TEST_F(InstanceTest, DeletingIsTheClasssToAllow) {
    SampleInfo& info = addConstructible("Thing");
    info.destructible = false;
    Value handle = make("Thing");
    EXPECT_EQ(identifierOf([&] { objsys::deleteInstance(instanceOf(handle)); }),
              "varnix:notDeletable");
    EXPECT_TRUE(instanceOf(handle)->isValid());
    handle = {}; // the last reference goes all the same
    EXPECT_EQ(Store::living, 0);
}

TEST_F(InstanceTest, WhoseNativeObjectDiedFirstIsNotDestroyedAgain) {
    const SampleInfo& info = addConstructible("Thing");
    Value handle = make("Thing");
    delete storeOf(instanceOf(handle));
    EXPECT_FALSE(instanceOf(handle)->isValid());
    EXPECT_EQ(identifierOf([&] { objsys::deleteInstance(instanceOf(handle)); }),
              "varnix:invalidHandle");
    handle = {};
    EXPECT_EQ(info.destroyed, 0);
}

// A class that only unbinds: the object lives on and may be announced anew.
TEST_F(InstanceTest, OfAClassThatOnlyUnbindsLeavesTheObject) {
    SampleInfo& info = addConstructible("Thing");
    info.destroy = [](COSInterface*, Wrappable* native) { return BindingRegistry::remove(native); };
    Value handle = make("Thing");
    const std::unique_ptr<Store> store(storeOf(instanceOf(handle)));
    handle = {};
    EXPECT_EQ(BindingRegistry::instanceOf(store.get()), nullptr);
    const Value again = Value::fromArray(BindingRegistry::announce(store.get(), nameOf("Thing")));
    EXPECT_TRUE(instanceOf(again)->isValid());
}

// The host unbinds what the class forgot.
TEST_F(InstanceTest, OfAClassThatDoesNothingIsUnboundByTheHost) {
    SampleInfo& info = addConstructible("Thing");
    info.destroy = [](COSInterface*, Wrappable*) { return false; };
    Value handle = make("Thing");
    const std::unique_ptr<Store> store(storeOf(instanceOf(handle)));
    objsys::deleteInstance(instanceOf(handle));
    EXPECT_FALSE(instanceOf(handle)->isValid());
    EXPECT_EQ(BindingRegistry::instanceOf(store.get()), nullptr);
}

TEST_F(InstanceTest, OfAClassThatDeletesWithoutUnbindingIsUnboundByTheObject) {
    SampleInfo& info = addConstructible("Thing");
    info.destroy = [](COSInterface*, Wrappable* native) {
        delete native;
        return true;
    };
    const Value handle = make("Thing");
    objsys::deleteInstance(instanceOf(handle));
    EXPECT_FALSE(instanceOf(handle)->isValid());
    EXPECT_EQ(Store::living, 0);
}

// Nobody could handle an error there.
TEST_F(InstanceTest, EndsEvenWhenItsClassRaisesAnError) {
    SampleInfo& info = addConstructible("Thing");
    info.destroy = [](COSInterface*, Wrappable*) -> bool { throw std::runtime_error("no"); };
    Value handle = make("Thing");
    const std::unique_ptr<Store> store(storeOf(instanceOf(handle)));
    EXPECT_EQ(identifierOf([&] { objsys::deleteInstance(instanceOf(handle)); }), "no error");
    EXPECT_FALSE(instanceOf(handle)->isValid());

    Value second = make("Thing");
    const std::unique_ptr<Store> secondStore(storeOf(instanceOf(second)));
    second = {};
    EXPECT_EQ(info.destroyed, 2);
    EXPECT_EQ(BindingRegistry::instanceOf(secondStore.get()), nullptr);
}

// The class keeps the handle while it is told: the instance stays, but an invalid one.
TEST_F(InstanceTest, KeptByItsClassAtTheEndStaysInvalid) {
    SampleInfo& info = addConstructible("Thing");
    Value kept;
    info.destroy = [&](COSInterface* instance, Wrappable* native) {
        kept = Value::fromArray(hvShareArray(instance->handle()));
        const bool removed = BindingRegistry::remove(native);
        delete native;
        return removed;
    };
    Value handle = make("Thing");
    COSInterface* const instance = instanceOf(handle);
    handle = {};
    ASSERT_TRUE(kept.isHandle());
    EXPECT_EQ(instanceOf(kept), instance);
    EXPECT_FALSE(instance->isValid());
    EXPECT_EQ(kept.array()->refs, 1u);
    kept = {};
    EXPECT_EQ(info.destroyed, 1);
}

// Announcing the dying object gives its dying handle; announcing it once it is unbound a new one.
TEST_F(InstanceTest, AnnouncedAnewByItsClassAtTheEnd) {
    SampleInfo& info = addConstructible("Thing");
    Value dying;
    Value renewed;
    info.destroy = [&](COSInterface* instance, Wrappable* native) {
        if (info.destroyed > 1) { // the renewed handle ends at last
            delete native;
            return true;
        }
        dying = Value::fromArray(BindingRegistry::announce(native, nameOf("Thing")));
        EXPECT_EQ(instanceOf(dying), instance);
        const bool removed = BindingRegistry::remove(native);
        renewed = Value::fromArray(BindingRegistry::announce(native, nameOf("Thing")));
        return removed;
    };
    Value handle = make("Thing");
    handle = {};
    EXPECT_FALSE(instanceOf(dying)->isValid());
    EXPECT_TRUE(instanceOf(renewed)->isValid());
    EXPECT_NE(instanceOf(dying), instanceOf(renewed));
    EXPECT_EQ(Store::living, 1);
    renewed = {};
    EXPECT_EQ(Store::living, 0);
}

// Instances lie in slabs of their class, and free ones are used again.
TEST_F(InstanceTest, ManyOfAClassAreMadeDroppedAndMadeAgain) {
    SampleInfo& info = addConstructible("Thing");
    addConstructible("Other");
    std::vector<Value> things;
    for (int i = 0; i < 200; ++i) {
        things.push_back(make("Thing"));
        if (i % 50 == 0)
            things.push_back(make("Other"));
    }
    std::set<const COSInterface*> distinct;
    for (const Value& thing : things) {
        distinct.insert(instanceOf(thing));
        EXPECT_TRUE(instanceOf(thing)->isValid());
    }
    EXPECT_EQ(distinct.size(), things.size());
    for (std::size_t i = 0; i < things.size(); i += 3)
        things[i] = Value();
    for (std::size_t i = 0; i < things.size(); i += 3) {
        things[i] = make("Thing");
        EXPECT_TRUE(instanceOf(things[i])->isValid());
        EXPECT_EQ(things[i].array()->refs, 1u);
        EXPECT_EQ(instanceOf(things[i])->getNativeStorage(nameOf("Thing")), nullptr);
        EXPECT_EQ(instanceOf(things[i])->getClass(), &classOf("Thing"));
    }
    things.clear();
    EXPECT_EQ(Store::living, 0);
    EXPECT_GT(info.destroyed, 200);
}

TEST_F(InstanceTest, AllOfAClassEndWithIt) {
    const PackageTree::Mark mark = PackageTree::mark();
    SampleInfo& info = addConstructible("Thing");
    std::vector<Value> things;
    for (int i = 0; i < 150; ++i)
        things.push_back(make("Thing"));
    for (std::size_t i = 0; i < things.size(); i += 2)
        things[i] = Value();
    const int before = info.destroyed;
    Value late;
    info.destroy = [&](COSInterface*, Wrappable* native) {
        if (late.isUnset())
            late = make("Thing"); // made while the class goes: ends as well
        delete native;
        return true;
    };
    EXPECT_EQ(before, 75);
    PackageTree::withdrawSince(mark);
    EXPECT_EQ(Store::living, 0);
    for (std::size_t i = 1; i < things.size(); i += 2)
        EXPECT_FALSE(instanceOf(things[i])->isValid());
    EXPECT_FALSE(instanceOf(late)->isValid());
}

TEST_F(InstanceTest, EndsInTheOrderOfRelease) {
    SampleInfo& info = addConstructible("Thing");
    std::vector<const Wrappable*> order;
    info.destroy = [&](COSInterface*, Wrappable* native) {
        order.push_back(native);
        const bool removed = BindingRegistry::remove(native);
        delete native;
        return removed;
    };
    std::vector<Value> handles;
    std::vector<const Wrappable*> stores;
    for (int i = 0; i < 4; ++i) {
        handles.push_back(make("Thing"));
        stores.push_back(storeOf(instanceOf(handles.back())));
    }
    handles[2] = {};
    handles[0] = {};
    handles[3] = {};
    handles[1] = {};
    EXPECT_EQ(order, (std::vector<const Wrappable*>{stores[2], stores[0], stores[3], stores[1]}));
}

// An object that releases a cell of handles while its own handle is released by a cell.
TEST_F(InstanceTest, MayHoldCellsThatHoldHandles) {
    addConstructible("Thing");
    Value outer = make("Thing");
    Value inner = make("Thing");
    hvArray* const cell = hvCreateCellMatrix(1, 2);
    varnix::setCell(cell, 0, inner);
    varnix::setCell(cell, 1, Value::text("beside it"));
    const Value held = Value::fromArray(cell);
    storeOf(instanceOf(outer))->keep(COSValue::ofArray(cell, COSNameID("cell")));

    hvArray* const around = hvCreateCellMatrix(1, 1);
    varnix::setCell(around, 0, outer);
    Value whole = Value::fromArray(around);
    outer = inner = {};
    const_cast<Value&>(held) = {};
    EXPECT_EQ(Store::living, 2);
    whole = {};
    EXPECT_EQ(Store::living, 0);
}

TEST_F(InstanceTest, AnnouncedHandleCountsItsReferences) {
    addConstructible("Thing");
    auto* const store = new Store;
    hvArray* const first = BindingRegistry::announce(store, nameOf("Thing"));
    EXPECT_EQ(first->refs, 1u);
    hvArray* const second = BindingRegistry::announce(store, nameOf("Thing"));
    EXPECT_EQ(second, first);
    EXPECT_EQ(first->refs, 2u);
    hvDestroyArray(second);
    EXPECT_EQ(Store::living, 1);
    hvDestroyArray(first);
    EXPECT_EQ(Store::living, 0);
}

TEST_F(InstanceTest, AnnouncedUnderAnUnknownClassIsAnError) {
    Store store;
    EXPECT_EQ(identifierOf([&] { (void)BindingRegistry::announce(&store, nameOf("Missing")); }),
              "varnix:undefined");
    EXPECT_EQ(identifierOf([&] { (void)BindingRegistry::announce(nullptr, nameOf("Missing")); }),
              "varnix:undefined");
    EXPECT_EQ(BindingRegistry::instanceOf(&store), nullptr);
}

TEST_F(InstanceTest, HandleIsAnObjectArrayOfOne) {
    addConstructible("Thing");
    const Value handle = make("Thing");
    const hvArray* const array = handle.array();
    EXPECT_TRUE(handle.isHandle());
    EXPECT_EQ(hvGetClassID(array), hvOBJECT_CLASS);
    EXPECT_EQ(hvGetM(array), 1u);
    EXPECT_EQ(hvGetN(array), 1u);
    EXPECT_EQ(omGetArrayElement(array, 0), instanceOf(handle));
    EXPECT_EQ(omGetArrayElement(array, 1), nullptr);
    EXPECT_EQ(cosiGetArrayElement(array, 0), instanceOf(handle));
    EXPECT_EQ(hvGetData(array), nullptr);
}

// ---- arrays of objects

TEST_F(InstanceTest, ArrayElementsAreSetReplacedAndEmptied) {
    addConstructible("Thing");
    hvArray* const row = omCreateOBJSYSMatrix(1, 2, nameOf("Thing"));
    EXPECT_EQ(omGetArrayElement(row, 0), nullptr);
    {
        const Value first = make("Thing");
        const Value second = make("Thing");
        omSetArrayElement(row, 0, instanceOf(first));
        EXPECT_EQ(first.array()->refs, 2u);
        omSetArrayElement(row, 0, instanceOf(first)); // by itself
        EXPECT_EQ(first.array()->refs, 2u);
        omSetArrayElement(row, 0, instanceOf(second));
        EXPECT_EQ(first.array()->refs, 1u);
        EXPECT_EQ(second.array()->refs, 2u);
    }
    EXPECT_EQ(Store::living, 1);
    omSetArrayElement(row, 0, nullptr);
    EXPECT_EQ(Store::living, 0);
    EXPECT_EQ(omGetArrayElement(row, 0), nullptr);
    hvDestroyArray(row);
}

TEST_F(InstanceTest, WrongElementsAreErrors) {
    addConstructible("Thing");
    const Value handle = make("Thing");
    const Value row = Value::fromArray(omCreateOBJSYSMatrix(1, 2, nameOf("Thing")));
    const Value numbers = Value::fromArray(hvCreateArray(hvDOUBLE_CLASS, 1, 4));
    const auto set = [&](hvArray* array, std::size_t index) {
        return identifierOf([&] { omSetArrayElement(array, index, instanceOf(handle)); });
    };
    EXPECT_EQ(set(row.array(), 2), "varnix:badIndex");
    EXPECT_EQ(set(row.array(), ~std::size_t{0}), "varnix:badIndex");
    EXPECT_EQ(set(handle.array(), 0), "varnix:badIndex");
    EXPECT_EQ(set(numbers.array(), 0), "varnix:badIndex");
    EXPECT_EQ(set(nullptr, 0), "varnix:badIndex");
    EXPECT_EQ(handle.array()->refs, 1u);
    EXPECT_EQ(omGetArrayElement(nullptr, 0), nullptr);
    EXPECT_EQ(omGetArrayElement(numbers.array(), 0), nullptr);
    EXPECT_EQ(omGetArrayElement(row.array(), 2), nullptr);
    EXPECT_EQ(identifierOf([&] { (void)omCreateOBJSYSMatrix(1, 1, nameOf("Missing")); }),
              "varnix:undefined");
}

class HeterogeneousArrays : public ObjectTest {
protected:
    HeterogeneousArrays() {
        derive("Base", "varnix.mixin.Heterogeneous");
        derive("Left", "internal.objects.Base");
        derive("LeftOfLeft", "internal.objects.Left");
        derive("Right", "internal.objects.Base");
        derive("Apart", "varnix.mixin.Heterogeneous");
        addConstructible("Stranger");
    }
    void derive(const char* name, const char* super) {
        add(name, [full = fullName(name), super](COSClassDefinition& definition) {
            definition.addSuperclass(COSNameID(super), 1, 0, 1);
            definition.addMethod(storeConstructor(full.c_str()));
        });
    }
    /// A row whose declared class is the first one, after its class has been set.
    Value rowOf(const char* declared, const std::vector<const char*>& classes) {
        hvArray* const row = omCreateOBJSYSMatrix(1, classes.size(), nameOf(declared));
        Value value = Value::keeping(row);
        for (std::size_t i = 0; i < classes.size(); ++i)
            if (*classes[i])
                omSetArrayElement(row, i, instanceOf(make(classes[i])));
        omSetClassOfHeterogeneousArray(row);
        return value;
    }
    static bool mixed(const Value& row) {
        return (row.array()->flags & hvArray::Heterogeneous) != 0;
    }
};

TEST_F(HeterogeneousArrays, TakeTheMostDerivedCommonClass) {
    const auto expect = [&](const std::vector<const char*>& classes, const char* common,
                            bool isMixed) {
        const Value row = rowOf("Base", classes);
        EXPECT_EQ(varnix::className(row), common);
        EXPECT_EQ(mixed(row), isMixed);
    };
    expect({}, "internal.objects.Base", false);
    expect({"", ""}, "internal.objects.Base", false);
    expect({"Base", "Base"}, "internal.objects.Base", false);
    expect({"Left", "Left"}, "internal.objects.Left", false);
    expect({"Left", "", "Left"}, "internal.objects.Left", false);
    expect({"Left", "Right"}, "internal.objects.Base", true);
    expect({"LeftOfLeft", "Left"}, "internal.objects.Left", true);
    expect({"Left", "LeftOfLeft"}, "internal.objects.Left", true);
    expect({"LeftOfLeft", "Right", "Left"}, "internal.objects.Base", true);
    expect({"Left", "Apart"}, "varnix.mixin.Heterogeneous", true);
    expect({"Left", "Apart", "Left", "Base"}, "varnix.mixin.Heterogeneous", true);
}

TEST_F(HeterogeneousArrays, RefuseClassesWithNothingInCommon) {
    EXPECT_EQ(identifierOf([&] { (void)rowOf("Base", {"Left", "Stranger"}); }), "varnix:wrongType");
    EXPECT_EQ(identifierOf([&] { (void)rowOf("Base", {"Stranger", "Left"}); }), "varnix:wrongType");
}

TEST_F(HeterogeneousArrays, LeaveWhatIsNoObjectArray) {
    const Value numbers = Value::fromArray(hvCreateArray(hvDOUBLE_CLASS, 1, 2));
    omSetClassOfHeterogeneousArray(numbers.array());
    omSetClassOfHeterogeneousArray(nullptr);
    const Value handle = make("Left");
    omSetClassOfHeterogeneousArray(handle.array());
    EXPECT_EQ(varnix::className(handle), "internal.objects.Left");
}

} // namespace
