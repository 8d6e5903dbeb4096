// The reference evaluator behind the interface of engines: the one that every other engine is held
// against, and what runs where there is no machine code.
#include <qn/engine.hpp>
#include <qn/evaluator.hpp>
#include <qn/scope.hpp>

#include <vector>

namespace QN {
namespace {

class EvaluatorExecutable final : public Executable {
public:
    EvaluatorExecutable(const Scope& unit, const Function& entry)
        : unit_(unit), entry_(entry), evaluator_(unit) {}

    void call(std::uint64_t* slots, ExecutionContext& context) override {
        evaluator_.setInterruptFlag(context.interruptRequested);
        // The entry itself is a call that the evaluator counts.
        evaluator_.setDepthLimit(
            context.depthLeft > 0 ? static_cast<std::size_t>(context.depthLeft) + 1 : 1);
        const std::vector<const Type*>& types = entry_.paramTypes();
        std::vector<Value> arguments(types.size());
        for (std::size_t i = 0; i < types.size(); ++i) {
            arguments[i].type = types[i];
            if (types[i]->isArray()) {
                arguments[i].array = *reinterpret_cast<const ArrayValue*>(slots[i]);
            } else {
                arguments[i].bits = slots[i];
            }
        }
        Value result = evaluator_.call(entry_, arguments);
        if (result.type->isArray()) {
            *reinterpret_cast<ArrayValue*>(slots[types.size()]) = std::move(result.array);
        } else if (!result.type->isVoid()) {
            slots[types.size()] = result.bits;
        }
    }

    [[nodiscard]] std::vector<CounterValue> counters() const override {
        std::vector<CounterValue> values;
        for (const auto& function : unit_.functions()) {
            for (std::int64_t i = 0; i < evaluator_.counterLimit(*function); ++i) {
                values.push_back(
                    {std::string(function->name()), i, evaluator_.counter(*function, i)});
            }
        }
        return values;
    }

    [[nodiscard]] bool needsScope() const noexcept override { return true; }

private:
    const Scope& unit_;
    const Function& entry_;
    Evaluator evaluator_;
};

class EvaluatorEngine final : public Engine {
public:
    [[nodiscard]] std::unique_ptr<Executable> prepare(Scope& unit, Function& entry,
                                                      std::string_view /*sourceFile*/) override {
        return std::make_unique<EvaluatorExecutable>(unit, entry);
    }
    [[nodiscard]] std::string_view name() const noexcept override { return "evaluator"; }
};

} // namespace

std::unique_ptr<Engine> makeEvaluatorEngine() {
    return std::make_unique<EvaluatorEngine>();
}

} // namespace QN
