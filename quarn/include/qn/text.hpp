// IR as text and back.
//
// QNEL is the complete form: s-expressions that hold everything a graph holds, with a parser.
// Printing, parsing and printing again gives the same text. Its grammar:
//
//   file      = scope | function*                      ; functions alone form a unit scope "main"
//   scope     = ( "scope" FLAVOR NAME { scope | function } )       FLAVOR: global, session, unit
//   function  = ( "function" NAME TYPE [ "local" ] [ LINE ] { var } { block } )
//             | ( "declare" NAME TYPE { TYPE } )       ; a signature without a graph
//   var       = ( "param" | "user" | "temp"  VARIABLE [ STRING ] TYPE [ LINE ] )
//   block     = ( "block" BLOCK { node } )
//   node      = ( [ VALUE TYPE ] OP { operand } [ LINE ] )
//   operand   = VALUE | CONSTANT | VARIABLE | BLOCK | CALLEE
//
//   NAME      = an identifier or a "string"            VALUE    = %ID
//   VARIABLE  = $name, or $name.N, or $.N              BLOCK    = bID
//   CALLEE    = &NAME                                  LINE     = @N
//   CONSTANT  = 1.5  -inf  nan  5i32  true
//   TYPE      = f64  i32[]  f64*  void                 OP       = add  add:even:wrap  ldelem:inb
//   ; starts a comment; a byte order mark at the beginning of the text is skipped
//
// A variable is written $name.N where its name is not unique, and $.N with its name as a string
// where the name is no identifier; N is its place among the variables. An operation carries what
// its mode has beyond the default: a rounding (even, zero, down, up), wrap, inb (index known to be
// in bounds).
//
// The text form is for reading only: one line per node, names instead of numbers where there are
// any; one with control characters is quoted.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace QN {

class Function;
class Node;
class Scope;

/// Append the QNEL form of a function, or of a scope with all that is in it, to `out`.
void printQnel(const Function& function, std::string& out);
void printQnel(const Scope& scope, std::string& out);

/// How the text form is written.
struct TextOptions {
    /// Equal names of variables are told apart (x, x_1).
    bool disambiguateNames = false;
    /// Arithmetic nodes show how they round and overflow, defaults included.
    bool showModes = false;
};

/// Append the text form to `out`.
void printText(const Function& function, std::string& out, TextOptions options = {});
void printText(const Scope& scope, std::string& out, TextOptions options = {});
/// One node by itself, as in the text form, without a line end.
void printText(const Node& node, std::string& out, TextOptions options = {});

/// Where and why a text is not QNEL; lines and columns count from 1.
struct ParseError {
    std::size_t line = 0;
    std::size_t column = 0;
    std::string message;
    /// "FILE:LINE:COLUMN: error: MESSAGE"
    [[nodiscard]] std::string format(std::string_view file) const;
};

/// The scope that `text` describes, as a root; null after an error, which `error` then tells. What
/// comes back has operands of the right sorts and labels that are defined once; whether it is valid
/// IR is the verifier's business.
[[nodiscard]] std::unique_ptr<Scope> parseQnel(std::string_view text, ParseError& error);

/// Adds the functions of a file to an existing scope; on error the scope keeps the functions that
/// came before it. The file's own scope form, if it has one, gives its functions and children to
/// `scope`.
[[nodiscard]] bool parseQnelInto(Scope& scope, std::string_view text, ParseError& error);

} // namespace QN
