// See quick_look.hpp. The loop over nodes is what counts: it branches on little but what is always
// the same in sound graphs.
#include "verify/quick_look.hpp"

#include "verify/checks.hpp"

#include <algorithm>
#include <bit>
#include <utility>

namespace QN::verification {

namespace {

std::uint32_t referenceTo(const void* address) noexcept {
    return Ref<const std::byte>(static_cast<const std::byte*>(address)).bits();
}

template <typename T>
constexpr std::uint32_t unitsOf() {
    return (sizeof(T) + EntityTable::unitBytes - 1) / EntityTable::unitBytes;
}

} // namespace

QuickLook::QuickLook() : types_(typeTable()) {}

bool QuickLook::findsNothing(const Function& function, const Scope* scope,
                             const VerifyOptions& options, detail::Upcoming& upcoming) {
    function_ = &function;
    graph_ = &function.cfg();
    result_ = types_.codeOf(function.resultType());
    // Callees come first, so that the functions that they lead to are there when calls are met.
    if (&graph_->function() != function_ || result_ == TypeCode::none ||
        function.line() >= lineLimit || !start() || !listCallees(scope) || !listVars()) {
        return false;
    }
    fetchSignatures();
    if (!listConstants() || !listBlocks()) {
        return false;
    }
    for (const Block* const block : blocks_) {
        if (upcoming.empty() ? !lookAtNodes<false>(*block, upcoming)
                             : !lookAtNodes<true>(*block, upcoming)) {
            return false;
        }
    }
    for (const Late& late : late_) {
        if (!lookAtLate(late)) {
            return false;
        }
    }
    const bool isCompact = graph_->blockIdLimit() <= blocks_.size() &&
                           graph_->varIdLimit() <= graph_->numVars() &&
                           graph_->nodeIdLimit() - std::size_t{1} <= numNodes_;
    return numNodes_ == graph_->numNodes() && (isCompact || !options.compacted) && usesAreRight() &&
           flowIsRight(options);
}

bool QuickLook::start() {
    // Records are gone through by checks of their own.
    if (graph_->pool().keepsRecords() || !table_.reset(graph_->pool())) {
        return false;
    }
    const std::size_t held = table_.slotsHeld();
    const std::size_t ids = std::size_t{graph_->nodeIdLimit()} + graph_->blockIdLimit() +
                            std::size_t{graph_->varIdLimit()};
    if (graph_->numNodes() >= largestNumber || ids > 16 * held + 1024) {
        return false;
    }
    seen_.assign(ids, 0);
    range_ = table_.ranges().front();
    numNodes_ = 0;
    ends_ = {};
    far_.clear();
    late_.clear();
    oddLinks_.clear();
    return true;
}

bool QuickLook::isSeen(std::size_t id) noexcept {
    const bool isSeen = seen_[id] != 0;
    seen_[id] = 1;
    return isSeen;
}

/// Whether the pool holds so many units from there on; quick for what lies near to the last one
/// asked for.
inline bool QuickLook::holds(std::uint32_t at, std::uint32_t units) {
    if (!range_.contains(at, units)) [[unlikely]] {
        range_ = table_.rangeOf(at);
    }
    return range_.contains(at, units);
}

inline bool QuickLook::holdsText(std::string_view text) {
    const std::size_t units = (text.size() + EntityTable::unitBytes - 1) / EntityTable::unitBytes;
    return holds(referenceTo(text.data()), static_cast<std::uint32_t>(units));
}

bool QuickLook::namesDiffer() {
    constexpr std::size_t few = 8;
    if (names_.size() > few) {
        std::sort(names_.begin(), names_.end());
        return std::adjacent_find(names_.begin(), names_.end()) == names_.end();
    }
    for (std::size_t i = 1; i < names_.size(); ++i) {
        if (std::find(names_.begin(), names_.begin() + static_cast<std::ptrdiff_t>(i), names_[i]) !=
            names_.begin() + static_cast<std::ptrdiff_t>(i)) {
            return false;
        }
    }
    return true;
}

// Scopes

bool QuickLook::findsNothing(const Scope& scope) {
    for (const auto& child : scope.children()) {
        if (child == nullptr || child->parent() != &scope || child->flavor() < scope.flavor()) {
            return false;
        }
    }
    for (const auto& function : scope.functions()) {
        if (function == nullptr || &function->scope() != &scope || function->name().empty() ||
            scope.find(function->name()) != function.get()) {
            return false;
        }
    }
    return scope.flavor() <= ScopeFlavor::Unit;
}

// Variables

bool QuickLook::listVars() {
    const EntityTable::View view = table_.view();
    std::uint8_t* const seen = seen_.data() + graph_->nodeIdLimit() + graph_->blockIdLimit();
    const std::uint32_t idLimit = graph_->varIdLimit();
    params_.clear();
    std::size_t count = 0;
    std::uint32_t lines = 0;
    std::uint32_t previous = 0;
    bool paramsEnd = false;
    for (std::uint32_t at = referenceTo(graph_->firstVar()); at != 0; ++count) {
        if (!holds(at, unitsOf<Var>())) {
            return false;
        }
        const Var& var = *Ref<Var>::fromBits(at);
        const std::uint32_t id = var.id();
        const std::uint32_t type = types_.codeOf(var.typeRef());
        if (var.kind() != EntityKind::Var || var.previousRef().bits() != previous ||
            id >= idLimit || seen[id] != 0 || type <= TypeCode::voidType || !nameIsRight(var) ||
            !view.list(at, factsOf(largestNumber, OperandByte::variable | type))) {
            return false;
        }
        seen[id] = 1;
        if (var.varKind() != VarKind::Param) {
            paramsEnd = true;
        } else if (paramsEnd) {
            return false;
        } else {
            params_.push_back(&var);
        }
        lines |= var.line();
        ends_.lists += var.hasUses() ? 1 : 0;
        previous = at;
        at = var.nextRef().bits();
    }
    return referenceTo(graph_->lastVar()) == previous && graph_->numVars() == count &&
           lines < lineLimit && paramsAreRight();
}

/// Whether a variable is of a kind that there is, and named as that kind needs it.
inline bool QuickLook::nameIsRight(const Var& var) {
    const std::string_view name = var.name();
    return var.varKind() <= VarKind::Temp &&
           (name.empty() ? var.varKind() == VarKind::Temp : holdsText(name));
}

bool QuickLook::paramsAreRight() {
    const std::vector<const Type*>& types = function_->paramTypes();
    const Var* const last = params_.empty() ? nullptr : params_.back();
    if (graph_->lastParam() != last || graph_->numParams() != params_.size() ||
        types.size() != params_.size()) {
        return false;
    }
    names_.clear();
    for (std::size_t i = 0; i < params_.size(); ++i) {
        if (params_[i]->type() != types[i]) {
            return false;
        }
        names_.push_back(params_[i]->name());
    }
    return namesDiffer();
}

// Constants and callees

bool QuickLook::listConstants() {
    const EntityTable::View view = table_.view();
    const auto all = graph_->constants();
    const std::size_t expected = graph_->numConstants();
    if (expected > table_.slotsHeld()) {
        return false;
    }
    clearConstants(expected);
    std::uint32_t count = 0;
    std::uint32_t previous = 0;
    for (std::uint32_t at = all.empty() ? 0 : referenceTo(&*all.begin()); at != 0; ++count) {
        if (!holds(at, unitsOf<Const>())) {
            return false;
        }
        const Const& constant = *Ref<Const>::fromBits(at);
        const std::uint32_t type = types_.codeOf(constant.typeRef());
        if (constant.kind() != EntityKind::Const || constant.id() != count || count == expected ||
            !isScalarWith(type, constant.bits()) || !isNewConstant(constant, at) ||
            !view.list(at, factsOf(largestNumber, OperandByte::value | type))) {
            return false;
        }
        ends_.lists += constant.hasUses() ? 1 : 0;
        previous = at;
        at = constant.nextRef().bits();
    }
    return referenceTo(graph_->lastConstant()) == previous && count == expected;
}

// A table with open addressing, at most half full.
void QuickLook::clearConstants(std::size_t expected) {
    const int bits = std::max(4, static_cast<int>(std::bit_width(2 * expected)));
    constantSlots_.assign(std::size_t{1} << bits, 0);
    constantShift_ = 64 - bits;
}

/// Puts a constant into the table, if none of its type and value is there.
inline bool QuickLook::isNewConstant(const Const& constant, std::uint32_t reference) {
    // Doubles differ in their high bits, integers in their low ones.
    const std::uint64_t type = constant.typeRef().bits();
    const std::uint64_t folded = constant.bits() ^ (constant.bits() >> 32) ^ (type << 20);
    const std::size_t mask = constantSlots_.size() - 1;
    std::size_t slot = (folded * 0x9E3779B97F4A7C15) >> constantShift_;
    for (; constantSlots_[slot] != 0; slot = (slot + 1) & mask) {
        const Const& other = *Ref<const Const>::fromBits(constantSlots_[slot]);
        if (other.bits() == constant.bits() && other.typeRef() == constant.typeRef()) {
            return false;
        }
    }
    constantSlots_[slot] = reference;
    return true;
}

bool QuickLook::listCallees(const Scope* scope) {
    const EntityTable::View view = table_.view();
    const auto all = graph_->callees();
    targets_.clear();
    names_.clear();
    const Callee* previous = nullptr;
    for (const Callee* at = all.empty() ? nullptr : &*all.begin(); at != nullptr; at = at->next()) {
        const std::uint32_t reference = referenceTo(at);
        if (!holds(reference, unitsOf<Callee>()) || at->kind() != EntityKind::Callee) {
            return false;
        }
        const std::string_view name = at->name();
        const auto number = largestNumber - static_cast<std::uint32_t>(targets_.size());
        if (name.empty() || !holdsText(name) || number <= graph_->numNodes() ||
            !view.list(reference, factsOf(number, OperandByte::callee))) {
            return false;
        }
        ends_.lists += at->hasUses() ? 1 : 0;
        names_.push_back(name);
        targets_.push_back(scope != nullptr ? scope->lookUp(name) : nullptr);
        if (targets_.back() != nullptr) {
            const auto* const target = reinterpret_cast<const std::byte*>(targets_.back());
            __builtin_prefetch(target);
            __builtin_prefetch(target + sizeof(Function) - 1);
        }
        previous = at;
    }
    return graph_->lastCallee() == previous && namesDiffer();
}

void QuickLook::fetchSignatures() const {
    for (const Function* const target : targets_) {
        if (target != nullptr) {
            __builtin_prefetch(target->paramTypes().data());
        }
    }
}

// Blocks and nodes

bool QuickLook::listBlocks() {
    const EntityTable::View view = table_.view();
    blocks_.clear();
    const Block* previous = nullptr;
    for (const Block* block = graph_->entry(); block != nullptr; block = block->next()) {
        const std::uint32_t reference = referenceTo(block);
        if (!holds(reference, unitsOf<Block>()) || block->kind() != EntityKind::Block ||
            block->previous() != previous || &block->cfg() != graph_ ||
            block->id() >= graph_->blockIdLimit() ||
            isSeen(std::size_t{graph_->nodeIdLimit()} + block->id())) {
            return false;
        }
        const auto number = largestNumber - static_cast<std::uint32_t>(blocks_.size());
        if (number <= graph_->numNodes() ||
            !view.list(reference, factsOf(number, OperandByte::block))) {
            return false;
        }
        ends_.lists += block->hasUses() ? 1 : 0;
        blocks_.push_back(block);
        previous = block;
    }
    held_ = {};
    return previous != nullptr && graph_->lastBlock() == previous &&
           graph_->numBlocks() == blocks_.size();
}

/// Finds where the pool holds the node at `at`, and makes `held` say how far nodes of few operands
/// may begin.
bool QuickLook::findNode(std::uint32_t at, EntityTable::Range& held) {
    const EntityTable::Range range = table_.rangeOf(at);
    held = {range.first, range.units > unitsOfFew ? range.units - unitsOfFew : 0};
    return range.contains(at, EntityTable::nodeUnits) &&
           range.contains(at, unitsWith(Ref<Node>::fromBits(at)->numOperands()));
}

/// Looks at the uses around the operand at `place`, which refers to a listed entity.
[[gnu::always_inline]] inline bool QuickLook::linksAreRight(const EntityTable::View& view,
                                                            const Operand& operand,
                                                            std::uint32_t place, Ends& ends) {
    const bool isFirst = !operand.previousUseRef();
    ends.starts += isFirst ? 1 : 0;
    if (isFirst != (view.at(operand.valueRef()).firstUseRef().bits() == place)) {
        return false;
    }
    const std::uint32_t next = operand.nextUseRef().bits();
    if (next == 0) {
        ++ends.ends;
        return true;
    }
    if (next >= place || !view.isMarked(next)) [[unlikely]] {
        noteOddLink(place);
        return true;
    }
    const Operand& other = view.at<Operand>(next);
    return other.previousUseRef().bits() == place && other.valueRef() == operand.valueRef();
}

template <bool fetchesOthers>
bool QuickLook::lookAtNodes(const Block& block, detail::Upcoming& upcoming) {
    constexpr std::ptrdiff_t prefetchBytes = 768; // most nodes lie one behind the other
    detail::Upcoming others = upcoming;
    const EntityTable::View view = table_.view();
    std::uint8_t* const seen = seen_.data();
    const std::uint32_t blockRef = referenceTo(&block);
    const std::uint32_t idLimit = graph_->nodeIdLimit();
    const std::uint32_t start = factsOf(numNodes_ + 1, 0);
    EntityTable::Range held = held_;
    Ends ends = ends_;
    std::uint32_t number = start;
    std::uint32_t lines = 0;
    std::uint32_t previous = 0;
    for (std::uint32_t at = referenceTo(block.first()); at != 0;) {
        if (at - held.first >= held.units && !findNode(at, held)) [[unlikely]] {
            return false;
        }
        const Node& node = view.at<Node>(at);
        if (fetchesOthers && !others.empty()) {
            others.fetchSome();
        } else {
            __builtin_prefetch(reinterpret_cast<const char*>(&node) + prefetchBytes);
        }
        const auto count = static_cast<std::uint32_t>(node.numOperands());
        if (node.kind() != EntityKind::Node || node.id() >= idLimit ||
            std::exchange(seen[node.id()], std::uint8_t{1}) != 0 ||
            node.previousRef().bits() != previous || node.blockRef().bits() != blockRef ||
            (count > Signature::mostOperands && !table_.holds(at, unitsWith(count)))) {
            return false;
        }
        lines |= node.line();
        ends.lists += node.hasUses() ? 1 : 0;

        const std::uint32_t firstPlace = at + EntityTable::nodeUnits;
        view.markOperands(firstPlace, count);
        std::uint32_t bytes = 0;
        std::uint32_t i = 0;
        for (; i < count; ++i) {
            const Operand& operand = node.operands()[i];
            const std::uint32_t* const facts = view.find(operand.valueRef().bits());
            if (facts == nullptr) [[unlikely]] {
                noteLate({at, number, i});
                break;
            }
            if (*facts < start) [[unlikely]] {
                noteFar(operand.valueRef(), *facts, blockRef);
            }
            bytes = bytes << 8 | (*facts & 0xFF);
            if (operand.userRef().bits() != at ||
                !linksAreRight(view, operand, firstPlace + i * EntityTable::operandUnits, ends)) {
                return false;
            }
        }
        const std::uint32_t type = types_.codeOf(node.typeRef());
        const std::uint32_t next = node.nextRef().bits();
        const Signature signature(node, type, next == 0, bytes);
        if (!known_.contains(signature) && i == count && !isRight(node, signature)) {
            return false;
        }
        if (!view.list(at, number | OperandByte::value | type)) {
            return false;
        }
        previous = at;
        at = next;
        number += factsOf(1, 0);
    }
    const std::uint32_t found = (number - start) / factsOf(1, 0);
    if (fetchesOthers) {
        upcoming = others;
    }
    held_ = held;
    ends_ = ends;
    numNodes_ += found;
    return found != 0 && found == block.numNodes() && referenceTo(block.last()) == previous &&
           lines < lineLimit;
}

bool QuickLook::isRight(const Node& node, Signature signature) {
    if (!formIsRight(signature)) {
        return false;
    }
    if (node.op() == Op::Call) {
        return callIsRight(node, signature.type());
    }
    if (node.op() == Op::Ret) {
        const bool isEmpty = signature.numOperands() == 0;
        const std::uint32_t byte = isEmpty ? TypeCode::voidType : signature.operand(0);
        return signature.type() == TypeCode::voidType && (isEmpty || OperandByte::isValue(byte)) &&
               (byte & OperandByte::typeMask) == result_;
    }
    if (!operandsAreRight(signature)) {
        return false;
    }
    if (wantsConstant(node.op())) {
        return takesConstant(node);
    }
    known_.add(signature);
    return true;
}

bool QuickLook::takesConstant(const Node& node) const {
    return !isNode(*table_.view().find(node.operands()[0].valueRef().bits()));
}

void QuickLook::noteFar(Ref<Entity> definition, std::uint32_t facts, std::uint32_t use) {
    // The entry dominates all that can be reached.
    if (facts >= factsOf(blocks_.front()->numNodes() + 1, 0)) {
        const Far far{static_cast<const Node&>(*definition).blockRef().bits(), use};
        if (far_.empty() || far_.back() != far) {
            far_.push_back(far);
        }
    }
}

void QuickLook::noteLate(const Late& late) {
    late_.push_back(late);
}

void QuickLook::noteOddLink(std::uint32_t place) {
    oddLinks_.push_back(place);
}

bool QuickLook::lookAtLate(const Late& late) {
    const EntityTable::View view = table_.view();
    const Node& node = *Ref<Node>::fromBits(late.node);
    std::uint32_t bytes = 0;
    for (std::uint32_t i = 0; i < node.numOperands(); ++i) {
        const Operand& operand = node.operands()[i];
        const std::uint32_t place = late.node + unitsWith(i);
        const std::uint32_t* const facts = view.find(operand.valueRef().bits());
        if (facts == nullptr || operand.userRef().bits() != late.node ||
            (i >= late.firstOpen && !linksAreRight(view, operand, place, ends_))) {
            return false;
        }
        if (isNode(*facts)) {
            const auto& definition = static_cast<const Node&>(*operand.valueRef());
            if (definition.blockRef() != node.blockRef()) {
                far_.push_back({definition.blockRef().bits(), node.blockRef().bits()});
            } else if (*facts >= late.number) {
                return false;
            }
        }
        bytes = bytes << 8 | (*facts & 0xFF);
    }
    return isRight(node, Signature(node, types_.codeOf(node.typeRef()), !node.nextRef(), bytes));
}

bool QuickLook::callIsRight(const Node& node, std::uint32_t type) const {
    const EntityTable::View view = table_.view();
    const std::uint32_t callee = *view.find(node.operands()[0].valueRef().bits());
    if ((callee & 0xFF) != OperandByte::callee || type == TypeCode::none) {
        return false;
    }
    const auto arguments = node.operands().subspan(1);
    const Function* const target = targets_[placeIn(callee)];
    if (target != nullptr && (target->paramTypes().size() != arguments.size() ||
                              types_.codeOf(target->resultType()) != type)) {
        return false;
    }
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::uint32_t byte = *view.find(arguments[i].valueRef().bits()) & 0xFF;
        if (!OperandByte::isValue(byte) ||
            (target != nullptr &&
             types_.codeOf(target->paramTypes()[i]) != (byte & OperandByte::typeMask))) {
            return false;
        }
    }
    return true;
}

// Uses

bool QuickLook::usesAreRight() {
    if (ends_.starts != ends_.lists || ends_.ends != ends_.lists) {
        return false;
    }
    if (oddLinks_.empty()) {
        return true;
    }
    const EntityTable::View view = table_.view();
    for (const std::uint32_t place : oddLinks_) {
        const Operand& operand = *Ref<Operand>::fromBits(place);
        if (!view.isMarked(operand.nextUseRef().bits()) ||
            operand.nextUseRef()->previousUseRef().bits() != place ||
            operand.nextUseRef()->valueRef() != operand.valueRef()) {
            return false;
        }
    }
    return noRings();
}

// Every link now leads from an operand of a listed node to one, and no two to the same. So the way
// from an operand either ends, or comes back to where it began. Operands whose links do not lead
// down lose their marks until a way is known to lead from them to an end; behind one that has it
// back nobody need go on, so no link is followed twice.
bool QuickLook::noRings() {
    const EntityTable::View view = table_.view();
    std::erase_if(oddLinks_, [](std::uint32_t place) {
        return Ref<Operand>::fromBits(place)->nextUseRef().bits() < place;
    });
    for (const std::uint32_t place : oddLinks_) {
        view.unmark(place);
    }
    for (const std::uint32_t place : oddLinks_) {
        if (!view.isMarked(place) && !leadsToAnEnd(place)) {
            return false;
        }
    }
    return true;
}

bool QuickLook::leadsToAnEnd(std::uint32_t place) const {
    const EntityTable::View view = table_.view();
    std::uint32_t at = place;
    do {
        const std::uint32_t next = view.at<Operand>(at).nextUseRef().bits();
        if (next > at) {
            if (view.isMarked(at)) {
                return true;
            }
            view.markOperands(at, 1);
        }
        at = next;
    } while (at != 0 && at != place);
    return at == 0;
}

// Control flow

bool QuickLook::flowIsRight(const VerifyOptions& options) {
    const Dominators* const kept = graph_->keptDominators();
    if (far_.empty() && kept == nullptr && options.unreachableBlocks) {
        return true;
    }
    buildFlow();
    if (!options.unreachableBlocks && flow_.numReachable() != blocks_.size()) {
        return false;
    }
    const EntityTable::View view = table_.view();
    for (const Far& far : far_) {
        const std::uint32_t definition = placeIn(*view.find(far.definition));
        const std::uint32_t use = placeIn(*view.find(far.use));
        if (flow_.isReachable(use) &&
            !(flow_.isReachable(definition) && flow_.dominates(definition, use))) {
            return false;
        }
    }
    return kept == nullptr || keptDominatorsAreRight(*kept);
}

void QuickLook::buildFlow() {
    const EntityTable::View view = table_.view();
    successors_.clear();
    for (const Block* const block : blocks_) {
        const Node& end = *block->last();
        const auto target = [&](std::size_t operand) {
            return placeIn(*view.find(end.operands()[operand].valueRef().bits()));
        };
        const bool branches = end.op() == Op::Br;
        const bool leads = branches || end.op() == Op::Jump;
        successors_.push_back({leads ? target(branches ? 1 : 0) : FlowGraph::none,
                               branches ? target(2) : FlowGraph::none});
    }
    flow_.build(successors_);
}

bool QuickLook::keptDominatorsAreRight(const Dominators& kept) const {
    if (kept.order().size() != flow_.numReachable()) {
        return false;
    }
    for (std::uint32_t i = 0; i < blocks_.size(); ++i) {
        const std::uint32_t over = flow_.immediateDominator(i);
        if (kept.immediate(*blocks_[i]) != (over == FlowGraph::none ? nullptr : blocks_[over]) ||
            kept.isReachable(*blocks_[i]) != flow_.isReachable(i)) {
            return false;
        }
    }
    return true;
}

} // namespace QN::verification
