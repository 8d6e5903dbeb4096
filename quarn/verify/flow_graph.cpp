// See flow_graph.hpp. Everything is iterative: graphs may be as deep as they are large.
#include "verify/flow_graph.hpp"

namespace QN::verification {

void FlowGraph::build(const std::vector<Successors>& successors) {
    rows_.assign(successors.size(), Row());
    order_.clear();
    parent_.clear();
    if (successors.empty()) {
        return;
    }
    walk(successors);
    findDominators(successors);
    nest();
}

void FlowGraph::walk(const std::vector<Successors>& successors) {
    // The stack holds edges that are still to be taken, as pairs of the number of the block that
    // they come from and the block that they lead to.
    stack_.assign({none, 0});
    while (!stack_.empty()) {
        const std::uint32_t block = stack_.back();
        stack_.pop_back();
        const std::uint32_t from = stack_.back();
        stack_.pop_back();
        if (rows_[block].number != none) {
            continue;
        }
        const auto number = static_cast<std::uint32_t>(order_.size());
        rows_[block].number = number;
        order_.push_back(block);
        parent_.push_back(from);
        for (const std::uint32_t next : successors[block]) {
            if (next != none && rows_[next].number == none) {
                stack_.push_back(number);
                stack_.push_back(next);
            }
        }
    }
}

// The vertex of smallest semidominator on the way from `vertex` up to its root in the forest, and
// the way made short.
std::uint32_t FlowGraph::best(std::uint32_t vertex) {
    if (ancestor_[vertex] == none) {
        return vertex;
    }
    stack_.clear();
    for (std::uint32_t v = vertex; ancestor_[ancestor_[v]] != none; v = ancestor_[v]) {
        stack_.push_back(v);
    }
    while (!stack_.empty()) {
        const std::uint32_t v = stack_.back();
        stack_.pop_back();
        const std::uint32_t above = ancestor_[v];
        if (semi_[label_[above]] < semi_[label_[v]]) {
            label_[v] = label_[above];
        }
        ancestor_[v] = ancestor_[above];
    }
    return label_[vertex];
}

void FlowGraph::findDominators(const std::vector<Successors>& successors) {
    const auto count = static_cast<std::uint32_t>(order_.size());
    // Predecessors by number, in one array.
    firstIn_.assign(count + 1, 0);
    for (const std::uint32_t block : order_) {
        for (const std::uint32_t next : successors[block]) {
            if (next != none) {
                ++firstIn_[rows_[next].number];
            }
        }
    }
    std::uint32_t sum = 0;
    for (std::uint32_t& start : firstIn_) {
        sum += start;
        start = sum;
    }
    in_.resize(sum);
    for (std::uint32_t number = 0; number < count; ++number) {
        for (const std::uint32_t next : successors[order_[number]]) {
            if (next != none) {
                in_[--firstIn_[rows_[next].number]] = number;
            }
        }
    }

    semi_.resize(count);
    label_.resize(count);
    for (std::uint32_t v = 0; v < count; ++v) {
        semi_[v] = v;
        label_[v] = v;
    }
    ancestor_.assign(count, none);
    dominator_.assign(count, none);
    bucket_.assign(count, none);
    nextInBucket_.assign(count, none);
    for (std::uint32_t w = count; w-- > 1;) {
        for (std::uint32_t i = firstIn_[w]; i < firstIn_[w + 1]; ++i) {
            const std::uint32_t s = semi_[best(in_[i])];
            semi_[w] = s < semi_[w] ? s : semi_[w];
        }
        nextInBucket_[w] = bucket_[semi_[w]];
        bucket_[semi_[w]] = w;
        const std::uint32_t p = parent_[w];
        ancestor_[w] = p;
        for (std::uint32_t v = bucket_[p]; v != none; v = nextInBucket_[v]) {
            const std::uint32_t u = best(v);
            dominator_[v] = semi_[u] < semi_[v] ? u : p;
        }
        bucket_[p] = none;
    }
    for (std::uint32_t w = 1; w < count; ++w) {
        if (dominator_[w] != semi_[w]) {
            dominator_[w] = dominator_[dominator_[w]];
        }
        rows_[order_[w]].immediate = order_[dominator_[w]];
    }
}

// A dominator has a smaller number than what it dominates, so one pass backwards counts subtrees
// and one forwards hands out intervals.
void FlowGraph::nest() {
    const auto count = static_cast<std::uint32_t>(order_.size());
    std::vector<std::uint32_t>& size = label_; // not needed any more, as semi_
    size.assign(count, 1);
    for (std::uint32_t w = count; w-- > 1;) {
        size[dominator_[w]] += size[w];
    }
    std::vector<std::uint32_t>& nextFree = semi_;
    nextFree.assign(count, 0);
    for (std::uint32_t w = 0; w < count; ++w) {
        Row& row = rows_[order_[w]];
        if (w > 0) {
            row.enter = nextFree[dominator_[w]];
            nextFree[dominator_[w]] += size[w];
        }
        row.leave = row.enter + size[w];
        nextFree[w] = row.enter + 1;
    }
}

} // namespace QN::verification
