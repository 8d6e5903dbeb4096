// The tree of packages, and taking back what a module published.
#pragma once

#include <objsys/package.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace objsys {

class PackageTree {
public:
    /// The packages without a parent, in the order in which they were made ("varnix" and
    /// "internal" first).
    [[nodiscard]] static const std::vector<std::unique_ptr<COSPackage>>& roots();
    /// A root package by name, or null.
    [[nodiscard]] static COSPackage* findRoot(std::string_view name);

    /// A moment in the history of the tree.
    struct Mark {
        std::size_t serial = 0;
    };
    [[nodiscard]] static Mark mark();
    /// Withdraws the classes and packages that were added since, last first: ends their instances,
    /// releases their descriptions. Used before a module's code leaves the process.
    static void withdrawSince(Mark mark) noexcept;
    /// Withdraws the classes and packages added between two marks.
    static void withdrawBetween(Mark begin, Mark end) noexcept;

private:
    friend class COSPackage;
    static PackageTree& instance();
    PackageTree();
    void withdraw(std::size_t begin, std::size_t end) noexcept;
    void removeAbandoned(COSPackage* package) noexcept;

    struct Entry { // one addition, in order; null once withdrawn
        COSPackage* parent = nullptr;
        COSClass* cls = nullptr;
        COSPackage* package = nullptr;
    };
    std::vector<std::unique_ptr<COSPackage>> roots_;
    std::vector<Entry> history_;
    std::vector<std::unique_ptr<COSClass>> withdrawn_; // bare names, still referred to by arrays
    std::vector<std::unique_ptr<COSPackage>> withdrawnPackages_;
};

} // namespace objsys
