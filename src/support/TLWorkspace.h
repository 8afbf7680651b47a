// What the system asks of the desktop's workspace: running applications,
// opening files and web addresses, launching applications.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

// The workspace door. The default is the system's own (see desktop()); tests
// install a fake.
// Implementations never throw; failures are false, nullopt or empty lists.
class TLWorkspace
{
public:
    // One running application.
    struct RunningApplication {
        std::string bundleIdentifier;
        pid_t processIdentifier = 0;
        std::string executablePath;
    };

    virtual ~TLWorkspace() = default;

    // The running applications with this bundle identifier; empty when none
    // runs or the identifier is empty.
    virtual std::vector<RunningApplication>
    runningApplicationsWithBundleIdentifier(const std::string &bundleIdentifier) const = 0;

    // The program file of the application at `applicationPath`; nullopt
    // when there is no such application or it has no program file.
    virtual std::optional<std::string> executablePath(const std::string &applicationPath) const = 0;

    // Opens the file with its default application. False when the path is
    // empty or the opening fails.
    virtual bool openFile(const std::string &path) = 0;
    // Opens the file with the application at `applicationPath`. False when
    // either is empty or the application cannot be started.
    virtual bool openFile(const std::string &path, const std::string &applicationPath) = 0;
    // Opens a web address with the default browser. False for an empty
    // address or a failed opening.
    virtual bool openURL(const std::string &url) = 0;
    // Starts the application at `applicationPath` with `arguments`, without
    // waiting for it. False when it cannot be started.
    virtual bool launchApplication(const std::string &applicationPath,
                                   const std::vector<std::string> &arguments = {}) = 0;

    // The door in use: desktop() until setShared installs another.
    static std::shared_ptr<TLWorkspace> shared();
    // Installs `workspace`; null puts desktop() back.
    static void setShared(std::shared_ptr<TLWorkspace> workspace);

    // The system's workspace. On Linux: files and addresses open through
    // "xdg-open" found on PATH (false when it is missing or fails),
    // applications are program files started directly, and no editing
    // application is ever found running. On macOS: Launch Services opens
    // files, addresses and application bundles, running applications are
    // the processes whose program lies in a bundle of that identifier, and
    // an application given arguments is started from its program file.
    static std::shared_ptr<TLWorkspace> desktop();
};
