// What is done once before a loop instead of in each turn.
#include "vmrt/llvm/function_emitter.hpp"

namespace QN::VMRT {

/// Arrays are made writable before a loop that surely stores into them and shares them with nobody;
/// the outermost such loop does it.
void FunctionEmitter::findHoists() {
    const std::span<const Loop> loops = loops_.all();
    hoists_.resize(loops.size());
    // Per loop, by variable: whether the loop or one inside it copies or assigns the array.
    std::vector<std::vector<bool>> unsettled(loops.size());
    for (std::size_t i = loops.size(); i-- > 0;) {
        std::vector<bool>& vars = unsettled[i];
        vars.resize(cfg_.varIdLimit());
        for (const Block* const block : loops[i].ownBlocks) {
            for (const Node& node : block->nodes()) {
                const Var* const var = node.numOperands() > 0 ? asVar(node.operand(0)) : nullptr;
                if (var != nullptr && var->isAggregate() &&
                    (node.op() == Op::Load || node.op() == Op::Store)) {
                    vars[var->id()] = true;
                }
            }
        }
        for (std::size_t inner = i + 1; inner < loops.size(); ++inner) {
            if (loops[inner].parent == i) {
                for (std::size_t v = 0; v < vars.size(); ++v) {
                    vars[v] = vars[v] || unsettled[inner][v];
                }
            }
        }
    }
    const auto isInEveryTurn = [&](const Block& block, const Loop& loop) {
        bool always = true;
        loop.header->forEachPredecessor([&](const Block& before) {
            if (order_.isReachable(before) && order_.dominates(*loop.header, before)) {
                always = always && order_.dominates(block, before);
            }
        });
        return always;
    };
    for (const Block* const block : order_.order()) {
        for (const Node& node : block->nodes()) {
            const Var* const var = node.op() == Op::StElem || node.op() == Op::StElem2
                                       ? asVar(node.operand(0))
                                       : nullptr;
            if (var == nullptr || arrayUses_.hasAddress(*var)) {
                continue;
            }
            std::uint32_t best = Loop::none;
            for (std::uint32_t at = loops_.innermost(*block);
                 at != Loop::none && !unsettled[at][var->id()] && isInEveryTurn(*block, loops[at]);
                 at = loops[at].parent) {
                best = at;
            }
            if (best == Loop::none) {
                continue;
            }
            isWritable_[node.id()] = true;
            bool known = false;
            for (const Node* const other : hoists_[best]) {
                known = known || other->operand(0) == var;
            }
            if (!known) {
                hoists_[best].push_back(&node);
            }
        }
    }
    for (std::size_t i = 0; i < loops.size(); ++i) {
        if (!hoists_[i].empty()) {
            preheaders_[loops[i].header->id()] = newBlock("before");
        }
    }
}

// Counted loops -----------------------------------------------------------------------------------

namespace {

constexpr std::uint64_t turnsOfPiece = 1U << 16;

/// The value does not change while the loop runs: it comes from outside or is a constant.
bool isFromOutside(Entity* operand, const Loops& loops, std::uint32_t loop) {
    if (asConst(operand) != nullptr) {
        return true;
    }
    const Node* const node = asNode(operand);
    return node != nullptr && !loops.isInside(loops.innermost(*node->block()), loop);
}

} // namespace

CountedLoop FunctionEmitter::countedLoop(std::size_t number) {
    const Loop& loop = loops_.all()[number];
    const auto index = static_cast<std::uint32_t>(number);
    const Node& end = *loop.header->last();
    const Node* const compare = end.op() == Op::Br ? asNode(end.operand(0)) : nullptr;
    const auto isIn = [&](Entity* block) {
        return loops_.isInside(loops_.innermost(*asBlock(block)), index);
    };
    if (compare == nullptr || compare->op() != Op::Lt || compare->block() != loop.header ||
        !isIn(end.operand(1)) || isIn(end.operand(2))) {
        return {};
    }
    const Node* const counter = asNode(compare->operand(0));
    const Var* const var =
        counter != nullptr && counter->op() == Op::Load && counter->block() == loop.header
            ? asVar(counter->operand(0))
            : nullptr;
    if (var == nullptr || var->type() != Type::i64() || arrayUses_.hasAddress(*var) ||
        !isFromOutside(compare->operand(1), loops_, index)) {
        return {};
    }
    // The header is gone through once more at the end of each piece.
    for (const Node& node : loop.header->nodes()) {
        if (!node.isTerminator() && (node.hasEffect() || node.type()->isArray())) {
            return {};
        }
    }
    // One step in each turn. What is below a limit can be counted up without passing the largest
    // number.
    const Node* step = nullptr;
    for (const Operand& use : var->uses()) {
        const Node& user = *use.user();
        if (user.op() != Op::Store || !loops_.isInside(loops_.innermost(*user.block()), index)) {
            continue;
        }
        if (step != nullptr) {
            return {};
        }
        step = &user;
    }
    const Node* const sum = step != nullptr ? asNode(step->operand(1)) : nullptr;
    if (sum == nullptr || sum->op() != Op::Add || sum->operand(0) != counter ||
        asConst(sum->operand(1)) == nullptr || asConst(sum->operand(1))->asInt() != 1) {
        return {};
    }
    bool always = true;
    loop.header->forEachPredecessor([&](const Block& before) {
        if (order_.isReachable(before) && order_.dominates(*loop.header, before)) {
            always = always && order_.dominates(*step->block(), before);
        }
    });
    if (!always) {
        return {};
    }
    return {compare, var, nullptr, nullptr};
}

void FunctionEmitter::findCountedLoops() {
    const std::span<const Loop> loops = loops_.all();
    counted_.resize(loops.size());
    if (unit_.config().jitOptimizationLevel() == VMEngineConfig::OptNone) {
        return;
    }
    std::vector<bool> hasInner(loops.size());
    for (const Loop& loop : loops) {
        if (loop.parent != Loop::none) {
            hasInner[loop.parent] = true;
        }
    }
    for (std::size_t i = 0; i < loops.size(); ++i) {
        if (hasInner[i]) {
            continue; // looking once per turn costs nothing there
        }
        counted_[i] = countedLoop(i);
        if (counted_[i].compare != nullptr) {
            counted_[i].pieceEnd = slot(ir_.getInt64Ty(), "piece.end");
            counted_[i].pieceHead = newBlock("piece");
            llvm::BasicBlock*& preheader = preheaders_[loops[i].header->id()];
            preheader = preheader != nullptr ? preheader : newBlock("before");
        }
    }
}

const CountedLoop* FunctionEmitter::countedAt(const Block& header) const {
    const std::uint32_t loop = loops_.innermost(header);
    const bool is = loop != Loop::none && loops_.all()[loop].header == &header &&
                    counted_[loop].compare != nullptr;
    return is ? &counted_[loop] : nullptr;
}

void FunctionEmitter::setPieceEnd(const CountedLoop& loop, llvm::Value* count) {
    llvm::Value* const far =
        ir_.CreateBinaryIntrinsic(llvm::Intrinsic::sadd_sat, count, ir_.getInt64(turnsOfPiece));
    ir_.CreateStore(ir_.CreateBinaryIntrinsic(llvm::Intrinsic::smin, far, value(*loop.compare, 1)),
                    loop.pieceEnd);
}

void FunctionEmitter::emitCountedBranch(const Node& node, const CountedLoop& loop) {
    const Block& header = *node.block();
    llvm::BasicBlock* const atEnd = newBlock("piece.over");
    llvm::BasicBlock* const on = newBlock("piece.next");
    llvm::Value* const count = value(*loop.compare, 0);
    llvm::Value* const inPiece =
        ir_.CreateICmpSLT(count, ir_.CreateLoad(ir_.getInt64Ty(), loop.pieceEnd));
    ir_.CreateCondBr(inPiece, edge(header, *asBlock(node.operand(1))), atEnd);
    ir_.SetInsertPoint(atEnd);
    ir_.CreateCondBr(value(node, 0), on, edge(header, *asBlock(node.operand(2))), unit_.unlikely());
    ir_.SetInsertPoint(on);
    llvm::Value* const asked = ir_.CreateLoad(ir_.getInt32Ty(), interrupt_, true);
    trapIf(ir_.CreateIsNotNull(asked), TrapCode::Interrupted, node.line());
    setPieceEnd(loop, count);
    ir_.CreateBr(loop.pieceHead);
    ir_.SetInsertPoint(loop.pieceHead);
    ir_.CreateBr(blocks_[header.id()]);
}

void FunctionEmitter::emitPreheader(const Loop& loop) {
    llvm::BasicBlock* const preheader = preheaders_[loop.header->id()];
    if (preheader == nullptr) {
        return;
    }
    ir_.SetInsertPoint(preheader);
    if (subprogram_ != nullptr) {
        ir_.SetCurrentDebugLocation(llvm::DILocation::get(unit_.context(), 0, 0, subprogram_));
    }
    for (const Node* const node : hoists_[static_cast<std::size_t>(&loop - loops_.all().data())]) {
        makeWritable(*arrayVars_[asVar(node->operand(0))->id()], node->line());
    }
    if (const CountedLoop* const counted = countedAt(*loop.header); counted != nullptr) {
        setPieceEnd(*counted, ir_.CreateLoad(ir_.getInt64Ty(), vars_[counted->counter->id()]));
        ir_.CreateBr(counted->pieceHead);
        return;
    }
    ir_.CreateBr(blocks_[loop.header->id()]);
}

} // namespace QN::VMRT
