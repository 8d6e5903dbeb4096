// Walks one node, or the signature of a function, in the order of the text form and gives each
// piece to a sink, which spells it in its form.
//
// A sink has: plain(text), definition(node), type(type), operation(text), use(node), use(constant),
// use(var), use(block), use(callee), and for signatures name(function), declare(var).
#pragma once

#include <qn/function.hpp>
#include <qn/text.hpp>

namespace QN::text {

template <typename Sink>
void giveOperand(const Entity* operand, Sink& sink) {
    if (operand == nullptr) {
        sink.plain("null");
        return;
    }
    switch (operand->kind()) {
    case EntityKind::Node:
        return sink.use(*static_cast<const Node*>(operand));
    case EntityKind::Const:
        return sink.use(*static_cast<const Const*>(operand));
    case EntityKind::Var:
        return sink.use(*static_cast<const Var*>(operand));
    case EntityKind::Block:
        return sink.use(*static_cast<const Block*>(operand));
    case EntityKind::Callee:
        return sink.use(*static_cast<const Callee*>(operand));
    default:
        return sink.plain("null");
    }
}

template <typename Sink>
void givePieces(const Node& node, const TextOptions& options, Sink& sink) {
    if (node.hasValue()) {
        sink.definition(node);
        sink.plain(": ");
        sink.type(*node.type());
        sink.plain(" = ");
    }
    sink.operation(infoOf(node.op()).text);
    if (options.showModes && node.has(OpFlag::Arithmetic) && node.type()->isInteger()) {
        sink.plain("<");
        sink.plain(toString(node.mode().rounding()));
        sink.plain(",");
        sink.plain(toString(node.mode().overflow()));
        sink.plain(">");
    }
    bool first = true;
    for (const Operand& operand : node.operands()) {
        sink.plain(first ? " " : ", ");
        first = false;
        giveOperand(operand.value(), sink);
    }
}

/// "NAME(x: f64, n: i32) -> f64"; without a graph the parameters have no names.
template <typename Sink>
void giveSignature(const Function& function, Sink& sink) {
    sink.name(function);
    sink.plain("(");
    const Var* param = function.hasCfg() ? function.cfg().firstVar() : nullptr;
    for (std::size_t i = 0; i < function.paramTypes().size(); ++i) {
        sink.plain(i > 0 ? ", " : "");
        if (param != nullptr && param->varKind() == VarKind::Param) {
            sink.declare(*param);
            sink.plain(": ");
            param = param->next();
        }
        sink.type(*function.paramTypes()[i]);
    }
    sink.plain(")");
    if (!function.resultType()->isVoid()) {
        sink.plain(" -> ");
        sink.type(*function.resultType());
    }
}

inline std::string_view nameOf(VarKind kind) noexcept {
    switch (kind) {
    case VarKind::Param:
        return "param";
    case VarKind::User:
        return "user";
    default:
        return "temp";
    }
}

} // namespace QN::text
