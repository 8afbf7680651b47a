// The few Core Foundation and Launch Services conversions that the macOS
// implementations of the workspace and of the Apple Event transport share.
// macOS only: elsewhere this header declares nothing.
#pragma once

#ifdef __APPLE__

#include <CoreServices/CoreServices.h>

#include <memory>
#include <optional>
#include <string>
#include <type_traits>

// Paths and texts to and from Core Foundation objects, each owned by a
// holder that releases it. Conversions never throw; a value that cannot be
// made is an empty holder or nullopt.
class TLCoreFoundation
{
public:
    struct Releaser {
        void operator()(CFTypeRef object) const
        {
            if (object)
                CFRelease(object);
        }
    };
    // Owns one Core Foundation reference of type `Ref` (CFURLRef, ...).
    template <typename Ref>
    using Holder = std::unique_ptr<std::remove_pointer_t<Ref>, Releaser>;

    // A file URL for the POSIX `path`; empty for an empty path.
    static Holder<CFURLRef> fileURL(const std::string &path, bool isFolder = false);
    // The POSIX path of a file URL; nullopt for a null URL or one that is
    // not a file URL.
    static std::optional<std::string> path(CFURLRef url);
    // The UTF-8 `text` as a string; empty when it is not UTF-8.
    static Holder<CFStringRef> string(const std::string &text);
    // The text of a string as UTF-8; nullopt for a null string.
    static std::optional<std::string> text(CFStringRef string);
    // Where Launch Services finds the application with this bundle
    // identifier (its preferred copy); empty when none is registered.
    static Holder<CFURLRef> applicationURL(const std::string &bundleIdentifier);
    // Opens the file URL `item` in the application at `application`, or in
    // its default application when `application` is null, with the Launch
    // Services flags `flags`. True when Launch Services accepted it; false
    // for a null item.
    static bool open(CFURLRef application, CFURLRef item, LSLaunchFlags flags);
};

#endif
