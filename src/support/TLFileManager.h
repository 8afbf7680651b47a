// File operations shared by the maker's applications.
#pragma once

#include <string>

// Removing files and finding free file names. Stateless; callable from any
// thread. Problems go to the application log; nothing throws.
//
// These are the ordinary file-system operations only. Where the system
// refuses one (a folder the user may not write to), it fails and logs the
// reason; asking for an administrator's authorisation to retry comes with
// the privileged file operations and is not attempted here.
class TLFileManager
{
public:
    // Removes whatever is at `path`: a file, a symbolic link (never what it
    // points to) or a folder with all its contents. True when nothing is
    // there afterwards, including when nothing was there to begin with or
    // `path` is empty. On failure logs "Error removing file: <reason>.
    // Authorizing..." and returns false; a folder may then be partly emptied.
    // The root folder "/" is never removed (false, logged the same way).
    static bool removeFile(const std::string &path);

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
};
