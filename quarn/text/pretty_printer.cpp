// See the header. Remarks and origins go into the forms for reading as comments: remarks at the
// top, origins behind the function, because there is one for each word.
#include "text/labels.hpp"

#include <qn/default_services.hpp>
#include <qn/pages.hpp>
#include <qn/pretty_printer.hpp>
#include <qn/scope.hpp>
#include <qn/stack_trace_tag.hpp>
#include <qn/verify.hpp>

#include <vector>

namespace QN {

namespace {

bool printsModes = false;
bool checks = true;

template <typename Thing>
std::vector<std::string> remarksOn(const Thing& thing) {
    std::vector<std::string> remarks;
    if (checks) {
        constexpr std::size_t detailsPerCheck = 20;
        VerifyOptions options;
        options.unreachableBlocks = true; // usual between two transforms
        options.detailsPerCheck = detailsPerCheck;
        const Verification found = verify(thing, options);
        for (const Failure& failure : found.failures()) {
            remarks.push_back(toString(failure));
        }
        if (found.total() > remarks.size()) {
            remarks.push_back("and " + std::to_string(found.total() - remarks.size()) + " more");
        }
    }
    return remarks;
}

void appendOrigin(const Entity& entity, std::string_view label, std::string_view comment,
                  std::string& out) {
    if (const std::string place = StackTraceTag::describe(entity); !place.empty()) {
        out.append(comment).append(1, ' ').append(label).append(" made by ").append(place);
        out += '\n';
    }
}

void appendOrigins(const Function& function, std::string_view comment, std::string& out) {
    if (!function.hasCfg()) {
        return;
    }
    const Cfg& cfg = function.cfg();
    const text::Labels labels(cfg, text::Labels::Style::Qnel);
    for (const Var& var : cfg.vars()) {
        appendOrigin(var, labels.of(var), comment, out);
        appendOrigin(*var.type(), var.type()->name(), comment, out);
    }
    for (const Const& constant : cfg.constants()) {
        appendOrigin(constant, labels.of(constant), comment, out);
    }
    for (const Block& block : cfg.blocks()) {
        for (const Node& node : block.nodes()) {
            const std::string label = '%' + std::to_string(node.id());
            appendOrigin(node, label + " " + std::string(infoOf(node.op()).text), comment, out);
        }
    }
}

void appendOrigins(const Scope& scope, std::string_view comment, std::string& out) {
    for (const auto& function : scope.functions()) {
        appendOrigins(*function, comment, out);
    }
    for (const auto& child : scope.children()) {
        appendOrigins(*child, comment, out);
    }
}

template <typename Thing>
void printIn(PrintForm form, const Thing& thing, const PageOptions& options, std::string& out) {
    if (form == PrintForm::Html) {
        return printHtml(thing, out, options);
    }
    if (form == PrintForm::Dot) {
        return printDot(thing, out, options);
    }
    const std::string_view comment = form == PrintForm::Qnel ? ";" : "#";
    for (const std::string& remark : options.remarks) {
        out.append(comment).append(" check: ").append(remark).append(1, '\n');
    }
    if (form == PrintForm::Qnel) {
        printQnel(thing, out);
    } else {
        printText(thing, out, options.text);
    }
    if (StackTraceTag::anyExist()) {
        appendOrigins(thing, comment, out);
    }
}

template <typename Thing>
void printWith(PrintForm form, bool disambiguate, std::string_view title, const Thing& thing,
               std::string& out) {
    const std::vector<std::string> remarks = remarksOn(thing);
    printIn(form, thing, {{disambiguate, printsModes}, title, remarks}, out);
}

} // namespace

std::string_view endingOf(PrintForm form) noexcept {
    switch (form) {
    case PrintForm::Text:
        return "txt";
    case PrintForm::Qnel:
        return "qnel";
    case PrintForm::Dot:
        return "dot";
    default:
        return "html";
    }
}

void PrettyPrinter::print(const Function& function, std::string& out) const {
    printWith(form_, disambiguateNames_, title_, function, out);
}

void PrettyPrinter::print(const Scope& scope, std::string& out) const {
    printWith(form_, disambiguateNames_, title_, scope, out);
}

bool PrettyPrinter::doPrintMathRoundingOverflow() noexcept {
    return printsModes;
}
void PrettyPrinter::setDoPrintMathRoundingOverflow(bool print) noexcept {
    if (print != printsModes) {
        printsModes = print;
        DefaultServices::debugServices().noteChange();
    }
}

bool PrettyPrinter::doSanityCheck() noexcept {
    return checks;
}
void PrettyPrinter::setDoSanityCheck(bool check) noexcept {
    if (check != checks) {
        checks = check;
        DefaultServices::debugServices().noteChange();
    }
}

} // namespace QN
