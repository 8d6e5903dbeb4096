// Prints the HTML form. Everything that can be pointed at has an id: fN function N of the page,
// fNbM a block, fNnM a node, fNxM a variable, by their own ids.
#include "text/characters.hpp"
#include "text/html_page.hpp"
#include "text/labels.hpp"
#include "text/node_pieces.hpp"

#include <qn/pages.hpp>
#include <qn/scope.hpp>
#include <qn/stack_trace_tag.hpp>

#include <charconv>
#include <unordered_map>

namespace QN {

namespace {

using text::Labels;

class HtmlPrinter {
public:
    HtmlPrinter(std::string& out, const PageOptions& options)
        : out_(out), options_(options), tagged_(StackTraceTag::anyExist()) {}

    void printPage(const Function& function) {
        head(options_.title.empty() ? function.name() : options_.title);
        print(function);
        foot();
    }

    void printPage(const Scope& scope) {
        head(options_.title.empty() ? scope.name() : options_.title);
        std::uint64_t next = 0;
        out_ += "<nav>";
        numberFunctions(scope, next);
        out_ += "</nav>\n";
        print(scope);
        foot();
    }

    // Pieces of a node or a signature.
    void plain(std::string_view piece) { escaped(piece); }
    void definition(const Node& node) {
        open("v", 's', 'n', node.id());
        origin(node);
        out_ += ">%";
        number(node.id());
        out_ += "</span>";
    }
    void type(const Type& type) {
        out_ += "<span class=t";
        origin(type);
        out_ += '>';
        out_ += type.name();
        out_ += "</span>";
    }
    void operation(std::string_view name) {
        out_ += "<span class=o>";
        out_ += name;
        out_ += "</span>";
    }
    void use(const Node& node) {
        link("v", 'n', node.id());
        out_ += '%';
        number(node.id());
        out_ += "</a>";
    }
    void use(const Const& constant) {
        open("c", 'k', 'c', constant.id());
        out_ += " data-t=\"";
        out_ += constant.type()->name();
        out_ += '"';
        origin(constant);
        out_ += '>';
        out_ += labels_->of(constant);
        out_ += "</span>";
    }
    void use(const Var& var) {
        link("x", 'x', var.id());
        escaped(labels_->of(var));
        out_ += "</a>";
    }
    void use(const Block& block) {
        link("j", 'b', block.id());
        out_ += 'b';
        number(block.id());
        out_ += "</a>";
    }
    void use(const Callee& callee) {
        const auto found = functions_.find(callee.name());
        if (found == functions_.end()) {
            out_ += "<span class=k>";
            escaped(callee.name());
            out_ += "</span>";
        } else {
            out_ += "<a class=k href=#f";
            number(found->second);
            out_ += '>';
            escaped(callee.name());
            out_ += "</a>";
        }
    }
    void name(const Function& function) { escaped(function.name()); }
    void declare(const Var& var) { use(var); }

private:
    void head(std::string_view title) {
        out_ += "<!DOCTYPE html>\n<html lang=en><head><meta charset=utf-8>\n<title>";
        escaped(title);
        out_ += "</title>\n<style>";
        out_ += text::htmlStyle;
        out_ += "</style></head><body>\n<h1>";
        escaped(title);
        out_ += "</h1>\n";
        for (const std::string& remark : options_.remarks) {
            out_ += "<div class=r>";
            escaped(remark);
            out_ += "</div>\n";
        }
    }
    void foot() {
        out_ += "<script>";
        out_ += text::htmlScript;
        out_ += "</script>\n</body></html>\n";
    }

    // A call is linked to the first function of that name on the page.
    void numberFunctions(const Scope& scope, std::uint64_t& next) {
        for (const auto& function : scope.functions()) {
            out_ += next == 0 ? "<a href=#f" : " <a href=#f";
            number(next);
            out_ += '>';
            escaped(function->name());
            out_ += "</a>";
            functions_.try_emplace(function->name(), next++);
        }
        for (const auto& child : scope.children()) {
            numberFunctions(*child, next);
        }
    }

    void print(const Scope& scope) {
        out_ += "<p>scope ";
        escaped(scope.name());
        out_ += " (";
        out_ += toString(scope.flavor());
        out_ += ")</p>\n";
        for (const auto& function : scope.functions()) {
            print(*function);
        }
        for (const auto& child : scope.children()) {
            print(*child);
        }
    }

    void print(const Function& function) {
        function_ = nextFunction_++;
        out_ += "<section><h2 id=f";
        number(function_);
        out_ += ">function ";
        if (!function.hasCfg()) {
            text::giveSignature(function, *this);
            out_ += "</h2></section>\n";
            return;
        }
        const Cfg& cfg = function.cfg();
        const Labels labels(cfg, options_.text.disambiguateNames ? Labels::Style::Disambiguate
                                                                 : Labels::Style::Plain);
        labels_ = &labels;
        text::giveSignature(function, *this);
        sourceLine(function.line());
        out_ += "</h2>\n";
        for (const Var& var : cfg.vars()) {
            out_ += "<div class=l";
            id('x', var.id());
            out_ += '>';
            out_ += text::nameOf(var.varKind());
            out_ += ' ';
            open("x", 's', 'x', var.id());
            origin(var);
            out_ += '>';
            escaped(labels.of(var));
            out_ += "</span>: ";
            type(*var.type());
            sourceLine(var.line());
            out_ += "</div>\n";
        }
        for (const Block& block : cfg.blocks()) {
            print(block);
        }
        labels_ = nullptr;
        out_ += "</section>\n";
    }

    void print(const Block& block) {
        out_ += "<div class=b";
        id('b', block.id());
        out_ += "><div class=h";
        mark('s', 'b', block.id());
        out_ += ">b";
        number(block.id());
        out_ += ':';
        bool first = true;
        block.forEachPredecessor([&](const Block& from) {
            out_ += first ? " <span>from " : ", ";
            first = false;
            use(from);
        });
        out_ += first ? "</div>\n" : "</span></div>\n";
        for (const Node& node : block.nodes()) {
            out_ += "<div class=l";
            id('n', node.id());
            if (!node.hasValue()) {
                origin(node);
            }
            out_ += '>';
            text::givePieces(node, options_.text, *this);
            sourceLine(node.line());
            out_ += "</div>\n";
        }
        out_ += "</div>\n";
    }

    void sourceLine(std::uint32_t line) {
        if (line != 0) {
            out_ += "  <span class=m># ";
            number(line);
            out_ += "</span>";
        }
    }

    void key(char sort, std::uint64_t number_) {
        out_ += 'f';
        number(function_);
        out_ += sort;
        number(number_);
    }
    void id(char sort, std::uint64_t number_) {
        out_ += " id=";
        key(sort, number_);
    }
    void mark(char attribute, char sort, std::uint64_t number_) {
        out_ += " data-";
        out_ += attribute;
        out_ += '=';
        key(sort, number_);
    }
    void open(std::string_view style, char attribute, char sort, std::uint64_t number_) {
        out_ += "<span class=";
        out_ += style;
        mark(attribute, sort, number_);
    }
    void link(std::string_view style, char sort, std::uint64_t number_) {
        out_ += "<a class=";
        out_ += style;
        out_ += " href=#";
        key(sort, number_);
        out_ += '>';
    }
    void origin(const Entity& entity) {
        if (!tagged_) {
            return;
        }
        if (const std::string place = StackTraceTag::describe(entity); !place.empty()) {
            out_ += " data-o=\"";
            escaped(place);
            out_ += '"';
        }
    }

    void number(std::uint64_t value) {
        char digits[20];
        out_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    }

    void escaped(std::string_view piece) { text::appendHtml(out_, piece); }

    std::string& out_;
    const PageOptions& options_;
    bool tagged_;
    const Labels* labels_ = nullptr;
    std::uint64_t function_ = 0;
    std::uint64_t nextFunction_ = 0;
    std::unordered_map<std::string_view, std::uint64_t> functions_;
};

} // namespace

void printHtml(const Function& function, std::string& out, const PageOptions& options) {
    HtmlPrinter(out, options).printPage(function);
}

void printHtml(const Scope& scope, std::string& out, const PageOptions& options) {
    HtmlPrinter(out, options).printPage(scope);
}

} // namespace QN
