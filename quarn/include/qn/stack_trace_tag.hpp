// Stack-trace tags: new nodes, constants, variables and types remember where in the compiler they
// were made, if the switch of their kind is on. Printers show the tags.
//
// All is process-wide, as the IR's hooks are. Tags lie beside the IR, not in it, and go with the
// graph that their entities belong to. One thread only.
#pragma once

#include <string>

namespace QN {

class Cfg;
class Entity;

/// What one entity remembers.
class StackTraceTag {
public:
    /// Whether a node that replaces an older one takes over its origin, so that a transform does
    /// not hide where the code came from; off at start. Needs tagged nodes.
    [[nodiscard]] static bool trackDerivedNodes() noexcept;
    static void setTrackDerivedNodes(bool track) noexcept;

    /// Where `entity` was made: the functions of the compiler, innermost first, joined by " < ";
    /// the library's own node-making functions are left out. Empty if the entity has no tag.
    [[nodiscard]] static std::string describe(const Entity& entity);

    /// Gives `to`, which belongs to the graph `cfg`, the tag of `from`, if that one has one. For
    /// code that copies entities.
    static void copy(const Entity& from, Cfg& cfg, const Entity& to);

    /// Whether any entity has a tag; printers ask this once before they ask for each.
    [[nodiscard]] static bool anyExist() noexcept;
};

/// Which kinds of entities get tags when they are made; all off at start. Switching one off leaves
/// the tags that are there.
class StackTraceTagHandler {
public:
    [[nodiscard]] static bool handlesNodes() noexcept;
    static void setHandlesNodes(bool handles) noexcept;
    [[nodiscard]] static bool handlesConsts() noexcept;
    static void setHandlesConsts(bool handles) noexcept;
    [[nodiscard]] static bool handlesVars() noexcept;
    static void setHandlesVars(bool handles) noexcept;
    /// Types are made once in a process, at their first use; only later ones get tags.
    [[nodiscard]] static bool handlesTypes() noexcept;
    static void setHandlesTypes(bool handles) noexcept;
};

} // namespace QN
