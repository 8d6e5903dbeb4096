// Native objects that lie behind their instances: when the memory is in use, and when an instance
// whose native object goes its own way can be used again.

#include "tests/object_sample.hpp"

#include <gtest/gtest.h>
#include <new>
#include <set>
#include <stdexcept>
#include <vector>

namespace {

using namespace sample;

class InstanceMemoryTest : public ObjectTest {
protected:
    /// Publishes a class whose constructor builds its store in the memory that it is offered, and
    /// counts how often it was offered none.
    SampleInfo& addInPlace(const char* shortName, std::size_t bytes = sizeof(Store)) {
        return add(
            shortName, [this, bytes, name = fullName(shortName)](COSClassDefinition& definition) {
                COSMethodSignature declared = signature(name.c_str(), nullptr);
                declared.nativeBytes = bytes;
                definition.addMethod(new FunctionMethod(
                    name.c_str(), declared,
                    [this](int, COSValue* outputs, const COSValue*) { return build(outputs[0]); },
                    true));
            });
    }
    int build(const COSValue& output) {
        COSInterface* const instance = omGetArrayElement(output.asArray(), 0);
        void* const storage = instance->getNativeStorage(output.type());
        if (!storage) {
            ++apart;
            (void)bindStore(output);
            return 1;
        }
        EXPECT_EQ(storage, static_cast<void*>(instance + 1));
        auto* const store = ::new (storage) Store;
        if (fails) {
            store->~Store();
            throw std::runtime_error("nothing today");
        }
        BindingRegistry::announceForConstructor(store, output.type(), output.asArray(), true);
        instance->takeNativeStorage();
        return 1;
    }
    static bool liesBehind(const Value& handle) {
        COSInterface* const instance = instanceOf(handle);
        return static_cast<void*>(storeOf(instance)) == instance + 1;
    }

    int apart = 0;
    bool fails = false;
};

TEST_F(InstanceMemoryTest, IsOfferedUntilAnObjectIsInIt) {
    addInPlace("Thing");
    const Value thing = make("Thing");
    EXPECT_TRUE(liesBehind(thing));
    EXPECT_EQ(instanceOf(thing)->getNativeStorage(nameOf("Thing")), nullptr);
    EXPECT_EQ(apart, 0);
    EXPECT_EQ(Store::living, 1);
}

TEST_F(InstanceMemoryTest, IsUsedAgainWithItsInstance) {
    addInPlace("Thing");
    Value thing = make("Thing");
    const COSInterface* const first = instanceOf(thing);
    thing = {};
    EXPECT_EQ(Store::living, 0);
    thing = make("Thing");
    EXPECT_EQ(instanceOf(thing), first);
    EXPECT_TRUE(liesBehind(thing));
    EXPECT_EQ(storeOf(instanceOf(thing))->assignments, 0); // another object
}

TEST_F(InstanceMemoryTest, NoTwoObjectsShareIt) {
    addInPlace("Thing");
    std::vector<Value> things;
    std::set<char*> starts;
    for (int i = 0; i < 200; ++i) {
        things.push_back(make("Thing"));
        EXPECT_TRUE(liesBehind(things.back()));
        starts.insert(reinterpret_cast<char*>(instanceOf(things.back())));
    }
    ASSERT_EQ(starts.size(), things.size());
    for (auto i = starts.begin(); std::next(i) != starts.end(); ++i)
        EXPECT_GE(*std::next(i) - *i,
                  static_cast<std::ptrdiff_t>(sizeof(COSInterface) + sizeof(Store)));
}

TEST_F(InstanceMemoryTest, IsFreeWhenTheObjectDiesFirst) {
    const SampleInfo& info = addInPlace("Thing");
    Value thing = make("Thing");
    const COSInterface* const first = instanceOf(thing);
    delete storeOf(instanceOf(thing));
    EXPECT_FALSE(instanceOf(thing)->isValid());
    EXPECT_EQ(Store::living, 0);
    thing = {};
    EXPECT_EQ(info.destroyed, 0); // there was nothing to destroy
    thing = make("Thing");
    EXPECT_EQ(instanceOf(thing), first);
    EXPECT_TRUE(liesBehind(thing));
}

TEST_F(InstanceMemoryTest, IsFreeWhenAScriptDeletesTheObject) {
    addInPlace("Thing");
    Value thing = make("Thing");
    const COSInterface* const first = instanceOf(thing);
    objsys::deleteInstance(instanceOf(thing));
    EXPECT_EQ(Store::living, 0);
    Value other = make("Thing"); // while the first handle is still held
    EXPECT_NE(instanceOf(other), first);
    thing = {};
    thing = make("Thing");
    EXPECT_EQ(instanceOf(thing), first);
    EXPECT_TRUE(liesBehind(other));
    EXPECT_TRUE(liesBehind(thing));
}

#if defined(__SANITIZE_ADDRESS__) // nobody else watches what is read

using InstanceMemoryDeathTest = InstanceMemoryTest;

void read(const Store& store) {
    static_cast<void>(*static_cast<const volatile int*>(&store.assignments));
}

TEST_F(InstanceMemoryDeathTest, IsNotReadAfterItsInstance) {
    addInPlace("Thing");
    Value thing = make("Thing");
    const Store* const store = storeOf(instanceOf(thing));
    read(*store);
    thing = {};
    EXPECT_DEATH(read(*store), "use-after-poison");
    thing = make("Thing");
    ASSERT_EQ(storeOf(instanceOf(thing)), store);
    read(*store);
}

TEST_F(InstanceMemoryDeathTest, IsNotReadAfterAnObjectThatDiesFirst) {
    addInPlace("Thing");
    Value thing = make("Thing");
    const Store* const store = storeOf(instanceOf(thing));
    objsys::deleteInstance(instanceOf(thing));
    EXPECT_DEATH(read(*store), "use-after-poison");
    thing = {};
    EXPECT_DEATH(read(*store), "use-after-poison");
}

#endif

// A class may only unbind its objects. The memory of the instance then waits for the object.
TEST_F(InstanceMemoryTest, BelongsToAnObjectThatOutlivesItsHandle) {
    SampleInfo& info = addInPlace("Thing");
    info.destroy = [](COSInterface*, Wrappable* native) { return BindingRegistry::remove(native); };
    Value thing = make("Thing");
    const COSInterface* const first = instanceOf(thing);
    Store* const store = storeOf(instanceOf(thing));
    thing = {};
    EXPECT_EQ(Store::living, 1);
    store->assignments = 4711;

    info.destroy = {};
    std::vector<Value> others;
    for (int i = 0; i < 200; ++i) {
        others.push_back(make("Thing"));
        EXPECT_NE(instanceOf(others.back()), first);
    }
    EXPECT_EQ(store->assignments, 4711);

    // It can be handed out again, by an instance that has no such memory.
    thing = Value::ofHandle(BindingRegistry::announce(store, nameOf("Thing")));
    EXPECT_EQ(storeOf(instanceOf(thing)), store);
    EXPECT_NE(instanceOf(thing), first);
    EXPECT_EQ(instanceOf(thing)->getNativeStorage(nameOf("Thing")), nullptr);

    thing = {}; // which deletes the object
    EXPECT_EQ(Store::living, 200);
    thing = make("Thing");
    EXPECT_EQ(instanceOf(thing), first);
    EXPECT_TRUE(liesBehind(thing));
}

TEST_F(InstanceMemoryTest, IsLeftFreeByAConstructorThatFails) {
    const SampleInfo& info = addInPlace("Thing");
    fails = true;
    EXPECT_THROW((void)make("Thing"), std::runtime_error);
    EXPECT_EQ(Store::living, 0);
    EXPECT_EQ(info.destroyed, 0);
    fails = false;
    const Value thing = make("Thing");
    EXPECT_TRUE(liesBehind(thing));
}

// A constructor need not use what it is offered.
TEST_F(InstanceMemoryTest, MayStayFree) {
    add("Thing", [name = fullName("Thing")](COSClassDefinition& definition) {
        COSMethodSignature declared = signature(name.c_str(), nullptr);
        declared.nativeBytes = sizeof(Store);
        definition.addMethod(new FunctionMethod(
            name.c_str(), declared,
            [](int, COSValue* outputs, const COSValue*) {
                (void)bindStore(outputs[0]);
                return 1;
            },
            true));
    });
    Value thing = make("Thing");
    EXPECT_FALSE(liesBehind(thing));
    const COSInterface* const first = instanceOf(thing);
    thing = {};
    EXPECT_EQ(Store::living, 0);
    thing = make("Thing");
    EXPECT_EQ(instanceOf(thing), first);
}

TEST_F(InstanceMemoryTest, IsNotOfferedForObjectsThatAreTooLarge) {
    addInPlace("Large", objsys::detail::InstancePool::mostNativeBytes + 1);
    addInPlace("None", 0);
    const Value large = make("Large");
    const Value none = make("None");
    EXPECT_EQ(apart, 2);
    EXPECT_FALSE(liesBehind(large));
    EXPECT_FALSE(liesBehind(none));
}

TEST_F(InstanceMemoryTest, IsOnlyForObjectsThatAreConstructed) {
    addInPlace("Thing");
    const Value constructed = make("Thing");
    auto* const store = new Store;
    const Value announced = Value::ofHandle(BindingRegistry::announce(store, nameOf("Thing")));
    EXPECT_EQ(instanceOf(announced)->getNativeStorage(nameOf("Thing")), nullptr);
    EXPECT_EQ(instanceOf(announced)->getClass(), instanceOf(constructed)->getClass());
}

TEST_F(InstanceMemoryTest, EndsWithItsClass) {
    const PackageTree::Mark mark = PackageTree::mark();
    SampleInfo& info = addInPlace("Thing");
    std::vector<Value> things;
    for (int i = 0; i < 150; ++i)
        things.push_back(make("Thing"));
    for (std::size_t i = 0; i < things.size(); i += 2)
        things[i] = Value();
    // One that is only unbound, whose object outlives class and instance.
    info.destroy = [](COSInterface*, Wrappable* native) { return BindingRegistry::remove(native); };
    Store* const left = storeOf(instanceOf(things[1]));
    things[1] = Value();
    Value late;
    info.destroy = [&](COSInterface*, Wrappable* native) {
        if (late.isUnset())
            late = make("Thing"); // made while the class goes: ends as well
        delete native;
        return true;
    };
    PackageTree::withdrawSince(mark);
    EXPECT_EQ(Store::living, 1);
    for (std::size_t i = 3; i < things.size(); i += 2)
        EXPECT_FALSE(instanceOf(things[i])->isValid());
    EXPECT_FALSE(instanceOf(late)->isValid());
    delete left;
    EXPECT_EQ(Store::living, 0);
    things.clear(); // what is left of the class takes its instances back
}

} // namespace
