// Removal, trashing, folder creation, free names, zip archives and the file
// waits, all with the ordinary file-system calls.
#include "TLFileManager.h"

#include "TLAtomicFile.h"
#include "TLAuthorization.h"
#include "TLFileWaiting.h"
#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLTrash.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef __linux__
#include <linux/fs.h>
#endif

namespace fs = std::filesystem;

namespace {

enum class Occupancy { free, taken, unknown };

// Looks at the entry itself (lstat), so a dangling link is an entry too.
Occupancy occupancy(const std::string &path)
{
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    if (fs::exists(status))
        return Occupancy::taken;
    if (status.type() == fs::file_type::not_found)
        return Occupancy::free;
    return Occupancy::unknown;
}

// Where the extension's dot stands in `path`, or npos when the last
// component has no extension.
std::size_t extensionDot(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    const std::size_t nameStart = slash == std::string_view::npos ? 0 : slash + 1;
    const std::size_t dot = path.rfind('.');
    if (dot == std::string_view::npos || dot <= nameStart || dot + 1 == path.size())
        return std::string_view::npos;
    return dot;
}

// `path` with " <number>" put before its extension.
std::string numberedPath(std::string_view path, long number)
{
    const std::size_t dot = extensionDot(path);
    std::string numbered(path.substr(0, dot));
    numbered += ' ';
    numbered += std::to_string(number);
    if (dot != std::string_view::npos)
        numbered += path.substr(dot);
    return numbered;
}

// `path` without trailing slashes, which name the same entry; "/" stays.
std::string withoutTrailingSlashes(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

std::string errnoText(int number)
{
    return std::generic_category().message(number);
}

void logRemovalFailure(const std::string &path, const std::string &reason)
{
    TLLog::appendLog("Error removing file: %@. Authorizing...", "cannot remove " + path + ": " + reason);
}

// ---- Trash (the names and records are TLTrash's) ----

void logTrashFailure(const std::string &path, const std::string &reason)
{
    TLLog::appendLog("Unable to move %@ to the Trash: %@", path, reason);
}

// The entry `path` names, with the links of the folders above it resolved
// but not a link that the entry itself is: trashing a link moves the link.
std::optional<fs::path> resolvedEntry(const fs::path &path)
{
    std::error_code error;
    const fs::path folder = fs::weakly_canonical(path.parent_path(), error);
    if (error)
        return std::nullopt;
    return folder / path.filename();
}

// Whether `inner` is `outer` or lies below it, comparing resolved paths.
bool isSameOrInside(const fs::path &inner, const fs::path &outer)
{
    const std::optional<fs::path> resolvedInnerEntry = resolvedEntry(inner);
    const std::optional<fs::path> resolvedOuterEntry = resolvedEntry(outer);
    if (!resolvedInnerEntry || !resolvedOuterEntry)
        return false;
    const fs::path &resolvedInner = *resolvedInnerEntry;
    const fs::path &resolvedOuter = *resolvedOuterEntry;
    const auto outerEnd =
        std::mismatch(resolvedOuter.begin(), resolvedOuter.end(), resolvedInner.begin(), resolvedInner.end())
            .first;
    return outerEnd == resolvedOuter.end() || (std::next(outerEnd) == resolvedOuter.end() && outerEnd->empty());
}

// Moves `item` to `target`, copying and then removing it when they lie on
// different file systems. On failure nothing has moved: a copy made so far
// is removed again and the original stays whole.
std::string moveItem(const fs::path &item, const fs::path &target)
{
    std::error_code error;
    fs::rename(item, target, error);
    if (!error)
        return {};
    if (error != std::errc::cross_device_link)
        return error.message();
    fs::copy(item, target, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
    if (!error) {
        fs::remove_all(item, error);
        if (!error)
            return {};
        std::error_code ignored;
        fs::copy(target, item, fs::copy_options::recursive | fs::copy_options::copy_symlinks |
                                   fs::copy_options::skip_existing,
                 ignored);
    }
    std::error_code ignored;
    fs::remove_all(target, ignored);
    return error.message();
}

// ---- Zip archives ----

void logCompressionFailure(const std::string &source, const std::string &reason)
{
    TLLog::appendLog("Unable to compress %@: %@", source, reason);
}

struct ZipEntry
{
    fs::path diskPath;
    std::string name;
};

// The entries below `folder`, named below `prefix`, in name order so that
// the same folder always gives the same archive.
std::string collectFolder(const fs::path &folder, const std::string &prefix, std::vector<ZipEntry> &entries)
{
    std::error_code error;
    std::vector<fs::path> children;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        children.push_back(it->path());
    if (error)
        return "cannot list " + folder.string() + ": " + error.message();
    std::sort(children.begin(), children.end());
    for (const fs::path &child : children) {
        const std::string name = prefix.empty() ? child.filename().string() : prefix + "/" + child.filename().string();
        entries.push_back({child, name});
        if (fs::is_directory(fs::symlink_status(child, error))) {
            const std::string reason = collectFolder(child, name, entries);
            if (!reason.empty())
                return reason;
        }
    }
    return {};
}

la_ssize_t writeToSink(archive *, void *client, const void *buffer, size_t length)
{
    const auto &sink = *static_cast<const TLAtomicFile::Sink *>(client);
    if (!sink(std::string_view(static_cast<const char *>(buffer), length)))
        return -1;
    return static_cast<la_ssize_t>(length);
}

std::string archiveError(archive *zip, const std::string &what)
{
    const char *message = archive_error_string(zip);
    return what + ": " + (message != nullptr ? message : "archive error");
}

// Copies exactly the size announced in the entry's header; a file that
// shrank or grew meanwhile would make the archive lie about it.
std::string writeFileData(archive *zip, const ZipEntry &entry, int descriptor, off_t size)
{
    char buffer[65536];
    off_t remaining = size;
    while (remaining > 0) {
        const ssize_t count =
            ::read(descriptor, buffer, static_cast<size_t>(std::min<off_t>(remaining, sizeof buffer)));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return "cannot read " + entry.diskPath.string() + ": " + errnoText(errno);
        if (count == 0)
            return "cannot read " + entry.diskPath.string() + ": it changed while being compressed";
        if (archive_write_data(zip, buffer, static_cast<size_t>(count)) != count)
            return archiveError(zip, "cannot write " + entry.name);
        remaining -= count;
    }
    return {};
}

// Writes one entry's header and, for a file, its contents.
std::string writeEntry(archive *zip, const ZipEntry &entry)
{
    const std::string diskPath = entry.diskPath.string();
    struct stat status{};
    if (::lstat(diskPath.c_str(), &status) != 0)
        return "cannot read " + diskPath + ": " + errnoText(errno);
    const bool isFolder = S_ISDIR(status.st_mode);
    const bool isLink = S_ISLNK(status.st_mode);
    if (!isFolder && !isLink && !S_ISREG(status.st_mode))
        return {};
    int descriptor = -1;
    if (S_ISREG(status.st_mode)) {
        descriptor = ::open(diskPath.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        if (descriptor < 0)
            return "cannot open " + diskPath + ": " + errnoText(errno);
    }
    std::string target;
    if (isLink) {
        std::error_code error;
        target = fs::read_symlink(entry.diskPath, error).string();
        if (error)
            return "cannot read " + diskPath + ": " + error.message();
    }
    archive_entry *header = archive_entry_new();
    archive_entry_copy_stat(header, &status);
    archive_entry_set_pathname_utf8(header, (isFolder ? entry.name + "/" : entry.name).c_str());
    if (isLink)
        archive_entry_set_symlink_utf8(header, target.c_str());
    if (!S_ISREG(status.st_mode))
        archive_entry_set_size(header, 0);
    std::string reason;
    if (archive_write_header(zip, header) != ARCHIVE_OK)
        reason = archiveError(zip, "cannot add " + entry.name);
    else if (descriptor >= 0)
        reason = writeFileData(zip, entry, descriptor, status.st_size);
    archive_entry_free(header);
    if (descriptor >= 0)
        ::close(descriptor);
    return reason;
}

std::string writeZip(const std::vector<ZipEntry> &entries, const TLAtomicFile::Sink &sink)
{
    archive *zip = archive_write_new();
    if (zip == nullptr)
        return "cannot start an archive";
    archive_write_set_format_zip(zip);
    // Names are stored as UTF-8 with the zip's UTF-8 flag whatever the
    // process locale: without it libarchive converts them to the locale's
    // encoding, which under the C locale loses every non-ASCII name.
    archive_write_set_options(zip, "hdrcharset=UTF-8");
    // No padding after the central directory: zip readers expect the end
    // record at the very end of the file.
    archive_write_set_bytes_in_last_block(zip, 1);
    std::string reason;
    if (archive_write_open(zip, const_cast<TLAtomicFile::Sink *>(&sink), nullptr, writeToSink, nullptr) !=
        ARCHIVE_OK)
        reason = archiveError(zip, "cannot start the archive");
    for (std::size_t index = 0; reason.empty() && index < entries.size(); ++index)
        reason = writeEntry(zip, entries[index]);
    if (archive_write_close(zip) != ARCHIVE_OK && reason.empty())
        reason = archiveError(zip, "cannot finish the archive");
    archive_write_free(zip);
    return reason;
}

TLFileWaiting &fileWaiting()
{
    static const std::shared_ptr<TLFileWaiting> waiting = TLFileWaiting::standard();
    return *waiting;
}

bool runsAsRoot()
{
    return TLLocalPaths::userId() == 0;
}

// Administrator rights only help where permissions stood in the way, and a
// process that already runs as root has them: there the tools would only
// fail again as the call did.
bool mayAuthorizeAfter(const std::error_code &error)
{
    return !runsAsRoot() && (error == std::errc::permission_denied || error == std::errc::operation_not_permitted);
}

// A mount point as the mount table lists it, where a blank, a tab, a
// newline and a backslash are written as three octal digits after a
// backslash ("\040" for a blank).
std::string unescapedMountPath(std::string_view text)
{
    const auto isOctal = [](char digit) { return digit >= '0' && digit <= '7'; };
    std::string path;
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '\\' && index + 3 < text.size() && isOctal(text[index + 1]) &&
            isOctal(text[index + 2]) && isOctal(text[index + 3])) {
            path += char((text[index + 1] - '0') * 64 + (text[index + 2] - '0') * 8 + (text[index + 3] - '0'));
            index += 3;
        } else {
            path += text[index];
        }
    }
    return path;
}

bool isListedMountPoint(const std::string &folder)
{
    std::ifstream table("/proc/self/mountinfo");
    for (std::string line; std::getline(table, line);) {
        // Fields: mount id, parent id, device, root, mount point, ...
        std::istringstream fields(line);
        std::string ignored, mountPoint;
        if (fields >> ignored >> ignored >> ignored >> ignored >> mountPoint &&
            unescapedMountPath(mountPoint) == folder)
            return true;
    }
    return false;
}

// A folder on another device than its parent is the root of a mounted file
// system; the mount table also knows the bind mounts, which share a device.
bool isMountPoint(const std::string &folder)
{
    struct stat own{};
    struct stat parent{};
    if (::lstat(folder.c_str(), &own) != 0 || !S_ISDIR(own.st_mode))
        return false;
    if (::lstat(fs::path(folder).parent_path().c_str(), &parent) == 0 && own.st_dev != parent.st_dev)
        return true;
    return isListedMountPoint(folder);
}

} // namespace

bool TLFileManager::removeFile(const std::string &path, bool shouldAuth)
{
    if (path.empty())
        return true;
    unlockFile(path);
    if (occupancy(path) == Occupancy::free)
        return true;
    // Emptying the whole file system is never what a caller meant.
    if (withoutTrailingSlashes(path) == "/") {
        logRemovalFailure(path, "the root folder is never removed");
        return false;
    }
    std::error_code error;
    fs::remove_all(path, error);
    if (!error && occupancy(path) == Occupancy::free)
        return true;
    logRemovalFailure(path, error ? error.message() : "it is still there");
    if (shouldAuth && mayAuthorizeAfter(error))
        return TLAuthorization::sharedController().authRemoveFile(path);
    return false;
}

bool TLFileManager::trashFile(const std::string &path, bool shouldAuth)
{
    if (path.empty())
        return true;
    unlockFile(path);
    if (occupancy(path) == Occupancy::free)
        return true;
    std::error_code error;
    const fs::path item = fs::absolute(withoutTrailingSlashes(path), error).lexically_normal();
    const fs::path trash = TLTrash::folder();
    if (error || item == item.root_path() || item.filename().empty()) {
        logTrashFailure(path, "it cannot be moved to the Trash");
        return false;
    }
    // Trashing the Trash, or a folder holding it, would move it into itself.
    if (isSameOrInside(item, trash) || isSameOrInside(trash, item)) {
        logTrashFailure(path, "the Trash cannot hold itself");
        return false;
    }
    const std::string name = item.filename().string();
    std::string reason;
    const std::optional<TLTrash::Slot> slot = TLTrash::reserveSlot(
        item.string(), [&](long attempt) { return attempt == 1 ? name : numberedPath(name, attempt); }, reason);
    if (!slot) {
        logTrashFailure(path, reason);
        return false;
    }
    reason = moveItem(item, slot->itemPath);
    if (reason.empty())
        return true;
    TLTrash::releaseSlot(*slot);
    logTrashFailure(path, reason);
    if (shouldAuth && !runsAsRoot())
        return TLAuthorization::sharedController().authTrashFile(path);
    return false;
}

void TLFileManager::unlockFile(const std::string &path)
{
#if defined(__linux__) && defined(FS_IOC_GETFLAGS)
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
    // Missing items and symbolic links carry no flag to clear. An item that
    // may not be opened (no read permission, a socket) is left to the
    // operation that follows, which reports what really stops it.
    if (descriptor < 0) {
        if (errno != ENOENT && errno != ENOTDIR && errno != ELOOP && errno != EACCES && errno != ENXIO)
            TLLog::fastAppendLog("Unable to unlock file %@: %@", path, errnoText(errno));
        return;
    }
    int flags = 0;
    if (::ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_IMMUTABLE_FL) != 0) {
        flags &= ~FS_IMMUTABLE_FL;
        if (::ioctl(descriptor, FS_IOC_SETFLAGS, &flags) != 0)
            TLLog::fastAppendLog("Unable to unlock file %@: %@", path, errnoText(errno));
    }
    ::close(descriptor);
#else
    (void)path;
#endif
}

bool TLFileManager::createDirectory(const std::string &path, bool shouldAuth)
{
    if (!isDriveMountedForPath(path)) {
        std::cerr << "Unable to create directory. Drive is not mounted." << std::endl;
        return false;
    }
    if (path.empty()) {
        TLLog::appendLog("Error creating folder: %@. Authorizing...", "no folder was named");
        return false;
    }
    std::error_code error;
    fs::create_directories(path, error);
    std::error_code ignored;
    if (fs::is_directory(path, ignored))
        return true;
    const std::string reason = error ? error.message() : "something else is in the way";
    TLLog::appendLog("Error creating folder: %@. Authorizing...", "cannot create " + path + ": " + reason);
    if (shouldAuth && mayAuthorizeAfter(error))
        return TLAuthorization::sharedController().authCreateDir(path);
    return false;
}

bool TLFileManager::isDriveMountedForPath(const std::string &path)
{
    const std::vector<std::string> mountPoints = TLLocalPaths::volumeMountPoints(path);
    if (mountPoints.empty())
        return true;
    // macOS removes a volume's folder when it is detached.
    if (mountPoints.front().starts_with("/Volumes/")) {
        std::error_code error;
        return fs::exists(mountPoints.front(), error);
    }
    // Linux leaves the folder behind (or it never went: "/mnt/backup"), so
    // only a file system mounted there shows that the volume is attached.
    return std::any_of(mountPoints.begin(), mountPoints.end(), isMountPoint);
}

std::string TLFileManager::uniqueFilename(const std::string &path)
{
    if (path.empty() || occupancy(path) != Occupancy::taken)
        return path;
    const std::string base = withoutTrailingSlashes(path);
    for (long number = 2;; ++number) {
        std::string candidate = numberedPath(base, number);
        if (occupancy(candidate) != Occupancy::taken)
            return candidate;
    }
}

bool TLFileManager::compressFile(const std::string &source, const std::string &destination, bool includeParent)
{
    if (source.empty() || occupancy(source) != Occupancy::taken) {
        logCompressionFailure(source, "nothing is there");
        return false;
    }
    if (destination.empty()) {
        logCompressionFailure(source, "no archive was named");
        return false;
    }
    if (fileExistsAtPath(destination) && !trashFile(destination)) {
        logCompressionFailure(source, "the old " + destination + " could not be moved to the Trash");
        return false;
    }
    const fs::path root(withoutTrailingSlashes(source));
    std::error_code error;
    const bool isFolder = fs::is_directory(fs::symlink_status(root, error));
    const std::string rootName =
        fs::path(withoutTrailingSlashes(fs::absolute(root, error).lexically_normal().string())).filename().string();
    // The list is taken before the archive is opened, so an archive written
    // inside the folder it compresses never contains itself.
    std::vector<ZipEntry> entries;
    if (!isFolder || includeParent)
        entries.push_back({root, rootName});
    std::string reason = isFolder ? collectFolder(root, includeParent ? rootName : "", entries) : "";
    std::string zipReason;
    if (reason.empty())
        reason = TLAtomicFile::writeWith(destination, [&](const TLAtomicFile::Sink &sink) {
            zipReason = writeZip(entries, sink);
            return zipReason.empty();
        });
    // The archive's own complaint says more than the cancelled write.
    if (!zipReason.empty())
        reason = zipReason;
    if (!reason.empty()) {
        logCompressionFailure(source, reason);
        return false;
    }
    return fileExistsAtPath(destination);
}

void TLFileManager::waitForFileCreation(const std::string &path, double timeoutSeconds)
{
    fileWaiting().waitForFileCreation(path, timeoutSeconds);
}

void TLFileManager::waitForFileWrites(const std::string &path)
{
    fileWaiting().waitForFileWrites(path);
}

void TLFileManager::waitForFileWrites(const std::string &path, const std::string &lockFile)
{
    fileWaiting().waitForFileWrites(path, lockFile);
}

bool TLFileManager::fileExistsAtPath(const std::string &path)
{
    return !path.empty() && occupancy(path) == Occupancy::taken;
}
