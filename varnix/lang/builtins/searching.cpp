// Built-in functions that look for elements and put them in order. Sorting is stable; nan comes
// last in both directions; texts in cells are compared byte by byte.
#include "lang/builtins/arguments.hpp"
#include "lang/builtins/families.hpp"
#include "value/format.hpp"
#include "value/index.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>

namespace varnix::builtins {
namespace {

using numeric::View;
using Order = std::vector<std::size_t>;

[[nodiscard]] Value places(const Order& order, std::size_t rows, std::size_t columns) {
    numeric::ArrayHolder result(newArray(hvDOUBLE_CLASS, rows, columns));
    for (std::size_t i = 0; i < order.size(); ++i)
        elements<double>(result.get())[i] = static_cast<double>(order[i] + 1);
    return Value::fromArray(result.release());
}

/// The size of a list of n results found in x: a row where x is one, else a column.
[[nodiscard]] std::pair<std::size_t, std::size_t> listSize(const Value& x, std::size_t n) {
    if (x.rows() == 0 && x.columns() == 0)
        return {0, 0};
    return x.rows() == 1 ? std::pair{std::size_t{1}, n} : std::pair{n, std::size_t{1}};
}

void find(BuiltinCall& call) {
    const Arguments in(call);
    const Value& x = in.numbers(0);
    const std::size_t most = in.has(1)
                                 ? static_cast<std::size_t>(in.whole(1, 1, std::int64_t{1} << 40))
                                 : static_cast<std::size_t>(-1);
    const View view(x);
    Order found;
    numeric::withElementType(view.classID(), [&]<class T>(T) {
        for (std::size_t i = 0; i < view.count() && found.size() < most; ++i)
            if (view.as<T>()[i] != T{})
                found.push_back(i);
    });
    const auto [m, n] = listSize(x, found.size());
    if (call.requested < 2)
        return call.give(places(found, m, n));
    Order row;
    Order column;
    for (const std::size_t place : found) {
        row.push_back(place % x.rows());
        column.push_back(place / x.rows());
    }
    call.give(places(row, m, n));
    call.give(places(column, m, n));
}

/// a before b, with nan last; descending order turns all but that round.
template <class T>
[[nodiscard]] bool isBefore(const T& a, const T& b, bool descending) {
    if constexpr (std::is_same_v<T, double>)
        if (std::isnan(a) || std::isnan(b))
            return !std::isnan(a);
    return descending ? b < a : a < b;
}

/// The order of the elements from..from+n.
template <class T>
[[nodiscard]] Order orderOf(const T* items, std::size_t n, bool descending) {
    Order order(n);
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t i, std::size_t j) {
        if constexpr (std::is_same_v<T, double>)
            if (std::isnan(items[i]) && std::isnan(items[j]))
                return false;
        return isBefore(items[i], items[j], descending);
    });
    return order;
}

[[nodiscard]] bool descendingArgument(const Arguments& in, std::size_t i) {
    if (!in.has(i))
        return false;
    const std::string_view direction = in.text(i);
    if (direction != "ascend" && direction != "descend")
        in.bad(i, fmt::format("must be \"ascend\" or \"descend\", not {}", formatBrief(in[i])));
    return direction == "descend";
}

[[nodiscard]] Value pick(const Value& x, const Value& indices) {
    const Index index{false, indices};
    return indexValue(x, {&index, 1});
}

/// The elements of each line in order, where nobody asks for their places.
[[nodiscard]] Value sortedElements(const Value& x, bool descending) {
    if (x.count() <= 1)
        return x;
    const std::size_t length = x.rows() == 1 ? x.columns() : x.rows();
    Value result = x;
    hvArray* const array = result.unshare();
    const std::size_t n = array->count();
    numeric::withElementType(array->classID, [&]<class T>(T) {
        T* const items = elements<T>(array);
        for (std::size_t k = 0; k < n; k += length) {
            T* end = items + k + length;
            if constexpr (std::is_same_v<T, double>)
                end =
                    std::stable_partition(items + k, end, [](double d) { return !std::isnan(d); });
            if (descending)
                std::stable_sort(items + k, end, std::greater<T>());
            else
                std::stable_sort(items + k, end);
        }
    });
    return result;
}

void sort(BuiltinCall& call) {
    const Arguments in(call);
    const Value& x = in[0];
    const bool descending = descendingArgument(in, 1);
    if (x.isCell()) {
        const std::vector<std::string_view> texts = in.texts(0);
        const Value order =
            places(orderOf(texts.data(), texts.size(), descending), x.rows(), x.columns());
        call.give(texts.empty() ? x : pick(x, order));
        if (call.requested > 1)
            call.give(order);
        return;
    }
    if (call.requested < 2)
        return call.give(sortedElements(in.numbers(0), descending));
    const View view(in.numbers(0));
    // A row is one line; else each column is.
    const std::size_t length = view.rows() == 1 ? view.columns() : view.rows();
    const std::size_t lines = view.rows() == 1 ? 1 : view.columns();
    Order all;
    all.reserve(view.count());
    numeric::withElementType(view.classID(), [&]<class T>(T) {
        for (std::size_t k = 0; k < lines; ++k)
            for (const std::size_t i : orderOf(view.as<T>() + k * length, length, descending))
                all.push_back(k * length + i);
    });
    if (x.count() == 0)
        call.give(x);
    else
        call.give(pick(x, places(all, x.rows(), x.columns())));
    if (call.requested > 1) {
        for (std::size_t& place : all)
            place %= std::max<std::size_t>(length, 1);
        call.give(places(all, x.rows(), x.columns()));
    }
}

/// The groups of equal items: `firsts` holds the place of the first item of each group in
/// ascending order, `group` the group's number of each item. nan is in a group of its own each
/// time.
struct Groups {
    Order firsts;
    Order group;
};

template <class T>
[[nodiscard]] Groups groupsOf(const T* items, std::size_t n) {
    Groups result;
    result.group.resize(n);
    const Order order = orderOf(items, n, false);
    for (std::size_t k = 0; k < n; ++k) {
        if (k == 0 || !(items[order[k - 1]] == items[order[k]]))
            result.firsts.push_back(order[k]);
        result.group[order[k]] = result.firsts.size() - 1;
    }
    return result;
}

void unique(BuiltinCall& call) {
    const Arguments in(call);
    const Value& x = in[0];
    Groups groups;
    if (x.isCell()) {
        const std::vector<std::string_view> texts = in.texts(0);
        groups = groupsOf(texts.data(), texts.size());
    } else {
        const View view(in.numbers(0));
        groups = numeric::withElementType(
            view.classID(), [&]<class T>(T) { return groupsOf(view.as<T>(), view.count()); });
    }
    const auto [m, n] = listSize(x, groups.firsts.size());
    const Value firsts = places(groups.firsts, m, n);
    call.give(x.count() == 0 ? x : pick(x, firsts));
    if (call.requested > 1)
        call.give(firsts);
    if (call.requested > 2)
        call.give(places(groups.group, x.rows(), x.columns()));
}

/// For each item the place (from 1) of its first equal among the sorted set, 0 for none.
template <class T>
[[nodiscard]] std::vector<double> placesAmong(const T* items, std::size_t n, const T* set,
                                              std::size_t setCount) {
    const Order order = orderOf(set, setCount, false);
    std::vector<double> result(n, 0);
    for (std::size_t i = 0; i < n; ++i) {
        const auto at = std::lower_bound(
            order.begin(), order.end(), items[i],
            [&](std::size_t k, const T& item) { return isBefore(set[k], item, false); });
        if (at != order.end() && set[*at] == items[i])
            result[i] = static_cast<double>(*at + 1);
    }
    return result;
}

void ismember(BuiltinCall& call) {
    const Arguments in(call);
    const bool ofTexts = in[1].isCell();
    std::vector<double> found;
    std::size_t m = in[0].rows();
    std::size_t n = in[0].columns();
    if (ofTexts) {
        if (!in[0].isCell())
            m = n = 1;
        const std::vector<std::string_view> items = in.texts(0);
        const std::vector<std::string_view> set = in.texts(1);
        found = placesAmong(items.data(), items.size(), set.data(), set.size());
    } else {
        const Value items = convertTo(hvDOUBLE_CLASS, in.numbers(0));
        const Value set = convertTo(hvDOUBLE_CLASS, in.numbers(1));
        const View a(items);
        const View b(set);
        found = placesAmong(a.as<double>(), a.count(), b.as<double>(), b.count());
    }
    numeric::ArrayHolder is(newArray(hvLOGICAL_CLASS, m, n));
    numeric::ArrayHolder at(newArray(hvDOUBLE_CLASS, m, n));
    for (std::size_t i = 0; i < found.size(); ++i) {
        elements<bool>(is.get())[i] = found[i] != 0;
        elements<double>(at.get())[i] = found[i];
    }
    call.give(Value::fromArray(is.release()));
    if (call.requested > 1)
        call.give(Value::fromArray(at.release()));
}

constexpr Builtin table[] = {
    {"find", "find(x, most)",
     "The places of the elements that are not zero, at most so many; with two results their rows "
     "and columns.\nExample: find([0, 5, 0, 7]) gives [2, 4]",
     1, 2, 2, find},
    {"sort", "sort(x, direction)",
     "The elements in order (\"ascend\" or \"descend\"): of a row or column, of each column of a "
     "matrix, or of a cell of texts. Equal elements stay as they were, nan comes last. The second "
     "result tells where each one was.\nExample: sort([3, 1, 2]) gives [1, 2, 3]",
     1, 2, 2, sort},
    {"unique", "unique(x)",
     "The different elements of an array or cell of texts in order; further results are the place "
     "of the first of each, and for each element of x the number of its value.\n"
     "Example: unique([3, 1, 3]) gives [1, 3]",
     1, 1, 3, unique},
    {"ismember", "ismember(x, set)",
     "Which numbers of x are in an array, or which texts in a cell of texts; the second result is "
     "the place in the set, 0 for none.\nExample: ismember(\"b\", {\"a\", \"b\"}) gives true",
     2, 2, 2, ismember},
};

} // namespace

Table searching() {
    return table;
}

} // namespace varnix::builtins
