// See just_in_time.hpp.
#include "codegen/just_in_time.hpp"

#include "codegen/lending.hpp"
#include "lang/interrupt.hpp"
#include "shell/console.hpp"
#include "value/errors.hpp"

#include <qn/default_services.hpp>
#include <qn/pipeline.hpp>
#include <qn/timer.hpp>
#include <qn/transform.hpp>
#include <qn/vmrt/engine_config.hpp>
#include <ts/switch_changes.hpp>

#include <algorithm>
#include <array>
#include <cstdio>

namespace varnix::codegen {

namespace {

constexpr std::size_t mostVariants = 32;
constexpr std::size_t mostSlots = 128;
/// So often code may give up because of what it takes for granted.
constexpr int mostWrongAssumptions = 3;

[[nodiscard]] std::uint64_t toolsGeneration() noexcept {
    // Both only grow, so the sum tells any change.
    return QN::DefaultServices::debugServices().generation() + tssv::switchChanges();
}
[[nodiscard]] std::uint64_t settingsGeneration() noexcept {
    return QN::VMRT::VMEngineConfig::prototype().generation();
}

/// The compiler's own phases in the registry of timers, from the first compilation on.
struct Phases {
    QN::Timer types{"codegen types"};
    QN::Timer writing{"codegen IR"};
    QN::Timer transforms{"codegen transforms"};
    QN::Timer engine{"codegen engine"};

    static Phases& instance() {
        static Phases phases;
        return phases;
    }
};

/// What the profiling counters of the process have counted.
QN::ProfileCounts& profileCounts() {
    static QN::ProfileCounts counts;
    return counts;
}

/// "mandel(f64, f64[])"
std::string signatureOf(const QN::Function& function) {
    std::string text(function.name());
    const char* separator = "(";
    for (const QN::Type* const type : function.paramTypes()) {
        text.append(separator).append(type->name());
        separator = ", ";
    }
    return text += function.paramTypes().empty() ? "()" : ")";
}

} // namespace

void Variant::writeCounts() noexcept {
    if (code == nullptr || counters.empty())
        return;
    try {
        profileCounts().add(signature, counters, code->counters());
        profileCounts().write();
    } catch (const std::bad_alloc&) { // the counts are lost
    }
}

void Variant::discard() noexcept {
    writeCounts();
    counters.clear();
    onlyScalars = false;
    code.reset();
    if (unit != nullptr)
        session->scope.removeChild(*unit);
    unit = nullptr;
    session.reset();
}

bool JustInTime::isCurrent(const Variant& variant) const noexcept {
    return variant.epoch == names_.epoch() && variant.services == toolsGeneration() &&
           variant.settings == settingsGeneration();
}

bool JustInTime::dependenciesHold(const Variant& variant) {
    try {
        for (const Dependency& each : variant.dependencies) {
            const NameResolver::Found found = names_.find(each.name, each.unit);
            const std::uint64_t script = found.script != nullptr ? found.script->serial : 0;
            if (script != each.script || found.builtin != each.builtin)
                return false;
        }
    } catch (const objsys::COSError&) { // a file that does not compile
        return false;
    }
    return true;
}

void JustInTime::refresh(const Code& code, Variant& variant) {
    const bool sameTools =
        variant.services == toolsGeneration() && variant.settings == settingsGeneration();
    if (sameTools && dependenciesHold(variant)) {
        variant.epoch = names_.epoch();
        return;
    }
    compile(code, variant);
}

void JustInTime::report(const Code& code, const std::string& reason) const {
    if (!options_.reportsInterpreted)
        return;
    console::flush(); // so that the two streams are in order
    const std::string line = fmt::format("interpreted: {} ({}:{}): {}\n", code.name.str(),
                                         code.unit->name, code.place.line, reason);
    std::fputs(line.c_str(), stderr);
}

std::shared_ptr<Session> JustInTime::session() {
    const std::uint64_t settings = settingsGeneration();
    if (session_ == nullptr || session_->settings != settings) {
        auto made = std::make_shared<Session>();
        made->engine = makeEngine(options_.engine);
        made->settings = settings;
        session_ = std::move(made);
    }
    return session_;
}

void JustInTime::compile(const Code& code, Variant& variant) {
    variant.discard();
    variant.wrongAssumptions = 0;
    variant.epoch = names_.epoch();
    variant.services = toolsGeneration();
    variant.settings = settingsGeneration();
    Phases& phases = Phases::instance();
    Program program(names_);
    try {
        const QN::Timer::Measuring measuring(phases.types);
        program.analyse(code, variant.types, variant.requested);
    } catch (const Outside& outside) {
        variant.dependencies = program.dependencies();
        report(code, outside.reason);
        return;
    } catch (const objsys::COSError&) { // a file that does not compile, if it comes to that
        variant.dependencies = program.dependencies();
        return;
    }
    variant.dependencies = program.dependencies();

    const std::shared_ptr<Session> session = this->session();
    QN::Scope& unit = session->scope.addChild(QN::ScopeFlavor::Unit, code.name.str());
    variant.session = session;
    variant.unit = &unit;
    try {
        QN::Function* entry = nullptr;
        {
            const QN::Timer::Measuring measuring(phases.writing);
            entry = &program.write(unit);
        }
        {
            const QN::Timer::Measuring measuring(phases.transforms);
            QN::runPipeline(unit);
        }
        // Before the engine may free the graphs.
        variant.counters = QN::counterPlaces(unit);
        if (!variant.counters.empty())
            variant.signature = signatureOf(*entry);
        const QN::Timer::Measuring measuring(phases.engine);
        variant.code = session->engine->prepare(unit, *entry, code.unit->name);
    } catch (const QN::CompilationStopped& stopped) {
        variant.discard();
        variant.services = 0; // the next call tries again
        fail("varnix:compilationStopped", "the compilation of '{}' was stopped: {}",
             code.name.str(), stopped.what());
    } catch (const QN::CompilationRefused& refused) {
        variant.discard();
        console::print(fmt::format("not compiled, but interpreted: {}\n", refused.what()));
        return;
    } catch (...) {
        variant.discard();
        throw;
    }
    if (!variant.code->needsScope()) {
        session->scope.removeChild(unit);
        variant.unit = nullptr;
    }
    variant.results = program.instances().front().results;
    std::size_t arrays = 0;
    for (const ValueType type : variant.types)
        arrays += type.isArray ? 1 : 0;
    for (const ValueType type : variant.results)
        arrays += type.isArray ? 1 : 0;
    variant.arrays.resize(arrays);
    variant.onlyScalars = arrays == 0 && variant.results.size() == 1;
}

Variant* JustInTime::addVariant(CompiledFunction& function, std::span<const Value> arguments,
                                std::size_t requested) {
    if (function.variants.size() >= mostVariants)
        return nullptr;
    auto made = std::make_unique<Variant>();
    for (const Value& each : arguments) {
        const auto type = typeOfValue(each);
        if (!type)
            return nullptr;
        made->types.push_back(*type);
        made->tags.push_back(each.tag());
        made->classes.push_back(each.classID());
    }
    made->requested = requested;
    function.variants.push_back(std::move(made));
    return function.variants.back().get();
}

[[gnu::always_inline]] inline CompiledFunctions::Outcome
JustInTime::execute(const Code& code, Variant& variant, std::uint64_t* slots,
                    std::size_t depthLeft) const {
    QN::ExecutionContext context;
    context.depthLeft = static_cast<std::int64_t>(depthLeft);
    context.interruptRequested = &detail::interruptRequested;
    try {
        variant.code->call(slots, context);
    } catch (const QN::EvaluationError& error) {
        return trapped(code, variant, error);
    } catch (const std::bad_alloc&) {
        return Outcome::Interpret;
    }
    return Outcome::Done;
}

CompiledFunctions::Outcome JustInTime::call(const Code& code, const Value* values,
                                            std::size_t count, Wish wish, std::size_t depthLeft,
                                            Value* results) {
    const auto* const function = static_cast<CompiledFunction*>(code.compiled.get());
    if (function == nullptr || function->last == nullptr || !function->last->onlyScalars ||
        wish.results == 0 || !function->last->fits({values, count}, wish.results) ||
        !isCurrent(*function->last)) [[unlikely]]
        return callAny(code, values, count, wish, depthLeft, results);
    // As the last time, and numbers only: the way that scripts' loops take.
    Variant& variant = *function->last;
    std::array<std::uint64_t, mostSlots> slots;
    for (std::size_t i = 0; i < count; ++i)
        slots[i] = values[i].asUnsigned();
    const Outcome outcome = execute(code, variant, slots.data(), depthLeft);
    if (outcome == Outcome::Done) [[likely]]
        results[0] = scalarValue(variant.results[0].kind, slots[count]);
    return outcome;
}

CompiledFunctions::Outcome JustInTime::callAny(const Code& code, const Value* values,
                                               std::size_t count, Wish wish, std::size_t depthLeft,
                                               Value* results) {
    const std::span<const Value> arguments(values, count);
    std::size_t requested = wish.results;
    auto* function = static_cast<CompiledFunction*>(code.compiled.get());
    if (function == nullptr) [[unlikely]] {
        auto made = std::make_unique<CompiledFunction>();
        function = made.get();
        made->returns = countReturns(code);
        code.compiled = std::move(made);
        if (!code.handlers.empty()) {
            code.mayBeCompiled = false;
            report(code, "try");
            return Outcome::Interpret;
        }
    }
    if (requested == 0) {
        if (function->returns.least > 0)
            requested = 1; // which nobody may take
        else if (wish.any && function->returns.most > 0)
            return Outcome::Interpret;
    }
    Variant* variant = function->last;
    if (variant == nullptr || !variant->fits(arguments, requested)) [[unlikely]] {
        const auto found =
            std::find_if(function->variants.begin(), function->variants.end(),
                         [&](const auto& each) { return each->fits(arguments, requested); });
        variant = found == function->variants.end() ? nullptr : found->get();
        function->last = variant;
    }
    if (variant == nullptr) [[unlikely]] {
        if (arguments.size() != code.parameters)
            return Outcome::Interpret;
        variant = addVariant(*function, arguments, requested);
        if (variant == nullptr)
            return Outcome::Interpret;
        compile(code, *variant);
    } else if (!isCurrent(*variant)) [[unlikely]] {
        refresh(code, *variant);
    }
    if (variant->code == nullptr)
        return Outcome::Interpret;
    return run(code, *variant, values, depthLeft, results);
}

/// What becomes of a call that met a trap.
CompiledFunctions::Outcome JustInTime::trapped(const Code& code, Variant& variant,
                                               const QN::EvaluationError& error) const {
    switch (error.code()) {
    case QN::TrapCode::Interrupted:
        detail::raiseInterrupted();
    case QN::TrapCode::StackOverflow:
        // Small functions are no calls any more: it may still fit, with nothing to spare.
        return Outcome::Interpret;
    case QN::TrapCode::DivisionByZero:
    case QN::TrapCode::LossyConversion: {
        // Found by checks that were switched on; to the language they are no errors.
        objsys::COSError raised("varnix:runtimeCheck", error.what());
        raised.addFrame({.function = error.function(),
                         .file = code.unit->name,
                         .line = static_cast<int>(error.line()),
                         .column = 1});
        throw std::move(raised);
    }
    case static_cast<QN::TrapCode>(HostTrap::Assumption):
        if (++variant.wrongAssumptions >= mostWrongAssumptions) {
            report(code, fmt::format("more than the compiler takes for granted, in line {}",
                                     error.line()));
            variant.discard();
        }
        return Outcome::Interpret;
    default:
        return Outcome::InterpretToFail;
    }
}

CompiledFunctions::Outcome JustInTime::run(const Code& code, Variant& variant, const Value* values,
                                           std::size_t depthLeft, Value* results) {
    const std::span<const Value> arguments(values, variant.tags.size());
    std::array<std::uint64_t, mostSlots> slots;
    std::array<std::uint64_t, mostSlots> others; // scalar results from the second on
    // Whatever happens, nothing of the arguments is held any longer.
    struct Release {
        Variant& variant;
        ~Release() {
            for (QN::ArrayValue& each : variant.arrays)
                each = QN::ArrayValue();
        }
    } const release{variant};
    QN::ArrayValue* array = variant.arrays.data();
    std::size_t slot = 0;
    for (const Value& each : arguments) {
        if (each.isCounted()) {
            if (!canBeLent(each)) [[unlikely]]
                return Outcome::Interpret;
            *array = lend(each);
            slots[slot++] = reinterpret_cast<std::uint64_t>(array++);
        } else {
            slots[slot++] = each.asUnsigned();
        }
    }
    const std::size_t count = variant.results.size();
    QN::ArrayValue* const firstResult = array;
    for (std::size_t k = 1; k < count; ++k) {
        const ValueType type = variant.results[k];
        if (type.isArray) {
            *array = QN::ArrayValue(type.kind, 0, 0);
            slots[slot++] = reinterpret_cast<std::uint64_t>(array++);
        } else {
            others[k] = 0;
            slots[slot++] = reinterpret_cast<std::uint64_t>(&others[k]);
        }
    }
    if (count > 0 && variant.results[0].isArray)
        slots[slot] = reinterpret_cast<std::uint64_t>(array++);

    if (const Outcome outcome = execute(code, variant, slots.data(), depthLeft);
        outcome != Outcome::Done) [[unlikely]]
        return outcome;
    array = firstResult;
    for (std::size_t k = 1; k < count; ++k)
        results[k] = variant.results[k].isArray ? takeBack(*array++, arguments)
                                                : scalarValue(variant.results[k].kind, others[k]);
    if (count > 0)
        results[0] = variant.results[0].isArray ? takeBack(*array, arguments)
                                                : scalarValue(variant.results[0].kind, slots[slot]);
    return Outcome::Done;
}

} // namespace varnix::codegen

namespace varnix {

std::unique_ptr<CompiledFunctions> makeCompiledFunctions(const CompilerOptions& options,
                                                         NameResolver& names) {
    if (options.engine == EngineChoice::None)
        return nullptr;
    return std::make_unique<codegen::JustInTime>(options, names);
}

} // namespace varnix
