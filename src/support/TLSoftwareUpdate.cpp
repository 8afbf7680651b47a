// The updater launch (first version: nothing launched yet).
#include "TLSoftwareUpdate.h"

TLSoftwareUpdate::~TLSoftwareUpdate()
{
    waitForStartupCheck();
}
void TLSoftwareUpdate::awakeFromNib() { startup(); }
bool TLSoftwareUpdate::startup() { return false; }
void TLSoftwareUpdate::waitForStartupCheck()
{
    if (m_startupThread.joinable())
        m_startupThread.join();
}
void TLSoftwareUpdate::manualUpdateCheck() { launchSoftwareUpdate(); }
std::optional<std::string> TLSoftwareUpdate::updaterPath() { return std::nullopt; }
bool TLSoftwareUpdate::automaticallyCheckForUpdates() { return false; }
bool TLSoftwareUpdate::launchSoftwareUpdate() { return false; }
std::string TLSoftwareUpdate::programFolder() { return {}; }
void TLSoftwareUpdate::overrideProgramFolder(std::optional<std::string>) {}
