// Placeholder until the formatter lands: copies the format unchanged.
#include "TLFormat.h"

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

std::string TLFormat::stringWithFormat(std::string_view format, std::span<const TLFormatArgument>)
{
    return std::string(format);
}
