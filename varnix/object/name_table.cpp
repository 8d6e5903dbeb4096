// The table of interned names.

#include <objsys/name_id.hpp>

#include <array>
#include <unordered_map>

namespace objsys::detail {

namespace {

// FNV-1a, so that the two entries below can be made at compile time.
constexpr std::size_t hashOf(std::string_view text) {
    std::size_t hash = 14695981039346656037u;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211u;
    return hash;
}

struct Hash {
    std::size_t operator()(std::string_view text) const noexcept { return hashOf(text); }
};

constexpr std::string_view vectorSuffix = " vector";

struct FixedKind {
    std::string_view text;
    ValueKind kind;
};
constexpr std::array<FixedKind, 9> fixedKinds{{
    {"logical scalar", ValueKind::Logical},
    {"int32 scalar", ValueKind::Int32},
    {"uint32 scalar", ValueKind::UInt32},
    {"int64 scalar", ValueKind::Int64},
    {"uint64 scalar", ValueKind::UInt64},
    {"double scalar", ValueKind::Double},
    {"char", ValueKind::Char},
    {"cell", ValueKind::Cell},
    {"any", ValueKind::Any},
}};

ValueKind kindOf(std::string_view text) {
    for (const FixedKind& row : fixedKinds)
        if (row.text == text)
            return row.kind;
    return text.ends_with(vectorSuffix) ? ValueKind::Vector : ValueKind::Object;
}

using Table = std::unordered_map<std::string_view, NameEntry*, Hash>;

// Lives for the process: names are used by modules until the very end.
Table& table() {
    static Table* const names =
        new Table{{std::string_view(emptyName.text), &emptyName}, {voidName.text, &voidName}};
    return *names;
}

} // namespace

// They are there before any code runs. Clang does not make constants of the texts of GCC's library,
// so it makes these before everything else of the library.
#if defined(__clang__)
#define OBJSYS_FROM_THE_BEGINNING __attribute__((init_priority(101)))
#else
#define OBJSYS_FROM_THE_BEGINNING constinit
#endif

OBJSYS_FROM_THE_BEGINNING NameEntry emptyName{
    {}, hashOf({}), ValueKind::Object, &emptyName, nullptr};
OBJSYS_FROM_THE_BEGINNING NameEntry voidName{"void", hashOf("void"), ValueKind::Void, &voidName,
                                             nullptr};

NameEntry* intern(std::string_view text) {
    Table& names = table();
    if (const auto found = names.find(text); found != names.end())
        return found->second;
    auto* const entry =
        new NameEntry{std::string(text), hashOf(text), kindOf(text), nullptr, nullptr};
    names.emplace(entry->text, entry);
    entry->element = entry->kind == ValueKind::Vector
                         ? intern(text.substr(0, text.size() - vectorSuffix.size()))
                         : entry;
    return entry;
}

} // namespace objsys::detail
