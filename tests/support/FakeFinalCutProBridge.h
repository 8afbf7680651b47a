// A Final Cut Pro that answers with prepared texts and remembers each request.
#pragma once

#include "TLFinalCutProBridge.h"

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

    // The answers; absent by default, like a Final Cut Pro that is not there.
    std::optional<std::string> projectXML;
    std::optional<std::string> tocData;

    std::vector<Request> projectRequests;
    std::vector<Request> tocRequests;
};

} // namespace test
