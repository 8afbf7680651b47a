// Range expressions ("Reel [1-10]") as the user types them into the range
// series sheet: any text at all.
#include "FuzzSupport.h"

#include "TLBinRangeParser.h"

#include <cstdlib>
#include <set>
#include <stdexcept>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::sandbox(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view expression = fuzz::text(data, size);
    std::vector<std::string> names;
    try {
        names = TLBinRangeParser::arrayFromExpression(expression);
    } catch (const std::out_of_range &) {
        // The documented refusal of a "]" before the "[" and of an "x"
        // before the "-"; the range series sheet catches it.
        return 0;
    }
    // Names are never repeated, and one expression holds at most one range
    // per comma-separated item, each of at most 1000 names.
    const std::set<std::string> distinct(names.begin(), names.end());
    if (distinct.size() != names.size())
        std::abort();
    if (names.size() > 1000 * (expression.size() + 1))
        std::abort();
    return 0;
}
