// The dot and HTML forms, read by the programs that they are for: graphviz and, where one is
// installed, a browser without a window.
#include "tests/service_support.hpp"
#include "tools/generate.hpp"

#include <qn/pages.hpp>
#include <qn/pipeline.hpp>
#include <qn/pretty_printer.hpp>
#include <qn/stack_trace_tag.hpp>

#include <array>
#include <gmock/gmock.h>
#include <set>
#include <stdio.h>

using namespace QN;
using namespace QN::testing_support;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

struct Output {
    int status;
    std::string text;
};

Output runShell(const std::string& command) {
    FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
    Output output{-1, {}};
    std::array<char, 4096> buffer;
    for (std::size_t got; (got = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        output.text.append(buffer.data(), got);
    }
    output.status = ::pclose(pipe);
    return output;
}

std::string browser() {
    for (const char* name : {"chromium", "chromium-browser", "google-chrome"}) {
        if (Output found = runShell(std::string("command -v ") + name); found.status == 0) {
            return name;
        }
    }
    return {};
}

constexpr const char* program = R"((scope unit "a <b> & \"c\""
  (declare outside f64 f64 i32[])
  (function "odd \\ \"name\" <i>" f64 @3
    (param $x f64 @3)
    (param $n i32)
    (user $a f64[] @4)
    (user $.3 "v<1> & \"w\" \\l {x|y}\n" f64)
    (temp $.4 i64)
    (block b0
      (%1 f64 load $x @5)
      (%2 i32 load $n)
      (%3 i32 add %2 5i32)
      (%4 f64 convert %3)
      (%5 f64[] newarray 2i64 3i64)
      (store $a %5)
      (store $.3 %4)
      (%6 logical lt %1 -inf)
      (br %6 b2 b1))
    (block b1
      (%7 f64 call &helper %1)
      (%8 f64 call &"no such <thing>" %7)
      (jump b2))
    (block b2
      (%9 f64 load $.3)
      (ret %9)))
  (function helper f64
    (param $x f64)
    (block b0
      (%1 f64 load $x)
      (%2 f64 mul %1 %1)
      (ret %2)))
  (scope unit inner
    (function deep void
      (block b0
        (ret)))))
)";

class Pages : public ServiceTest {
protected:
    Pages() {
        ParseError error;
        scope = parseQnel(program, error);
        if (scope == nullptr) {
            ADD_FAILURE() << error.format("program");
        }
    }
    std::string path(const std::string& name) const { return folder + "/" + name; }
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    std::string html(PageOptions options = {}) const {
        std::string text;
        printHtml(*scope, text, options);
        return text;
    }
    void expectDrawn(const std::string& name, const std::string& dot) const {
        const Output drawn = runShell("dot -Tsvg -o " + path("out.svg") + " " + write(name, dot));
        EXPECT_EQ(drawn.status, 0) << drawn.text;
        EXPECT_EQ(drawn.text, "") << name; // dot also warns of what it only half understands
    }

    std::unique_ptr<Scope> scope;
};

// All values of an attribute, with or without quotes.
std::vector<std::string> attributes(const std::string& text, const std::string& name) {
    std::vector<std::string> values;
    const std::string before = " " + name + "=";
    for (std::size_t at = text.find(before); at != std::string::npos; at = text.find(before, at)) {
        at += before.size();
        const std::size_t end = text.find_first_of(" >", at);
        values.push_back(text.substr(at, end - at));
    }
    return values;
}

} // namespace

// Programs that read these forms take them for UTF-8.
TEST_F(Pages, BytesThatAreNoCharactersAreReplaced) {
    const std::pair<std::string, std::string> names[] = {
        {"e\xC3\xA9", "e\xC3\xA9"}, // two bytes
        {"\xE0\xA0\x80\xED\x9F\xBF",
         "\xE0\xA0\x80\xED\x9F\xBF"}, // three: lowest, last before surrogates
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
         "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"}, // four: lowest, highest
        {"a\xFF"
         "b\x80",
         "a?b?"},           // never first
        {"\xC1\xBF", "??"}, // longer than need be
        {"\xE0\x9F\xBF", "???"},
        {"\xF0\x8F\xBF\xBF", "????"},
        {"\xED\xA0\x80", "???"},      // a surrogate
        {"\xF4\x90\x80\x80", "????"}, // beyond the last
        {"\xF5\x80\x80\x80", "????"},
        {"\xE2\x82", "??"}, // cut off
        {"\xE2\x82z", "??z"},
        {"\xC3z", "?z"},
    };
    for (const auto& [name, expected] : names) {
        Scope unit(ScopeFlavor::Unit, "u");
        Function& function = *unit.addFunction(name, Type::f64());
        Builder(function.cfg(), function.cfg().addBlock()).ret(function.cfg().constantDouble(0));
        std::string dot;
        printDot(function, dot);
        EXPECT_THAT(dot, HasSubstr("digraph \"" + expected + "\" {"));
        EXPECT_THAT(dot, HasSubstr("function " + expected + "()"));
        std::string html;
        printHtml(function, html);
        EXPECT_THAT(html, HasSubstr("<title>" + expected + "</title>"));
        EXPECT_THAT(html, HasSubstr(expected + "()"));
    }
}

TEST_F(Pages, GraphvizDrawsEveryGraph) {
    if (runShell("dot -V").status != 0) {
        GTEST_SKIP() << "graphviz is not installed; its reading of dot files is not tested";
    }
    std::string text;
    printDot(*scope, text);
    expectDrawn("scope.dot", text);
    const std::string svg = contentsOf(path("out.svg"));
    EXPECT_THAT(svg, HasSubstr("newarray 2i64, 3i64"));
    EXPECT_THAT(svg, HasSubstr("v&lt;1&gt; &amp; &quot;w&quot; \\l {x|y}"));
    EXPECT_THAT(svg, HasSubstr(">true<"));
    EXPECT_THAT(svg, HasSubstr(">false<"));

    const std::vector<std::string> remarks{"block 1: \"wrong\" \\ <here>", "second"};
    for (const auto& function : scope->functions()) {
        text.clear();
        printDot(*function, text, {{true, true}, "title \"1\"", remarks});
        expectDrawn("function.dot", text);
        EXPECT_THAT(contentsOf(path("out.svg")), HasSubstr("&quot;wrong&quot; \\ &lt;here&gt;"));
    }
    text.clear();
    printDot(Scope(ScopeFlavor::Unit, ""), text);
    expectDrawn("empty.dot", text);
    Function& unfinished = *scope->addFunction("unfinished", Type::voidType());
    unfinished.cfg().addBlock();
    text.clear();
    printDot(unfinished, text);
    expectDrawn("unfinished.dot", text);
}

TEST_F(Pages, GraphvizDrawsGeneratedGraphs) {
    if (runShell("dot -V").status != 0) {
        GTEST_SKIP() << "graphviz is not installed; its reading of dot files is not tested";
    }
    std::string files;
    constexpr std::uint32_t count = 40;
    for (std::uint32_t seed = 1; seed <= count; ++seed) {
        const auto generated = tools::generate({seed});
        if (seed % 2 == 0) {
            runPipeline(*generated);
        }
        std::string text;
        printDot(*generated, text, {{seed % 3 == 0, seed % 5 == 0}, "generated", {}});
        files += ' ' + write("generated" + std::to_string(seed) + ".dot", text);
    }
    const Output drawn = runShell("dot -Tsvg -O" + files);
    EXPECT_EQ(drawn.status, 0);
    EXPECT_EQ(drawn.text, "");
    for (std::uint32_t seed = 1; seed <= count; ++seed) {
        const std::string svg = contentsOf(path("generated" + std::to_string(seed) + ".dot.svg"));
        EXPECT_THAT(svg, HasSubstr("</svg>")) << "seed " << seed;
    }
}

TEST_F(Pages, EveryLinkHasItsTarget) {
    const std::string page = html();
    const std::vector<std::string> ids = attributes(page, "id");
    const std::set<std::string> targets(ids.begin(), ids.end());
    EXPECT_EQ(targets.size(), ids.size()) << "an id is given twice";
    const std::vector<std::string> links = attributes(page, "href");
    EXPECT_GT(links.size(), 20U);
    for (const std::string& link : links) {
        EXPECT_EQ(link[0], '#');
        EXPECT_TRUE(targets.contains(link.substr(1))) << link;
    }
    // A call is linked to the function, where that one is on the page.
    EXPECT_THAT(page, HasSubstr("<a class=k href=#f2>helper</a>"));
    EXPECT_THAT(page, HasSubstr("<span class=k>no such &lt;thing&gt;</span>"));
}

TEST_F(Pages, PageStandsAloneAndNamesAreEscaped) {
    const std::vector<std::string> remarks{"wrong <here>"};
    const std::string page = html({{}, "title & more", remarks});
    EXPECT_THAT(page, Not(HasSubstr("http")));
    EXPECT_THAT(page, Not(HasSubstr("src=")));
    EXPECT_THAT(page, Not(HasSubstr("@import")));
    EXPECT_THAT(page, HasSubstr("<title>title &amp; more</title>"));
    EXPECT_THAT(page, HasSubstr("<div class=r>wrong &lt;here&gt;</div>"));
    EXPECT_THAT(page, Not(HasSubstr("<i>")));
    EXPECT_THAT(page, Not(HasSubstr("v<1>")));
}

TEST_F(Pages, OriginsAreShownWhereTheyAreKnown) {
    Function& f = *scope->addFunction("tagged", Type::voidType());
    StackTraceTagHandler::setHandlesNodes(true);
    Builder(f.cfg(), f.cfg().addBlock()).ret();
    StackTraceTagHandler::setHandlesNodes(false);
    for (const PrintForm form : {PrintForm::Text, PrintForm::Qnel, PrintForm::Html}) {
        std::string text;
        PrettyPrinter(form).print(f, text);
        EXPECT_THAT(text, HasSubstr(form == PrintForm::Html ? "data-o=\"" : " ret made by "))
            << endingOf(form);
    }
    std::string qnel;
    PrettyPrinter(PrintForm::Qnel).print(f, qnel);
    ParseError error;
    EXPECT_NE(parseQnel(qnel, error), nullptr) << error.format("qnel");
}

// A script at the end of the page plays the reader: it points at words, follows a link, and writes
// down what it sees.
TEST_F(Pages, BrowserShowsHoversAndFollowsLinks) {
    const std::string program_ = browser();
    if (program_.empty()) {
        GTEST_SKIP() << "no Chromium is installed; hovers and links of HTML dumps are not tested";
    }
    std::string page = html();
    const std::string reader = R"(<script>
window.onerror = function (message) { report('error ' + message); };
function report(text) {
  var line = document.createElement('samp');
  line.textContent = text;
  document.body.appendChild(line);
}
function point(selector) {
  var word = document.querySelector(selector);
  word.dispatchEvent(new MouseEvent('mouseover', {bubbles: true}));
  var tip = document.getElementById('tip');
  report(selector + ' | ' + tip.style.display + ' | ' + tip.textContent.replace(/\n/g, ' | '));
}
point('a[href="#f1n3"]');
point('[data-s=f1x0]');
point('[data-k=f1c0]');
point('a[href="#f1b2"]');
point('h1');
report('lit ' + document.querySelectorAll('.on').length);
document.querySelector('a[href="#f1b2"]').click();
report('target ' + document.querySelector(':target').id);
</script></body>)";
    page.replace(page.rfind("</body>"), 7, reader);
    const Output seen =
        runShell("timeout 120 " + program_ +
                 " --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --user-data-dir=" +
                 path("profile") + " --dump-dom file://" + write("page.html", page));
    ASSERT_EQ(seen.status, 0) << seen.text;
    const std::string text = seen.text.substr(seen.text.find("<samp>"));
    EXPECT_THAT(text, Not(HasSubstr("error")));
    EXPECT_THAT(text,
                HasSubstr("<samp>a[href=\"#f1n3\"] | block | b0: %3: i32 = add %2, 5i32 | 1 use "
                          "|   b0: %4: f64 = convert %3</samp>"));
    EXPECT_THAT(text,
                HasSubstr("[data-s=f1x0] | block | param x: f64  # 3 | 1 use |   b0: %1: f64 = "
                          "load x  # 5</samp>"));
    EXPECT_THAT(text, HasSubstr("[data-k=f1c0] | block | 5i32: i32 | 1 use |   b0: %3: i32 = add"));
    EXPECT_THAT(text, HasSubstr("a[href=\"#f1b2\"] | block | b2: from b"));
    EXPECT_THAT(text, HasSubstr("2 uses |   b0: br %6, b2, b1 |   b1: jump b2</samp>"));
    EXPECT_THAT(text, HasSubstr("<samp>h1 | none | "));
    EXPECT_THAT(text, HasSubstr("<samp>lit 0</samp>"));
    EXPECT_THAT(text, HasSubstr("<samp>target f1b2</samp>"));
}
