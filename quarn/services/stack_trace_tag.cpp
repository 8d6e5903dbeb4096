// See the header. A trace is an interned list of return addresses; names are looked up when
// somebody asks for them.
#include <qn/cfg.hpp>
#include <qn/default_services.hpp>
#include <qn/stack_trace_tag.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

namespace QN {

namespace {

constexpr std::size_t framesKept = 16;
constexpr std::size_t framesShown = 6;
using Trace = std::array<void*, framesKept>; // null behind the last

// Process-wide like the hooks that fill it; never destroyed, so that graphs may die at any time.
struct Tags {
    std::map<Trace, std::uint32_t> interned;
    std::vector<const Trace*> traces;
    std::unordered_map<std::uint32_t, std::uint32_t> traceOf; // by the bits of a Ref<Entity>
    std::unordered_map<const Cfg*, std::vector<std::uint32_t>> ofGraph;
};

Tags& tags() {
    static Tags& all = *new Tags;
    return all;
}

bool tracksDerivedNodes = false;

std::uint32_t bitsOf(const Entity& entity) noexcept {
    return Ref<const Entity>(&entity).bits();
}

void forgetGraph(Cfg& cfg) {
    Tags& all = tags();
    if (const auto found = all.ofGraph.find(&cfg); found != all.ofGraph.end()) {
        for (const std::uint32_t entity : found->second) {
            all.traceOf.erase(entity);
        }
        all.ofGraph.erase(found);
    }
}

void setTag(Cfg* cfg, const Entity& entity, std::uint32_t trace) {
    Tags& all = tags();
    const auto [place, isNew] = all.traceOf.insert_or_assign(bitsOf(entity), trace);
    static_cast<void>(place);
    if (isNew && cfg != nullptr) {
        all.ofGraph[cfg].push_back(bitsOf(entity));
        detail::cfgGone = forgetGraph;
    }
}

void tagNewEntity(Cfg* cfg, Entity& entity) {
    Trace trace{};
    std::array<void*, framesKept + 1> frames;
    const int count = ::backtrace(frames.data(), static_cast<int>(frames.size()));
    for (int i = 1; i < count; ++i) { // the first is this function
        trace[static_cast<std::size_t>(i) - 1] = frames[static_cast<std::size_t>(i)];
    }
    Tags& all = tags();
    const auto [place, isNew] =
        all.interned.try_emplace(trace, static_cast<std::uint32_t>(all.traces.size()));
    if (isNew) {
        all.traces.push_back(&place->first);
    }
    setTag(cfg, entity, place->second);
}

// The younger node is the one that was made in place of the other; an older one that happens to
// give the same value keeps its own origin.
void takeOverOrigin(Cfg& cfg, Node& from, Node& to) {
    Tags& all = tags();
    if (const auto found = all.traceOf.find(bitsOf(from));
        found != all.traceOf.end() && to.id() > from.id()) {
        setTag(&cfg, to, found->second);
    }
}

bool handles(EntityKind kind) noexcept {
    return ((detail::observedKinds >> static_cast<unsigned>(kind)) & 1U) != 0;
}

void setHandles(EntityKind kind, bool on) noexcept {
    const std::uint32_t bit = 1U << static_cast<unsigned>(kind);
    if (handles(kind) != on) {
        detail::observedKinds ^= bit;
        detail::entityMade = tagNewEntity;
        DefaultServices::debugServices().noteChange();
    }
}

std::string addressIn(const Dl_info& info, const void* address) {
    std::string_view file = info.dli_fname != nullptr ? info.dli_fname : "?";
    file.remove_prefix(file.rfind('/') + 1); // npos + 1 is 0
    char offset[32];
    std::snprintf(offset, sizeof offset, "+0x%zx",
                  static_cast<std::size_t>(static_cast<const char*>(address) -
                                           static_cast<const char*>(info.dli_fbase)));
    return std::string(file) + offset;
}

// The function's name without its parameters; where there is none, the file and the offset in it.
std::string functionAt(void* address) {
    // A return address may be the first byte behind a function that never returns.
    const void* const call = static_cast<char*>(address) - 1;
    Dl_info info{};
    if (::dladdr(call, &info) == 0) {
        return "?";
    }
    if (info.dli_sname == nullptr) {
        return addressIn(info, call);
    }
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> demangled(
        abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status), std::free);
    std::string name = status == 0 ? demangled.get() : info.dli_sname;
    constexpr std::string_view anonymous = "(anonymous namespace)::";
    for (std::size_t at; (at = name.find(anonymous)) != std::string::npos;) {
        name.erase(at, anonymous.size());
    }
    return name.substr(0, name.find('('));
}

bool makesEntities(const std::string& function) {
    constexpr std::string_view makers[] = {
        "QN::Cfg::", "QN::Builder::", "QN::Type::", "QN::Function::", "QN::detail::noteMade"};
    return std::any_of(std::begin(makers), std::end(makers),
                       [&](std::string_view maker) { return function.starts_with(maker); });
}

} // namespace

bool StackTraceTag::trackDerivedNodes() noexcept {
    return tracksDerivedNodes;
}

void StackTraceTag::setTrackDerivedNodes(bool track) noexcept {
    if (track != tracksDerivedNodes) {
        tracksDerivedNodes = track;
        detail::nodeDerived = track ? takeOverOrigin : nullptr;
        DefaultServices::debugServices().noteChange();
    }
}

std::string StackTraceTag::describe(const Entity& entity) {
    const Tags& all = tags();
    const auto found = all.traceOf.find(bitsOf(entity));
    if (found == all.traceOf.end()) {
        return {};
    }
    std::string text;
    std::size_t shown = 0;
    for (void* const frame : *all.traces[found->second]) {
        if (frame == nullptr || shown == framesShown) {
            break;
        }
        const std::string function = functionAt(frame);
        if (shown == 0 && makesEntities(function)) {
            continue;
        }
        text.append(shown++ == 0 ? "" : " < ").append(function);
        if (function == "main") {
            break;
        }
    }
    return text;
}

void StackTraceTag::copy(const Entity& from, Cfg& cfg, const Entity& to) {
    const Tags& all = tags();
    if (const auto found = all.traceOf.find(bitsOf(from)); found != all.traceOf.end()) {
        setTag(&cfg, to, found->second);
    }
}

bool StackTraceTag::anyExist() noexcept {
    return !tags().traceOf.empty();
}

bool StackTraceTagHandler::handlesNodes() noexcept {
    return handles(EntityKind::Node);
}
void StackTraceTagHandler::setHandlesNodes(bool on) noexcept {
    setHandles(EntityKind::Node, on);
}
bool StackTraceTagHandler::handlesConsts() noexcept {
    return handles(EntityKind::Const);
}
void StackTraceTagHandler::setHandlesConsts(bool on) noexcept {
    setHandles(EntityKind::Const, on);
}
bool StackTraceTagHandler::handlesVars() noexcept {
    return handles(EntityKind::Var);
}
void StackTraceTagHandler::setHandlesVars(bool on) noexcept {
    setHandles(EntityKind::Var, on);
}
bool StackTraceTagHandler::handlesTypes() noexcept {
    return handles(EntityKind::Type);
}
void StackTraceTagHandler::setHandlesTypes(bool on) noexcept {
    setHandles(EntityKind::Type, on);
}

} // namespace QN
