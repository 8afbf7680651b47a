// What every benchmark measures with: wall time, peak memory of this process
// or of a child, the page cache warmed, options naming a project file, and
// the met / NOT met verdict of a target.
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

inline constexpr double Mebibyte = 1024.0 * 1024.0;

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

inline double seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// The peak resident size of this process so far (ru_maxrss); 0 if unknown.
inline long ownPeakKilobytes()
{
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) != 0)
        return 0;
    return usage.ru_maxrss;
}

inline double ownPeakBytes()
{
    return static_cast<double>(ownPeakKilobytes()) * 1024.0;
}

inline const char *verdict(bool met)
{
    return met ? "met" : "NOT met";
}

// printf into a string, for the cells of the summary.
__attribute__((format(printf, 1, 2))) inline std::string format(const char *pattern, ...)
{
    char text[512];
    va_list values;
    va_start(values, pattern);
    std::vsnprintf(text, sizeof text, pattern, values);
    va_end(values);
    return text;
}

// One row of the table bench/run prints at the end of a run: appended,
// tab-separated, to the file named by CORVALE_BENCH_SUMMARY. Does nothing
// when the variable is unset (a benchmark run on its own).
struct SummaryRow
{
    std::string benchmark;
    std::string figure;
    std::string measured;
    std::string reference; // measured in the same run
    std::string target;
    std::string result;    // "met ...", "NOT met ..." or "-" (no target)
};

inline void addToSummary(const SummaryRow &row)
{
    const char *path = std::getenv("CORVALE_BENCH_SUMMARY");
    if (!path || !*path)
        return;
    std::ofstream summary(path, std::ios::app);
    summary << row.benchmark << '\t' << row.figure << '\t' << row.measured << '\t' << row.reference << '\t'
            << row.target << '\t' << row.result << '\n';
}

// Reads the file once without keeping it, so that no contender pays for the
// disk and all start from the page cache. False when it cannot be read.
inline bool warmPageCache(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<char> chunk(std::size_t{1} << 20);
    while (file.read(chunk.data(), static_cast<std::streamsize>(chunk.size())))
        ;
    return file.eof();
}

// "[--expect-clips N] project.xml", as the benchmarks on one project take it.
struct ProjectOptions
{
    std::string path;
    std::optional<long> expectedClips;
};

// False for anything else: a missing path, a second one, an unknown option,
// a count that is not a whole number at least 0.
inline bool parseProjectOptions(int argc, char **argv, ProjectOptions &options)
{
    for (int argument = 1; argument < argc; ++argument) {
        const std::string_view text = argv[argument];
        if (text == "--expect-clips" && argument + 1 < argc) {
            char *end = nullptr;
            options.expectedClips = std::strtol(argv[++argument], &end, 10);
            if (*end != '\0' || *options.expectedClips < 0)
                return false;
        } else if (options.path.empty() && !text.starts_with("--")) {
            options.path = text;
        } else {
            return false;
        }
    }
    return !options.path.empty();
}

// One program run as a child process, with its own figures from wait4.
struct ChildRun
{
    bool ran = false;       // started and waited for
    bool succeeded = false; // ran and exited with status 0
    int exitStatus = -1; // -1 when it did not exit normally (or never ran)
    double seconds = 0;
    double cpuSeconds = 0;
    long peakKilobytes = 0;
    std::string failure; // empty when it succeeded

    double peakBytes() const { return static_cast<double>(peakKilobytes) * 1024.0; }
};

// Runs the program (found on PATH) with its arguments, standard output to
// /dev/null, timing it around the child and collecting the child's own
// rusage. Start children while this process is still small: the child's
// peak would otherwise include what it inherits through fork.
inline ChildRun runChild(const std::vector<std::string> &arguments)
{
    ChildRun run;
    std::vector<char *> argv;
    for (const auto &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    const Clock::time_point started = Clock::now();
    const pid_t child = fork();
    if (child < 0) {
        run.failure = std::string("cannot start ") + arguments[0] + ": " + std::strerror(errno);
        return run;
    }
    if (child == 0) {
        if (std::freopen("/dev/null", "w", stdout) == nullptr)
            _exit(126);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) < 0) {
        run.failure = std::string("cannot wait for ") + arguments[0] + ": " + std::strerror(errno);
        return run;
    }
    run.ran = true;
    run.seconds = secondsSince(started);
    run.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    run.peakKilobytes = usage.ru_maxrss;
    run.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.succeeded = run.exitStatus == 0;
    if (!run.succeeded) {
        run.failure = run.exitStatus == 127
                          ? arguments[0] + " could not be run"
                          : arguments[0] + " failed (status " + std::to_string(WEXITSTATUS(status)) + ")";
    }
    return run;
}

} // namespace bench
