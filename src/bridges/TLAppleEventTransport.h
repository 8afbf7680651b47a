// The few Apple Event Manager and workspace services that the Final Cut Pro
// bridge needs, behind an interface so that the bridge's logic runs (and is
// tested) where no Apple Event host exists.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// A four-character code ('KeyG', 'utf8', ...) as the Apple Event Manager
// spells it: the first character in the most significant byte.
using TLFourCharCode = std::uint32_t;

// An Apple Event Manager result code: 0 for success, negative for failure.
using TLAEError = std::int32_t;

// Builds a four-character code from exactly four characters.
constexpr TLFourCharCode TLFourCharCodeFromString(const char (&code)[5])
{
    return (TLFourCharCode(std::uint8_t(code[0])) << 24) | (TLFourCharCode(std::uint8_t(code[1])) << 16)
        | (TLFourCharCode(std::uint8_t(code[2])) << 8) | TLFourCharCode(std::uint8_t(code[3]));
}

// One descriptor: a typed block of bytes, or a list or record of descriptors.
// A transport may keep its native descriptor in `native`; the bridge never
// looks inside a descriptor except through the transport.
struct TLAppleEventDescriptor
{
    TLFourCharCode type = 0;
    // The keyword under which this descriptor sits in a record or event.
    TLFourCharCode keyword = 0;
    std::string data;
    std::vector<TLAppleEventDescriptor> items;
    std::shared_ptr<void> native;
};

// A descriptor, or the error that kept it from being made or read.
struct TLAppleEventResult
{
    TLAEError error = 0;
    TLAppleEventDescriptor descriptor;
};

// How a file is opened in an application.
enum class TLAppleEventLaunch {
    async,             // return at once, bring the application to the front
    withoutActivation, // leave the frontmost application in front
};

// The operations the bridge asks of the platform. Implementations may block
// in send() for as long as the host takes, up to the time-out; none throws.
class TLAppleEventTransport
{
public:
    virtual ~TLAppleEventTransport() = default;

    // A target address for the application with the given signature.
    virtual TLAppleEventResult createAddress(TLFourCharCode signature) = 0;
    // An empty event addressed to `target`.
    virtual TLAppleEventResult createEvent(TLFourCharCode eventClass, TLFourCharCode eventID,
                                           const TLAppleEventDescriptor &target, std::int16_t returnID,
                                           std::int32_t transactionID) = 0;
    // Puts `bytes` of descriptor type `type` into the event under `keyword`.
    virtual TLAEError putParameter(TLAppleEventDescriptor &event, TLFourCharCode keyword,
                                   TLFourCharCode type, std::string_view bytes) = 0;
    // Sends the event and waits for the reply, up to `timeoutTicks`
    // sixtieths of a second (-1: the system's default time-out).
    virtual TLAppleEventResult send(const TLAppleEventDescriptor &event, std::int32_t sendMode,
                                    std::int16_t priority, std::int32_t timeoutTicks) = 0;
    // The reply parameter `keyword`, coerced to `desiredType`.
    virtual TLAppleEventResult replyParameter(const TLAppleEventDescriptor &reply, TLFourCharCode keyword,
                                              TLFourCharCode desiredType) = 0;
    // The byte contents of a descriptor; the error when they cannot be read.
    virtual TLAEError descriptorData(const TLAppleEventDescriptor &descriptor, std::string &bytes) = 0;
    // The number of items of a list descriptor.
    virtual TLAEError countItems(const TLAppleEventDescriptor &list, long &count) = 0;
    // Item `index` (counted from 1) of a list, coerced to `desiredType`.
    virtual TLAppleEventResult listItem(const TLAppleEventDescriptor &list, long index,
                                        TLFourCharCode desiredType) = 0;
    // Field `keyword` of a record, coerced to `desiredType`.
    virtual TLAppleEventResult recordField(const TLAppleEventDescriptor &record, TLFourCharCode keyword,
                                           TLFourCharCode desiredType) = 0;
    // Releases what a descriptor holds. Safe on an empty descriptor.
    virtual void dispose(TLAppleEventDescriptor &descriptor) = 0;

    // The file-system reference (80 opaque bytes) of the file at `path`;
    // nullopt when the path names nothing that can be referenced.
    virtual std::optional<std::string> fileReferenceForPath(const std::string &path) = 0;
    // The POSIX path of a file-system reference; nullopt when it resolves
    // to nothing.
    virtual std::optional<std::string> pathForFileReference(std::string_view reference) = 0;

    // True when an application with this bundle identifier is running.
    virtual bool isApplicationRunning(const std::string &bundleIdentifier) = 0;
    // Opens the file in the application with this bundle identifier; false
    // when that could not be asked for.
    virtual bool openFile(const std::string &path, const std::string &bundleIdentifier,
                          TLAppleEventLaunch launch) = 0;
    // Where the application with this bundle identifier is installed;
    // nullopt when none is registered.
    virtual std::optional<std::string> applicationPathForBundleIdentifier(const std::string &bundleIdentifier) = 0;

    // The transport of systems without an Apple Event host (everything but
    // macOS): addresses and events are built, but every send fails with
    // procNotFound (-600), no application runs, none is installed, nothing
    // opens and no path has a file-system reference.
    static std::shared_ptr<TLAppleEventTransport> withoutHost();
    // The transport of the system the program runs on: the Apple Event
    // Manager on macOS, withoutHost() everywhere else.
    static std::shared_ptr<TLAppleEventTransport> platform();
};
