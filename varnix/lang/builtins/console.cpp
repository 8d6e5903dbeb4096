// Built-ins that print, that turn values into text and back, and that raise errors.
#include "shell/console.hpp"

#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"
#include "lang/builtins/parse_number.hpp"
#include "value/format.hpp"

#include <algorithm>

namespace varnix::builtins {
namespace {

void disp(BuiltinCall& call) {
    console::print(formatDisplay(call.arguments[0]));
}

[[nodiscard]] std::string format(const Arguments& in, std::size_t first, const BuiltinCall& call) {
    try {
        return formatPrintf(in.text(first), call.arguments.subspan(first + 1));
    } catch (const objsys::COSError& error) {
        if (error.identifier() != id::badArgument)
            throw;
        in.failWith(id::badArgument, error.message());
    }
}

void printFormatted(BuiltinCall& call) {
    console::print(format(Arguments(call), 0, call));
}

void sprintFormatted(BuiltinCall& call) {
    call.give(Value::text(format(Arguments(call), 0, call)));
}

/// Numbers as the language writes them: 5, [1, 2; 3, 4].
[[nodiscard]] std::string literal(const Value& v) {
    if (v.count() == 1)
        return formatScalar(elementAt(v, 0));
    if (v.count() == 0)
        return v.rows() == 0 && v.columns() == 0
                   ? "[]"
                   : fmt::format("zeros({}, {})", v.rows(), v.columns());
    std::string out = "[";
    for (std::size_t i = 0; i < v.rows(); ++i)
        for (std::size_t j = 0; j < v.columns(); ++j) {
            if (j != 0)
                out += ", ";
            else if (i != 0)
                out += "; ";
            out += formatScalar(elementAt(v, i + j * v.rows()));
        }
    return out + "]";
}

void text(BuiltinCall& call) {
    const Arguments in(call);
    const Value& v = in[0];
    if (v.isTextRow())
        call.give(v);
    else if (v.isFunction())
        call.give(Value::text(functionOf(v.array()).describe()));
    else if (v.isNumeric() || v.isLogical())
        call.give(Value::text(literal(v)));
    else
        in.wrongType(0, "numeric, logical, a text or a function");
}

void number(BuiltinCall& call) {
    const Arguments in(call);
    if (in[0].isNumeric() || in[0].isLogical())
        return call.give(convertTo(hvDOUBLE_CLASS, in[0]));
    const std::vector<std::string_view> texts = in.texts(0);
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, in[0].isCell() ? in[0].rows() : 1,
                                         in[0].isCell() ? in[0].columns() : 1));
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::optional<double> parsed = parseNumber(texts[i]);
        if (!parsed)
            in.failWith(id::badArgument,
                        fmt::format("{} is no number", formatBrief(Value::text(texts[i]))));
        elements<double>(result.get())[i] = *parsed;
    }
    call.give(Value::fromArray(result.release()));
}

/// area:what, of letters, digits, _ and further colons, without blanks.
[[nodiscard]] bool isIdentifier(std::string_view t) {
    return t.find(':') != std::string_view::npos && t.front() != ':' && t.back() != ':' &&
           std::all_of(t.begin(), t.end(), [](unsigned char c) {
               return std::isalnum(c) != 0 || c == '_' || c == ':' || c == '.';
           });
}

/// error(err): raises a caught error again.
[[noreturn]] void raiseAgain(const Arguments& in) {
    const StructRecord& record = structOf(in[0].array());
    const Value* message = record.find(objsys::COSNameID("message"));
    const Value* identifier = record.find(objsys::COSNameID("identifier"));
    if (!message || !identifier || !message->isTextRow() || !identifier->isTextRow())
        in.bad(0, "is a struct without the texts message and identifier of a caught error");
    objsys::raise(identifier->textView(), std::string(message->textView()));
}

void error(BuiltinCall& call) {
    const Arguments in(call);
    if (in[0].isStruct() && in.count() == 1)
        raiseAgain(in);
    const std::string_view first = in.text(0);
    if (in.count() == 1)
        objsys::raise("varnix:error", std::string(first));
    if (isIdentifier(first))
        objsys::raise(first, format(in, 1, call));
    objsys::raise("varnix:error", format(in, 0, call));
}

void assertTrue(BuiltinCall& call) {
    const Arguments in(call);
    if (!numeric::isArithmeticClass(in[0].classID()))
        in.wrongType(0, "a condition");
    if (in.has(1))
        (void)in.text(1);
    if (isTrue(in[0]))
        return;
    objsys::raise("varnix:assertion", !in.has(1)       ? "assertion failed"
                                      : in.count() > 2 ? format(in, 1, call)
                                                       : std::string(in.text(1)));
}

constexpr Builtin table[] = {
    {"disp", "disp(x)",
     "Prints a value: a number in the shortest form that reads back the same, a text as it is, an "
     "array as aligned columns, a cell or struct as a list, an object as its class and a table of "
     "its properties.",
     1, 1, 0, disp},
    {"printf", "printf(format, values...)",
     "Prints values by a format. Conversions are those of C: %d %i %u %x %X %o %c %s %f %e %E %g "
     "%G %a and %%, with flags, width and precision. Arrays and cells are taken element by "
     "element, "
     "and the format starts over until all are used up. %s prints any scalar; %d prints a number "
     "that is not whole as it is.",
     1, anyNumber, 0, printFormatted},
    {"sprintf", "sprintf(format, values...)",
     "The text that printf would print.\nExample: sprintf(\"%03d|%s\", 7, \"a\") gives \"007|a\"",
     1, anyNumber, 1, sprintFormatted},
    {"text", "text(x)",
     "A number, logical or function as the language writes it; a text stays as it is.\n"
     "Example: text([1, 0.5; 2, 3]) gives \"[1, 0.5; 2, 3]\"",
     1, 1, 1, text},
    {"number", "number(t)",
     "The number that a text holds: decimal, with exponent, hexadecimal with 0x, inf or nan, "
     "blanks "
     "around it ignored. A cell of texts gives an array. Anything else is an error.\n"
     "Example: number(\" 1e3 \") gives 1000",
     1, 1, 1, number},
    {"error", "error(message) or error(identifier, format, values...)",
     "Raises an error. The identifier has the form \"area:what\"; without one it is "
     "\"varnix:error\". One argument is the message as it stands; more are a format and its "
     "values. "
     "error(err) raises a caught error again.",
     1, anyNumber, 0, error},
    {"assert", "assert(condition, message)",
     "Raises the error \"varnix:assertion\" unless the condition is true (not empty and without a "
     "zero). The message may be a format followed by its values.",
     1, anyNumber, 0, assertTrue},
};

} // namespace

Table console() {
    return table;
}

} // namespace varnix::builtins
