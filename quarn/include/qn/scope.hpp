// A scope: a named set of functions, in a tree. A function sees those of its own scope and of the
// scopes around it.
//
// Owner: a root belongs to who made it; each other scope belongs to its parent. A scope owns its
// functions, its children and the pool of its names, and frees them together.
#pragma once

#include <qn/function.hpp>

#include <functional>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace QN {

/// Global: as long as the process. Session: as long as a user's session. Unit: one compilation.
enum class ScopeFlavor : std::uint8_t { Global, Session, Unit };

[[nodiscard]] std::string_view toString(ScopeFlavor flavor) noexcept;

class Scope {
public:
    /// A root.
    Scope(ScopeFlavor flavor, std::string_view name);
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope();

    [[nodiscard]] ScopeFlavor flavor() const noexcept { return flavor_; }
    [[nodiscard]] std::string_view name() const noexcept { return name_; }
    /// Unique in the process and never given again; tells a scope from a later one in its place.
    [[nodiscard]] std::uint64_t serial() const noexcept { return serial_; }
    [[nodiscard]] Scope* parent() const noexcept { return parent_; }
    [[nodiscard]] Pool& pool() noexcept { return pool_; }
    [[nodiscard]] const Pool& pool() const noexcept { return pool_; }

    /// Scopes lie in each other up to this level; everything that walks them may call itself for
    /// those inside.
    static constexpr std::size_t lastLevel = 100;
    /// 0 for a root.
    [[nodiscard]] std::size_t level() const noexcept;
    /// Throws std::length_error if this scope is at the last level.
    Scope& addChild(ScopeFlavor flavor, std::string_view name);
    /// Frees a child with all that is in it.
    void removeChild(Scope& child);
    [[nodiscard]] const std::vector<std::unique_ptr<Scope>>& children() const noexcept {
        return children_;
    }

    /// A new function with an empty graph; null if this scope has one of that name.
    Function* addFunction(std::string_view name, const Type* resultType);
    /// Frees one function; linear in the number of functions.
    void removeFunction(Function& function);
    /// Frees the functions for which `condemned` says so, in one sweep; returns their number.
    std::size_t removeFunctions(const std::function<bool(const Function&)>& condemned);
    /// In the order in which they were added.
    [[nodiscard]] const std::vector<std::unique_ptr<Function>>& functions() const noexcept {
        return functions_;
    }
    /// The function of that name in this scope, null if there is none.
    [[nodiscard]] Function* find(std::string_view name) const noexcept;
    /// The same, also in the scopes around this one, the nearest first.
    [[nodiscard]] Function* lookUp(std::string_view name) const noexcept;

private:
    Scope(ScopeFlavor flavor, std::string_view name, Scope* parent);

    Pool pool_;
    ScopeFlavor flavor_;
    std::string_view name_;
    std::uint64_t serial_;
    Scope* parent_ = nullptr;
    std::vector<std::unique_ptr<Scope>> children_;
    std::vector<std::unique_ptr<Function>> functions_;
    std::unordered_map<std::string_view, Function*> byName_;
};

} // namespace QN
