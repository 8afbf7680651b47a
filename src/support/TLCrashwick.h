// Noticing at start-up that the previous run crashed, and handing its crash
// report to the maker's crash reporter.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// Two stamps tell a crash from a clean exit: "launch", written at every
// start, and "exit", written at every clean termination. A start that finds
// a "launch" newer than "exit" and a crash report of the application written
// after that launch logs "Application crashed on last launch" and opens the
// newest such report in the crash reporter (Crashwick), unless the user has
// switched the reporter off. Stateless class; safe from any thread.
//
// The stamps live in the application's user defaults
// (TLUserDefaults::standard()) or, when a path is given, in that
// property-list file (written atomically, then given back to its user with
// chownPlist). Crash reports are looked for in logDirectory(user) and
// logDirectory(local) (TLLocalPaths), each in "CrashReporter" and then
// "DiagnosticReports".
class TLCrashwick
{
public:
    // Called with the crash report's path when one was found
    // (applicationDidCrashWithLog). It runs on the main thread
    // (TLMainThread), handed over from a thread of its own so that the start
    // never waits for it.
    using Delegate = std::function<void(const std::string &crashLogPath)>;

    // The identifier under which the reporter is started when no copy of it
    // lies beside the program. On Linux it names a program looked up in the
    // absolute folders of PATH (TLTaskEx::programOnPath), never in the
    // working folder.
    static constexpr const char *reporterBundleIdentifier = "com.quillmoor.Crashwick";
    // The switch in "com.quillmoor.global.plist" that keeps the reporter shut.
    static constexpr const char *disableCrashReporterKey = "disable-crash-reporter";

    // startCrashwick(nullopt, nullopt, {}).
    static void startCrashwick();
    // startCrashwick(nullopt, nullopt, delegate).
    static void startCrashwickWithDelegate(Delegate delegate);
    // Runs checkForCrashes(appName, plistPath), tells the delegate (when
    // given) about a report found, then stamps "launch" with the current
    // time. A stamp that cannot be written is logged and otherwise ignored.
    static void startCrashwick(const std::optional<std::string> &appName,
                               const std::optional<std::string> &plistPath, Delegate delegate = {});

    // Stamps "exit" with the current time, in the user defaults or in the
    // file at `plistPath`.
    static void stopCrashwick(const std::optional<std::string> &plistPath = std::nullopt);

    // The crash report of the last run, or nullopt: when there is no
    // "launch" stamp (first run), when "exit" is not earlier than "launch"
    // (clean exit), when the stamp file cannot be read, or when no report
    // folder yields a report modified after "launch". In each folder, in
    // the order above, the entries named "<appName>_..." (any case) are
    // taken in name order and the last one decides for that folder: when it
    // was modified in a later second than "launch" (stamps keep whole
    // seconds) it is the report, else the next folder is
    // searched. `appName` defaults to
    // defaultApplicationName(). A report found is logged ("Application
    // crashed on last launch") and opened in the reporter unless
    // "disable-crash-reporter" in the shared preference file "global" is the
    // string "1" or true ("Crash reporter disabled" on standard error and in
    // the log). Launch failures are not reported. When no reporter is
    // installed, the log and a non-waiting alert (unsentReportMessage,
    // unsentReportInformativeText) tell the user where the report is.
    static std::optional<std::string> checkForCrashes(const std::optional<std::string> &appName = std::nullopt,
                                                      const std::optional<std::string> &plistPath = std::nullopt);

    // Gives a stamp file written as root back to its user: the path component
    // after the first "Users" or "home" names the user, and "chown <user>
    // <path>" runs with a 5-second time-out ("/usr/sbin/chown", else the
    // first of "/usr/bin/chown" and "/bin/chown" that exists). Does nothing
    // when there is no such component or it is the last one; a failing
    // chown is not reported.
    static void chownPlist(const std::string &path);
    // Runs `program` instead of chown (tests); nullopt restores chown.
    static void overrideChownProgram(std::optional<std::string> program);

    // The alert's texts when a report is found and no reporter is installed.
    static std::string unsentReportMessage(const std::string &appName);
    static std::string unsentReportInformativeText(const std::string &reportPath);

    // The four crash-report folders in search order (a domain without a log
    // folder is left out).
    static std::vector<std::string> crashReportFolders();
    // The places the reporter application is looked for, in order: the
    // program folder's "Contents/Resources/Crashwick.app", the program
    // folder's "Crashwick.app", its "Contents/MacOS/Crashwick.app".
    static std::vector<std::string> reporterApplicationCandidates();

    // The name used when none is given: the one set with
    // setDefaultApplicationName, else the program file's name.
    static std::string defaultApplicationName();
    static void setDefaultApplicationName(std::optional<std::string> name);
    // The folder that stands for the application bundle: the running
    // program's folder, unless overridden (nullopt restores it).
    static std::string programFolder();
    static void overrideProgramFolder(std::optional<std::string> folder);
};
