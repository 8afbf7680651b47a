// An Apple Event host that answers with prepared replies, fails at chosen
// steps and remembers every event with its parameters.
#pragma once

#include "TLAppleEventTransport.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace test {

class FakeAppleEventTransport : public TLAppleEventTransport
{
public:
    struct Parameter
    {
        TLFourCharCode keyword = 0;
        TLFourCharCode type = 0;
        std::string data;
    };

    struct SentEvent
    {
        TLFourCharCode eventClass = 0;
        TLFourCharCode eventID = 0;
        std::string target; // the address's data: the signature's four bytes
        std::int16_t returnID = 0;
        std::int32_t transactionID = 0;
        std::int32_t sendMode = 0;
        std::int16_t priority = 0;
        std::int32_t timeoutTicks = 0;
        std::vector<Parameter> parameters;

        // The parameter put under `keyword`; an empty one (keyword 0) when none.
        Parameter parameter(TLFourCharCode keyword) const
        {
            for (const auto &candidate : parameters)
                if (candidate.keyword == keyword)
                    return candidate;
            return {};
        }
    };

    struct Opened
    {
        std::string path;
        std::string bundleIdentifier;
        TLAppleEventLaunch launch = TLAppleEventLaunch::async;
    };

    // The host's state and prepared answers.
    bool running = true;
    std::optional<std::string> installedPath;
    std::vector<std::string> openProjects;       // answered to 'fcLP'
    std::map<TLFourCharCode, std::string> xmlReplies; // 'xmlD' per event ID
    bool everyPathReferenced = true;             // else no path has a reference

    // Failures to inject (0: none).
    TLAEError addressError = 0;
    int failingAddressCall = 0; // which createAddress call fails (from 1); 0: every one
    std::map<TLFourCharCode, TLAEError> eventErrors; // per event ID
    std::map<TLFourCharCode, TLAEError> putErrors; // per keyword
    std::map<TLFourCharCode, TLAEError> sendErrors; // per event ID
    TLAEError replyParameterError = 0; // for 'xmlD' only
    TLAEError dataError = 0;           // for 'xmlD' only
    long failingListItem = 0;  // list index whose read fails
    long failingRecordField = 0; // list index whose field read fails

    // What happened.
    std::vector<SentEvent> sent;
    std::vector<Opened> opened;
    int disposals = 0;
    int addressCalls = 0;

    static std::string referenceForPath(const std::string &path)
    {
        std::string reference = "ref:" + path;
        reference.resize(80, '\0');
        return reference;
    }

    TLAppleEventResult createAddress(TLFourCharCode signature) override
    {
        ++addressCalls;
        const bool fails = failingAddressCall == 0 || failingAddressCall == addressCalls;
        TLAppleEventResult result{fails ? addressError : 0, {}};
        result.descriptor.type = TLFourCharCodeFromString("sign");
        result.descriptor.data = codeString(signature);
        return result;
    }

    TLAppleEventResult createEvent(TLFourCharCode eventClass, TLFourCharCode eventID,
                                   const TLAppleEventDescriptor &target, std::int16_t returnID,
                                   std::int32_t transactionID) override
    {
        SentEvent event{eventClass, eventID, target.data, returnID, transactionID, 0, 0, 0, {}};
        m_building.push_back(event);
        const auto error = eventErrors.find(eventID);
        TLAppleEventResult result{error == eventErrors.end() ? 0 : error->second, {}};
        result.descriptor.keyword = TLFourCharCode(m_building.size() - 1);
        return result;
    }

    TLAEError putParameter(TLAppleEventDescriptor &event, TLFourCharCode keyword, TLFourCharCode type,
                           std::string_view bytes) override
    {
        if (const auto error = putErrors.find(keyword); error != putErrors.end())
            return error->second;
        m_building.at(event.keyword).parameters.push_back({keyword, type, std::string(bytes)});
        return 0;
    }

    TLAppleEventResult send(const TLAppleEventDescriptor &event, std::int32_t sendMode, std::int16_t priority,
                            std::int32_t timeoutTicks) override
    {
        auto record = m_building.at(event.keyword);
        record.sendMode = sendMode;
        record.priority = priority;
        record.timeoutTicks = timeoutTicks;
        sent.push_back(record);
        if (const auto error = sendErrors.find(record.eventID); error != sendErrors.end())
            return {error->second, {}};
        TLAppleEventResult reply;
        reply.descriptor.type = TLFourCharCodeFromString("aevt");
        reply.descriptor.data = codeString(record.eventID);
        return reply;
    }

    TLAppleEventResult replyParameter(const TLAppleEventDescriptor &reply, TLFourCharCode keyword,
                                      TLFourCharCode desiredType) override
    {
        if (replyParameterError != 0 && keyword == TLFourCharCodeFromString("xmlD"))
            return {replyParameterError, {}};
        TLAppleEventResult result;
        result.descriptor.type = desiredType;
        result.descriptor.keyword = keyword;
        if (keyword == TLFourCharCodeFromString("fcOP")) {
            for (const auto &path : openProjects)
                result.descriptor.items.push_back({TLFourCharCodeFromString("reco"), 0, referenceForPath(path), {}, {}});
            return result;
        }
        const auto xml = xmlReplies.find(decode(reply.data));
        if (xml == xmlReplies.end())
            return {-1701, {}};
        result.descriptor.data = xml->second;
        return result;
    }

    TLAEError descriptorData(const TLAppleEventDescriptor &descriptor, std::string &bytes) override
    {
        if (dataError != 0 && descriptor.keyword == TLFourCharCodeFromString("xmlD"))
            return dataError;
        bytes = descriptor.data;
        return 0;
    }

    TLAEError countItems(const TLAppleEventDescriptor &list, long &count) override
    {
        count = long(list.items.size());
        return 0;
    }

    TLAppleEventResult listItem(const TLAppleEventDescriptor &list, long index, TLFourCharCode) override
    {
        if (index == failingListItem || index < 1 || index > long(list.items.size()))
            return {-1701, {}};
        auto item = list.items.at(std::size_t(index - 1));
        item.keyword = TLFourCharCode(index);
        return {0, item};
    }

    TLAppleEventResult recordField(const TLAppleEventDescriptor &record, TLFourCharCode, TLFourCharCode type) override
    {
        if (long(record.keyword) == failingRecordField)
            return {-1701, {}};
        return {0, {type, 0, record.data, {}, {}}};
    }

    void dispose(TLAppleEventDescriptor &descriptor) override
    {
        ++disposals;
        descriptor = {};
    }

    std::optional<std::string> fileReferenceForPath(const std::string &path) override
    {
        if (!everyPathReferenced)
            return std::nullopt;
        return referenceForPath(path);
    }

    std::optional<std::string> pathForFileReference(std::string_view reference) override
    {
        if (reference.substr(0, 4) != "ref:")
            return std::nullopt;
        const auto path = reference.substr(4);
        return std::string(path.substr(0, path.find('\0')));
    }

    bool isApplicationRunning(const std::string &bundleIdentifier) override
    {
        return running && bundleIdentifier == "com.apple.FinalCutPro";
    }

    bool openFile(const std::string &path, const std::string &bundleIdentifier, TLAppleEventLaunch launch) override
    {
        opened.push_back({path, bundleIdentifier, launch});
        return true;
    }

    std::optional<std::string> applicationPathForBundleIdentifier(const std::string &) override
    {
        return installedPath;
    }

    // The IDs of the events sent so far, as text ("fcLP", "eXML", ...).
    std::vector<std::string> sentIDs() const
    {
        std::vector<std::string> ids;
        for (const auto &event : sent)
            ids.push_back(codeString(event.eventID));
        return ids;
    }

    static std::string codeString(TLFourCharCode code)
    {
        return {char(code >> 24), char((code >> 16) & 0xFF), char((code >> 8) & 0xFF), char(code & 0xFF)};
    }

private:
    static TLFourCharCode decode(const std::string &code)
    {
        TLFourCharCode value = 0;
        for (const char character : code)
            value = (value << 8) | std::uint8_t(character);
        return value;
    }

    std::vector<SentEvent> m_building;
};

} // namespace test
