// A Final Cut Pro that answers with prepared texts and remembers each request.
#pragma once

#include "TLFinalCutProBridge.h"

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace test {

class FakeFinalCutProBridge : public TLFinalCutProBridge
{
public:
    struct Request
    {
        std::string path;
        bool launchFCP = false;
    };

    struct Send
    {
        std::string xml;
        std::optional<std::string> projectPath;
    };

    std::optional<std::string> getProjectXML(const std::string &path, bool launchFCP) override
    {
        projectRequests.push_back({path, launchFCP});
        return projectXML;
    }

    std::optional<std::string> getTOCData(const std::string &path, bool launchFCP) override
    {
        tocRequests.push_back({path, launchFCP});
        return tocData;
    }

    int maximumXMEMLVersion() override { return xmemlVersion; }

    // Sends may come from a document's send thread.
    bool sendXMLToFCP(const std::string &xml, const std::optional<std::string> &projectPath) override
    {
        const std::lock_guard lock(m_sendMutex);
        m_sends.push_back({xml, projectPath});
        return sendResult;
    }

    std::vector<Send> sends() const
    {
        const std::lock_guard lock(m_sendMutex);
        return m_sends;
    }

    // The answers; absent by default, like a Final Cut Pro that is not there.
    std::optional<std::string> projectXML;
    std::optional<std::string> tocData;
    int xmemlVersion = 5;
    bool sendResult = true;

    std::vector<Request> projectRequests;
    std::vector<Request> tocRequests;

private:
    mutable std::mutex m_sendMutex;
    std::vector<Send> m_sends;
};

} // namespace test
