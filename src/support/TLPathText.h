// Taking POSIX paths apart as text, without touching the file system.
#pragma once

#include <string_view>

// Stateless path-text helpers for paths read out of documents (media paths,
// folder names). Every result views the argument, so it lives as long as
// the argument's storage. Nothing here throws.
class TLPathText
{
public:
    // The path without trailing "/"; a lone "/" stays "/". Empty gives empty.
    static std::string_view withoutTrailingSlashes(std::string_view path);

    // The last component: "/a/b.mov" and "/a/b.mov/" give "b.mov", "b.mov"
    // gives "b.mov", "/" gives "/". Empty gives empty.
    static std::string_view lastPathComponent(std::string_view path);

    // The path without its last component: "/a/b.mov" gives "/a", "/b.mov"
    // gives "/", "b.mov" gives "". Empty gives empty.
    static std::string_view deletingLastPathComponent(std::string_view path);

    // The text after the last "." of the last component; empty without one,
    // and for a name whose only "." leads it (".profile" names no type).
    static std::string_view pathExtension(std::string_view path);
};
