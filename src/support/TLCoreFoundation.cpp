// Core Foundation and Launch Services conversions for the macOS units.
// Compiled only on macOS; elsewhere this unit is empty.
#ifdef __APPLE__

#include "TLCoreFoundation.h"

#include <sys/param.h>

#include <vector>

TLCoreFoundation::Holder<CFURLRef> TLCoreFoundation::fileURL(const std::string &path, bool isFolder)
{
    if (path.empty())
        return {};
    return Holder<CFURLRef>(CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8 *>(path.data()), CFIndex(path.size()), isFolder));
}

std::optional<std::string> TLCoreFoundation::path(CFURLRef url)
{
    if (!url)
        return std::nullopt;
    std::vector<char> buffer(MAXPATHLEN * 4, '\0');
    if (!CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8 *>(buffer.data()),
                                          CFIndex(buffer.size())))
        return std::nullopt;
    return std::string(buffer.data());
}

TLCoreFoundation::Holder<CFStringRef> TLCoreFoundation::string(const std::string &text)
{
    return Holder<CFStringRef>(CFStringCreateWithBytes(kCFAllocatorDefault,
                                                       reinterpret_cast<const UInt8 *>(text.data()),
                                                       CFIndex(text.size()), kCFStringEncodingUTF8, false));
}

std::optional<std::string> TLCoreFoundation::text(CFStringRef string)
{
    if (!string)
        return std::nullopt;
    const CFIndex length = CFStringGetLength(string);
    const CFIndex capacity = CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8) + 1;
    std::vector<char> buffer(size_t(capacity), '\0');
    if (!CFStringGetCString(string, buffer.data(), capacity, kCFStringEncodingUTF8))
        return std::nullopt;
    return std::string(buffer.data());
}

TLCoreFoundation::Holder<CFURLRef> TLCoreFoundation::applicationURL(const std::string &bundleIdentifier)
{
    const Holder<CFStringRef> identifier = string(bundleIdentifier);
    if (!identifier)
        return {};
    const Holder<CFArrayRef> urls(LSCopyApplicationURLsForBundleIdentifier(identifier.get(), nullptr));
    if (!urls || CFArrayGetCount(urls.get()) == 0)
        return {};
    // The array owns its items: the first one is retained for the holder.
    const auto first = static_cast<CFURLRef>(CFArrayGetValueAtIndex(urls.get(), 0));
    return Holder<CFURLRef>(static_cast<CFURLRef>(CFRetain(first)));
}

bool TLCoreFoundation::open(CFURLRef application, CFURLRef item, LSLaunchFlags flags)
{
    if (!item)
        return false;
    const void *values[] = {item};
    const Holder<CFArrayRef> items(CFArrayCreate(kCFAllocatorDefault, values, 1, &kCFTypeArrayCallBacks));
    LSLaunchURLSpec launch{};
    launch.appURL = application;
    launch.itemURLs = items.get();
    launch.passThruParams = nullptr;
    launch.launchFlags = flags;
    launch.asyncRefCon = nullptr;
    return LSOpenFromURLSpec(&launch, nullptr) == noErr;
}

#endif
