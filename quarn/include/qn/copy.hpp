// Copying and comparing graphs.
#pragma once

#include <qn/cfg.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace QN {

/// Copies parts of one graph into another, or into itself, and remembers what became what.
/// Variables come first, by one of the two ways below, then the blocks. Stack-trace tags follow.
class GraphCopier {
public:
    /// Both graphs must outlive the copier; they may be the same.
    GraphCopier(const Cfg& from, Cfg& to);

    /// Makes `copy` stand for `original` in what is copied from now on.
    void map(const Var& original, Var& copy) { vars_[original.id()] = &copy; }
    /// Copies one variable, as one of `kind`.
    Var& copyVar(const Var& original, VarKind kind);

    /// Copies all blocks with their nodes to the end of the target's layout. Every variable that
    /// they use must have a copy. Ids are new, counted on from the target's limits.
    void copyBlocks();

    /// The copy of a block or node after copyBlocks(), of a variable at any time.
    [[nodiscard]] Block& of(const Block& original) const { return *blocks_[original.id()]; }
    [[nodiscard]] Node& of(const Node& original) const { return *nodes_[original.id()]; }
    [[nodiscard]] Var& of(const Var& original) const { return *vars_[original.id()]; }

private:
    Entity* copied(Entity* original);

    const Cfg& from_;
    Cfg& to_;
    std::vector<Var*> vars_;     // by id
    std::vector<Block*> blocks_; // by id
    std::vector<Node*> nodes_;   // by id
};

/// A copy of the graph for `owner`, with the parameters in place: packed into a fresh pool, ids
/// counted without gaps in the order of the layout, nothing in it that is not used but the
/// variables.
[[nodiscard]] std::unique_ptr<Cfg> copyOf(const Cfg& original, Function& owner);

/// What first makes two graphs say something else; empty if they say the same. Ids may differ, and
/// so may the order of constants.
[[nodiscard]] std::string differenceOf(const Cfg& a, const Cfg& b);

} // namespace QN
