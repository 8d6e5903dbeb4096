// Removal of unused functions: frees the functions of a scope that nobody can call: neither from
// outside (they are not exported), nor a function that stays, nor one of a scope inside this one.
//
// Requires: valid IR. Keeps: every function that stays, as it is. Invalidates: pointers to the
// others.
#include "transform/transforms.hpp"

#include <qn/scope.hpp>

#include <unordered_set>
#include <vector>

namespace QN::transforms {

namespace {

class Reachable {
public:
    explicit Reachable(Scope& scope) : scope_(scope) {}

    std::unordered_set<const Function*> find() {
        for (const auto& function : scope_.functions()) {
            // A signature without a graph stands for something elsewhere.
            if (function->isExported() || !function->hasCfg()) {
                reach(*function);
            }
        }
        for (const auto& child : scope_.children()) {
            reachFromInside(*child);
        }
        while (!pending_.empty()) {
            const Function* const function = pending_.back();
            pending_.pop_back();
            noteCallees(*function);
        }
        return std::move(reached_);
    }

private:
    void reach(const Function& function) {
        if (reached_.insert(&function).second && function.hasCfg()) {
            pending_.push_back(&function);
        }
    }

    void noteCallees(const Function& function) {
        for (const Callee& callee : function.cfg().callees()) {
            if (!callee.hasUses()) {
                continue;
            }
            if (const Function* const target = function.scope().lookUp(callee.name());
                target != nullptr && &target->scope() == &scope_) {
                reach(*target);
            }
        }
    }

    void reachFromInside(const Scope& inner) {
        for (const auto& function : inner.functions()) {
            if (function->hasCfg()) {
                noteCallees(*function);
            }
        }
        for (const auto& child : inner.children()) {
            reachFromInside(*child);
        }
    }

    Scope& scope_;
    std::unordered_set<const Function*> reached_;
    std::vector<const Function*> pending_;
};

} // namespace

bool removeUnusedFunctions(Scope& scope) {
    const auto reachable = Reachable(scope).find();
    return scope.removeFunctions(
               [&](const Function& function) { return !reachable.contains(&function); }) > 0;
}

} // namespace QN::transforms
