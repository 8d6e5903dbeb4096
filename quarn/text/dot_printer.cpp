// Prints the dot form: a box per block with its nodes as left-adjusted lines.
#include "text/characters.hpp"
#include "text/labels.hpp"
#include "text/node_pieces.hpp"
#include "text/writer.hpp"

#include <qn/pages.hpp>
#include <qn/scope.hpp>

namespace QN {

namespace {

using text::Labels;
using text::Pen;
using text::Writer;

// Bytes that a text may take when it is escaped.
std::size_t roomFor(std::string_view text) noexcept {
    return 2 * text.size();
}

class DotPrinter {
public:
    DotPrinter(std::string& out, std::size_t expected, const PageOptions& options)
        : writer_(out, expected), options_(options) {}

    template <typename Thing>
    void printGraph(const Thing& thing) {
        const std::string_view title = options_.title.empty() ? thing.name() : options_.title;
        writer_.write("digraph \"");
        writeEscaped(title);
        writer_.write("\" {\n"
                      "  node [shape=box fontname=\"monospace\" fontsize=10];\n"
                      "  edge [fontname=\"monospace\" fontsize=9];\n"
                      "  fontname=\"monospace\";\n");
        if (!options_.remarks.empty()) {
            writer_.write("  labelloc=t; fontcolor=red; label=\"");
            for (const std::string& remark : options_.remarks) {
                writeEscaped(remark);
                writer_.write("\\l");
            }
            writer_.write("\";\n");
        }
        print(thing);
        writer_.write("}\n");
    }

    // Pieces of a node or a signature, inside a quoted label; room has been asked for.
    void plain(std::string_view piece) { pen_.put(piece); }
    void definition(const Node& node) { use(node); }
    void type(const Type& type) { pen_.put(type.name()); }
    void operation(std::string_view name) { pen_.put(name); }
    void use(const Node& node) { numbered('%', node.id()); }
    void use(const Const& constant) { pen_.put(labels_->of(constant)); }
    void use(const Var& var) { escaped(labels_->of(var)); }
    void use(const Block& block) { numbered('b', block.id()); }
    void use(const Callee& callee) { escaped(callee.name()); }
    void name(const Function& function) { escaped(function.name()); }
    void declare(const Var& var) { use(var); }

private:
    void print(const Scope& scope) {
        pen_ = writer_.need(128 + roomFor(scope.name()));
        pen_.put("  subgraph cluster_s");
        pen_.putNumber(nextScope_++);
        pen_.put(" {\n  label=\"scope ");
        escaped(scope.name());
        pen_.put(" (");
        pen_.put(toString(scope.flavor()));
        pen_.put(")\"; fontcolor=black;\n");
        writer_.commit(pen_);
        for (const auto& function : scope.functions()) {
            print(*function);
        }
        for (const auto& child : scope.children()) {
            print(*child);
        }
        writer_.write("  }\n");
    }

    void print(const Function& function) {
        function_ = nextFunction_++;
        if (!function.hasCfg()) {
            printHead(function, 0);
            writer_.write(" [label=\"no graph\" shape=plaintext];\n  }\n");
            return;
        }
        const Cfg& cfg = function.cfg();
        const Labels labels(cfg, options_.text.disambiguateNames ? Labels::Style::Disambiguate
                                                                 : Labels::Style::Plain);
        labels_ = &labels;
        printHead(function, labels.longest());
        writer_.write(" [shape=note label=\"");
        for (const Var& var : cfg.vars()) {
            pen_ = writer_.need(64 + 2 * labels.longest());
            pen_.put(text::nameOf(var.varKind()));
            pen_.put(' ');
            use(var);
            pen_.put(": ");
            pen_.put(var.type()->name());
            pen_.put("\\l");
            writer_.commit(pen_);
        }
        writer_.write("\"];\n");
        operandRoom_ = 2 * labels.longest() + 32;
        for (const Block& block : cfg.blocks()) {
            print(block);
        }
        labels_ = nullptr;
        writer_.write("  }\n");
    }

    void printHead(const Function& function, std::size_t longestLabel) {
        pen_ = writer_.need(256 + roomFor(function.name()) +
                            function.paramTypes().size() * (64 + 2 * longestLabel));
        pen_.put("  subgraph cluster_f");
        pen_.putNumber(function_);
        pen_.put(" {\n  label=\"function ");
        text::giveSignature(function, *this);
        pen_.put("\"; fontcolor=black;\n  f");
        pen_.putNumber(function_);
        writer_.commit(pen_);
    }

    void print(const Block& block) {
        pen_ = writer_.need(128);
        name(block);
        pen_.put(" [label=\"b");
        pen_.putNumber(block.id());
        pen_.put(":\\l");
        writer_.commit(pen_);
        for (const Node& node : block.nodes()) {
            std::size_t room = 160 + node.numOperands() * operandRoom_;
            if (node.has(OpFlag::Calls)) {
                for (const Operand& operand : node.operands()) {
                    const Callee* const callee = asCallee(operand.value());
                    room += callee != nullptr ? roomFor(callee->name()) : 0;
                }
            }
            pen_ = writer_.need(room);
            pen_.put("  ");
            text::givePieces(node, options_.text, *this);
            if (node.line() != 0) {
                pen_.put("  # ");
                pen_.putNumber(node.line());
            }
            pen_.put("\\l");
            writer_.commit(pen_);
        }
        writer_.write("\"];\n");
        const std::size_t successors = block.numSuccessors();
        for (std::size_t i = 0; i < successors; ++i) {
            if (const Block* const target = block.successor(i); target != nullptr) {
                pen_ = writer_.need(160);
                name(block);
                pen_.put(" ->");
                name(*target);
                pen_.put(successors == 1 ? ";\n"
                         : i == 0        ? " [label=\"true\"];\n"
                                         : " [label=\"false\"];\n");
                writer_.commit(pen_);
            }
        }
    }

    void name(const Block& block) {
        pen_.put(" f");
        pen_.putNumber(function_);
        numbered('b', block.id());
    }

    void numbered(char sign, std::uint64_t value) {
        pen_.put(sign);
        pen_.putNumber(value);
    }

    // Names may hold anything; in a quoted label a backslash begins an escape, and control
    // characters would end the line.
    void escaped(std::string_view name) {
        text::forEachCharacter(name, [this](std::string_view character) {
            const char c = character.front();
            if (c == '"' || c == '\\') {
                pen_.put('\\');
                pen_.put(c);
            } else if (static_cast<unsigned char>(c) < 0x20) {
                pen_.put(' ');
            } else {
                pen_.put(character);
            }
        });
    }

    void writeEscaped(std::string_view text) {
        pen_ = writer_.need(roomFor(text));
        escaped(text);
        writer_.commit(pen_);
    }

    Writer writer_;
    Pen pen_{nullptr};
    const PageOptions& options_;
    const Labels* labels_ = nullptr;
    std::size_t operandRoom_ = 0;
    std::uint64_t function_ = 0;
    std::uint64_t nextFunction_ = 0;
    std::uint64_t nextScope_ = 0;
};

} // namespace

void printDot(const Function& function, std::string& out, const PageOptions& options) {
    DotPrinter(out, text::expectedLength(function), options).printGraph(function);
}

void printDot(const Scope& scope, std::string& out, const PageOptions& options) {
    DotPrinter(out, text::expectedLength(scope), options).printGraph(scope);
}

} // namespace QN
