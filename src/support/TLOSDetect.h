// Which version of the operating system is running.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Answers the running system's version as a triple (major, minor, bug-fix)
// and compares it with a wanted one. Stateless apart from the test override;
// safe from any thread.
//
// On Linux the triple is the kernel release (uname's "6.1.0-13-amd64" gives
// 6.1.0), so the named macOS checks (isLeopardOrHigher ...) compare a kernel
// version with macOS numbers: any kernel below 10 answers false to all of
// them. They exist for code shared with the maker's macOS tools.
class TLOSDetect
{
public:
    struct Version {
        long major = 0;
        long minor = 0;
        long bugfix = 0;
        bool operator==(const Version &) const = default;
    };

    // The running system's version; all zeros when it cannot be read.
    static Version version();
    // The leading numbers of a release text: up to three decimal numbers (a
    // leading "-" allowed) separated by "."; parsing stops at the first other character (or a
    // number too large for a long), and missing parts are zero ("5.15" gives
    // 5.15.0, "4.19.0-rc1+" 4.19.0, "abc" or "" 0.0.0).
    static Version versionFromRelease(std::string_view release);

    // Whether the running version is at least major.minor.bugfix.
    static bool isOSVersionAtLeast(long major, long minor, long bugfix);
    // The same comparison against a given running version.
    static bool isVersionAtLeast(const Version &running, long major, long minor, long bugfix);

    // "major.minor.bugfix" of version(), as "6.1.0".
    static std::string osVersionString();
    // osVersionString().
    static std::string osxVersion();

    // At least 10.5.0, 10.6.0, ... 10.12.0.
    static bool isLeopardOrHigher();
    static bool isSnowLeopardOrHigher();
    static bool isLionOrHigher();
    static bool isMountainLionOrHigher();
    static bool isMavericksOrHigher();
    static bool isYosemiteOrHigher();
    static bool isElCapitanOrHigher();
    static bool isSierraOrHigher();

    // Makes version() answer `version` (for tests of the rules that depend on
    // it); nullopt reads the running system again.
    static void overrideVersion(std::optional<Version> version);
};
