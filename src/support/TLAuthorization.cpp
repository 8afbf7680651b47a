// Administrator-rights file operations through polkit's pkexec.
#include "TLAuthorization.h"

#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLTaskEx.h"
#include "TLTrash.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <thread>

namespace fs = std::filesystem;

namespace {

const char *const pkexecPath = "/usr/bin/pkexec";

bool hasVariable(const char *name)
{
    const char *value = std::getenv(name);
    return value && *value;
}

class PolkitCommandRunner : public TLAuthorization::CommandRunner
{
public:
    bool isPromptAvailable() override
    {
        // pkexec finds its graphical agent through the session; without one
        // it would fall back to asking on a terminal the user may not see.
        return (hasVariable("DISPLAY") || hasVariable("WAYLAND_DISPLAY")) && TLTaskEx::isRunnable(pkexecPath);
    }

    bool requestRight() override { return TLTaskEx::terminationCodeFromTask(pkexecPath, {"/bin/true"}) == 0; }

    bool requestRight(const std::string &, const std::string &) override { return false; }

    void runDirectly(const std::string &tool, const std::vector<std::string> &arguments, bool wait) override
    {
        if (wait)
            TLTaskEx::runTask(tool, arguments);
        else
            TLTaskEx::runTaskAndReturn(tool, arguments);
    }

    int runPrivileged(const std::string &tool, const std::vector<std::string> &arguments, bool wait) override
    {
        std::vector<std::string> command{tool};
        command.insert(command.end(), arguments.begin(), arguments.end());
        if (wait)
            return TLTaskEx::terminationCodeFromTask(pkexecPath, command);
        return TLTaskEx::runTaskAndReturn(pkexecPath, command) ? 0 : 1;
    }
};

void console(const std::string &text)
{
    std::cerr << text << std::endl;
}

bool exists(const std::string &path)
{
    std::error_code ignored;
    const fs::file_type type = fs::symlink_status(path, ignored).type();
    return type != fs::file_type::not_found && type != fs::file_type::none;
}

std::string lastComponent(const std::string &path)
{
    fs::path item(path);
    while (item.has_relative_path() && item.filename().empty())
        item = item.parent_path();
    return item.filename().string();
}

std::string localTimeStamp()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32] = {};
    std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &local);
    return text;
}

// The extension as the Trash naming sees it: after the last full stop of
// the name, none for a leading full stop.
std::string extensionOf(const std::string &name)
{
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

std::string withoutExtension(const std::string &path)
{
    const std::string name = lastComponent(path);
    const std::string extension = extensionOf(name);
    return extension.empty() ? path : path.substr(0, path.size() - extension.size() - 1);
}

bool isRoot()
{
    return TLLocalPaths::userId() == 0;
}

std::mutex &sharedMutex()
{
    static std::mutex mutex;
    return mutex;
}

std::shared_ptr<TLAuthorization::CommandRunner> &configuredRunner()
{
    static std::shared_ptr<TLAuthorization::CommandRunner> runner;
    return runner;
}

std::unique_ptr<TLAuthorization> &sharedInstance()
{
    static std::unique_ptr<TLAuthorization> instance;
    return instance;
}

std::vector<std::string> folderItems(const std::string &path, bool &listed)
{
    std::vector<std::string> items;
    std::error_code error;
    for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error))
        items.push_back(it->path().string());
    listed = !error;
    std::sort(items.begin(), items.end());
    return items;
}

} // namespace

std::shared_ptr<TLAuthorization::CommandRunner> TLAuthorization::systemCommandRunner()
{
    return std::make_shared<PolkitCommandRunner>();
}

TLAuthorization &TLAuthorization::sharedController(bool hasGUI)
{
    const std::lock_guard<std::mutex> lock(sharedMutex());
    std::unique_ptr<TLAuthorization> &instance = sharedInstance();
    if (!instance)
        instance = std::make_unique<TLAuthorization>(hasGUI, configuredRunner());
    return *instance;
}

void TLAuthorization::setCommandRunner(std::shared_ptr<CommandRunner> runner)
{
    const std::lock_guard<std::mutex> lock(sharedMutex());
    configuredRunner() = runner;
    if (sharedInstance())
        sharedInstance()->setRunner(runner);
}

TLAuthorization::TLAuthorization(bool hasGUI, std::shared_ptr<CommandRunner> runner)
    : m_hasGUI(hasGUI)
{
    setRunner(std::move(runner));
    if (!isRoot())
        m_userDirectory = TLLocalPaths::userDirectory();
}

TLAuthorization::~TLAuthorization()
{
    authEnd();
}

void TLAuthorization::setRunner(std::shared_ptr<CommandRunner> runner)
{
    m_runner = runner ? std::move(runner) : systemCommandRunner();
}

bool TLAuthorization::authStart()
{
    if (isAuthorized())
        return true;
    if (!m_hasGUI || !m_runner->isPromptAvailable()) {
        console("Unable to authorize");
        return false;
    }
    m_authRef = m_runner->requestRight();
    return m_authRef;
}

bool TLAuthorization::authStartWithUser(const std::string &username, const std::string &password)
{
    if (isAuthorized())
        return true;
    m_authRef = m_runner->requestRight(username, password);
    if (!m_authRef) {
        console("Authorization failed. Invalid username or password");
        TLLog::appendLog("Authorization failed. Invalid username or password");
    }
    return m_authRef;
}

void TLAuthorization::authEnd()
{
    m_authRef = false;
}

bool TLAuthorization::isAuthorized() const
{
    return isRoot() || m_authRef;
}

bool TLAuthorization::canAuthorize() const
{
    return isRoot() || (m_hasGUI && m_runner->isPromptAvailable());
}

int TLAuthorization::authExecTask(const std::string &tool, const std::vector<std::string> &arguments, bool async)
{
    if (!exists(tool)) {
        console("Unable to execute task: path " + tool + " doesn't exist");
        return -2;
    }
    if (isRoot()) {
        m_runner->runDirectly(tool, arguments, !async);
        return 0;
    }
    if (!isAuthorized() && !authStart())
        return -1;
    return m_runner->runPrivileged(tool, arguments, !async);
}

bool TLAuthorization::runAsRoot(const std::string &tool, const std::vector<std::string> &arguments, bool async)
{
    m_runner->runDirectly(tool, arguments, !async);
    return true;
}

bool TLAuthorization::authRemoveFile(const std::string &path)
{
    if (path.empty())
        return false;
    if (TLLocalPaths::isPathSystemDirectory(path, true)) {
        console("Unable to delete path " + path + " because it is a system directory.");
        return false;
    }
    return authExecTask("/bin/rm", {"-Rdf", path}) == 0;
}

std::string TLAuthorization::trashDestination(const std::string &path) const
{
    const std::string name = lastComponent(path);
    std::string destination = isRoot() && m_userDirectory ? *m_userDirectory + "/.Trash/" + name
                                                          : TLLocalPaths::trashDirectory() + "/" + name;
    // The full stop stays even without an extension ("name_20240305140709."),
    // so every renamed item has the same shape.
    if (exists(destination))
        destination = withoutExtension(destination) + "_" + localTimeStamp() + "." + extensionOf(name);
    return destination;
}

bool TLAuthorization::moveIntoTrash(const std::string &path)
{
    const std::string name = lastComponent(path);
    const std::string stamped = withoutExtension(name) + "_" + localTimeStamp();
    const std::string extension = extensionOf(name);
    // The own name first, then the time-stamped one; two items of the same
    // name in the same second are told apart by a number after the stamp.
    const auto names = [&](long attempt) {
        if (attempt == 1)
            return name;
        return stamped + (attempt == 2 ? std::string() : " " + std::to_string(attempt - 1)) + "." + extension;
    };
    std::string error;
    const std::optional<TLTrash::Slot> slot = TLTrash::reserveSlot(path, names, error);
    if (!slot) {
        console("Unable to trash path " + path + ": " + error);
        return false;
    }
    // The record stays with an item whose move was only started: the tool
    // reports nothing back, and a record without an item is harmless.
    if (authMoveFile(path, slot->itemPath))
        return true;
    TLTrash::releaseSlot(*slot);
    return false;
}

bool TLAuthorization::authTrashFile(const std::string &path, bool deleteOnRootAccount)
{
    if (path.empty())
        return false;
    if (TLLocalPaths::isPathSystemDirectory(path, true)) {
        console("Unable to trash path " + path + " because it is a system directory.");
        return false;
    }
    // Removing the computed Trash path rather than the item itself is the
    // long-standing behaviour callers rely on; do not "fix" it to `path`.
    if (!m_userDirectory && deleteOnRootAccount && isRoot())
        return authRemoveFile(trashDestination(path));
    // Root trashing for a known user goes to that user's ".Trash", which
    // keeps no records.
    if (isRoot() && m_userDirectory)
        return authMoveFile(path, trashDestination(path));
    return moveIntoTrash(path);
}

bool TLAuthorization::authTrashFolderContents(const std::string &path, bool deleteOnRootAccount)
{
    if (TLLocalPaths::isPathSystemDirectory(path, true)) {
        console("Unable to trash folder contents of path " + path + " because it is a system directory.");
        return false;
    }
    bool listed = false;
    const std::vector<std::string> items = folderItems(path, listed);
    if (!listed)
        return false;
    const bool removeOutright = isRoot() && deleteOnRootAccount && !m_userDirectory;
    int failures = 0;
    for (const std::string &item : items) {
        const bool done = removeOutright ? authExecTask("/bin/rm", {"-R", "-f", item}) == 0 : authTrashFile(item);
        failures += done ? 0 : 1;
    }
    return failures == 0;
}

bool TLAuthorization::authMoveFolderContents(const std::string &path, const std::string &destination)
{
    if (TLLocalPaths::isPathSystemDirectory(path, true)) {
        console("Unable to move contents of path " + path + " because it is a system directory.");
        return false;
    }
    bool listed = false;
    const std::vector<std::string> items = folderItems(path, listed);
    if (!listed)
        return false;
    int failures = 0;
    for (const std::string &item : items)
        failures += authMoveFile(item, (fs::path(destination) / lastComponent(item)).string()) ? 0 : 1;
    return failures == 0;
}

bool TLAuthorization::authMoveFile(const std::optional<std::string> &source,
                                   const std::optional<std::string> &destination)
{
    if (!source || source->empty()) {
        console("Error in authMoveFile: old path is null");
        return false;
    }
    if (!destination || destination->empty()) {
        console("Error in authMoveFile: new path is null");
        return false;
    }
    if (TLLocalPaths::isPathSystemDirectory(*source, true)) {
        console("Unable to move path " + *source + " because it is a system directory.");
        return false;
    }
    if (!exists(*source))
        return false;
    const std::vector<std::string> arguments{"-f", *source, *destination};
    if (isRoot())
        return runAsRoot("/bin/mv", arguments, true);
    return authExecTask("/bin/mv", arguments) == 0;
}

bool TLAuthorization::authCopyFile(const std::optional<std::string> &source,
                                   const std::optional<std::string> &destination)
{
    if (!source || source->empty()) {
        console("Error in authCopyFile: old path is null");
        return false;
    }
    if (!destination || destination->empty()) {
        console("Error in authCopyFile: new path is null");
        return false;
    }
    if (!exists(*source))
        return false;
    const std::vector<std::string> arguments{"-f", "-p", "-R", *source, *destination};
    if (isRoot())
        return runAsRoot("/bin/cp", arguments, true);
    return authExecTask("/bin/cp", arguments) == 0;
}

bool TLAuthorization::authCreateDir(const std::string &path)
{
    if (path.empty())
        return false;
    const std::vector<std::string> arguments{"-p", path};
    if (isRoot())
        return runAsRoot("/bin/mkdir", arguments, true);
    if (authExecTask("/bin/mkdir", arguments) != 0)
        return false;
    // The tool was only started; a moment's grace lets the folder appear
    // before the caller looks for it.
    std::this_thread::sleep_for(std::chrono::microseconds(500));
    return true;
}
