// The message formatter: a small, forgiving printf for the application's formats.
#include "TLFormat.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <limits>

namespace {

// Widths and precisions come from message formats, which may be damaged; a
// huge number must not turn into a huge allocation.
constexpr std::size_t maximumFieldSize = 4096;
constexpr std::string_view nullText = "(null)";

struct Directive
{
    bool leftAlign = false;
    bool plusSign = false;
    bool spaceSign = false;
    bool alternate = false;
    bool zeroPad = false;
    std::size_t width = 0;
    std::optional<std::size_t> precision;
    char conversion = 0;
};

bool isConversion(char c)
{
    return std::string_view("@sdiuxXfFeEgGC%").find(c) != std::string_view::npos;
}

std::size_t readNumber(std::string_view format, std::size_t &position)
{
    std::size_t number = 0;
    while (position < format.size() && format[position] >= '0' && format[position] <= '9') {
        number = std::min(number * 10 + std::size_t(format[position] - '0'), maximumFieldSize);
        ++position;
    }
    return number;
}

void readFlags(std::string_view format, std::size_t &position, Directive &directive)
{
    for (; position < format.size(); ++position) {
        switch (format[position]) {
        case '-': directive.leftAlign = true; break;
        case '+': directive.plusSign = true; break;
        case ' ': directive.spaceSign = true; break;
        case '#': directive.alternate = true; break;
        case '0': directive.zeroPad = true; break;
        default: return;
        }
    }
}

// Reads the directive after a '%' at `position`. Leaves `position` after it
// and returns it, or returns nullopt for an unknown or unfinished directive.
std::optional<Directive> readDirective(std::string_view format, std::size_t &position)
{
    Directive directive;
    readFlags(format, position, directive);
    directive.width = readNumber(format, position);
    if (position < format.size() && format[position] == '.') {
        ++position;
        directive.precision = readNumber(format, position);
    }
    while (position < format.size() && std::string_view("hlqLzjt").find(format[position]) != std::string_view::npos)
        ++position;
    if (position >= format.size() || !isConversion(format[position]))
        return std::nullopt;
    directive.conversion = format[position++];
    return directive;
}

std::size_t characterCount(std::string_view text)
{
    return std::size_t(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

// The first `count` characters of UTF-8 text.
std::string_view leadingCharacters(std::string_view text, std::size_t count)
{
    std::size_t end = 0;
    for (std::size_t seen = 0; end < text.size(); ++end) {
        if ((static_cast<unsigned char>(text[end]) & 0xC0) != 0x80 && seen++ == count)
            break;
    }
    return text.substr(0, end);
}

void appendPadded(std::string &out, std::string_view prefix, std::string_view body,
                  const Directive &directive, bool zeroPadAllowed)
{
    const std::size_t size = characterCount(prefix) + characterCount(body);
    const std::size_t fill = directive.width > size ? directive.width - size : 0;
    if (directive.leftAlign) {
        out.append(prefix).append(body).append(fill, ' ');
    } else if (directive.zeroPad && zeroPadAllowed) {
        out.append(prefix).append(fill, '0').append(body);
    } else {
        out.append(fill, ' ').append(prefix).append(body);
    }
}

void appendText(std::string &out, std::string_view text, const Directive &directive)
{
    if (directive.precision)
        text = leadingCharacters(text, *directive.precision);
    appendPadded(out, {}, text, directive, false);
}

std::string shortestReal(double value)
{
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

// What "%@" prints for a value of any kind.
std::string describe(const TLFormatArgument::Value &value)
{
    struct Visitor
    {
        std::string operator()(std::monostate) const { return std::string(nullText); }
        std::string operator()(const std::string &text) const { return text; }
        std::string operator()(std::int64_t number) const { return std::to_string(number); }
        std::string operator()(std::uint64_t number) const { return std::to_string(number); }
        std::string operator()(double number) const { return shortestReal(number); }
        std::string operator()(TLFormatArgument::Character character) const
        {
            return TLFormat::utf8ForCodePoint(character.unit);
        }
    };
    return std::visit(Visitor{}, value);
}

std::string digitsOf(std::uint64_t number, int base, std::optional<std::size_t> precision)
{
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, number, base);
    std::string digits(buffer, result.ptr);
    if (!precision)
        return digits;
    if (*precision == 0 && number == 0)
        return {};
    if (digits.size() < *precision)
        digits.insert(0, *precision - digits.size(), '0');
    return digits;
}

std::uint64_t magnitude(std::int64_t number)
{
    return number < 0 ? std::uint64_t(-(number + 1)) + 1 : std::uint64_t(number);
}

// Reals given to an integer directive keep their integral part; the cast
// alone would be undefined outside the 64-bit range.
std::int64_t integralPart(double number)
{
    if (std::isnan(number))
        return 0;
    if (number >= 9223372036854775807.0)
        return std::numeric_limits<std::int64_t>::max();
    if (number <= -9223372036854775808.0)
        return std::numeric_limits<std::int64_t>::min();
    return std::int64_t(number);
}

std::string signPrefix(bool negative, const Directive &directive)
{
    if (negative)
        return "-";
    if (directive.plusSign)
        return "+";
    return directive.spaceSign ? " " : "";
}

void appendInteger(std::string &out, bool negative, std::uint64_t number, const Directive &directive)
{
    const char conversion = directive.conversion;
    if (conversion == 'x' || conversion == 'X') {
        if (negative)
            number = ~number + 1;
        std::string digits = digitsOf(number, 16, directive.precision);
        if (conversion == 'X')
            std::transform(digits.begin(), digits.end(), digits.begin(), [](char c) { return char(std::toupper(c)); });
        const std::string prefix = directive.alternate && number != 0 ? (conversion == 'X' ? "0X" : "0x") : "";
        appendPadded(out, prefix, digits, directive, !directive.precision);
        return;
    }
    Directive signedDirective = directive;
    if (conversion == 'u')
        signedDirective.plusSign = signedDirective.spaceSign = false;
    appendPadded(out, signPrefix(negative, signedDirective), digitsOf(number, 10, directive.precision),
                 directive, !directive.precision);
}

std::chars_format realStyle(char conversion)
{
    switch (std::tolower(conversion)) {
    case 'e': return std::chars_format::scientific;
    case 'g': return std::chars_format::general;
    default: return std::chars_format::fixed;
    }
}

std::string realDigits(double number, const Directive &directive)
{
    if (std::isnan(number))
        return "nan";
    if (std::isinf(number))
        return "inf";
    std::size_t precision = directive.precision.value_or(6);
    if (std::tolower(directive.conversion) == 'g' && precision == 0)
        precision = 1;
    // The largest double has 309 integral digits in fixed notation.
    std::string buffer(precision + 400, '\0');
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number,
                                      realStyle(directive.conversion), int(precision));
    if (result.ec != std::errc())
        return {};
    buffer.resize(std::size_t(result.ptr - buffer.data()));
    if (directive.alternate && precision == 0 && std::tolower(directive.conversion) == 'f')
        buffer += '.';
    return buffer;
}

void appendReal(std::string &out, double number, const Directive &directive)
{
    const bool negative = std::signbit(number) && !std::isnan(number);
    std::string digits = realDigits(std::fabs(number), directive);
    if (std::isupper(directive.conversion))
        std::transform(digits.begin(), digits.end(), digits.begin(), [](char c) { return char(std::toupper(c)); });
    appendPadded(out, signPrefix(negative, directive), digits, directive, std::isfinite(number));
}

void appendNumberDirective(std::string &out, const TLFormatArgument::Value &value, const Directive &directive)
{
    const bool real = std::string_view("fFeEgG").find(directive.conversion) != std::string_view::npos;
    if (const auto *number = std::get_if<std::int64_t>(&value))
        return real ? appendReal(out, double(*number), directive)
                    : appendInteger(out, *number < 0, magnitude(*number), directive);
    if (const auto *number = std::get_if<std::uint64_t>(&value))
        return real ? appendReal(out, double(*number), directive) : appendInteger(out, false, *number, directive);
    if (const auto *character = std::get_if<TLFormatArgument::Character>(&value))
        return real ? appendReal(out, double(character->unit), directive)
                    : appendInteger(out, false, character->unit, directive);
    if (const auto *number = std::get_if<double>(&value)) {
        if (real)
            return appendReal(out, *number, directive);
        const std::int64_t integral = integralPart(*number);
        return appendInteger(out, integral < 0, magnitude(integral), directive);
    }
    appendText(out, describe(value), directive);
}

void appendCharacterDirective(std::string &out, const TLFormatArgument::Value &value, const Directive &directive)
{
    if (const auto *number = std::get_if<std::int64_t>(&value))
        return appendText(out, TLFormat::utf8ForCodePoint(*number < 0 ? 0xFFFD : std::uint32_t(std::min<std::int64_t>(*number, 0x110000))), directive);
    if (const auto *number = std::get_if<std::uint64_t>(&value))
        return appendText(out, TLFormat::utf8ForCodePoint(std::uint32_t(std::min<std::uint64_t>(*number, 0x110000))), directive);
    appendText(out, describe(value), directive);
}

void appendDirective(std::string &out, const Directive &directive, const TLFormatArgument &argument)
{
    switch (directive.conversion) {
    case '@':
    case 's':
        return appendText(out, describe(argument.value()), directive);
    case 'C':
        return appendCharacterDirective(out, argument.value(), directive);
    default:
        return appendNumberDirective(out, argument.value(), directive);
    }
}

} // namespace

TLFormatArgument::TLFormatArgument(const char *text)
{
    if (text)
        m_value = std::string(text);
}

TLFormatArgument::TLFormatArgument(const std::optional<std::string> &text)
{
    if (text)
        m_value = *text;
}

TLFormatArgument TLFormatArgument::character(char16_t unit)
{
    TLFormatArgument argument;
    argument.m_value = Character{unit};
    return argument;
}

std::string TLFormat::utf8ForCodePoint(std::uint32_t codePoint)
{
    if ((codePoint >= 0xD800 && codePoint <= 0xDFFF) || codePoint > 0x10FFFF)
        codePoint = 0xFFFD;
    std::string out;
    if (codePoint < 0x80) {
        out += char(codePoint);
    } else if (codePoint < 0x800) {
        out += char(0xC0 | (codePoint >> 6));
        out += char(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        out += char(0xE0 | (codePoint >> 12));
        out += char(0x80 | ((codePoint >> 6) & 0x3F));
        out += char(0x80 | (codePoint & 0x3F));
    } else {
        out += char(0xF0 | (codePoint >> 18));
        out += char(0x80 | ((codePoint >> 12) & 0x3F));
        out += char(0x80 | ((codePoint >> 6) & 0x3F));
        out += char(0x80 | (codePoint & 0x3F));
    }
    return out;
}

std::string TLFormat::stringWithFormat(std::string_view format, std::span<const TLFormatArgument> values)
{
    std::string out;
    out.reserve(format.size());
    std::size_t nextValue = 0;
    std::size_t position = 0;
    while (position < format.size()) {
        const std::size_t percent = format.find('%', position);
        out.append(format.substr(position, percent - position));
        if (percent == std::string_view::npos)
            break;
        position = percent + 1;
        const auto directive = readDirective(format, position);
        if (!directive) {
            // Copied literally: the characters after the '%' are plain text.
            out += '%';
            position = percent + 1;
            continue;
        }
        if (directive->conversion == '%') {
            out += '%';
            continue;
        }
        if (nextValue < values.size())
            appendDirective(out, *directive, values[nextValue++]);
    }
    return out;
}
