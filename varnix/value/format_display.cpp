// Values as a person reads them: disp, the prompt's echo, and the brief form in messages.
//
// Text is built in one growing string. Cells and structs list what they hold, indented; nesting
// deeper than maxNesting is cut to the brief form, so that no value is too deep to be shown.
#include "object/calls.hpp"
#include "value/errors.hpp"
#include "value/format.hpp"
#include "value/numeric.hpp"
#include "value/positions.hpp"

#include <objsys/class.hpp>

#include <algorithm>
#include <vector>

namespace varnix {
namespace {

constexpr std::size_t maxNesting = 8;     // levels of cells and structs that are listed
constexpr std::size_t maxBriefText = 60;  // characters of a text in the brief form
constexpr std::size_t maxBriefCount = 10; // elements of a row in the brief form

[[nodiscard]] std::string element(const Value& v, std::size_t i) {
    return formatScalar(elementAt(v, i));
}

/// A text as the language writes it, in double quotes.
[[nodiscard]] std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            if (const auto code = static_cast<unsigned char>(c); code < 0x20 || code == 0x7f)
                out += fmt::format("\\x{:02x}", code);
            else
                out += c;
        }
    }
    return out + "\"";
}

[[nodiscard]] std::string sizeAndClass(const Value& v) {
    return numeric::sizeText(v) + " " + className(v);
}

/// Rows of right-aligned columns.
void appendMatrix(std::string& out, const Value& v, std::string_view indent) {
    const std::size_t rows = v.rows();
    const std::size_t columns = v.columns();
    std::vector<std::string> texts;
    texts.reserve(v.count());
    std::vector<std::size_t> widths(columns, 0);
    for (std::size_t i = 0; i < v.count(); ++i) {
        texts.push_back(element(v, i));
        widths[i / rows] = std::max(widths[i / rows], texts.back().size());
    }
    for (std::size_t i = 0; i < rows; ++i) {
        out += indent;
        for (std::size_t j = 0; j < columns; ++j) {
            const std::string& text = texts[i + j * rows];
            out.append(widths[j] - text.size() + (j == 0 ? 0 : 2), ' ');
            out += text;
        }
        out += '\n';
    }
}

void appendCharacterRows(std::string& out, const Value& v, std::string_view indent) {
    const std::string_view all = v.textView();
    for (std::size_t i = 0; i < v.rows(); ++i) {
        out += indent;
        for (std::size_t j = 0; j < v.columns(); ++j)
            out += all[i + j * v.rows()];
        out += '\n';
    }
}

class Listing {
public:
    explicit Listing(std::string& out) : out_(out) {}

    /// What a cell, struct or object holds, a line each.
    void contents(const Value& v, std::size_t level) {
        if (v.isCell())
            cells(v, level);
        else if (v.isStruct())
            fields(v, level);
        else
            properties(v, level);
    }

private:
    void line(std::size_t level, std::string_view label, const Value& v) {
        out_.append(2 * level, ' ');
        out_ += label;
        const bool nests = (v.isCell() && v.count() != 0) || v.isStruct();
        if (nests && level < maxNesting) {
            out_ += v.isStruct() ? "struct\n" : numeric::sizeText(v) + " cell\n";
            contents(v, level + 1);
        } else {
            out_ += nests ? "..." : formatBrief(v);
            out_ += '\n';
        }
    }

    void cells(const Value& v, std::size_t level) {
        const bool linear = v.rows() == 1 || v.columns() == 1;
        for (std::size_t i = 0; i < v.count(); ++i)
            line(level,
                 linear ? fmt::format("{{{}}}: ", i + 1)
                        : fmt::format("{{{}, {}}}: ", i % v.rows() + 1, i / v.rows() + 1),
                 cellAt(v.array(), i));
    }

    void fields(const Value& v, std::size_t level) {
        for (const auto& [name, value] : structOf(v.array()).fields)
            line(level, name.str() + ": ", value);
    }

    void properties(const Value& v, std::size_t level) {
        objsys::COSInterface* const instance = v.array()->objects()[0];
        objsys::COSClass* const cls = instance->getClass();
        if (!cls || !instance->isValid())
            return;
        std::size_t width = 0;
        for (const objsys::COSProperty& p : cls->properties())
            if (!p.info->isHidden())
                width = std::max(width, p.name.str().size());
        for (const objsys::COSProperty& p : cls->properties())
            if (!p.info->isHidden())
                property(level, fmt::format("{:<{}}  ", p.name.str(), width), p, instance);
    }

    /// A line with the property's value, or with the message of a getter that raises.
    void property(std::size_t level, std::string_view label, const objsys::COSProperty& p,
                  objsys::COSInterface* instance) {
        Value value;
        try {
            value = getProperty(p, instance);
        } catch (const objsys::COSError& error) {
            out_.append(2 * level, ' ');
            out_ += label;
            out_ += "error: " + error.message() + "\n";
            return;
        }
        line(level, label, value);
    }

    std::string& out_;
};

[[nodiscard]] bool isDead(const Value& handle) {
    const objsys::COSInterface* instance = handle.array()->objects()[0];
    return instance && !instance->isValid();
}

[[nodiscard]] std::string objectBrief(const Value& v) {
    if (v.count() != 1)
        return sizeAndClass(v);
    if (!v.isHandle())
        return "empty " + className(v) + " object";
    return (isDead(v) ? "invalid " : "") + className(v) + " object";
}

/// What disp shows of a value, each line indented.
void appendDisplay(std::string& out, const Value& v, std::string_view indent) {
    const auto single = [&](std::string_view text) {
        out += indent;
        out += text;
        out += '\n';
    };
    if (v.isUnset())
        return single("nothing");
    if (v.isScalar())
        return single(formatScalar(v));
    if (v.isTextRow())
        return single(v.textView());
    if (v.isFunction())
        return single(functionOf(v.array()).describe());
    if (v.isObject()) {
        single(v.count() == 1 && v.isHandle() && !isDead(v) ? className(v) : objectBrief(v));
        if (v.isHandle())
            Listing(out).contents(v, 1);
        return;
    }
    if (v.isStruct()) {
        if (structOf(v.array()).fields.empty())
            return single("struct without fields");
        return Listing(out).contents(v, indent.size() / 2);
    }
    if (v.count() == 0)
        return single(formatBrief(v));
    if (v.isCell())
        return Listing(out).contents(v, indent.size() / 2);
    if (v.isChar())
        return appendCharacterRows(out, v, indent);
    appendMatrix(out, v, indent);
}

} // namespace

std::string formatDisplay(const Value& value) {
    std::string out;
    appendDisplay(out, value, "");
    return out;
}

std::string formatEcho(std::string_view name, const Value& value) {
    std::string out(name);
    out += " =";
    const bool oneLine = value.isUnset() || value.isScalar() || value.isTextRow() ||
                         value.isFunction() || value.count() == 0 ||
                         (value.isObject() && (!value.isHandle() || isDead(value))) ||
                         (value.isStruct() && structOf(value.array()).fields.empty());
    if (oneLine) {
        out += ' ';
        out += value.isTextRow()  ? quoted(value.textView())
               : value.isStruct() ? "struct without fields"
                                  : formatBrief(value);
        out += '\n';
    } else if (value.isObject()) {
        out += ' ';
        appendDisplay(out, value, "");
    } else {
        out += '\n';
        appendDisplay(out, value, "  ");
    }
    return out;
}

std::string formatBrief(const Value& value) {
    if (value.isUnset())
        return "nothing";
    if (value.isScalar())
        return formatScalar(value);
    if (value.isTextRow()) {
        const std::string_view text = value.textView();
        return text.size() <= maxBriefText ? quoted(text)
                                           : quoted(text.substr(0, maxBriefText)) + "...";
    }
    if (value.isFunction())
        return functionOf(value.array()).describe();
    if (value.isStruct())
        return "struct";
    if (value.isObject())
        return objectBrief(value);
    if (value.isCell())
        return value.rows() == 0 && value.columns() == 0 ? "{}" : "{" + sizeAndClass(value) + "}";
    if (value.rows() == 0 && value.columns() == 0)
        return value.classID() == hvDOUBLE_CLASS ? "[]" : sizeAndClass(value);
    if (value.isChar() || value.rows() != 1 || value.count() > maxBriefCount || value.count() == 0)
        return sizeAndClass(value);
    std::string out = "[";
    for (std::size_t i = 0; i < value.count(); ++i)
        out += (i == 0 ? "" : ", ") + element(value, i);
    return out + "]";
}

} // namespace varnix
