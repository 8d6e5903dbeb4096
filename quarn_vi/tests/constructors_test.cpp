// Constructors: where native objects come from, with which arguments, and what becomes of the
// memory when something fails on the way.

#include "tests/sample.hpp"

#include <cstdlib>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using namespace sample;

/// Counts its objects and the memory that is allocated for them in particular.
class Engine : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Engine";
    static void declareMembers(COSClassDefinition* definition) {
        ClassDeclaration<Engine> declare(definition);
        declare.constructor();
        declare.constructor<std::string>();
        declare.constructor<double, std::vector<std::string>>();
    }

    Engine() {
        if (fails)
            throw std::runtime_error("no engine today");
        ++living;
    }
    explicit Engine(std::string label) : Engine() { label_ = std::move(label); }
    Engine(double power, const std::vector<std::string>& parts) : Engine() {
        power_ = power;
        parts_ = parts;
    }
    ~Engine() override { --living; }

    static void* operator new(std::size_t bytes) {
        ++allocated;
        return std::malloc(bytes);
    }
    static void operator delete(void* memory) {
        ++released;
        std::free(memory);
    }

    std::string label_ = "default";
    double power_ = 0;
    std::vector<std::string> parts_;

    static inline bool fails = false;
    static inline int living = 0;
    static inline int allocated = 0;
    static inline int released = 0;
};

COSClass& engines() {
    return published<Engine, 1>();
}

class Constructors : public testing::Test {
protected:
    Constructors() {
        Engine::fails = false;
        Engine::allocated = Engine::released = 0;
    }
    ~Constructors() override { EXPECT_EQ(Engine::living, 0); }

    /// An instance without a native object: what the host has while it constructs.
    static Array instanceUnderConstruction() {
        engines();
        Engine* const engine = new Engine;
        Array handle(BindingRegistry::announce(engine, COSNameID(Engine::scriptClassName)));
        delete engine;
        Engine::allocated = Engine::released = 0;
        return handle;
    }
    /// Calls the constructor without arguments as the host does.
    static int invoke(const Array& handle, int requested) {
        COSValue output = COSValue::ofArray(handle.get(), COSNameID(Engine::scriptClassName));
        return engines().constructors()[0]->invoke(requested, &output, nullptr);
    }
};

TEST_F(Constructors, AreToldApartByTheirNumberOfArguments) {
    EXPECT_EQ(nativeIn<Engine>(construct(engines()))->label_, "default");

    const Array label = text("second");
    EXPECT_EQ(nativeIn<Engine>(construct(engines(), {arrayValue(label)}))->label_, "second");

    const Array parts = cellOf(1, 2, {hvCreateString("valve"), hvCreateString("rod")});
    const Array handle = construct(engines(), {number(1.5), arrayValue(parts)});
    EXPECT_EQ(nativeIn<Engine>(handle)->power_, 1.5);
    EXPECT_EQ(nativeIn<Engine>(handle)->parts_, (std::vector<std::string>{"valve", "rod"}));

    const std::vector<COSValue> three(3, number(1));
    EXPECT_EQ(errorOf([&] { construct(engines(), three); }), "varnix:tooManyInputs");
}

TEST_F(Constructors, ConvertTheirArguments) {
    const Array cell = cellOf(1, 1, {hvCreateDoubleScalar(1)});
    EXPECT_EQ(errorOf([&] { construct(engines(), {number(1)}); }), "varnix:wrongType");
    EXPECT_EQ(errorOf([&] {
                  construct(engines(), {number(1), number(1)});
              }),
              "varnix:mustBeCellArray");
    EXPECT_EQ(errorOf([&] {
                  construct(engines(), {number(1), arrayValue(cell)});
              }),
              "varnix:mustBeString");
    // Whatever was allocated before the argument turned out wrong is released.
    EXPECT_EQ(Engine::allocated, Engine::released);
}

TEST_F(Constructors, Describe) {
    const auto& constructors = engines().constructors();
    ASSERT_EQ(constructors.size(), 3u);
    for (const objsys::COSMethodInfo* constructor : constructors) {
        EXPECT_TRUE(constructor->isConstructor());
        EXPECT_EQ(constructor->getName().str(), "Engine");
        EXPECT_STREQ(constructor->getDescription(), "");
        EXPECT_EQ(constructor->getAttributes(), MethodAttributes());
        EXPECT_EQ(constructor->getSignature().text, "");
        EXPECT_EQ(constructor->getSignature().result.str(), "internal.sample.Engine");
        EXPECT_FALSE(constructor->getSignature().hasSelf);
    }
    EXPECT_TRUE(constructors[0]->getSignature().arguments.empty());
    ASSERT_EQ(constructors[2]->getSignature().arguments.size(), 2u);
    EXPECT_EQ(constructors[2]->getSignature().arguments[0].str(), "double scalar");
    EXPECT_EQ(constructors[2]->getSignature().arguments[1].str(), "cell");
}

TEST_F(Constructors, AllocateWhereTheHostReservedNothing) {
    const Array handle = instanceUnderConstruction();
    EXPECT_EQ(invoke(handle, 1), 1);
    EXPECT_EQ(Engine::allocated, 1);
    EXPECT_EQ(Engine::living, 1);
    EXPECT_NE(nativeIn<Engine>(handle), nullptr);
}

TEST_F(Constructors, BuildInTheHostsStorage) {
    const Array handle = instanceUnderConstruction();
    alignas(Engine) std::byte storage[sizeof(Engine)];
    instanceIn(handle)->setNativeStorage(storage);
    EXPECT_EQ(invoke(handle, 1), 1);
    EXPECT_EQ(static_cast<void*>(nativeIn<Engine>(handle)), storage);
    EXPECT_EQ(Engine::allocated, 0);
    nativeIn<Engine>(handle)->~Engine(); // the storage is the host's, and so is this
    EXPECT_FALSE(instanceIn(handle)->isValid());
}

TEST_F(Constructors, GiveAtLeastOneOutput) {
    for (const int requested : {0, 1, 2, 7}) {
        const Array handle = instanceUnderConstruction();
        EXPECT_EQ(invoke(handle, requested), requested == 0 ? 1 : requested);
    }
}

TEST_F(Constructors, ReleaseTheirOwnAllocationWhenTheObjectCannotBeBuilt) {
    const Array handle = instanceUnderConstruction();
    Engine::fails = true;
    EXPECT_THROW(invoke(handle, 1), std::runtime_error);
    EXPECT_EQ(Engine::allocated, 1);
    EXPECT_EQ(Engine::released, 1);
    EXPECT_FALSE(instanceIn(handle)->isValid());
}

TEST_F(Constructors, LeaveTheHostsStorageAloneWhenTheObjectCannotBeBuilt) {
    const Array handle = instanceUnderConstruction();
    alignas(Engine) std::byte storage[sizeof(Engine)];
    instanceIn(handle)->setNativeStorage(storage);
    Engine::fails = true;
    EXPECT_THROW(invoke(handle, 1), std::runtime_error);
    EXPECT_EQ(Engine::allocated, 0);
    EXPECT_EQ(Engine::released, 0);
    EXPECT_FALSE(instanceIn(handle)->isValid());
}

TEST_F(Constructors, TakeTheObjectBackWhenItCannotBeBound) {
    const Array handle = construct(engines()); // bound: a second object has no place in it
    Engine::allocated = 0;
    EXPECT_EQ(errorOf([&] { invoke(handle, 1); }), "varnix:alreadyBound");
    EXPECT_EQ(Engine::allocated, 1);
    EXPECT_EQ(Engine::released, 1);
    EXPECT_EQ(Engine::living, 1);

    alignas(Engine) std::byte storage[sizeof(Engine)];
    instanceIn(handle)->setNativeStorage(storage);
    EXPECT_EQ(errorOf([&] { invoke(handle, 1); }), "varnix:alreadyBound");
    EXPECT_EQ(Engine::allocated, 1);
    EXPECT_EQ(Engine::released, 1);
    EXPECT_EQ(Engine::living, 1);
}

TEST_F(Constructors, ThatFailLeaveNoInstanceBehind) {
    Engine::fails = true;
    EXPECT_THROW(construct(engines()), std::runtime_error);
    EXPECT_EQ(Engine::allocated, Engine::released);
    Engine::fails = false;
    EXPECT_TRUE(instanceIn(construct(engines()))->isValid());
}

class Unbuildable : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Unbuildable";
    static void declareMembers(COSClassDefinition*) {}
};

TEST(ClassWithoutConstructor, CannotBeConstructedByAScript) {
    EXPECT_TRUE(published<Unbuildable>().constructors().empty());
    EXPECT_EQ(errorOf([] { construct(published<Unbuildable>()); }), "varnix:notConstructible");
    Unbuildable object; // only the module makes them
    EXPECT_TRUE(instanceIn(handleOf(&object))->isValid());
}

} // namespace
