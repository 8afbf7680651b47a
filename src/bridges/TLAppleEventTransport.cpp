// The Apple Event transport of systems where no Apple Event host exists.
#include "TLAppleEventTransport.h"

namespace {

// The Apple Event Manager's "no eligible process with specified descriptor".
constexpr TLAEError procNotFound = -600;
// "Descriptor was not found" for reads of descriptors that cannot exist.
constexpr TLAEError errAEDescNotFound = -1701;

class TLHostlessAppleEventTransport final : public TLAppleEventTransport
{
public:
    TLAppleEventResult createAddress(TLFourCharCode signature) override
    {
        TLAppleEventResult result;
        result.descriptor.type = TLFourCharCodeFromString("sign");
        result.descriptor.data = codeBytes(signature);
        return result;
    }

    TLAppleEventResult createEvent(TLFourCharCode eventClass, TLFourCharCode eventID,
                                   const TLAppleEventDescriptor &, std::int16_t, std::int32_t) override
    {
        TLAppleEventResult result;
        result.descriptor.type = TLFourCharCodeFromString("aevt");
        result.descriptor.data = codeBytes(eventClass) + codeBytes(eventID);
        return result;
    }

    TLAEError putParameter(TLAppleEventDescriptor &event, TLFourCharCode keyword, TLFourCharCode type,
                           std::string_view bytes) override
    {
        TLAppleEventDescriptor parameter;
        parameter.type = type;
        parameter.keyword = keyword;
        parameter.data.assign(bytes);
        event.items.push_back(std::move(parameter));
        return 0;
    }

    TLAppleEventResult send(const TLAppleEventDescriptor &, std::int32_t, std::int16_t, std::int32_t) override
    {
        return {procNotFound, {}};
    }

    TLAppleEventResult replyParameter(const TLAppleEventDescriptor &, TLFourCharCode, TLFourCharCode) override
    {
        return {errAEDescNotFound, {}};
    }

    TLAEError descriptorData(const TLAppleEventDescriptor &descriptor, std::string &bytes) override
    {
        bytes = descriptor.data;
        return 0;
    }

    TLAEError countItems(const TLAppleEventDescriptor &list, long &count) override
    {
        count = long(list.items.size());
        return 0;
    }

    TLAppleEventResult listItem(const TLAppleEventDescriptor &, long, TLFourCharCode) override
    {
        return {errAEDescNotFound, {}};
    }

    TLAppleEventResult recordField(const TLAppleEventDescriptor &, TLFourCharCode, TLFourCharCode) override
    {
        return {errAEDescNotFound, {}};
    }

    void dispose(TLAppleEventDescriptor &descriptor) override { descriptor = {}; }

    std::optional<std::string> fileReferenceForPath(const std::string &) override { return std::nullopt; }
    std::optional<std::string> pathForFileReference(std::string_view) override { return std::nullopt; }
    bool isApplicationRunning(const std::string &) override { return false; }
    bool openFile(const std::string &, const std::string &, TLAppleEventLaunch) override { return false; }

    std::optional<std::string> applicationPathForBundleIdentifier(const std::string &) override
    {
        return std::nullopt;
    }

private:
    static std::string codeBytes(TLFourCharCode code)
    {
        return {char(code >> 24), char((code >> 16) & 0xFF), char((code >> 8) & 0xFF), char(code & 0xFF)};
    }
};

} // namespace

std::shared_ptr<TLAppleEventTransport> TLAppleEventTransport::withoutHost()
{
    return std::make_shared<TLHostlessAppleEventTransport>();
}

// macOS has its own definition beside the Apple Event Manager transport.
#ifndef __APPLE__
std::shared_ptr<TLAppleEventTransport> TLAppleEventTransport::platform()
{
    return withoutHost();
}
#endif
