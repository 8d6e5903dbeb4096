// Writes the serialized form; the reader is in reader.cpp.
#include "services/serial/frame.hpp"

#include <qn/scope.hpp>
#include <qn/serializer.hpp>

#include <ir_generated.h>
#include <unordered_map>
#include <vector>

namespace QN {

namespace {

using flatbuffers::FlatBufferBuilder;
using flatbuffers::Offset;

class SerialWriter {
public:
    /// With `only`, the scope is written with this one function and no children.
    std::string write(const Scope& scope, const Function* only, std::string_view title) {
        const Offset<serial::Scope> root = writeScope(scope, only);
        std::vector<Offset<flatbuffers::String>> operations;
        for (std::size_t i = 0; i < opCount; ++i) {
            operations.push_back(text(infoOf(static_cast<Op>(i)).text));
        }
        std::vector<Offset<flatbuffers::String>> types;
        for (const Type* const type : types_) {
            types.push_back(text(type->name()));
        }
        const auto operationList = builder_.CreateVector(operations);
        const auto typeList = builder_.CreateVector(types);
        const auto titleText = text(title);
        serial::FinishFileBuffer(
            builder_, serial::CreateFile(builder_, operationList, typeList, root, titleText));
        return serial::frame(
            {reinterpret_cast<const char*>(builder_.GetBufferPointer()), builder_.GetSize()});
    }

private:
    Offset<flatbuffers::String> text(std::string_view value) {
        return builder_.CreateString(value.data(), value.size());
    }

    std::uint16_t numberOf(const Type* type) {
        const auto [place, isNew] =
            numbers_.try_emplace(type, static_cast<std::uint16_t>(types_.size()));
        if (isNew) {
            types_.push_back(type);
        }
        return place->second;
    }

    Offset<serial::Scope> writeScope(const Scope& scope, const Function* only) {
        std::vector<Offset<serial::Function>> functions;
        for (const auto& function : scope.functions()) {
            if (only == nullptr || only == function.get()) {
                functions.push_back(writeFunction(*function));
            }
        }
        std::vector<Offset<serial::Scope>> children;
        if (only == nullptr) {
            for (const auto& child : scope.children()) {
                children.push_back(writeScope(*child, nullptr));
            }
        }
        const auto name = text(scope.name());
        const auto functionList = builder_.CreateVector(functions);
        const auto childList = builder_.CreateVector(children);
        return serial::CreateScope(builder_, name, static_cast<serial::Flavor>(scope.flavor()),
                                   functionList, childList);
    }

    Offset<serial::Function> writeFunction(const Function& function) {
        const Offset<serial::Graph> graph =
            function.hasCfg() ? writeGraph(function.cfg()) : Offset<serial::Graph>();
        std::vector<std::uint16_t> params;
        for (const Type* const type : function.paramTypes()) {
            params.push_back(numberOf(type));
        }
        const auto name = text(function.name());
        const auto paramList = builder_.CreateVector(params);
        return serial::CreateFunction(builder_, name, numberOf(function.resultType()), paramList,
                                      function.line(), function.isExported(), graph);
    }

    Offset<serial::Graph> writeGraph(const Cfg& cfg) {
        std::vector<Offset<flatbuffers::String>> names;
        const auto nameNumber = [&](std::string_view name) {
            names.push_back(text(name));
            return static_cast<std::uint32_t>(names.size() - 1);
        };
        std::unordered_map<const Entity*, std::uint32_t> places;

        std::vector<serial::Var> vars;
        for (const Var& var : cfg.vars()) {
            places.emplace(&var, static_cast<std::uint32_t>(vars.size()));
            vars.emplace_back(nameNumber(var.name()), var.line(), numberOf(var.type()),
                              static_cast<std::uint8_t>(var.varKind()));
        }
        std::vector<serial::Const> constants;
        for (const Const& constant : cfg.constants()) {
            places.emplace(&constant, static_cast<std::uint32_t>(constants.size()));
            constants.emplace_back(constant.bits(), numberOf(constant.type()));
        }
        std::vector<std::uint32_t> callees;
        for (const Callee& callee : cfg.callees()) {
            places.emplace(&callee, static_cast<std::uint32_t>(callees.size()));
            callees.push_back(nameNumber(callee.name()));
        }
        std::vector<serial::Block> blocks;
        std::vector<serial::Node> nodes;
        for (const Block& block : cfg.blocks()) {
            places.emplace(&block, static_cast<std::uint32_t>(blocks.size()));
            blocks.emplace_back(block.id(), block.numNodes());
            for (const Node& node : block.nodes()) {
                places.emplace(&node, static_cast<std::uint32_t>(nodes.size()));
                nodes.emplace_back(node.id(), node.line(), numberOf(node.type()),
                                   static_cast<std::uint8_t>(node.op()), node.mode().bits(),
                                   static_cast<std::uint8_t>(node.numOperands()));
            }
        }
        std::vector<serial::Operand> operands;
        operands.reserve(2 * nodes.size());
        for (const Block& block : cfg.blocks()) {
            for (const Node& node : block.nodes()) {
                for (const Operand& operand : node.operands()) {
                    operands.push_back(reference(operand.value(), places));
                }
            }
        }
        const auto varList = builder_.CreateVectorOfStructs(vars);
        const auto constantList = builder_.CreateVectorOfStructs(constants);
        const auto calleeList = builder_.CreateVector(callees);
        const auto blockList = builder_.CreateVectorOfStructs(blocks);
        const auto nodeList = builder_.CreateVectorOfStructs(nodes);
        const auto operandList = builder_.CreateVectorOfStructs(operands);
        const auto nameList = builder_.CreateVector(names);
        return serial::CreateGraph(builder_, varList, constantList, calleeList, blockList, nodeList,
                                   operandList, nameList);
    }

    // What is not in the graph any more is written as nothing: broken IR is serialized too.
    static serial::Operand
    reference(const Entity* entity,
              const std::unordered_map<const Entity*, std::uint32_t>& places) {
        const auto found = places.find(entity);
        if (found == places.end()) {
            return {0, static_cast<std::uint8_t>(serial::OperandKind::None)};
        }
        switch (entity->kind()) {
        case EntityKind::Node:
            return {found->second, static_cast<std::uint8_t>(serial::OperandKind::Node)};
        case EntityKind::Const:
            return {found->second, static_cast<std::uint8_t>(serial::OperandKind::Const)};
        case EntityKind::Var:
            return {found->second, static_cast<std::uint8_t>(serial::OperandKind::Var)};
        case EntityKind::Block:
            return {found->second, static_cast<std::uint8_t>(serial::OperandKind::Block)};
        default:
            return {found->second, static_cast<std::uint8_t>(serial::OperandKind::Callee)};
        }
    }

    FlatBufferBuilder builder_;
    std::unordered_map<const Type*, std::uint16_t> numbers_;
    std::vector<const Type*> types_;
};

} // namespace

std::string serialize(const Scope& scope, std::string_view title) {
    return SerialWriter().write(scope, nullptr, title);
}

std::string serialize(const Function& function, std::string_view title) {
    return SerialWriter().write(function.scope(), &function, title);
}

bool isSerializedIr(std::string_view bytes) noexcept {
    return serial::hasFrame(bytes);
}

} // namespace QN
