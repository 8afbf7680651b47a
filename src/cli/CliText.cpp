// Text helpers of the command line's messages.
#include "CliText.h"

std::string CliText::quoted(std::string_view text)
{
    // Built by appending: g++ 12 warns wrongly (-Wrestrict) about the same
    // thing written with operator+ once inlined at -O3.
    std::string quoted;
    quoted.reserve(text.size() + 2);
    quoted += '"';
    quoted.append(text);
    quoted += '"';
    return quoted;
}
