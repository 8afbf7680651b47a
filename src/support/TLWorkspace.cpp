// The workspace door and its Linux implementation over TLTaskEx.
#include "TLWorkspace.h"

#include "TLLog.h"
#include "TLTaskEx.h"

#include <mutex>

namespace {

class LinuxWorkspace final : public TLWorkspace
{
public:
    std::vector<RunningApplication>
    runningApplicationsWithBundleIdentifier(const std::string &) const override
    {
        // Bundle identifiers name macOS applications; none runs here.
        return {};
    }

    std::optional<std::string> executablePath(const std::string &applicationPath) const override
    {
        if (!TLTaskEx::isRunnable(applicationPath))
            return std::nullopt;
        return applicationPath;
    }

    bool openFile(const std::string &path) override { return openWithDefault(path); }

    bool openFile(const std::string &path, const std::string &applicationPath) override
    {
        if (path.empty() || applicationPath.empty())
            return false;
        return launchApplication(applicationPath, {path});
    }

    bool openURL(const std::string &url) override { return openWithDefault(url); }

    bool launchApplication(const std::string &applicationPath,
                           const std::vector<std::string> &arguments) override
    {
        return TLTaskEx::runTaskAndReturn(applicationPath, arguments) != nullptr;
    }

private:
    static bool openWithDefault(const std::string &target)
    {
        if (target.empty())
            return false;
        const std::optional<std::string> opener = TLTaskEx::programOnPath("xdg-open");
        if (!opener) {
            TLLog::appendLog("Unable to open %@: xdg-open not found", target);
            return false;
        }
        return TLTaskEx::terminationCodeFromTask(*opener, {target}) == 0;
    }
};

std::mutex sharedMutex;
std::shared_ptr<TLWorkspace> sharedWorkspace;

} // namespace

std::shared_ptr<TLWorkspace> TLWorkspace::shared()
{
    const std::lock_guard lock(sharedMutex);
    if (!sharedWorkspace)
        sharedWorkspace = desktop();
    return sharedWorkspace;
}

void TLWorkspace::setShared(std::shared_ptr<TLWorkspace> workspace)
{
    const std::lock_guard lock(sharedMutex);
    sharedWorkspace = std::move(workspace);
}

// macOS has its own definition beside its workspace.
#ifndef __APPLE__
std::shared_ptr<TLWorkspace> TLWorkspace::desktop()
{
    return std::make_shared<LinuxWorkspace>();
}
#endif
