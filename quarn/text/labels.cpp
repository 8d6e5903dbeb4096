// See labels.hpp.
#include "text/labels.hpp"

#include "text/writer.hpp"

#include <qn/scope.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace QN::text {

namespace {

bool isWordCharacter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool isControl(char c) noexcept {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

void appendNumber(std::string& out, std::uint64_t number, int base = 10) {
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, number, base).ptr);
}

void appendDouble(std::string& out, const Const& constant) {
    const double value = constant.asDouble();
    if (std::isnan(value)) {
        out += "nan";
        if (constant.bits() != 0x7FF8000000000000) {
            out += ':';
            appendNumber(out, constant.bits(), 16);
        }
        return;
    }
    char digits[40];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

} // namespace

bool isIdentifier(std::string_view text) noexcept {
    if (text.empty() || (text[0] >= '0' && text[0] <= '9')) {
        return false;
    }
    for (const char c : text) {
        if (!isWordCharacter(c)) {
            return false;
        }
    }
    return true;
}

void appendQuoted(std::string& out, std::string_view text) {
    constexpr char hex[] = "0123456789abcdef";
    out += '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (isControl(c)) {
            out += "\\x";
            out += hex[byte >> 4];
            out += hex[byte & 15];
        } else {
            out += c;
        }
    }
    out += '"';
}

void appendName(std::string& out, std::string_view name) {
    if (isIdentifier(name)) {
        out += name;
    } else {
        appendQuoted(out, name);
    }
}

bool hasControlCharacters(std::string_view name) noexcept {
    return std::any_of(name.begin(), name.end(), isControl);
}

void appendPlainName(std::string& out, std::string_view name) {
    if (hasControlCharacters(name)) {
        appendQuoted(out, name);
    } else {
        out += name;
    }
}

void appendConstant(std::string& out, const Const& constant) {
    const Type& type = *constant.type();
    if (type.isDouble()) {
        appendDouble(out, constant);
    } else if (type.isLogical()) {
        out += constant.bits() != 0 ? "true" : "false";
    } else {
        if (type.isSigned()) {
            char digits[24];
            out.append(digits, std::to_chars(digits, digits + sizeof digits, constant.asInt()).ptr);
        } else {
            appendNumber(out, constant.bits());
        }
        out += type.name();
    }
}

std::size_t expectedLength(const Function& function) noexcept {
    if (!function.hasCfg()) {
        return 128;
    }
    const Cfg& cfg = function.cfg();
    return 128 + 40 * cfg.numNodes() + 32 * cfg.numVars() + 16 * cfg.numBlocks();
}

std::size_t expectedLength(const Scope& scope) noexcept {
    std::size_t length = 128;
    for (const auto& function : scope.functions()) {
        length += expectedLength(*function);
    }
    for (const auto& child : scope.children()) {
        length += expectedLength(*child);
    }
    return length;
}

namespace {

/// A name for a variable that has none.
std::string madeUpName(const Var& var, const NameCounts& counts) {
    std::string label = 't' + std::to_string(var.id());
    while (counts.of(label) != 0) {
        label += '_';
    }
    return label;
}

constexpr auto opTexts = [] {
    std::array<std::array<char, Pen::chunk>, opCount> texts = {};
    for (std::size_t i = 0; i < opCount; ++i) {
        std::copy(detail::opTable[i].text.begin(), detail::opTable[i].text.end(), texts[i].begin());
    }
    return texts;
}();

} // namespace

std::string_view textOf(Op op) noexcept {
    return {opTexts[static_cast<std::size_t>(op)].data(), infoOf(op).text.size()};
}

void NameCounts::take(const Cfg& cfg) {
    slots_.assign(std::bit_ceil(2 * cfg.numVars() + 2), {});
    for (const Var& var : cfg.vars()) {
        Slot& slot = find(var.name());
        slot.name = var.name();
        ++slot.count;
    }
}

NameCounts::Slot& NameCounts::find(std::string_view name) noexcept {
    std::uint64_t hash = name.size();
    for (std::size_t i = 0; i < name.size(); i += 8) {
        std::uint64_t part = 0;
        std::memcpy(&part, name.data() + i, std::min<std::size_t>(8, name.size() - i));
        hash = (hash ^ part) * 0x9E3779B97F4A7C15;
        hash ^= hash >> 32;
    }
    std::size_t at = hash & (slots_.size() - 1);
    while (slots_[at].count != 0 && slots_[at].name != name) {
        at = (at + 1) & (slots_.size() - 1);
    }
    return slots_[at];
}

// The text may move while it grows, so what is written is noted by its end, and the views come
// last.
void Labels::take(const Cfg& cfg, Style style, Controls controls) {
    static constexpr char nothing[Pen::chunk] = {};
    vars_.assign(cfg.varIdLimit(), {nothing, 0});
    consts_.assign(cfg.numConstants(), {nothing, 0});
    text_.clear();
    ends_.clear();
    longest_ = 0;
    controls_ = controls;
    addVarLabels(cfg, style);
    for (const Const& constant : cfg.constants()) {
        appendConstant(text_, constant);
        ends_.push_back(text_.size());
    }
    text_.append(Pen::chunk, '\0');
    std::size_t start = 0;
    std::size_t place = 0;
    const auto take = [&](std::string_view& label) {
        label = std::string_view(text_).substr(start, ends_[place] - start);
        start = ends_[place++];
        longest_ = std::max(longest_, label.size());
    };
    for (const Var& var : cfg.vars()) {
        take(vars_[var.id()]);
    }
    for (std::string_view& label : consts_) {
        take(label);
    }
}

void Labels::addVarLabels(const Cfg& cfg, Style style) {
    if (style == Style::Disambiguate) {
        addDisambiguated(cfg);
        return;
    }
    bool areCounted = false; // plain names only if one is to be made up
    std::uint32_t place = 0;
    for (const Var& var : cfg.vars()) {
        const std::string_view name = var.name();
        if ((style == Style::Qnel || name.empty()) && !areCounted) {
            counts_.take(cfg);
            areCounted = true;
        }
        if (style == Style::Qnel) {
            const bool named = isIdentifier(name);
            text_ += '$';
            text_ += named ? name : std::string_view();
            if (!named || counts_.of(name) > 1) {
                text_ += '.';
                appendNumber(text_, place);
            }
        } else if (name.empty()) {
            text_ += madeUpName(var, counts_);
        } else {
            addName(name);
        }
        ++place;
        ends_.push_back(text_.size());
    }
}

void Labels::addName(std::string_view name) {
    if (controls_ == Controls::Quoted) {
        appendPlainName(text_, name);
    } else {
        text_ += name;
    }
}

void Labels::addDisambiguated(const Cfg& cfg) {
    counts_.take(cfg);
    const NameCounts& counts = counts_;
    std::unordered_set<std::string> taken; // labels of names that occur more than once
    std::unordered_map<std::string_view, std::uint32_t> lastNumber;
    for (const Var& var : cfg.vars()) {
        std::string label = var.name().empty() ? madeUpName(var, counts) : std::string(var.name());
        if (!var.name().empty() && counts.of(var.name()) > 1) {
            std::uint32_t& number = lastNumber[var.name()];
            while (!taken.insert(label).second) {
                do {
                    label = std::string(var.name()) + '_' + std::to_string(++number);
                } while (counts.of(label) != 0);
            }
        }
        addName(label);
        ends_.push_back(text_.size());
    }
}

} // namespace QN::text
