// The one way the application replaces a file: write a sibling temporary
// file, flush it to disk, then rename it over the target.
#pragma once

#include <string>
#include <string_view>

class TLAtomicFile
{
public:
    // Replaces (or creates) the file at `path` with `contents`. Either the
    // whole new contents are in place afterwards or the old file is
    // untouched. Returns an empty string on success, else a readable reason
    // such as "cannot create /a/b: Permission denied".
    [[nodiscard]] static std::string writeContents(const std::string &path,
                                                   std::string_view contents);
};
