// The application log on a disk that fills up: lines are lost, the process
// goes on, and logging resumes once there is room again.
#include "TLLog.h"

#include "TLLocalPaths.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>

#include <cstdlib>
#include <string>
#include <thread>

namespace {

constexpr rlim_t roomOnDisk = 16 * 1024;

// Fills the log past the largest file this process may write (SIGXFSZ
// ignored, so writes fail with EFBIG as on a full disk), from the main
// thread and a background one, then makes room and logs once more. Runs in
// a child process; returns 0 when the log kept to the room it had and took
// the last line whole, else the number of the first check that failed.
int logOntoAFullDisk(const std::string &stateFolder)
{
    ::setenv("XDG_STATE_HOME", stateFolder.c_str(), 1);
    TLLocalPaths::overrideUserId(1000);
    TLLog &log = TLLog::sharedController();
    log.setAppName("FaultLog");
    log.setLoggingDisabled(false);
    log.setNoPrinting(true);
    TLLog::registerMainThread();
    TLLog::createNewLog();
    TLLog::finishWriting();

    ::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    const rlim_t hardLimit = limit.rlim_max;
    limit.rlim_cur = roomOnDisk;
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0)
        return 1;
    const std::string filler(100, 'f');
    std::thread background([&filler] {
        for (int line = 0; line < 500; ++line)
            TLLog::appendLog("background %i %@", line, filler);
    });
    for (int line = 0; line < 500; ++line) {
        TLLog::appendLog("main %i %@", line, filler);
        TLLog::fastAppendLog("fast %i", line);
    }
    background.join();
    TLLog::finishWriting();

    limit.rlim_cur = hardLimit;
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0)
        return 2;
    TLLog::appendLog("after the disk had room again");
    TLLog::finishWriting();
    const std::optional<std::string> path = TLLog::currentLogPath();
    TLLog::willTerminate();
    if (!path)
        return 3;
    const std::string text = test::readFile(*path);
    const std::string last = " - after the disk had room again\n";
    if (text.size() < last.size() || text.compare(text.size() - last.size(), last.size(), last) != 0)
        return 4;
    return text.size() <= roomOnDisk + 64 ? 0 : 5;
}

} // namespace

TEST(TLLogFaultTest, AFullDiskLosesLinesButNotTheProcess)
{
    test::TemporaryFolder folder;
    // A fresh process of its own: the limit and the lost lines stay there.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(logOntoAFullDisk(folder.file("state"))), testing::ExitedWithCode(0), "");
}
