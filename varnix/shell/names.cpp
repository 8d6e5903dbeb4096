// See names.hpp.
#include "shell/names.hpp"

#include "object/package_tree.hpp"

#include <objsys/class.hpp>

#include <algorithm>
#include <cstdint>
#include <numeric>

namespace varnix {

namespace {

void addNames(const objsys::COSPackage& package, std::vector<std::string>& names) {
    names.push_back(package.getFullName().str());
    for (const auto& cls : package.classes())
        if (!cls->info().isHidden())
            names.push_back(cls->getFullName().str());
    for (const auto& inner : package.packages())
        addNames(*inner, names);
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return result;
}

/// Number of letters to insert, remove, replace or swap with their neighbour.
std::size_t distance(std::string_view a, std::string_view b) {
    const std::size_t width = b.size() + 1;
    std::vector<std::size_t> beforeLast(width), last(width), row(width);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j < width; ++j) {
            const std::size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
        std::swap(beforeLast, last);
        std::swap(last, row);
    }
    return last[b.size()];
}

std::string_view lastPart(std::string_view name) {
    return name.substr(name.rfind('.') + 1); // the whole name when there is no dot
}

} // namespace

std::vector<std::string> packageAndClassNames() {
    std::vector<std::string> names;
    for (const auto& root : objsys::PackageTree::roots())
        addNames(*root, names);
    return names;
}

const std::vector<std::string>& keywords() {
    static const std::vector<std::string> words = {
        "break", "case",     "catch", "continue",  "else",   "elseif", "end",  "false", "fn",
        "for",   "function", "if",    "otherwise", "return", "switch", "true", "try",   "while"};
    return words;
}

std::vector<std::string> nearestNames(std::string_view name, const std::vector<std::string>& known,
                                      std::size_t limit) {
    constexpr std::size_t longest = 200; // nobody mistypes a name of that length
    if (name.empty() || name.size() > longest)
        return {};
    const std::string wanted = lowered(name);
    // What stands before the last dot is rarely mistyped, so it buys no further letters.
    const std::size_t counted = lastPart(wanted).size();
    const std::size_t allowed = counted <= 2 ? 1 : 1 + counted / 5;
    std::vector<std::pair<std::size_t, const std::string*>> found;
    for (const std::string& candidate : known) {
        if (candidate.size() > longest)
            continue;
        const std::string other = lowered(candidate);
        std::size_t best = distance(wanted, other);
        if (best > allowed && name.find('.') == std::string_view::npos)
            best = distance(wanted, lastPart(other)); // a short name for a full one
        if (best <= allowed && best < std::max<std::size_t>(wanted.size(), 2))
            found.emplace_back(best, &candidate);
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> result;
    for (const auto& [steps, candidate] : found)
        if (result.size() < limit &&
            std::find(result.begin(), result.end(), *candidate) == result.end())
            result.push_back(*candidate);
    return result;
}

} // namespace varnix
