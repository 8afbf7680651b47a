// Reading UTF-8 text as UTF-16 code units, checking it, and decoding the
// %XX escapes of names and URLs.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Stateless text conversions shared by the query helper, the URL parser and
// the version readers of the host bridges.
// Nothing here throws except std::bad_alloc.
class TLTextCoding
{
public:
    // Which bytes an escape may stand for when decoding.
    enum class EscapedBytes {
        Any,       // every byte, 0 to 255 (so the result may be any bytes)
        AsciiOnly, // 0 to 127; an escape above 127 fails the whole decoding
    };

    // True when the text is well-formed UTF-8: no stray continuation bytes,
    // no truncated, overlong or surrogate sequences, nothing beyond U+10FFFF.
    // The empty text is valid. A NUL byte is valid UTF-8.
    static bool isValidUTF8(std::string_view text);

    // The UTF-16 code units of UTF-8 text, characters beyond U+FFFF as
    // surrogate pairs. Each byte that starts no valid sequence becomes one
    // U+FFFD, so damaged input is converted rather than refused. Empty
    // input gives an empty result.
    static std::u16string utf16Units(std::string_view text);

    // The number of UTF-16 code units of UTF-8 text, always equal to
    // utf16Units(text).size() (damaged bytes count one unit each) but
    // counted without building the units. 0 for empty input.
    static std::size_t utf16Length(std::string_view text);

    // True when text[index] is "%" followed by two hex digits (either case);
    // false for any other character and for an index at or past the end.
    static bool isPercentEscapeAt(std::string_view text, std::size_t index);

    // The text with every %XX escape replaced by its byte; characters that
    // are not escaped pass through whatever they are. nullopt for a "%" not
    // followed by two hex digits ("50%", "%4x"), and, with AsciiOnly, for an
    // escape above 127 ("%C3"). Empty input gives "".
    static std::optional<std::string> percentDecoded(std::string_view text,
                                                     EscapedBytes allowed = EscapedBytes::Any);

    // The pieces between the separators, as version strings are taken
    // apart: "6.0.2" gives "6", "0", "2"; "6." gives "6" and ""; text
    // without the separator, the empty text included, gives itself alone.
    static std::vector<std::string> componentsSeparatedByString(std::string_view text, char separator);
};
