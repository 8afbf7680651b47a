// Finding and launching the maker's updater.
#include "TLSoftwareUpdate.h"

#include "TLCrashwick.h"
#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLPropertyList.h"
#include "TLSiteLinks.h"
#include "TLTaskEx.h"
#include "TLUserDefaults.h"
#include "TLWorkspace.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr const char *missingUpdater = "Unable to launch Software Update - path doesn't exist";

bool isCheckSwitchedOff()
{
    const auto path = TLUserDefaults::forDomain("global")->path();
    const auto list = path.empty() ? TLPropertyList() : TLPropertyList::fromFile(path);
    const plist_t value = list.itemForKey(TLSoftwareUpdate::checkAtStartupKey);
    return value && plist_get_node_type(value) == PLIST_BOOLEAN && TLPropertyList::boolValue(value) == false;
}

// Copies the updater (a program file or a whole folder) over any older copy,
// in the user's private folder: in the shared one another user could plant
// the name first, or swap the program between the copy and its launch.
std::optional<std::string> copyToTemporaryFolder(const std::string &source)
{
    const auto folder = TLLocalPaths::privateTemporaryDirectory();
    if (!folder) {
        TLLog::appendLogAndPrint("Error: unable to copy software updater: no private temporary folder");
        return std::nullopt;
    }
    const std::string copy = *folder + "/" + TLSoftwareUpdate::updaterName;
    std::error_code error;
    fs::remove_all(copy, error);
    if (!error)
        fs::copy(source, copy, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
    if (error) {
        TLLog::appendLogAndPrint("Error: unable to copy software updater to %@: %@", copy, error.message());
        return std::nullopt;
    }
    return copy;
}

} // namespace

TLSoftwareUpdate::~TLSoftwareUpdate()
{
    waitForStartupCheck();
}

void TLSoftwareUpdate::awakeFromNib()
{
    startup();
}

bool TLSoftwareUpdate::startup()
{
    if (m_startupThread.joinable() || isCheckSwitchedOff())
        return false;
    m_startupThread = std::thread([] { automaticallyCheckForUpdates(); });
    return true;
}

void TLSoftwareUpdate::waitForStartupCheck()
{
    if (m_startupThread.joinable())
        m_startupThread.join();
}

TLUpdateCheck TLSoftwareUpdate::manualUpdateCheck()
{
    if (!launchSoftwareUpdate())
        return whereUpdatesComeFrom();
    TLUpdateCheck launched;
    launched.updaterLaunched = true;
    return launched;
}

TLUpdateCheck TLSoftwareUpdate::whereUpdatesComeFrom()
{
    const std::string page = TLSiteLinks::TessalineToolsURL();
    return {
        .updaterLaunched = false,
        .messageText = "Updates come from your package manager or from Quillmoor's web site.",
        .informativeText =
            "Quillmoor Software Update is not installed on this computer. If you installed this program with your "
            "distribution's package manager (such as apt, dnf, zypper or a software centre), it is updated there "
            "with the rest of your system. Otherwise, download the latest version from " + page + ".",
        .downloadURL = page,
    };
}

std::optional<std::string> TLSoftwareUpdate::updaterPath()
{
    std::error_code error;
    if (const auto applications = TLLocalPaths::applicationDirectory(false)) {
        const std::string installed = *applications + "/Quillmoor/" + updaterName;
        if (fs::exists(installed, error))
            return installed;
    }
    const std::string folder = programFolder();
    for (const char *inside : {"/Contents/Resources/", "/Contents/MacOS/"}) {
        const std::string candidate = folder + inside + updaterName;
        if (!folder.empty() && fs::exists(candidate, error))
            return copyToTemporaryFolder(candidate);
    }
    // No updater is the rule on Linux, where the package manager updates
    // programs: nothing to complain about.
    return std::nullopt;
}

bool TLSoftwareUpdate::automaticallyCheckForUpdates()
{
    const auto path = updaterPath();
    if (!path) {
        TLLog::appendLog("No software updater installed; the start-up update check is skipped");
        return false;
    }
    std::error_code error;
    if (!fs::exists(*path, error)) {
        TLLog::appendLogAndPrint("Unable to launch Software Update - updater bundle not found.");
        return false;
    }
    const auto executable = TLWorkspace::shared()->executablePath(*path);
    if (!executable) {
        TLLog::appendLogAndPrint("Unable to launch Software Update - executable path doesn't exist");
        return false;
    }
    return TLTaskEx::runTaskAndReturn(*executable, {"-checkpath", programFolder()}) != nullptr;
}

bool TLSoftwareUpdate::launchSoftwareUpdate()
{
    const auto path = updaterPath();
    if (!path) {
        TLLog::appendLog(missingUpdater);
        return false;
    }
    return TLWorkspace::shared()->launchApplication(*path, {});
}

std::string TLSoftwareUpdate::programFolder()
{
    return TLCrashwick::programFolder();
}

void TLSoftwareUpdate::overrideProgramFolder(std::optional<std::string> folder)
{
    TLCrashwick::overrideProgramFolder(std::move(folder));
}
