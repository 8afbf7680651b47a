// The running system's version and comparisons with it.
#include "TLOSDetect.h"

#include <charconv>
#include <mutex>
#include <sys/utsname.h>

namespace {

std::mutex overrideMutex;
std::optional<TLOSDetect::Version> overridden;

} // namespace

TLOSDetect::Version TLOSDetect::version()
{
    {
        const std::lock_guard lock(overrideMutex);
        if (overridden)
            return *overridden;
    }
    struct utsname names {};
    if (::uname(&names) != 0)
        return {};
    return versionFromRelease(names.release);
}

TLOSDetect::Version TLOSDetect::versionFromRelease(std::string_view release)
{
    long parts[3] = {0, 0, 0};
    const char *position = release.data();
    const char *const end = release.data() + release.size();
    for (long &part : parts) {
        const auto [next, error] = std::from_chars(position, end, part);
        if (error != std::errc()) {
            part = 0;
            break;
        }
        position = next;
        if (position == end || *position != '.')
            break;
        ++position;
    }
    return {parts[0], parts[1], parts[2]};
}

bool TLOSDetect::isOSVersionAtLeast(long major, long minor, long bugfix)
{
    return isVersionAtLeast(version(), major, minor, bugfix);
}

bool TLOSDetect::isVersionAtLeast(const Version &running, long major, long minor, long bugfix)
{
    if (running.major != major)
        return running.major > major;
    if (running.minor != minor)
        return running.minor > minor;
    return running.bugfix >= bugfix;
}

std::string TLOSDetect::osVersionString()
{
    const Version running = version();
    return std::to_string(running.major) + "." + std::to_string(running.minor) + "." + std::to_string(running.bugfix);
}

std::string TLOSDetect::osxVersion()
{
    return osVersionString();
}

bool TLOSDetect::isLeopardOrHigher() { return isOSVersionAtLeast(10, 5, 0); }
bool TLOSDetect::isSnowLeopardOrHigher() { return isOSVersionAtLeast(10, 6, 0); }
bool TLOSDetect::isLionOrHigher() { return isOSVersionAtLeast(10, 7, 0); }
bool TLOSDetect::isMountainLionOrHigher() { return isOSVersionAtLeast(10, 8, 0); }
bool TLOSDetect::isMavericksOrHigher() { return isOSVersionAtLeast(10, 9, 0); }
bool TLOSDetect::isYosemiteOrHigher() { return isOSVersionAtLeast(10, 10, 0); }
bool TLOSDetect::isElCapitanOrHigher() { return isOSVersionAtLeast(10, 11, 0); }
bool TLOSDetect::isSierraOrHigher() { return isOSVersionAtLeast(10, 12, 0); }

void TLOSDetect::overrideVersion(std::optional<Version> version)
{
    const std::lock_guard lock(overrideMutex);
    overridden = version;
}
