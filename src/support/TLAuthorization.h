// File operations carried out with administrator rights.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

// Removes, trashes, moves, copies and creates files with administrator
// rights once the ordinary call has been refused. The rights are asked for
// once (the system's password prompt) and kept for the life of the object;
// the standard tools ("/bin/rm", "/bin/mv", "/bin/cp", "/bin/mkdir") then do
// the work. System folders (TLLocalPaths::isPathSystemDirectory, exact
// match) are never removed, trashed or moved. A process that already runs
// as root needs no rights and runs the tools itself.
//
// Refusals and errors go to standard error (the console), never as
// exceptions. Operations are not synchronised; call them from the thread of
// the failing file operation.
class TLAuthorization
{
public:
    // What actually asks for the rights and starts the tools. Replaceable
    // so that nothing has to be elevated to exercise the rules above.
    class CommandRunner
    {
    public:
        virtual ~CommandRunner() = default;
        // Whether the system's password prompt can be shown at all.
        virtual bool isPromptAvailable() = 0;
        // Shows the prompt; true when the user proved to be an administrator.
        virtual bool requestRight() = 0;
        // Checks the given credentials without a prompt.
        virtual bool requestRight(const std::string &username, const std::string &password) = 0;
        // Runs `tool` with the process's own rights (used as root); waits for
        // it only when `wait` is set.
        virtual void runDirectly(const std::string &tool, const std::vector<std::string> &arguments,
                                 bool wait) = 0;
        // Runs `tool` with administrator rights; the status of the
        // elevation (0 when the tool was started, or, with `wait`, its own
        // exit status).
        virtual int runPrivileged(const std::string &tool, const std::vector<std::string> &arguments,
                                  bool wait) = 0;
    };

    // The runner of the system: polkit's "pkexec" for the elevation, shown
    // only in a graphical session (DISPLAY or WAYLAND_DISPLAY set) where
    // "/usr/bin/pkexec" exists; tools are started through TLTaskEx. It has
    // no prompt-free credential check, so the username-and-password form
    // always fails with it.
    static std::shared_ptr<CommandRunner> systemCommandRunner();

    // The process's one instance, made on first use with `hasGUI` (later
    // values are ignored) and the runner set by setCommandRunner, else the
    // system's. Thread-safe.
    static TLAuthorization &sharedController(bool hasGUI = true);
    // The runner that sharedController starts with and, when it already
    // exists, switches to. Null restores the system's runner.
    static void setCommandRunner(std::shared_ptr<CommandRunner> runner);

    // An instance of its own, for callers that must not share the process's
    // rights. `hasGUI` false never shows a prompt. The user's home folder is
    // recorded now unless the process runs as root. A null runner means the
    // system's.
    explicit TLAuthorization(bool hasGUI, std::shared_ptr<CommandRunner> runner = nullptr);
    // Gives up the rights (authEnd).
    ~TLAuthorization();
    TLAuthorization(const TLAuthorization &) = delete;
    TLAuthorization &operator=(const TLAuthorization &) = delete;

    // Switches to `runner` for later operations; null means the system's.
    // Rights already granted are kept.
    void setRunner(std::shared_ptr<CommandRunner> runner);

    // True at once when already authorised or root. Without a prompt (no
    // GUI, or none available) writes "Unable to authorize" and fails; a
    // refused prompt fails and leaves the object unauthorised.
    bool authStart();
    // The same with credentials and no prompt. A refusal writes
    // "Authorization failed. Invalid username or password" to the console
    // and the application log.
    bool authStartWithUser(const std::string &username, const std::string &password);
    // Gives up the rights; the next privileged operation asks again.
    void authEnd();
    // True when root or when the rights have been granted.
    bool isAuthorized() const;
    // True when a prompt may be shown (GUI allowed and available), or root.
    bool canAuthorize() const;

    // "/bin/rm -Rdf <path>"; false for a system folder (exact match only:
    // "/usr" is refused, "/usr/share/x" is not), an empty path, or a
    // non-zero status.
    bool authRemoveFile(const std::string &path);
    // Moves `path` into the user's freedesktop.org Trash under its own name,
    // a taken name getting "_<yyyymmddHHMMSS>.<extension>" (the full stop
    // stays when the name has no extension; a name taken within the same
    // second gets " 2", " 3", ... after the stamp), and writes its
    // ".trashinfo" record (TLTrash) so the desktop's Trash can restore it.
    // The record is removed again when the move cannot be started. As root,
    // with `deleteOnRootAccount` and no known home folder, the computed
    // Trash path is removed instead of moving anything, and no record is
    // written. False for a system folder (exact match), an empty path, a
    // path that does not exist, or a record that cannot be written
    // ("Unable to trash path <path>: <reason>" on the console).
    bool authTrashFile(const std::string &path, bool deleteOnRootAccount = false);
    // authTrashFile for each item of the folder (root with the flag and no
    // home folder: "/bin/rm -R -f <item>"); true when none failed, also for
    // an empty folder. False for a system folder (exact match) or a folder
    // that cannot be listed.
    bool authTrashFolderContents(const std::string &path, bool deleteOnRootAccount = false);
    // Moves each item of the folder to the same name in `destination`; true
    // when none failed. False for a system folder (exact match).
    bool authMoveFolderContents(const std::string &path, const std::string &destination);
    // "/bin/mv -f <source> <destination>". False for an absent source or
    // destination, a system folder as source, or a source that does not
    // exist (silently). As root the tool is started and success reported.
    bool authMoveFile(const std::optional<std::string> &source,
                      const std::optional<std::string> &destination);
    // "/bin/cp -f -p -R <source> <destination>", with authMoveFile's checks
    // except the system-folder refusal.
    bool authCopyFile(const std::optional<std::string> &source,
                      const std::optional<std::string> &destination);
    // "/bin/mkdir -p <path>". False for an empty path or a non-zero status;
    // as root the tool is started and success reported.
    bool authCreateDir(const std::string &path);

    // Runs `tool` with administrator rights: 0 on success, -1 when the
    // rights were not granted, -2 when `tool` does not exist, otherwise the
    // elevation's status. With `async` (the default) success means the tool
    // was started, not that it succeeded.
    int authExecTask(const std::string &tool, const std::vector<std::string> &arguments,
                     bool async = true);

    // The user's home folder when known (recorded at creation unless root).
    const std::optional<std::string> &userDirectory() const { return m_userDirectory; }

private:
    // Runs a tool as root would: started, or waited for when not `async`.
    bool runAsRoot(const std::string &tool, const std::vector<std::string> &arguments, bool async);
    std::string trashDestination(const std::string &path) const;
    bool moveIntoTrash(const std::string &path);

    // Polkit keeps no handle between calls; this only records that the
    // administrator has been confirmed once, so later calls do not ask again.
    bool m_authRef = false;
    bool m_hasGUI = true;
    std::optional<std::string> m_userDirectory;
    std::shared_ptr<CommandRunner> m_runner;
};
