// IR as graphs and as pages: the dot form, which graphviz draws, and the HTML form, one page that
// stands alone. Both are for reading only, and print broken IR too: that is when one wants to see
// it.
//
// To add a form: a file beside dot_printer.cpp, which spells each piece of a node in its own way
// (text/node_pieces.hpp walks a node piece by piece), and a row in PrettyPrinter.
#pragma once

#include <qn/text.hpp>

#include <span>
#include <string>
#include <string_view>

namespace QN {

/// How a page is written, beyond its text.
struct PageOptions {
    TextOptions text;
    /// What the page calls itself.
    std::string_view title;
    /// Lines that stand out at the top, such as what a verification has found.
    std::span<const std::string> remarks;
};

/// Append a directed graph of the blocks in the dot language to `out`; functions are clusters.
void printDot(const Function& function, std::string& out, const PageOptions& options = {});
void printDot(const Scope& scope, std::string& out, const PageOptions& options = {});

/// Append a page to `out`: syntax in colours, hovering over a name shows its definition and uses,
/// names and blocks are links. It refers to nothing outside itself.
void printHtml(const Function& function, std::string& out, const PageOptions& options = {});
void printHtml(const Scope& scope, std::string& out, const PageOptions& options = {});

} // namespace QN
