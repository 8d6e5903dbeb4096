// Calls: by name, by path, and of function values.
//
// Every begin...() function either completes the call and delivers its results, or pushes the frame
// of a script function, which delivers them when it returns.
#include "object/calls.hpp"

#include "lang/interrupt.hpp"
#include "lang/machine.hpp"
#include "object/package_tree.hpp"
#include "value/array.hpp"
#include "value/errors.hpp"

namespace varnix {

using objsys::COSClass;
using objsys::COSMethod;
using objsys::COSNameID;
using objsys::COSPackage;
using objsys::PackageTree;

namespace {

/// Value::isObject without a call for scalars.
bool isObjectValue(const Value& value) {
    return value.isCounted() && value.array()->classID == hvOBJECT_CLASS;
}

void clearAll(std::span<Value> values) {
    for (Value& value : values)
        value = Value();
}

} // namespace

// ---- results

void Machine::deliver(Value result, const Sink& sink, const char* what) {
    const std::size_t count = result.isUnset() ? 0 : 1;
    deliver(std::span<Value>(&result, count), sink, what);
}

void Machine::deliver(std::span<Value> results, const Sink& sink, const char* what) {
    if (sink.base != nullptr && sink.requested <= 1 && !results.empty()) [[likely]] {
        if (sink.result != noSlot)
            sink.base[sink.result] = std::move(results[0]);
        return;
    }
    if (results.size() < sink.requested)
        fail(id::tooManyOutputs, "'{}' gives {} result{}, not {}", what,
             results.empty() ? "no" : std::to_string(results.size()),
             results.size() == 1 ? "" : "s", sink.requested);
    const std::size_t wanted = std::max<std::size_t>(sink.requested, 1);
    if (sink.base == nullptr) {
        const std::size_t count = std::min(results.size(), wanted);
        returned_.assign(
            std::make_move_iterator(results.begin()),
            std::make_move_iterator(results.begin() + static_cast<std::ptrdiff_t>(count)));
        return;
    }
    if (sink.result == noSlot)
        return;
    if (results.empty()) {
        sink.base[sink.result] = Value();
        return;
    }
    for (std::size_t i = 0; i < wanted; ++i)
        sink.base[sink.result + i] = std::move(results[i]);
}

// ---- what is called

void Machine::invokeBuiltin(const Builtin& builtin, std::span<Value> arguments, const Sink& sink) {
    detail::pollInterrupt();
    ResultList results(*this);
    BuiltinCall call{.interpreter = interpreter_,
                     .arguments = arguments,
                     .requested = sink.requested,
                     .results = results.list()};
    callBuiltin(builtin, call);
    clearAll(arguments);
    deliver(results.list(), sink, builtin.name);
}

/// m(x, a): the first argument is the object.
void Machine::invokeMethod(const COSMethod& method, std::span<Value> arguments, const Sink& sink) {
    Value result = method.isStatic() ? callMethod(method, Value(), arguments)
                                     : callMethod(method, arguments.front(), arguments.subspan(1));
    clearAll(arguments);
    deliver(std::move(result), sink, method.name.c_str());
}

namespace {

/// The method that a class has under a name, or null. Arrays outlive classes that are withdrawn
/// with their module, which have no members any more.
const COSMethod* methodOf(COSClass* cls, COSNameID name) {
    if (cls == nullptr || COSClass::find(cls->getFullName()) != cls)
        return nullptr;
    return cls->findMethod(name);
}

const COSMethod* methodFor(std::span<const Value> arguments, COSNameID name) {
    if (arguments.empty() || !arguments.front().isObject())
        return nullptr;
    return methodOf(arguments.front().array()->objectClass, name);
}

} // namespace

bool Machine::callSite(Frame& frame, CallSite& site) {
    const std::span<Value> arguments = argumentsOf(frame, site);
    const Sink sink = sinkOf(frame, site);
    const Value& variable = frame.base[site.slot];
    if (!variable.isUnset()) {
        if (site.written)
            return beginFunction(variable, arguments, sink);
        deliver(variable, sink, site.name.c_str());
        return false;
    }
    if (!arguments.empty() && isObjectValue(arguments.front())) {
        COSClass* const cls = arguments.front().array()->objectClass;
        if (cls != site.methodClass || site.methodGeneration != objsys::detail::classGeneration) {
            site.method = methodOf(cls, site.name);
            site.methodClass = cls;
            site.methodGeneration = objsys::detail::classGeneration;
        }
        if (site.method != nullptr) {
            invokeMethod(*site.method, arguments, sink);
            return false;
        }
    }
    if (site.epoch != names_.epoch()) {
        const NameResolver::Found found = names_.find(site.name, frame.code->unit);
        if (!found)
            raiseUndefined(site.name, frame.code->unit);
        site.script = found.script;
        site.builtin = found.builtin;
        site.epoch = names_.epoch();
    }
    if (site.script != nullptr)
        return begin(*site.script, arguments, sink);
    invokeBuiltin(*site.builtin, arguments, sink);
    return false;
}

bool Machine::callValue(Frame& frame, const CallSite& site) {
    const Value function = std::move(frame.base[site.window]);
    const std::span<Value> arguments(frame.base + site.window + 1, site.arguments);
    return beginFunction(function, arguments, sinkOf(frame, site));
}

bool Machine::beginFunction(const Value& function, std::span<Value> arguments, const Sink& sink) {
    if (!function.isFunction())
        fail(id::wrongType, "a value of class {} cannot be called; elements are written x[i]",
             className(function));
    const auto& record = static_cast<const ScriptFunction&>(functionOf(function.array()));
    if (record.isNamed()) {
        const Value kept = function; // the call may change the variable that holds it
        return beginNamed(static_cast<const NamedFunction&>(record), arguments, sink);
    }
    enterAnonymous(function, arguments, sink);
    return true;
}

bool Machine::beginNamed(const NamedFunction& function, std::span<Value> arguments,
                         const Sink& sink) {
    if (function.path().size() > 1)
        return beginPath(function.path(), function.context(), true, arguments, sink, nullptr);
    const COSNameID name = function.path().front();
    if (const COSMethod* const method = methodFor(arguments, name)) {
        invokeMethod(*method, arguments, sink);
        return false;
    }
    NameResolver::Found found{.script = function.script(), .builtin = function.builtin()};
    if (!found)
        found = names_.find(name, function.context());
    if (!found)
        raiseUndefined(name, function.context());
    if (found.script != nullptr)
        return begin(*found.script, arguments, sink);
    invokeBuiltin(*found.builtin, arguments, sink);
    return false;
}

// ---- paths: packages, classes and their methods

bool Machine::callPath(Frame& frame, NamePathSite& site) {
    const Value& variable = frame.base[site.slot];
    if (site.constructor != nullptr && site.requested <= 1 && variable.isUnset() &&
        site.generation == objsys::detail::classGeneration) [[likely]] {
        Value* const base = frame.base; // the constructor may call back
        Value object = Value::ofHandle(site.cls->constructWith(*site.constructor, nullptr));
        if (site.result != noSlot)
            base[site.result] = std::move(object);
        return false;
    }
    const std::span<Value> arguments = argumentsOf(frame, site);
    const Sink sink = sinkOf(frame, site);
    if (variable.isUnset())
        return beginPath(site.names, frame.code->unit, site.written, arguments, sink, &site);
    Value base = variable;
    for (std::size_t i = 1; i + 1 < site.names.size(); ++i)
        base = memberOf(base, site.names[i], nullptr);
    return callMemberOf(base, site.names.back(), site.written, arguments, sink, nullptr);
}

namespace {

/// A class found at the start of a path, and how many names lead to it.
struct ClassInPath {
    COSClass* cls = nullptr;
    std::size_t taken = 0;
};

ClassInPath findClass(COSPackage* package, std::span<const COSNameID> path) {
    for (std::size_t i = 1; i < path.size(); ++i) {
        const std::string& name = path[i].str();
        if (COSClass* const cls = package->findClass(name))
            return {cls, i + 1};
        COSPackage* const inner = package->findPackage(name);
        if (inner == nullptr) {
            std::vector<std::string> known;
            for (const auto& each : package->classes())
                if (!each->info().isHidden())
                    known.push_back(each->getName());
            for (const auto& each : package->packages())
                known.push_back(each->getName());
            fail(id::undefined, "package {} has no class or package '{}'{}",
                 package->getFullName().str(), name, suggestion(name, known));
        }
        package = inner;
    }
    fail(id::undefined, "{} is a package, not a value", package->getFullName().str());
}

} // namespace

bool Machine::beginPath(std::span<const COSNameID> path, const Unit* unit, bool written,
                        std::span<Value> arguments, const Sink& sink, NamePathSite* site) {
    // A result that is not the path's last is taken here; the rest are members of it.
    Value base;
    std::size_t at = 0;
    const auto isLast = [&] { return at == path.size(); };
    ClassInPath found;
    if (site != nullptr && site->cls != nullptr &&
        site->generation == objsys::detail::classGeneration) {
        found = {site->cls, site->taken};
    } else if (NameResolver::Found function; (function = names_.find(path[0], unit))) {
        const Sink whole{};
        if (function.script != nullptr)
            enter(*function.script, {}, whole);
        else
            invokeBuiltin(*function.builtin, {}, whole);
        base = finishOne(function.script != nullptr);
        at = 1;
    } else {
        COSPackage* const package = PackageTree::findRoot(path[0].str());
        if (package == nullptr)
            raiseUndefined(path[0], unit);
        found = findClass(package, path);
        if (site != nullptr) {
            site->cls = found.cls;
            site->taken = found.taken;
            site->generation = objsys::detail::classGeneration;
            site->constructor = found.taken == path.size() && arguments.empty()
                                    ? found.cls->plainConstructor()
                                    : nullptr;
        }
    }
    if (found.cls != nullptr) {
        at = found.taken;
        if (isLast()) {
            Value object = construct(*found.cls, arguments);
            clearAll(arguments);
            deliver(std::move(object), sink, path.back().c_str());
            return false;
        }
        const COSNameID name = path[at++];
        const COSMethod* const method = found.cls->findMethod(name);
        if (method == nullptr || !method->isStatic()) {
            const bool isMember = method != nullptr || found.cls->findProperty(name) != nullptr;
            std::vector<std::string> known;
            for (const COSMethod& each : found.cls->methods())
                if (each.isStatic())
                    known.push_back(each.name.str());
            if (isMember)
                fail(id::noSuchMember,
                     "'{}' is a member of objects of class {}, not of the class itself", name.str(),
                     found.cls->getFullName().str());
            fail(id::noSuchMember, "class {} has no class-level method '{}'{}",
                 found.cls->getFullName().str(), name.str(), suggestion(name.str(), known));
        }
        if (isLast()) {
            invokeMethod(*method, arguments, sink);
            return false;
        }
        base = callMethod(*method, Value(), {});
        if (base.isUnset())
            fail(id::tooManyOutputs, "'{}' gives no result", name.str());
    }
    while (at + 1 < path.size())
        base = memberOf(base, path[at++], nullptr);
    return callMemberOf(base, path[at], written, arguments, sink, nullptr);
}

} // namespace varnix
