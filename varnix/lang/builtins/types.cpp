// Built-in functions that ask for the class of a value, convert it, and tell a class's limits.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"
#include "value/format.hpp"

#include <objsys/class.hpp>

#include <cmath>
#include <limits>

namespace varnix::builtins {
namespace {

void classOf(BuiltinCall& call) {
    call.give(Value::text(className(call.arguments[0])));
}

void isa(BuiltinCall& call) {
    const Arguments in(call);
    const std::string_view name = in.text(1);
    const Value& x = in[0];
    if (x.isObject()) {
        objsys::COSClass* const cls = x.array()->objectClass;
        const objsys::COSClass* const other = objsys::COSClass::find(objsys::COSNameID(name));
        return call.give(Value::ofLogical(
            cls && (cls->getFullName().str() == name || (other && cls->isA(other)))));
    }
    const bool integer = numeric::isIntegerClass(x.classID());
    call.give(Value::ofLogical(name == className(x) || (name == "integer" && integer) ||
                               (name == "numeric" && x.isNumeric())));
}

template <auto Holds>
void ask(BuiltinCall& call) {
    call.give(Value::ofLogical(Holds(call.arguments[0])));
}

template <hvClassID Class>
void convert(BuiltinCall& call) {
    const Arguments in(call);
    if (!numeric::isArithmeticClass(in[0].classID()))
        in.wrongType(0, "numeric, logical or a text");
    try {
        call.give(convertTo(Class, in[0]));
    } catch (const objsys::COSError& error) {
        in.failWith(error.identifier(), error.message());
    }
}

/// char: codes to text, or texts below each other, filled up with blanks.
void toCharacters(BuiltinCall& call) {
    const Arguments in(call);
    if (!in[0].isCell())
        return convert<hvCHAR_CLASS>(call);
    const std::vector<std::string_view> texts = in.texts(0);
    std::size_t width = 0;
    for (const std::string_view t : texts)
        width = std::max(width, t.size());
    numeric::ArrayHolder result(newArray(hvCHAR_CLASS, texts.size(), width));
    for (std::size_t i = 0; i < texts.size(); ++i)
        for (std::size_t j = 0; j < width; ++j)
            elements<char>(result.get())[i + j * texts.size()] =
                j < texts[i].size() ? texts[i][j] : ' ';
    call.give(Value::fromArray(result.release()));
}

/// intmax and intmin of a class by name, or of a value's own class; int32 without argument.
template <bool Greatest>
void limit(BuiltinCall& call) {
    const Arguments in(call);
    hvClassID id = hvINT32_CLASS;
    if (in.has(0) && in[0].isTextRow()) {
        id = hvUNKNOWN_CLASS;
        for (int k = hvINT8_CLASS; k <= hvUINT64_CLASS; ++k)
            if (in.text(0) == className(static_cast<hvClassID>(k)))
                id = static_cast<hvClassID>(k);
        if (id == hvUNKNOWN_CLASS)
            in.bad(0, fmt::format("is no integer class: {}", formatBrief(in[0])));
    } else if (in.has(0)) {
        id = in[0].classID();
        if (!numeric::isIntegerClass(id))
            in.wrongType(0, "an integer or the name of an integer class");
    }
    call.give(numeric::withIntegerType(id, []<class T>(T) {
        return numeric::scalarOf<T>(Greatest ? std::numeric_limits<T>::max()
                                             : std::numeric_limits<T>::min());
    }));
}

void pi(BuiltinCall& call) {
    call.give(Value::ofDouble(3.141592653589793));
}

/// The distance from |x| to the next greater double.
void eps(BuiltinCall& call) {
    const Arguments in(call);
    call.give(!in.has(0) ? Value::ofDouble(std::numeric_limits<double>::epsilon())
                         : mapDoubles<double>(in.doubles(0), [](double x) {
                               constexpr double inf = std::numeric_limits<double>::infinity();
                               const double a = std::fabs(x);
                               return std::nextafter(a, inf) - a;
                           }));
}

constexpr Builtin table[] = {
    {"class", "class(x)",
     "The name of the value's class: double, logical, char, cell, struct, function, an integer "
     "class, "
     "or the full name of an object's class.\nExample: class(5) gives \"double\"",
     1, 1, 1, classOf},
    {"isa", "isa(x, name)",
     "Whether x is of a class, or an object of one derived from it; \"integer\" and \"numeric\" "
     "name groups of classes.\nExample: isa(5i8, \"integer\") gives true",
     2, 2, 1, isa},
    {"istext", "istext(x)",
     "Whether x is a text: a 1 by N or empty character array.\nExample: istext(\"a\") gives true",
     1, 1, 1, ask<[](const Value& v) { return v.isTextRow(); }>},
    {"ischar", "ischar(x)",
     "Whether x is a character array of any size.\nExample: ischar(5) gives false", 1, 1, 1,
     ask<[](const Value& v) { return v.isChar(); }>},
    {"iscell", "iscell(x)", "Whether x is a cell array.\nExample: iscell({}) gives true", 1, 1, 1,
     ask<[](const Value& v) { return v.isCell(); }>},
    {"isstruct", "isstruct(x)", "Whether x is a struct.\nExample: isstruct(struct()) gives true", 1,
     1, 1, ask<[](const Value& v) { return v.isStruct(); }>},
    {"isnumeric", "isnumeric(x)",
     "Whether x is a double or integer array.\nExample: isnumeric(true) gives false", 1, 1, 1,
     ask<[](const Value& v) { return v.isNumeric(); }>},
    {"isinteger", "isinteger(x)",
     "Whether x is of an integer class.\nExample: isinteger(5i8) gives true", 1, 1, 1,
     ask<[](const Value& v) { return numeric::isIntegerClass(v.classID()); }>},
    {"islogical", "islogical(x)", "Whether x is logical.\nExample: islogical(true) gives true", 1,
     1, 1, ask<[](const Value& v) { return v.isLogical(); }>},
    {"isobject", "isobject(x)",
     "Whether x is an object or an array of objects.\nExample: isobject(5) gives false", 1, 1, 1,
     ask<[](const Value& v) { return v.isObject(); }>},
    {"isfunction", "isfunction(x)",
     "Whether x is a function value.\nExample: isfunction(fn sin) gives true", 1, 1, 1,
     ask<[](const Value& v) { return v.isFunction(); }>},
    {"isscalar", "isscalar(x)",
     "Whether x has exactly one element.\nExample: isscalar([1, 2]) gives false", 1, 1, 1,
     ask<[](const Value& v) { return v.count() == 1; }>},
    {"double", "double(x)",
     "Numbers, logicals or the codes of characters as doubles.\nExample: double(\"a\") gives 97", 1,
     1, 1, convert<hvDOUBLE_CLASS>},
    {"logical", "logical(x)",
     "true for every element that is not zero; nan is an error.\nExample: logical([0, 2]) gives "
     "[false, true]",
     1, 1, 1, convert<hvLOGICAL_CLASS>},
    {"char", "char(x)",
     "Codes from 0 to 255 as characters; a cell of texts as rows of characters, filled up with "
     "blanks.\nExample: char([104, 105]) gives \"hi\"",
     1, 1, 1, toCharacters},
    {"int8", "int8(x)",
     "Signed 8-bit integers, rounded to nearest and cut to -128 ... 127; nan gives 0.\n"
     "Example: int8(200) gives 127i8",
     1, 1, 1, convert<hvINT8_CLASS>},
    {"int16", "int16(x)", "Signed 16-bit integers; see int8.\nExample: int16(2.5) gives 3i16", 1, 1,
     1, convert<hvINT16_CLASS>},
    {"int32", "int32(x)", "Signed 32-bit integers; see int8.\nExample: int32(-2.5) gives -3i32", 1,
     1, 1, convert<hvINT32_CLASS>},
    {"int64", "int64(x)", "Signed 64-bit integers; see int8.\nExample: int64(7) gives 7i64", 1, 1,
     1, convert<hvINT64_CLASS>},
    {"uint8", "uint8(x)", "Unsigned 8-bit integers; see int8.\nExample: uint8(-1) gives 0u8", 1, 1,
     1, convert<hvUINT8_CLASS>},
    {"uint16", "uint16(x)", "Unsigned 16-bit integers; see int8.\nExample: uint16(7) gives 7u16", 1,
     1, 1, convert<hvUINT16_CLASS>},
    {"uint32", "uint32(x)", "Unsigned 32-bit integers; see int8.\nExample: uint32(7) gives 7u32", 1,
     1, 1, convert<hvUINT32_CLASS>},
    {"uint64", "uint64(x)", "Unsigned 64-bit integers; see int8.\nExample: uint64(7) gives 7u64", 1,
     1, 1, convert<hvUINT64_CLASS>},
    {"intmax", "intmax(class)",
     "The greatest number of an integer class, int32 without a name.\n"
     "Example: intmax(\"uint8\") gives 255u8",
     0, 1, 1, limit<true>},
    {"intmin", "intmin(class)",
     "The least number of an integer class, int32 without a name.\n"
     "Example: intmin(\"int8\") gives -128i8",
     0, 1, 1, limit<false>},
    {"pi", "pi",
     "The ratio of a circle's circumference to its diameter.\nExample: cos(pi) gives -1", 0, 0, 1,
     pi},
    {"eps", "eps(x)",
     "The distance from x to the next greater double, from 1 without x.\nExample: eps gives 2 ^ "
     "-52",
     0, 1, 1, eps},
};

} // namespace

Table types() {
    return table;
}

} // namespace varnix::builtins
