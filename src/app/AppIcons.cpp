// The resource paths of the application's icons.
#include "AppIcons.h"

#include <array>
#include <string_view>

namespace {

constexpr std::array<std::string_view, 4> binIconNames = {
    "empty-bin-small", "bin-range-single", "smart-range-single", "smart-bin-small"};

} // namespace

bool AppIcons::isKnown(const std::string &name)
{
    for (const auto known : binIconNames) {
        if (known == name)
            return true;
    }
    return false;
}

QIcon AppIcons::named(const std::string &)
{
    return {};
}

QIcon AppIcons::application()
{
    return {};
}
