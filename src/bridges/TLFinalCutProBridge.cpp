// The stand-in for Final Cut Pro on systems where it cannot run.
#include "TLFinalCutProBridge.h"

#include <cstdio>

namespace {

class TLUnavailableFinalCutProBridge final : public TLFinalCutProBridge
{
public:
    std::optional<std::string> getProjectXML(const std::string &, bool) override
    {
        return reportUnavailable();
    }

    std::optional<std::string> getTOCData(const std::string &, bool) override
    {
        return reportUnavailable();
    }

private:
    static std::optional<std::string> reportUnavailable()
    {
        std::fputs("Final Cut Pro is not available on this system.\n", stderr);
        return std::nullopt;
    }
};

} // namespace

std::shared_ptr<TLFinalCutProBridge> TLFinalCutProBridge::unavailable()
{
    return std::make_shared<TLUnavailableFinalCutProBridge>();
}
