// The Apple Event transport of macOS: the Apple Event Manager for events and
// descriptors, Core Foundation for file references, Launch Services and the
// workspace for applications. Compiled only on macOS; elsewhere this unit is
// empty and TLAppleEventTransport::platform() gives the hostless transport.
#ifdef __APPLE__

#include "TLAppleEventTransport.h"

#include "TLCoreFoundation.h"
#include "TLWorkspace.h"

#include <CoreServices/CoreServices.h>

#include <algorithm>
#include <cstring>

// Final Cut Pro 7's suite names project files by FSRef, whose calls the
// system marks deprecated; there is no other way to make one.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

// Each descriptor made here keeps its AEDesc in `native`, disposed of when
// the last copy of the descriptor lets go of it.
std::shared_ptr<void> adopt(const AEDesc &desc)
{
    return std::shared_ptr<void>(new AEDesc(desc), [](void *pointer) {
        auto *held = static_cast<AEDesc *>(pointer);
        AEDisposeDesc(held);
        delete held;
    });
}

AEDesc *nativeOf(const TLAppleEventDescriptor &descriptor)
{
    return static_cast<AEDesc *>(descriptor.native.get());
}

// The Apple Event Manager leaves a null descriptor behind on failure, so
// only a success has anything to keep.
TLAppleEventResult resultOf(OSStatus error, const AEDesc &desc)
{
    TLAppleEventResult result;
    result.error = TLAEError(error);
    if (error != noErr)
        return result;
    result.descriptor.type = desc.descriptorType;
    result.descriptor.native = adopt(desc);
    return result;
}

TLAppleEventResult notADescriptor()
{
    return {errAENotAEDesc, {}};
}

class TLAppleEventManagerTransport final : public TLAppleEventTransport
{
public:
    TLAppleEventResult createAddress(TLFourCharCode signature) override
    {
        const OSType code = signature;
        AEDesc address;
        AEInitializeDesc(&address);
        return resultOf(AECreateDesc(typeApplSignature, &code, sizeof code, &address), address);
    }

    TLAppleEventResult createEvent(TLFourCharCode eventClass, TLFourCharCode eventID,
                                   const TLAppleEventDescriptor &target, std::int16_t returnID,
                                   std::int32_t transactionID) override
    {
        const AEDesc *address = nativeOf(target);
        if (!address)
            return notADescriptor();
        AppleEvent event;
        AEInitializeDesc(&event);
        return resultOf(AECreateAppleEvent(eventClass, eventID, address, returnID, transactionID, &event), event);
    }

    TLAEError putParameter(TLAppleEventDescriptor &event, TLFourCharCode keyword, TLFourCharCode type,
                           std::string_view bytes) override
    {
        AppleEvent *native = nativeOf(event);
        if (!native)
            return errAENotAEDesc;
        return AEPutParamPtr(native, keyword, type, bytes.data(), Size(bytes.size()));
    }

    // AESendMessage has no priority: the system has long ignored it.
    TLAppleEventResult send(const TLAppleEventDescriptor &event, std::int32_t sendMode, std::int16_t,
                            std::int32_t timeoutTicks) override
    {
        const AppleEvent *native = nativeOf(event);
        if (!native)
            return notADescriptor();
        AppleEvent reply;
        AEInitializeDesc(&reply);
        const OSStatus error = AESendMessage(native, &reply, AESendMode(sendMode), long(timeoutTicks));
        if (error != noErr)
            AEDisposeDesc(&reply);
        return resultOf(error, reply);
    }

    TLAppleEventResult replyParameter(const TLAppleEventDescriptor &reply, TLFourCharCode keyword,
                                      TLFourCharCode desiredType) override
    {
        return field(reply, keyword, desiredType);
    }

    TLAEError descriptorData(const TLAppleEventDescriptor &descriptor, std::string &bytes) override
    {
        const AEDesc *native = nativeOf(descriptor);
        if (!native)
            return errAENotAEDesc;
        bytes.assign(size_t(AEGetDescDataSize(native)), '\0');
        return AEGetDescData(native, bytes.data(), Size(bytes.size()));
    }

    TLAEError countItems(const TLAppleEventDescriptor &list, long &count) override
    {
        const AEDescList *native = nativeOf(list);
        if (!native)
            return errAENotAEDesc;
        return AECountItems(native, &count);
    }

    TLAppleEventResult listItem(const TLAppleEventDescriptor &list, long index,
                                TLFourCharCode desiredType) override
    {
        const AEDescList *native = nativeOf(list);
        if (!native)
            return notADescriptor();
        AEKeyword keyword = 0;
        AEDesc item;
        AEInitializeDesc(&item);
        return resultOf(AEGetNthDesc(native, index, desiredType, &keyword, &item), item);
    }

    TLAppleEventResult recordField(const TLAppleEventDescriptor &record, TLFourCharCode keyword,
                                   TLFourCharCode desiredType) override
    {
        return field(record, keyword, desiredType);
    }

    void dispose(TLAppleEventDescriptor &descriptor) override { descriptor = {}; }

    std::optional<std::string> fileReferenceForPath(const std::string &path) override
    {
        const auto url = TLCoreFoundation::fileURL(path);
        FSRef reference;
        if (!url || !CFURLGetFSRef(url.get(), &reference))
            return std::nullopt;
        return std::string(reinterpret_cast<const char *>(&reference), sizeof reference);
    }

    std::optional<std::string> pathForFileReference(std::string_view bytes) override
    {
        FSRef reference;
        std::memset(&reference, 0, sizeof reference);
        std::memcpy(&reference, bytes.data(), std::min(bytes.size(), sizeof reference));
        const TLCoreFoundation::Holder<CFURLRef> url(CFURLCreateFromFSRef(kCFAllocatorDefault, &reference));
        return TLCoreFoundation::path(url.get());
    }

    bool isApplicationRunning(const std::string &bundleIdentifier) override
    {
        return !TLWorkspace::shared()->runningApplicationsWithBundleIdentifier(bundleIdentifier).empty();
    }

    bool openFile(const std::string &path, const std::string &bundleIdentifier,
                  TLAppleEventLaunch launch) override
    {
        const auto application = TLCoreFoundation::applicationURL(bundleIdentifier);
        const auto item = TLCoreFoundation::fileURL(path);
        if (!application || !item)
            return false;
        const LSLaunchFlags flags = launch == TLAppleEventLaunch::async ? kLSLaunchAsync : kLSLaunchDontSwitch;
        return TLCoreFoundation::open(application.get(), item.get(), flags);
    }

    std::optional<std::string> applicationPathForBundleIdentifier(const std::string &bundleIdentifier) override
    {
        return TLCoreFoundation::path(TLCoreFoundation::applicationURL(bundleIdentifier).get());
    }

private:
    // Records and events keep their fields the same way.
    static TLAppleEventResult field(const TLAppleEventDescriptor &record, TLFourCharCode keyword,
                                    TLFourCharCode desiredType)
    {
        const AERecord *native = nativeOf(record);
        if (!native)
            return notADescriptor();
        AEDesc value;
        AEInitializeDesc(&value);
        return resultOf(AEGetParamDesc(native, keyword, desiredType, &value), value);
    }
};

} // namespace

#pragma GCC diagnostic pop

std::shared_ptr<TLAppleEventTransport> TLAppleEventTransport::platform()
{
    return std::make_shared<TLAppleEventManagerTransport>();
}

#endif
