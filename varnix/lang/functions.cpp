// Function values: how they show and compare.
#include "lang/functions.hpp"

#include "value/errors.hpp"
#include "value/ops.hpp"

#include <algorithm>

namespace varnix {

std::string AnonymousFunction::describe() const {
    // On one line, whatever the source looked like.
    std::string text;
    bool blank = false;
    for (const char c : code_.text) {
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            blank = true;
            continue;
        }
        if (blank && !text.empty())
            text += ' ';
        blank = false;
        text += c;
    }
    return text;
}

bool AnonymousFunction::equals(const FunctionRecord& other) const {
    // A function may have captured one that captured one, and so on; only as deep as the stack is.
    static std::size_t depth = 0;
    struct Level {
        Level() {
            if (depth >= 500)
                fail(id::tooDeep, "functions that captured functions more than 500 levels deep "
                                  "cannot be compared");
            ++depth;
        }
        ~Level() { --depth; }
    } const level;
    const auto* const function = dynamic_cast<const AnonymousFunction*>(&other);
    return function != nullptr && &function->code_ == &code_ &&
           std::equal(captured_.begin(), captured_.end(), function->captured_.begin(),
                      function->captured_.end(), [](const Value& a, const Value& b) {
                          return a.isUnset() || b.isUnset() ? a.isUnset() == b.isUnset()
                                                            : isEqual(a, b);
                      });
}

std::string NamedFunction::describe() const {
    std::string text = "fn ";
    for (std::size_t i = 0; i < path_.size(); ++i) {
        text += i == 0 ? "" : ".";
        text += path_[i].str();
    }
    return text;
}

bool NamedFunction::equals(const FunctionRecord& other) const {
    const auto* const function = dynamic_cast<const NamedFunction*>(&other);
    return function != nullptr && function->path_ == path_ && function->script_ == script_ &&
           function->builtin_ == builtin_;
}

} // namespace varnix
