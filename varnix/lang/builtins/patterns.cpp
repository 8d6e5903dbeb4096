// Regular expressions, by RE2: patterns in its syntax, searched rather than anchored, bytes taken
// as Latin-1 so that any text can be searched.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"

#include <memory>
#include <re2/re2.h>

namespace varnix::builtins {
namespace {

/// The pattern of an argument, compiled; the last one is kept for loops.
[[nodiscard]] const RE2& compiled(const Arguments& in, std::size_t i) {
    static std::unique_ptr<RE2> last;
    const std::string_view pattern = in.text(i);
    if (!last || std::string_view(last->pattern()) != pattern) {
        RE2::Options options;
        options.set_log_errors(false);
        options.set_encoding(RE2::Options::EncodingLatin1);
        auto fresh =
            std::make_unique<RE2>(re2::StringPiece(pattern.data(), pattern.size()), options);
        if (!fresh->ok())
            in.bad(i, fmt::format("is no regular expression: {}", fresh->error()));
        last = std::move(fresh);
    }
    return *last;
}

[[nodiscard]] re2::StringPiece piece(std::string_view t) {
    return {t.data(), t.size()};
}

/// The match and its groups from a place on; empty when there is none.
[[nodiscard]] std::vector<re2::StringPiece> matchFrom(const RE2& pattern, std::string_view t,
                                                      std::size_t from) {
    std::vector<re2::StringPiece> groups(
        static_cast<std::size_t>(pattern.NumberOfCapturingGroups()) + 1);
    if (!pattern.Match(piece(t), from, t.size(), RE2::UNANCHORED, groups.data(),
                       static_cast<int>(groups.size())))
        groups.clear();
    return groups;
}

[[nodiscard]] Value cellOf(const std::vector<re2::StringPiece>& groups) {
    numeric::ArrayHolder cell(newArray(hvCELL_CLASS, 1, groups.size()));
    for (std::size_t i = 0; i < groups.size(); ++i)
        setCell(cell.get(), i, Value::text({groups[i].data(), groups[i].size()}));
    return Value::fromArray(cell.release());
}

void matches(BuiltinCall& call) {
    const Arguments in(call);
    const RE2& pattern = compiled(in, 1);
    if (call.requested < 2)
        return call.give(mapTexts(
            in, 0, [&](std::string_view t) { return RE2::PartialMatch(piece(t), pattern); }));
    const std::vector<re2::StringPiece> groups = matchFrom(pattern, in.text(0), 0);
    call.give(Value::ofLogical(!groups.empty()));
    call.give(cellOf(groups));
}

void findall(BuiltinCall& call) {
    const Arguments in(call);
    const RE2& pattern = compiled(in, 1);
    const std::string_view t = in.text(0);
    std::vector<re2::StringPiece> found;
    for (std::size_t from = 0; from <= t.size();) {
        const std::vector<re2::StringPiece> groups = matchFrom(pattern, t, from);
        if (groups.empty())
            break;
        found.push_back(groups[0]);
        const auto end = static_cast<std::size_t>(groups[0].data() - t.data()) + groups[0].size();
        from = groups[0].empty() ? end + 1 : end;
    }
    call.give(cellOf(found));
}

void substitute(BuiltinCall& call) {
    const Arguments in(call);
    const RE2& pattern = compiled(in, 1);
    const std::string_view rewrite = in.text(2);
    std::string problem;
    if (!pattern.CheckRewriteString(piece(rewrite), &problem))
        in.bad(2, fmt::format("is no replacement for this pattern: {}", problem));
    call.give(mapTexts(in, 0, [&](std::string_view t) {
        std::string result(t);
        RE2::GlobalReplace(&result, pattern, piece(rewrite));
        return result;
    }));
}

constexpr Builtin table[] = {
    {"matches", "matches(t, pattern)",
     "Whether a regular expression (RE2 syntax) is found in a text, or in each of a cell; use ^ "
     "and "
     "$ to match all of it. For one text the second result is a cell of the match and its groups.\n"
     "Example: matches({\"a1\", \"b\"}, '\\d') gives [true, false]",
     2, 2, 2, matches},
    {"findall", "findall(t, pattern)",
     "All matches of a regular expression in a text, as a 1 by N cell.\n"
     "Example: findall(\"a1b22\", '\\d+') gives {\"1\", \"22\"}",
     2, 2, 1, findall},
    {"substitute", "substitute(t, pattern, replacement)",
     "The text (or each of a cell) with every match of a regular expression replaced; \\1 to \\9 "
     "stand for its groups, \\0 for the match.\n"
     "Example: substitute(\"x=1\", '(\\w)=(\\d)', '\\2=\\1') gives \"1=x\"",
     3, 3, 1, substitute},
};

} // namespace

Table patterns() {
    return table;
}

} // namespace varnix::builtins
