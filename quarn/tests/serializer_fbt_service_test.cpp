// Serialized IR: equal IR comes back, and what was cut short, altered or made up is refused with a
// message.
#include "services/serial/frame.hpp"
#include "tests/service_support.hpp"
#include "tools/generate.hpp"

#include <qn/copy.hpp>
#include <qn/pipeline.hpp>
#include <qn/serializer.hpp>
#include <qn/serializer_fbt_service.hpp>
#include <qn/text.hpp>

#include <gmock/gmock.h>
#include <ir_generated.h>
#include <random>

using namespace QN;
using namespace QN::testing_support;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

constexpr const char* everything = R"((scope session "all of it"
  (declare outside f64 f64 i32[])
  (function f f64 local @3
    (param $x f64 @3)
    (param $n i32 @4)
    (user $a f64[] @4)
    (user $y.3 f64)
    (user $y.4 f64)
    (user $.5 "odd \x00 name" f64)
    (temp $.6 f64*)
    (block b7
      (%1 f64 load $x @5)
      (%2 i32 load $n)
      (%3 i32 add %2 5i32)
      (%4 i32 div:even:wrap %3 -7i32)
      (%5 f64 convert %4)
      (%6 f64[] newarray 2i64 3i64)
      (store $a %6)
      (stelem:inb $a 1i64 nan)
      (%9 f64* addrof $x)
      (store $.6 %9)
      (storep %9 -0)
      (%12 logical lt %1 inf)
      (br %12 b2 b7))
    (block b2
      (%14 f64 call &outside %1 %5)
      (%15 f64 call &"no such" 0.1)
      (ret %14)))
  (scope unit inner
    (function g void
      (block b0
        (ret)))))
)";

std::string qnelOf(const Scope& scope) {
    std::string text;
    printQnel(scope, text);
    return text;
}

std::string errorOf(std::string_view bytes) {
    std::string error;
    return deserialize(bytes, error) == nullptr ? error : "no error";
}

void expectEqualGraphs(const Scope& a, const Scope& b) {
    ASSERT_EQ(a.functions().size(), b.functions().size());
    for (std::size_t i = 0; i < a.functions().size(); ++i) {
        const Function& f = *a.functions()[i];
        const Function& g = *b.functions()[i];
        EXPECT_EQ(f.isExported(), g.isExported());
        ASSERT_EQ(f.hasCfg(), g.hasCfg());
        if (!f.hasCfg()) {
            continue;
        }
        EXPECT_EQ(differenceOf(f.cfg(), g.cfg()), "");
        EXPECT_EQ(f.cfg().numConstants(), g.cfg().numConstants());
        EXPECT_EQ(f.cfg().numNodes(), g.cfg().numNodes());
        const Node* other = g.cfg().entry()->first();
        for (const Node& node : f.cfg().entry()->nodes()) {
            EXPECT_EQ(node.id(), other->id());
            other = other->next();
        }
    }
}

class Serializer : public ServiceTest {
protected:
    Serializer() {
        ParseError error;
        scope = parseQnel(everything, error);
        if (scope == nullptr) {
            ADD_FAILURE() << error.format("everything");
        }
    }
    std::unique_ptr<Scope> scope;
};

} // namespace

TEST_F(Serializer, EqualIrComesBack) {
    scope->find("f")->cfg().constantDouble(123456); // used by nothing
    const std::string bytes = serialize(*scope, "title");
    EXPECT_TRUE(isSerializedIr(bytes));
    std::string error;
    const auto back = deserialize(bytes, error);
    ASSERT_NE(back, nullptr) << error;
    EXPECT_EQ(qnelOf(*back), qnelOf(*scope));
    expectEqualGraphs(*scope, *back);
    EXPECT_EQ(serialize(*back, "title"), bytes);
}

TEST_F(Serializer, TheDeepestScopesComeBack) {
    Scope root(ScopeFlavor::Unit, "s");
    Scope* at = &root;
    while (at->level() < Scope::lastLevel) {
        at = &at->addChild(ScopeFlavor::Unit, "s");
    }
    std::string error;
    const auto back = deserialize(serialize(root, "title"), error);
    ASSERT_NE(back, nullptr) << error;
    EXPECT_EQ(qnelOf(*back), qnelOf(root));
}

TEST_F(Serializer, ScopesDeeperThanThereCanBeAreRefused) {
    const auto nested = [](std::size_t levels) {
        flatbuffers::FlatBufferBuilder builder;
        const std::vector<flatbuffers::Offset<flatbuffers::String>> noNames;
        const std::vector<flatbuffers::Offset<serial::Function>> noFunctions;
        std::vector<flatbuffers::Offset<serial::Scope>> inside;
        for (std::size_t i = 0; i <= levels; ++i) {
            const auto name = builder.CreateString("s");
            const auto functions = builder.CreateVector(noFunctions);
            const auto children = builder.CreateVector(inside);
            inside.assign(
                1, serial::CreateScope(builder, name, serial::Flavor::Unit, functions, children));
        }
        const auto operations = builder.CreateVector(noNames);
        const auto types = builder.CreateVector(noNames);
        serial::FinishFileBuffer(builder,
                                 serial::CreateFile(builder, operations, types, inside[0]));
        return serial::frame(
            {reinterpret_cast<const char*>(builder.GetBufferPointer()), builder.GetSize()});
    };
    std::string error;
    EXPECT_NE(deserialize(nested(Scope::lastLevel), error), nullptr) << error;
    EXPECT_EQ(deserialize(nested(Scope::lastLevel + 1), error), nullptr);
    EXPECT_THAT(error, HasSubstr("scopes that are nested too deeply"));
}

TEST_F(Serializer, OneFunctionComesBackAlone) {
    std::string error;
    const auto back = deserialize(serialize(*scope->find("f")), error);
    ASSERT_NE(back, nullptr) << error;
    EXPECT_EQ(back->name(), "all of it");
    EXPECT_EQ(back->flavor(), ScopeFlavor::Session);
    ASSERT_EQ(back->functions().size(), 1U);
    EXPECT_TRUE(back->children().empty());
    EXPECT_EQ(differenceOf(back->functions()[0]->cfg(), scope->find("f")->cfg()), "");
}

TEST_F(Serializer, GeneratedAndOptimizedIrComesBack) {
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        const auto generated = tools::generate({seed});
        if (seed % 2 == 0) {
            runPipeline(*generated);
        }
        std::string error;
        const auto back = deserialize(serialize(*generated), error);
        ASSERT_NE(back, nullptr) << error;
        ASSERT_EQ(qnelOf(*back), qnelOf(*generated)) << "seed " << seed;
        expectEqualGraphs(*generated, *back);
        const Function& last = *generated->find("f2");
        const auto arguments = tools::generateArguments(last, seed);
        EXPECT_EQ(tools::outcomeOf(*back, *back->find("f2"), arguments),
                  tools::outcomeOf(*generated, last, arguments));
    }
}

TEST_F(Serializer, AnyShorterFileIsRefused) {
    const std::string bytes = serialize(*scope);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const std::string error = errorOf(std::string_view(bytes).substr(0, size));
        ASSERT_TRUE(error.find("cut short") != std::string::npos ||
                    error.find("no file of serialized IR") != std::string::npos)
            << size << ": " << error;
    }
    EXPECT_THAT(errorOf(bytes + "x"), HasSubstr("cut short or altered"));
}

TEST_F(Serializer, AnyAlteredByteIsRefused) {
    const std::string bytes = serialize(*scope);
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        for (const int bit : {0, 3, 7}) {
            std::string altered = bytes;
            altered[at] = static_cast<char>(altered[at] ^ (1 << bit));
            ASSERT_NE(errorOf(altered), "no error") << "byte " << at << ", bit " << bit;
        }
    }
    std::string altered = bytes;
    altered[bytes.size() / 2] ^= 1;
    EXPECT_EQ(errorOf(altered), "the checksum does not agree: the file has been altered");
    altered = bytes;
    altered[8] = 2;
    EXPECT_EQ(errorOf(altered), "the file has version 2 of the form; version 1 is understood");
    EXPECT_EQ(errorOf("(function f void)"), "this is no file of serialized IR");
    EXPECT_EQ(errorOf(serial::frame("nothing of the kind")),
              "the file is not laid out as serialized IR");
}

// Bytes altered behind the checksum's back: whatever they say, the reader refuses or makes IR that
// can be printed and freed.
TEST_F(Serializer, ForgedFilesNeverBreakTheReader) {
    const std::string bytes = serialize(*scope);
    std::string error;
    const std::string payload(serial::unframe(bytes, error));
    ASSERT_EQ(error, "");
    std::mt19937 random(1);
    std::size_t refused = 0;
    std::size_t read = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string forged = payload;
        for (unsigned change = 0; change <= random() % 3; ++change) {
            forged[random() % forged.size()] = static_cast<char>(random());
        }
        const auto back = deserialize(serial::frame(forged), error);
        if (back == nullptr) {
            ++refused;
            EXPECT_NE(error, "");
        } else {
            ++read;
            EXPECT_NE(qnelOf(*back), "");
        }
    }
    EXPECT_GT(refused, 1000U);
    EXPECT_GT(read, 1000U);
}

TEST_F(Serializer, ServiceWritesAFilePerRunAndSide) {
    SerializerFbtService service(true, true);
    Function& f = *scope->find("f");
    const std::string before = qnelOf(*scope);
    run("dead-code", f, [&] {
        f.cfg().addVar(VarKind::Temp, Type::f64(), "more");
        return true;
    });
    runOnScope("inline", *scope, [] { return false; });
    service.setFilter("nothing");
    run("dead-code", f, [] { return false; });
    const std::string place = folder + "/serialized-ir/";
    EXPECT_THAT(filesIn(place),
                ElementsAre("0001-before-dead-code-fcn_f.fbt", "0002-after-dead-code-fcn_f.fbt",
                            "0003-before-inline-scope_all of it.fbt",
                            "0004-after-inline-scope_all of it.fbt"));
    const auto load = [&](const std::string& name) {
        std::string error;
        auto loaded = deserialize(contentsOf(place + name), error);
        EXPECT_NE(loaded, nullptr) << error;
        return loaded;
    };
    EXPECT_EQ(load("0001-before-dead-code-fcn_f.fbt")->find("f")->cfg().numVars() + 1,
              load("0002-after-dead-code-fcn_f.fbt")->find("f")->cfg().numVars());
    EXPECT_EQ(qnelOf(*load("0004-after-inline-scope_all of it.fbt")), qnelOf(*scope));
    EXPECT_NE(qnelOf(*scope), before);
}

TEST_F(Serializer, EachFolderHasNumbersOfItsOwn) {
    SerializerFbtService service(true, false);
    Function& f = *scope->find("f");
    const auto nothing = [] { return false; };
    run("a", f, nothing);
    run("b", f, nothing);
    log.setLogDirectory(folder + "/other");
    run("c", f, nothing);
    EXPECT_THAT(filesIn(folder + "/serialized-ir"),
                ElementsAre("0001-before-a-fcn_f.fbt", "0002-before-b-fcn_f.fbt"));
    EXPECT_THAT(filesIn(folder + "/other/serialized-ir"), ElementsAre("0001-before-c-fcn_f.fbt"));
}

TEST_F(Serializer, FolderThatCannotBeMadeIsToldOnce) {
    SerializerFbtService service(false, true);
    log.setLogDirectory("/dev/null");
    run("a", *scope->find("f"), [] { return false; });
    run("a", *scope->find("f"), [] { return false; });
    EXPECT_EQ(console, "Cannot write files in '/dev/null/serialized-ir': Not a directory.\n");
}

TEST_F(Serializer, AFullDiskLeavesNoGapInTheNumbers) {
    SerializerFbtService service(true, false);
    Function& f = *scope->find("f");
    const auto nothing = [] { return false; };
    run("a", f, nothing);
    {
        const FullDisk full(10);
        run("b", f, nothing);
    }
    run("c", f, nothing);
    EXPECT_EQ(console, "Cannot write files in '" + folder + "/serialized-ir': File too large.\n");
    EXPECT_THAT(filesIn(folder + "/serialized-ir"),
                ElementsAre("0001-before-a-fcn_f.fbt", "0002-before-c-fcn_f.fbt"));
}
