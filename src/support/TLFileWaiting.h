// Waiting for a file that another program is about to write, such as an
// export that an editing application finishes after its script returned.
#pragma once

#include <memory>
#include <string>

class TLFileWaiting
{
public:
    virtual ~TLFileWaiting() = default;

    // Gives a file that does not exist yet (or is still empty) one short
    // chance to appear: returns at once when the file exists with a size
    // above zero; otherwise, unless `timeoutSeconds` is zero or negative,
    // logs "File <path> is not yet created. Waiting..." and pauses
    // 500 microseconds, then returns. It never polls for the whole time-out:
    // callers follow it with waitForFileWrites, which does the real waiting.
    virtual void waitForFileCreation(const std::string &path, double timeoutSeconds) = 0;

    // Blocks while the file is being written, that is while its modification
    // time lies less than five seconds from now (in either direction, so a
    // time slightly ahead of this machine's clock counts, one far ahead does
    // not and cannot make the wait endless). Returns at once for a missing
    // file or one that was last changed earlier; otherwise logs
    // "File <path> is currently being written to. Waiting...", re-reads the
    // time every 500 microseconds until the file has been left alone for
    // five seconds (or has gone), and logs "File <path> finished writing.".
    virtual void waitForFileWrites(const std::string &path) = 0;

    // The same for a writer that also keeps a lock file while it works: the
    // file counts as being written while `lockFile` exists (anything at that
    // path, a dangling link included) as well as while its modification
    // time is recent. The waiting itself then watches only the modification
    // time, so a lock file left behind by a writer that died costs nothing
    // more than the two log lines. An empty `lockFile` means none.
    virtual void waitForFileWrites(const std::string &path, const std::string &lockFile) = 0;

    // The waiting above, done on the real file system.
    static std::shared_ptr<TLFileWaiting> standard();
};
