// The application controller: start-up order, menu actions and validation.
#include "AppController.h"

#include "TLAlert.h"
#include "TLCrashwick.h"
#include "TLException.h"
#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLSiteLinks.h"
#include "TLTroubleshootingUtils.h"
#include "TLUserDefaults.h"
#include "TLWorkspace.h"

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <system_error>

namespace {

constexpr const char *openPanelMessage = "Browse for a Final Cut Pro project or XML file:";
constexpr const char *aboutFailureLog =
    "Error: unable to load About dialog. Please report this error to Quillmoor.";
constexpr const char *aboutFailureTitle = "Error: unable to load About dialog.";
constexpr const char *aboutFailureText = "Please report this error to Quillmoor.";
constexpr const char *openFailureTitle = "The document could not be opened.";
constexpr const char *userManualSubpath = "/Documentation/Quillmoor/Tessaline User Manual.pdf";
constexpr const char *siteAppName = "tessaline";
constexpr auto startupCheckDelay = std::chrono::seconds(1);

bool isRegularFile(const std::string &path)
{
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

// Link failures are not the user's concern: the browser reports its own.
void openURL(const std::string &url)
{
    (void)TLWorkspace::shared()->openURL(url);
}

[[noreturn]] void logTerminatingException()
{
    if (const std::exception_ptr exception = std::current_exception())
        TLException::logException(exception, "terminate");
    else
        TLLog::appendLogAndPrint("Terminating without an exception");
    TLLog::finishWriting();
    std::abort();
}

} // namespace

AppController::AppController(AppControllerPlatform &platform, std::optional<std::string> shortName)
    : m_platform(platform),
      m_shortName(shortName && !shortName->empty() ? std::move(*shortName) : defaultShortName)
{
}

void AppController::initialize()
{
    // The crash check reads the stamps of the last run before this run's
    // launch stamp replaces them, and before the log rotates.
    TLCrashwick::startCrashwick();
    TLLog::createNewLog();
    TLUserDefaults::standard()->registerDefaults({{showOpenDialogAtStartupKey, std::int64_t{1}}});
}

bool AppController::applicationShouldOpenUntitledFile()
{
    performStartupAction();
    return false;
}

void AppController::applicationDidFinishLaunching()
{
    m_platform.performAfterDelay(startupCheckDelay, [this] {
        if (!m_platform.hasKeyWindow())
            performStartupAction();
    });
}

void AppController::performStartupAction()
{
    if (TLUserDefaults::standard()->integerForKey(showOpenDialogAtStartupKey) == 1)
        openFile();
}

bool AppController::applicationOpenFile(const std::string &path)
{
    const std::optional<std::string> failure = m_platform.openDocument(path);
    if (!failure)
        return true;
    // An empty reason means the document has shown its own refusal already.
    if (!failure->empty())
        TLAlert::alertSheetWithMessageText(openFailureTitle, path + "\n" + *failure, nullptr);
    return false;
}

void AppController::installTerminateHandler()
{
    // The log first: making it installs its own handler, replaced here.
    (void)TLLog::sharedController();
    std::set_terminate(logTerminatingException);
}

void AppController::checkForUpdatesAtStartup()
{
    m_softwareUpdate.awakeFromNib();
}

void AppController::applicationWillTerminate()
{
    TLCrashwick::stopCrashwick();
    TLLog::willTerminate();
}

void AppController::openFile()
{
    m_platform.runOpenPanel(openPanelOptions(), [this](const std::vector<std::string> &paths) {
        for (const std::string &path : paths)
            openAndReport(path);
    });
}

void AppController::openAndReport(const std::string &path)
{
    (void)applicationOpenFile(path);
}

AppOpenPanelOptions AppController::openPanelOptions()
{
    // Linux has no classic file-type codes, so the extensions alone decide.
    AppOpenPanelOptions options;
    options.message = openPanelMessage;
    options.allowedExtensions = {"fcp", "xml"};
    return options;
}

void AppController::openFCPProject()
{
    m_platform.showProjectLoader();
}

void AppController::sendToFCP()
{
    if (MyDocument *document = m_platform.currentDocument())
        document->sendToFCP();
}

void AppController::prefsToggleQCLogging(bool on)
{
    (void)TLUserDefaults::forDomain("qc")->setBool(logQCKey, on);
}

bool AppController::isQCLoggingEnabled()
{
    return TLUserDefaults::forDomain("qc")->boolForKey(logQCKey).value_or(false);
}

std::optional<std::string> AppController::userManualPath()
{
    const std::optional<std::string> library = TLLocalPaths::libraryDirectory(false);
    if (!library)
        return std::nullopt;
    return *library + userManualSubpath;
}

void AppController::helpUserManual()
{
    const std::optional<std::string> path = userManualPath();
    if (path && isRegularFile(*path))
        TLWorkspace::shared()->openFile(*path);
}

void AppController::helpTessalineHome()
{
    openURL(TLSiteLinks::TessalineToolsURL());
}

void AppController::helpReportBug()
{
    openURL(TLSiteLinks::bugReportURLWithAppName(siteAppName, m_shortName));
}

void AppController::helpSuggestFeature()
{
    openURL(TLSiteLinks::featureRequestURLWithAppName(siteAppName, m_shortName));
}

void AppController::helpSupport()
{
    openURL(TLSiteLinks::supportURLForAppName(siteAppName));
}

void AppController::helpTLHome()
{
    openURL(TLSiteLinks::quillmoorURL());
}

void AppController::checkForUpdates()
{
    const TLUpdateCheck check = m_softwareUpdate.manualUpdateCheck();
    if (check.updaterLaunched)
        return;
    // Without an updater the user learns where updates come from instead of
    // seeing nothing happen, and may open the download page from the alert.
    const int answer = TLAlert::alertSheetWithMessageText(check.messageText, TLUpdateCheck::openDownloadPageTitle,
                                                          std::string("OK"), std::nullopt, check.informativeText,
                                                          nullptr, true);
    if (answer == 1)
        openURL(check.downloadURL);
}

void AppController::viewLog()
{
    (void)TLTroubleshootingUtils::viewLogForApp(applicationName);
}

void AppController::viewTaskLog()
{
    (void)TLTroubleshootingUtils::viewTaskLogForApp(applicationName);
}

void AppController::gatherLogs()
{
    (void)TLTroubleshootingUtils::gatherLogsForAppWithName(applicationName);
}

void AppController::showAboutDialog()
{
    if (m_platform.showAboutPanel())
        return;
    TLLog::appendLog(aboutFailureLog);
    TLAlert::alertSheetWithMessageText(aboutFailureTitle, aboutFailureText, nullptr);
}

MyDocument::MenuItemState AppController::validateUserInterfaceItem(MyDocument::MenuAction action) const
{
    return validateUserInterfaceItem(action, m_platform.currentDocument());
}

MyDocument::MenuItemState AppController::validateUserInterfaceItem(MyDocument::MenuAction action,
                                                                   const MyDocument *document) const
{
    if (!document)
        document = &m_noDocument;
    return document->validateUserInterfaceItem(action, isFinalCutProRunning());
}

bool AppController::isFinalCutProRunning()
{
    return !TLWorkspace::shared()->runningApplicationsWithBundleIdentifier(finalCutProBundleIdentifier).empty();
}
