// Encoding the values of a binary property list.
#include "TLBinaryPropertyListEncoding.h"

#include "TLTextCoding.h"

#include <algorithm>
#include <bit>

namespace {

// A count of 15 or more does not fit a marker's nibble.
constexpr std::uint64_t longCount = 0xF;

} // namespace

unsigned TLBinaryPropertyListEncoding::byteWidth(std::uint64_t value)
{
    unsigned width = 1;
    while (width < 8 && (value >> (8 * width)) != 0)
        ++width;
    return width;
}

unsigned TLBinaryPropertyListEncoding::powerOfTwoWidth(std::uint64_t value)
{
    if (value <= 0xFF)
        return 1;
    if (value <= 0xFFFF)
        return 2;
    return value <= 0xFFFFFFFF ? 4 : 8;
}

void TLBinaryPropertyListEncoding::appendBigEndian(std::string &out, std::uint64_t value, unsigned width)
{
    for (unsigned shift = 8 * width; shift > 0; shift -= 8)
        out.push_back(static_cast<char>((value >> (shift - 8)) & 0xFF));
}

void TLBinaryPropertyListEncoding::appendInteger(std::string &out, std::uint64_t value)
{
    const unsigned width = (value >> 63) != 0 ? 8 : powerOfTwoWidth(value);
    out.push_back(static_cast<char>(integerMarker | std::countr_zero(width)));
    appendBigEndian(out, value, width);
}

void TLBinaryPropertyListEncoding::appendMarkerWithCount(std::string &out, unsigned char marker, std::uint64_t count)
{
    if (count < longCount) {
        out.push_back(static_cast<char>(marker | count));
        return;
    }
    out.push_back(static_cast<char>(marker | longCount));
    appendInteger(out, count);
}

void TLBinaryPropertyListEncoding::appendString(std::string &out, std::string_view text)
{
    if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
        appendMarkerWithCount(out, asciiMarker, text.size());
        out.append(text);
        return;
    }
    const std::u16string units = TLTextCoding::utf16Units(text);
    appendMarkerWithCount(out, unicodeMarker, units.size());
    for (const char16_t unit : units)
        appendBigEndian(out, unit, 2);
}

void TLBinaryPropertyListEncoding::appendUid(std::string &out, std::uint64_t uid)
{
    const unsigned width = powerOfTwoWidth(uid);
    out.push_back(static_cast<char>(uidMarker | (width - 1)));
    appendBigEndian(out, uid, width);
}
