// The pieces of the "bplist00" format that every binary property-list
// writer of the application shares.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class TLBinaryPropertyListEncoding
{
public:
    static constexpr std::string_view header = "bplist00";

    // Object markers; the low nibble holds a size or a count.
    static constexpr unsigned char falseMarker = 0x08;
    static constexpr unsigned char trueMarker = 0x09;
    static constexpr unsigned char integerMarker = 0x10;
    static constexpr unsigned char realMarker = 0x23; // 8-byte real
    static constexpr unsigned char dateMarker = 0x33;
    static constexpr unsigned char dataMarker = 0x40;
    static constexpr unsigned char asciiMarker = 0x50;
    static constexpr unsigned char unicodeMarker = 0x60;
    static constexpr unsigned char uidMarker = 0x80;
    static constexpr unsigned char arrayMarker = 0xA0;
    static constexpr unsigned char dictionaryMarker = 0xD0;

    // The fewest bytes that hold `value` (1 to 8): the width of references
    // and offsets.
    static unsigned byteWidth(std::uint64_t value);
    // Integers and UIDs are read back most widely in 1, 2, 4 or 8 bytes.
    static unsigned powerOfTwoWidth(std::uint64_t value);

    static void appendBigEndian(std::string &out, std::uint64_t value, unsigned width);
    // 1, 2 and 4-byte integers read as unsigned and 8-byte ones as signed,
    // so a value with the high bit set (a negative number kept by cast) goes
    // out in 8 bytes and reads back as the same bits.
    static void appendInteger(std::string &out, std::uint64_t value);
    // A marker with a count in its low nibble, or, for 15 and more, the
    // nibble 0xF followed by the count as an integer object.
    static void appendMarkerWithCount(std::string &out, unsigned char marker, std::uint64_t count);
    // Pure ASCII as an ASCII string, anything else as big-endian UTF-16 (a
    // byte that is not part of valid UTF-8 as U+FFFD).
    static void appendString(std::string &out, std::string_view text);
    // A UID's low nibble holds its width less one.
    static void appendUid(std::string &out, std::uint64_t uid);
};
