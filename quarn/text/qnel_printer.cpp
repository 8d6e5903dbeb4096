// Prints QNEL. Its grammar is in qn/text.hpp; the parser is qnel_parser.cpp, and the two change
// together.
#include "ir/fetch_ahead.hpp"
#include "text/labels.hpp"
#include "text/writer.hpp"

#include <qn/scope.hpp>
#include <qn/text.hpp>

namespace QN {

namespace {

using text::Labels;
using text::Writer;

class QnelPrinter {
public:
    QnelPrinter(std::string& out, std::size_t expected) : writer_(out, expected) {}

    void print(const Scope& scope, std::size_t indent) {
        startLine(indent);
        std::string head = "(scope ";
        head += toString(scope.flavor());
        head += ' ';
        text::appendName(head, scope.name());
        writer_.write(head);
        for (std::size_t i = 0; i < scope.functions().size(); ++i) {
            detail::fetchAhead(scope.functions(), i);
            writer_.write("\n");
            print(*scope.functions()[i], indent + 2);
        }
        for (const auto& child : scope.children()) {
            writer_.write("\n");
            print(*child, indent + 2);
        }
        writer_.write(")");
    }

    void print(const Function& function, std::size_t indent) {
        startLine(indent);
        std::string head = function.hasCfg() ? "(function " : "(declare ";
        text::appendName(head, function.name());
        head += ' ';
        head += function.resultType()->name();
        if (!function.hasCfg()) {
            for (const Type* const type : function.paramTypes()) {
                head += ' ';
                head += type->name();
            }
            writer_.write(head + ")");
            return;
        }
        if (!function.isExported()) {
            head += " local";
        }
        writer_.write(head);
        writer_.need(24);
        putLine(function.line());
        writer_.commit();
        const Cfg& cfg = function.cfg();
        Labels& labels = labels_;
        labels.take(cfg, Labels::Style::Qnel);
        for (const Var& var : cfg.vars()) {
            print(var, labels, indent + 2);
        }
        for (const Block& block : cfg.blocks()) {
            writer_.need(indent + 64);
            writer_.put('\n');
            writer_.spaces(indent + 2);
            writer_.put("(block b");
            writer_.putNumber(block.id());
            writer_.commit();
            for (const Node& node : block.nodes()) {
                print(node, labels, indent + 4);
            }
            writer_.write(")");
        }
        writer_.write(")");
    }

    void endOfFile() { writer_.write("\n"); }

private:
    void startLine(std::size_t indent) {
        writer_.need(indent);
        writer_.spaces(indent);
        writer_.commit();
    }

    void putLine(std::uint32_t line) {
        if (line != 0) {
            writer_.put(" @");
            writer_.putNumber(line);
        }
    }

    /// The name of a variable that has one that is no identifier.
    void writeQuoted(std::string_view name) {
        if (!name.empty()) {
            std::string quoted = " ";
            text::appendQuoted(quoted, name);
            writer_.write(quoted);
        }
    }

    void print(const Var& var, const Labels& labels, std::size_t indent) {
        constexpr std::string_view kinds[] = {"(param ", "(user ", "(temp "};
        const std::string_view label = labels.of(var);
        writer_.need(indent + label.size() + 64);
        writer_.put('\n');
        writer_.spaces(indent);
        writer_.put(kinds[static_cast<std::size_t>(var.varKind())]);
        writer_.putQuickly(label);
        // Only a label of a name that is an identifier begins with it.
        if (label.size() < 2 || label[1] == '.') {
            writer_.commit();
            writeQuoted(var.name());
            writer_.need(64);
        }
        writer_.put(' ');
        writer_.putQuickly(var.type()->name());
        putLine(var.line());
        writer_.put(')');
        writer_.commit();
    }

    void print(const Node& node, const Labels& labels, std::size_t indent) {
        writer_.need(indent + 128 + node.numOperands() * (labels.longest() + 24));
        writer_.put('\n');
        writer_.spaces(indent);
        writer_.put('(');
        if (node.hasValue()) {
            writer_.put('%');
            writer_.putNumber(node.id());
            writer_.put(' ');
            writer_.putQuickly(node.type()->name());
            writer_.put(' ');
        }
        writer_.putQuickly(text::textOf(node.op()));
        if (node.mode() != Mode()) {
            putMode(node.mode());
        }
        for (const Operand& operand : node.operands()) {
            writer_.put(' ');
            putOperand(operand.value(), labels);
        }
        putLine(node.line());
        writer_.put(')');
        writer_.commit();
    }

    void putMode(Mode mode) {
        if (mode.rounding() != Rounding::NearestAway) {
            writer_.put(':');
            writer_.put(toString(mode.rounding()));
        }
        if (mode.overflow() == Overflow::Wrap) {
            writer_.put(":wrap");
        }
        if (mode.inBounds()) {
            writer_.put(":inb");
        }
    }

    void putOperand(const Entity* value, const Labels& labels) {
        if (value == nullptr) { // broken IR is printed too: that is when one wants to see it
            writer_.put("null");
            return;
        }
        switch (value->kind()) {
        case EntityKind::Node:
            writer_.put('%');
            writer_.putNumber(static_cast<const Node*>(value)->id());
            break;
        case EntityKind::Const:
            writer_.putQuickly(labels.of(*static_cast<const Const*>(value)));
            break;
        case EntityKind::Var:
            writer_.putQuickly(labels.of(*static_cast<const Var*>(value)));
            break;
        case EntityKind::Block:
            writer_.put('b');
            writer_.putNumber(static_cast<const Block*>(value)->id());
            break;
        case EntityKind::Callee: {
            // Names have any length; the rest of the line needs its room again behind one.
            std::string name = "&";
            text::appendName(name, static_cast<const Callee*>(value)->name());
            writer_.commit();
            writer_.write(name);
            writer_.need(128 + Node::maxOperands * (labels.longest() + 24));
            break;
        }
        default:
            writer_.put("null");
        }
    }

    Writer writer_;
    Labels labels_;
};

} // namespace

void printQnel(const Function& function, std::string& out) {
    QnelPrinter printer(out, text::expectedLength(function));
    printer.print(function, 0);
    printer.endOfFile();
}

void printQnel(const Scope& scope, std::string& out) {
    QnelPrinter printer(out, text::expectedLength(scope));
    printer.print(scope, 0);
    printer.endOfFile();
}

} // namespace QN
