// printf and sprintf of the script language.
//
// The format is parsed piece by piece; each conversion takes the next element of the arguments. A
// text is one element for %s and one element per character for %c. The format starts over until
// the elements are used up, and stops at the first conversion that finds none. Without any element
// it runs once and conversions give nothing.
#include "value/errors.hpp"
#include "value/format.hpp"
#include "value/numeric.hpp"

#include <charconv>
#include <cstdio>
#include <vector>

namespace varnix {
namespace {

constexpr int maxWidth = 100000;
constexpr std::size_t maxNesting = 1000;

[[noreturn]] void failFormat(std::string_view format, std::string_view problem) {
    fail(id::badArgument, "format \"{}\": {}", format, problem);
}

/// The elements of all arguments, taken one by one.
class Elements {
public:
    explicit Elements(std::span<const Value> arguments) {
        for (const Value& argument : arguments)
            add(argument, 0);
    }
    [[nodiscard]] bool empty() const { return items_.empty(); }
    [[nodiscard]] bool usedUp() const { return next_ == items_.size(); }
    [[nodiscard]] const Value& peek() const { return items_[next_]; }
    [[nodiscard]] Value take() {
        const Value item = items_[next_++];
        if (character_ != 0) { // the rest of a text of which %c took the beginning
            const Value rest = Value::text(item.textView().substr(character_));
            character_ = 0;
            return rest;
        }
        return item;
    }
    /// The next character of a text, for %c.
    [[nodiscard]] std::string takeCharacter() {
        const std::string_view text = items_[next_].textView();
        if (text.empty()) {
            ++next_;
            return {};
        }
        const std::string one(1, text[character_++]);
        if (character_ == text.size()) {
            character_ = 0;
            ++next_;
        }
        return one;
    }

private:
    void add(const Value& v, std::size_t level) {
        if (v.isCell()) {
            if (level == maxNesting)
                fail(id::tooDeep, "the cells to be printed are nested too deep");
            for (std::size_t i = 0; i < v.count(); ++i)
                add(cellAt(v.array(), i), level + 1);
        } else if (v.isTextRow()) {
            items_.push_back(v);
        } else if (v.isNumeric() || v.isLogical() || v.isChar()) {
            for (std::size_t i = 0; i < v.count(); ++i)
                items_.push_back(elementAt(v, i));
        } else {
            fail(id::badArgument, "{} cannot be printed by a format; use disp", className(v));
        }
    }

    std::vector<Value> items_;
    std::size_t next_ = 0;
    std::size_t character_ = 0;
};

/// One conversion of a format.
struct Conversion {
    std::string flags;
    int width = -1;
    int precision = -1;
    bool starWidth = false;
    bool starPrecision = false;
    char letter = 0;
};

[[nodiscard]] int parseNumber(std::string_view format, std::size_t& at) {
    int number = 0;
    const auto [end, error] =
        std::from_chars(format.data() + at, format.data() + format.size(), number);
    if (error != std::errc() || number > maxWidth)
        failFormat(format, "a width or precision is too large");
    at = static_cast<std::size_t>(end - format.data());
    return number;
}

[[nodiscard]] bool isDigitAt(std::string_view format, std::size_t at) {
    return at < format.size() && format[at] >= '0' && format[at] <= '9';
}

/// Parses a conversion whose percent sign was read; `at` moves behind it.
[[nodiscard]] Conversion parseConversion(std::string_view format, std::size_t& at) {
    Conversion c;
    const auto here = [&] { return at < format.size() ? format[at] : '\0'; };
    while (here() != '\0' && std::string_view("-+ 0#").find(here()) != std::string_view::npos)
        c.flags += format[at++];
    if (here() == '*') {
        c.starWidth = true;
        ++at;
    } else if (isDigitAt(format, at)) {
        c.width = parseNumber(format, at);
    }
    if (here() == '.') {
        ++at;
        c.precision = 0;
        if (here() == '*') {
            c.starPrecision = true;
            ++at;
        } else if (isDigitAt(format, at)) {
            c.precision = parseNumber(format, at);
        }
    }
    while (here() == 'l' || here() == 'h') // lengths mean nothing here and are let pass
        ++at;
    c.letter = here();
    if (c.letter == '\0')
        failFormat(format, "it ends within a conversion");
    if (std::string_view("diuxXocsfeEgGa").find(c.letter) == std::string_view::npos)
        failFormat(format, fmt::format("there is no conversion %{}", c.letter));
    ++at;
    return c;
}

class Printer {
public:
    Printer(std::string_view format, std::span<const Value> arguments)
        : format_(format), elements_(arguments) {}

    [[nodiscard]] std::string run() {
        do {
            const bool took = pass();
            if (!took && !elements_.usedUp())
                failFormat(format_, "it takes no arguments, but there are some");
        } while (!elements_.usedUp());
        return std::move(out_);
    }

private:
    /// Goes through the format once; true when it took elements.
    bool pass() {
        bool took = false;
        for (std::size_t at = 0; at < format_.size();) {
            const char c = format_[at++];
            if (c != '%') {
                out_ += c;
                continue;
            }
            if (at < format_.size() && format_[at] == '%') {
                out_ += '%';
                ++at;
                continue;
            }
            Conversion conversion = parseConversion(format_, at);
            if (elements_.empty())
                continue;
            if (elements_.usedUp()) {
                checkRest(at);
                return took;
            }
            took = true;
            print(conversion);
        }
        return took;
    }

    /// A malformed conversion is an error also behind the place where the elements ran out.
    void checkRest(std::size_t at) const {
        while (at < format_.size())
            if (format_[at++] == '%') {
                if (at < format_.size() && format_[at] == '%')
                    ++at;
                else
                    (void)parseConversion(format_, at);
            }
    }

    [[nodiscard]] int takeStar() {
        if (elements_.usedUp())
            failFormat(format_, "there is no argument for *");
        const double n = toDouble(elements_.take());
        if (!(std::fabs(n) <= maxWidth) || n != std::trunc(n))
            failFormat(format_, "a width or precision is no suitable whole number");
        return static_cast<int>(n);
    }

    [[nodiscard]] double toDouble(const Value& v) const {
        if (!v.isScalar())
            failFormat(format_, "a number is needed, not a text");
        return numeric::View(v).at(0);
    }

    void print(Conversion c) {
        if (c.starWidth) {
            c.width = takeStar();
            if (c.width < 0) {
                c.flags += '-';
                c.width = -c.width;
            }
        }
        if (c.starPrecision)
            c.precision = takeStar();
        if (elements_.usedUp())
            failFormat(format_, "there is no argument left for a conversion");
        switch (c.letter) {
        case 's':
            printText(c, formatScalar(elements_.take()));
            break;
        case 'c':
            printText(c, elements_.peek().isChar() ? elements_.takeCharacter()
                                                   : character(elements_.take()));
            break;
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o':
            printWhole(c, elements_.take());
            break;
        default:
            printWith(c, "", toDouble(elements_.take()));
            break;
        }
    }

    [[nodiscard]] std::string character(const Value& v) const {
        const double code = toDouble(v);
        if (!(code >= 0 && code <= 255 && code == std::trunc(code)))
            failFormat(format_, "%c needs a text or a code from 0 to 255");
        return std::string(1, static_cast<char>(static_cast<unsigned char>(code)));
    }

    void printText(const Conversion& c, std::string text) {
        if (c.precision >= 0 && text.size() > static_cast<std::size_t>(c.precision))
            text.resize(static_cast<std::size_t>(c.precision));
        const std::size_t width = c.width < 0 ? 0 : static_cast<std::size_t>(c.width);
        const std::size_t blanks = width > text.size() ? width - text.size() : 0;
        const bool left = c.flags.find('-') != std::string::npos;
        out_.append(left ? 0 : blanks, ' ');
        out_ += text;
        out_.append(left ? blanks : 0, ' ');
    }

    /// A double that is not whole, or beyond 64 bits, prints as a number rather than cut.
    void printWhole(Conversion c, const Value& v) {
        const bool hexadecimal = c.letter != 'd' && c.letter != 'i' && c.letter != 'u';
        if (v.isInteger()) {
            if (!numeric::isSignedClass(v.classID())) {
                c.letter = hexadecimal ? c.letter : 'u';
                printWith(c, "ll", static_cast<unsigned long long>(v.asUnsigned()));
            } else if (hexadecimal) {
                const std::size_t bits = 8 * elementSize(v.classID());
                const std::uint64_t mask =
                    bits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
                printWith(c, "ll",
                          static_cast<unsigned long long>(static_cast<std::uint64_t>(v.asSigned()) &
                                                          mask));
            } else {
                c.letter = 'd';
                printWith(c, "ll", static_cast<long long>(v.asSigned()));
            }
            return;
        }
        const double d = toDouble(v);
        if (hexadecimal) {
            if (!(d >= 0 && d < 0x1p64 && d == std::trunc(d)))
                failFormat(format_,
                           fmt::format("%{} needs a whole number from 0 to 2^64 - 1, not {}",
                                       c.letter, formatNumber(d)));
            printWith(c, "ll", static_cast<unsigned long long>(d));
        } else if (d == std::trunc(d) && std::fabs(d) < 0x1p63) {
            c.letter = 'd';
            printWith(c, "ll", static_cast<long long>(d));
        } else {
            c.precision = -1;
            printText(c, formatNumber(d));
        }
    }

    template <class T>
    void printWith(const Conversion& c, const char* length, T number) {
        std::string spec = "%" + c.flags;
        if (c.width >= 0)
            spec += std::to_string(c.width);
        if (c.precision >= 0)
            spec += "." + std::to_string(c.precision);
        spec += length;
        spec += c.letter;
        if constexpr (std::is_floating_point_v<T>) {
            if (!std::isfinite(number)) { // C pads with zeros or not as it likes
                Conversion plain = c;
                plain.precision = -1;
                const bool plus = c.flags.find('+') != std::string::npos && number > 0;
                return printText(plain, (plus ? "+" : "") + formatNumber(number));
            }
        }
        const int n = std::snprintf(nullptr, 0, spec.c_str(), number);
        const std::size_t before = out_.size();
        out_.resize(before + static_cast<std::size_t>(n) + 1);
        std::snprintf(out_.data() + before, static_cast<std::size_t>(n) + 1, spec.c_str(), number);
        out_.pop_back();
    }

    std::string_view format_;
    Elements elements_;
    std::string out_;
};

} // namespace

std::string formatPrintf(std::string_view format, std::span<const Value> arguments) {
    return Printer(format, arguments).run();
}

} // namespace varnix
