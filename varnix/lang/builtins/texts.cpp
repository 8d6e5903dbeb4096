// Built-in functions on texts. A text is bytes; upper and lower change the letters a to z only.
// Where the help says so, a cell of texts is taken text by text.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"

#include <algorithm>

namespace varnix::builtins {
namespace {

constexpr std::string_view blanks = " \t\n\r\f\v";

[[nodiscard]] Value textRow(const std::vector<std::string_view>& parts) {
    numeric::ArrayHolder cell(newArray(hvCELL_CLASS, 1, parts.size()));
    for (std::size_t i = 0; i < parts.size(); ++i)
        setCell(cell.get(), i, Value::text(parts[i]));
    return Value::fromArray(cell.release());
}

void split(BuiltinCall& call) {
    const Arguments in(call);
    std::string_view rest = in.text(0);
    std::vector<std::string_view> parts;
    if (!in.has(1)) {
        for (;;) {
            const std::size_t from = rest.find_first_not_of(blanks);
            if (from == std::string_view::npos)
                break;
            rest.remove_prefix(from);
            const std::size_t to = std::min(rest.find_first_of(blanks), rest.size());
            parts.push_back(rest.substr(0, to));
            rest.remove_prefix(to);
        }
        return call.give(textRow(parts));
    }
    const std::string_view separator = in.text(1);
    if (separator.empty())
        in.bad(1, "is an empty text");
    for (std::size_t at; (at = rest.find(separator)) != std::string_view::npos;) {
        parts.push_back(rest.substr(0, at));
        rest.remove_prefix(at + separator.size());
    }
    parts.push_back(rest);
    call.give(textRow(parts));
}

void join(BuiltinCall& call) {
    const Arguments in(call);
    const std::vector<std::string_view> parts = in.texts(0);
    const std::string_view separator = in.has(1) ? in.text(1) : std::string_view();
    std::string result;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i != 0)
            result += separator;
        result += parts[i];
    }
    call.give(Value::text(result));
}

void trim(BuiltinCall& call) {
    call.give(mapTexts(Arguments(call), 0, [](std::string_view t) {
        const std::size_t from = t.find_first_not_of(blanks);
        if (from == std::string_view::npos)
            return std::string();
        return std::string(t.substr(from, t.find_last_not_of(blanks) - from + 1));
    }));
}

void replace(BuiltinCall& call) {
    const Arguments in(call);
    const std::string_view old = in.text(1);
    const std::string_view fresh = in.text(2);
    if (old.empty())
        in.bad(1, "is an empty text");
    call.give(mapTexts(in, 0, [=](std::string_view t) {
        std::string result;
        for (std::size_t at; (at = t.find(old)) != std::string_view::npos;) {
            result += t.substr(0, at);
            result += fresh;
            t.remove_prefix(at + old.size());
        }
        return result += t;
    }));
}

template <char First, char Last, int Shift>
void changeCase(BuiltinCall& call) {
    call.give(mapTexts(Arguments(call), 0, [](std::string_view t) {
        std::string result(t);
        for (char& c : result)
            if (c >= First && c <= Last)
                c = static_cast<char>(c + Shift);
        return result;
    }));
}

template <auto Holds>
void test(BuiltinCall& call) {
    const Arguments in(call);
    const std::string_view part = in.text(1);
    call.give(mapTexts(in, 0, [part](std::string_view t) { return Holds(t, part); }));
}

void locate(BuiltinCall& call) {
    const Arguments in(call);
    const std::string_view t = in.text(0);
    const std::string_view part = in.text(1);
    if (part.empty())
        in.bad(1, "is an empty text");
    std::vector<double> found;
    for (std::size_t at = t.find(part); at != std::string_view::npos; at = t.find(part, at + 1))
        found.push_back(static_cast<double>(at + 1));
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, 1, found.size()));
    std::copy(found.begin(), found.end(), elements<double>(result.get()));
    call.give(Value::fromArray(result.release()));
}

void pad(BuiltinCall& call) {
    const Arguments in(call);
    const std::int64_t width = in.whole(1, -(std::int64_t{1} << 30), std::int64_t{1} << 30);
    const auto least = static_cast<std::size_t>(width < 0 ? -width : width);
    call.give(mapTexts(in, 0, [=](std::string_view t) {
        std::string result(t);
        if (result.size() < least)
            result.insert(width < 0 ? 0 : result.size(), least - result.size(), ' ');
        return result;
    }));
}

constexpr Builtin table[] = {
    {"split", "split(t, separator)",
     "The parts of a text between separators as a 1 by N cell; without a separator, its words.\n"
     "Example: split(\"a,b,,c\", \",\") gives {\"a\", \"b\", \"\", \"c\"}",
     1, 2, 1, split},
    {"join", "join(c, separator)",
     "One text from a cell of texts, with a separator between them.\n"
     "Example: join({\"a\", \"b\"}, \"-\") gives \"a-b\"",
     1, 2, 1, join},
    {"trim", "trim(t)",
     "The text (or each of a cell) without blanks, tabs and line ends around it.\n"
     "Example: trim(\"  a b \") gives \"a b\"",
     1, 1, 1, trim},
    {"replace", "replace(t, old, new)",
     "The text (or each of a cell) with every occurrence of a part replaced.\n"
     "Example: replace(\"a-b-c\", \"-\", \"+\") gives \"a+b+c\"",
     3, 3, 1, replace},
    {"upper", "upper(t)",
     "The text (or each of a cell) in capital letters.\nExample: upper(\"abc\") gives \"ABC\"", 1,
     1, 1, changeCase<'a', 'z', 'A' - 'a'>},
    {"lower", "lower(t)",
     "The text (or each of a cell) in small letters.\nExample: lower(\"ABC\") gives \"abc\"", 1, 1,
     1, changeCase<'A', 'Z', 'a' - 'A'>},
    {"contains", "contains(t, part)",
     "Whether a text (or each of a cell) holds a part.\nExample: contains(\"abc\", \"bc\") gives "
     "true",
     2, 2, 1, test<[](std::string_view t, std::string_view part) {
         return t.find(part) != std::string_view::npos;
     }>},
    {"startswith", "startswith(t, part)",
     "Whether a text (or each of a cell) begins with a part.\nExample: startswith(\"abc\", \"ab\") "
     "gives true",
     2, 2, 1, test<[](std::string_view t, std::string_view part) { return t.starts_with(part); }>},
    {"endswith", "endswith(t, part)",
     "Whether a text (or each of a cell) ends with a part.\nExample: endswith(\"abc\", \"ab\") "
     "gives "
     "false",
     2, 2, 1, test<[](std::string_view t, std::string_view part) { return t.ends_with(part); }>},
    {"locate", "locate(t, part)",
     "The places where a part begins in a text, as a row.\nExample: locate(\"banana\", \"an\") "
     "gives "
     "[2, 4]",
     2, 2, 1, locate},
    {"pad", "pad(t, width)",
     "The text (or each of a cell) with blanks behind it up to a width, in front of it for a "
     "negative one.\nExample: pad(\"ab\", -4) gives \"  ab\"",
     2, 2, 1, pad},
};

} // namespace

Table texts() {
    return table;
}

} // namespace varnix::builtins
