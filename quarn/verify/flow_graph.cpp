// See flow_graph.hpp. Everything is iterative: graphs may be as deep as they are large.
#include "verify/flow_graph.hpp"

namespace QN::verification {

void FlowGraph::build(const std::vector<Successors>& successors) {
    rows_.assign(successors.size(), Row());
    numReachable_ = 0;
    if (successors.empty()) {
        return;
    }
    walkInPostorder(successors);
    if (!takeInOrder(successors)) {
        takeInAnyOrder(successors);
    }
}

// Reverse postorder

void FlowGraph::walkInPostorder(const std::vector<Successors>& successors) {
    order_.resize(successors.size());
    stack_.resize(2 * successors.size() + 1); // an entry for each edge at most
    Row* const rows = rows_.data();
    std::uint32_t* const order = order_.data();
    std::uint32_t* const stack = stack_.data();
    std::size_t left = 0;
    std::size_t depth = 0;
    stack[depth++] = 0;
    while (depth != 0) {
        const std::uint32_t block = stack[depth - 1];
        Row& row = rows[block];
        if (row.state == Row::New) {
            row.state = Row::Entered;
            for (const std::uint32_t next : successors[block]) {
                if (next != none && rows[next].state == Row::New) {
                    stack[depth++] = next;
                }
            }
            continue;
        }
        --depth;
        if (row.state == Row::Entered) {
            row.state = Row::Left;
            order[left++] = block;
        }
    }
    numReachable_ = static_cast<std::uint32_t>(left);
}

// All ways to a block that do not pass it before are known when its turn comes, if each edge back
// leads to a dominator of the block that it comes from; a way over such an edge passed that block
// before. False if there is another edge back.
bool FlowGraph::takeInOrder(const std::vector<Successors>& successors) {
    rows_[0].depth = 1;
    for (std::uint32_t i = numReachable_; i-- > 0;) {
        const std::uint32_t block = order_[i];
        if (block != 0) {
            hang(block, rows_[block].immediate);
        }
        for (const std::uint32_t next : successors[block]) {
            if (next == none) {
                continue;
            }
            Row& row = rows_[next];
            if (row.depth == 0) { // its turn has not come
                row.immediate = row.immediate == none ? block : common(row.immediate, block);
            } else if (!dominates(next, block)) {
                return false;
            }
        }
    }
    return true;
}

void FlowGraph::hang(std::uint32_t block, std::uint32_t under) noexcept {
    const Row& over = rows_[under];
    const Row& far = rows_[over.jump];
    const bool goesFarther = over.depth - far.depth == far.depth - rows_[far.jump].depth;
    const std::uint32_t jump = goesFarther ? far.jump : under;
    Row& row = rows_[block];
    row.immediate = under;
    row.depth = over.depth + 1;
    row.jump = jump;
}

/// The ancestor of a block at a depth; the block itself if it does not lie deeper.
std::uint32_t FlowGraph::ancestorAt(std::uint32_t depth, std::uint32_t block) const noexcept {
    while (rows_[block].depth > depth) {
        const Row& row = rows_[block];
        block = rows_[row.jump].depth >= depth ? row.jump : row.immediate;
    }
    return block;
}

/// The deepest block that dominates both.
std::uint32_t FlowGraph::common(std::uint32_t a, std::uint32_t b) const noexcept {
    a = ancestorAt(rows_[b].depth, a);
    b = ancestorAt(rows_[a].depth, b);
    while (a != b) { // at the same depth, from which jumps lead to the same depth
        const bool jumps = rows_[a].jump != rows_[b].jump;
        a = jumps ? rows_[a].jump : rows_[a].immediate;
        b = jumps ? rows_[b].jump : rows_[b].immediate;
    }
    return a;
}

// Lengauer and Tarjan

void FlowGraph::takeInAnyOrder(const std::vector<Successors>& successors) {
    number_.assign(successors.size(), none);
    order_.clear();
    parent_.clear();
    walk(successors);
    findDominators(successors);
    rows_.assign(successors.size(), Row());
    rows_[0].depth = 1;
    for (std::uint32_t w = 1; w < numReachable_; ++w) { // a dominator has a smaller number
        hang(order_[w], order_[dominator_[w]]);
    }
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
        if (number_[block] != none) {
            continue;
        }
        const auto number = static_cast<std::uint32_t>(order_.size());
        number_[block] = number;
        order_.push_back(block);
        parent_.push_back(from);
        for (const std::uint32_t next : successors[block]) {
            if (next != none && number_[next] == none) {
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
                ++firstIn_[number_[next]];
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
                in_[--firstIn_[number_[next]]] = number;
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
    }
}

} // namespace QN::verification
