// Completion of names at the prompt: which names fit what is left of the cursor.
//
// complete() is a pure function of the text and of a NameWorld, which says what names mean; the
// prompt's world is LiveNames (live_names.hpp), tests make their own. Nothing here ever runs code:
// chains such as `d.PrettyPrinter.Out` are followed through declared data types.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace varnix {

/// What a name or a chain of names stands for, as far as completion can know.
class NamedThing {
public:
    virtual ~NamedThing() = default;
    /// Names that may stand after a dot. A name that can only be continued by a further dot, such
    /// as a package, ends in that dot.
    [[nodiscard]] virtual std::vector<std::string> members() const = 0;
    /// What `.name` stands for; null when that is unknown.
    [[nodiscard]] virtual std::unique_ptr<NamedThing> member(std::string_view name) const = 0;
    /// What `[...]` after it stands for; null when that is unknown.
    [[nodiscard]] virtual std::unique_ptr<NamedThing> indexed() const = 0;
    /// What a call `(...)` of it gives; null when that is unknown.
    [[nodiscard]] virtual std::unique_ptr<NamedThing> called() const = 0;
};

class NameWorld {
public:
    virtual ~NameWorld() = default;
    /// Every name that may begin an expression or a statement.
    [[nodiscard]] virtual std::vector<std::string> names() const = 0;
    /// What a name stands for; null when that is unknown.
    [[nodiscard]] virtual std::unique_ptr<NamedThing> find(std::string_view name) const = 0;
};

struct Completion {
    /// Where the name under the cursor begins: a candidate replaces text[start, cursor).
    std::size_t start = 0;
    /// Names that fit, sorted, each one once.
    std::vector<std::string> candidates;

    /// The longest text with which every candidate begins.
    [[nodiscard]] std::string common() const;
};

/// The names that fit the text left of `cursor`. None inside texts, comments and numbers.
[[nodiscard]] Completion complete(std::string_view text, std::size_t cursor,
                                  const NameWorld& world);

} // namespace varnix
