// The crash report a fatal signal leaves, and the next start finding it.
#include "TLFatalSignals.h"

#include "FakeWorkspace.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLCrashwick.h"
#include "TLUserDefaults.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// A real fault, not one the undefined-behaviour checker reports first.
__attribute__((no_sanitize_undefined)) void writeThroughNull()
{
    volatile int *volatile nowhere = nullptr;
    *nowhere = 1;
}

// Installs the handler in a child, crashes it with `crash`, and returns the
// signal that ended the child (0 when it exited).
int signalEndingChild(const std::function<bool()> &install, const std::function<void()> &crash)
{
    const pid_t child = ::fork();
    if (child == 0) {
        // The test leaves no core files behind.
        const rlimit noCore{0, 0};
        ::setrlimit(RLIMIT_CORE, &noCore);
        if (install())
            crash();
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

std::vector<fs::path> filesIn(const fs::path &folder)
{
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        files.push_back(entry->path());
    return files;
}

} // namespace

TEST(TLFatalSignalsTest, EachFatalSignalLeavesAReportAndStillEndsTheProcess)
{
    struct Case {
        int signal;
        const char *name;
        std::function<void()> crash;
    };
    const std::vector<Case> cases = {
        {SIGSEGV, "SIGSEGV", writeThroughNull},
        {SIGABRT, "SIGABRT", [] { std::abort(); }},
        {SIGBUS, "SIGBUS", [] { std::raise(SIGBUS); }},
        {SIGFPE, "SIGFPE", [] { std::raise(SIGFPE); }},
        {SIGILL, "SIGILL", [] { std::raise(SIGILL); }},
    };
    for (const Case &testCase : cases) {
        const test::TemporaryFolder folder;
        const std::string reports = folder.file("CrashReporter");
        const auto install = [&] { return TLFatalSignals::install(reports, "Corvale", "9.8.7"); };
        EXPECT_EQ(signalEndingChild(install, testCase.crash), testCase.signal) << testCase.name;

        const std::vector<fs::path> files = filesIn(reports);
        ASSERT_EQ(files.size(), 1u) << testCase.name;
        const std::string name = files[0].filename().string();
        EXPECT_TRUE(name.starts_with("Corvale_") && name.ends_with(".crash")) << name;
        struct stat status{};
        ASSERT_EQ(::stat(files[0].c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600u) << "readable by the user only";
        const std::string report = test::readFile(files[0]);
        EXPECT_NE(report.find("Signal:      " + std::string(testCase.name)), std::string::npos) << report;
        EXPECT_NE(report.find("Version:     9.8.7\n"), std::string::npos) << report;
        const auto backtrace = report.find("Backtrace:\n");
        ASSERT_NE(backtrace, std::string::npos) << report;
        const std::string firstFrame = report.substr(backtrace + 11, report.find('\n', backtrace + 11) - backtrace - 11);
        EXPECT_NE(firstFrame.find("[0x"), std::string::npos) << report;
    }
}

TEST(TLFatalSignalsTest, RefusesAFolderThatIsNotAbsolute)
{
    EXPECT_FALSE(TLFatalSignals::install("CrashReporter", "Corvale", "1"));
    EXPECT_FALSE(fs::exists("CrashReporter"));
}

TEST(TLFatalSignalsTest, TheNextStartFindsTheReport)
{
    const auto workspace = std::make_shared<test::FakeWorkspace>();
    TLWorkspace::setShared(workspace);
    const auto alerts = std::make_shared<test::RecordingAlertPresenter>();
    TLAlert::setPresenter(alerts);
    const test::TemporaryFolder folder;
    const std::string stamps = folder.file("stamps.plist");
    ASSERT_TRUE(TLUserDefaults(stamps).setDate("launch", std::chrono::system_clock::now() - std::chrono::hours(1)));

    EXPECT_EQ(signalEndingChild([] { return TLFatalSignals::install(); }, writeThroughNull), SIGSEGV);
    const std::vector<fs::path> files = filesIn(TLCrashwick::crashReportFolders().front());
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(TLCrashwick::checkForCrashes(std::nullopt, stamps), files[0].string());
    // No reporter is installed here, so the user is told where it is.
    ASSERT_EQ(alerts->alerts().size(), 1u);
    EXPECT_NE(alerts->alerts()[0].informativeText.find(files[0].string()), std::string::npos);
    fs::remove_all(files[0].parent_path());
    TLAlert::setPresenter(nullptr);
    TLWorkspace::setShared(nullptr);
}
