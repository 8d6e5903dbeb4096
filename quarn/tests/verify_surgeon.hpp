// A way to the private members of the IR, for tests that break it on purpose in ways that its
// interface does not allow. Explicit instantiation may name private members; a friend function
// hands the pointer to member out.
//
//   cut(node, NodeLine()) = 5;
#pragma once

#include <qn/ir.hpp>

namespace QN::surgeon {

template <typename Tag, typename Tag::Member member>
struct Open {
    friend constexpr typename Tag::Member memberOf(Tag) { return member; }
};

/// The member that the tag stands for, to be read and written.
template <typename Owner, typename Tag>
auto& cut(Owner* owner, Tag tag) {
    return const_cast<typename Tag::Owner*>(static_cast<const typename Tag::Owner*>(owner))
               ->*memberOf(tag);
}

#define QN_OPEN(tag, owner, type, member)                                                          \
    struct tag {                                                                                   \
        using Owner = owner;                                                                       \
        using Member = type owner::*;                                                              \
        friend constexpr Member memberOf(tag);                                                     \
    };                                                                                             \
    template struct Open<tag, &owner::member>;

using SmallFields = std::uint8_t[3];
using ParamTypes = std::vector<const Type*>;

QN_OPEN(EntitySmall, Entity, SmallFields, small_)
QN_OPEN(EntityFirstUse, Entity, Ref<Operand>, firstUse_)
QN_OPEN(OperandUser, Operand, Ref<Node>, user_)
QN_OPEN(OperandNext, Operand, Ref<Operand>, nextUse_)
QN_OPEN(OperandPrevious, Operand, Ref<Operand>, previousUse_)
QN_OPEN(NodeType, Node, Ref<const Type>, type_)
QN_OPEN(NodeId, Node, std::uint32_t, id_)
QN_OPEN(NodePrevious, Node, Ref<Node>, previous_)
QN_OPEN(NodeNext, Node, Ref<Node>, next_)
QN_OPEN(NodeBlock, Node, Ref<Block>, block_)
QN_OPEN(BlockId, Block, std::uint32_t, id_)
QN_OPEN(BlockNumNodes, Block, std::uint32_t, numNodes_)
QN_OPEN(BlockCfg, Block, Cfg*, cfg_)
QN_OPEN(BlockPrevious, Block, Ref<Block>, previous_)
QN_OPEN(VarType, Var, Ref<const Type>, type_)
QN_OPEN(VarId, Var, std::uint32_t, id_)
QN_OPEN(VarLine, Var, std::uint32_t, line_)
QN_OPEN(VarName, Var, Ref<const char>, name_)
QN_OPEN(VarNameLength, Var, std::uint32_t, nameLength_)
QN_OPEN(VarNext, Var, Ref<Var>, next_)
QN_OPEN(VarPrevious, Var, Ref<Var>, previous_)
QN_OPEN(ConstType, Const, Ref<const Type>, type_)
QN_OPEN(ConstId, Const, std::uint32_t, id_)
QN_OPEN(ConstBits, Const, std::uint64_t, bits_)
QN_OPEN(CalleeNameText, Callee, Ref<const char>, name_)
QN_OPEN(CalleeNameLength, Callee, std::uint32_t, nameLength_)
QN_OPEN(CfgFunction, Cfg, Function*, function_)
QN_OPEN(CfgFirstBlock, Cfg, Ref<Block>, firstBlock_)
QN_OPEN(CfgFirstVar, Cfg, Ref<Var>, firstVar_)
QN_OPEN(CfgLastConst, Cfg, Ref<Const>, lastConst_)
QN_OPEN(CfgLastCallee, Cfg, Ref<Callee>, lastCallee_)
QN_OPEN(CfgNextNodeId, Cfg, std::uint32_t, nextNodeId_)
QN_OPEN(CfgNumBlocks, Cfg, std::size_t, numBlocks_)
QN_OPEN(CfgNumVars, Cfg, std::size_t, numVars_)
QN_OPEN(CfgNumNodes, Cfg, std::size_t, numNodes_)
QN_OPEN(CfgNumConsts, Cfg, std::size_t, numConsts_)
QN_OPEN(FunctionScope, Function, Scope*, scope_)
QN_OPEN(FunctionName, Function, std::string_view, name_)
QN_OPEN(FunctionResult, Function, const Type*, resultType_)
QN_OPEN(FunctionParams, Function, ParamTypes, paramTypes_)
QN_OPEN(ScopeParent, Scope, Scope*, parent_)
QN_OPEN(ScopeFlavorField, Scope, ScopeFlavor, flavor_)

#undef QN_OPEN

} // namespace QN::surgeon
