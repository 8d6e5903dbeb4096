// The machine's frames and its entries from C++; how errors unwind.
#include "lang/machine.hpp"

#include "lang/interrupt.hpp"
#include "value/errors.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <pthread.h>

namespace varnix {

using objsys::COSError;
using objsys::COSNameID;

namespace {

/// C++ stack that is left to built-ins, native methods and the compiler when a script may still
/// enter the machine again.
constexpr std::size_t stackReserve = std::size_t{1} << 20;

/// The lowest address that the stack of this thread may reach.
const char* lowestStackAddress() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return nullptr;
    void* address = nullptr;
    std::size_t size = 0;
    pthread_attr_getstack(&attributes, &address, &size);
    pthread_attr_destroy(&attributes);
    // An unlimited stack is as dangerous as none: take no more than this of it.
    constexpr std::size_t most = std::size_t{64} << 20;
    const char* lowest = static_cast<const char*>(address);
    const char* const here = static_cast<const char*>(__builtin_frame_address(0));
    if (static_cast<std::size_t>(here - lowest) > most)
        lowest = here - most;
    return lowest + std::min(stackReserve, static_cast<std::size_t>(here - lowest) / 4);
}

} // namespace

Machine::Machine(Interpreter& interpreter, InterpreterOptions options)
    : interpreter_(interpreter), options_(std::move(options)),
      compiled_(makeCompiledFunctions(options_.compiler, names_)),
      frames_(std::make_unique<Frame[]>(options_.maxCallDepth + 1)) {
    frames_[0].base = registers_.start();
    frames_[0].code = nullptr;
}

Machine::~Machine() {
    while (depth_ > 0)
        popFrame();
}

void Machine::checkStack() const {
    static thread_local const char* const limit = lowestStackAddress();
    if (static_cast<const char*>(__builtin_frame_address(0)) < limit)
        fail(id::tooDeep, "scripts call built-in functions that call scripts too deeply");
}

// ---- frames

Frame& Machine::enter(const Code& code, std::span<Value> arguments, const Sink& sink) {
    detail::pollInterrupt();
    if (arguments.size() != code.parameters) [[unlikely]]
        fail(arguments.size() > code.parameters ? id::tooManyInputs : id::notEnoughInputs,
             "{} takes {} argument{}, not {}",
             code.text.empty() ? "'" + code.name.str() + "'" : "the anonymous function",
             code.parameters, code.parameters == 1 ? "" : "s", arguments.size());
    if (depth_ >= options_.maxCallDepth) [[unlikely]]
        fail(id::tooDeep, "functions call each other more than {} levels deep",
             options_.maxCallDepth);
    const Frame& below = frames_[depth_];
    const std::size_t used = below.code ? below.code->registers : 0;
    Frame& frame = frames_[depth_ + 1];
    frame.segment = below.segment;
    frame.base = registers_.above(below.base + used, code.registers, frame.segment);
    frame.code = &code;
    frame.ip = code.instructions.data();
    frame.result = sink.result;
    frame.requested = sink.requested;
    frame.flags = sink.base ? 0 : Frame::Entry;
    // The registers above the top frame are unset and own nothing.
    for (std::size_t i = 0; i < arguments.size(); ++i)
        new (&frame.base[i]) Value(std::move(arguments[i]));
    ++depth_;
    return frame;
}

bool Machine::beginCompiled(const Code& code, std::span<Value> arguments, const Sink& sink) {
    // Calls in the code count as here; one is taken off for what was inlined at the bottom.
    if (depth_ + 2 > options_.maxCallDepth || sink.base == nullptr || sink.requested > 1)
        [[unlikely]]
        return beginCompiledForMany(code, arguments, sink);
    detail::pollInterrupt();
    const CompiledFunctions::Wish wish{.results = sink.requested, .any = sink.result != noSlot};
    Value result;
    const CompiledFunctions::Outcome outcome =
        compiled_->call(code, arguments.data(), arguments.size(), wish,
                        options_.maxCallDepth - depth_ - 2, &result);
    if (outcome != CompiledFunctions::Outcome::Done) [[unlikely]]
        return enterInstead(outcome, code, arguments, sink);
    for (Value& argument : arguments)
        argument = Value();
    if (sink.result != noSlot)
        sink.base[sink.result] = std::move(result);
    return false;
}

bool Machine::beginCompiledForMany(const Code& code, std::span<Value> arguments, const Sink& sink) {
    constexpr std::size_t mostResults = 16;
    if (depth_ + 2 > options_.maxCallDepth || sink.requested > mostResults) {
        enter(code, arguments, sink);
        return true;
    }
    detail::pollInterrupt();
    const CompiledFunctions::Wish wish{.results = sink.requested,
                                       .any = sink.base == nullptr || sink.result != noSlot};
    std::array<Value, mostResults> results;
    const CompiledFunctions::Outcome outcome =
        compiled_->call(code, arguments.data(), arguments.size(), wish,
                        options_.maxCallDepth - depth_ - 2, results.data());
    if (outcome != CompiledFunctions::Outcome::Done)
        return enterInstead(outcome, code, arguments, sink);
    for (Value& argument : arguments)
        argument = Value();
    const std::size_t wanted = std::max<std::size_t>(sink.requested, 1);
    deliver(std::span<Value>(results.data(), results[0].isUnset() ? 0 : wanted), sink,
            code.name.c_str());
    return false;
}

bool Machine::enterInstead(CompiledFunctions::Outcome outcome, const Code& code,
                           std::span<Value> arguments, const Sink& sink) {
    Frame& frame = enter(code, arguments, sink);
    if (outcome == CompiledFunctions::Outcome::InterpretToFail)
        frame.flags = static_cast<std::uint8_t>(frame.flags | Frame::MustFail);
    return true;
}

void Machine::enterAnonymous(const Value& function, std::span<Value> arguments, const Sink& sink) {
    const auto& record = static_cast<const AnonymousFunction&>(functionOf(function.array()));
    // The variable that holds the function may get another value while it runs.
    Value kept = function;
    Frame& frame = enter(record.code(), arguments, sink);
    frame.function = std::move(kept);
    frame.flags = static_cast<std::uint8_t>(frame.flags | Frame::Holds);
    std::size_t slot = record.code().parameters;
    for (const Value& value : record.captured())
        frame.base[slot++] = value;
}

void Machine::popFrame() noexcept {
    Frame& frame = frames_[depth_];
    if ((frame.flags & Frame::Shares) != 0)
        moveOut(frame);
    for (Value *r = frame.base, *const end = r + frame.code->registers; r != end; ++r) {
        if (r->isCounted())
            *r = Value();
        else
            new (r) Value();
    }
    if ((frame.flags & Frame::Holds) != 0) {
        frame.function = Value();
        delete frame.extras;
        frame.extras = nullptr;
    }
    --depth_;
}

void Machine::moveIn(Frame& frame) {
    const auto& names = frame.code->names;
    for (std::size_t i = 0; i < names.size(); ++i) {
        Value* place = findVariable(frame.workspace, names[i]);
        if (place == nullptr) {
            // Made now, so that moving out cannot fail.
            setVariable(frame.workspace, names[i], Value());
            place = findVariable(frame.workspace, names[i]);
        }
        frame.base[i] = std::move(*place);
    }
}

void Machine::moveOut(Frame& frame) noexcept {
    const auto& names = frame.code->names;
    for (std::size_t i = 0; i < names.size(); ++i)
        if (Value* const place = findVariable(frame.workspace, names[i]))
            *place = std::move(frame.base[i]);
}

// ---- running

namespace {

/// The exception being handled as a host error. Throws exit requests on.
COSError hostError() {
    try {
        throw;
    } catch (COSError& error) {
        return std::move(error);
    } catch (const ExitRequest&) {
        throw;
    } catch (const std::bad_alloc&) {
        return {std::string(id::outOfMemory), "there is not enough memory"};
    } catch (const std::exception& foreign) {
        return {std::string(id::native), foreign.what()};
    } catch (...) {
        return {std::string(id::native), "an unknown exception"};
    }
}

} // namespace

void Machine::run() {
    const std::size_t floor = depth_ - 1;
    std::optional<COSError> error;
    detail::interruptUnderWay = false; // nothing starts to run while one leaves the running code
    for (;;) {
        try {
            checkStack();
            execute();
            return;
        } catch (...) {
            try {
                error.emplace(hostError());
            } catch (const ExitRequest&) {
                while (depth_ > floor)
                    popFrame();
                throw;
            }
        }
        handle(std::move(*error), floor);
    }
}

objsys::StackFrame Machine::placeOf(const Frame& frame) {
    const Code& code = *frame.code;
    const Place place = code.places[static_cast<std::size_t>(frame.ip - code.instructions.data())];
    return {.function = code.text.empty() ? code.name.str() : "anonymous function",
            .file = code.unit->name,
            .line = static_cast<int>(place.line),
            .column = static_cast<int>(place.column)};
}

void Machine::handle(COSError error, std::size_t floor) {
    // Nobody may swallow the user's wish to stop.
    const bool catchable = !detail::interruptUnderWay || error.identifier() != id::interrupted;
    while (depth_ > floor) {
        Frame& frame = top();
        error.addFrame(placeOf(frame));
        const Code& code = *frame.code;
        const auto at = static_cast<std::size_t>(frame.ip - code.instructions.data());
        const auto handler =
            std::find_if(code.handlers.begin(), code.handlers.end(),
                         [at](const Code::Handler& h) { return at >= h.begin && at < h.end; });
        if (catchable && handler != code.handlers.end()) {
            for (std::size_t below = depth_ - 1; below > 0; --below)
                error.addFrame(placeOf(frames_[below]));
            for (std::size_t r = handler->temporaries; r < code.registers; ++r)
                frame.base[r] = Value();
            frame.ip = code.instructions.data() + handler->target;
            caught_.emplace(std::move(error));
            return;
        }
        popFrame();
    }
    throw std::move(error);
}

bool Machine::leave(Frame& frame, std::size_t first, std::size_t count) {
    if ((frame.flags & Frame::MustFail) != 0) [[unlikely]]
        fail("varnix:internal", "the compiled code of '{}' met an error that its script does not",
             frame.code->name.str());
    Value* results = frame.base + first;
    Value meant;
    // An anonymous function whose body gave nothing, or an unassigned variable.
    if (count == 1 && results[0].isUnset()) {
        if (frame.code->isTemporary(first))
            count = 0;
        else
            *(results = &meant) = nameValue(frame, first);
    }
    const std::size_t wanted = frame.requested;
    const std::size_t target = frame.result;
    const bool entry = (frame.flags & Frame::Entry) != 0;
    if (!entry && wanted <= 1 && count >= wanted) [[likely]] {
        Value result = count > 0 ? std::move(results[0]) : Value();
        popFrame();
        if (target != noSlot)
            top().base[target] = std::move(result);
        return false;
    }
    std::vector<Value> kept;
    const std::size_t given = std::min(count, std::max<std::size_t>(wanted, 1));
    kept.reserve(given);
    for (std::size_t i = 0; i < given; ++i)
        kept.push_back(results[i]); // a copy: the variable may go back to its workspace
    std::string name;
    if (count < wanted)
        name = frame.code->text.empty() ? "'" + frame.code->name.str() + "'"
                                        : "the anonymous function";
    popFrame();
    if (count < wanted) // an error of the caller, who wants more than there is
        fail(id::tooManyOutputs, "{} gives {} result{}, not {}", name,
             count == 0 ? "no" : std::to_string(count), count == 1 ? "" : "s", wanted);
    if (entry) {
        returned_ = std::move(kept);
        return true;
    }
    for (std::size_t i = 0; i < given; ++i)
        top().base[target + i] = std::move(kept[i]);
    return false;
}

// ---- entries

void Machine::startOutermost() {
    if (depth_ == 0) {
        names_.dropReplaced();
        caught_.reset();
    }
    names_.newEpoch();
}

namespace {

/// Lets nothing out but host errors and exit requests.
template <class F>
auto hosted(const F& f) {
    try {
        return f();
    } catch (const COSError&) {
        throw;
    } catch (...) {
        throw hostError();
    }
}

} // namespace

Value Machine::runSource(const Source& source, Purpose purpose, std::uint32_t workspace,
                         const std::shared_ptr<Unit>& parent) {
    return hosted([&] { return runCompiled(source, purpose, workspace, parent); });
}

std::vector<Value> Machine::call(const Value& function, std::span<const Value> arguments,
                                 std::size_t requested) {
    std::vector<Value> copies(arguments.begin(), arguments.end());
    const Sink sink{.requested = static_cast<std::uint16_t>(requested)};
    return hosted([&] { return finish(beginFunction(function, copies, sink)); });
}

std::vector<Value> Machine::callNamed(std::string_view name, std::span<const Value> arguments,
                                      std::size_t requested) {
    std::vector<COSNameID> path;
    for (std::size_t begin = 0; begin <= name.size();) {
        const std::size_t dot = std::min(name.find('.', begin), name.size());
        path.emplace_back(name.substr(begin, dot - begin));
        begin = dot + 1;
    }
    std::vector<Value> copies(arguments.begin(), arguments.end());
    const Sink sink{.requested = static_cast<std::uint16_t>(requested)};
    const NamedFunction function(std::move(path), currentUnit(), nullptr, nullptr);
    return hosted([&] { return finish(beginNamed(function, copies, sink)); });
}

Value Machine::runCompiled(const Source& source, Purpose purpose, std::uint32_t workspace,
                           const std::shared_ptr<Unit>& parent) {
    checkStack();
    if (!parent)
        startOutermost();
    CompileOptions options;
    options.echo = purpose == Purpose::Prompt;
    options.expression = purpose == Purpose::Value;
    options.parent = parent;
    options.isVariable = [this, workspace](COSNameID name) {
        const Value* const value = findVariable(workspace, name);
        return value != nullptr && !value->isUnset();
    };
    const std::shared_ptr<Unit> unit = compile(source, options);
    if (!parent && source.folder.empty())
        names_.addSession(unit);
    Frame& frame =
        enter(unit->body, {},
              {.base = nullptr,
               .result = noSlot,
               .requested = static_cast<std::uint16_t>(purpose == Purpose::Value ? 1 : 0)});
    frame.workspace = workspace;
    moveIn(frame);
    frame.flags = static_cast<std::uint8_t>(frame.flags | Frame::Shares);
    run();
    return purpose == Purpose::Value ? std::move(returned_.front()) : Value();
}

std::vector<Value> Machine::finish(bool pushed) {
    if (pushed)
        run();
    return std::move(returned_);
}

Value Machine::finishOne(bool pushed) {
    if (pushed)
        run();
    return std::move(returned_.front());
}

// ---- workspaces

std::uint32_t Machine::globalWorkspace() const {
    for (std::size_t depth = depth_; depth > 0; --depth) {
        std::size_t at = depth;
        while (at != 0 && (frames_[at].flags & Frame::Shares) != 0)
            at = frames_[at].workspace;
        if (at == 0)
            return static_cast<std::uint32_t>(depth);
    }
    return 0;
}

std::shared_ptr<Unit> Machine::currentUnit() const {
    return depth_ == 0 ? nullptr : frames_[depth_].code->unit->shared_from_this();
}

Value* Machine::findVariable(std::uint32_t workspace, COSNameID name) {
    for (std::uint32_t at = workspace; at != 0; at = frames_[at].workspace) {
        Frame& frame = frames_[at];
        const auto slot = frame.code->slots.find(name);
        if (slot != frame.code->slots.end())
            return &frame.base[slot->second];
        if ((frame.flags & Frame::Shares) != 0)
            continue;
        if (frame.extras == nullptr)
            return nullptr;
        const auto extra = frame.extras->find(name);
        return extra == frame.extras->end() ? nullptr : &extra->second;
    }
    const auto found = globals_.find(name);
    return found == globals_.end() ? nullptr : &found->second;
}

void Machine::setVariable(std::uint32_t workspace, COSNameID name, Value value) {
    if (Value* const place = findVariable(workspace, name)) {
        *place = std::move(value);
        return;
    }
    std::uint32_t at = workspace;
    while (at != 0 && (frames_[at].flags & Frame::Shares) != 0)
        at = frames_[at].workspace;
    Variables* variables = &globals_;
    if (at != 0) {
        Frame& frame = frames_[at];
        if (frame.extras == nullptr) {
            frame.extras = new Variables;
            frame.flags = static_cast<std::uint8_t>(frame.flags | Frame::Holds);
        }
        variables = frame.extras;
    }
    (*variables)[name] = std::move(value);
}

std::vector<std::string> Machine::variableNames(std::uint32_t workspace) const {
    std::vector<std::string> list;
    const auto add = [&](const Variables& variables) {
        for (const auto& [name, value] : variables)
            if (!value.isUnset())
                list.push_back(name.str());
    };
    for (std::uint32_t at = workspace;; at = frames_[at].workspace) {
        if (at == 0) {
            add(globals_);
            break;
        }
        const Frame& frame = frames_[at];
        for (std::size_t i = 0; i < frame.code->names.size(); ++i)
            if (!frame.base[i].isUnset())
                list.push_back(frame.code->names[i].str());
        if ((frame.flags & Frame::Shares) == 0) {
            if (frame.extras != nullptr)
                add(*frame.extras);
            break;
        }
    }
    std::sort(list.begin(), list.end());
    list.erase(std::unique(list.begin(), list.end()), list.end());
    return list;
}

} // namespace varnix
