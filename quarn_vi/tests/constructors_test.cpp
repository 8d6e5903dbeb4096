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

TEST_F(Constructors, TakeTheObjectBackWhenItCannotBeBound) {
    const Array handle = construct(engines()); // bound: a second object has no place in it
    Engine::allocated = 0;
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

// ---- objects behind their instances

/// An object whose memory is the host's business.
class Inlay : public Wrappable {
public:
    static constexpr const char* scriptClassName = "internal.sample.Inlay";
    template <class Descriptor>
    static void declareMembers(COSClassDefinition* definition, const Descriptor* descriptor) {
        ClassDeclaration<Inlay> declare(definition, descriptor);
        declare.template constructor<>();
        declare.template constructor<std::string>();
    }

    explicit Inlay(std::string label = "default") : label_(std::move(label)) {
        if (label_ == "fails")
            throw std::runtime_error("no inlay today");
        ++living;
        if (label_ == "announces itself")
            announced = Array(BindingRegistry::announce(this, COSNameID(scriptClassName)));
    }
    ~Inlay() override { --living; }

    std::string label_;

    static inline int living = 0;
    static inline Array announced;
};

/// The same where a handle only unbinds its object.
class LooseInlay : public Inlay {
public:
    static constexpr const char* scriptClassName = "internal.sample.LooseInlay";
    template <class Descriptor>
    static void declareMembers(COSClassDefinition* definition, const Descriptor* descriptor) {
        ClassDeclaration<LooseInlay> declare(definition, descriptor);
        declare.template constructor<>();
    }
};

/// One that needs more alignment than the host's memory has.
class alignas(64) WideInlay : public Inlay {
public:
    static constexpr const char* scriptClassName = "internal.sample.WideInlay";
    template <class Descriptor>
    static void declareMembers(COSClassDefinition* definition, const Descriptor* descriptor) {
        ClassDeclaration<WideInlay> declare(definition, descriptor);
        declare.template constructor<>();
    }
};

/// One that gives back its memory itself, which has to be its own then.
class OwnInlay : public Inlay {
public:
    static constexpr const char* scriptClassName = "internal.sample.OwnInlay";
    template <class Descriptor>
    static void declareMembers(COSClassDefinition* definition, const Descriptor* descriptor) {
        ClassDeclaration<OwnInlay> declare(definition, descriptor);
        declare.template constructor<>();
    }
    static void* operator new(std::size_t bytes) { return std::malloc(bytes); }
    static void operator delete(void* memory) {
        ++released;
        std::free(memory);
    }
    static inline int released = 0;
};

template <class Native>
bool liesBehind(const Array& handle) {
    return static_cast<void*>(nativeIn<Native>(handle)) == instanceIn(handle) + 1;
}

class Inlays : public testing::Test {
protected:
    ~Inlays() override { EXPECT_EQ(Inlay::living, 0); }
    static COSClass& inlays() { return published<Inlay, 1>(); }
    static Array inlay(const char* label) {
        const Array name = text(label);
        return construct(inlays(), {arrayValue(name)});
    }
};

TEST_F(Inlays, AreBuiltBehindTheirInstances) {
    const Array plain = construct(inlays());
    const Array labelled = inlay("second");
    EXPECT_TRUE(liesBehind<Inlay>(plain));
    EXPECT_TRUE(liesBehind<Inlay>(labelled));
    EXPECT_EQ(nativeIn<Inlay>(plain)->label_, "default");
    EXPECT_EQ(nativeIn<Inlay>(labelled)->label_, "second");
    EXPECT_EQ(inlays().constructors()[0]->getSignature().nativeBytes, sizeof(Inlay));
    EXPECT_EQ(Inlay::living, 2);
}

TEST_F(Inlays, DieWithTheirHandles) {
    Array handle = construct(inlays());
    const COSInterface* const first = instanceIn(handle);
    handle.reset();
    EXPECT_EQ(Inlay::living, 0);
    handle = construct(inlays());
    EXPECT_EQ(instanceIn(handle), first);
}

TEST_F(Inlays, DeletedByTheirOwnerLeaveAnInvalidHandle) {
    Array handle = construct(inlays());
    const COSInterface* const first = instanceIn(handle);
    delete nativeIn<Inlay>(handle);
    EXPECT_EQ(Inlay::living, 0);
    EXPECT_FALSE(instanceIn(handle)->isValid());
    handle.reset();
    handle = construct(inlays());
    EXPECT_EQ(instanceIn(handle), first);
    EXPECT_TRUE(liesBehind<Inlay>(handle));
}

TEST_F(Inlays, ThatCannotBeBuiltLeaveTheMemoryFree) {
    Array handle = construct(inlays());
    const COSInterface* const first = instanceIn(handle);
    handle.reset();
    EXPECT_THROW(inlay("fails"), std::runtime_error);
    EXPECT_EQ(Inlay::living, 0);
    handle = construct(inlays());
    EXPECT_EQ(instanceIn(handle), first);
}

TEST_F(Inlays, ThatCannotBeBoundAreTakenBack) {
    EXPECT_EQ(errorOf([] { inlay("announces itself"); }), "varnix:alreadyBound");
    EXPECT_EQ(Inlay::living, 0);
    EXPECT_FALSE(instanceIn(Inlay::announced)->isValid());
    Inlay::announced.reset();

    // A second object for the same instance has no place behind it.
    const Array handle = construct(inlays());
    COSValue output = COSValue::ofArray(handle.get(), COSNameID(Inlay::scriptClassName));
    EXPECT_EQ(errorOf([&] { inlays().constructors()[0]->invoke(1, &output, nullptr); }),
              "varnix:alreadyBound");
    EXPECT_EQ(Inlay::living, 1);
    EXPECT_TRUE(liesBehind<Inlay>(handle));
}

TEST_F(Inlays, ThatOthersMadeLieWhereTheyWereMade) {
    auto made = std::make_unique<Inlay>("made");
    inlays();
    const Array handle(BindingRegistry::announce(made.get(), COSNameID(Inlay::scriptClassName)));
    EXPECT_FALSE(liesBehind<Inlay>(handle));
    EXPECT_EQ(instanceIn(handle)->getNativeStorage(COSNameID(Inlay::scriptClassName)), nullptr);
    made.reset();
    EXPECT_FALSE(instanceIn(handle)->isValid());
}

TEST_F(Inlays, ThatAreOnlyUnboundHaveMemoryOfTheirOwn) {
    Array handle = construct(published<LooseInlay, 0>());
    LooseInlay* const object = nativeIn<LooseInlay>(handle);
    EXPECT_FALSE(liesBehind<LooseInlay>(handle));
    handle.reset();
    EXPECT_EQ(Inlay::living, 1);
    EXPECT_EQ(object->label_, "default");
    delete object;
}

TEST_F(Inlays, OfAnotherMemoryHaveMemoryOfTheirOwn) {
    {
        const Array wide = construct(published<WideInlay, 1>());
        EXPECT_FALSE(liesBehind<WideInlay>(wide));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(nativeIn<WideInlay>(wide)) % 64, 0u);
        const Array own = construct(published<OwnInlay, 1>());
        EXPECT_FALSE(liesBehind<OwnInlay>(own));
        EXPECT_EQ(Inlay::living, 2);
    }
    EXPECT_EQ(OwnInlay::released, 1);
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
