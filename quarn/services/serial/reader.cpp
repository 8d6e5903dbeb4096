// Reads the serialized form. The FlatBuffers verifier makes sure that every offset leads into the
// file; what the numbers in it refer to is checked here, before anything is made from them.
#include "services/serial/frame.hpp"

#include <qn/scope.hpp>
#include <qn/serializer.hpp>

#include <array>
#include <cstdint>
#include <cstring>
#include <ir_generated.h>
#include <stdexcept>
#include <unordered_set>
#include <vector>

namespace QN {

namespace {

/// Why a file is refused; never leaves this file.
class Refusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

[[noreturn]] void refuse(const std::string& what) {
    throw Refusal("the file contradicts itself: " + what);
}

std::string_view viewOf(const flatbuffers::String* text) {
    return text == nullptr ? std::string_view() : std::string_view(text->c_str(), text->size());
}

// The largest numbers that ids may have: side tables are as large as they.
constexpr std::uint32_t idLimit = 1U << 28;

class GraphReader {
public:
    GraphReader(Function& function, const serial::Function& from, const serial::Graph& graph,
                const std::vector<Op>& operations, const std::vector<const Type*>& types)
        : function_(function), cfg_(function.cfg()), from_(from), graph_(graph),
          operations_(operations), types_(types) {}

    void read() {
        readVars();
        readConstants();
        for (const std::uint32_t name : *graph_.callees()) {
            callees_.push_back(cfg_.callee(nameAt(name)));
        }
        std::unordered_set<std::uint32_t> ids;
        for (const serial::Block* const block : *graph_.blocks()) {
            if (block->id() >= idLimit || !ids.insert(block->id()).second) {
                refuse("a block's id");
            }
            blocks_.push_back(cfg_.addBlockAs(block->id()));
        }
        readNodes();
        readOperands();
        cfg_.edgesChanged();
    }

private:
    std::string_view nameAt(std::uint32_t place) const {
        if (place >= graph_.names()->size()) {
            refuse("a name");
        }
        return viewOf(graph_.names()->Get(place));
    }

    const Type* typeAt(std::uint16_t place) const {
        if (place >= types_.size()) {
            refuse("a type");
        }
        return types_[place];
    }

    void readVars() {
        std::size_t params = 0;
        for (const serial::Var* const var : *graph_.vars()) {
            const Type* const type = typeAt(var->type());
            const std::string_view name = nameAt(var->name());
            if (var->kind() > static_cast<std::uint8_t>(VarKind::Temp) || type->isVoid()) {
                refuse("a variable");
            }
            const auto kind = static_cast<VarKind>(var->kind());
            if (kind != VarKind::Param) {
                vars_.push_back(cfg_.addVar(kind, type, name, var->line()));
                continue;
            }
            if (params != vars_.size() || params >= from_.params()->size() ||
                type != typeAt(from_.params()->Get(static_cast<flatbuffers::uoffset_t>(params)))) {
                refuse("a parameter");
            }
            ++params;
            vars_.push_back(function_.addParam(type, name, var->line()));
        }
        if (params != from_.params()->size()) {
            refuse("the number of parameters");
        }
    }

    void readConstants() {
        // The one list of 8-byte words; the FlatBuffers verifier looks at the place of its length
        // only.
        const auto& constants = *graph_.constants();
        if (constants.size() != 0 &&
            reinterpret_cast<std::uintptr_t>(constants.Data()) % alignof(serial::Const) != 0) {
            refuse("the place of the constants");
        }
        for (const serial::Const* const constant : constants) {
            const Type* const type = typeAt(constant->type());
            if (!type->isScalar()) {
                refuse("a constant");
            }
            consts_.push_back(cfg_.constant(type, constant->bits()));
            if (cfg_.numConstants() != consts_.size()) {
                refuse("a constant comes twice");
            }
        }
    }

    void readNodes() {
        std::size_t inBlocks = 0;
        std::size_t numOperands = 0;
        for (const serial::Block* const block : *graph_.blocks()) {
            inBlocks += block->nodes();
        }
        for (const serial::Node* const node : *graph_.nodes()) {
            numOperands += node->operands();
        }
        if (inBlocks != graph_.nodes()->size() || numOperands != graph_.operands()->size()) {
            refuse("the number of nodes or operands");
        }
        std::unordered_set<std::uint32_t> ids;
        const std::array<Entity*, Node::maxOperands> nothing{};
        flatbuffers::uoffset_t place = 0;
        for (flatbuffers::uoffset_t b = 0; b < blocks_.size(); ++b) {
            for (std::uint32_t i = 0; i < graph_.blocks()->Get(b)->nodes(); ++i) {
                const serial::Node& node = *graph_.nodes()->Get(place++);
                if (node.id() >= idLimit || !ids.insert(node.id()).second ||
                    node.operation() >= operations_.size()) {
                    refuse("a node");
                }
                const Op op = operations_[node.operation()];
                checkNumOperands(op, node.operands());
                Node* const made =
                    cfg_.makeNodeAs(node.id(), op, Mode::fromBits(node.mode()), typeAt(node.type()),
                                    {nothing.data(), node.operands()}, node.line());
                cfg_.append(blocks_[b], made);
                nodes_.push_back(made);
            }
        }
    }

    static void checkNumOperands(Op op, std::size_t count) {
        const std::string_view letters = infoOf(op).operands;
        const char last = letters.empty() ? '\0' : letters.back();
        const bool open = last == '*' || last == '?';
        const std::size_t least = letters.size() - (open ? 1 : 0);
        if (count < least || (last != '*' && count > letters.size())) {
            refuse("the number of operands of '" + std::string(infoOf(op).text) + "'");
        }
    }

    void readOperands() {
        flatbuffers::uoffset_t place = 0;
        for (Node* const node : nodes_) {
            const std::string_view letters = infoOf(node->op()).operands;
            for (std::size_t i = 0; i < node->numOperands(); ++i) {
                const serial::Operand& operand = *graph_.operands()->Get(place++);
                const char letter = letters[i < letters.size() ? i : letters.size() - 1];
                node->setOperand(i, entityAt(operand, letter));
            }
        }
    }

    Entity* entityAt(const serial::Operand& operand, char letter) const {
        const auto in = [&](const auto& list, const char* fitting) -> Entity* {
            if (operand.place() >= list.size() || std::strchr(fitting, letter) == nullptr) {
                refuse("an operand");
            }
            return list[operand.place()];
        };
        switch (static_cast<serial::OperandKind>(operand.kind())) {
        case serial::OperandKind::None:
            return nullptr;
        case serial::OperandKind::Node:
            return in(nodes_, "va*?");
        case serial::OperandKind::Const:
            return in(consts_, "va*?K");
        case serial::OperandKind::Var:
            return in(vars_, "Va");
        case serial::OperandKind::Block:
            return in(blocks_, "B");
        case serial::OperandKind::Callee:
            return in(callees_, "C");
        default:
            refuse("the kind of an operand");
        }
    }

    Function& function_;
    Cfg& cfg_;
    const serial::Function& from_;
    const serial::Graph& graph_;
    const std::vector<Op>& operations_;
    const std::vector<const Type*>& types_;
    std::vector<Var*> vars_;
    std::vector<Const*> consts_;
    std::vector<Callee*> callees_;
    std::vector<Block*> blocks_;
    std::vector<Node*> nodes_;
};

class SerialReader {
public:
    explicit SerialReader(const serial::File& file) {
        for (const flatbuffers::String* const name : *file.operations()) {
            const std::optional<Op> op = opNamed(viewOf(name));
            if (!op) {
                refuse("the operation '" + name->str() + "' does not exist here");
            }
            operations_.push_back(*op);
        }
        for (const flatbuffers::String* const name : *file.types()) {
            types_.push_back(Type::named(viewOf(name)));
            if (types_.back() == nullptr) {
                refuse("the type '" + name->str() + "' does not exist here");
            }
        }
    }

    std::unique_ptr<Scope> read(const serial::Scope& from) {
        auto scope = std::make_unique<Scope>(flavorOf(from), viewOf(from.name()));
        fill(*scope, from);
        return scope;
    }

private:
    static ScopeFlavor flavorOf(const serial::Scope& scope) {
        if (scope.flavor() > serial::Flavor::Unit) {
            refuse("the flavor of a scope");
        }
        return static_cast<ScopeFlavor>(scope.flavor());
    }

    void fill(Scope& scope, const serial::Scope& from) {
        for (const serial::Function* const function : *from.functions()) {
            if (function->result() >= types_.size()) {
                refuse("a type");
            }
            Function* const made =
                scope.addFunction(viewOf(function->name()), types_[function->result()]);
            if (made == nullptr) {
                refuse("the function '" + function->name()->str() + "' comes twice");
            }
            made->setLine(function->line());
            made->setExported(function->exported());
            if (function->graph() != nullptr) {
                GraphReader(*made, *function, *function->graph(), operations_, types_).read();
                continue;
            }
            for (const std::uint16_t type : *function->params()) {
                if (type >= types_.size() || types_[type]->isVoid()) {
                    refuse("a parameter");
                }
                made->addParam(types_[type], {});
            }
            made->deleteCfg();
        }
        for (const serial::Scope* const child : *from.children()) {
            if (scope.level() == Scope::lastLevel) {
                refuse("scopes that are nested too deeply");
            }
            fill(scope.addChild(flavorOf(*child), viewOf(child->name())), *child);
        }
    }

    std::vector<Op> operations_;
    std::vector<const Type*> types_;
};

} // namespace

std::unique_ptr<Scope> deserialize(std::string_view bytes, std::string& error) {
    const std::string_view payload = serial::unframe(bytes, error);
    if (payload.empty()) {
        return nullptr;
    }
    // FlatBuffers reads words in place, so they have to lie on their boundaries.
    std::vector<std::uint64_t> aligned((payload.size() + 7) / 8);
    std::memcpy(aligned.data(), payload.data(), payload.size());
    const auto* const data = reinterpret_cast<const std::uint8_t*>(aligned.data());
    constexpr flatbuffers::uoffset_t deepest = 1000;
    flatbuffers::Verifier verifier(data, payload.size(), deepest,
                                   static_cast<flatbuffers::uoffset_t>(~0U >> 1));
    if (!serial::VerifyFileBuffer(verifier)) {
        error = "the file is not laid out as serialized IR";
        return nullptr;
    }
    try {
        const serial::File& file = *serial::GetFile(data);
        return SerialReader(file).read(*file.scope());
    } catch (const Refusal& refusal) {
        error = refusal.what();
        return nullptr;
    }
}

} // namespace QN
