// Completion as a pure function, over a small world of its own.
#include "shell/completion.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using varnix::complete;
using varnix::Completion;
using varnix::NamedThing;
using varnix::NameWorld;

/// A thing described by a table: its members, and which type each of them has.
struct Type {
    std::map<std::string, std::string> members; // name to type; "" is unknown
    std::string indexed;
    std::string called;
};

const std::map<std::string, Type> types = {
    {"hub", {{{"PrettyPrinter", "printer"}, {"Profiler", "profiler"}, {"hello", ""}}, "hub", ""}},
    {"printer", {{{"OutputFormat", ""}, {"OutputFolder", ""}, {"Traces", "hub"}}, "printer", ""}},
    {"profiler", {{{"timers", "timerFunction"}}, "", ""}},
    {"timerFunction", {{}, "", "timer"}},
    {"timer", {{{"Name", ""}, {"Nested", ""}}, "timer", ""}},
    {"package", {{{"Debug", "class"}, {"DebugService", "class"}, {"inner.", ""}}, "", ""}},
    {"class", {{{"enable", ""}}, "", "hub"}},
};

class TableThing : public NamedThing {
public:
    explicit TableThing(const Type& type) : type_(type) {}
    static std::unique_ptr<NamedThing> of(const std::string& name) {
        const auto found = types.find(name);
        return found == types.end() ? nullptr : std::make_unique<TableThing>(found->second);
    }
    std::vector<std::string> members() const override {
        std::vector<std::string> names;
        for (const auto& [name, type] : type_.members)
            names.push_back(name);
        return names;
    }
    std::unique_ptr<NamedThing> member(std::string_view name) const override {
        const auto found = type_.members.find(std::string(name));
        return found == type_.members.end() ? nullptr : of(found->second);
    }
    std::unique_ptr<NamedThing> indexed() const override { return of(type_.indexed); }
    std::unique_ptr<NamedThing> called() const override { return of(type_.called); }

private:
    const Type& type_;
};

class TableWorld : public NameWorld {
public:
    std::vector<std::string> names() const override {
        return {"d", "data", "printf", "print_all", "pkg.", "printf", "v"};
    }
    std::unique_ptr<NamedThing> find(std::string_view name) const override {
        if (name == "d" || name == "v")
            return TableThing::of("hub");
        return name == "pkg" ? TableThing::of("package") : nullptr;
    }
};

std::vector<std::string> candidates(std::string_view text) {
    return complete(text, text.size(), TableWorld()).candidates;
}

TEST(Completion, GivesNamesThatBeginAsTyped) {
    EXPECT_THAT(candidates("pri"), ElementsAre("print_all", "printf"));
    EXPECT_THAT(candidates("x = 2 * da"), ElementsAre("data"));
    EXPECT_THAT(candidates("zebra"), IsEmpty());
}

TEST(Completion, GivesEveryNameWhereNothingIsTyped) {
    EXPECT_THAT(candidates(""), ElementsAre("d", "data", "pkg.", "print_all", "printf", "v"));
    EXPECT_THAT(candidates("x = ").size(), 6U);
}

TEST(Completion, SaysWhatTheCandidatesReplace) {
    const Completion completion = complete("x = pri + 1", 7, TableWorld());
    EXPECT_EQ(completion.start, 4U);
    EXPECT_EQ(completion.common(), "print");
}

TEST(Completion, LooksOnlyAtTheTextBeforeTheCursor) {
    EXPECT_THAT(complete("da + pri", 2, TableWorld()).candidates, ElementsAre("data"));
    EXPECT_THAT(complete("da", 99, TableWorld()).candidates, ElementsAre("data"));
}

TEST(Completion, FollowsADotToMembers) {
    EXPECT_THAT(candidates("d."), ElementsAre("PrettyPrinter", "Profiler", "hello"));
    EXPECT_THAT(candidates("d.Pr"), ElementsAre("PrettyPrinter", "Profiler"));
    EXPECT_THAT(candidates("d . Pret"), ElementsAre("PrettyPrinter"));
    EXPECT_THAT(candidates("x = 1; d.he"), ElementsAre("hello"));
}

TEST(Completion, FollowsAChainThroughTypes) {
    EXPECT_THAT(candidates("d.PrettyPrinter.Out"), ElementsAre("OutputFolder", "OutputFormat"));
    EXPECT_THAT(candidates("d.PrettyPrinter.Traces.PrettyPrinter.Tr"), ElementsAre("Traces"));
    EXPECT_THAT(candidates("d.hello."), IsEmpty());
    EXPECT_THAT(candidates("d.absent.Out"), IsEmpty());
    EXPECT_THAT(candidates("unknown.Out"), IsEmpty());
}

TEST(Completion, FollowsIndexesAndCalls) {
    EXPECT_THAT(candidates("v[1].Pret"), ElementsAre("PrettyPrinter"));
    EXPECT_THAT(candidates("v[f(2)[1], \"]\"].Pret"), ElementsAre("PrettyPrinter"));
    EXPECT_THAT(candidates("d.Profiler.timers()[3].N"), ElementsAre("Name", "Nested"));
    EXPECT_THAT(candidates("d.Profiler.timers().N"), ElementsAre("Name", "Nested"));
    EXPECT_THAT(candidates("(d).Pret"), IsEmpty()); // no name to begin with
    EXPECT_THAT(candidates("].Pret"), IsEmpty());
}

TEST(Completion, KnowsPackagesAndClasses) {
    EXPECT_THAT(candidates("pk"), ElementsAre("pkg."));
    EXPECT_THAT(candidates("pkg.D"), ElementsAre("Debug", "DebugService"));
    EXPECT_THAT(candidates("pkg.i"), ElementsAre("inner."));
    EXPECT_THAT(candidates("pkg.Debug.e"), ElementsAre("enable"));
    EXPECT_THAT(candidates("pkg.Debug().Pret"), ElementsAre("PrettyPrinter"));
}

TEST(Completion, WorksInsideBracketsAndAfterOperators) {
    EXPECT_THAT(candidates("printf(d.Pret"), ElementsAre("PrettyPrinter"));
    EXPECT_THAT(candidates("[d.PrettyPrinter.OutputFor"), ElementsAre("OutputFormat"));
    EXPECT_THAT(candidates("{1, d.Pret"), ElementsAre("PrettyPrinter"));
    EXPECT_THAT(candidates("!d.Pret"), ElementsAre("PrettyPrinter"));
}

TEST(Completion, IsSilentInTextsCommentsAndNumbers) {
    EXPECT_THAT(candidates("x = \"pri"), IsEmpty());
    EXPECT_THAT(candidates("x = 'pri"), IsEmpty());
    EXPECT_THAT(candidates("x = \"a\\\"pri"), IsEmpty());
    EXPECT_THAT(candidates("# pri"), IsEmpty());
    EXPECT_THAT(candidates("x = 12"), IsEmpty());
    EXPECT_THAT(candidates("x = 0x1"), IsEmpty());
    EXPECT_THAT(candidates("1.5.d"), IsEmpty());
    EXPECT_THAT(candidates("\"abc\""), IsEmpty());
    EXPECT_THAT(candidates("x = \"done\" + pri"), ElementsAre("print_all", "printf"));
    EXPECT_THAT(candidates("x = 'it''s' + pri"), ElementsAre("print_all", "printf"));
    EXPECT_THAT(candidates("# comment\npri"), ElementsAre("print_all", "printf"));
}

TEST(Completion, SurvivesAnyText) {
    // Every prefix and every cursor of a line full of brackets, quotes and dots.
    const std::string line = "a.b(c[1].\"d\\\").e{'f'}...#g\n)]}.h\"\xff\x00\\";
    for (std::size_t cursor = 0; cursor <= line.size(); ++cursor) {
        const Completion completion = complete(line, cursor, TableWorld());
        EXPECT_LE(completion.start, cursor);
    }
}

} // namespace
