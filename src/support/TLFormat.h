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

// Formats the system's message formats: "%@", "%s", "%i", "%d", "%li", "%ld",
// "%lu", "%C", "%f" with an optional width and precision such as "%0.2f", and
// "%%". Never fails: a directive without a value prints nothing, a value of
// the wrong kind is converted as sensibly as possible, an unknown directive
// is copied literally, and surplus values are ignored.
class TLFormat
{
public:
    static std::string stringWithFormat(std::string_view format,
                                        std::span<const TLFormatArgument> values);

    template <typename... Values>
    static std::string stringWithFormat(std::string_view format, Values &&...values)
    {
        const TLFormatArgument arguments[] = {TLFormatArgument(std::forward<Values>(values))..., {}};
        return stringWithFormat(format, std::span<const TLFormatArgument>(arguments, sizeof...(Values)));
    }
};
