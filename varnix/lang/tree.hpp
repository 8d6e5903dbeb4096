// The syntax tree, and the names of each function in it.
//
// A tree lives in one arena (a monotonic resource) and is never destroyed node by node, so its
// shape cannot exhaust the stack when it goes. The compiler walks it once and throws it away.
#pragma once

#include "lang/source.hpp"
#include "value/ops.hpp"

#include <objsys/name_id.hpp>

#include <memory_resource>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace varnix {

template <class T>
using ArenaVector = std::pmr::vector<T>;

/// Where a name's value lies in the registers of the function that mentions it.
using Slot = std::uint16_t;

/// The names that one function (or script, or anonymous function) mentions in the place of a
/// variable. Each gets a slot, also when it turns out to be a function: which of the two it is can
/// change while the code runs (eval, clear).
struct Scope {
    struct Entry {
        objsys::COSNameID name;
        bool assigned = false;  ///< an assignment, a loop or a catch gives it a value
        bool parameter = false; ///< or the caller does
    };
    Scope* parent = nullptr; ///< of an anonymous function: where it stands
    std::vector<Entry> entries;
    std::unordered_map<objsys::COSNameID, Slot> slots;
};

// ---- expressions

enum class ExpressionKind : std::uint8_t {
    Number,
    Text,
    Logical,
    Name,
    End,   // the keyword inside an index
    Colon, // a whole dimension inside an index
    Unary,
    Binary,
    AndAlso,
    OrElse,
    Range,
    Join, // [a, b; c, d]
    Cell, // {a, b; c, d}
    Chain,
    Lambda,
    Handle, // fn name
};

struct Expression {
    ExpressionKind kind;
    Place place;
};

struct NumberExpression : Expression {
    Tag tag = Tag::Double;
    union {
        double number;
        std::int64_t signedValue;
        std::uint64_t unsignedValue = 0;
    };
};

struct TextExpression : Expression {
    std::string_view text;
};

struct LogicalExpression : Expression {
    bool value = false;
};

struct NameExpression : Expression {
    objsys::COSNameID name;
    Slot slot = 0;
};

struct UnaryExpression : Expression {
    UnaryOp op = UnaryOp::Plus;
    const Expression* operand = nullptr;
};

/// Binary operators and the two that look at their right operand only when they need it.
struct BinaryExpression : Expression {
    BinaryOp op = BinaryOp::Add;
    const Expression* left = nullptr;
    const Expression* right = nullptr;
};

struct RangeExpression : Expression {
    const Expression* first = nullptr;
    const Expression* step = nullptr; ///< null: 1
    const Expression* last = nullptr;
};

using ExpressionList = ArenaVector<const Expression*>;

/// Join and Cell.
struct MatrixExpression : Expression {
    explicit MatrixExpression(std::pmr::memory_resource& arena) : rows(&arena) {}
    ArenaVector<ExpressionList> rows;
};

enum class LinkKind : std::uint8_t {
    Member, // .name
    Call,   // (arguments)
    Index,  // [indices]
    Brace,  // {indices}
};

struct Link {
    explicit Link(std::pmr::memory_resource& arena) : arguments(&arena) {}
    // Moved, never copied: a copied vector would leave the arena.
    Link(Link&&) noexcept = default;
    Link& operator=(Link&&) noexcept = default;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    ~Link() = default;
    LinkKind kind = LinkKind::Member;
    Place place;
    objsys::COSNameID name;
    ExpressionList arguments;
};

/// A root followed by at least one link: x.a[3].b(1).
struct ChainExpression : Expression {
    explicit ChainExpression(std::pmr::memory_resource& arena) : links(&arena) {}
    const Expression* root = nullptr;
    ArenaVector<Link> links;
};

struct LambdaExpression : Expression {
    struct Capture {
        Slot inside = 0;
        Slot outside = 0;
    };
    explicit LambdaExpression(std::pmr::memory_resource& arena) : captures(&arena) {}
    const Scope* scope = nullptr;
    std::size_t parameters = 0; ///< the first slots of the scope
    const Expression* body = nullptr;
    ArenaVector<Capture> captures; ///< every other name of the scope
    std::string_view text;         ///< as written
};

struct HandleExpression : Expression {
    explicit HandleExpression(std::pmr::memory_resource& arena) : path(&arena) {}
    ArenaVector<objsys::COSNameID> path;
};

// ---- statements

enum class StatementKind : std::uint8_t {
    Evaluate,
    Assign,
    If,
    For,
    While,
    Switch,
    Break,
    Continue,
    Return,
    Try,
};

struct Statement {
    StatementKind kind;
    Place place;
    /// Stands without a closing ';', so that the prompt shows its value.
    bool echo = false;
};

using Block = ArenaVector<const Statement*>;

struct EvaluateStatement : Statement {
    const Expression* value = nullptr;
};

/// The left side of an assignment: a variable and the way into it.
struct Target {
    explicit Target(std::pmr::memory_resource& arena) : links(&arena) {}
    Target(Target&&) noexcept = default;
    Target& operator=(Target&&) noexcept = default;
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;
    ~Target() = default;
    const NameExpression* root = nullptr;
    ArenaVector<Link> links;
};

struct AssignStatement : Statement {
    explicit AssignStatement(std::pmr::memory_resource& arena) : targets(&arena) {}
    ArenaVector<Target> targets;
    const Expression* value = nullptr;
};

struct IfStatement : Statement {
    struct Branch {
        explicit Branch(std::pmr::memory_resource& arena) : block(&arena) {}
        Branch(Branch&&) noexcept = default;
        Branch& operator=(Branch&&) noexcept = default;
        Branch(const Branch&) = delete;
        Branch& operator=(const Branch&) = delete;
        ~Branch() = default;
        const Expression* condition = nullptr;
        Block block;
    };
    explicit IfStatement(std::pmr::memory_resource& arena) : branches(&arena), otherwise(&arena) {}
    ArenaVector<Branch> branches;
    Block otherwise;
};

struct ForStatement : Statement {
    explicit ForStatement(std::pmr::memory_resource& arena) : block(&arena) {}
    const NameExpression* variable = nullptr;
    const Expression* range = nullptr;
    Block block;
};

struct WhileStatement : Statement {
    explicit WhileStatement(std::pmr::memory_resource& arena) : block(&arena) {}
    const Expression* condition = nullptr;
    Block block;
};

struct SwitchStatement : Statement {
    explicit SwitchStatement(std::pmr::memory_resource& arena) : cases(&arena), otherwise(&arena) {}
    const Expression* subject = nullptr;
    ArenaVector<IfStatement::Branch> cases;
    Block otherwise;
};

struct ReturnStatement : Statement {
    explicit ReturnStatement(std::pmr::memory_resource& arena) : values(&arena) {}
    ExpressionList values;
};

struct TryStatement : Statement {
    explicit TryStatement(std::pmr::memory_resource& arena) : block(&arena), handler(&arena) {}
    Block block;
    const NameExpression* variable = nullptr; ///< null: nobody looks at the error
    Block handler;
};

/// A function of the source, or the source's own statements.
struct FunctionTree {
    explicit FunctionTree(std::pmr::memory_resource& arena) : block(&arena) {}
    objsys::COSNameID name;
    Place place;
    const Scope* scope = nullptr;
    std::size_t parameters = 0; ///< the first slots of the scope
    Block block;
    std::string help;      ///< the comment lines above or below its head
    std::string signature; ///< its head as written: "name(x, y)"
};

} // namespace varnix
