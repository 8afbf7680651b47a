// Gathering logs, crash reports and preference files into an archive for
// support, and opening the current logs.
#include "TLTroubleshootingUtils.h"

#include "TLAlert.h"
#include "TLCrashwick.h"
#include "TLFileManager.h"
#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLWorkspace.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <set>

namespace fs = std::filesystem;

namespace {

// Copies the files found into the staging folder, each under the full path
// of the folder it was found in.
class Collector
{
public:
    Collector(std::string staging, std::vector<std::string> allowedRoots)
        : m_staging(std::move(staging)), m_allowedRoots(std::move(allowedRoots))
    {
    }

    std::size_t count() const { return m_copied.size(); }

    // Every regular file of `folder` whose name `wanted` accepts. False after
    // a failed copy (already reported).
    bool collectFolder(const std::string &folder, const std::function<bool(const std::string &)> &wanted)
    {
        std::vector<fs::path> found;
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
            if (wanted(entry->path().filename().string()))
                found.push_back(entry->path());
        }
        std::sort(found.begin(), found.end());
        for (const fs::path &path : found) {
            const auto source = acceptedSource(path);
            if (source && !copy(*source, path, "Unable to copy log: "))
                return false;
        }
        return true;
    }

    // One file named by the caller, copied wherever it lies.
    bool collectFile(const std::string &path)
    {
        std::error_code error;
        const fs::path source = fs::weakly_canonical(path, error);
        return copy(error ? fs::path(path) : source, fs::absolute(path, error), "Unable to copy file: ");
    }

private:
    // The file to read for an entry of a searched folder: the entry itself
    // when it is a regular file, the target of a link when that is a
    // regular file in one of the allowed places; nothing otherwise.
    std::optional<fs::path> acceptedSource(const fs::path &entry) const
    {
        std::error_code error;
        const auto status = fs::symlink_status(entry, error);
        if (error)
            return std::nullopt;
        if (fs::is_regular_file(status))
            return entry;
        if (!fs::is_symlink(status))
            return std::nullopt;
        const fs::path target = fs::canonical(entry, error);
        if (error || !fs::is_regular_file(target, error) || !isAllowed(target))
            return std::nullopt;
        return target;
    }

    bool isAllowed(const fs::path &target) const
    {
        const std::string text = target.string();
        return std::any_of(m_allowedRoots.begin(), m_allowedRoots.end(), [&](const std::string &root) {
            return !root.empty() && text.size() > root.size() && text.starts_with(root) && text[root.size()] == '/';
        });
    }

    bool copy(const fs::path &source, const fs::path &foundAt, const char *failure)
    {
        std::error_code error;
        const fs::path identity = fs::weakly_canonical(source, error);
        if (!m_copied.insert(error ? source.string() : identity.string()).second)
            return true;
        const std::string folder = m_staging + foundAt.parent_path().string();
        if (!TLFileManager::createDirectory(folder, false)) {
            std::cerr << failure << "cannot create " << folder << std::endl;
            return false;
        }
        fs::copy_file(source, folder + "/" + foundAt.filename().string(), fs::copy_options::overwrite_existing,
                      error);
        if (error) {
            std::cerr << failure << error.message() << std::endl;
            return false;
        }
        return true;
    }

    std::string m_staging;
    std::vector<std::string> m_allowedRoots;
    std::set<std::string> m_copied;
};

std::string withoutBlanks(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    return text;
}

std::string lowerCase(std::string text)
{
    for (char &character : text)
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    return text;
}

std::vector<std::string> logFolders()
{
    std::vector<std::string> folders;
    if (const auto user = TLLog::userLogFolder())
        folders.push_back(*user);
    folders.push_back(TLLog::machineWideLogFolder());
    return folders;
}

std::vector<std::string> preferenceFolders()
{
    std::vector<std::string> folders;
    for (const bool user : {true, false}) {
        if (const auto folder = TLLocalPaths::prefsDirectory(user))
            folders.push_back(*folder);
    }
    return folders;
}

bool beginsWithAny(const std::string &name, const std::vector<std::string> &prefixes)
{
    return std::any_of(prefixes.begin(), prefixes.end(),
                       [&](const std::string &prefix) { return name.starts_with(prefix); });
}

bool collectEverything(Collector &collector, const std::vector<std::string> &names)
{
    for (const std::string &folder : logFolders()) {
        if (!collector.collectFolder(folder, [&](const std::string &file) {
                return file.ends_with(".log") && beginsWithAny(file, names);
            }))
            return false;
    }
    std::vector<std::string> reportPrefixes;
    for (const std::string &name : names)
        reportPrefixes.push_back(name + "_");
    for (const std::string &folder : TLCrashwick::crashReportFolders()) {
        if (!collector.collectFolder(folder, [&](const std::string &file) {
                return (file.ends_with(".crash") || file.ends_with(".ips")) && beginsWithAny(file, reportPrefixes);
            }))
            return false;
    }
    for (const std::string &folder : preferenceFolders()) {
        for (const std::string &name : names) {
            const std::string plain = "com.quillmoor." + withoutBlanks(name) + ".plist";
            std::error_code error;
            const std::string file = fs::exists(folder + "/" + plain, error) ? plain : lowerCase(plain);
            if (!collector.collectFolder(folder, [&](const std::string &entry) { return entry == file; }))
                return false;
        }
    }
    return true;
}

std::string timeStamp()
{
    const std::time_t now = std::time(nullptr);
    std::tm local {};
    localtime_r(&now, &local);
    char text[32] = {};
    std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &local);
    return text;
}

// Copies keep their sources' modes and new folders follow the umask, and
// the archive stores the modes it finds: everything staged is made the
// user's alone before it is zipped.
void makeOwnerOnly(const std::string &staging)
{
    std::error_code error;
    fs::permissions(staging, fs::perms::owner_all, error);
    for (fs::recursive_directory_iterator entry(staging, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        const bool isFolder = entry->is_directory(ignored);
        fs::permissions(entry->path(), isFolder ? fs::perms::owner_all : fs::perms::owner_read | fs::perms::owner_write,
                        ignored);
    }
}

// The archive is written in the private folder, made the user's alone and
// only then moved to `destination`, so that it is never readable by others
// there, whatever the umask. An item already at `destination` goes to the
// Trash first, as compressing over it would do.
bool placeArchive(const std::string &staging, const std::string &privateFolder, const std::string &destination)
{
    const std::string draft = privateFolder + "/" + fs::path(destination).filename().string();
    if (!TLFileManager::compressFile(staging, draft))
        return false;
    std::error_code error;
    fs::permissions(draft, fs::perms::owner_read | fs::perms::owner_write, error);
    if (!error && TLFileManager::fileExistsAtPath(destination) && !TLFileManager::trashFile(destination))
        error = std::make_error_code(std::errc::file_exists);
    if (!error)
        fs::rename(draft, destination, error);
    // On another file system: the copy is created writable by its owner
    // only and then given the draft's mode.
    if (error == std::errc::cross_device_link) {
        error.clear();
        fs::copy_file(draft, destination, error);
    }
    std::error_code ignored;
    fs::remove(draft, ignored);
    if (error)
        std::cerr << "Unable to place the gathered logs at " << destination << ": " << error.message() << std::endl;
    return !error;
}

bool viewLog(const std::string &name, const char *suffix, const char *explanation)
{
    const auto library = TLLocalPaths::libraryDirectory(true);
    const std::string path = library.value_or("") + "/Logs/Quillmoor/" + name + suffix;
    std::error_code error;
    if (!library || !fs::exists(path, error)) {
        TLAlert::alertSheetWithMessageText("No log found", explanation, nullptr);
        return false;
    }
    return TLWorkspace::shared()->openFile(path);
}

} // namespace

bool TLTroubleshootingUtils::gatherLogsForAppWithName(const std::string &name)
{
    return gatherLogsForAppsWithNames({name});
}

bool TLTroubleshootingUtils::gatherLogsForAppsWithNames(const std::vector<std::string> &names, bool silent,
                                                        const std::vector<std::string> &additionalFiles)
{
    if (names.empty())
        return false;
    const auto privateFolder = TLLocalPaths::privateTemporaryDirectory();
    if (!privateFolder) {
        std::cerr << "Error creating temp folder: no private temporary folder can be made" << std::endl;
        return false;
    }
    const std::string staging = *privateFolder + "/" + stagingFolderName;
    std::error_code error;
    fs::remove_all(staging, error);
    if (error) {
        std::cerr << "Error removing existing folder: " << error.message() << std::endl;
        return false;
    }
    if (!fs::create_directory(staging, error)) {
        std::cerr << "Error creating temp folder: " << (error ? error.message() : "it exists") << std::endl;
        return false;
    }
    std::vector<std::string> allowed = logFolders();
    for (const auto &list : {TLCrashwick::crashReportFolders(), preferenceFolders()})
        allowed.insert(allowed.end(), list.begin(), list.end());
    allowed.push_back(TLLocalPaths::userDirectory());
    Collector collector(staging, allowed);
    bool copied = collectEverything(collector, names);
    for (const std::string &file : additionalFiles) {
        if (copied)
            copied = collector.collectFile(file);
    }
    if (!copied) {
        fs::remove_all(staging, error);
        return false;
    }
    if (collector.count() == 0) {
        fs::remove_all(staging, error);
        if (!silent)
            TLAlert::alertSheetWithMessageText("No logs found", "There were no logs available to gather.", nullptr);
        return false;
    }
    const auto folder = archiveFolder();
    std::string archive = folder.value_or("") + "/" + names.front() + " Logs.zip";
    if (fs::exists(archive, error))
        archive = archive.substr(0, archive.size() - 4) + "_" + timeStamp() + ".zip";
    makeOwnerOnly(staging);
    const bool made = folder && placeArchive(staging, *privateFolder, archive);
    fs::remove_all(staging, error);
    if (!silent && made)
        TLAlert::alertSheetWithMessageText("Logs gathered successfully", "The gathered logs were placed on your desktop.",
                                           nullptr);
    if (!silent && !made)
        TLAlert::alertSheetWithMessageText("Logs could not be gathered", "Please check your file permissions.", nullptr);
    return made;
}

bool TLTroubleshootingUtils::viewLogForApp(const std::string &name)
{
    return viewLog(name, ".1.log", "You must perform a task before viewing the log.");
}

bool TLTroubleshootingUtils::viewTaskLogForApp(const std::string &name)
{
    return viewLog(name, ".1.task.log",
                   "You must run the application as a task (e.g. through Task Scheduler) before viewing a log.");
}

std::optional<std::string> TLTroubleshootingUtils::stagingFolder()
{
    const auto privateFolder = TLLocalPaths::privateTemporaryDirectory();
    if (!privateFolder)
        return std::nullopt;
    return *privateFolder + "/" + stagingFolderName;
}

std::optional<std::string> TLTroubleshootingUtils::archiveFolder()
{
    const std::string folder = TLLocalPaths::desktopDirectory().value_or(TLLocalPaths::userDirectory() + "/Desktop");
    std::error_code error;
    fs::create_directories(folder, error);
    if (!fs::is_directory(folder, error))
        return std::nullopt;
    return folder;
}
