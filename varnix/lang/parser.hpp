// The parser: tokens to a syntax tree. Recursive descent with a limit on nesting, so that no input
// exhausts the stack.
#pragma once

#include "lang/lexer.hpp"
#include "lang/tree.hpp"

#include <deque>
#include <memory>
#include <memory_resource>
#include <vector>

namespace varnix {

/// Deepest nesting of brackets, blocks and operators that a source may have.
inline constexpr std::size_t maxNesting = 250;
/// Most arguments of one call, and most indices of one index.
inline constexpr std::size_t maxArguments = 250;

/// A parsed source. Owns its tree; refers to the source's text.
struct SyntaxTree {
    std::pmr::monotonic_buffer_resource arena;
    std::deque<Scope> scopes;
    std::deque<FunctionTree> functions;
    FunctionTree* body = nullptr; ///< the statements outside functions
};

/// Parses a script. Raises "varnix:syntax", or "varnix:tooDeep" for nesting beyond the limit.
[[nodiscard]] std::unique_ptr<SyntaxTree> parseScript(const Source& source);
/// Parses one expression; the body is a single return statement.
[[nodiscard]] std::unique_ptr<SyntaxTree> parseExpression(const Source& source);
/// Whether the text ends inside a block, a bracket or a joined line. Never raises.
[[nodiscard]] bool endsUnfinished(std::string_view text);

} // namespace varnix
