// Scopes and functions: who owns what, and look-up by name.
#include <qn/builder.hpp>
#include <qn/scope.hpp>

#include <algorithm>
#include <array>
#include <cassert>
#include <stdexcept>

namespace QN {

namespace {

std::uint64_t scopesMade = 0;

} // namespace

std::string_view toString(ScopeFlavor flavor) noexcept {
    constexpr std::string_view names[] = {"global", "session", "unit"};
    return names[static_cast<std::size_t>(flavor)];
}

Function::Function(Scope& scope, std::string_view nameInPool, const Type* resultType)
    : scope_(&scope), name_(nameInPool), resultType_(resultType),
      cfg_(std::make_unique<Cfg>(*this)) {}

Function::~Function() = default;

Var* Function::addParam(const Type* type, std::string_view name, std::uint32_t line) {
    paramTypes_.push_back(type);
    return cfg_->addVar(VarKind::Param, type, name, line);
}

void Function::deleteCfg() noexcept {
    cfg_.reset();
}

void Function::replaceCfg(std::unique_ptr<Cfg> cfg) noexcept {
    assert(cfg != nullptr && &cfg->function() == this && cfg->numParams() == paramTypes_.size());
    cfg_ = std::move(cfg);
}

Scope::Scope(ScopeFlavor flavor, std::string_view name) : Scope(flavor, name, nullptr) {}

Scope::Scope(ScopeFlavor flavor, std::string_view name, Scope* parent)
    : pool_(PoolKind::Scope), flavor_(flavor), name_(pool_.copy(name)), serial_(++scopesMade),
      parent_(parent) {}

Scope::~Scope() = default;

std::size_t Scope::level() const noexcept {
    std::size_t level = 0;
    for (const Scope* at = parent_; at != nullptr; at = at->parent_) {
        ++level;
    }
    return level;
}

Scope& Scope::addChild(ScopeFlavor flavor, std::string_view name) {
    if (level() == lastLevel) {
        throw std::length_error("scopes are nested too deeply");
    }
    children_.push_back(std::unique_ptr<Scope>(new Scope(flavor, name, this)));
    return *children_.back();
}

void Scope::removeChild(Scope& child) {
    std::erase_if(children_, [&](const auto& owned) { return owned.get() == &child; });
}

Function* Scope::addFunction(std::string_view name, const Type* resultType) {
    if (byName_.contains(name)) {
        return nullptr;
    }
    functions_.push_back(
        std::unique_ptr<Function>(new Function(*this, pool_.copy(name), resultType)));
    Function* const function = functions_.back().get();
    byName_.emplace(function->name(), function);
    return function;
}

void Scope::removeFunction(Function& function) {
    removeFunctions([&](const Function& candidate) { return &candidate == &function; });
}

std::size_t Scope::removeFunctions(const std::function<bool(const Function&)>& condemned) {
    return std::erase_if(functions_, [&](const auto& owned) {
        if (!condemned(*owned)) {
            return false;
        }
        const std::string_view name = owned->name();
        byName_.erase(name);
        if (!name.empty()) {
            pool_.release(const_cast<char*>(name.data()), name.size());
        }
        return true;
    });
}

Function* Scope::find(std::string_view name) const noexcept {
    const auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : found->second;
}

Function* Scope::lookUp(std::string_view name) const noexcept {
    for (const Scope* scope = this; scope != nullptr; scope = scope->parent_) {
        if (Function* const function = scope->find(name); function != nullptr) {
            return function;
        }
    }
    return nullptr;
}

Node* Builder::call(std::string_view name, const Type* result, std::span<Entity* const> arguments) {
    assert(arguments.size() < Node::maxOperands);
    std::array<Entity*, Node::maxOperands> operands;
    operands[0] = cfg_->callee(name);
    std::copy(arguments.begin(), arguments.end(), operands.begin() + 1);
    return node(Op::Call, result, std::span<Entity* const>(operands.data(), arguments.size() + 1));
}

} // namespace QN
