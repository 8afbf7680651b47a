// Smart range items and their case-insensitive name ordering.
#include "TLSmartRangeItem.h"

namespace {

// Invalid UTF-8 bytes are mapped into the lone-surrogate range, which valid
// text never decodes to, so that distinct byte strings stay distinct.
constexpr char32_t invalidByteBase = 0xDC00;

char32_t decodeNext(std::string_view text, std::size_t &position)
{
    const auto lead = static_cast<unsigned char>(text[position]);
    const int length = lead < 0x80 ? 1 : (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
    if (length == 1 || length == 0 || position + std::size_t(length) > text.size()) {
        ++position;
        return length == 1 ? char32_t(lead) : invalidByteBase + lead;
    }
    char32_t value = lead & (0x7F >> length);
    for (int i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[position + std::size_t(i)]);
        if ((next & 0xC0) != 0x80) {
            ++position;
            return invalidByteBase + lead;
        }
        value = (value << 6) | (next & 0x3F);
    }
    position += std::size_t(length);
    return value;
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

} // namespace

TLSmartRangeItem::TLSmartRangeItem(std::string binName, std::int64_t criteria) : m_criteria(criteria)
{
    setBinName(std::move(binName));
}

std::shared_ptr<TLSmartRangeItem> TLSmartRangeItem::create(std::string binName, std::int64_t criteria)
{
    return std::make_shared<TLSmartRangeItem>(std::move(binName), criteria);
}

std::weak_ordering TLSmartRangeItem::nameCompare(const TLSmartRangeItem &other) const
{
    return caseInsensitiveCompare(binName(), other.binName());
}

std::weak_ordering TLSmartRangeItem::caseInsensitiveCompare(std::string_view left, std::string_view right)
{
    std::size_t leftPosition = 0;
    std::size_t rightPosition = 0;
    while (leftPosition < left.size() && rightPosition < right.size()) {
        const char32_t a = foldCase(decodeNext(left, leftPosition));
        const char32_t b = foldCase(decodeNext(right, rightPosition));
        if (a != b)
            return a < b ? std::weak_ordering::less : std::weak_ordering::greater;
    }
    const bool leftDone = leftPosition >= left.size();
    const bool rightDone = rightPosition >= right.size();
    if (leftDone && rightDone)
        return std::weak_ordering::equivalent;
    return leftDone ? std::weak_ordering::less : std::weak_ordering::greater;
}
