// The application's single text log: five generations of UTF-8 files written
// by one serial queue, so that callers never wait for the disk.
#pragma once

#include "TLFormat.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <thread>
#include <utility>
#include <vector>

// The process-wide log. Lines are stamped "2024-03-05 14:07:09 +0000 - text"
// and written, in the order queued, by one writer thread; the file lives in
// logFolder() as "<name>.1.log" (older generations ".2.log" to ".5.log").
// Each line is one append to the file, so processes sharing it (runs of the
// command line) never split each other's lines. The log reports its own failures only on
// standard output, and only while noPrinting is clear; nothing here throws.
//
// Every append does nothing for a null format (a default std::string_view)
// or while logging is disabled. Formats are escaped (escapeTextForLogging)
// before they are filled, so "50% done" is logged as written.
//
// The main thread: callers on it never wait. It is the thread that first
// called sharedController(), unless registerMainThread() names another.
class TLLog
{
public:
    // The process-wide log, made on first use (once, from any thread). Making
    // it installs a terminate handler that logs an escaping exception's
    // what() through appendLogAndPrint, drains the log and then hands over to
    // the handler installed before (or aborts). At exit the log shuts down as
    // willTerminate() does.
    static TLLog &sharedController();
    TLLog(const TLLog &) = delete;
    TLLog &operator=(const TLLog &) = delete;

    // Rotates the generations and starts a fresh current log with its header.
    // `name` is used only when no name can be derived from the executable;
    // "Unknown" when there is neither. Does nothing once logging is disabled;
    // disables it (printing "Logging is disabled") when "disable-logging" in
    // prefsDirectory(true) + "/com.quillmoor.global.plist" is the string "1"
    // or a number or boolean equal to true. A missing or damaged switch file
    // leaves logging on. `noPrinting` silences the log's own messages.
    static void createNewLog(const std::optional<std::string> &name = std::nullopt,
                             bool noPrinting = false);
    // createNewLog for a program of which several may run at once (the
    // command line): the header goes at the end of the current file, which
    // is created when missing and rotated first only once it has reached
    // 5,000,000 bytes, so that one run never pushes another's lines out.
    static void continueLog(const std::optional<std::string> &name = std::nullopt,
                            bool noPrinting = false);

    // Formats one line and queues it. A background caller with a short
    // message (1 to 99 characters, with at most 99 characters queued) waits
    // until the queue has drained, so that its line lands before the work
    // that follows it.
    template <typename... Values>
    static void appendLog(std::string_view format, Values &&...values)
    {
        const TLFormatArgument arguments[] = {TLFormatArgument(std::forward<Values>(values))..., {}};
        appendLogWithArguments(format, {arguments, sizeof...(Values)});
    }

    // Like appendLog, but never waits.
    template <typename... Values>
    static void fastAppendLog(std::string_view format, Values &&...values)
    {
        const TLFormatArgument arguments[] = {TLFormatArgument(std::forward<Values>(values))..., {}};
        fastAppendLogWithArguments(format, {arguments, sizeof...(Values)});
    }

    // Logs the trimmed line (formatted a second time, as a format without
    // values) and prints a console copy of it on standard output: "%@"
    // removed, every "%" doubled, NUL characters removed.
    template <typename... Values>
    static void appendLogAndPrint(std::string_view format, Values &&...values)
    {
        const TLFormatArgument arguments[] = {TLFormatArgument(std::forward<Values>(values))..., {}};
        appendLogAndPrintWithArguments(format, {arguments, sizeof...(Values)}, true);
    }

    // appendLogAndPrint without the console copy.
    template <typename... Values>
    static void appendLogAndDebugPrint(std::string_view format, Values &&...values)
    {
        const TLFormatArgument arguments[] = {TLFormatArgument(std::forward<Values>(values))..., {}};
        appendLogAndPrintWithArguments(format, {arguments, sizeof...(Values)}, false);
    }

    // Kept for callers of the debug build's tracing; does nothing.
    static void debugPrint(std::string_view) {}

    static void appendLogWithArguments(std::string_view format,
                                       std::span<const TLFormatArgument> values);
    static void fastAppendLogWithArguments(std::string_view format,
                                           std::span<const TLFormatArgument> values);
    static void appendLogAndPrintWithArguments(std::string_view format,
                                               std::span<const TLFormatArgument> values,
                                               bool print);

    // Blocks until every queued line has been written (resuming a suspended
    // queue first). Concurrent callers wait one after the other. Returns at
    // once on the writer thread itself, which cannot wait for its own queue.
    static void finishWriting();

    // Paths of the generations 1 to 5 that exist, oldest last, then those of
    // the command line's log (commandLineLogName); empty when the log folder
    // is unknown.
    static std::vector<std::string> availableLogs();
    // The name the command line's log goes by beside the log `name` of the
    // desktop program: "<name> CLI" ("Corvale CLI.1.log"), so that the
    // support tools, which look for the program's name, find it too.
    static std::string commandLineLogName(std::string_view name);

    // The text made safe to use as a format: "% ", "%.", "%!", "%,", "%-",
    // "%;", "%:" and "%+" get their percent sign doubled, then "%%%" becomes
    // "%%" again (a sign that was already escaped stays single). Other
    // directives ("%@", "%li", "%s") stay live. Text without "%" is returned
    // unchanged.
    static std::string escapeTextForLogging(std::string_view text);

    // Shutdown: with at most ten lines queued (the one being written
    // included) waits for them; with eleven or more drops the pending ones.
    // Then stops the writer, forgets the stored name and closes the file.
    // Lines appended later start a new writer.
    static void willTerminate();

    // Makes the calling thread the main thread (see the class comment).
    static void registerMainThread();
    // Holds queued lines back while set (they stay queued and count for
    // willTerminate); finishWriting and willTerminate resume the queue.
    static void setWritingSuspended(bool suspended);

    // The folder of the generations: userLogFolder(), but as root (uid 0)
    // machineWideLogFolder(); nullopt when the Library is unknown. Created
    // (with the folders above it) by createNewLog and continueLog; the
    // machine-wide one with mode 0755 whatever the umask.
    static std::optional<std::string> logFolder();
    // libraryDirectory(true) + "/Logs/Quillmoor"; nullopt when the Library is
    // unknown.
    static std::optional<std::string> userLogFolder();
    // "/var/log/quillmoor", under $CORVALE_LOCAL_ROOT when that is set.
    static std::string machineWideLogFolder();
    // The current log: logFolder() + "/<appName>.1.log".
    static std::optional<std::string> currentLogPath();

    // Queues one line: trimmed of white space and newlines at both ends
    // (nothing is queued for an empty result), its length in UTF-16 units
    // added to bytesInQueue.
    void appendTextToLog(std::string_view text);
    // Writes one stamped line to the current file (opening it when needed)
    // and rotates the log once the file has reached 5,000,000 bytes: the new
    // file starts with the header and "Log truncated at 500KB", ahead of the
    // lines still queued. When another process sharing the file has rotated
    // it meanwhile, the log goes on in that process's new file instead. Runs
    // on the writer thread; a failure prints a message and loses the line.
    void appendLogOnThread(const std::string &text);

    // The stored name, else the executable's file name without extension;
    // "" when neither is known.
    std::string appName() const;
    void setAppName(const std::optional<std::string> &name);
    // The executable the name and the "Path:" header line come from:
    // /proc/self/exe unless overridden (nullopt restores it; "" means none).
    std::optional<std::string> executablePath() const;
    void overrideExecutablePath(const std::optional<std::string> &path);

    std::uint64_t bytesWritten() const { return m_bytesWritten; }
    void setBytesWritten(std::uint64_t count) { m_bytesWritten = count; }
    std::uint64_t bytesInQueue() const { return m_bytesInQueue; }
    void setBytesInQueue(std::uint64_t count) { m_bytesInQueue = count; }
    bool loggingDisabled() const { return m_loggingDisabled; }
    void setLoggingDisabled(bool disabled) { m_loggingDisabled = disabled; }
    bool noPrinting() const { return m_noPrinting; }
    void setNoPrinting(bool noPrinting) { m_noPrinting = noPrinting; }
    // Whether the current file is open; closeFileHandle closes it, so that
    // the next line opens the current path again.
    bool hasFileHandle() const;
    void closeFileHandle();
    // Lines queued and not yet written, the one being written included.
    std::size_t operationCount() const;

private:
    TLLog();
    ~TLLog() = default;

    bool isMainThread() const;
    bool isWriterThread() const;
    void report(const std::string &message) const;
    void enqueue(std::string text);
    void startWriterLocked();
    void runWriter();
    void waitUntilWritten();
    void shutDown();
    // How a file is begun: a fresh one; the current one continued while it
    // is below the size limit; a fresh one after the current one filled up.
    enum class Start { fresh, continued, afterTruncation };
    // Device and inode: which file a handle or a path stands for.
    using FileIdentity = std::pair<dev_t, ino_t>;

    void writeLine(const std::string &text);
    bool writeStampedLocked(const std::string &text);
    void startLog(const std::optional<std::string> &name, bool noPrinting, Start how);
    bool openLog(Start how, const std::optional<FileIdentity> &filled);
    bool installFile(const std::string &path, const std::vector<std::string> &header);
    bool rotateGenerations(const std::string &folder);
    std::vector<std::string> headerLines() const;

    mutable std::mutex m_stateMutex; // guards m_appName and m_executablePath
    std::optional<std::string> m_appName;
    std::optional<std::string> m_executablePath;

    mutable std::mutex m_fileMutex; // guards m_fileHandle
    int m_fileHandle = -1;

    std::atomic<std::uint64_t> m_bytesWritten{0};
    std::atomic<std::uint64_t> m_bytesInQueue{0};
    std::atomic<bool> m_loggingDisabled{false};
    std::atomic<bool> m_noPrinting{false};

    mutable std::mutex m_queueMutex; // guards the queue below
    std::condition_variable m_queueChanged;
    std::deque<std::string> m_pending;
    bool m_executing = false;
    bool m_suspended = false;
    bool m_stopping = false;
    std::thread m_writer;
    std::atomic<std::thread::id> m_writerId;
    std::atomic<std::thread::id> m_mainThread;
};
