// The table of all built-in functions, put together from the families at first use, and the one
// way of calling them.
#include "lang/builtin.hpp"

#include "lang/builtins/family_list.hpp"
#include "value/errors.hpp"

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <unordered_map>

namespace varnix {
namespace {

class Catalogue {
public:
    /// Lives for the process: the tables are constant and their look-up is needed at any time.
    static const Catalogue& instance() {
        static const Catalogue catalogue;
        return catalogue;
    }
    [[nodiscard]] const Builtin* find(std::string_view name) const {
        const auto found = byName_.find(name);
        return found == byName_.end() ? nullptr : found->second;
    }
    [[nodiscard]] std::span<const Builtin* const> sorted() const { return sorted_; }

private:
    Catalogue() {
        for (const builtins::Family& family : builtins::allFamilies())
            for (const Builtin& row : family.table) {
                byName_.emplace(row.name, &row);
                sorted_.push_back(&row);
            }
        std::sort(sorted_.begin(), sorted_.end(), [](const Builtin* a, const Builtin* b) {
            return std::strcmp(a->name, b->name) < 0;
        });
    }

    std::unordered_map<std::string_view, const Builtin*> byName_;
    std::vector<const Builtin*> sorted_;
};

[[nodiscard]] std::string counted(std::size_t n, std::string_view what) {
    return fmt::format("{} {}{}", n, what, n == 1 ? "" : "s");
}

} // namespace

std::span<const builtins::Family> builtins::allFamilies() {
    static const Family families[] = {
        {"Printing, text and numbers, errors", console()},
        {"Numbers", numbers()},
        {"Bits", bits()},
        {"Arrays", arrays()},
        {"Linear algebra", algebra()},
        {"Random numbers", random()},
        {"Sums, extremes, statistics", reductions()},
        {"Finding and sorting", searching()},
        {"Texts", texts()},
        {"Regular expressions", patterns()},
        {"Cells, structs, functions as values", records()},
        {"Classes of values", types()},
        {"Objects", objects()},
        {"Workspace and program", workspace()},
        {"Files and folders", files()},
        {"System and time", system()},
    };
    return families;
}

const Builtin* findBuiltin(std::string_view name) {
    return Catalogue::instance().find(name);
}

std::span<const Builtin* const> allBuiltins() {
    return Catalogue::instance().sorted();
}

void callBuiltin(const Builtin& builtin, BuiltinCall& call) {
    const std::size_t given = call.arguments.size();
    if (given > builtin.maxArguments)
        fail(id::tooManyInputs, "{} takes {}{}, not {}; call it as {}", builtin.name,
             builtin.maxArguments == builtin.minArguments ? "" : "at most ",
             builtin.maxArguments == 0 ? "no arguments" : counted(builtin.maxArguments, "argument"),
             given, builtin.signature);
    if (given < builtin.minArguments)
        fail(id::notEnoughInputs, "{} needs {}{}, not {}; call it as {}", builtin.name,
             builtin.maxArguments == builtin.minArguments ? "" : "at least ",
             counted(builtin.minArguments, "argument"), given, builtin.signature);
    if (call.requested > builtin.maxResults)
        fail(id::tooManyOutputs, "{} gives {}, not {}", builtin.name,
             builtin.maxResults == 0 ? "no result" : counted(builtin.maxResults, "result"),
             call.requested);
    call.builtin = &builtin;
    try {
        builtin.function(call);
    } catch (const std::bad_alloc&) {
        fail(id::outOfMemory, "{}: there is not enough memory", builtin.name);
    } catch (const std::length_error&) {
        fail(id::tooLarge, "{}: the result is too large", builtin.name);
    }
}

} // namespace varnix
