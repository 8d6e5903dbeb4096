// Following the links of a graph without trusting any of them. An element of a list is taken up if
// the pool holds it, it is of the right kind, and it has not been met before; so every walk ends.
#include "verify/survey.hpp"

#include <algorithm>
#include <array>
#include <functional>

namespace QN::verification {

namespace {

constexpr std::ptrdiff_t prefetchBytes = 768;

std::string idText(std::uint32_t id) {
    return "(id " + std::to_string(id) + ")";
}

/// Why an address cannot be the next element of a list of that kind; null if it can.
template <typename T>
const char* whatIsWrong(const MemoryMap& memory, const T* at, EntityKind kind) {
    if (!memory.holds(at, sizeof(T))) {
        return "leads out of the graph's pool";
    }
    if (at->kind() != kind) {
        return "leads to something else";
    }
    if (memory.isListed(at)) {
        return "leads back to an earlier one";
    }
    return nullptr;
}

std::string linkText(std::string_view list, const char* wrong) {
    return std::string("a link of the list of ").append(list).append(" ").append(wrong);
}

} // namespace

void Survey::take(const Function& function, const Scope* scope) {
    function_ = &function;
    blocks_.clear();
    nodes_.clear();
    vars_.clear();
    consts_.clear();
    callees_.clear();
    flaws_.clear();
    targets_.clear();
    linked_ = 0;
    followed_ = 0;
    usersAreRight_ = true;
    firstNodes_.assign(1, 0);
    if (!function.hasCfg()) {
        return;
    }
    const Cfg& graph = cfg();
    memory_.reset(graph.pool());
    // The graph's counts only help to choose sizes; what the pool holds bounds them.
    const std::size_t room = memory_.bytes() / sizeof(Node);
    const std::size_t nodes = graph.numNodes() < room ? graph.numNodes() : room;
    const std::size_t blocks = graph.numBlocks() < room ? graph.numBlocks() : room;
    nodes_.reserve(nodes);
    nodeNumbers_.reset(graph.nodeIdLimit(), nodes);
    blockNumbers_.reset(graph.blockIdLimit(), blocks);

    walkList<Var>(graph.firstVar(), graph.lastVar(), EntityKind::Var, Flaw::Of::VarList, vars_);
    const auto constants = graph.constants();
    walkList<Const>(constants.empty() ? nullptr : &*constants.begin(), graph.lastConstant(),
                    EntityKind::Const, Flaw::Of::ConstList, consts_);
    const auto callees = graph.callees();
    walkList<Callee>(callees.empty() ? nullptr : &*callees.begin(), graph.lastCallee(),
                     EntityKind::Callee, Flaw::Of::CalleeList, callees_);
    walkBlocks();
    for (std::uint32_t block = 0; block < blocks_.size(); ++block) {
        walkNodes(block);
    }
    blockNumbers_.finish(blocks_);
    nodeNumbers_.finish(nodes_);
    buildFlow();
    lookUpCallees(scope);

    flawsBeforeUses_ = flaws_.size();
    followUsesOfOthers();
}

void Survey::followUsesOfOthers() {
    for (const Var* const var : vars_) {
        followUses(*var, {noIndex, noIndex, var->line()});
    }
    for (const Const* const constant : consts_) {
        followUses(*constant, {});
    }
    for (const Callee* const callee : callees_) {
        followUses(*callee, {});
    }
    for (std::size_t block = 0; block < blocks_.size(); ++block) {
        followUses(*blocks_[block], Where::atBlock(block));
    }
    finishUses();
}

template <typename T>
void Survey::walkList(const T* first, const T* last, EntityKind kind, Flaw::Of of,
                      std::vector<const T*>& found) {
    const std::string_view list = kind == EntityKind::Var     ? "variables"
                                  : kind == EntityKind::Const ? "constants"
                                                              : "callees";
    const T* previous = nullptr;
    for (const T* at = first; at != nullptr; at = at->next()) {
        if (const char* const wrong = whatIsWrong(memory_, at, kind); wrong != nullptr) {
            note(of, {}, linkText(list, wrong));
            return;
        }
        memory_.list(at);
        if constexpr (requires { at->previous(); }) {
            if (at->previous() != previous) {
                note(of, {noIndex, noIndex, at->line()},
                     describe(*this, *at) + " does not lead back to the one before it");
            }
        }
        found.push_back(at);
        previous = at;
    }
    if (last != previous) {
        note(of, {}, linkText(list, "ends before or behind what the graph takes for the last"));
    }
}

void Survey::walkBlocks() {
    const Block* previous = nullptr;
    for (const Block* at = cfg().entry(); at != nullptr; at = at->next()) {
        if (const char* const wrong = whatIsWrong(memory_, at, EntityKind::Block);
            wrong != nullptr) {
            note(Flaw::Of::BlockList,
                 previous == nullptr ? Where() : Where::atBlock(blocks_.size() - 1),
                 linkText("blocks", wrong));
            return;
        }
        memory_.list(at);
        const auto number = static_cast<std::uint32_t>(blocks_.size());
        blockNumbers_.add(at, number);
        blocks_.push_back(at);
        if (at->previous() != previous) {
            note(Flaw::Of::BlockList, Where::atBlock(number),
                 "the block does not lead back to the one before it");
        }
        previous = at;
    }
    if (cfg().lastBlock() != previous) {
        note(Flaw::Of::BlockList,
             previous == nullptr ? Where() : Where::atBlock(blocks_.size() - 1),
             "the layout ends before or behind what the graph takes for the last block");
    }
}

void Survey::walkNodes(std::uint32_t block) {
    const Node* previous = nullptr;
    const auto place = [&] {
        return previous == nullptr ? Where::atBlock(block) : Where::atNode(nodes_.size() - 1);
    };
    const Node* at = blocks_[block]->first();
    for (; at != nullptr; at = at->next()) {
        // Most nodes lie in the order in which they follow each other.
        __builtin_prefetch(reinterpret_cast<const char*>(at) + prefetchBytes);
        if (!memory_.holds(at, sizeof(Node)) || at->kind() != EntityKind::Node ||
            !memory_.holds(at, at->bytes()) || !memory_.list(at)) [[unlikely]] {
            const char* const wrong = whatIsWrong(memory_, at, EntityKind::Node);
            note(Flaw::Of::NodeList, place(),
                 linkText("nodes", wrong != nullptr
                                       ? wrong
                                       : "leads to one whose operands reach out of the pool"));
            break;
        }
        memory_.listOperandsOf(*at);
        const auto number = static_cast<std::uint32_t>(nodes_.size());
        nodeNumbers_.add(at, number);
        nodes_.push_back(at);
        if (at->previous() != previous) [[unlikely]] {
            note(Flaw::Of::NodeList, Where::atNode(number),
                 "the node does not lead back to the one before it");
        }
        previous = at;
    }
    if (at == nullptr && blocks_[block]->last() != previous) {
        note(Flaw::Of::NodeList, place(),
             "the list ends before or behind what the block takes for its last node");
    }
    firstNodes_.push_back(static_cast<std::uint32_t>(nodes_.size()));
}

std::uint32_t Survey::blockOf(std::uint32_t node) const {
    // What the node itself says is right if the node's number lies in that block's range.
    const Block* const said = nodes_[node]->block();
    if (memory_.isListed(said) && said->kind() == EntityKind::Block) {
        const std::uint32_t block = blockNumbers_[said];
        if (node - firstNodes_[block] < firstNodes_[block + 1] - firstNodes_[block]) {
            return block;
        }
    }
    const auto behind = std::upper_bound(firstNodes_.begin(), firstNodes_.end(), node);
    return static_cast<std::uint32_t>(behind - firstNodes_.begin()) - 1;
}

void Survey::buildFlow() {
    successors_.assign(blocks_.size(), {FlowGraph::none, FlowGraph::none});
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
        const Node* const end = lastNode(i);
        if (end == nullptr || (end->op() != Op::Jump && end->op() != Op::Br)) {
            continue;
        }
        std::size_t side = 0;
        for (const Operand& operand : end->operands()) {
            const Entity* const to = operand.value();
            if (side < 2 && to != nullptr && memory_.isListed(to) &&
                to->kind() == EntityKind::Block) {
                successors_[i][side++] = blockNumbers_[static_cast<const Block*>(to)];
            }
        }
    }
    flow_.build(successors_);
}

void Survey::lookUpCallees(const Scope* scope) {
    if (scope == nullptr) {
        return;
    }
    for (const Callee* const callee : callees_) {
        const std::string_view name = safeName(memory_, callee->name());
        if (const Function* const found = name.empty() ? nullptr : scope->lookUp(name);
            found != nullptr) {
            targets_.emplace_back(callee, found);
        }
    }
    std::sort(targets_.begin(), targets_.end());
}

const Function* Survey::target(const Callee* callee) const {
    const auto found = std::lower_bound(
        targets_.begin(), targets_.end(), callee,
        [](const auto& row, const Callee* wanted) { return std::less<>()(row.first, wanted); });
    return found == targets_.end() || found->first != callee ? nullptr : found->second;
}

// Which nodes have uses, and more than one, is hard to foresee for the processor; so those that do
// are gathered without a branch.
void Survey::followUsesOfNodes(std::uint32_t first, std::uint32_t end) {
    used_.resize(end - first);
    std::size_t count = 0;
    for (std::uint32_t number = first; number < end; ++number) {
        used_[count] = number;
        count += nodes_[number]->hasUses() ? 1 : 0;
    }
    const std::size_t waited = waiting_.size();
    waiting_.resize(waited + count);
    UseWalk* next = waiting_.data() + waited;
    for (std::size_t i = 0; i < count; ++i) {
        const Ref<const Node> node = nodes_[used_[i]];
        const Ref<Operand> use = node->firstUseRef();
        if (!isSoundUse(use, Ref<const Entity>(&*node), nullptr)) [[unlikely]] {
            followOddUses(*node, Where::atNode(used_[i]), use.get(), nullptr);
            continue;
        }
        ++followed_;
        const Ref<Operand> second = use->nextUseRef();
        __builtin_prefetch(&*second);
        *next = {Ref<const Entity>(&*node), second, use, Where::atNode(used_[i])};
        next += second ? 1 : 0;
    }
    waiting_.resize(static_cast<std::size_t>(next - waiting_.data()));
    finishUses();
}

void Survey::followUsesAgain(const std::vector<std::uint32_t>& batches) {
    for (const Node* const node : nodes_) {
        for (const Operand& operand : node->operands()) {
            if (operand.user() != node) {
                memory_.unlistOperand(&operand);
            }
        }
    }
    flaws_.resize(flawsBeforeUses_);
    followed_ = 0;
    followUsesOfOthers();
    std::uint32_t first = 0;
    for (const std::uint32_t end : batches) {
        followUsesOfNodes(first, end);
        first = end;
    }
}

// The uses of a variable or constant lie far apart, and each has to be there before the next is
// known. Following several lists in turns lets the memory fetch for one what another waits for.
void Survey::finishUses() {
    std::array<UseWalk, 16> lanes;
    std::size_t active = 0;
    while (active > 0 || !waiting_.empty()) {
        for (; active < lanes.size() && !waiting_.empty(); waiting_.pop_back()) {
            lanes[active++] = waiting_.back();
        }
        for (std::size_t i = 0; i < active;) {
            UseWalk& walk = lanes[i];
            if (isSoundUse(walk.use, walk.entity, walk.previous)) [[likely]] {
                ++followed_;
                walk.previous = walk.use;
                walk.use = walk.use->nextUseRef();
                if (walk.use) {
                    __builtin_prefetch(&*walk.use);
                    ++i;
                    continue;
                }
            } else {
                followOddUses(*walk.entity, walk.where, walk.use.get(), walk.previous.get());
            }
            walk = lanes[--active];
        }
    }
}

void Survey::followOddUses(const Entity& entity, Where where, const Operand* use,
                           const Operand* previous) {
    const bool isBlock = entity.kind() == EntityKind::Block;
    const Flaw::Of of = isBlock ? Flaw::Of::Predecessors : Flaw::Of::Uses;
    const auto fail = [&](std::string_view what) {
        note(of, where, describe(*this, entity).append(": a use in its list ").append(what));
    };
    for (; use != nullptr; use = use->nextUse()) {
        if (isSoundUse(use, &entity, previous)) {
            ++followed_;
        } else if (!memory_.holds(use, sizeof *use)) {
            return fail("lies outside the graph's pool");
        } else if (use->previousUse() != previous) {
            return fail("does not lead back to the one before it");
        } else if (use->value() != &entity) {
            return fail("refers to something else");
        } else if (!memory_.isListed(use->user())) {
            note(isBlock ? Flaw::Of::Predecessors : Flaw::Of::DetachedUse, where,
                 "a node that is in no block " + std::string(isBlock ? "leads to " : "uses ") +
                     describe(*this, entity));
        } // else it is no operand of the node that it names: see edge.user and edge.listed
        previous = use;
    }
}

std::string describe(const Survey& survey, const Entity& entity) {
    switch (entity.kind()) {
    case EntityKind::Var: {
        const auto& var = static_cast<const Var&>(entity);
        const std::string_view name = safeName(survey.memory(), var.name());
        return "variable " + std::string(name) + (name.empty() ? "" : " ") + idText(var.id());
    }
    case EntityKind::Const:
        return "constant " + idText(static_cast<const Const&>(entity).id());
    case EntityKind::Callee:
        return "callee " +
               std::string(safeName(survey.memory(), static_cast<const Callee&>(entity).name()));
    case EntityKind::Node: {
        const auto& node = static_cast<const Node&>(entity);
        const auto op = static_cast<std::size_t>(node.op());
        return "node " + (op < opCount ? std::string(infoOf(node.op()).text) + " " : "") +
               idText(node.id());
    }
    case EntityKind::Block:
        return "block " + std::to_string(static_cast<const Block&>(entity).id());
    default:
        return "an entity of an unknown kind";
    }
}

std::string_view safeName(const MemoryMap& memory, std::string_view name) noexcept {
    const bool isHeld = !name.empty() && memory.holds(name.data(), name.size());
    return isHeld ? name : std::string_view();
}

} // namespace QN::verification
