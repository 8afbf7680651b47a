// The one way the application ignores case: sorting bin names and matching
// clip metadata against smart bin filters.
#pragma once

#include <compare>
#include <string>
#include <string_view>

// Stateless. Case is ignored by Unicode full case folding (ICU's default
// folding, without the Turkic special cases), so one character may fold to
// several: "ß" and "SS" both fold to "ss". Bytes that are not valid UTF-8
// (overlong forms, surrogates, values beyond U+10FFFF, truncated sequences,
// stray continuation bytes) are never folded and never merge with a
// character, so byte strings that differ in invalid bytes stay distinct.
// Nothing here throws except std::bad_alloc.
class TLCaseFolding
{
public:
    // The full case folding of the valid UTF-8 in `text` ("ÉTÉ Reel" gives
    // "été reel", "Straße" gives "strasse", "İ" gives "i\u0307", "Σ" and
    // "ς" give "σ"); invalid bytes are copied unchanged between the folded
    // runs around them. Empty input gives "".
    static std::string foldedCase(std::string_view text);

    // Case-insensitive ordering of two UTF-8 texts: their foldings compared
    // by scalar value, a text before any longer text it begins ("STRASSE"
    // and "straße" are equivalent). Bytes that are not valid UTF-8 compare by
    // their byte value, after every character. Two empty texts are
    // equivalent.
    static std::weak_ordering caseInsensitiveCompare(std::string_view left, std::string_view right);

    // Whether `text` contains `part` when case is ignored. Every text,
    // the empty one included, contains the empty part.
    static bool containsIgnoringCase(std::string_view text, std::string_view part);
};
