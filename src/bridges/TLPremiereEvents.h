// Premiere Pro driven through ExtendScript: one line of script handed to it
// by BridgeTalk from a script file run in Adobe's ExtendScript Toolkit.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// Sends Premiere Pro one command at a time (import an xmeml file, export the
// open project as xmeml, open a project). Each command writes a small script
// file to "Adobe Scripts" in the user's Documents folder, runs it in the
// ExtendScript Toolkit through "/usr/bin/open" and deletes it again. Nothing
// reports success: the command's effects show in Premiere Pro or, for an
// export, in the file that appears. Problems go to the application log.
//
// All operations are class operations that block the calling thread (up to
// 3 seconds after launching Premiere Pro, 30 for the toolkit run and 5 more
// after an export). Running applications come from TLWorkspace::shared().
// The program runner, the waits and the system log can be replaced (for
// tests, so that nothing is run and nobody waits); the replacements are
// process-wide and guarded, so commands may run on any thread. Nothing
// throws.
class TLPremiereEvents
{
public:
    static constexpr const char *bundleIdentifier = "com.adobe.AdobePremierePro";
    // The version assumed when the running one cannot be told.
    static constexpr const char *defaultVersion = "6.0";
    static constexpr const char *openPath = "/usr/bin/open";
    static constexpr double toolkitTimeout = 30;

    // Runs `path` with `arguments`, waiting for it at most `timeout` seconds.
    using TaskRunner = std::function<void(const std::string &path,
                                          const std::vector<std::string> &arguments,
                                          double timeout)>;
    // Blocks the calling thread for the duration.
    using Sleeper = std::function<void(std::chrono::microseconds duration)>;
    // Writes one line to the system log.
    using SystemLogger = std::function<void(const std::string &line)>;

    // The version of the running Premiere Pro: the first two components of
    // the "CFBundleVersion" in the Info.plist of the first running
    // application with bundleIdentifier (its program file's path, two
    // components up, then "Info.plist"). nullopt without a message when none
    // runs; nullopt after logging "Unknown Premiere version." when the
    // property list is missing or damaged or the bundle version has no dot.
    static std::optional<std::string> runningPremiereVersion();

    // Lets Premiere Pro take scripts: writes an empty "extendscriptprqe.txt"
    // into the folder of every installed version where it is missing. When a
    // marker was made while Premiere Pro runs, shows (and waits for) the
    // alert "Premiere Pro now configured", since Premiere Pro reads the
    // marker only at launch. Logs "Premiere Pro not found on this computer."
    // when nothing is installed, "Unable to create qe file: <reason>" for a
    // marker that cannot be written.
    static void createQeObject();

    // Sends the one-line script `body` to the newest installed Premiere Pro,
    // launching it first when `shouldLaunch` (else logging "Error: Premiere
    // Pro is not running." and stopping when it is not running). Logs
    // "Premiere Pro not found on this computer." when nothing is installed,
    // "Unable to write script file to disk: <reason>" and "Error deleting
    // script: <reason>" for the script file's failures. The body goes into
    // the script as it is: quotation marks in it are not escaped.
    static void executeScript(const std::string &body, bool shouldLaunch);

    // Imports the xmeml file at `path` into the open Premiere Pro project.
    static void openFCPXML(const std::string &path, bool shouldLaunch = true);
    // Exports the open project as xmeml to `path`; returns 5 seconds after
    // the script has run, which may still be before the file is complete.
    static void exportFCPXML(const std::string &path, bool shouldLaunch = true);
    // Opens the Premiere Pro project at `path`.
    static void openProject(const std::string &path, bool shouldLaunch = true);

    // The whole text of the script file that sends `body` to the BridgeTalk
    // target "premierepro-<version>". Neither value is escaped.
    static std::string scriptText(const std::string &version, const std::string &body);
    // The ExtendScript Toolkit of the Adobe version `csNumber` in the
    // machine-wide Utilities folder; nullopt when that folder is unknown.
    static std::optional<std::string> toolkitPath(const std::string &csNumber);
    // The Premiere Pro application of `csNumber` in the machine-wide
    // Applications folder; nullopt when that folder is unknown.
    static std::optional<std::string> applicationPath(const std::string &csNumber);
    // The folder the script files are written to: "Adobe Scripts" in the
    // user's Documents folder; nullopt when that folder is unknown.
    static std::optional<std::string> scriptsFolder();

    // Replace the program runner (default: TLTaskEx::runTask with the
    // time-out), the waits (default: std::this_thread::sleep_for) and the
    // system log (default: syslog). An empty function restores the default.
    static void setTaskRunner(TaskRunner runner);
    static void setSleeper(Sleeper sleeper);
    static void setSystemLogger(SystemLogger logger);
};
