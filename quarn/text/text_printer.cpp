// Prints the text form: for people, one line per node.
#include "ir/fetch_ahead.hpp"
#include "text/labels.hpp"
#include "text/writer.hpp"

#include <qn/scope.hpp>
#include <qn/text.hpp>

#include <algorithm>

namespace QN {

namespace {

using text::Labels;
using text::Pen;
using text::Writer;

class TextPrinter {
public:
    TextPrinter(std::string& out, std::size_t expected, TextOptions options)
        : writer_(out, expected), options_(options) {}

    void print(const Scope& scope) {
        std::string head = "scope ";
        text::appendPlainName(head, scope.name());
        head += " (";
        head += toString(scope.flavor());
        head += ")\n";
        writer_.write(head);
        for (std::size_t i = 0; i < scope.functions().size(); ++i) {
            upcoming_ = detail::fetchAhead(scope.functions(), i);
            writer_.write("\n");
            print(*scope.functions()[i]);
            upcoming_.fetchRest();
        }
        for (const auto& child : scope.children()) {
            writer_.write("\n");
            print(*child);
        }
    }

    void print(const Function& function) {
        if (!function.hasCfg()) {
            printSignature(function, nullptr);
            writer_.write("\n");
            return;
        }
        const Cfg& cfg = function.cfg();
        Labels& labels = labels_;
        labels.take(cfg,
                    options_.disambiguateNames ? Labels::Style::Disambiguate : Labels::Style::Plain,
                    Labels::Controls::Quoted);
        printSignature(function, &labels);
        if (function.line() != 0) {
            writer_.write("    # line " + std::to_string(function.line()));
        }
        writer_.write("\n");
        for (const Var& var : cfg.vars()) {
            if (var.varKind() != VarKind::Param) {
                const std::string_view label = labels.of(var);
                Pen pen = writer_.need(label.size() + 64);
                pen.put(var.varKind() == VarKind::User ? "    user " : "    temp ");
                pen.putQuickly(label);
                pen.put(": ");
                pen.putQuickly(var.type()->name());
                pen.put('\n');
                writer_.commit(pen);
            }
        }
        for (const Block& block : cfg.blocks()) {
            Pen pen = writer_.need(32);
            pen.put("  b");
            pen.putNumber(block.id());
            pen.put(":\n");
            writer_.commit(pen);
            for (const Node& node : block.nodes()) {
                printLine(node, labels);
            }
        }
    }

    /// A node alone: the labels of its own operands only, so that its cost does not depend on the
    /// function around it.
    void printAlone(const Node& node) {
        writer_.commit(putNode(writer_.need(128 + roomFor(node)), node, nullptr));
    }

private:
    void printSignature(const Function& function, const Labels* labels) {
        std::string head = "function ";
        text::appendPlainName(head, function.name());
        head += '(';
        const Var* param = labels != nullptr ? function.cfg().firstVar() : nullptr;
        for (std::size_t i = 0; i < function.paramTypes().size(); ++i) {
            head += i > 0 ? ", " : "";
            if (param != nullptr) {
                head += labels->of(*param);
                head += ": ";
                param = param->next();
            }
            head += function.paramTypes()[i]->name();
        }
        head += ")";
        if (!function.resultType()->isVoid()) {
            head += " -> ";
            head += function.resultType()->name();
        }
        writer_.write(head);
    }

    [[nodiscard]] static Pen putName(Pen pen, std::string_view name) {
        if (text::hasControlCharacters(name)) [[unlikely]] {
            std::string quoted;
            text::appendPlainName(quoted, name);
            pen.put(quoted);
        } else {
            pen.put(name);
        }
        return pen;
    }
    static std::size_t roomFor(std::string_view name) {
        constexpr std::size_t longestEscape = 4;
        return longestEscape * name.size() + 2;
    }

    /// Room for the operands of a node whose labels are not known.
    static std::size_t roomFor(const Node& node) {
        std::size_t room = 0;
        for (const Operand& operand : node.operands()) {
            room += 40;
            if (const Var* const var = asVar(operand.value()); var != nullptr) {
                room += roomFor(var->name());
            } else if (const Callee* const callee = asCallee(operand.value()); callee != nullptr) {
                room += roomFor(callee->name());
            }
        }
        return room;
    }

    void printLine(const Node& node, const Labels& labels) {
        upcoming_.fetchSome();
        std::size_t room = 160 + node.numOperands() * (labels.longest() + 24);
        if (node.has(OpFlag::Calls)) {
            room += roomFor(node);
        }
        Pen pen = writer_.need(room);
        pen.put("    ");
        pen = putNode(pen, node, &labels);
        if (node.line() != 0) {
            pen.put("  # ");
            pen.putNumber(node.line());
        }
        pen.put('\n');
        writer_.commit(pen);
    }

    [[nodiscard]] Pen putNode(Pen pen, const Node& node, const Labels* labels) {
        if (node.hasValue()) {
            pen.put('%');
            pen.putNumber(node.id());
            pen.put(": ");
            pen.putQuickly(node.type()->name());
            pen.put(" = ");
        }
        pen.putQuickly(text::textOf(node.op()));
        if (options_.showModes && node.has(OpFlag::Arithmetic) && node.type()->isInteger()) {
            pen.put('<');
            pen.put(toString(node.mode().rounding()));
            pen.put(',');
            pen.put(toString(node.mode().overflow()));
            pen.put('>');
        }
        bool first = true;
        for (const Operand& operand : node.operands()) {
            pen.put(first ? " " : ", ");
            first = false;
            pen = putOperand(pen, operand.value(), labels);
        }
        return pen;
    }

    [[nodiscard]] static Pen putOperand(Pen pen, const Entity* value, const Labels* labels) {
        if (value == nullptr) {
            pen.put("null");
            return pen;
        }
        switch (value->kind()) {
        case EntityKind::Node:
            pen.put('%');
            pen.putNumber(static_cast<const Node*>(value)->id());
            return pen;
        case EntityKind::Const:
            if (labels != nullptr) {
                pen.putQuickly(labels->of(*static_cast<const Const*>(value)));
            } else {
                std::string constant;
                text::appendConstant(constant, *static_cast<const Const*>(value));
                pen.put(constant);
            }
            return pen;
        case EntityKind::Var: {
            const auto& var = *static_cast<const Var*>(value);
            if (labels != nullptr) {
                pen.putQuickly(labels->of(var));
            } else if (var.name().empty()) {
                pen.put('t');
                pen.putNumber(var.id());
            } else {
                pen = putName(pen, var.name());
            }
            return pen;
        }
        case EntityKind::Block:
            pen.put('b');
            pen.putNumber(static_cast<const Block*>(value)->id());
            return pen;
        case EntityKind::Callee:
            pen = putName(pen, static_cast<const Callee*>(value)->name());
            return pen;
        default:
            pen.put("null");
            return pen;
        }
    }

    Writer writer_;
    Labels labels_;
    detail::Upcoming upcoming_; // the function behind the one that is printed
    TextOptions options_;
};

} // namespace

void printText(const Function& function, std::string& out, TextOptions options) {
    TextPrinter(out, text::expectedLength(function), options).print(function);
}

void printText(const Scope& scope, std::string& out, TextOptions options) {
    TextPrinter(out, text::expectedLength(scope), options).print(scope);
}

void printText(const Node& node, std::string& out, TextOptions options) {
    TextPrinter(out, 0, options).printAlone(node);
}

} // namespace QN
