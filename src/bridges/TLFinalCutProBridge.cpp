// The stand-in for Final Cut Pro on systems where it cannot run.
#include "TLFinalCutProBridge.h"

#include <cstdio>

namespace {

// Final Cut Pro 7, the version assumed when none can be read, takes xmeml 5.
constexpr int newestXMEMLVersion = 5;

class TLUnavailableFinalCutProBridge final : public TLFinalCutProBridge
{
public:
    std::optional<std::string> getProjectXML(const std::string &, bool) override
    {
        reportUnavailable();
        return std::nullopt;
    }

    std::optional<std::string> getTOCData(const std::string &, bool) override
    {
        reportUnavailable();
        return std::nullopt;
    }

    int maximumXMEMLVersion() override { return newestXMEMLVersion; }

    bool sendXMLToFCP(const std::string &, const std::optional<std::string> &) override
    {
        reportUnavailable();
        return false;
    }

private:
    static void reportUnavailable()
    {
        std::fputs("Final Cut Pro is not available on this system.\n", stderr);
    }
};

} // namespace

std::shared_ptr<TLFinalCutProBridge> TLFinalCutProBridge::unavailable()
{
    return std::make_shared<TLUnavailableFinalCutProBridge>();
}
