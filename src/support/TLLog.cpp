// The application log: escaping, the serial writer thread, rotation and the header.
#include "TLLog.h"

#include "TLAtomicFile.h"
#include "TLLocalPaths.h"
#include "TLPropertyList.h"
#include "TLTextCoding.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

// The size at which the current file is rotated. The message written after
// the rotation says 500KB; both numbers are what users and support know.
constexpr std::uint64_t rotationSize = 5000000;
constexpr std::size_t shortMessageLimit = 99;
constexpr std::size_t shutdownWaitLimit = 10;

// finishWriting holds this while it waits, so concurrent waiters queue up.
std::mutex finishWritingLock;
std::terminate_handler previousTerminateHandler = nullptr;

// Stamps change once a second while a busy writer stamps thousands of lines
// a second; the conversion to local time is kept per thread and second.
std::string dateDescription()
{
    thread_local std::time_t cachedSecond = -1;
    thread_local std::string cachedText;
    const std::time_t now = std::time(nullptr);
    if (now == cachedSecond)
        return cachedText;
    std::tm local{};
    localtime_r(&now, &local);
    char text[64];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &local);
    cachedSecond = now;
    cachedText.assign(text, length);
    return cachedText;
}

bool isContinuationByte(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// Trimming decodes leniently, by the bits of whatever sequence stands at an
// end, rather than with TLTextCoding's strict decoder: damaged text keeps
// being trimmed the way it always was.
char32_t decodeAt(std::string_view text, std::size_t start, std::size_t end)
{
    const auto lead = static_cast<unsigned char>(text[start]);
    if (lead < 0x80 || end - start < 2)
        return lead;
    char32_t value = lead & (lead >= 0xF0 ? 0x07 : lead >= 0xE0 ? 0x0F : 0x1F);
    for (std::size_t index = start + 1; index < end; ++index)
        value = (value << 6) | (static_cast<unsigned char>(text[index]) & 0x3F);
    return value;
}

bool isWhitespaceOrNewline(char32_t c)
{
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680
        || (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F
        || c == 0x205F || c == 0x3000;
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty()) {
        std::size_t end = 1;
        while (end < text.size() && isContinuationByte(text[end]))
            ++end;
        if (!isWhitespaceOrNewline(decodeAt(text, 0, end)))
            break;
        text.remove_prefix(end);
    }
    while (!text.empty()) {
        std::size_t start = text.size() - 1;
        while (start > 0 && isContinuationByte(text[start]))
            --start;
        if (!isWhitespaceOrNewline(decodeAt(text, start, text.size())))
            break;
        text.remove_suffix(text.size() - start);
    }
    return text;
}

// Non-overlapping, left to right, never rescanning replaced text.
void replaceAll(std::string &text, std::string_view from, std::string_view to)
{
    std::string result;
    std::size_t position = 0;
    for (std::size_t found; (found = text.find(from, position)) != std::string::npos; position = found + from.size())
        result.append(text, position, found - position).append(to);
    result.append(text, position);
    text = std::move(result);
}

// The switch shared by all of the maker's applications. Only the string "1"
// and values equal to true turn the log off; "0", "yes" and anything else
// leave it on, as does a missing or unreadable file.
bool isLoggingSwitchedOff()
{
    const auto preferences = TLLocalPaths::prefsDirectory(true);
    if (!preferences)
        return false;
    const auto list = TLPropertyList::fromFile(*preferences + "/com.quillmoor.global.plist");
    const plist_t value = list.itemForKey("disable-logging");
    switch (value ? plist_get_node_type(value) : PLIST_NONE) {
    case PLIST_STRING: return TLPropertyList::stringValue(value) == "1";
    case PLIST_BOOLEAN: return TLPropertyList::boolValue(value) == true;
    case PLIST_UINT: return TLPropertyList::integerValue(value) == 1;
    case PLIST_REAL: {
        double number = 0;
        plist_get_real_val(value, &number);
        return number == 1.0;
    }
    default: return false;
    }
}

// PRETTY_NAME of os-release, unquoted; nullopt when there is none.
std::optional<std::string> prettySystemName()
{
    for (const char *path : {"/etc/os-release", "/usr/lib/os-release"}) {
        std::ifstream file(path);
        std::string line;
        for (int count = 0; count < 200 && std::getline(file, line); ++count) {
            if (!line.starts_with("PRETTY_NAME="))
                continue;
            std::string value = line.substr(12, 200);
            if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front())
                value = value.substr(1, value.size() - 2);
            replaceAll(value, "\\", "");
            if (!value.empty())
                return value;
        }
    }
    return std::nullopt;
}

std::string systemDescription()
{
    utsname names{};
    const bool known = uname(&names) == 0;
    const std::string kernel = known ? std::string(names.sysname) + " " + names.release : "Linux";
    const auto pretty = prettySystemName();
    return pretty ? *pretty + " (" + kernel + ")" : kernel;
}

double physicalMemoryInGigabytes()
{
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGE_SIZE);
    if (pages <= 0 || pageSize <= 0)
        return 0;
    return double(pages) * double(pageSize) / 1024 / 1024 / 1024;
}

std::string executableName(const std::string &path)
{
    std::string name = std::filesystem::path(path).filename().string();
    // /proc/self/exe names a replaced binary "... (deleted)".
    if (name.ends_with(" (deleted)"))
        name.resize(name.size() - 10);
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

// Every missing folder on the way is made 0755 whatever the umask: the
// machine-wide log is read by administrators and support tools that do not
// run as root.
bool createReadableFolders(const std::filesystem::path &folder)
{
    std::filesystem::path partial;
    for (const auto &component : folder) {
        partial /= component;
        if (::mkdir(partial.c_str(), 0755) == 0)
            ::chmod(partial.c_str(), 0755);
        else if (errno != EEXIST)
            return false;
    }
    std::error_code error;
    return std::filesystem::is_directory(folder, error);
}

bool createLogFolder(const std::string &folder, bool machineWide)
{
    std::error_code error;
    if (std::filesystem::is_directory(folder, error))
        return true;
    if (machineWide)
        return createReadableFolders(folder);
    std::filesystem::create_directories(folder, error);
    return !error && std::filesystem::is_directory(folder, error);
}

// Several processes share one log (the command line may run many times at
// once): rotating and starting a file happen under an exclusive lock on the
// log folder, so that no process replaces a file another has just begun.
class FolderLock
{
public:
    explicit FolderLock(const std::string &folder)
        : m_descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        if (m_descriptor < 0)
            return;
        while (::flock(m_descriptor, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    ~FolderLock()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

private:
    int m_descriptor;
};

std::optional<struct stat> statusOf(const std::string &path)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return status;
}

[[noreturn]] void logUncaughtException()
{
    if (const auto exception = std::current_exception()) {
        std::string reason;
        try {
            std::rethrow_exception(exception);
        } catch (const std::exception &error) {
            reason = error.what();
        } catch (...) {
            reason = "unknown exception";
        }
        TLLog::appendLogAndPrint("%@", reason);
        TLLog::finishWriting();
    }
    if (previousTerminateHandler)
        previousTerminateHandler();
    std::abort();
}

} // namespace

TLLog::TLLog()
{
    m_mainThread = std::this_thread::get_id();
    previousTerminateHandler = std::set_terminate(logUncaughtException);
    if (previousTerminateHandler == logUncaughtException)
        previousTerminateHandler = nullptr;
}

TLLog &TLLog::sharedController()
{
    // Never destroyed: lines logged by other objects' destructors at exit
    // must still find the log. The exit hook drains it instead.
    static TLLog *const log = [] {
        auto *instance = new TLLog;
        std::atexit([] { TLLog::willTerminate(); });
        return instance;
    }();
    return *log;
}

void TLLog::registerMainThread()
{
    sharedController().m_mainThread = std::this_thread::get_id();
}

bool TLLog::isMainThread() const
{
    return m_mainThread.load() == std::this_thread::get_id();
}

bool TLLog::isWriterThread() const
{
    return m_writerId.load() == std::this_thread::get_id();
}

void TLLog::report(const std::string &message) const
{
    if (m_noPrinting)
        return;
    std::fwrite(message.data(), 1, message.size(), stdout);
    std::fflush(stdout);
}

// ---- Names and paths

std::string TLLog::appName() const
{
    std::lock_guard lock(m_stateMutex);
    if (m_appName)
        return *m_appName;
    if (m_executablePath)
        return executableName(*m_executablePath);
    std::error_code error;
    const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : executableName(path.string());
}

void TLLog::setAppName(const std::optional<std::string> &name)
{
    std::lock_guard lock(m_stateMutex);
    m_appName = name;
}

std::optional<std::string> TLLog::executablePath() const
{
    {
        std::lock_guard lock(m_stateMutex);
        if (m_executablePath)
            return m_executablePath->empty() ? std::nullopt : m_executablePath;
    }
    std::error_code error;
    const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        return std::nullopt;
    return path.string();
}

void TLLog::overrideExecutablePath(const std::optional<std::string> &path)
{
    std::lock_guard lock(m_stateMutex);
    m_executablePath = path;
}

std::optional<std::string> TLLog::userLogFolder()
{
    const auto library = TLLocalPaths::libraryDirectory(true);
    if (!library)
        return std::nullopt;
    return *library + "/Logs/Quillmoor";
}

std::string TLLog::machineWideLogFolder()
{
    return TLLocalPaths::machineWideLogDirectory();
}

std::optional<std::string> TLLog::logFolder()
{
    if (TLLocalPaths::userId() == 0)
        return machineWideLogFolder();
    return userLogFolder();
}

std::optional<std::string> TLLog::currentLogPath()
{
    const auto folder = logFolder();
    if (!folder)
        return std::nullopt;
    return TLFormat::stringWithFormat("%@/%@.1.log", *folder, sharedController().appName());
}

std::string TLLog::commandLineLogName(std::string_view name)
{
    return std::string(name) + " CLI";
}

std::vector<std::string> TLLog::availableLogs()
{
    const auto folder = logFolder();
    if (!folder)
        return {};
    const std::string name = sharedController().appName();
    std::vector<std::string> logs;
    std::error_code error;
    for (const std::string &stem : {name, commandLineLogName(name)}) {
        for (long generation = 1; generation <= 5; ++generation) {
            auto path = *folder + TLFormat::stringWithFormat("/%@.%li.log", stem, generation);
            if (std::filesystem::exists(path, error))
                logs.push_back(std::move(path));
        }
    }
    return logs;
}

// ---- File handle

bool TLLog::hasFileHandle() const
{
    std::lock_guard lock(m_fileMutex);
    return m_fileHandle >= 0;
}

void TLLog::closeFileHandle()
{
    std::lock_guard lock(m_fileMutex);
    if (m_fileHandle >= 0)
        ::close(m_fileHandle);
    m_fileHandle = -1;
}

// ---- Creating a new log

void TLLog::createNewLog(const std::optional<std::string> &name, bool noPrinting)
{
    sharedController().startLog(name, noPrinting, Start::fresh);
}

void TLLog::continueLog(const std::optional<std::string> &name, bool noPrinting)
{
    sharedController().startLog(name, noPrinting, Start::continued);
}

void TLLog::startLog(const std::optional<std::string> &name, bool noPrinting, Start how)
{
    m_noPrinting = noPrinting;
    if (m_loggingDisabled)
        return;
    closeFileHandle();
    if (isLoggingSwitchedOff()) {
        report("Logging is disabled\n");
        m_loggingDisabled = true;
        return;
    }
    // A derived name always wins: the file is named after the executable.
    if (name && appName().empty())
        setAppName(name);
    m_bytesWritten = 0;
    if (appName().empty())
        setAppName("Unknown");
    (void)openLog(how, std::nullopt);
}

bool TLLog::openLog(Start how, const std::optional<FileIdentity> &filled)
{
    const auto folder = logFolder();
    if (!folder || !createLogFolder(*folder, TLLocalPaths::userId() == 0)) {
        report(TLFormat::stringWithFormat("Unable to create folder %s.\n", folder));
        return false;
    }
    const std::string current = *currentLogPath();
    const FolderLock lock(*folder);
    const auto existing = statusOf(current);
    if (existing && how == Start::continued && std::uint64_t(existing->st_size) < rotationSize)
        return installFile(current, headerLines());
    // Another process filled the same file and has rotated it already.
    if (existing && how == Start::afterTruncation && filled
        && *filled != FileIdentity{existing->st_dev, existing->st_ino})
        return installFile(current, {});
    if (existing && !rotateGenerations(*folder))
        return false;
    if (const auto failure = TLAtomicFile::writeContents(current, ""); !failure.empty()) {
        report(TLFormat::stringWithFormat("Unable to create log file %s - %s\n", current, failure));
        return false;
    }
    auto header = headerLines();
    if (how == Start::afterTruncation)
        header.push_back("Log truncated at 500KB");
    return installFile(current, header);
}

bool TLLog::installFile(const std::string &path, const std::vector<std::string> &header)
{
    const int handle = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (handle < 0)
        return false;
    struct stat status {};
    ::fstat(handle, &status);
    // The header is written here, under the file's lock, rather than queued:
    // lines already waiting in the queue must land after it, not before.
    std::lock_guard lock(m_fileMutex);
    if (m_fileHandle >= 0)
        ::close(m_fileHandle);
    m_fileHandle = handle;
    m_bytesWritten = std::uint64_t(status.st_size);
    for (const std::string &line : header) {
        if (!writeStampedLocked(line))
            break;
    }
    return true;
}

bool TLLog::rotateGenerations(const std::string &folder)
{
    const std::string name = appName();
    const auto generation = [&](long number) {
        return folder + TLFormat::stringWithFormat("/%@.%li.log", name, number);
    };
    std::error_code ignored;
    std::filesystem::remove(generation(5), ignored);
    for (long number = 4; number >= 1; --number) {
        const std::string from = generation(number);
        if (!std::filesystem::exists(from, ignored))
            continue;
        const std::string to = generation(number + 1);
        if (::rename(from.c_str(), to.c_str()) != 0) {
            // Stop here: the younger generations stay where they are.
            report(TLFormat::stringWithFormat("Unable to move file %s to %s.\n", from, to));
            return false;
        }
    }
    return true;
}

std::vector<std::string> TLLog::headerLines() const
{
    std::vector<std::string> lines{TLFormat::stringWithFormat("Log started: %@", dateDescription())};
#ifdef CORVALE_VERSION
    lines.push_back(TLFormat::stringWithFormat("Version: %@", CORVALE_VERSION));
#endif
    if (const auto path = executablePath())
        lines.push_back(std::string(trimmed(TLFormat::stringWithFormat("Path: %@", *path))));
    lines.push_back(TLFormat::stringWithFormat("System: %@, %li CPU(s), %0.2f GB RAM", systemDescription(),
                                               sysconf(_SC_NPROCESSORS_CONF), physicalMemoryInGigabytes()));
    lines.push_back("Running in 64-bit mode");
    return lines;
}

// ---- Appending

std::string TLLog::escapeTextForLogging(std::string_view text)
{
    std::string escaped(text);
    if (escaped.find('%') == std::string::npos)
        return escaped;
    for (const char *sequence : {"% ", "%.", "%!", "%,", "%-", "%;", "%:", "%+"})
        replaceAll(escaped, sequence, std::string("%") + sequence);
    // Undoes the doubling where the sign was escaped already ("%% " -> "%%% ").
    replaceAll(escaped, "%%%", "%%");
    return escaped;
}

void TLLog::appendLogWithArguments(std::string_view format, std::span<const TLFormatArgument> values)
{
    TLLog &log = sharedController();
    if (!format.data() || log.m_loggingDisabled)
        return;
    const std::string text = TLFormat::stringWithFormat(escapeTextForLogging(format), values);
    log.appendTextToLog(text);
    // A short line from a background thread is written before the caller
    // goes on, so that it lands in order with the work that follows it.
    // Lengths are counted in UTF-16 units, as the thresholds were set.
    const std::size_t length = TLTextCoding::utf16Length(text);
    if (!log.isMainThread() && length >= 1 && length <= shortMessageLimit
        && log.m_bytesInQueue <= shortMessageLimit)
        finishWriting();
}

void TLLog::fastAppendLogWithArguments(std::string_view format, std::span<const TLFormatArgument> values)
{
    TLLog &log = sharedController();
    if (!format.data() || log.m_loggingDisabled)
        return;
    log.appendTextToLog(TLFormat::stringWithFormat(escapeTextForLogging(format), values));
}

void TLLog::appendLogAndPrintWithArguments(std::string_view format, std::span<const TLFormatArgument> values,
                                           bool print)
{
    TLLog &log = sharedController();
    if (!format.data() || log.m_loggingDisabled)
        return;
    const std::string formatted = TLFormat::stringWithFormat(escapeTextForLogging(format), values);
    const std::string text(trimmed(formatted));
    // The text is the format of the logged line: escaped and formatted again.
    appendLogWithArguments(text, {});
    if (!print)
        return;
    std::string console = text;
    replaceAll(console, "%@", "");
    replaceAll(console, "%", "%%");
    replaceAll(console, std::string_view("\0", 1), "");
    log.report(console + "\n");
}

void TLLog::appendTextToLog(std::string_view text)
{
    if (m_loggingDisabled)
        return;
    const std::string_view line = trimmed(text);
    if (line.empty())
        return;
    m_bytesInQueue += TLTextCoding::utf16Length(line);
    enqueue(std::string(line));
}

// ---- The write queue

void TLLog::enqueue(std::string text)
{
    std::lock_guard lock(m_queueMutex);
    // The writer only sleeps on an empty queue, so only the first line of a
    // burst needs to wake it; sparing the others keeps logging threads from
    // handing the lock back and forth with the writer on every line.
    const bool writerMayBeWaiting = m_pending.empty();
    m_pending.push_back(std::move(text));
    startWriterLocked();
    if (writerMayBeWaiting)
        m_queueChanged.notify_all();
}

void TLLog::startWriterLocked()
{
    if (m_writer.joinable() || m_stopping || m_pending.empty())
        return;
    m_writer = std::thread([this] { runWriter(); });
}

void TLLog::runWriter()
{
    m_writerId = std::this_thread::get_id();
    std::unique_lock lock(m_queueMutex);
    for (;;) {
        m_queueChanged.wait(lock, [this] { return m_stopping || (!m_suspended && !m_pending.empty()); });
        if (m_stopping)
            return;
        const std::string text = std::move(m_pending.front());
        m_pending.pop_front();
        m_executing = true;
        lock.unlock();
        appendLogOnThread(text);
        lock.lock();
        m_executing = false;
        // Only those waiting for the queue to drain need to know.
        if (m_pending.empty())
            m_queueChanged.notify_all();
    }
}

std::size_t TLLog::operationCount() const
{
    std::lock_guard lock(m_queueMutex);
    return m_pending.size() + (m_executing ? 1 : 0);
}

void TLLog::setWritingSuspended(bool suspended)
{
    TLLog &log = sharedController();
    std::lock_guard lock(log.m_queueMutex);
    log.m_suspended = suspended;
    log.m_queueChanged.notify_all();
}

void TLLog::finishWriting()
{
    sharedController().waitUntilWritten();
}

void TLLog::waitUntilWritten()
{
    if (isWriterThread())
        return;
    std::lock_guard waiters(finishWritingLock);
    std::unique_lock lock(m_queueMutex);
    m_suspended = false;
    m_queueChanged.notify_all();
    m_queueChanged.wait(lock, [this] { return (m_pending.empty() || !m_writer.joinable()) && !m_executing; });
}

void TLLog::willTerminate()
{
    sharedController().shutDown();
}

void TLLog::shutDown()
{
    {
        std::lock_guard lock(m_queueMutex);
        // Quitting must not wait for a long backlog: those lines are lost.
        if (m_pending.size() + (m_executing ? 1 : 0) > shutdownWaitLimit) {
            for (const auto &text : m_pending)
                m_bytesInQueue -= std::min<std::uint64_t>(m_bytesInQueue, TLTextCoding::utf16Length(text));
            m_pending.clear();
        }
    }
    waitUntilWritten();
    std::thread writer;
    {
        std::lock_guard lock(m_queueMutex);
        m_stopping = true;
        m_queueChanged.notify_all();
        writer = std::move(m_writer);
    }
    if (writer.joinable()) {
        if (writer.get_id() == std::this_thread::get_id())
            writer.detach();
        else
            writer.join();
    }
    m_writerId = std::thread::id();
    {
        // Lines queued while the writer stopped get a writer of their own.
        std::lock_guard lock(m_queueMutex);
        m_stopping = false;
        startWriterLocked();
    }
    setAppName(std::nullopt);
    closeFileHandle();
}

// ---- Writing one line (on the writer thread)

void TLLog::appendLogOnThread(const std::string &text)
{
    if (!m_loggingDisabled) {
        try {
            writeLine(text);
        } catch (const std::exception &error) {
            if (!m_loggingDisabled)
                report(TLFormat::stringWithFormat("Exception writing to log: %s\n", error.what()));
        } catch (...) {
            if (!m_loggingDisabled)
                report("Exception writing to log: unknown exception\n");
        }
    }
    // Also after a failure, so that a lost line does not make every later
    // short message skip its wait.
    const std::uint64_t length = TLTextCoding::utf16Length(text);
    std::uint64_t queued = m_bytesInQueue;
    while (!m_bytesInQueue.compare_exchange_weak(queued, queued - std::min(queued, length))) {
    }
}

void TLLog::writeLine(const std::string &text)
{
    FileIdentity filled;
    {
        std::lock_guard lock(m_fileMutex);
        if (m_fileHandle < 0) {
            if (const auto path = currentLogPath())
                m_fileHandle = ::open(path->c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        }
        if (m_fileHandle < 0) {
            if (!m_loggingDisabled) {
                report(TLFormat::stringWithFormat("Unable to log the following information: %s\n", text));
                report("Unable to open log for output\n");
            }
            return;
        }
        if (!writeStampedLocked(text)) {
            const int error = errno;
            // The next line opens the file again, in case it was replaced.
            ::close(m_fileHandle);
            m_fileHandle = -1;
            throw std::runtime_error(std::strerror(error));
        }
        if (m_bytesWritten < rotationSize)
            return;
        struct stat status {};
        ::fstat(m_fileHandle, &status);
        filled = {status.st_dev, status.st_ino};
    }
    (void)openLog(Start::afterTruncation, filled);
}

bool TLLog::writeStampedLocked(const std::string &text)
{
    // One write() per line on a file opened for appending: lines of other
    // processes sharing the file land between ours, never inside them.
    const std::string line = TLFormat::stringWithFormat("%@ - %@\n", dateDescription(), text);
    if (!TLAtomicFile::writeAll(m_fileHandle, line))
        return false;
    m_bytesWritten += line.size();
    return true;
}
