// Prints the dot form: a box per block with its nodes as left-adjusted lines.
#include "text/labels.hpp"
#include "text/node_pieces.hpp"

#include <qn/pages.hpp>
#include <qn/scope.hpp>

#include <charconv>

namespace QN {

namespace {

using text::Labels;

class DotPrinter {
public:
    DotPrinter(std::string& out, const PageOptions& options) : out_(out), options_(options) {}

    template <typename Thing>
    void printGraph(const Thing& thing) {
        out_ += "digraph \"";
        escaped(options_.title.empty() ? thing.name() : options_.title);
        out_ += "\" {\n"
                "  node [shape=box fontname=\"monospace\" fontsize=10];\n"
                "  edge [fontname=\"monospace\" fontsize=9];\n"
                "  fontname=\"monospace\";\n";
        if (!options_.remarks.empty()) {
            out_ += "  labelloc=t; fontcolor=red; label=\"";
            for (const std::string& remark : options_.remarks) {
                escaped(remark);
                out_ += "\\l";
            }
            out_ += "\";\n";
        }
        print(thing);
        out_ += "}\n";
    }

    // Pieces of a node or a signature, inside a quoted label.
    void plain(std::string_view piece) { escaped(piece); }
    void definition(const Node& node) { use(node); }
    void type(const Type& type) { out_ += type.name(); }
    void operation(std::string_view name) { out_ += name; }
    void use(const Node& node) { numbered('%', node.id()); }
    void use(const Const& constant) { out_ += labels_->of(constant); }
    void use(const Var& var) { escaped(labels_->of(var)); }
    void use(const Block& block) { numbered('b', block.id()); }
    void use(const Callee& callee) { escaped(callee.name()); }
    void declare(const Var& var) { use(var); }

private:
    void print(const Scope& scope) {
        out_ += "  subgraph cluster_s";
        number(nextScope_++);
        out_ += " {\n  label=\"scope ";
        escaped(scope.name());
        out_ += " (";
        out_ += toString(scope.flavor());
        out_ += ")\"; fontcolor=black;\n";
        for (const auto& function : scope.functions()) {
            print(*function);
        }
        for (const auto& child : scope.children()) {
            print(*child);
        }
        out_ += "  }\n";
    }

    void print(const Function& function) {
        function_ = nextFunction_++;
        out_ += "  subgraph cluster_f";
        number(function_);
        out_ += " {\n  label=\"function ";
        if (!function.hasCfg()) {
            text::giveSignature(function, *this);
            out_ += "\"; fontcolor=black;\n  f";
            number(function_);
            out_ += " [label=\"no graph\" shape=plaintext];\n  }\n";
            return;
        }
        const Cfg& cfg = function.cfg();
        const Labels labels(cfg, options_.text.disambiguateNames ? Labels::Style::Disambiguate
                                                                 : Labels::Style::Plain);
        labels_ = &labels;
        text::giveSignature(function, *this);
        out_ += "\"; fontcolor=black;\n  f";
        number(function_);
        out_ += " [shape=note label=\"";
        for (const Var& var : cfg.vars()) {
            out_ += text::nameOf(var.varKind());
            out_ += ' ';
            use(var);
            out_ += ": ";
            out_ += var.type()->name();
            out_ += "\\l";
        }
        out_ += "\"];\n";
        for (const Block& block : cfg.blocks()) {
            print(block);
        }
        labels_ = nullptr;
        out_ += "  }\n";
    }

    void print(const Block& block) {
        name(block);
        out_ += " [label=\"b";
        number(block.id());
        out_ += ":\\l";
        for (const Node& node : block.nodes()) {
            out_ += "  ";
            text::givePieces(node, options_.text, *this);
            if (node.line() != 0) {
                out_ += "  # ";
                number(node.line());
            }
            out_ += "\\l";
        }
        out_ += "\"];\n";
        for (std::size_t i = 0; i < block.numSuccessors(); ++i) {
            if (const Block* const target = block.successor(i); target != nullptr) {
                name(block);
                out_ += " ->";
                name(*target);
                out_ += block.numSuccessors() == 1 ? ";\n"
                        : i == 0                   ? " [label=\"true\"];\n"
                                                   : " [label=\"false\"];\n";
            }
        }
    }

    void name(const Block& block) {
        out_ += " f";
        number(function_);
        numbered('b', block.id());
    }

    void number(std::uint64_t value) {
        char digits[20];
        out_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    }
    void numbered(char sign, std::uint64_t value) {
        out_ += sign;
        number(value);
    }

    // Names may hold anything; in a quoted label a backslash begins an escape, and control
    // characters would end the line.
    void escaped(std::string_view text) {
        for (const char c : text) {
            if (c == '"' || c == '\\') {
                out_ += '\\';
                out_ += c;
            } else if (static_cast<unsigned char>(c) < 0x20) {
                out_ += ' ';
            } else {
                out_ += c;
            }
        }
    }

    std::string& out_;
    const PageOptions& options_;
    const Labels* labels_ = nullptr;
    std::uint64_t function_ = 0;
    std::uint64_t nextFunction_ = 0;
    std::uint64_t nextScope_ = 0;
};

} // namespace

void printDot(const Function& function, std::string& out, const PageOptions& options) {
    DotPrinter(out, options).printGraph(function);
}

void printDot(const Scope& scope, std::string& out, const PageOptions& options) {
    DotPrinter(out, options).printGraph(scope);
}

} // namespace QN
