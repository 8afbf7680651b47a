// Expands a range expression such as "Reel [1-10]" into the bin names it
// stands for.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// Pure and stateless. An expression is cut at its first "[" and first "]"
// into a prefix, a comma-separated body and a suffix; each body item is a
// literal word ("A"), a range ("1-10", also counting down) or a stepped
// range ("0-20x5"). Every name is prefix + item value + suffix; a name that
// was produced before is not repeated.
class TLBinRangeParser
{
public:
    // The names, in the order first produced. An expression without "[" is
    // its own single name; one with "[" but no "]" gives an empty list, as do
    // bodies whose items are all malformed (open ranges such as "5-" or "-5",
    // a step below 1). A single range yields at most 1000 names. Numbers are
    // read like C's atoi clamped to 32 bits ("01" is 1, "A" is 0) and written
    // without padding.
    // Throws std::out_of_range when the first "]" comes before the first "[",
    // or when an item's "x" comes before its "-" with a step of at least 1.
    static std::vector<std::string> arrayFromExpression(std::string_view expression);
};
