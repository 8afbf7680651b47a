#include "TLTaskEx.h"

#include "TLLog.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using test::logOf;

namespace fs = std::filesystem;

namespace {

const std::string shell = "/bin/sh";

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

TEST(TLTaskExTest, CaptureReturnsOutputBeforeErrorAndErrorWhenThereIsNoOutput)
{
    EXPECT_EQ(TLTaskEx::stringFromTask(shell, {"-c", "echo out; echo err >&2"}), "out\n");
    EXPECT_EQ(TLTaskEx::stringFromTask(shell, {"-c", "echo only-error >&2; exit 3"}), "only-error\n");
    EXPECT_EQ(TLTaskEx::dataFromTask(shell, {"-c", "true"}), std::string());
    // Without error capture the error text is discarded, not returned.
    EXPECT_EQ(TLTaskEx::dataFromTask(shell, {"-c", "echo e >&2"}, nullptr, std::nullopt, true, false),
              std::string());
    // Arguments reach the program as they are, never through a shell.
    EXPECT_EQ(TLTaskEx::stringFromTask("/bin/echo", {"$HOME", "a b;c"}), "$HOME a b;c\n");
    EXPECT_EQ(TLTaskEx::stringFromTask("/usr/bin/env", {}, TLTaskEx::Encoding::UTF8).empty(), false);
    EXPECT_EQ(TLTaskEx::dataFromTask("/usr/bin/env", {}, nullptr, TLTaskEx::Environment{{"ONLY", "1"}}),
              std::string("ONLY=1\n"));
}

TEST(TLTaskExTest, CaptureDoesNotStallOnLargeOutputOnBothPipes)
{
    const std::optional<std::string> data = TLTaskEx::dataFromTask(
        shell, {"-c", "head -c 300000 /dev/zero >&2; head -c 300000 /dev/zero"});
    ASSERT_TRUE(data);
    EXPECT_EQ(data->size(), 300000u);
}

TEST(TLTaskExTest, StringsDecodeHighBytesPerEncoding)
{
    const std::vector<std::string> arguments = {"-c", "printf '\\303\\251'"};
    EXPECT_EQ(TLTaskEx::stringFromTask(shell, arguments, TLTaskEx::Encoding::UTF8), "\xC3\xA9");
    // Read as ASCII, each byte is a character of its own.
    EXPECT_EQ(TLTaskEx::stringFromTask(shell, arguments), "\xC3\x83\xC2\xA9");
}

TEST(TLTaskExTest, UnrunnablePathsFailWithTheirMessage)
{
    const test::TemporaryFolder folder;
    const std::string bundle = folder.file("Editor.app");
    fs::create_directory(bundle);
    const std::string plain = folder.file("notes.txt");
    test::writeFile(plain, "#!/bin/sh\n");

    const std::string log = logOf([&] {
        EXPECT_FALSE(TLTaskEx::runTask(bundle, {}));
        EXPECT_EQ(TLTaskEx::runTaskAndReturn(bundle, {}), nullptr);
        EXPECT_EQ(TLTaskEx::dataFromTask(plain, {}), std::nullopt);
        EXPECT_EQ(TLTaskEx::stringFromTask(folder.file("missing"), {}), "");
        EXPECT_EQ(TLTaskEx::terminationCodeFromTask(bundle, {}), -1);
        EXPECT_FALSE(TLTaskEx::isRunnable(""));
    });
    EXPECT_NE(log.find("Error: " + bundle + " is not executable"), std::string::npos);
    EXPECT_NE(log.find("Error: " + plain + " is not executable"), std::string::npos);
}

TEST(TLTaskExTest, BareNamesLaunchFromPathAndFailuresAreLogged)
{
    EXPECT_TRUE(TLTaskEx::runTask("true", {}));
    const std::string log = logOf([] { EXPECT_FALSE(TLTaskEx::runTask("no-such-program-xyz", {})); });
    EXPECT_NE(log.find("Exception running task no-such-program-xyz: "), std::string::npos);
}

TEST(TLTaskExTest, ExitStatusAndTaskSlot)
{
    EXPECT_EQ(TLTaskEx::terminationCodeFromTask(shell, {"-c", "exit 7"}), 7);
    TLTaskEx::Slot slot;
    EXPECT_TRUE(TLTaskEx::runTask(shell, {"-c", "exit 4"}, &slot));
    ASSERT_NE(slot.get(), nullptr);
    EXPECT_FALSE(slot.get()->isRunning());
    EXPECT_EQ(slot.get()->waitUntilExit(), 4);

    const std::shared_ptr<TLTaskEx::Task> task = TLTaskEx::runTaskAndReturn(shell, {"-c", "sleep 5"});
    ASSERT_NE(task, nullptr);
    EXPECT_TRUE(task->isRunning());
    task->terminate();
    EXPECT_EQ(task->waitUntilExit(), SIGTERM);
    EXPECT_FALSE(task->isRunning());
}

TEST(TLTaskExTest, TimeOutTerminatesAProgramThatRunsTooLong)
{
    const auto start = std::chrono::steady_clock::now();
    int code = 0;
    const std::string log = logOf([&] {
        code = TLTaskEx::terminationCodeFromTask(shell, {"-c", "sleep 10"}, 1.0);
    });
    EXPECT_LT(secondsSince(start), 5.0);
    EXPECT_EQ(code, SIGTERM);
    EXPECT_NE(log.find("Task " + shell + " timed out. Terminating..."), std::string::npos);

    // Only whole seconds count: 1.9 wakes after one second, before this
    // program would have ended by itself.
    EXPECT_EQ(TLTaskEx::terminationCodeFromTask(shell, {"-c", "sleep 1.6"}, 1.9), SIGTERM);

    // A program that ends in time is left alone and keeps its result.
    EXPECT_EQ(TLTaskEx::stringFromTask(shell, {"-c", "echo quick"}, 1.9), "quick\n");
    EXPECT_TRUE(TLTaskEx::runTask(shell, {"-c", "exit 0"}, 1.0));
}

TEST(TLTaskExTest, AsynchronousOutputArrivesInOrderThenOneEmptyChunk)
{
    std::mutex mutex;
    std::condition_variable ended;
    std::vector<std::string> chunks;
    bool done = false;
    TLTaskEx runner;
    runner.asyncDataFromTask(
        shell, {"-c", "for i in 1 2 3 4 5; do echo line$i; sleep 0.05; done"},
        [&](const std::string &data, TLTaskEx &, const std::any &object) {
            const std::lock_guard lock(mutex);
            EXPECT_EQ(std::any_cast<int>(object), 42);
            chunks.push_back(data);
            done = data.empty();
            ended.notify_all();
        },
        42);
    std::unique_lock lock(mutex);
    ASSERT_TRUE(ended.wait_for(lock, std::chrono::seconds(10), [&] { return done; }));
    std::string joined;
    for (std::size_t index = 0; index + 1 < chunks.size(); ++index) {
        EXPECT_FALSE(chunks[index].empty());
        joined += chunks[index];
    }
    EXPECT_EQ(joined, "line1\nline2\nline3\nline4\nline5\n");
    EXPECT_GE(chunks.size(), 2u);
}

TEST(TLTaskExTest, AsynchronousRunOfAMissingProgramDeliversNothingAndCanBeStopped)
{
    int calls = 0;
    const std::string log = logOf([&] {
        TLTaskEx runner;
        runner.asyncDataFromTask("/no/such/program", {},
                                 [&](const std::string &, TLTaskEx &, const std::any &) { ++calls; });
        // Let the background thread reach its check before the runner goes.
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    });
    EXPECT_EQ(calls, 0);
    EXPECT_NE(log.find("Unable to launch async task - task does not exist or is not executable"),
              std::string::npos);

    // Stopping a long run ends it promptly and silences the delegate.
    const auto start = std::chrono::steady_clock::now();
    {
        TLTaskEx runner;
        runner.asyncDataFromTask(shell, {"-c", "sleep 10"},
                                 [&](const std::string &, TLTaskEx &, const std::any &) { ++calls; });
        runner.terminateTask();
    }
    EXPECT_LT(secondsSince(start), 5.0);
    EXPECT_EQ(calls, 0);
}
