// The compiler of one function; its parts are compiler.cpp (entry, registers, labels),
// compile_statements.cpp, compile_expressions.cpp and compile_chains.cpp (member accesses, calls,
// indices, assignments).
#pragma once

#include "lang/compiler.hpp"
#include "lang/tree.hpp"

#include <map>
#include <optional>
#include <span>

namespace varnix {

using Register = std::uint16_t;

class FunctionCompiler {
public:
    /// `outer` is the compiler of the function around an anonymous one, or null.
    FunctionCompiler(const Source& source, const CompileOptions& options, Code& code,
                     const Scope& scope, FunctionCompiler* outer);

    void body(const Block& block);
    void lambdaBody(const Expression& value);
    /// Makes the prompt's variable `ans` a variable of this code.
    void addAnswer();

private:
    /// A place to jump to, known once it is bound.
    struct Label {
        std::vector<std::size_t> jumps;
        std::optional<std::size_t> position;
    };
    struct Loop {
        Label* next;
        Label* exit;
    };
    /// What `end` refers to while the indices of one access are compiled.
    struct IndexContext {
        Register base = 0;              ///< what is indexed
        bool isTarget = false;          ///< it is the variable of an assignment
        const PathSite* path = nullptr; ///< what is indexed is the end of this path instead
        std::size_t which = 0;
        std::size_t total = 1;
    };
    /// Frees the temporaries that were taken while it lived.
    class Temporaries {
    public:
        explicit Temporaries(FunctionCompiler& compiler)
            : compiler_(compiler), mark_(compiler.next_) {}
        ~Temporaries() { compiler_.next_ = mark_; }
        Temporaries(const Temporaries&) = delete;
        Temporaries& operator=(const Temporaries&) = delete;

    private:
        FunctionCompiler& compiler_;
        std::size_t mark_;
    };

    // emission
    [[noreturn]] void tooLarge(Place place) const;
    std::size_t emit(Place place, Op op, std::size_t a = 0, std::size_t b = 0, std::size_t c = 0);
    std::size_t emitWide(Place place, Op op, std::size_t a, std::size_t wide);
    void jump(Place place, Op op, Register a, Label& label);
    void bind(Label& label);
    void patch(std::size_t at, std::size_t target);
    Register take(Place place, std::size_t count = 1);
    [[nodiscard]] bool isTemporary(Register r) const { return r >= code_.names.size(); }
    [[nodiscard]] bool isVariable(Slot slot) const;
    std::size_t constant(const Value& value);
    std::size_t doubleConstant(double value);
    std::size_t textConstant(std::string_view text);

    // statements
    void statements(const Block& block);
    void statement(const Statement& statement);
    void evaluate(const EvaluateStatement& statement);
    void assign(const AssignStatement& statement);
    void ifStatement(const IfStatement& statement);
    void forStatement(const ForStatement& statement);
    void whileStatement(const WhileStatement& statement);
    void switchStatement(const SwitchStatement& statement);
    void returnStatement(const ReturnStatement& statement);
    void tryStatement(const TryStatement& statement);
    void loopBody(const Block& block, Label& next, Label& exit);
    /// Jumps when the truth of the condition is `sense`.
    void branch(const Expression& condition, bool sense, Label& label);

    // expressions
    /// The register in which the value of the expression lies: the variable's own, or a temporary.
    Register operand(const Expression& expression);
    void into(const Expression& expression, Register target);
    void binary(const BinaryExpression& expression, Register target);
    void shortCircuit(const BinaryExpression& expression, Register target);
    void unary(const UnaryExpression& expression, Register target);
    void range(const RangeExpression& expression, Register target);
    void rangeParts(const RangeExpression& expression, Register window);
    void matrix(const MatrixExpression& expression, Register target);
    void row(std::span<const Expression* const> elements, bool cell, Place place, Register target);
    template <class Element>
    void pieces(std::size_t first, std::size_t count, Op make, Op join, Place place,
                Register target, const Element& element);
    [[nodiscard]] std::optional<Value> constantMatrix(const MatrixExpression& expression) const;
    void lambda(const LambdaExpression& expression, Register target);
    void handle(const HandleExpression& expression, Register target);
    [[nodiscard]] static std::optional<double> constantDouble(const Expression& expression);
    [[nodiscard]] static std::vector<const BinaryExpression*>
    leftSpine(const BinaryExpression& expression);

    // chains and assignments
    /// Emits a call-like expression with that many results, the first in R[result].
    void callLike(const Expression& expression, std::size_t requested, Register result);
    void chain(const ChainExpression& expression, std::size_t requested, Register result);
    void nameAlone(const NameExpression& name, std::size_t requested, Register result);
    Register argumentWindow(const ExpressionList& arguments, Place place);
    void callSite(Place place, const NameExpression& name, const ExpressionList* arguments,
                  std::size_t requested, Register result);
    std::size_t memberSite(objsys::COSNameID name);
    void index(const Link& link, Register base, Register result);
    /// The indices of one access, each in a register of its own, side by side.
    struct Indices {
        Register window = 0;
        std::uint8_t count = 0;
        std::uint8_t colons = 0;
    };
    Indices indexWindow(const ExpressionList& arguments, IndexContext& context, Place place);
    Register oneIndex(const Expression& expression, IndexContext& context);
    void end(Place place, Register target);
    Register readPath(const PathSite& path, Place place);
    void store(const Target& target, Register value);
    void storeElement(const Target& target, Register value);
    void storePath(const Target& target, Register value);

    const Source& source_;
    const CompileOptions& options_;
    Code& code_;
    const Scope& scope_;
    FunctionCompiler* outer_;
    std::size_t next_ = 0; // the first free temporary
    std::vector<Loop> loops_;
    IndexContext* context_ = nullptr;
    Slot answer_ = noSlot;
    std::map<std::uint64_t, std::size_t> doubles_;
    std::map<std::string, std::size_t, std::less<>> texts_;
};

} // namespace varnix
