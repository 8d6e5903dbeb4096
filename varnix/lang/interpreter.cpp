// The script engine's face: see interpreter.hpp.
#include "lang/interpreter.hpp"

#include "lang/interrupt.hpp"
#include "lang/machine.hpp"
#include "lang/parser.hpp"
#include "value/errors.hpp"

#include <objsys/package.hpp>

#include <fmt/format.h>

namespace varnix {

using objsys::COSNameID;

namespace detail {

volatile std::sig_atomic_t interruptRequested = 0;
bool interruptUnderWay = false;

void raiseInterrupted() {
    interruptRequested = 0;
    interruptUnderWay = true;
    fail(id::interrupted, "interrupted");
}

} // namespace detail

Interpreter::Interpreter(InterpreterOptions options)
    : machine_(std::make_unique<Machine>(*this, std::move(options))) {}

Interpreter::~Interpreter() = default;

const InterpreterOptions& Interpreter::options() const {
    return machine_->options();
}

// ---- running

void Interpreter::runFile(const std::string& path) {
    machine_->runSource(readSource(path), Machine::Purpose::Statements, machine_->globalWorkspace(),
                        nullptr);
}

void Interpreter::runCode(std::string_view code, const std::string& sourceName) {
    const Source source{.name = sourceName, .folder = {}, .text = std::string(code)};
    machine_->runSource(source, Machine::Purpose::Statements, machine_->globalWorkspace(), nullptr);
}

void Interpreter::runPrompt(std::string_view code) {
    const Source source{.name = "<prompt>", .folder = {}, .text = std::string(code)};
    machine_->runSource(source, Machine::Purpose::Prompt, machine_->globalWorkspace(), nullptr);
}

bool Interpreter::needsMoreInput(std::string_view code) const {
    return endsUnfinished(code);
}

std::vector<Value> Interpreter::call(const Value& function, std::span<const Value> arguments,
                                     std::size_t requested) {
    return machine_->call(function, arguments, requested);
}

std::vector<Value> Interpreter::call(std::string_view name, std::span<const Value> arguments,
                                     std::size_t requested) {
    return machine_->callNamed(name, arguments, requested);
}

// ---- the caller's workspace

void Interpreter::runInCaller(std::string_view code, const std::string& sourceName) {
    const Source source{.name = sourceName, .folder = {}, .text = std::string(code)};
    machine_->runSource(source, Machine::Purpose::Statements, machine_->currentWorkspace(),
                        machine_->currentUnit());
}

Value Interpreter::evaluateInCaller(std::string_view expression, const std::string& sourceName) {
    const Source source{.name = sourceName, .folder = {}, .text = std::string(expression)};
    return machine_->runSource(source, Machine::Purpose::Value, machine_->currentWorkspace(),
                               machine_->currentUnit());
}

std::vector<std::string> Interpreter::variablesOfCaller() const {
    return machine_->variableNames(machine_->currentWorkspace());
}

namespace {

std::optional<Value> valueIn(Machine& machine, std::uint32_t workspace, std::string_view name) {
    const Value* const place = machine.findVariable(workspace, COSNameID(name));
    if (place == nullptr || place->isUnset())
        return std::nullopt;
    return *place;
}

} // namespace

std::optional<Value> Interpreter::variableOfCaller(std::string_view name) const {
    return valueIn(*machine_, machine_->currentWorkspace(), name);
}

bool Interpreter::clearInCaller(std::string_view name) {
    Value* const place = machine_->findVariable(machine_->currentWorkspace(), COSNameID(name));
    if (place == nullptr || place->isUnset())
        return false;
    *place = Value();
    return true;
}

// ---- the global workspace

std::vector<std::string> Interpreter::globalNames() const {
    return machine_->variableNames(machine_->globalWorkspace());
}

std::optional<Value> Interpreter::global(std::string_view name) const {
    return valueIn(*machine_, machine_->globalWorkspace(), name);
}

void Interpreter::setGlobal(std::string_view name, Value value) {
    machine_->setVariable(machine_->globalWorkspace(), COSNameID(name), std::move(value));
}

// ---- names

std::string Interpreter::kindOfName(std::string_view name) const {
    const COSNameID id(name);
    if (name.find('.') == std::string_view::npos) {
        const std::shared_ptr<Unit> unit = machine_->currentUnit();
        try {
            const NameResolver::Found found = machine_->names().find(id, unit.get());
            if (found)
                return found.script != nullptr ? "function" : "builtin";
        } catch (const objsys::COSError&) {
            return "function"; // in a file that does not compile
        }
    }
    if (objsys::COSPackage::getPackage(id) != nullptr)
        return "package";
    return objsys::COSClass::find(id) != nullptr ? "class" : "";
}

std::vector<std::string> Interpreter::functionNames() const {
    return machine_->names().scriptFunctions(machine_->currentUnit().get());
}

std::string Interpreter::functionHelp(std::string_view name) const {
    const std::shared_ptr<Unit> unit = machine_->currentUnit();
    const NameResolver::Found found = machine_->names().find(COSNameID(name), unit.get());
    return found.script != nullptr ? found.script->help : std::string();
}

void Interpreter::addPath(const std::string& folder) {
    machine_->names().addPath(folder);
}

void Interpreter::foldersChanged() {
    machine_->names().newEpoch();
}

// ---- interrupts

void Interpreter::interrupt() noexcept {
    detail::interruptRequested = 1;
}

void Interpreter::checkInterrupt() {
    detail::pollInterrupt();
}

// ---- errors

std::string formatError(const objsys::COSError& error) {
    // The ends of a long stack tell; the middle is the same few lines over and over.
    constexpr std::size_t innermost = 12;
    constexpr std::size_t outermost = 4;
    const auto& stack = error.stack();
    std::string text = fmt::format("error: {}\n", error.message());
    for (std::size_t i = 0; i < stack.size(); ++i) {
        if (i == innermost && stack.size() > innermost + outermost + 1) {
            const std::size_t left = stack.size() - innermost - outermost;
            text += fmt::format("  ... {} more ...\n", left);
            i += left;
        }
        text += fmt::format("  at {}:{}:{}\n", stack[i].file, stack[i].line, stack[i].column);
    }
    return text;
}

} // namespace varnix
