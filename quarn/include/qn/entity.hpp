// The common head of everything that a node can have as an operand, and the edges between the two.
//
// An Operand lies inside its node and is linked into the use list of the entity that it refers to,
// so that the way from a definition to its uses and back is one step in each direction.
#pragma once

#include <qn/pool.hpp>

#include <cstdint>
#include <iterator>

namespace QN {

class Cfg;
class Function;
class Node;
class Operand;
class Scope;
class Type;

class Entity {
public:
    [[nodiscard]] EntityKind kind() const noexcept { return kind_; }

    /// The first operand that refers to this entity, null if there is none. The order of uses is
    /// not specified.
    [[nodiscard]] Operand* firstUse() const noexcept { return firstUse_.get(); }
    [[nodiscard]] Ref<Operand> firstUseRef() const noexcept { return firstUse_; }
    [[nodiscard]] bool hasUses() const noexcept { return static_cast<bool>(firstUse_); }
    [[nodiscard]] bool hasOneUse() const noexcept;
    /// Number of uses; linear in it.
    [[nodiscard]] std::size_t countUses() const noexcept;

    /// The uses as a range of Operand&. The use under the iterator must not be changed while the
    /// range is walked, except through its iterator's successor taken before.
    [[nodiscard]] auto uses() const noexcept;

protected:
    explicit Entity(EntityKind kind) noexcept : kind_(kind) {}

    EntityKind kind_;
    std::uint8_t small_[3] = {}; // the deriving class's small fields
    Ref<Operand> firstUse_;

private:
    friend class Operand;
};

/// One operand of a node: an edge to the entity that it refers to.
class Operand {
public:
    [[nodiscard]] Entity* value() const noexcept { return value_.get(); }
    /// The node that this is an operand of.
    [[nodiscard]] Node* user() const noexcept { return user_.get(); }
    /// The next use of the same entity.
    [[nodiscard]] Operand* nextUse() const noexcept { return nextUse_.get(); }
    [[nodiscard]] Operand* previousUse() const noexcept { return previousUse_.get(); }

    // The same as references, for who only compares them or looks them up.
    [[nodiscard]] Ref<Entity> valueRef() const noexcept { return value_; }
    [[nodiscard]] Ref<Node> userRef() const noexcept { return user_; }
    [[nodiscard]] Ref<Operand> nextUseRef() const noexcept { return nextUse_; }
    [[nodiscard]] Ref<Operand> previousUseRef() const noexcept { return previousUse_; }

    /// Makes the operand refer to `value` (null for nothing) and puts both use lists right.
    void set(Entity* value) noexcept {
        unlink();
        if (value != nullptr) {
            link(value);
        }
    }

private:
    friend class Cfg;
    explicit Operand(Node* user) noexcept : user_(user) {}

    void link(Entity* value) noexcept {
        value_ = value;
        nextUse_ = value->firstUse_;
        previousUse_ = nullptr;
        if (nextUse_) {
            nextUse_->previousUse_ = this;
        }
        value->firstUse_ = this;
    }
    void unlink() noexcept {
        if (!value_) {
            return;
        }
        if (nextUse_) {
            nextUse_->previousUse_ = previousUse_;
        }
        if (previousUse_) {
            previousUse_->nextUse_ = nextUse_;
        } else {
            value_->firstUse_ = nextUse_;
        }
        value_ = nullptr;
    }

    Ref<Entity> value_;
    Ref<Node> user_;
    Ref<Operand> nextUse_;
    Ref<Operand> previousUse_;
};
static_assert(sizeof(Operand) == 16);

/// A range over a chain of entities or operands that are linked by a member function.
template <typename T, T* (T::*next)() const noexcept>
class Chain {
public:
    class iterator {
    public:
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using iterator_category = std::forward_iterator_tag;
        using pointer = T*;
        using reference = T&;
        iterator() noexcept = default;
        explicit iterator(T* at) noexcept : at_(at) {}
        T& operator*() const noexcept { return *at_; }
        T* operator->() const noexcept { return at_; }
        iterator& operator++() noexcept {
            at_ = (at_->*next)();
            return *this;
        }
        iterator operator++(int) noexcept {
            iterator old = *this;
            ++*this;
            return old;
        }
        friend bool operator==(iterator, iterator) noexcept = default;

    private:
        T* at_ = nullptr;
    };
    explicit Chain(T* first) noexcept : first_(first) {}
    [[nodiscard]] iterator begin() const noexcept { return iterator(first_); }
    [[nodiscard]] iterator end() const noexcept { return iterator(); }
    [[nodiscard]] bool empty() const noexcept { return first_ == nullptr; }

private:
    T* first_;
};

inline auto Entity::uses() const noexcept {
    return Chain<Operand, &Operand::nextUse>(firstUse());
}

inline bool Entity::hasOneUse() const noexcept {
    return firstUse_ && firstUse_->nextUse() == nullptr;
}

inline std::size_t Entity::countUses() const noexcept {
    std::size_t count = 0;
    for (const Operand* use = firstUse(); use != nullptr; use = use->nextUse()) {
        ++count;
    }
    return count;
}

} // namespace QN
