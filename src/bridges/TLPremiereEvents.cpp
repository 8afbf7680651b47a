// Premiere Pro commands sent as ExtendScript through the ExtendScript Toolkit.
#include "TLPremiereEvents.h"

#include "TLAlert.h"
#include "TLAtomicFile.h"
#include "TLFileManager.h"
#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLPremiere.h"
#include "TLPropertyList.h"
#include "TLTaskEx.h"
#include "TLTextCoding.h"
#include "TLWorkspace.h"

#include <filesystem>
#include <mutex>
#include <system_error>
#include <thread>

#include <syslog.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr const char *notFoundMessage = "Premiere Pro not found on this computer.";

std::mutex hooksMutex;
TLPremiereEvents::TaskRunner taskRunner;
TLPremiereEvents::Sleeper sleeper;
TLPremiereEvents::SystemLogger systemLogger;

void runTask(const std::string &path, const std::vector<std::string> &arguments, double timeout)
{
    TLPremiereEvents::TaskRunner runner;
    {
        const std::lock_guard lock(hooksMutex);
        runner = taskRunner;
    }
    if (runner) {
        runner(path, arguments, timeout);
        return;
    }
    // Whether the toolkit ran is not examined: the script reports nothing.
    (void)TLTaskEx::runTask(path, arguments, timeout);
}

void sleepFor(std::chrono::microseconds duration)
{
    TLPremiereEvents::Sleeper wait;
    {
        const std::lock_guard lock(hooksMutex);
        wait = sleeper;
    }
    if (wait)
        wait(duration);
    else
        std::this_thread::sleep_for(duration);
}

void writeSystemLog(const std::string &line)
{
    TLPremiereEvents::SystemLogger logger;
    {
        const std::lock_guard lock(hooksMutex);
        logger = systemLogger;
    }
    if (logger)
        logger(line);
    else
        syslog(LOG_NOTICE, "%s", line.c_str());
}

bool premiereIsRunning()
{
    return !TLWorkspace::shared()
                ->runningApplicationsWithBundleIdentifier(TLPremiereEvents::bundleIdentifier)
                .empty();
}

// `path` without its last component, as a path string ("/a/b" gives "/a",
// "/a" gives "/", "a" gives "").
std::string deletingLastPathComponent(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return {};
    return slash == 0 ? std::string("/") : path.substr(0, slash);
}

std::optional<std::string> bundleVersionOfExecutable(const std::string &executable)
{
    const std::string contents = deletingLastPathComponent(deletingLastPathComponent(executable));
    const TLPropertyList info = TLPropertyList::fromFile(contents + "/Info.plist");
    return info.stringForKey("CFBundleVersion");
}

// Writes the script; its path, or nullopt after logging why not.
std::optional<std::string> writeScript(const std::string &text)
{
    const std::optional<std::string> folder = TLPremiereEvents::scriptsFolder();
    if (!folder) {
        TLLog::appendLog("Unable to write script file to disk: %@", "no Documents folder");
        return std::nullopt;
    }
    // A folder that cannot be made is reported by the write that follows.
    (void)TLFileManager::createDirectory(*folder);
    const std::string path = TLFileManager::uniqueFilename(*folder + "/TL_Script.jsx");
    const std::string failure = TLAtomicFile::writeContents(path, text);
    if (!failure.empty()) {
        TLLog::appendLog("Unable to write script file to disk: %@", failure);
        return std::nullopt;
    }
    return path;
}

void deleteScript(const std::string &path)
{
    std::error_code error;
    fs::remove(path, error);
    if (error)
        TLLog::appendLog("Error deleting script: %@", error.message());
}

// The installed version to use, as its CS number, launching Premiere Pro
// when asked to; nullopt after logging when the command cannot go on.
std::optional<std::string> preparePremiere(bool shouldLaunch)
{
    const std::vector<std::string> versions = TLPremiere::premiereVersions();
    if (versions.empty()) {
        TLLog::appendLog(notFoundMessage);
        return std::nullopt;
    }
    const std::string csNumber = TLPremiere::csNumber(versions.back());
    if (premiereIsRunning())
        return csNumber;
    if (!shouldLaunch) {
        TLLog::appendLog("Error: Premiere Pro is not running.");
        return std::nullopt;
    }
    if (const auto application = TLPremiereEvents::applicationPath(csNumber))
        (void)TLWorkspace::shared()->launchApplication(*application);
    sleepFor(3s);
    return csNumber;
}

} // namespace

std::optional<std::string> TLPremiereEvents::runningPremiereVersion()
{
    const auto running = TLWorkspace::shared()->runningApplicationsWithBundleIdentifier(bundleIdentifier);
    if (running.empty())
        return std::nullopt;
    const std::optional<std::string> bundleVersion = bundleVersionOfExecutable(running.front().executablePath);
    const std::vector<std::string> components =
        TLTextCoding::componentsSeparatedByString(bundleVersion.value_or(""), '.');
    if (!bundleVersion || components.size() < 2) {
        TLLog::appendLog("Unknown Premiere version.");
        return std::nullopt;
    }
    return components[0] + "." + components[1];
}

void TLPremiereEvents::createQeObject()
{
    const std::vector<std::string> versions = TLPremiere::premiereVersions();
    if (versions.empty()) {
        TLLog::appendLog(notFoundMessage);
        return;
    }
    const std::optional<std::string> applications = TLLocalPaths::applicationDirectory(false);
    if (!applications)
        return;
    bool created = false;
    for (const std::string &version : versions) {
        const std::string marker =
            *applications + "/Adobe Premiere Pro CS" + TLPremiere::csNumber(version) + "/extendscriptprqe.txt";
        std::error_code error;
        if (fs::exists(fs::symlink_status(marker, error)))
            continue;
        const std::string failure = TLAtomicFile::writeContents(marker, "");
        if (!failure.empty()) {
            TLLog::appendLog("Unable to create qe file: %@", failure);
            continue;
        }
        created = true;
    }
    // Premiere Pro looks for the marker only when it starts.
    if (created && premiereIsRunning())
        TLAlert::alertSheetWithMessageText(
            "Premiere Pro now configured",
            "Please close and relaunch Adobe Premiere Pro in order to use it with this application.",
            nullptr);
}

void TLPremiereEvents::executeScript(const std::string &body, bool shouldLaunch)
{
    createQeObject();
    const std::optional<std::string> csNumber = preparePremiere(shouldLaunch);
    if (!csNumber)
        return;
    const std::string version = runningPremiereVersion().value_or(defaultVersion);
    const std::optional<std::string> script = writeScript(scriptText(version, body));
    if (!script)
        return;
    const std::string toolkit = toolkitPath(*csNumber).value_or("");
    writeSystemLog("start");
    runTask(openPath, {"-W", "-g", "-n", "-a", toolkit, *script}, toolkitTimeout);
    writeSystemLog("end");
    sleepFor(500us);
    deleteScript(*script);
}

void TLPremiereEvents::openFCPXML(const std::string &path, bool shouldLaunch)
{
    executeScript("app.openFCPXML('" + path + "')", shouldLaunch);
}

void TLPremiereEvents::exportFCPXML(const std::string &path, bool shouldLaunch)
{
    executeScript("app.project.exportFinalCutProXML('" + path + "')", shouldLaunch);
    // Premiere Pro goes on writing after the toolkit has returned.
    sleepFor(5s);
}

void TLPremiereEvents::openProject(const std::string &path, bool shouldLaunch)
{
    executeScript("app.openDocument('" + path + "')", shouldLaunch);
}

std::string TLPremiereEvents::scriptText(const std::string &version, const std::string &body)
{
    // The pieces are joined bare, so some lines run together; the script
    // engine does not mind, and the file must stay as it has always been.
    std::string text;
    text += "#target \"premierepro-" + version + "\"\n\n";
    text += "BridgeTalk.prototype.sendSync = function(timeout) {\nvar self = this;";
    text += "self.onResult = function(res) {\nthis.result = res.body;\nthis.complete = true;\n}";
    text += "self.complete = false;\nself.send();\n\n";
    text += "if (timeout) {\nfor (var i = 0; i < timeout; i++) {\n"
            "BridgeTalk.pump(); // process any outstanding messages\n";
    text += "if (!self.complete) {\n$.sleep(1000);\n} else {\nbreak;\n}\n}\n}";
    text += "\n\nvar res = self.result;\nself.result = self.complete = self.onResult = undefined;\n"
            "return res;\n};";
    text += "var bt = new BridgeTalk;\nbt.target = \"premierepro-" + version + "\"\n";
    text += "bt.body = \"" + body + "\";";
    text += "bt.onResult = function(obj) {\n};\nbt.sendSync(90);";
    return text;
}

std::optional<std::string> TLPremiereEvents::toolkitPath(const std::string &csNumber)
{
    const std::optional<std::string> utilities = TLLocalPaths::adminApplicationDirectory(false);
    if (!utilities)
        return std::nullopt;
    return *utilities + "/Adobe Utilities-CS" + csNumber + ".localized/ExtendScript Toolkit CS"
        + csNumber + "/ExtendScript Toolkit.app";
}

std::optional<std::string> TLPremiereEvents::applicationPath(const std::string &csNumber)
{
    const std::optional<std::string> applications = TLLocalPaths::applicationDirectory(false);
    if (!applications)
        return std::nullopt;
    return *applications + "/Adobe Premiere Pro CS" + csNumber + "/Adobe Premiere Pro CS" + csNumber + ".app";
}

std::optional<std::string> TLPremiereEvents::scriptsFolder()
{
    const std::optional<std::string> documents = TLLocalPaths::documentDirectory(true);
    if (!documents)
        return std::nullopt;
    return *documents + "/Adobe Scripts";
}

void TLPremiereEvents::setTaskRunner(TaskRunner runner)
{
    const std::lock_guard lock(hooksMutex);
    taskRunner = std::move(runner);
}

void TLPremiereEvents::setSleeper(Sleeper wait)
{
    const std::lock_guard lock(hooksMutex);
    sleeper = std::move(wait);
}

void TLPremiereEvents::setSystemLogger(SystemLogger logger)
{
    const std::lock_guard lock(hooksMutex);
    systemLogger = std::move(logger);
}
