// The macOS workspace: Launch Services opens files, addresses and
// applications; running applications are read from the process table.
// Compiled only on macOS; elsewhere this unit is empty and
// TLWorkspace::desktop() gives the Linux workspace.
#ifdef __APPLE__

#include "TLWorkspace.h"

#include "TLCoreFoundation.h"
#include "TLTaskEx.h"

#include <CoreServices/CoreServices.h>
#include <libproc.h>

#include <algorithm>
#include <string_view>

namespace {

constexpr std::string_view programFolder = "/Contents/MacOS/";

// The application bundle a program file lies in ("/A.app" for
// "/A.app/Contents/MacOS/A"); nullopt for a program outside any bundle.
std::optional<std::string> bundleOfProgram(const std::string &program)
{
    const std::size_t folder = program.rfind(programFolder);
    if (folder == std::string::npos || folder == 0)
        return std::nullopt;
    return program.substr(0, folder);
}

std::optional<std::string> bundleIdentifierOf(const std::string &bundlePath)
{
    const auto url = TLCoreFoundation::fileURL(bundlePath, true);
    if (!url)
        return std::nullopt;
    const TLCoreFoundation::Holder<CFBundleRef> bundle(CFBundleCreate(kCFAllocatorDefault, url.get()));
    if (!bundle)
        return std::nullopt;
    return TLCoreFoundation::text(CFBundleGetIdentifier(bundle.get()));
}

std::vector<pid_t> processIdentifiers()
{
    // The table may grow between the two calls: leave room for newcomers.
    const int count = proc_listallpids(nullptr, 0);
    if (count <= 0)
        return {};
    std::vector<pid_t> identifiers(size_t(count) + 64);
    const int found = proc_listallpids(identifiers.data(), int(identifiers.size() * sizeof(pid_t)));
    identifiers.resize(size_t(std::max(found, 0)));
    return identifiers;
}

std::optional<std::string> programOfProcess(pid_t identifier)
{
    char path[PROC_PIDPATHINFO_MAXSIZE] = {};
    if (proc_pidpath(identifier, path, sizeof path) <= 0)
        return std::nullopt;
    return std::string(path);
}

class TLMacWorkspace final : public TLWorkspace
{
public:
    std::vector<RunningApplication>
    runningApplicationsWithBundleIdentifier(const std::string &bundleIdentifier) const override
    {
        std::vector<RunningApplication> running;
        if (bundleIdentifier.empty())
            return running;
        for (const pid_t identifier : processIdentifiers()) {
            const std::optional<std::string> program = programOfProcess(identifier);
            const std::optional<std::string> bundle = program ? bundleOfProgram(*program) : std::nullopt;
            if (bundle && bundleIdentifierOf(*bundle) == bundleIdentifier)
                running.push_back({bundleIdentifier, identifier, *program});
        }
        return running;
    }

    std::optional<std::string> executablePath(const std::string &applicationPath) const override
    {
        const auto url = TLCoreFoundation::fileURL(applicationPath, true);
        const TLCoreFoundation::Holder<CFBundleRef> bundle(url ? CFBundleCreate(kCFAllocatorDefault, url.get())
                                                               : nullptr);
        if (!bundle)
            return TLTaskEx::isRunnable(applicationPath) ? std::optional(applicationPath) : std::nullopt;
        const TLCoreFoundation::Holder<CFURLRef> program(CFBundleCopyExecutableURL(bundle.get()));
        return TLCoreFoundation::path(program.get());
    }

    bool openFile(const std::string &path) override
    {
        return TLCoreFoundation::open(nullptr, TLCoreFoundation::fileURL(path).get(), kLSLaunchDefaults);
    }

    bool openFile(const std::string &path, const std::string &applicationPath) override
    {
        const auto application = TLCoreFoundation::fileURL(applicationPath, true);
        if (!application)
            return false;
        return TLCoreFoundation::open(application.get(), TLCoreFoundation::fileURL(path).get(), kLSLaunchDefaults);
    }

    bool openURL(const std::string &url) override
    {
        if (url.empty())
            return false;
        const TLCoreFoundation::Holder<CFURLRef> address(CFURLCreateWithBytes(
            kCFAllocatorDefault, reinterpret_cast<const UInt8 *>(url.data()), CFIndex(url.size()),
            kCFStringEncodingUTF8, nullptr));
        return address && LSOpenCFURLRef(address.get(), nullptr) == noErr;
    }

    // Launch Services passes no arguments to a launched application, so an
    // application given some is started from its program file instead.
    bool launchApplication(const std::string &applicationPath,
                           const std::vector<std::string> &arguments) override
    {
        if (arguments.empty()) {
            const auto application = TLCoreFoundation::fileURL(applicationPath, true);
            return application && LSOpenCFURLRef(application.get(), nullptr) == noErr;
        }
        const std::optional<std::string> program = executablePath(applicationPath);
        return program && TLTaskEx::runTaskAndReturn(*program, arguments) != nullptr;
    }
};

} // namespace

std::shared_ptr<TLWorkspace> TLWorkspace::desktop()
{
    return std::make_shared<TLMacWorkspace>();
}

#endif
