// Where the standard folders lie, and small path-string utilities.
#pragma once

#include <optional>
#include <string>
#include <vector>

// Answers where each standard folder lies, per user or machine-wide, and
// offers path-string helpers (random names, temporary files, trailing
// slashes, protected system folders). Stateless; every operation is safe
// from any thread.
//
// On Linux the per-user folders follow the XDG base-directory variables and
// the user-dirs file; the machine-wide ("local") and operating-system
// ("system") folders are fixed places under the environment variable
// CORVALE_LOCAL_ROOT when it is set (so a test never writes outside its
// sandbox). README.md, "Standard folders", has the whole table. Folders come
// without a trailing slash.
class TLLocalPaths
{
public:
    enum class Directory {
        applications,
        adminApplications, // the Utilities folder inside Applications
        documents,
        library,
        preferences,
        caches,
        applicationSupport,
        movies,
        desktop,
        documentation,
    };
    enum class Domain { user, local, system };

    // The folder of `kind` in `userDomain`; nullopt when that domain has no
    // such folder (the local and system domains have no Desktop, for
    // instance). As root (uid 0), a user-domain folder under "/var/root" or
    // "/private/var/root" is moved under the home folder.
    static std::optional<std::string> pathForDirectory(Directory kind, Domain userDomain);

    // The root correction on its own: `path` with a leading "/var/root" and
    // then "/private/var/root" cut off (the second cut is 16 characters, so a
    // "t" of "root" stays: "/private/var/root/Library" gives "t/Library"),
    // joined to userDirectory(). pathForDirectory applies it to the user
    // domain as root.
    static std::string rootCorrectedPath(const std::string &path);

    // The per-user folder when `user` is true, else the machine-wide one.
    static std::optional<std::string> applicationDirectory(bool user);
    static std::optional<std::string> adminApplicationDirectory(bool user);
    static std::optional<std::string> documentDirectory(bool user);
    static std::optional<std::string> libraryDirectory(bool user);
    // The preferences folder itself (per user: $XDG_CONFIG_HOME).
    static std::optional<std::string> prefsDirectory(bool user);
    static std::optional<std::string> cacheDirectory(bool user);
    static std::optional<std::string> appSupportDirectory(bool user);
    // libraryDirectory(user) + "/Logs".
    static std::optional<std::string> logDirectory(bool user);
    // Per-user folders.
    static std::optional<std::string> movieDirectory();
    static std::optional<std::string> desktopDirectory();
    // The operating system's own Library.
    static std::optional<std::string> systemLibraryDirectory();
    // The machine-wide Documentation folder.
    static std::optional<std::string> localDocumentationDirectory();
    // Where the log goes when the program runs as root: the system's log
    // folder, "/var/log/quillmoor".
    static std::string machineWideLogDirectory();

    // The home folder: $HOME when it is absolute, else the password
    // database's entry, else "/".
    static std::string userDirectory();
    // The login name of the process's user; $USER (then $LOGNAME) when the
    // password database has no entry; "" when nothing is known.
    static std::string username();
    // The freedesktop.org Trash of the user: $XDG_DATA_HOME/Trash/files.
    static std::string trashDirectory();
    // $TMPDIR without its trailing slash, or "/tmp" when unset or not absolute.
    static std::string tempDirectory();
    // A folder only the current user can enter (a directory owned by the
    // effective user, mode 0700), for files other local users must neither
    // read nor pre-empt: "$XDG_RUNTIME_DIR/corvale" when that variable names
    // an absolute folder owned by the user with mode 0700, else
    // tempDirectory() + "/corvale-<uid>". A name that already exists as a
    // symbolic link, as something other than a folder, with another owner or
    // with group or other permission bits is never used; a fresh
    // "corvale-<uid>-XXXXXX" folder (mkdtemp) in tempDirectory() is used
    // instead. Created when missing; nullopt when nothing can be made.
    static std::optional<std::string> privateTemporaryDirectory();
    // The per-user cache folder of Darwin; nullopt where the system has none
    // (always on Linux).
    static std::optional<std::string> darwinCacheDirectory();

    // A new unique string: 32 upper-case hexadecimal digits in groups
    // 8-4-4-4-12.
    static std::string uuid();
    // `length` characters from "abcdefghijklmnopqrstuvwxyz0123456789" ("" for
    // 0). The generator is reseeded from the clock on every call, so two
    // calls in quick succession may give the same string.
    static std::string randomString(std::size_t length);
    // tempDirectory() joined with uuid() followed by randomString(8). The file
    // is not created.
    static std::string tempFile();

    // nullopt for nullopt, "" unchanged, otherwise `path` ending in "/".
    static std::optional<std::string> ensureTrailingSlash(const std::optional<std::string> &path);
    // nullopt for nullopt; a path shorter than 2 characters unchanged;
    // otherwise `path` without a final "/".
    static std::optional<std::string> stripTrailingSlash(const std::optional<std::string> &path);

    // Whether `path` is a folder that must never be deleted or moved: "/",
    // one of the standard folders above (exactly), "/Users/Shared", "/usr",
    // "/var", "/bin", "/sbin", "/System", the other top-level folders of
    // Linux ("/etc", "/boot", "/lib", "/lib64", "/home", "/root", "/proc",
    // "/run", "/tmp", "/media", "/mnt", "/usr/local", ...), and a folder
    // straight inside "/home", "/media" or "/run/media" (a user's home or
    // volume folder). Unless `exactMatch`, also anything
    // below "/usr/" (but not "/usr/local/"), "/var/", "/bin/", "/sbin/",
    // "/private/var/", "/System/", "/etc/", "/boot/", "/lib/", "/lib32/",
    // "/lib64/", "/libx32/", "/proc/", "/sys/", "/dev/", "/snap/" or
    // "/run/" (but not "/run/media/" or "/run/user/"); what users keep below
    // "/home/", "/tmp/", "/media/", "/mnt/" and "/srv/" is theirs. A path
    // ending in "/" loses its last two characters before the comparison
    // ("/usr/" is compared as "/us"). False for nullopt and for paths of 1
    // or 2 characters other than "/".
    static bool isPathSystemDirectory(const std::optional<std::string> &path, bool exactMatch = false);
    // True when `path` lies on a volume (see volumeMountPoints) and one of
    // its components is exactly "Backups.backupdb"; false for nullopt.
    static bool isPathOnTimeMachineVolume(const std::optional<std::string> &path);
    // The folders at which the volume holding `path` is mounted when it is
    // attached, for a path in one of the places external volumes are
    // mounted: "/Volumes/<volume>" (macOS), "/media/<user>/<volume>" and
    // "/run/media/<user>/<volume>" (the desktop's automounter), "/mnt/<volume>".
    // Below "/media" and "/run/media" both "<place>/<user>" and
    // "<place>/<user>/<volume>" are given, outer first, since some systems
    // mount volumes straight into "/media". Empty for any other path, for a
    // relative one and for the places themselves ("/media/<user>" included).
    // The path is normalised lexically first.
    static std::vector<std::string> volumeMountPoints(const std::string &path);

    // The user id that decides whether the process runs as root: getuid(),
    // unless overridden. The override exists so that both the root and the
    // ordinary case can be exercised whoever runs the program; nullopt
    // restores getuid().
    static unsigned userId();
    static void overrideUserId(std::optional<unsigned> uid);
};
