// Waiting on the real file system for a file that another program writes.
#include "TLFileWaiting.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>

namespace {

using Clock = std::chrono::steady_clock;

void setAge(const std::string &path, std::chrono::milliseconds age)
{
    std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() - age);
}

double secondsToRun(const std::function<void()> &work)
{
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

} // namespace

TEST(TLFileWaitingTest, CreationGetsOneShortChanceOnly)
{
    test::TemporaryFolder folder;
    const auto waiting = TLFileWaiting::standard();
    EXPECT_LT(secondsToRun([&] { waiting->waitForFileCreation(folder.file("never.xml"), 10); }), 1.0);
    test::writeFile(folder.file("empty.xml"), "");
    EXPECT_LT(secondsToRun([&] { waiting->waitForFileCreation(folder.file("empty.xml"), 10); }), 1.0);
}

TEST(TLFileWaitingTest, WritesAreAwaitedUntilTheFileHasRestedFiveSeconds)
{
    test::TemporaryFolder folder;
    const auto waiting = TLFileWaiting::standard();
    const auto path = folder.file("export.xml");
    EXPECT_LT(secondsToRun([&] { waiting->waitForFileWrites(path); }), 0.1) << "missing file";

    test::writeFile(path, "<xmeml/>");
    setAge(path, std::chrono::milliseconds(10000));
    EXPECT_LT(secondsToRun([&] { waiting->waitForFileWrites(path); }), 0.1) << "settled file";

    setAge(path, std::chrono::milliseconds(4600));
    const auto waited = secondsToRun([&] { waiting->waitForFileWrites(path); });
    EXPECT_GE(waited, 0.3);
    EXPECT_LT(waited, 3.0);

    setAge(path, -std::chrono::hours(24));
    EXPECT_LT(secondsToRun([&] { waiting->waitForFileWrites(path); }), 0.1)
        << "a time far in the future must not make the wait endless";
}

TEST(TLFileWaitingTest, LockFileStartsTheWaitButOnlyTheModificationTimeProlongsIt)
{
    test::TemporaryFolder folder;
    const auto waiting = TLFileWaiting::standard();
    const auto path = folder.file("export.xml");
    const auto lock = folder.file("export.lock");
    test::writeFile(path, "<xmeml/>");
    setAge(path, std::chrono::milliseconds(10000));

    std::string log = test::logOf([&] { waiting->waitForFileWrites(path, lock); });
    EXPECT_EQ(log.find("Waiting"), std::string::npos) << "no lock file, a settled file: " << log;
    log = test::logOf([&] { waiting->waitForFileWrites(path, ""); });
    EXPECT_EQ(log.find("Waiting"), std::string::npos) << "an empty lock path is none: " << log;

    test::writeFile(lock, "");
    double waited = 0;
    log = test::logOf([&] { waited = secondsToRun([&] { waiting->waitForFileWrites(path, lock); }); });
    EXPECT_LT(waited, 0.5) << "a stale lock file must not hold the wait";
    const auto started = log.find(" - File " + path + " is currently being written to. Waiting...\n");
    ASSERT_NE(started, std::string::npos) << log;
    EXPECT_NE(log.find(" - File " + path + " finished writing.\n", started), std::string::npos) << log;

    setAge(path, std::chrono::milliseconds(4600));
    std::filesystem::remove(lock);
    waited = secondsToRun([&] { waiting->waitForFileWrites(path, lock); });
    EXPECT_GE(waited, 0.3) << "a recent change is awaited without a lock file too";
}
