// File operations carried out with administrator rights.
#pragma once

#include "TLPrivilegedCommand.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

// Removes, trashes, moves, copies and creates files with administrator
// rights once the ordinary call has been refused. The rights are asked for
// once (the system's password prompt) and kept for the life of the object;
// the standard tools ("/bin/rm", "/bin/mv", "/bin/cp", "/bin/mkdir") then do
// the work, in the shapes TLPrivilegedCommand builds: every path made
// absolute against the working folder and lexically normalised, and "--"
// before the paths, so no file name is read as an option. Every operation
// waits for its tool and reports the tool's failure as its own. System
// folders (TLLocalPaths::isPathSystemDirectory, exact match, of the
// normalised path) are never removed, trashed or moved. A process that
// already runs as root needs no rights and runs the tools itself.
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
        // Runs `tool` with the process's own rights (used as root) and
        // waits for it: its exit status, -1 when it could not be started.
        virtual int runDirectly(const std::string &tool, const std::vector<std::string> &arguments) = 0;
        // Runs `tool` with the rights requestRight obtained and waits for
        // it: its exit status, TLPrivilegedCommand::refusedStatus when the
        // command is not one that may run with those rights, -1 when the
        // rights are not (or no longer) held.
        virtual int runPrivileged(const std::string &tool, const std::vector<std::string> &arguments) = 0;
        // Gives up the rights requestRight obtained.
        virtual void releaseRight() {}
    };

    // The runner of the system. requestRight starts the privileged helper
    // (`helperPath`, a program that runs only TLPrivilegedCommand's
    // commands) through polkit's `pkexecPath`, which shows the prompt; the
    // helper then runs every privileged command of the session, so the
    // prompt appears once. A dismissed or failed prompt (pkexec ending
    // without starting the helper) refuses the right. The prompt is
    // offered only in a graphical session (DISPLAY or WAYLAND_DISPLAY set)
    // where both programs exist. There is no prompt-free credential check,
    // so the username-and-password form always fails with it.
    static std::shared_ptr<CommandRunner> systemCommandRunner(std::string pkexecPath = "/usr/bin/pkexec",
                                                              std::string helperPath = defaultHelperPath());
    // Where the privileged helper is installed (libexec/corvale).
    static std::string defaultHelperPath();

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
    // Gives up the rights (the helper ends); the next privileged operation
    // asks again.
    void authEnd();
    // True when root or when the rights have been granted.
    bool isAuthorized() const;
    // True when a prompt may be shown (GUI allowed and available), or root.
    bool canAuthorize() const;

    // "/bin/rm -Rdf -- <path>"; false for a system folder (exact match
    // only: "/usr" and "/usr/" are refused, "/usr/share/x" is not), an empty
    // path, or a non-zero status.
    bool authRemoveFile(const std::string &path);
    // Moves `path` into the user's freedesktop.org Trash under its own name,
    // a taken name getting "_<yyyymmddHHMMSS>.<extension>" (the full stop
    // stays when the name has no extension; a name taken within the same
    // second gets " 2", " 3", ... after the stamp), and writes its
    // ".trashinfo" record (TLTrash) so the desktop's Trash can restore it.
    // The record is removed again when the move fails. As root,
    // with `deleteOnRootAccount` and no known home folder, the computed
    // Trash path is removed instead of moving anything, and no record is
    // written. False for a system folder (exact match), an empty path, a
    // path that does not exist, a record that cannot be written
    // ("Unable to trash path <path>: <reason>" on the console), or a move
    // that fails.
    bool authTrashFile(const std::string &path, bool deleteOnRootAccount = false);
    // authTrashFile for each item of the folder (root with the flag and no
    // home folder: "/bin/rm -R -f -- <item>"); true when none failed, also for
    // an empty folder. False for a system folder (exact match) or a folder
    // that cannot be listed.
    bool authTrashFolderContents(const std::string &path, bool deleteOnRootAccount = false);
    // Moves each item of the folder to the same name in `destination`; true
    // when none failed. False for a system folder (exact match).
    bool authMoveFolderContents(const std::string &path, const std::string &destination);
    // "/bin/mv -f -- <source> <destination>". False for an absent source
    // or destination, a system folder as source, a source that does not
    // exist (silently), or a non-zero status.
    bool authMoveFile(const std::optional<std::string> &source,
                      const std::optional<std::string> &destination);
    // "/bin/cp -f -p -R -- <source> <destination>", with authMoveFile's
    // checks except the system-folder refusal.
    bool authCopyFile(const std::optional<std::string> &source,
                      const std::optional<std::string> &destination);
    // "/bin/mkdir -p -- <path>". False for an empty path or a non-zero
    // status.
    bool authCreateDir(const std::string &path);

    // Runs `tool` with administrator rights and waits for it: its exit
    // status (0 on success), -1 when the rights were not granted or have
    // been lost (the next call asks again), -2 when `tool` does not exist,
    // TLPrivilegedCommand::refusedStatus when the command is not one of
    // TLPrivilegedCommand's. As root the tool runs directly.
    int authExecTask(const std::string &tool, const std::vector<std::string> &arguments);

    // The user's home folder when known (recorded at creation unless root).
    const std::optional<std::string> &userDirectory() const { return m_userDirectory; }

private:
    bool succeeds(const TLPrivilegedCommand::Command &command);
    std::string trashDestination(const std::string &path) const;
    bool moveIntoTrash(const std::string &path);

    // Whether the runner holds the rights (for the system's runner: its
    // helper is running), so later calls do not ask again.
    bool m_authRef = false;
    bool m_hasGUI = true;
    std::optional<std::string> m_userDirectory;
    std::shared_ptr<CommandRunner> m_runner;
};
