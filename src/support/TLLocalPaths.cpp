// The standard folders of Linux (XDG base directories and user dirs) and path helpers.
#include "TLLocalPaths.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <pwd.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

std::atomic<long long> userIdOverride{-1};

// A user-dirs file is a few lines; anything much larger is not one.
constexpr std::size_t maximumUserDirsSize = 64 * 1024;

std::string withoutTrailingSlashes(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

// Joins like appending a path component: one slash between the parts, and
// nothing appended for an empty component.
std::string joinPath(const std::string &base, std::string_view component)
{
    while (!component.empty() && component.front() == '/')
        component.remove_prefix(1);
    if (component.empty())
        return base;
    if (!base.empty() && base.back() == '/')
        return base + std::string(component);
    return base + "/" + std::string(component);
}

// An environment variable that names an absolute path. The XDG rules say a
// relative value is to be ignored, as if unset.
std::optional<std::string> absolutePathFromEnvironment(const char *name)
{
    const char *value = std::getenv(name);
    if (!value || value[0] != '/')
        return std::nullopt;
    return withoutTrailingSlashes(value);
}

std::optional<passwd> passwordEntry(std::vector<char> &buffer)
{
    buffer.resize(16384);
    passwd entry{};
    passwd *found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return std::nullopt;
    return entry;
}

std::string xdgBaseDirectory(const char *variable, std::string_view fallback)
{
    return absolutePathFromEnvironment(variable).value_or(joinPath(TLLocalPaths::userDirectory(), fallback));
}

std::string configHome() { return xdgBaseDirectory("XDG_CONFIG_HOME", ".config"); }
std::string dataHome() { return xdgBaseDirectory("XDG_DATA_HOME", ".local/share"); }

// The value of a user-dirs line such as XDG_DESKTOP_DIR="$HOME/Desktop":
// "$HOME" followed by a path, or an absolute path, in double quotes with
// backslash escapes. Anything else is not a usable entry.
std::optional<std::string> userDirsValue(std::string_view quoted)
{
    if (quoted.empty() || quoted.front() != '"')
        return std::nullopt;
    std::string value;
    std::size_t position = 1;
    for (; position < quoted.size() && quoted[position] != '"'; ++position) {
        if (quoted[position] == '\\' && position + 1 < quoted.size())
            ++position;
        value += quoted[position];
    }
    if (position >= quoted.size())
        return std::nullopt;
    if (value == "$HOME" || value.starts_with("$HOME/"))
        return withoutTrailingSlashes(joinPath(TLLocalPaths::userDirectory(), value.substr(5)));
    if (value.starts_with("/"))
        return withoutTrailingSlashes(value);
    return std::nullopt;
}

std::optional<std::string> userDirsEntry(std::string_view key)
{
    std::ifstream file(configHome() + "/user-dirs.dirs", std::ios::binary);
    std::string contents(maximumUserDirsSize, '\0');
    file.read(contents.data(), std::streamsize(contents.size()));
    contents.resize(std::size_t(file.gcount()));

    std::optional<std::string> found;
    std::string_view rest(contents);
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        while (!line.empty() && (line.front() == ' ' || line.front() == '\t'))
            line.remove_prefix(1);
        if (!line.starts_with(key) || line.substr(key.size(), 1) != "=")
            continue;
        // Later lines win, as when the file is read by a shell.
        if (auto value = userDirsValue(line.substr(key.size() + 1)))
            found = std::move(value);
    }
    return found;
}

// A user folder from the user-dirs file, then from the environment (as the
// xdg-user-dir tool falls back), then the usual name in the home folder.
std::string userSpecialDirectory(const char *key, std::string_view fallback)
{
    if (auto entry = userDirsEntry(key))
        return *entry;
    return absolutePathFromEnvironment(key).value_or(joinPath(TLLocalPaths::userDirectory(), fallback));
}

std::optional<std::string> userPath(TLLocalPaths::Directory kind)
{
    using Directory = TLLocalPaths::Directory;
    switch (kind) {
    case Directory::applications: return joinPath(TLLocalPaths::userDirectory(), "Applications");
    case Directory::adminApplications: return joinPath(TLLocalPaths::userDirectory(), "Applications/Utilities");
    case Directory::documents: return userSpecialDirectory("XDG_DOCUMENTS_DIR", "Documents");
    case Directory::library: return xdgBaseDirectory("XDG_STATE_HOME", ".local/state");
    case Directory::preferences: return configHome();
    case Directory::caches: return xdgBaseDirectory("XDG_CACHE_HOME", ".cache");
    case Directory::applicationSupport: return dataHome();
    case Directory::movies: return userSpecialDirectory("XDG_VIDEOS_DIR", "Videos");
    case Directory::desktop: return userSpecialDirectory("XDG_DESKTOP_DIR", "Desktop");
    case Directory::documentation: return dataHome() + "/doc";
    }
    return std::nullopt;
}

std::optional<std::string_view> localPath(TLLocalPaths::Directory kind)
{
    using Directory = TLLocalPaths::Directory;
    switch (kind) {
    case Directory::applications: return "/opt";
    case Directory::adminApplications: return "/opt/Utilities";
    case Directory::documents: return "/usr/local/share/documents";
    case Directory::library: return "/var/lib";
    case Directory::preferences: return "/etc/xdg";
    case Directory::caches: return "/var/cache";
    case Directory::applicationSupport: return "/usr/local/share";
    case Directory::documentation: return "/usr/local/share/doc";
    case Directory::movies:
    case Directory::desktop: return std::nullopt;
    }
    return std::nullopt;
}

std::optional<std::string_view> systemPath(TLLocalPaths::Directory kind)
{
    using Directory = TLLocalPaths::Directory;
    switch (kind) {
    case Directory::library: return "/usr/lib";
    case Directory::documentation: return "/usr/share/doc";
    default: return std::nullopt;
    }
}

// Machine-wide folders are moved under CORVALE_LOCAL_ROOT when it is set, so
// that a test run can never write to the real /var or /opt.
std::optional<std::string> underMachineRoot(std::optional<std::string_view> path)
{
    if (!path)
        return std::nullopt;
    const char *root = std::getenv("CORVALE_LOCAL_ROOT");
    if (!root || !*root)
        return std::string(*path);
    std::string prefix = withoutTrailingSlashes(root);
    if (prefix == "/")
        prefix.clear();
    return prefix + std::string(*path);
}

std::optional<std::string> searchForDirectory(TLLocalPaths::Directory kind, TLLocalPaths::Domain domain)
{
    switch (domain) {
    case TLLocalPaths::Domain::user: return userPath(kind);
    case TLLocalPaths::Domain::local: return underMachineRoot(localPath(kind));
    case TLLocalPaths::Domain::system: return underMachineRoot(systemPath(kind));
    }
    return std::nullopt;
}

TLLocalPaths::Domain domainFor(bool user)
{
    return user ? TLLocalPaths::Domain::user : TLLocalPaths::Domain::local;
}

// The folders of the Linux file-system hierarchy that no file operation of
// this program may remove or move away, whoever asks.
constexpr std::array<std::string_view, 23> linuxSystemFolders{
    "/etc", "/boot", "/efi", "/lib", "/lib32", "/lib64", "/libx32", "/home", "/root", "/srv", "/proc", "/sys",
    "/dev", "/run", "/run/media", "/run/user", "/tmp", "/media", "/mnt", "/opt", "/snap", "/lost+found",
    "/usr/local",
};

// Whether `path` is a folder directly inside one of `places` (each given
// with its trailing slash): "/home/ada" for "/home/", not "/home/ada/x".
bool isFolderStraightInside(std::string_view path, std::initializer_list<std::string_view> places)
{
    for (std::string_view place : places) {
        if (path.size() > place.size() && path.starts_with(place) &&
            path.find('/', place.size()) == std::string_view::npos)
            return true;
    }
    return false;
}

// The components of an absolute path, without empty ones.
std::vector<std::string> components(std::string_view path)
{
    std::vector<std::string> parts;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        if (slash != 0)
            parts.emplace_back(path.substr(0, slash));
        if (slash == std::string_view::npos)
            break;
        path.remove_prefix(slash + 1);
    }
    return parts;
}

constexpr mode_t groupAndOtherBits = S_IRWXG | S_IRWXO;

// Whether `status` describes a folder only the effective user can enter.
bool isPrivateFolder(const struct stat &status)
{
    return S_ISDIR(status.st_mode) && status.st_uid == geteuid() && (status.st_mode & groupAndOtherBits) == 0;
}

// Makes `path` a private folder or confirms that it already is one. The
// folder is opened without following a symbolic link and checked through
// that descriptor, so a link or a folder swapped in by another user between
// the creation and the check is refused rather than trusted.
bool claimPrivateFolder(const std::string &path)
{
    if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST)
        return false;
    const int descriptor = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    struct stat status{};
    const bool usable = fstat(descriptor, &status) == 0 && isPrivateFolder(status)
        // A restrictive umask may have left the owner without search or
        // write permission on a folder just made; the owner needs both.
        && fchmod(descriptor, S_IRWXU) == 0;
    close(descriptor);
    return usable;
}

// $XDG_RUNTIME_DIR when it is a folder of the user's own with mode 0700, as
// the base-directory rules require of it; another value is not trusted.
std::optional<std::string> trustedRuntimeDirectory()
{
    const auto runtime = absolutePathFromEnvironment("XDG_RUNTIME_DIR");
    if (!runtime)
        return std::nullopt;
    struct stat status{};
    if (lstat(runtime->c_str(), &status) != 0 || !isPrivateFolder(status))
        return std::nullopt;
    return runtime;
}

std::array<unsigned char, 16> randomBytes()
{
    std::array<unsigned char, 16> bytes{};
    try {
        std::random_device device;
        for (auto &byte : bytes)
            byte = static_cast<unsigned char>(device());
    } catch (...) {
        // No entropy source: a clock-seeded generator still differs per call.
        static std::atomic<unsigned> counter{0};
        std::mt19937_64 generator(std::uint64_t(std::time(nullptr)) ^ (std::uint64_t(getpid()) << 32) ^ counter++);
        for (auto &byte : bytes)
            byte = static_cast<unsigned char>(generator());
    }
    return bytes;
}

} // namespace

std::optional<std::string> TLLocalPaths::pathForDirectory(Directory kind, Domain userDomain)
{
    auto found = searchForDirectory(kind, userDomain);
    if (!found || userDomain != Domain::user || userId() != 0)
        return found;
    // Root's own folders are reported under its account folder; callers want
    // them under the home folder the process was given. Other paths (all of
    // Linux's) are left alone.
    if (!found->starts_with("/var/root") && !found->starts_with("/private/var/root"))
        return found;
    return rootCorrectedPath(*found);
}

std::string TLLocalPaths::rootCorrectedPath(const std::string &path)
{
    std::string_view rest(path);
    if (rest.starts_with("/var/root"))
        rest.remove_prefix(9);
    // 16, not 17: the "t" of "root" stays at the start. Callers depend on it.
    if (rest.starts_with("/private/var/root"))
        rest.remove_prefix(16);
    return joinPath(userDirectory(), rest);
}

std::optional<std::string> TLLocalPaths::applicationDirectory(bool user)
{
    return pathForDirectory(Directory::applications, domainFor(user));
}

std::optional<std::string> TLLocalPaths::adminApplicationDirectory(bool user)
{
    return pathForDirectory(Directory::adminApplications, domainFor(user));
}

std::optional<std::string> TLLocalPaths::documentDirectory(bool user)
{
    return pathForDirectory(Directory::documents, domainFor(user));
}

std::optional<std::string> TLLocalPaths::libraryDirectory(bool user)
{
    return pathForDirectory(Directory::library, domainFor(user));
}

std::optional<std::string> TLLocalPaths::prefsDirectory(bool user)
{
    return pathForDirectory(Directory::preferences, domainFor(user));
}

std::optional<std::string> TLLocalPaths::cacheDirectory(bool user)
{
    return pathForDirectory(Directory::caches, domainFor(user));
}

std::optional<std::string> TLLocalPaths::appSupportDirectory(bool user)
{
    return pathForDirectory(Directory::applicationSupport, domainFor(user));
}

std::optional<std::string> TLLocalPaths::logDirectory(bool user)
{
    const auto library = libraryDirectory(user);
    if (!library)
        return std::nullopt;
    return joinPath(*library, "Logs");
}

std::optional<std::string> TLLocalPaths::movieDirectory()
{
    return pathForDirectory(Directory::movies, Domain::user);
}

std::optional<std::string> TLLocalPaths::desktopDirectory()
{
    return pathForDirectory(Directory::desktop, Domain::user);
}

std::optional<std::string> TLLocalPaths::systemLibraryDirectory()
{
    return pathForDirectory(Directory::library, Domain::system);
}

std::optional<std::string> TLLocalPaths::localDocumentationDirectory()
{
    return pathForDirectory(Directory::documentation, Domain::local);
}

std::string TLLocalPaths::machineWideLogDirectory()
{
    return *underMachineRoot("/var/log/quillmoor");
}

std::string TLLocalPaths::userDirectory()
{
    if (auto home = absolutePathFromEnvironment("HOME"))
        return *home;
    std::vector<char> buffer;
    const auto entry = passwordEntry(buffer);
    if (entry && entry->pw_dir && entry->pw_dir[0] == '/')
        return withoutTrailingSlashes(entry->pw_dir);
    return "/";
}

std::string TLLocalPaths::username()
{
    std::vector<char> buffer;
    if (const auto entry = passwordEntry(buffer); entry && entry->pw_name)
        return entry->pw_name;
    for (const char *variable : {"USER", "LOGNAME"}) {
        if (const char *name = std::getenv(variable); name && *name)
            return name;
    }
    return {};
}

std::string TLLocalPaths::trashDirectory()
{
    return dataHome() + "/Trash/files";
}

std::string TLLocalPaths::tempDirectory()
{
    return absolutePathFromEnvironment("TMPDIR").value_or("/tmp");
}

std::optional<std::string> TLLocalPaths::privateTemporaryDirectory()
{
    if (const auto runtime = trustedRuntimeDirectory()) {
        const std::string folder = joinPath(*runtime, "corvale");
        if (claimPrivateFolder(folder))
            return folder;
    }
    const std::string base = joinPath(tempDirectory(), "corvale-" + std::to_string(geteuid()));
    if (claimPrivateFolder(base))
        return base;
    // The fixed name is taken, by another user or by a link: a fresh name of
    // mkdtemp's own choosing cannot be pre-empted.
    std::string pattern = base + "-XXXXXX";
    if (!mkdtemp(pattern.data()))
        return std::nullopt;
    return pattern;
}

std::optional<std::string> TLLocalPaths::darwinCacheDirectory()
{
#ifdef _CS_DARWIN_USER_CACHE_DIR
    char buffer[1024];
    const std::size_t length = confstr(_CS_DARWIN_USER_CACHE_DIR, buffer, sizeof buffer);
    if (length == 0)
        return std::nullopt;
    return std::string(buffer, std::min(length, sizeof buffer) - 1);
#else
    return std::nullopt;
#endif
}

std::string TLLocalPaths::uuid()
{
    auto bytes = randomBytes();
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        if (index == 4 || index == 6 || index == 8 || index == 10)
            text += '-';
        text += digits[bytes[index] >> 4];
        text += digits[bytes[index] & 0x0F];
    }
    return text;
}

std::string TLLocalPaths::randomString(std::size_t length)
{
    static constexpr std::string_view alphabet = "abcdefghijklmnopqrstuvwxyz0123456789";
    // Reseeded on every call from wall-clock seconds times processor time, as
    // the maker's other tools do; a private generator leaves rand() alone.
    const auto seed = static_cast<unsigned long>(std::time(nullptr)) * static_cast<unsigned long>(std::clock());
    std::mt19937 generator(static_cast<std::mt19937::result_type>(seed));
    std::string text;
    text.reserve(length);
    for (std::size_t index = 0; index < length; ++index)
        text += alphabet[generator() % alphabet.size()];
    return text;
}

std::string TLLocalPaths::tempFile()
{
    return joinPath(tempDirectory(), uuid() + randomString(8));
}

std::optional<std::string> TLLocalPaths::ensureTrailingSlash(const std::optional<std::string> &path)
{
    if (!path || path->empty() || path->back() == '/')
        return path;
    return *path + "/";
}

std::optional<std::string> TLLocalPaths::stripTrailingSlash(const std::optional<std::string> &path)
{
    if (!path || path->size() < 2 || path->back() != '/')
        return path;
    return path->substr(0, path->size() - 1);
}

bool TLLocalPaths::isPathSystemDirectory(const std::optional<std::string> &path, bool exactMatch)
{
    if (!path)
        return false;
    if (*path == "/")
        return true;
    if (path->size() < 3)
        return false;
    std::string candidate = *path;
    // Two characters, not one: the comparison below relies on it ("/usr/"
    // is not an exact match, "/System/Library/" still matches by prefix).
    if (candidate.back() == '/')
        candidate.resize(candidate.size() - 2);

    const std::optional<std::string> protectedFolders[] = {
        applicationDirectory(true), applicationDirectory(false),
        adminApplicationDirectory(true), adminApplicationDirectory(false),
        documentDirectory(true), documentDirectory(false),
        libraryDirectory(true), libraryDirectory(false),
        prefsDirectory(true), prefsDirectory(false),
        cacheDirectory(true), cacheDirectory(false),
        appSupportDirectory(true), appSupportDirectory(false),
        desktopDirectory(), userDirectory(), systemLibraryDirectory(), localDocumentationDirectory(),
        "/Users/Shared", "/usr", "/var", "/bin", "/sbin", "/System",
    };
    for (const auto &folder : protectedFolders) {
        if (folder && *folder == candidate)
            return true;
    }
    if (std::find(linuxSystemFolders.begin(), linuxSystemFolders.end(), candidate) != linuxSystemFolders.end())
        return true;
    if (isFolderStraightInside(candidate, {"/home/", "/media/", "/run/media/"}))
        return true;
    if (exactMatch)
        return false;
    if (candidate.starts_with("/usr/"))
        return !candidate.starts_with("/usr/local/");
    if (candidate.starts_with("/run/"))
        return !candidate.starts_with("/run/media/") && !candidate.starts_with("/run/user/");
    for (std::string_view prefix : {"/var/", "/bin/", "/sbin/", "/private/var/", "/System/", "/etc/", "/boot/",
                                    "/lib/", "/lib32/", "/lib64/", "/libx32/", "/proc/", "/sys/", "/dev/",
                                    "/snap/"}) {
        if (candidate.starts_with(prefix))
            return true;
    }
    return false;
}

bool TLLocalPaths::isPathOnTimeMachineVolume(const std::optional<std::string> &path)
{
    if (!path || volumeMountPoints(*path).empty())
        return false;
    std::string_view rest(*path);
    while (!rest.empty()) {
        const std::size_t slash = rest.find('/');
        if (rest.substr(0, slash) == "Backups.backupdb")
            return true;
        if (slash == std::string_view::npos)
            break;
        rest.remove_prefix(slash + 1);
    }
    return false;
}

std::vector<std::string> TLLocalPaths::volumeMountPoints(const std::string &path)
{
    if (path.empty() || path.front() != '/')
        return {};
    const std::vector<std::string> parts = components(std::filesystem::path(path).lexically_normal().string());
    const auto prefix = [&](std::size_t count) {
        std::string joined;
        for (std::size_t index = 0; index < count; ++index)
            joined += "/" + parts[index];
        return joined;
    };
    // The place's own depth, and how many levels below it may be the mount
    // point: one for "/Volumes" and "/mnt", the user's folder and the
    // volume's for "/media" and "/run/media".
    std::size_t placeDepth = 0;
    std::size_t levels = 1;
    if (parts.size() >= 2 && (parts[0] == "Volumes" || parts[0] == "mnt")) {
        placeDepth = 1;
    } else if (parts.size() >= 3 && parts[0] == "media") {
        placeDepth = 1;
        levels = 2;
    } else if (parts.size() >= 4 && parts[0] == "run" && parts[1] == "media") {
        placeDepth = 2;
        levels = 2;
    } else {
        return {};
    }
    std::vector<std::string> mountPoints;
    for (std::size_t depth = placeDepth + 1; depth <= std::min(placeDepth + levels, parts.size()); ++depth)
        mountPoints.push_back(prefix(depth));
    return mountPoints;
}

unsigned TLLocalPaths::userId()
{
    const long long overridden = userIdOverride.load();
    return overridden >= 0 ? unsigned(overridden) : unsigned(getuid());
}

void TLLocalPaths::overrideUserId(std::optional<unsigned> uid)
{
    userIdOverride.store(uid ? static_cast<long long>(*uid) : -1);
}
