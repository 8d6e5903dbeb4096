// Instances: found, typed until nothing changes, named and written.
#include "codegen/program.hpp"

#include "codegen/translator.hpp"
#include "value/array.hpp"

#include <algorithm>
#include <unordered_set>

namespace varnix::codegen {

namespace {

constexpr std::size_t mostInstances = 200;
constexpr std::size_t mostParameters = 100;

/// "d" for a double, "i32" and so on, with an "s" behind it for an array.
[[nodiscard]] std::string shortName(ValueType type) {
    constexpr const char* names[] = {"d",   "l",  "i8",  "i16", "i32",
                                     "i64", "u8", "u16", "u32", "u64"};
    return std::string(names[static_cast<std::size_t>(type.kind)]) + (type.isArray ? "s" : "");
}

} // namespace

NameResolver::Found Program::resolve(objsys::COSNameID name, const Unit* unit) {
    const NameResolver::Found found = names_.find(name, unit);
    const bool known =
        std::any_of(dependencies_.begin(), dependencies_.end(),
                    [&](const Dependency& each) { return each.name == name && each.unit == unit; });
    if (!known)
        dependencies_.push_back({.name = name,
                                 .unit = unit,
                                 .script = found.script != nullptr ? found.script->serial : 0,
                                 .builtin = found.builtin});
    return found;
}

Instance& Program::instance(const Code& code, std::vector<ValueType> arguments,
                            std::size_t requested) {
    for (Instance& each : instances_)
        if (each.code == &code && each.arguments == arguments && each.requested == requested)
            return each;
    if (arguments.size() != code.parameters)
        throw Outside{"a call with a wrong number of arguments"};
    if (instances_.size() >= mostInstances || arguments.size() + requested > mostParameters)
        throw Outside{"too many functions or parameters"};
    Instance& made = instances_.emplace_back();
    made.code = &code;
    made.arguments = std::move(arguments);
    made.requested = requested;
    enqueue(made);
    return made;
}

void Program::enqueue(Instance& instance) {
    if (!instance.isQueued) {
        instance.isQueued = true;
        queue_.push_back(&instance);
    }
}

void Program::resultsChanged(Instance& instance) {
    for (Instance* const caller : instance.callers)
        enqueue(*caller);
}

Instance& Program::analyse(const Code& code, std::vector<ValueType> arguments,
                           std::size_t requested) {
    Instance& entry = instance(code, std::move(arguments), requested);
    while (!queue_.empty()) {
        Instance& next = *queue_.back();
        queue_.pop_back();
        next.isQueued = false;
        Translator(*this, next).findTypes();
    }
    for (const Instance& each : instances_)
        if (!each.returns)
            throw Outside{"a function that never returns"};
    return entry;
}

/// The entry has its own name, and so has every function of which there is one instance; others
/// have the types of their arguments behind it.
void Program::nameInstances() {
    std::unordered_set<std::string> taken;
    const auto take = [&](Instance& each, std::string name) {
        while (!taken.insert(name).second)
            name += '_';
        each.name = std::move(name);
    };
    take(instances_.front(), instances_.front().code->name.str());
    for (Instance& each : instances_) {
        if (&each == &instances_.front())
            continue;
        const auto alike =
            std::count_if(instances_.begin(), instances_.end(), [&](const Instance& other) {
                return other.code->name == each.code->name;
            });
        std::string name = each.code->name.str();
        if (alike > 1)
            for (const ValueType type : each.arguments)
                name += '_' + shortName(type);
        take(each, std::move(name));
    }
}

QN::Function& Program::write(QN::Scope& unit) {
    nameInstances();
    constexpr std::uint32_t mostLines = (std::uint32_t{1} << 24) - 1;
    for (Instance& each : instances_) {
        const std::uint32_t line = std::min(each.code->place.line, mostLines);
        each.function = unit.addFunction(each.name, each.results.empty() ? QN::Type::voidType()
                                                                         : each.results[0].ir());
        each.function->setLine(line);
        each.function->setExported(&each == &instances_.front());
        std::unordered_set<std::string> names;
        for (std::size_t i = 0; i < each.arguments.size(); ++i) {
            names.insert(each.code->names[i].str());
            each.function->addParam(each.arguments[i].ir(), each.code->names[i].str(), line);
        }
        for (std::size_t i = 1; i < each.results.size(); ++i) {
            std::string name = "result_" + std::to_string(i + 1);
            while (!names.insert(name).second)
                name += '_';
            each.function->addParam(QN::Type::pointer(each.results[i].ir()), name, line);
        }
    }
    for (Instance& each : instances_)
        Translator(*this, each, *each.function).write();
    return *instances_.front().function;
}

} // namespace varnix::codegen
