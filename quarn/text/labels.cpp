// See labels.hpp.
#include "text/labels.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace QN::text {

namespace {

bool isWordCharacter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
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
        } else if (byte < 0x20 || byte == 0x7F) {
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

Labels::Labels(const Cfg& cfg, Style style) : vars_(cfg.varIdLimit()), consts_(cfg.numConstants()) {
    // The text may move while it grows, so places come first and views last.
    std::vector<std::pair<std::size_t, std::size_t>> places(cfg.numConstants());
    for (const Const& constant : cfg.constants()) {
        const std::size_t start = text_.size();
        appendConstant(text_, constant);
        places[constant.id()] = {start, text_.size() - start};
    }
    std::string constants = std::move(text_);
    text_.clear();
    const std::vector<std::size_t> ends = addVarLabels(cfg, style);
    const std::size_t offset = text_.size();
    text_ += constants;
    std::size_t start = 0;
    std::size_t place = 0;
    for (const Var& var : cfg.vars()) {
        const std::size_t length = ends[place++] - start;
        vars_[var.id()] = std::string_view(text_).substr(start, length);
        start += length;
        longest_ = std::max(longest_, length);
    }
    for (std::size_t i = 0; i < places.size(); ++i) {
        consts_[i] = std::string_view(text_).substr(offset + places[i].first, places[i].second);
        longest_ = std::max(longest_, places[i].second);
    }
}

// Appends the labels in order of declaration and returns where each ends.
std::vector<std::size_t> Labels::addVarLabels(const Cfg& cfg, Style style) {
    std::unordered_map<std::string_view, std::uint32_t> count;
    for (const Var& var : cfg.vars()) {
        ++count[var.name()];
    }
    std::unordered_set<std::string> taken; // names and labels that a made-up label must not repeat
    std::unordered_map<std::string_view, std::uint32_t> lastNumber;
    std::vector<std::size_t> ends;
    std::uint32_t place = 0;
    for (const Var& var : cfg.vars()) {
        if (style == Style::Qnel) {
            const bool named = isIdentifier(var.name());
            text_ += '$';
            text_ += named ? var.name() : std::string_view();
            if (!named || count[var.name()] > 1) {
                text_ += '.';
                appendNumber(text_, place);
            }
        } else if (var.name().empty()) {
            std::string label = 't' + std::to_string(var.id());
            while (count.contains(label)) {
                label += '_';
            }
            text_ += label;
        } else {
            std::string label(var.name());
            if (style == Style::Disambiguate && count[var.name()] > 1) {
                std::uint32_t& number = lastNumber[var.name()];
                while (!taken.insert(label).second) {
                    do {
                        label = std::string(var.name()) + '_' + std::to_string(++number);
                    } while (count.contains(label));
                }
            }
            text_ += label;
        }
        ++place;
        ends.push_back(text_.size());
    }
    return ends;
}

} // namespace QN::text
