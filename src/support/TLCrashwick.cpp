// Crash detection at start-up (first version: the stamps only).
#include "TLCrashwick.h"

void TLCrashwick::startCrashwick() {}
void TLCrashwick::startCrashwickWithDelegate(Delegate) {}
void TLCrashwick::startCrashwick(const std::optional<std::string> &, const std::optional<std::string> &, Delegate) {}
void TLCrashwick::stopCrashwick(const std::optional<std::string> &) {}
std::optional<std::string> TLCrashwick::checkForCrashes(const std::optional<std::string> &,
                                                        const std::optional<std::string> &)
{
    return std::nullopt;
}
void TLCrashwick::chownPlist(const std::string &) {}
std::vector<std::string> TLCrashwick::crashReportFolders() { return {}; }
std::vector<std::string> TLCrashwick::reporterApplicationCandidates() { return {}; }
std::string TLCrashwick::defaultApplicationName() { return {}; }
void TLCrashwick::setDefaultApplicationName(std::optional<std::string>) {}
std::string TLCrashwick::programFolder() { return {}; }
void TLCrashwick::overrideProgramFolder(std::optional<std::string>) {}
