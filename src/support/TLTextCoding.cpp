// UTF-8 decoding to UTF-16 units, UTF-8 validation and percent decoding.
#include "TLTextCoding.h"

namespace {

constexpr char16_t kReplacementCharacter = 0xFFFD;

bool isContinuationByte(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

// Decodes one UTF-8 sequence at `index`; nullopt when it is malformed,
// overlong, a surrogate or beyond U+10FFFF. `length` receives its size (1
// for a malformed sequence, so that a caller skips just the bad byte).
std::optional<char32_t> decodeUTF8(std::string_view text, std::size_t index, std::size_t &length)
{
    const auto lead = static_cast<unsigned char>(text[index]);
    length = 1;
    if (lead < 0x80)
        return lead;
    const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
    if (size == 0 || lead > 0xF4 || index + size > text.size())
        return std::nullopt;
    char32_t point = lead & (0x7F >> size);
    for (std::size_t offset = 1; offset < size; ++offset) {
        const auto byte = static_cast<unsigned char>(text[index + offset]);
        if (!isContinuationByte(byte))
            return std::nullopt;
        point = (point << 6) | (byte & 0x3F);
    }
    static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < kSmallest[size] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF))
        return std::nullopt;
    length = size;
    return point;
}

int hexDigitValue(char character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    return -1;
}

} // namespace

bool TLTextCoding::isValidUTF8(std::string_view text)
{
    std::size_t length = 0;
    for (std::size_t index = 0; index < text.size(); index += length) {
        if (!decodeUTF8(text, index, length))
            return false;
    }
    return true;
}

std::u16string TLTextCoding::utf16Units(std::string_view text)
{
    std::u16string units;
    units.reserve(text.size());
    std::size_t length = 0;
    for (std::size_t index = 0; index < text.size(); index += length) {
        const std::optional<char32_t> point = decodeUTF8(text, index, length);
        if (!point) {
            units.push_back(kReplacementCharacter);
        } else if (*point < 0x10000) {
            units.push_back(static_cast<char16_t>(*point));
        } else {
            units.push_back(static_cast<char16_t>(0xD800 + ((*point - 0x10000) >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + ((*point - 0x10000) & 0x3FF)));
        }
    }
    return units;
}

std::size_t TLTextCoding::utf16Length(std::string_view text)
{
    std::size_t units = 0;
    std::size_t length = 0;
    for (std::size_t index = 0; index < text.size(); index += length) {
        const std::optional<char32_t> point = decodeUTF8(text, index, length);
        units += point && *point >= 0x10000 ? 2 : 1;
    }
    return units;
}

bool TLTextCoding::isPercentEscapeAt(std::string_view text, std::size_t index)
{
    return index + 2 < text.size() && text[index] == '%' && hexDigitValue(text[index + 1]) >= 0
           && hexDigitValue(text[index + 2]) >= 0;
}

std::optional<std::string> TLTextCoding::percentDecoded(std::string_view text, EscapedBytes allowed)
{
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] != '%') {
            decoded.push_back(text[index]);
            continue;
        }
        if (!isPercentEscapeAt(text, index))
            return std::nullopt;
        const int byte = hexDigitValue(text[index + 1]) * 16 + hexDigitValue(text[index + 2]);
        if (allowed == EscapedBytes::AsciiOnly && byte > 127)
            return std::nullopt;
        decoded.push_back(static_cast<char>(byte));
        index += 2;
    }
    return decoded;
}

std::vector<std::string> TLTextCoding::componentsSeparatedByString(std::string_view text, char separator)
{
    std::vector<std::string> components;
    std::size_t start = 0;
    for (std::size_t at = text.find(separator); at != std::string_view::npos; at = text.find(separator, start)) {
        components.emplace_back(text.substr(start, at - start));
        start = at + 1;
    }
    components.emplace_back(text.substr(start));
    return components;
}
