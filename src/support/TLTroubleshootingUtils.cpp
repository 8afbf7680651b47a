// Troubleshooting helpers (first version: nothing gathered yet).
#include "TLTroubleshootingUtils.h"

bool TLTroubleshootingUtils::gatherLogsForAppWithName(const std::string &name)
{
    return gatherLogsForAppsWithNames({name});
}
bool TLTroubleshootingUtils::gatherLogsForAppsWithNames(const std::vector<std::string> &, bool,
                                                        const std::vector<std::string> &)
{
    return false;
}
bool TLTroubleshootingUtils::viewLogForApp(const std::string &) { return false; }
bool TLTroubleshootingUtils::viewTaskLogForApp(const std::string &) { return false; }
std::string TLTroubleshootingUtils::stagingFolder() { return {}; }
std::optional<std::string> TLTroubleshootingUtils::archiveFolder() { return std::nullopt; }
