// Starting the maker's updater: quietly at start-up, or on request.
#pragma once

#include <optional>
#include <string>
#include <thread>

// What an update check on request came to. When no updater could be started,
// what to tell the user instead: where updates come from, and the page that
// offers the download (for a button that opens it).
struct TLUpdateCheck
{
    bool updaterLaunched = false;
    std::string messageText;
    std::string informativeText;
    std::string downloadURL;
    // The title of the button that opens downloadURL.
    static constexpr const char *openDownloadPageTitle = "Open Download Page";
};

// The updater object the application creates with its interface. Its
// start-up check runs on a thread of its own and only launches the updater
// with "-checkpath <program folder>"; the updater then checks quietly for
// this program. The class-level operations are safe from any thread.
//
// The updater ("Quillmoor Software Update.app") is looked for in the
// machine-wide Applications folder under "Quillmoor", then inside the
// program folder under "Contents/Resources" and "Contents/MacOS". An
// application is whatever the workspace (TLWorkspace) can find a program
// file for; on Linux, a runnable program file.
class TLSoftwareUpdate
{
public:
    static constexpr const char *updaterName = "Quillmoor Software Update.app";
    // The switch in "com.quillmoor.global.plist": boolean false turns the
    // start-up check off; missing or any other value leaves it on.
    static constexpr const char *checkAtStartupKey = "SUCheckAtStartup";

    TLSoftwareUpdate() = default;
    // Waits for a start-up check still running (it only starts a program).
    ~TLSoftwareUpdate();
    TLSoftwareUpdate(const TLSoftwareUpdate &) = delete;
    TLSoftwareUpdate &operator=(const TLSoftwareUpdate &) = delete;

    // startup(), when the object is created with the application's interface.
    void awakeFromNib();
    // Unless "SUCheckAtStartup" is boolean false, starts a thread running
    // automaticallyCheckForUpdates. True when the thread was started (at most
    // one per object: a second call while one runs starts nothing).
    bool startup();
    // Waits for the start-up thread, if any (for tests and shut-down).
    void waitForStartupCheck();
    // The menu action: launchSoftwareUpdate(); when that starts nothing,
    // whereUpdatesComeFrom() for the front end to show.
    TLUpdateCheck manualUpdateCheck();
    // Where updates come from without an updater: the package manager that
    // installed the program, else the download page on the maker's site
    // (TLSiteLinks::TessalineToolsURL). Never launched.
    static TLUpdateCheck whereUpdatesComeFrom();

    // The updater to run: the machine-wide one when it exists; else a copy of
    // the first in-program-folder one that exists, made in the user's private
    // temporary folder (TLLocalPaths::privateTemporaryDirectory) as
    // "Quillmoor Software Update.app" (replacing an older copy), so that the
    // updater never runs from inside what it may replace. nullopt, silently,
    // when none exists (the rule on Linux); nullopt when the copy fails
    // (logging and printing "Error: unable to copy software updater ...").
    static std::optional<std::string> updaterPath();
    // Launches the updater's program with "-checkpath" and the program
    // folder, without waiting. False when there is no updater (logging, not
    // printing, that the check is skipped) or when it cannot start it
    // (logging and printing "Unable to launch Software Update - updater
    // bundle not found." or "... - executable path doesn't exist").
    static bool automaticallyCheckForUpdates();
    // Opens the updater itself through the workspace for an interactive
    // check. False when there is no updater (logging "Unable to launch
    // Software Update - path doesn't exist") or it cannot be started.
    static bool launchSoftwareUpdate();

    // The folder that stands for the program's bundle: the running program's
    // folder, unless overridden (nullopt restores it). The same setting as
    // TLCrashwick::programFolder, which looks for the crash reporter there.
    static std::string programFolder();
    static void overrideProgramFolder(std::optional<std::string> folder);

private:
    std::thread m_startupThread;
};
