// Built-in functions on cells, structs and functions as values.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"
#include "lang/interpreter.hpp"
#include "value/format.hpp"
#include "value/index.hpp"

#include <algorithm>

namespace varnix::builtins {
namespace {

void cell(BuiltinCall& call) {
    const Arguments in(call);
    const auto [m, n] = in.size(0, 2);
    call.give(
        Value::fromArray(newArray(hvCELL_CLASS, in.count() == 0 ? 0 : m, in.count() == 0 ? 0 : n)));
}

/// A name that `s.name` can be written with.
[[nodiscard]] objsys::COSNameID fieldName(const Arguments& in, std::size_t i) {
    const std::string_view name = in.text(i);
    const auto letter = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    };
    const bool fits = !name.empty() && letter(name[0]) &&
                      std::all_of(name.begin(), name.end(),
                                  [&](char c) { return letter(c) || (c >= '0' && c <= '9'); });
    if (!fits)
        in.bad(i, fmt::format("is no name of a field: {}", formatBrief(in[i])));
    return objsys::COSNameID(name);
}

[[nodiscard]] const StructRecord& record(const Arguments& in, std::size_t i) {
    if (!in[i].isStruct())
        in.wrongType(i, "a struct");
    return structOf(in[i].array());
}

void makeStruct(BuiltinCall& call) {
    const Arguments in(call);
    if (in.count() % 2 != 0)
        in.failWith(id::badArgument, "names and values must come in pairs");
    Value result = newStruct();
    for (std::size_t i = 0; i < in.count(); i += 2)
        structOf(result.array()).place(fieldName(in, i)) = in[i + 1];
    call.give(std::move(result));
}

void fields(BuiltinCall& call) {
    const Arguments in(call);
    std::vector<std::string_view> names;
    for (const auto& [name, value] : record(in, 0).fields)
        names.emplace_back(name.str());
    call.give(textColumn(names));
}

void hasfield(BuiltinCall& call) {
    const Arguments in(call);
    const bool isRecord = in[0].isStruct();
    call.give(mapTexts(in, 1, [&](std::string_view name) {
        return isRecord && record(in, 0).find(objsys::COSNameID(name)) != nullptr;
    }));
}

void getfield(BuiltinCall& call) {
    const Arguments in(call);
    const Value* value = record(in, 0).find(objsys::COSNameID(in.text(1)));
    if (!value)
        in.failWith(id::noSuchMember, fmt::format("there is no field {}", in.text(1)));
    call.give(*value);
}

void setfield(BuiltinCall& call) {
    const Arguments in(call);
    (void)record(in, 0);
    Value result = in[0];
    structOf(result.unshare()).place(fieldName(in, 1)) = in[2];
    call.give(std::move(result));
}

void rmfield(BuiltinCall& call) {
    const Arguments in(call);
    const objsys::COSNameID name(in.text(1));
    if (!record(in, 0).find(name))
        in.failWith(id::noSuchMember, fmt::format("there is no field {}", in.text(1)));
    Value result = in[0];
    auto& list = structOf(result.unshare()).fields;
    list.erase(std::find_if(list.begin(), list.end(),
                            [&](const auto& field) { return field.first == name; }));
    call.give(std::move(result));
}

/// A function value, or the name of a function.
void requireFunction(const Arguments& in, std::size_t i) {
    if (!in[i].isFunction() && !in[i].isTextRow())
        in.wrongType(i, "a function");
}

std::vector<Value> callFunction(BuiltinCall& call, const Value& function,
                                std::span<const Value> arguments, std::size_t requested) {
    return function.isFunction() ? call.interpreter.call(function, arguments, requested)
                                 : call.interpreter.call(function.textView(), arguments, requested);
}

[[nodiscard]] Value callForOne(BuiltinCall& call, const Arguments& in,
                               std::span<const Value> arguments) {
    std::vector<Value> results = callFunction(call, in[0], arguments, 1);
    if (results.empty() || results[0].isUnset())
        in.bad(0, "gives no result");
    return std::move(results[0]);
}

[[nodiscard]] Value item(const Value& container, std::size_t i) {
    return container.isCell() ? cellAt(container.array(), i) : elementAt(container, i);
}

void requireContainer(const Arguments& in, std::size_t i) {
    if (in[i].isStruct() || in[i].isFunction())
        in.wrongType(i, "a cell or an array");
}

/// The results as an array where all are numeric or logical scalars, else as a cell.
[[nodiscard]] Value collected(const std::vector<Value>& results, bool asCell, std::size_t m,
                              std::size_t n) {
    const bool scalars =
        std::all_of(results.begin(), results.end(), [](const Value& v) { return v.isScalar(); });
    if (!asCell && scalars) {
        if (results.empty())
            return Value::fromArray(newArray(hvDOUBLE_CLASS, m, n));
        Value row = joinHorizontally(results);
        if (row.tag() == Tag::Array) {
            hvArray* const array = row.unshare();
            array->rows = m;
            array->columns = n;
        }
        return row;
    }
    numeric::ArrayHolder cells(newArray(hvCELL_CLASS, m, n));
    for (std::size_t i = 0; i < results.size(); ++i)
        setCell(cells.get(), i, results[i]);
    return Value::fromArray(cells.release());
}

void map(BuiltinCall& call) {
    const Arguments in(call);
    requireFunction(in, 0);
    bool asCell = false;
    for (std::size_t k = 1; k < in.count(); ++k) {
        requireContainer(in, k);
        asCell = asCell || in[k].isCell();
        if (in[k].rows() != in[1].rows() || in[k].columns() != in[1].columns())
            in.failWith(id::wrongSize,
                        fmt::format("arguments 2 and {} differ in size: {} and {}", k + 1,
                                    numeric::sizeText(in[1]), numeric::sizeText(in[k])));
    }
    std::vector<Value> results;
    std::vector<Value> arguments(in.count() - 1);
    for (std::size_t i = 0; i < in[1].count(); ++i) {
        for (std::size_t k = 1; k < in.count(); ++k)
            arguments[k - 1] = item(in[k], i);
        if (call.requested == 0)
            (void)callFunction(call, in[0], arguments, 0);
        else
            results.push_back(callForOne(call, in, arguments));
    }
    if (call.requested != 0)
        call.give(collected(results, asCell, in[1].rows(), in[1].columns()));
}

void filter(BuiltinCall& call) {
    const Arguments in(call);
    requireFunction(in, 0);
    requireContainer(in, 1);
    numeric::ArrayHolder kept(newArray(hvLOGICAL_CLASS, in[1].rows(), in[1].columns()));
    for (std::size_t i = 0; i < in[1].count(); ++i) {
        const Value argument = item(in[1], i);
        elements<bool>(kept.get())[i] = isTrue(callForOne(call, in, {&argument, 1}));
    }
    const Index index{false, Value::fromArray(kept.release())};
    call.give(indexValue(in[1], {&index, 1}));
}

void reduce(BuiltinCall& call) {
    const Arguments in(call);
    requireFunction(in, 0);
    requireContainer(in, 1);
    if (in[1].count() == 0 && !in.has(2))
        in.bad(1, "is empty and there is no value to start from");
    Value total = in.has(2) ? in[2] : item(in[1], 0);
    for (std::size_t i = in.has(2) ? 0 : 1; i < in[1].count(); ++i) {
        const Value arguments[] = {std::move(total), item(in[1], i)};
        total = callForOne(call, in, arguments);
    }
    call.give(std::move(total));
}

void callIt(BuiltinCall& call) {
    const Arguments in(call);
    requireFunction(in, 0);
    for (Value& result : callFunction(call, in[0], call.arguments.subspan(1), call.requested))
        call.give(std::move(result));
}

constexpr Builtin table[] = {
    {"cell", "cell(m, n)",
     "An m by n cell array whose cells hold []; cell(n) is n by n, cell() has no cells.\n"
     "Example: size(cell(2, 3)) gives [2, 3]",
     0, 2, 1, cell},
    {"struct", "struct(name, value, ...)",
     "A struct with the named fields, in that order.\nExample: struct(\"a\", 5).a gives 5", 0,
     anyNumber, 1, makeStruct},
    {"fields", "fields(s)",
     "The names of a struct's fields as an N by 1 cell.\n"
     "Example: fields(struct(\"a\", 1, \"b\", 2)) gives {\"a\"; \"b\"}",
     1, 1, 1, fields},
    {"hasfield", "hasfield(s, name)",
     "Whether a value is a struct with a field of that name, or of each name of a cell.\n"
     "Example: hasfield(struct(\"a\", 1), \"b\") gives false",
     2, 2, 1, hasfield},
    {"getfield", "getfield(s, name)",
     "The value of the field of that name.\nExample: getfield(struct(\"a\", 5), \"a\") gives 5", 2,
     2, 1, getfield},
    {"setfield", "setfield(s, name, value)",
     "The struct with a field of that name set.\n"
     "Example: setfield(struct(), \"a\", 5) gives struct(\"a\", 5)",
     3, 3, 1, setfield},
    {"rmfield", "rmfield(s, name)",
     "The struct without a field.\nExample: rmfield(struct(\"a\", 5), \"a\") gives struct()", 2, 2,
     1, rmfield},
    {"map", "map(f, x, ...)",
     "f of each element of an array, or of what each cell holds; with more arrays of one size, of "
     "the elements side by side. Over a cell it gives a cell; over arrays an array where every "
     "result is a numeric or logical scalar, else a cell.\n"
     "Example: map(fn(x) x * 2, [1, 2]) gives [2, 4]",
     2, anyNumber, 1, map},
    {"filter", "filter(f, x)",
     "The elements of an array or cell for which f gives true.\n"
     "Example: filter(fn(x) x > 1, [1, 2, 3]) gives [2, 3]",
     2, 2, 1, filter},
    {"reduce", "reduce(f, x, start)",
     "f(f(f(start, x[1]), x[2]), ...); without a start from the first element on.\n"
     "Example: reduce(fn(a, b) a * b, [2, 3, 4]) gives 24",
     2, 3, 1, reduce},
    {"call", "call(f, arguments...)",
     "Calls a function value, or the function of that name.\nExample: call(\"max\", 2, 3) gives 3",
     1, anyNumber, anyNumber, callIt},
};

} // namespace

Table records() {
    return table;
}

} // namespace varnix::builtins
