// Small text helpers shared by the command line's messages.
#pragma once

#include <string>
#include <string_view>

class CliText
{
public:
    // `text` between double quotes, as messages name bins, files and values.
    static std::string quoted(std::string_view text);
};
