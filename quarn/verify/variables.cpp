// Checks of variables, and of parameters against the signature.
#include "verify/checks.hpp"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace QN::verification::checks {

namespace {

Where placeOf(const Var& var) {
    return {noIndex, noIndex, var.line()};
}

bool isParam(const Var* var) {
    return var->varKind() == VarKind::Param;
}

/// The parameters in their order; what is returned is made once and filled anew by each call.
const std::vector<const Var*>& paramsOf(const Survey& graph) {
    static std::vector<const Var*>& params = *new std::vector<const Var*>; // lives for the process
    params.clear();
    std::copy_if(graph.vars().begin(), graph.vars().end(), std::back_inserter(params), isParam);
    return params;
}

} // namespace

void varParamsFirst(const Survey& graph, Sink& sink) {
    bool localsHaveBegun = false;
    const Var* lastParam = nullptr;
    for (const Var* const var : graph.vars()) {
        if (!isParam(var)) {
            localsHaveBegun = true;
            continue;
        }
        lastParam = var;
        if (localsHaveBegun) {
            sink.fail(graph, placeOf(*var),
                      "parameter " + describe(graph, *var) + " is declared behind a local");
        }
    }
    if (graph.cfg().lastParam() != lastParam) {
        sink.fail(graph, {}, "the graph takes another variable for the last parameter");
    }
}

void varParamCount(const Survey& graph, Sink& sink) {
    const std::size_t listed = paramsOf(graph).size();
    const std::size_t counted = graph.cfg().numParams();
    const std::size_t signature = graph.function().paramTypes().size();
    if (listed != counted || listed != signature) {
        sink.fail(graph, {},
                  std::to_string(listed) + " parameters are declared, the graph counts " +
                      std::to_string(counted) + ", the signature has " + std::to_string(signature));
    }
}

void varParamTypes(const Survey& graph, Sink& sink) {
    const std::vector<const Var*>& params = paramsOf(graph);
    const std::vector<const Type*>& types = graph.function().paramTypes();
    for (std::size_t i = 0; i < std::min(params.size(), types.size()); ++i) {
        if (params[i]->type() != types[i]) {
            sink.fail(graph, placeOf(*params[i]),
                      "parameter " + std::to_string(i + 1) + ", " + describe(graph, *params[i]) +
                          ", has not the type that the signature says");
        }
    }
}

void varParamNames(const Survey& graph, Sink& sink) {
    std::vector<std::pair<std::string_view, const Var*>> names;
    for (const Var* const param : paramsOf(graph)) {
        if (const std::string_view name = safeName(graph.memory(), param->name()); !name.empty()) {
            names.emplace_back(name, param);
        }
    }
    std::stable_sort(names.begin(), names.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (std::size_t i = 1; i < names.size(); ++i) {
        if (names[i].first == names[i - 1].first) {
            sink.fail(graph, placeOf(*names[i].second),
                      "parameter " + describe(graph, *names[i].second) +
                          " has the name of another parameter");
        }
    }
}

void varKind(const Survey& graph, Sink& sink) {
    for (const Var* const var : graph.vars()) {
        if (var->varKind() > VarKind::Temp) {
            sink.fail(graph, placeOf(*var),
                      describe(graph, *var) + " is of kind " +
                          std::to_string(static_cast<unsigned>(var->varKind())) +
                          ", which does not exist");
        }
    }
}

void varName(const Survey& graph, Sink& sink) {
    for (const Var* const var : graph.vars()) {
        const bool mayBeEmpty = var->varKind() != VarKind::Param && var->varKind() != VarKind::User;
        const std::string_view name = var->name();
        if (name.empty() ? !mayBeEmpty : safeName(graph.memory(), name).empty()) {
            sink.fail(graph, placeOf(*var),
                      describe(graph, *var) +
                          (name.empty() ? " has no name" : " has a name outside the pool"));
        }
    }
}

void varType(const Survey& graph, Sink& sink) {
    for (const Var* const var : graph.vars()) {
        if (!isType(var->type()) || var->type()->isVoid()) {
            sink.fail(graph, placeOf(*var),
                      describe(graph, *var) +
                          (isType(var->type()) ? " is void" : " has none of the process's types"));
        }
    }
}

void varLine(const Survey& graph, Sink& sink) {
    for (const Var* const var : graph.vars()) {
        if (var->line() >= lineLimit) {
            sink.fail(graph, {},
                      describe(graph, *var) + " is said to be from line " +
                          std::to_string(var->line()));
        }
    }
}

} // namespace QN::verification::checks
