// Case folding of UTF-8 text for name ordering and filter matching.
#include "TLCaseFolding.h"

#include <cstdint>
#include <optional>

namespace {

// One decoded character, or nothing for a byte that starts no valid sequence.
struct Decoded
{
    std::optional<char32_t> scalar;
    std::size_t length = 1;
};

std::size_t sequenceLength(unsigned char lead)
{
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    return 0;
}

// Strict: overlong forms, surrogates and values beyond U+10FFFF are invalid,
// so that no two byte strings decode to the same characters.
Decoded decodeAt(std::string_view text, std::size_t position)
{
    const auto lead = static_cast<unsigned char>(text[position]);
    const std::size_t length = sequenceLength(lead);
    if (length == 1)
        return {char32_t(lead), 1};
    if (length == 0 || text.size() - position < length)
        return {};
    char32_t value = lead & (0x7F >> length);
    for (std::size_t index = 1; index < length; ++index) {
        const auto next = static_cast<unsigned char>(text[position + index]);
        if ((next & 0xC0) != 0x80)
            return {};
        value = (value << 6) | (next & 0x3F);
    }
    static constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < smallest[length] || (value >= 0xD800 && value <= 0xDFFF) || value > 0x10FFFF)
        return {};
    return {value, length};
}

// Lower-cases the capitals of the scripts a bin name is likely to use.
char32_t foldCase(char32_t c)
{
    if ((c >= U'A' && c <= U'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7))
        return c + 0x20;
    if (c == 0x178)
        return 0xFF;
    if (c == 0x130)
        return U'i';
    const bool evenCapitals = (c >= 0x100 && c <= 0x137) || (c >= 0x14A && c <= 0x177);
    if (evenCapitals && c % 2 == 0)
        return c + 1;
    const bool oddCapitals = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
    if (oddCapitals && c % 2 == 1)
        return c + 1;
    if (c >= 0x391 && c <= 0x3A9 && c != 0x3A2)
        return c + 0x20;
    if (c >= 0x410 && c <= 0x42F)
        return c + 0x20;
    if (c >= 0x400 && c <= 0x40F)
        return c + 0x50;
    return c;
}

// Invalid bytes are ordered in the lone-surrogate range, which valid text
// never decodes to: after every folded script, and apart from characters.
constexpr char32_t invalidByteBase = 0xDC00;

char32_t orderingKey(std::string_view text, std::size_t &position)
{
    const Decoded decoded = decodeAt(text, position);
    position += decoded.length;
    if (!decoded.scalar)
        return invalidByteBase + static_cast<unsigned char>(text[position - 1]);
    return foldCase(*decoded.scalar);
}

void appendUTF8(std::string &text, char32_t c)
{
    if (c < 0x80) {
        text += char(c);
    } else if (c < 0x800) {
        text += char(0xC0 | (c >> 6));
        text += char(0x80 | (c & 0x3F));
    } else {
        // Folded capitals all lie below U+0800; larger values are never re-encoded.
        text += char(0xE0 | (c >> 12));
        text += char(0x80 | ((c >> 6) & 0x3F));
        text += char(0x80 | (c & 0x3F));
    }
}

} // namespace

std::string TLCaseFolding::foldedCase(std::string_view text)
{
    std::string folded;
    folded.reserve(text.size());
    for (std::size_t position = 0; position < text.size();) {
        const Decoded decoded = decodeAt(text, position);
        const char32_t fold = decoded.scalar ? foldCase(*decoded.scalar) : 0;
        // Unchanged characters and invalid bytes are copied as they stand.
        if (decoded.scalar && fold != *decoded.scalar)
            appendUTF8(folded, fold);
        else
            folded.append(text.substr(position, decoded.length));
        position += decoded.length;
    }
    return folded;
}

std::weak_ordering TLCaseFolding::caseInsensitiveCompare(std::string_view left, std::string_view right)
{
    std::size_t leftPosition = 0;
    std::size_t rightPosition = 0;
    while (leftPosition < left.size() && rightPosition < right.size()) {
        const char32_t a = orderingKey(left, leftPosition);
        const char32_t b = orderingKey(right, rightPosition);
        if (a != b)
            return a < b ? std::weak_ordering::less : std::weak_ordering::greater;
    }
    const bool leftDone = leftPosition >= left.size();
    const bool rightDone = rightPosition >= right.size();
    if (leftDone && rightDone)
        return std::weak_ordering::equivalent;
    return leftDone ? std::weak_ordering::less : std::weak_ordering::greater;
}

bool TLCaseFolding::containsIgnoringCase(std::string_view text, std::string_view part)
{
    if (part.empty())
        return true;
    return foldedCase(text).find(foldedCase(part)) != std::string::npos;
}
