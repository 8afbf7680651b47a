// The one way the application ignores case: sorting bin names and matching
// clip metadata against smart bin filters.
#pragma once

#include <compare>
#include <string>
#include <string_view>

// Stateless. Case is folded per Unicode scalar value for the capitals of
// Basic Latin, Latin-1, Latin Extended-A, Greek and Cyrillic (the scripts bin
// names and clip metadata are likely to use); every other character is its
// own fold. Bytes that are not valid UTF-8 are never folded and never merge
// with a character, so distinct byte strings of different case stay
// distinct. Nothing here throws except std::bad_alloc.
class TLCaseFolding
{
public:
    // The text with every capital of those scripts replaced by its small
    // letter ("ÉTÉ Reel" gives "été reel"; "İ" gives "i"); other characters
    // and invalid bytes are copied unchanged. Empty input gives "".
    static std::string foldedCase(std::string_view text);

    // Case-insensitive ordering of two UTF-8 texts by folded scalar value,
    // a text before any longer text it begins. Bytes that are not valid
    // UTF-8 compare by their byte value, after all of the characters in the
    // folded scripts. Two empty texts are equivalent.
    static std::weak_ordering caseInsensitiveCompare(std::string_view left, std::string_view right);

    // Whether `text` contains `part` when case is ignored. Every text,
    // the empty one included, contains the empty part.
    static bool containsIgnoringCase(std::string_view text, std::string_view part);
};
