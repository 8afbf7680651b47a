// Administrator-rights file operations through polkit's pkexec.
#include "TLAuthorization.h"

#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLTaskEx.h"
#include "TLTrash.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <mutex>

#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace fs = std::filesystem;

namespace {

bool hasVariable(const char *name)
{
    const char *value = std::getenv(name);
    return value && *value;
}

// The system's runner: one privileged helper per session, started through
// pkexec when the rights are first needed and spoken to over a socket pair
// (a socket, not a pipe, so that writing to a helper that has gone away
// fails instead of raising SIGPIPE in the program).
class PolkitCommandRunner : public TLAuthorization::CommandRunner
{
public:
    PolkitCommandRunner(std::string pkexecPath, std::string helperPath)
        : m_pkexecPath(std::move(pkexecPath)), m_helperPath(std::move(helperPath))
    {
    }
    ~PolkitCommandRunner() override { stopHelper(); }

    bool isPromptAvailable() override
    {
        // pkexec finds its graphical agent through the session; without one
        // it would fall back to asking on a terminal the user may not see.
        return (hasVariable("DISPLAY") || hasVariable("WAYLAND_DISPLAY")) && TLTaskEx::isRunnable(m_pkexecPath) &&
               TLTaskEx::isRunnable(m_helperPath);
    }

    bool requestRight() override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_socket >= 0 || startHelper();
    }

    bool requestRight(const std::string &, const std::string &) override { return false; }

    int runDirectly(const std::string &tool, const std::vector<std::string> &arguments) override
    {
        return TLTaskEx::terminationCodeFromTask(tool, arguments);
    }

    int runPrivileged(const std::string &tool, const std::vector<std::string> &arguments) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_socket < 0)
            return -1;
        const std::optional<std::string> request = TLPrivilegedCommand::encode({tool, arguments});
        if (!request)
            return TLPrivilegedCommand::refusedStatus;
        std::optional<int> status;
        if (sendAll(*request))
            status = parseStatus(readLine());
        // A helper that does not answer is gone, and the rights with it.
        if (!status) {
            stopHelper();
            return -1;
        }
        return *status;
    }

    void releaseRight() override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        stopHelper();
    }

private:
    // pkexec shows the prompt and, once the administrator has confirmed,
    // becomes the helper, which announces itself with "ready". A dismissed
    // or failed prompt ends pkexec (status 126 or 127) before that.
    bool startHelper()
    {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
            return false;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        std::vector<char *> argv{m_pkexecPath.data(), m_helperPath.data(), nullptr};
        const int spawned = ::posix_spawn(&m_pid, m_pkexecPath.c_str(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        if (spawned != 0) {
            ::close(ends[0]);
            m_pid = -1;
            return false;
        }
        m_socket = ends[0];
        if (readLine() == "ready")
            return true;
        stopHelper();
        return false;
    }

    // Closing the socket ends the helper's input, and with it the helper.
    void stopHelper()
    {
        if (m_socket >= 0)
            ::close(m_socket);
        m_socket = -1;
        m_received.clear();
        if (m_pid > 0) {
            while (::waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
        m_pid = -1;
    }

    bool sendAll(std::string_view data)
    {
        while (!data.empty()) {
            const ssize_t sent = ::send(m_socket, data.data(), data.size(), MSG_NOSIGNAL);
            if (sent < 0 && errno == EINTR)
                continue;
            if (sent <= 0)
                return false;
            data.remove_prefix(std::size_t(sent));
        }
        return true;
    }

    // The next line from the helper without its newline; nullopt at its end.
    std::optional<std::string> readLine()
    {
        while (true) {
            if (const std::size_t end = m_received.find('\n'); end != std::string::npos) {
                std::string line = m_received.substr(0, end);
                m_received.erase(0, end + 1);
                return line;
            }
            char chunk[256];
            const ssize_t got = ::recv(m_socket, chunk, sizeof chunk, 0);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                return std::nullopt;
            m_received.append(chunk, std::size_t(got));
        }
    }

    static std::optional<int> parseStatus(const std::optional<std::string> &line)
    {
        if (!line || line->empty())
            return std::nullopt;
        int status = 0;
        const auto [end, error] = std::from_chars(line->data(), line->data() + line->size(), status);
        if (error != std::errc() || end != line->data() + line->size())
            return std::nullopt;
        return status;
    }

    std::string m_pkexecPath;
    std::string m_helperPath;
    std::mutex m_mutex;
    int m_socket = -1;
    pid_t m_pid = -1;
    std::string m_received;
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

// The check runs on the path the tool will be given: "/usr/" or
// "/usr/share/.." name "/usr" as surely as "/usr" does.
bool isSystemDirectory(const std::string &path)
{
    return TLLocalPaths::isPathSystemDirectory(path, true) ||
           TLLocalPaths::isPathSystemDirectory(TLPrivilegedCommand::absolutePath(path), true);
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

std::shared_ptr<TLAuthorization::CommandRunner> TLAuthorization::systemCommandRunner(std::string pkexecPath,
                                                                                   std::string helperPath)
{
    return std::make_shared<PolkitCommandRunner>(std::move(pkexecPath), std::move(helperPath));
}

std::string TLAuthorization::defaultHelperPath()
{
#ifdef CORVALE_PRIVILEGED_HELPER
    return CORVALE_PRIVILEGED_HELPER;
#else
    return "/usr/libexec/corvale/corvale-privileged-helper";
#endif
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
    if (m_authRef)
        m_runner->releaseRight();
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

int TLAuthorization::authExecTask(const std::string &tool, const std::vector<std::string> &arguments)
{
    if (!exists(tool)) {
        console("Unable to execute task: path " + tool + " doesn't exist");
        return -2;
    }
    if (isRoot())
        return m_runner->runDirectly(tool, arguments);
    if (!isAuthorized() && !authStart())
        return -1;
    const int status = m_runner->runPrivileged(tool, arguments);
    // The rights are gone (the helper ended): the next call asks again.
    if (status == -1)
        m_authRef = false;
    return status;
}

bool TLAuthorization::succeeds(const TLPrivilegedCommand::Command &command)
{
    return authExecTask(command.tool, command.arguments) == 0;
}

bool TLAuthorization::authRemoveFile(const std::string &path)
{
    if (path.empty())
        return false;
    if (isSystemDirectory(path)) {
        console("Unable to delete path " + path + " because it is a system directory.");
        return false;
    }
    return succeeds(TLPrivilegedCommand::remove(path));
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
    if (authMoveFile(path, slot->itemPath))
        return true;
    TLTrash::releaseSlot(*slot);
    return false;
}

bool TLAuthorization::authTrashFile(const std::string &path, bool deleteOnRootAccount)
{
    if (path.empty())
        return false;
    if (isSystemDirectory(path)) {
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
    if (isSystemDirectory(path)) {
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
        const bool done = removeOutright ? succeeds(TLPrivilegedCommand::removeItem(item)) : authTrashFile(item);
        failures += done ? 0 : 1;
    }
    return failures == 0;
}

bool TLAuthorization::authMoveFolderContents(const std::string &path, const std::string &destination)
{
    if (isSystemDirectory(path)) {
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
    if (isSystemDirectory(*source)) {
        console("Unable to move path " + *source + " because it is a system directory.");
        return false;
    }
    if (!exists(*source))
        return false;
    return succeeds(TLPrivilegedCommand::move(*source, *destination));
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
    return succeeds(TLPrivilegedCommand::copy(*source, *destination));
}

bool TLAuthorization::authCreateDir(const std::string &path)
{
    if (path.empty())
        return false;
    return succeeds(TLPrivilegedCommand::makeFolder(path));
}
