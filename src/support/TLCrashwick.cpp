// Crash detection at start-up: the launch and exit stamps, the search for a
// fresh crash report and the reporter's launch.
#include "TLCrashwick.h"

#include "TLAlert.h"
#include "TLCaseFolding.h"
#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLMainThread.h"
#include "TLPropertyList.h"
#include "TLTaskEx.h"
#include "TLUserDefaults.h"
#include "TLWorkspace.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <thread>

namespace fs = std::filesystem;

namespace {

using TimePoint = std::chrono::system_clock::time_point;

constexpr const char *launchKey = "launch";
constexpr const char *exitKey = "exit";

std::mutex settingsMutex;
std::optional<std::string> applicationNameSetting;
std::optional<std::string> programFolderOverride;
std::optional<std::string> chownProgramOverride;

std::shared_ptr<TLUserDefaults> stampStore(const std::optional<std::string> &plistPath)
{
    if (plistPath)
        return std::make_shared<TLUserDefaults>(*plistPath);
    return TLUserDefaults::standard();
}

void stamp(const char *key, const std::optional<std::string> &plistPath)
{
    if (!stampStore(plistPath)->setDate(key, std::chrono::system_clock::now())) {
        TLLog::appendLog("Unable to write the crash detection stamp \"%@\"", key);
        return;
    }
    if (plistPath)
        TLCrashwick::chownPlist(*plistPath);
}

std::optional<TimePoint> modificationTime(const fs::path &path)
{
    std::error_code error;
    const auto written = fs::last_write_time(path, error);
    if (error)
        return std::nullopt;
    // The stamps keep whole seconds, so the report's time is compared at
    // that precision: a report from the very second of the launch is older.
    return std::chrono::floor<std::chrono::seconds>(std::chrono::file_clock::to_sys(written));
}

// The names are sorted so that "the last report" is the same on every file
// system; for the usual "<name>_<date>_<host>.crash" names it is the newest.
std::optional<std::string> newestReportIn(const std::string &folder, const std::string &prefix)
{
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (TLCaseFolding::foldedCase(name).starts_with(prefix))
            names.push_back(name);
    }
    if (names.empty())
        return std::nullopt;
    return folder + "/" + *std::max_element(names.begin(), names.end());
}

bool isReporterSwitchedOff()
{
    const auto path = TLUserDefaults::forDomain("global")->path();
    const auto list = path.empty() ? TLPropertyList() : TLPropertyList::fromFile(path);
    const plist_t value = list.itemForKey(TLCrashwick::disableCrashReporterKey);
    switch (value ? plist_get_node_type(value) : PLIST_NONE) {
    case PLIST_STRING: return TLPropertyList::stringValue(value) == "1";
    case PLIST_BOOLEAN: return TLPropertyList::boolValue(value) == true;
    default: return false;
    }
}

std::optional<std::string> installedReporter()
{
    for (const std::string &candidate : TLCrashwick::reporterApplicationCandidates()) {
        std::error_code error;
        if (fs::exists(candidate, error))
            return candidate;
    }
    // Without a copy beside the program the reporter is the program of that
    // identifier on PATH, resolved here to an absolute path: a bare name
    // handed on could be taken from the working folder.
    return TLTaskEx::programOnPath(TLCrashwick::reporterBundleIdentifier);
}

// Nobody else will tell the user that a report exists, so the user is
// told where to find it; the start does not wait for the answer.
void showWhereTheReportIs(const std::string &appName, const std::string &reportPath)
{
    TLLog::appendLog("No crash reporter installed; the crash report is %@", reportPath);
    TLAlert::alertSheetWithMessageText(TLCrashwick::unsentReportMessage(appName), std::nullopt,
                                       std::nullopt, std::nullopt,
                                       TLCrashwick::unsentReportInformativeText(reportPath),
                                       nullptr, false);
}

void openInReporter(const std::string &appName, const std::string &reportPath)
{
    const std::optional<std::string> reporter = installedReporter();
    if (!reporter) {
        showWhereTheReportIs(appName, reportPath);
        return;
    }
    TLWorkspace::shared()->openFile(reportPath, *reporter);
}

void tellDelegate(const TLCrashwick::Delegate &delegate, const std::string &reportPath)
{
    // A thread of its own hands the call to the main thread, so that the
    // start-up goes on without waiting for the delegate.
    std::thread([delegate, reportPath] {
        TLMainThread::shared()->performAndWait([&] {
            try {
                delegate(reportPath);
            } catch (const std::exception &exception) {
                TLLog::appendLog("Exception in applicationDidCrashWithLog: %@", exception.what());
            } catch (...) {
                TLLog::appendLog("Exception in applicationDidCrashWithLog");
            }
        });
    }).detach();
}

std::string chownProgram()
{
    {
        const std::lock_guard lock(settingsMutex);
        if (chownProgramOverride)
            return *chownProgramOverride;
    }
    for (const char *candidate : {"/usr/sbin/chown", "/usr/bin/chown", "/bin/chown"}) {
        if (TLTaskEx::isRunnable(candidate))
            return candidate;
    }
    return "/usr/sbin/chown";
}

} // namespace

void TLCrashwick::startCrashwick()
{
    startCrashwick(std::nullopt, std::nullopt, {});
}

void TLCrashwick::startCrashwickWithDelegate(Delegate delegate)
{
    startCrashwick(std::nullopt, std::nullopt, std::move(delegate));
}

void TLCrashwick::startCrashwick(const std::optional<std::string> &appName,
                                 const std::optional<std::string> &plistPath, Delegate delegate)
{
    const auto report = checkForCrashes(appName, plistPath);
    if (report && delegate)
        tellDelegate(delegate, *report);
    stamp(launchKey, plistPath);
}

void TLCrashwick::stopCrashwick(const std::optional<std::string> &plistPath)
{
    stamp(exitKey, plistPath);
}

std::optional<std::string> TLCrashwick::checkForCrashes(const std::optional<std::string> &appName,
                                                        const std::optional<std::string> &plistPath)
{
    const auto store = stampStore(plistPath);
    const auto launch = store->dateForKey(launchKey);
    if (!launch)
        return std::nullopt;
    const auto exit = store->dateForKey(exitKey);
    if (exit && *exit >= *launch)
        return std::nullopt;
    const std::string name = appName.value_or(defaultApplicationName());
    const std::string prefix = TLCaseFolding::foldedCase(name + "_");
    std::optional<std::string> report;
    for (const std::string &folder : crashReportFolders()) {
        const auto candidate = newestReportIn(folder, prefix);
        const auto written = candidate ? modificationTime(*candidate) : std::nullopt;
        if (written && *written > *launch) {
            report = candidate;
            break;
        }
    }
    if (!report)
        return std::nullopt;
    TLLog::appendLog("Application crashed on last launch");
    if (isReporterSwitchedOff()) {
        std::cerr << "Crash reporter disabled" << std::endl;
        TLLog::appendLog("Crash reporter disabled");
        return report;
    }
    openInReporter(name, *report);
    return report;
}

void TLCrashwick::chownPlist(const std::string &path)
{
    const fs::path whole(path);
    const std::vector<fs::path> parts(whole.begin(), whole.end());
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
        if (parts[i] != "Users" && parts[i] != "home")
            continue;
        const std::string user = parts[i + 1].string();
        if (user.empty())
            return;
        TLTaskEx::runTask(chownProgram(), {user, path}, 5.0);
        return;
    }
}

std::string TLCrashwick::unsentReportMessage(const std::string &appName)
{
    return appName + " quit unexpectedly the last time it ran.";
}

std::string TLCrashwick::unsentReportInformativeText(const std::string &reportPath)
{
    return "A crash report was saved as:\n" + reportPath
        + "\n\nNo crash reporter is installed to send it. Please attach this file when you report "
          "the problem to Quillmoor.";
}

std::vector<std::string> TLCrashwick::crashReportFolders()
{
    std::vector<std::string> folders;
    for (const bool user : {true, false}) {
        const auto logs = TLLocalPaths::logDirectory(user);
        if (!logs)
            continue;
        folders.push_back(*logs + "/CrashReporter");
        folders.push_back(*logs + "/DiagnosticReports");
    }
    return folders;
}

std::vector<std::string> TLCrashwick::reporterApplicationCandidates()
{
    const std::string folder = programFolder();
    return {folder + "/Contents/Resources/Crashwick.app", folder + "/Crashwick.app",
            folder + "/Contents/MacOS/Crashwick.app"};
}

std::string TLCrashwick::defaultApplicationName()
{
    {
        const std::lock_guard lock(settingsMutex);
        if (applicationNameSetting)
            return *applicationNameSetting;
    }
    return TLLog::sharedController().appName();
}

void TLCrashwick::setDefaultApplicationName(std::optional<std::string> name)
{
    const std::lock_guard lock(settingsMutex);
    applicationNameSetting = std::move(name);
}

std::string TLCrashwick::programFolder()
{
    {
        const std::lock_guard lock(settingsMutex);
        if (programFolderOverride)
            return *programFolderOverride;
    }
    std::error_code error;
    const auto program = fs::read_symlink("/proc/self/exe", error);
    return error ? std::string() : program.parent_path().string();
}

void TLCrashwick::overrideProgramFolder(std::optional<std::string> folder)
{
    const std::lock_guard lock(settingsMutex);
    programFolderOverride = std::move(folder);
}

void TLCrashwick::overrideChownProgram(std::optional<std::string> program)
{
    const std::lock_guard lock(settingsMutex);
    chownProgramOverride = std::move(program);
}
