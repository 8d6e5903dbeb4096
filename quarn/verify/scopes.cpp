// Checks of functions outside their nodes, and of scopes.
#include "verify/checks.hpp"

namespace QN::verification::checks {

void functionGraph(const Survey& graph, Sink& sink) {
    if (&graph.cfg().function() != &graph.function()) {
        sink.fail(graph.function(), "the graph names another function as its own");
    }
}

void functionResult(const Function& function, Sink& sink) {
    if (!isType(function.resultType())) {
        sink.fail(function, "the result type is none of the process's types");
    }
}

void functionParams(const Function& function, Sink& sink) {
    for (std::size_t i = 0; i < function.paramTypes().size(); ++i) {
        const Type* const type = function.paramTypes()[i];
        if (!isType(type) || type->isVoid()) {
            sink.fail(function,
                      "parameter " + std::to_string(i + 1) +
                          (isType(type) ? " is void" : " has none of the process's types"));
            return;
        }
    }
}

void functionLine(const Function& function, Sink& sink) {
    if (function.line() >= lineLimit) {
        sink.fail(function,
                  "the function is said to start at line " + std::to_string(function.line()));
    }
}

void functionScope(const Scope& scope, Sink& sink) {
    for (const auto& function : scope.functions()) {
        if (function == nullptr) {
            sink.fail(scope, "the scope owns an empty place for a function");
        } else if (&function->scope() != &scope) {
            sink.fail(*function, "the function names another scope as its own");
        }
    }
}

void functionName(const Scope& scope, Sink& sink) {
    for (const auto& function : scope.functions()) {
        if (function == nullptr) {
            continue;
        }
        const Function* const found = scope.find(function->name());
        if (function->name().empty()) {
            sink.fail(*function, "the function has no name");
        } else if (found != function.get()) {
            sink.fail(*function, found == nullptr
                                     ? "the scope does not find the function by its name"
                                     : "another function of the scope has this name");
        }
    }
}

void scopeParent(const Scope& scope, Sink& sink) {
    for (const auto& child : scope.children()) {
        if (child == nullptr) {
            sink.fail(scope, "the scope owns an empty place for a scope");
        } else if (child->parent() != &scope) {
            sink.fail(*child, "the scope names another than its owner as its parent");
        }
    }
}

void scopeFlavor(const Scope& scope, Sink& sink) {
    if (scope.flavor() > ScopeFlavor::Unit) {
        sink.fail(scope, "the scope has a flavor that does not exist");
        return;
    }
    for (const auto& child : scope.children()) {
        if (child != nullptr && child->flavor() < scope.flavor()) {
            sink.fail(*child, std::string("a ")
                                  .append(toString(child->flavor()))
                                  .append(" scope lies in a ")
                                  .append(toString(scope.flavor()))
                                  .append(" scope"));
        }
    }
}

} // namespace QN::verification::checks
