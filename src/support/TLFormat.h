// Printf-style formatting of the application's message formats.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

// One value handed to a message format. Strings stand for "%@" and "%s",
// integers for "%i", "%d", "%li", "%ld" and "%lu", reals for "%f" forms and a
// UTF-16 code unit (made with `character`) for "%C". An absent value prints
// as "(null)".
class TLFormatArgument
{
public:
    struct Character { char16_t unit; };
    using Value = std::variant<std::monostate, std::string, std::int64_t,
                               std::uint64_t, double, Character>;

    TLFormatArgument() = default;
    TLFormatArgument(std::nullptr_t) {}
    TLFormatArgument(const char *text);
    TLFormatArgument(std::string_view text) : m_value(std::string(text)) {}
    TLFormatArgument(const std::string &text) : m_value(text) {}
    TLFormatArgument(std::string &&text) : m_value(std::move(text)) {}
    TLFormatArgument(const std::optional<std::string> &text);
    TLFormatArgument(bool flag) : m_value(std::int64_t(flag)) {}
    TLFormatArgument(int number) : m_value(std::int64_t(number)) {}
    TLFormatArgument(long number) : m_value(std::int64_t(number)) {}
    TLFormatArgument(long long number) : m_value(std::int64_t(number)) {}
    TLFormatArgument(unsigned number) : m_value(std::uint64_t(number)) {}
    TLFormatArgument(unsigned long number) : m_value(std::uint64_t(number)) {}
    TLFormatArgument(unsigned long long number) : m_value(std::uint64_t(number)) {}
    TLFormatArgument(double number) : m_value(number) {}

    // A "%C" value: one UTF-16 code unit, printed as the character it encodes
    // (a lone surrogate prints as U+FFFD).
    static TLFormatArgument character(char16_t unit);

    const Value &value() const { return m_value; }

private:
    Value m_value;
};

// Formats the system's message formats. Never fails and never reads past the
// format or the values.
//
// Directives: "%@" and "%s" (text), "%d" and "%i" (signed), "%u" (unsigned),
// "%x"/"%X" (hexadecimal), "%f"/"%F", "%e"/"%E", "%g"/"%G" (reals), "%C" (one
// UTF-16 code unit) and "%%" (a percent sign). Each may carry the flags
// "-+ #0", a width and a precision ("%0.2f", "%-8@", "%5li"); length
// modifiers ("l", "ll", "h", "q", "z", "j", "t", "L") are accepted and
// ignored, since every value knows its own type. Widths and precisions above
// 4096 are cut to 4096. For text, the width counts characters (not bytes) and
// the precision keeps at most that many characters.
//
// Where the format and the values disagree:
// - an absent value (nullptr, an empty optional) prints "(null)";
// - a directive with no value left prints nothing;
// - surplus values are ignored;
// - a number for "%@" or "%s" prints the number ("3", "-2", "0.5"), a "%C"
//   value prints its character;
// - a text for a number directive or for "%C" prints the text unchanged, a
//   real for "%C" prints the number, a "%C" value for a number directive
//   prints its code unit;
// - a real for "%d", "%i", "%u" or "%x" prints its integral part (saturated to
//   the 64-bit range, NaN as 0); an integer for a real directive is widened;
// - a negative integer for "%u" prints with its sign; for "%x" it prints its
//   64-bit two's complement;
// - "%C" with an integer takes it as a code point: surrogates and values
//   beyond U+10FFFF print U+FFFD; code unit 0 prints a NUL character;
// - an unknown or unfinished directive ("%q", "%5", a trailing "%") is copied
//   literally and takes no value.
class TLFormat
{
public:
    // `format` filled with `values` as described above.
    static std::string stringWithFormat(std::string_view format,
                                        std::span<const TLFormatArgument> values);

    template <typename... Values>
    static std::string stringWithFormat(std::string_view format, Values &&...values)
    {
        const TLFormatArgument arguments[] = {TLFormatArgument(std::forward<Values>(values))..., {}};
        return stringWithFormat(format, std::span<const TLFormatArgument>(arguments, sizeof...(Values)));
    }

    // The UTF-8 encoding of `codePoint`; U+FFFD for surrogates and values
    // beyond U+10FFFF.
    static std::string utf8ForCodePoint(std::uint32_t codePoint);
};
