// File operations shared by the maker's applications.
#pragma once

#include <string>

// Removing, trashing, unlocking and creating files and folders, finding free
// file names, zipping, and waiting for files that another program writes.
// Stateless; callable from any thread. Problems go to the application log;
// nothing throws.
//
// Where the system refuses removing or creating for lack of permission, or
// the move into the Trash itself fails, and `shouldAuth` is set, the operation is retried with
// administrator rights (TLAuthorization::sharedController, which may show
// the system's password prompt) and its result is that of the retry. A
// process running as root never retries: it already has those rights.
class TLFileManager
{
public:
    // Removes whatever is at `path`: a file, a symbolic link (never what it
    // points to) or a folder with all its contents, after clearing the
    // item's immutable flag (unlockFile). True when nothing is there
    // afterwards, including when nothing was there to begin with or `path`
    // is empty. On failure logs "Error removing file: <reason>.
    // Authorizing..." and returns false (or the administrator retry's
    // result); a folder may then be partly emptied.
    // The root folder "/" is never removed (false, logged the same way).
    static bool removeFile(const std::string &path, bool shouldAuth = true);

    // Moves whatever is at `path` into the user's freedesktop.org Trash
    // (TLLocalPaths::trashDirectory, with a ".trashinfo" record holding the
    // original path and the deletion date in the sibling "info" folder), so
    // that the desktop's Trash can show and restore it. The item keeps its
    // name in the Trash unless that is taken ("Bins.xml" then becomes
    // "Bins 2.xml", ...). Clears the immutable flag first. True when the
    // item was moved, when nothing is at `path`, or for an empty path.
    // False, with a log line "Unable to move <path> to the Trash: <reason>",
    // for "/", for the Trash, an item inside it or a folder holding it, and
    // when the move fails (across file systems the item is copied and then
    // removed; a failed copy is undone);
    // the item is then left where it was and no record stays behind.
    static bool trashFile(const std::string &path, bool shouldAuth = true);

    // Clears the immutable ("locked") flag of the item at `path` (not of
    // what a symbolic link points to). Does nothing when the item is missing,
    // is not locked, or lives on a file system without such flags. A failure
    // is logged as "Unable to unlock file <path>: <reason>" and otherwise
    // ignored.
    static void unlockFile(const std::string &path);

    // Creates the folder at `path` with every missing folder above it. True
    // when a folder is there afterwards (also when it already was). On a
    // volume that is not attached (isDriveMountedForPath) it creates
    // nothing, writes "Unable to create directory. Drive is not mounted." to
    // standard error and returns false, so no stray folder appears where
    // the volume would be mounted. Other failures (a file in the way, no
    // permission, an empty path) log "Error creating folder: <reason>.
    // Authorizing..." and return false.
    static bool createDirectory(const std::string &path, bool shouldAuth = true);

    // False for a path on a volume that is not attached: below
    // "/Volumes/<name>" when that folder does not exist, below
    // "/media/<user>/<name>", "/run/media/<user>/<name>" or "/mnt/<name>"
    // (the paths themselves included) when no file system is mounted at the
    // volume's folder (TLLocalPaths::volumeMountPoints). True for every other
    // path, including the places themselves and relative paths.
    static bool isDriveMountedForPath(const std::string &path);

    // A path at which nothing exists: `path` itself when it is free, else the
    // path with " 2", " 3", ... put before its extension ("Bins.xml" gives
    // "Bins 2.xml", "Bins" gives "Bins 2"), the first that is free. A
    // leading dot does not start an extension (".config" gives ".config 2")
    // and neither does a trailing one. A symbolic link counts as taken even
    // when it points nowhere. When it cannot be told whether a path is free
    // (a folder on the way may not be searched) that path is returned, so
    // that the write that follows reports the real problem. An empty path is
    // returned unchanged; trailing slashes are dropped from the numbered
    // candidates ("Reels/" gives "Reels 2").
    static std::string uniqueFilename(const std::string &path);

    // Writes a zip archive of the file or folder `source` to `destination`,
    // trashing (trashFile) whatever is at `destination` first. With
    // `includeParent` the entries are stored under the source's own name
    // ("Logs/a.log" for a folder "Logs"); without it a folder's entries are
    // stored relative to the folder ("a.log"). A file is always stored under
    // its name. Folders, files and symbolic links (as links) are kept with
    // their modification times and permissions; other kinds of entries
    // (sockets, devices) are left out. True when the archive is complete at
    // `destination`. False with a log line "Unable to compress <source>:
    // <reason>" for a missing source, an unreadable file inside it, or a
    // destination that cannot be written; no partial archive is left then.
    static bool compressFile(const std::string &source, const std::string &destination,
                             bool includeParent = true);

    // Gives a file that is about to be created one short chance to appear;
    // see TLFileWaiting::waitForFileCreation, which this is.
    static void waitForFileCreation(const std::string &path, double timeoutSeconds);

    // Blocks while the file at `path` is being written, that is until it has
    // been left alone for five seconds; see TLFileWaiting::waitForFileWrites,
    // which this is.
    static void waitForFileWrites(const std::string &path);
    // The same for a writer that keeps `lockFile` while it works: the wait
    // also starts while the lock file exists, but then ends, as above, once
    // the file has been left alone for five seconds, lock file or not. An
    // empty `lockFile` means none.
    static void waitForFileWrites(const std::string &path, const std::string &lockFile);

    // Whether anything is at `path`, a symbolic link that points nowhere
    // included. False for an empty path or one that cannot be looked at.
    static bool fileExistsAtPath(const std::string &path);
};
