// The fatal-signal handler that writes the program's crash report.
#include "TLFatalSignals.h"

#include "TLCrashwick.h"
#include "TLLog.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

struct FatalSignal {
    int number;
    const char *name;
    const char *description;
};

// strsignal() may allocate, so the handler reads its texts from here.
constexpr FatalSignal fatalSignals[] = {
    {SIGSEGV, "SIGSEGV", "Segmentation fault"},
    {SIGABRT, "SIGABRT", "Abort"},
    {SIGBUS, "SIGBUS", "Bus error"},
    {SIGFPE, "SIGFPE", "Floating-point exception"},
    {SIGILL, "SIGILL", "Illegal instruction"},
};

constexpr int maximumFrames = 128;
constexpr std::size_t alternateStackSize = 1 << 16;

// Text built without allocating, for use inside the handler. What does not
// fit is cut off rather than overflow.
template <std::size_t Capacity>
class FixedText
{
public:
    void append(std::string_view text)
    {
        for (const char character : text) {
            if (m_length + 1 >= Capacity)
                return;
            m_text[m_length++] = character;
        }
        m_text[m_length] = '\0';
    }

    void appendNumber(std::uint64_t number, int width = 1)
    {
        char digits[24];
        int count = 0;
        do {
            digits[count++] = static_cast<char>('0' + number % 10);
            number /= 10;
        } while (number != 0 || count < width);
        while (count > 0)
            append(std::string_view(&digits[--count], 1));
    }

    void appendHex(std::uintptr_t number)
    {
        append("0x");
        for (int shift = static_cast<int>(sizeof number * 8) - 4; shift >= 0; shift -= 4)
            append(std::string_view(&"0123456789abcdef"[(number >> shift) & 0xF], 1));
    }

    bool fits(std::string_view text) const { return m_length + text.size() + 1 < Capacity; }
    void clear() { m_length = 0; m_text[0] = '\0'; }
    const char *text() const { return m_text; }
    std::size_t length() const { return m_length; }

private:
    char m_text[Capacity] = {};
    std::size_t m_length = 0;
};

// Prepared at installation; the handler only reads it.
FixedText<4096> reportPathPrefix;  // "<folder>/<appName>_"
FixedText<512> reportPathSuffix;   // "_<host>.crash"
FixedText<8192> reportHeader;      // the lines that do not change
std::atomic_flag reportWritten = ATOMIC_FLAG_INIT;
alignas(16) char alternateStack[alternateStackSize];

struct CivilTime {
    std::uint64_t year, month, day, hour, minute, second;
};

// UTC from seconds since 1970 by arithmetic alone, as gmtime() is not safe
// in a signal handler (days to civil date after Howard Hinnant).
CivilTime civilTime(std::int64_t seconds)
{
    const std::int64_t days = seconds / 86400;
    const std::int64_t ofDay = seconds % 86400;
    const std::int64_t shifted = days + 719468;
    const std::int64_t era = shifted / 146097;
    const std::int64_t ofEra = shifted - era * 146097;
    const std::int64_t yearOfEra = (ofEra - ofEra / 1460 + ofEra / 36524 - ofEra / 146096) / 365;
    const std::int64_t dayOfYear = ofEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t monthIndex = (5 * dayOfYear + 2) / 153;
    const std::int64_t month = monthIndex < 10 ? monthIndex + 3 : monthIndex - 9;
    const std::int64_t year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
    const std::int64_t day = dayOfYear - (153 * monthIndex + 2) / 5 + 1;
    return {static_cast<std::uint64_t>(year), static_cast<std::uint64_t>(month),
            static_cast<std::uint64_t>(day), static_cast<std::uint64_t>(ofDay / 3600),
            static_cast<std::uint64_t>(ofDay % 3600 / 60), static_cast<std::uint64_t>(ofDay % 60)};
}

template <std::size_t Capacity>
void appendDate(FixedText<Capacity> &text, const CivilTime &time, std::string_view dateTimeGap,
                std::string_view timeSeparator)
{
    text.appendNumber(time.year, 4);
    text.append("-");
    text.appendNumber(time.month, 2);
    text.append("-");
    text.appendNumber(time.day, 2);
    text.append(dateTimeGap);
    text.appendNumber(time.hour, 2);
    text.append(timeSeparator);
    text.appendNumber(time.minute, 2);
    text.append(timeSeparator);
    text.appendNumber(time.second, 2);
}

void writeAll(int descriptor, const char *text, std::size_t length)
{
    while (length > 0) {
        const ssize_t written = ::write(descriptor, text, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        text += written;
        length -= static_cast<std::size_t>(written);
    }
}

const FatalSignal *fatalSignal(int number)
{
    for (const FatalSignal &candidate : fatalSignals) {
        if (candidate.number == number)
            return &candidate;
    }
    return nullptr;
}

void writeReport(int number, const siginfo_t *info)
{
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const CivilTime time = civilTime(now.tv_sec);
    const auto pid = static_cast<std::uint64_t>(::getpid());

    FixedText<4096 + 512 + 64> path;
    path.append(reportPathPrefix.text());
    appendDate(path, time, "-", "");
    path.append("-");
    path.appendNumber(pid);
    path.append(reportPathSuffix.text());
    // A name that already exists is never written through: it could be a
    // link planted by someone else.
    const int descriptor =
        ::open(path.text(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0)
        return;

    FixedText<1024> lines;
    lines.append("Process ID:  ");
    lines.appendNumber(pid);
    lines.append("\nThread ID:   ");
    lines.appendNumber(static_cast<std::uint64_t>(::syscall(SYS_gettid)));
    lines.append("\nDate/Time:   ");
    appendDate(lines, time, " ", ":");
    lines.append(" +0000\nSignal:      ");
    const FatalSignal *signal = fatalSignal(number);
    lines.append(signal ? signal->name : "unknown");
    lines.append(" (");
    lines.append(signal ? signal->description : "unknown");
    lines.append(")\n");
    if (info && number != SIGABRT) {
        lines.append("Address:     ");
        lines.appendHex(reinterpret_cast<std::uintptr_t>(info->si_addr));
        lines.append("\n");
    }
    lines.append("\nBacktrace:\n");
    writeAll(descriptor, reportHeader.text(), reportHeader.length());
    writeAll(descriptor, lines.text(), lines.length());
    void *frames[maximumFrames];
    const int count = ::backtrace(frames, maximumFrames);
    ::backtrace_symbols_fd(frames, count, descriptor);
    ::close(descriptor);
}

void handleFatalSignal(int number, siginfo_t *info, void *)
{
    // A second fault (in another thread, or in the writing itself) must not
    // write again or wait for the first: it only ends the process.
    if (!reportWritten.test_and_set())
        writeReport(number, info);
    struct sigaction defaultAction{};
    defaultAction.sa_handler = SIG_DFL;
    ::sigemptyset(&defaultAction.sa_mask);
    ::sigaction(number, &defaultAction, nullptr);
    // Delivered with the default action once the handler returns (the
    // signal is blocked while it runs); a fault re-raises itself anyway.
    ::raise(number);
}

// Host names may hold characters a file name should not.
std::string hostNameForFileName()
{
    char host[256] = {};
    if (::gethostname(host, sizeof host - 1) != 0 || host[0] == '\0')
        return "localhost";
    std::string name(host);
    for (char &character : name) {
        const bool plain = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z')
            || (character >= '0' && character <= '9') || character == '.' || character == '-';
        if (!plain)
            character = '-';
    }
    return name;
}

std::string executablePath()
{
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    return error ? std::string("unknown") : program.string();
}

std::string operatingSystem()
{
    utsname system{};
    if (::uname(&system) != 0)
        return "unknown";
    return std::string(system.sysname) + " " + system.release + " (" + system.machine + ")";
}

bool prepareReport(const std::string &folder, const std::string &appName, const std::string &version)
{
    const std::string prefix = folder + "/" + appName + "_";
    const std::string suffix = "_" + hostNameForFileName() + TLFatalSignals::reportExtension;
    const std::string header = "Process:     " + appName + "\nPath:        " + executablePath()
        + "\nVersion:     " + version + "\nOS Version:  " + operatingSystem() + "\n";
    if (!reportPathPrefix.fits(prefix) || !reportPathSuffix.fits(suffix) || !reportHeader.fits(header))
        return false;
    reportPathPrefix.clear();
    reportPathPrefix.append(prefix);
    reportPathSuffix.clear();
    reportPathSuffix.append(suffix);
    reportHeader.clear();
    reportHeader.append(header);
    return true;
}

void installHandlers()
{
    // A stack overflow leaves no stack to run the handler on, hence a
    // stack of its own (for the installing thread, the main one).
    static const bool stackInstalled = [] {
        stack_t stack{};
        stack.ss_sp = alternateStack;
        stack.ss_size = sizeof alternateStack;
        return ::sigaltstack(&stack, nullptr) == 0;
    }();
    (void)stackInstalled;
    // The first backtrace() loads the unwinder, which may allocate: done
    // here so that the handler's call does not.
    void *frames[1];
    (void)::backtrace(frames, 1);
    struct sigaction action{};
    action.sa_sigaction = handleFatalSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    ::sigemptyset(&action.sa_mask);
    for (const FatalSignal &signal : fatalSignals)
        ::sigaction(signal.number, &action, nullptr);
}

} // namespace

bool TLFatalSignals::install()
{
    const std::vector<std::string> folders = TLCrashwick::crashReportFolders();
    if (folders.empty()) {
        TLLog::appendLog("Unable to install the crash report writer: no crash report folder");
        return false;
    }
    return install(folders.front(), TLCrashwick::defaultApplicationName(), CORVALE_VERSION);
}

bool TLFatalSignals::install(const std::string &folder, const std::string &appName,
                             const std::string &version)
{
    std::error_code error;
    if (folder.empty() || folder.front() != '/') {
        TLLog::appendLog("Unable to install the crash report writer: %@ is not absolute", folder);
        return false;
    }
    fs::create_directories(folder, error);
    if (error) {
        TLLog::appendLog("Unable to install the crash report writer: %@: %@", folder, error.message());
        return false;
    }
    if (!prepareReport(folder, appName, version)) {
        TLLog::appendLog("Unable to install the crash report writer: %@ is too long", folder);
        return false;
    }
    installHandlers();
    return true;
}
