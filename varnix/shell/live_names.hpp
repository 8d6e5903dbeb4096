// The names of the running host, for completion: variables, functions, built-ins, packages,
// classes and what the classes declare. Reads no property and calls nothing.
#pragma once

#include "shell/completion.hpp"

namespace varnix {

class Interpreter;

class LiveNames : public NameWorld {
public:
    /// The interpreter must outlive the object.
    explicit LiveNames(const Interpreter& interpreter) : interpreter_(interpreter) {}

    [[nodiscard]] std::vector<std::string> names() const override;
    [[nodiscard]] std::unique_ptr<NamedThing> find(std::string_view name) const override;

private:
    const Interpreter& interpreter_;
};

} // namespace varnix
