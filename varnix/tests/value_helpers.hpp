// Short ways of writing values and of naming expected errors in the tests of values.
#pragma once

#include "value/array.hpp"
#include "value/format.hpp"
#include "value/index.hpp"
#include "value/ops.hpp"
#include "value/value.hpp"

#include <objsys/error.hpp>

#include <algorithm>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <vector>

namespace varnix::testing {

template <class T>
[[nodiscard]] Value matrix(hvClassID id, std::size_t rows, std::size_t columns,
                           std::initializer_list<T> columnMajor) {
    hvArray* array = newArray(id, rows, columns);
    std::copy(columnMajor.begin(), columnMajor.end(), elements<T>(array));
    return Value::fromArray(array);
}
[[nodiscard]] inline Value row(std::initializer_list<double> v) {
    return matrix<double>(hvDOUBLE_CLASS, 1, v.size(), v);
}
[[nodiscard]] inline Value column(std::initializer_list<double> v) {
    return matrix<double>(hvDOUBLE_CLASS, v.size(), 1, v);
}
[[nodiscard]] inline Value mask(std::initializer_list<bool> v) {
    return matrix<bool>(hvLOGICAL_CLASS, 1, v.size(), v);
}
[[nodiscard]] inline Value int32s(std::initializer_list<std::int32_t> v) {
    return matrix<std::int32_t>(hvINT32_CLASS, 1, v.size(), v);
}
[[nodiscard]] inline Value number(double v) {
    return Value::ofDouble(v);
}
[[nodiscard]] inline Value text(std::string_view v) {
    return Value::text(v);
}
[[nodiscard]] inline Value cells(std::size_t rows, std::size_t columns,
                                 std::initializer_list<Value> columnMajor) {
    hvArray* array = newArray(hvCELL_CLASS, rows, columns);
    std::size_t i = 0;
    for (const Value& v : columnMajor)
        setCell(array, i++, v);
    return Value::fromArray(array);
}
[[nodiscard]] inline Value cellRow(std::initializer_list<Value> v) {
    return cells(1, v.size(), v);
}
[[nodiscard]] inline Value empty(hvClassID id = hvDOUBLE_CLASS) {
    return Value::fromArray(newArray(id, 0, 0));
}
[[nodiscard]] inline std::vector<Index> at(std::initializer_list<Value> v) {
    std::vector<Index> list;
    for (const Value& i : v)
        list.push_back({false, i});
    return list;
}
[[nodiscard]] inline Index colon() {
    return {true, {}};
}

/// "identifier: message" of the error that f raises, "" when it raises none.
template <class F>
[[nodiscard]] std::string errorOf(F&& f) {
    try {
        (void)f();
    } catch (const objsys::COSError& error) {
        return error.identifier() + ": " + error.message();
    }
    return {};
}

/// Same class, size and contents.
[[nodiscard]] inline ::testing::AssertionResult same(const Value& actual, const Value& expected) {
    if (actual.classID() == expected.classID() && isEqual(actual, expected))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "got " << className(actual) << " " << formatBrief(actual) << "\n"
           << formatDisplay(actual) << "expected " << className(expected) << " "
           << formatBrief(expected) << "\n"
           << formatDisplay(expected);
}

} // namespace varnix::testing
