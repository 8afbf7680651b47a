// Collecting an application's logs, crash reports and preference files
// into one archive for support, and opening its current log.
#pragma once

#include <optional>
#include <string>
#include <vector>

// Stateless troubleshooting helpers for the user who has to send
// diagnostics to support. Alerts go through TLAlert (waiting, no parent
// window); console messages go to standard error.
//
// Gathering copies, for each name, into a staging folder "TL_App_Logs" in
// the user's private temporary folder (TLLocalPaths::
// privateTemporaryDirectory) that mirrors the source folders:
// - the logs: files in the user's and then the machine-wide log folder
//   (TLLog::userLogFolder, TLLog::machineWideLogFolder) beginning with the
//   name and ending in ".log" (so the command line's "<name> CLI" log too);
// - the crash reports: files in the four crash-report folders of
//   TLCrashwick beginning with "<name>_" and ending in ".crash" or ".ips";
// - the preference files "com.quillmoor.<name without blanks>.plist" (or
//   that in lower case when the first is missing) in the user's and the
//   machine-wide preferences folders;
// - the extra files given.
// It then zips the staging folder (as the archive's top folder) to
// "<desktop>/<first name> Logs.zip", or when that exists to
// "<desktop>/<first name> Logs_<YYYYmmddHHMMSS>.zip" (local time). The
// staged copies, the archive's entries and the archive itself are the
// user's alone (files 0600, folders 0700, whatever the umask); the archive
// is made in the private folder and moved to the desktop once private.
//
// Only regular files are collected; sub-folders are not entered. A symbolic
// link inside a searched folder is followed only when it resolves to a
// regular file inside the user's home folder or one of the searched folders;
// any other link (to a folder, a device, the shared temporary folder, a file
// of another user's tree, or dangling) is skipped, so nothing outside those
// places can end up in an archive. Extra files are the caller's choice and
// are copied wherever they lie, links resolved.
class TLTroubleshootingUtils
{
public:
    // gatherLogsForAppsWithNames({name}).
    static bool gatherLogsForAppWithName(const std::string &name);
    // Gathers and archives as above. True when the archive was made. False
    // for an empty list, when nothing was found ("No logs found" / "There
    // were no logs available to gather." unless `silent`), when the staging
    // folder cannot be made or a copy fails (a console line says which), or
    // when zipping fails ("Logs could not be gathered" / "Please check your
    // file permissions." unless `silent`). Success shows "Logs gathered
    // successfully" / "The gathered logs were placed on your desktop."
    // unless `silent`. The staging folder is removed afterwards.
    static bool gatherLogsForAppsWithNames(const std::vector<std::string> &names, bool silent = false,
                                           const std::vector<std::string> &additionalFiles = {});

    // Opens "<user Library>/Logs/Quillmoor/<name>.1.log" with the
    // workspace's default application. False, with the alert "No log found" /
    // "You must perform a task before viewing the log.", when it does not
    // exist; false too when the workspace cannot open it.
    static bool viewLogForApp(const std::string &name);
    // The same for "<name>.1.task.log", with the informative text "You must
    // run the application as a task (e.g. through Task Scheduler) before
    // viewing a log.".
    static bool viewTaskLogForApp(const std::string &name);

    // The staging folder's name, which is also the archive's top folder.
    static constexpr const char *stagingFolderName = "TL_App_Logs";
    // privateTemporaryDirectory() + "/TL_App_Logs"; nullopt when no private
    // folder can be made.
    static std::optional<std::string> stagingFolder();
    // Where the archive goes: TLLocalPaths::desktopDirectory(), else
    // "$HOME/Desktop"; the folder is created when missing. nullopt when it
    // cannot be made.
    static std::optional<std::string> archiveFolder();
};
