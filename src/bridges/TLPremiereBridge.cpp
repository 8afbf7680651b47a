// The stand-in for Premiere Pro on systems where it cannot run.
#include "TLPremiereBridge.h"

#include <cstdio>

namespace {

class TLUnavailablePremiereBridge final : public TLPremiereBridge
{
public:
    void openProject(const std::string &) override { reportUnavailable(); }
    void exportFCPXML(const std::string &) override { reportUnavailable(); }
    void openFCPXML(const std::string &) override { reportUnavailable(); }

private:
    static void reportUnavailable()
    {
        std::fputs("Premiere Pro is not available on this system.\n", stderr);
    }
};

} // namespace

std::shared_ptr<TLPremiereBridge> TLPremiereBridge::unavailable()
{
    return std::make_shared<TLUnavailablePremiereBridge>();
}
