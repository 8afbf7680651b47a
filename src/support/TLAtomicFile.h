// The one way the application replaces a file: write a sibling temporary
// file, flush it to disk, then rename it over the target.
#pragma once

#include <functional>
#include <string>
#include <string_view>

class TLAtomicFile
{
public:
    // Replaces (or creates) the file at `path` with `contents`. Either the
    // whole new contents are in place afterwards or the old file is
    // untouched. Returns an empty string on success, else a readable reason
    // such as "cannot create /a/b: Permission denied" (a path holding a NUL
    // is refused as "Invalid argument").
    [[nodiscard]] static std::string writeContents(const std::string &path,
                                                   std::string_view contents);

    // Where a producer puts the bytes of a file; returns false once writing
    // has failed (the producer may stop then; later bytes are ignored).
    using Sink = std::function<bool(std::string_view bytes)>;

    // The same for contents too large to hold twice in memory: `produce`
    // writes them piece by piece into the sink it is given (buffered; once
    // the contents outgrow one buffer of a megabyte, full buffers are
    // written on a thread of their own while `produce` goes on), and
    // returns false to give up, which leaves the old file untouched too
    // ("cannot write ...: Operation canceled").
    [[nodiscard]] static std::string writeWith(const std::string &path,
                                               const std::function<bool(const Sink &)> &produce);

    // Writes all of `bytes` to an open descriptor, resuming after partial
    // writes and interrupted calls. True when everything was written (and
    // for empty bytes); false on the first failing write, errno then holding
    // the reason. Bytes already written stay written.
    [[nodiscard]] static bool writeAll(int descriptor, std::string_view bytes);
};
