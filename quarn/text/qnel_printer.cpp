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
using text::Pen;
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
            upcoming_ = detail::fetchAhead(scope.functions(), i);
            writer_.write("\n");
            print(*scope.functions()[i], indent + 2);
            upcoming_.fetchRest();
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
        writer_.commit(putLine(writer_.need(24), function.line()));
        const Cfg& cfg = function.cfg();
        Labels& labels = labels_;
        labels.take(cfg, Labels::Style::Qnel);
        for (const Var& var : cfg.vars()) {
            print(var, labels, indent + 2);
        }
        for (const Block& block : cfg.blocks()) {
            Pen pen = writer_.need(indent + 64);
            pen.put('\n');
            pen.spaces(indent + 2);
            pen.put("(block b");
            pen.putNumber(block.id());
            writer_.commit(pen);
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
        Pen pen = writer_.need(indent);
        pen.spaces(indent);
        writer_.commit(pen);
    }

    [[nodiscard]] static Pen putLine(Pen pen, std::uint32_t line) {
        if (line != 0) {
            pen.put(" @");
            pen.putNumber(line);
        }
        return pen;
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
        Pen pen = writer_.need(indent + label.size() + 64);
        pen.put('\n');
        pen.spaces(indent);
        pen.put(kinds[static_cast<std::size_t>(var.varKind())]);
        pen.putQuickly(label);
        // Only a label of a name that is an identifier begins with it.
        if (label.size() < 2 || label[1] == '.') {
            writer_.commit(pen);
            writeQuoted(var.name());
            pen = writer_.need(64);
        }
        pen.put(' ');
        pen.putQuickly(var.type()->name());
        pen = putLine(pen, var.line());
        pen.put(')');
        writer_.commit(pen);
    }

    void print(const Node& node, const Labels& labels, std::size_t indent) {
        upcoming_.fetchSome();
        Pen pen = writer_.need(indent + 128 + node.numOperands() * (labels.longest() + 24));
        pen.put('\n');
        pen.spaces(indent);
        pen.put('(');
        if (node.hasValue()) {
            pen.put('%');
            pen.putNumber(node.id());
            pen.put(' ');
            pen.putQuickly(node.type()->name());
            pen.put(' ');
        }
        pen.putQuickly(text::textOf(node.op()));
        if (node.mode() != Mode()) {
            pen = putMode(pen, node.mode());
        }
        for (const Operand& operand : node.operands()) {
            pen.put(' ');
            pen = putOperand(pen, operand.value(), labels);
        }
        pen = putLine(pen, node.line());
        pen.put(')');
        writer_.commit(pen);
    }

    [[nodiscard]] static Pen putMode(Pen pen, Mode mode) {
        if (mode.rounding() != Rounding::NearestAway) {
            pen.put(':');
            pen.put(toString(mode.rounding()));
        }
        if (mode.overflow() == Overflow::Wrap) {
            pen.put(":wrap");
        }
        if (mode.inBounds()) {
            pen.put(":inb");
        }
        return pen;
    }

    [[nodiscard]] Pen putOperand(Pen pen, const Entity* value, const Labels& labels) {
        if (value == nullptr) { // broken IR is printed too: that is when one wants to see it
            pen.put("null");
            return pen;
        }
        switch (value->kind()) {
        case EntityKind::Node:
            pen.put('%');
            pen.putNumber(static_cast<const Node*>(value)->id());
            break;
        case EntityKind::Const:
            pen.putQuickly(labels.of(*static_cast<const Const*>(value)));
            break;
        case EntityKind::Var:
            pen.putQuickly(labels.of(*static_cast<const Var*>(value)));
            break;
        case EntityKind::Block:
            pen.put('b');
            pen.putNumber(static_cast<const Block*>(value)->id());
            break;
        case EntityKind::Callee: {
            // Names have any length; the rest of the line needs its room again behind one.
            std::string name = "&";
            text::appendName(name, static_cast<const Callee*>(value)->name());
            writer_.commit(pen);
            writer_.write(name);
            pen = writer_.need(128 + Node::maxOperands * (labels.longest() + 24));
            break;
        }
        default:
            pen.put("null");
        }
        return pen;
    }

    Writer writer_;
    Labels labels_;
    detail::Upcoming upcoming_; // the function behind the one that is printed
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
