// Function values of the script language: anonymous functions, and functions by name.
#pragma once

#include "lang/bytecode.hpp"
#include "value/array.hpp"

#include <memory>
#include <string>
#include <vector>

namespace varnix {

/// Every function record of the process is one of these two; `named` tells which.
class ScriptFunction : public FunctionRecord {
public:
    [[nodiscard]] bool isNamed() const { return named_; }

protected:
    explicit ScriptFunction(bool named) : named_(named) {}

private:
    bool named_;
};

/// fn(x) x + k: code, and the values that its free names had when it was made.
class AnonymousFunction final : public ScriptFunction {
public:
    AnonymousFunction(std::shared_ptr<const Unit> unit, const Code& code,
                      std::vector<Value> captured)
        : ScriptFunction(false), unit_(std::move(unit)), code_(code),
          captured_(std::move(captured)) {}

    [[nodiscard]] std::string describe() const override;
    [[nodiscard]] bool equals(const FunctionRecord& other) const override;
    [[nodiscard]] const Code& code() const { return code_; }
    /// Values of the registers behind the parameters, in order; some may be unset.
    [[nodiscard]] const std::vector<Value>& captured() const { return captured_; }

private:
    std::shared_ptr<const Unit> unit_; // keeps the code
    const Code& code_;
    std::vector<Value> captured_;
};

/// fn name, fn pkg.Class.method: a name, and the function that it meant when this was made, if it
/// meant one then. The class of the first argument still has the first word at each call.
class NamedFunction final : public ScriptFunction {
public:
    NamedFunction(std::vector<objsys::COSNameID> path, std::shared_ptr<const Unit> context,
                  const Code* script, const Builtin* builtin)
        : ScriptFunction(true), path_(std::move(path)), context_(std::move(context)),
          script_(script), builtin_(builtin) {}

    [[nodiscard]] std::string describe() const override;
    [[nodiscard]] bool equals(const FunctionRecord& other) const override;
    [[nodiscard]] const std::vector<objsys::COSNameID>& path() const { return path_; }
    [[nodiscard]] const Unit* context() const { return context_.get(); }
    [[nodiscard]] const Code* script() const { return script_; }
    [[nodiscard]] const Builtin* builtin() const { return builtin_; }

private:
    std::vector<objsys::COSNameID> path_;
    std::shared_ptr<const Unit> context_; // keeps the code; where the name is looked up else
    const Code* script_;
    const Builtin* builtin_;
};

} // namespace varnix
