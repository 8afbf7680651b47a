#include "TLTaskEx.h"

#include "TLLog.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using test::logOf;

namespace fs = std::filesystem;

namespace {

const std::string shell = "/bin/sh";

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Runs the rest of a test from `folder` with `path` as PATH; both are put
// back at the end.
class WorkingFolderAndPath
{
public:
    WorkingFolderAndPath(const fs::path &folder, const std::string &path)
        : m_folder(fs::current_path()), m_path(std::getenv("PATH") ? std::getenv("PATH") : "")
    {
        fs::current_path(folder);
        ::setenv("PATH", path.c_str(), 1);
    }
    ~WorkingFolderAndPath()
    {
        fs::current_path(m_folder);
        ::setenv("PATH", m_path.c_str(), 1);
    }
    WorkingFolderAndPath(const WorkingFolderAndPath &) = delete;
    WorkingFolderAndPath &operator=(const WorkingFolderAndPath &) = delete;

private:
    fs::path m_folder;
    std::string m_path;
};

// A program at `path` that leaves its name in `record` when it runs.
void writeRecordingProgram(const std::string &path, const std::string &record)
{
    test::writeFile(path, "#!/bin/sh\necho \"$0\" >> '" + record + "'\n");
    ::chmod(path.c_str(), 0755);
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

TEST(TLTaskExTest, ProgramsAreNeverTakenFromTheWorkingFolder)
{
    const test::TemporaryFolder folder;
    const std::string record = folder.file("ran");
    fs::create_directory(folder.file("bin"));
    for (const char *name : {"probe-xyz", "com.quillmoor.Crashwick", "bin/probe-xyz"})
        writeRecordingProgram(folder.file(name), record);
    // Empty and relative entries would mean the working folder.
    const WorkingFolderAndPath inFolder(folder.path(), ":.:bin:/usr/bin:/bin:");

    using Form = std::function<bool(const std::string &)>;
    const std::vector<std::pair<const char *, Form>> forms = {
        {"runTask", [](const std::string &name) { return TLTaskEx::runTask(name, {}); }},
        {"runTaskAndReturn", [](const std::string &name) { return TLTaskEx::runTaskAndReturn(name, {}) != nullptr; }},
        {"dataFromTask", [](const std::string &name) { return TLTaskEx::dataFromTask(name, {}).has_value(); }},
        {"terminationCode", [](const std::string &name) { return TLTaskEx::terminationCodeFromTask(name, {}) != -1; }},
        {"timeout", [](const std::string &name) { return TLTaskEx::runTask(name, {}, 5.0); }},
    };
    for (const auto &[form, run] : forms) {
        for (const char *name : {"probe-xyz", "./probe-xyz", "com.quillmoor.Crashwick", "bin/probe-xyz"})
            EXPECT_FALSE(run(name)) << form << " " << name;
    }
    EXPECT_FALSE(fs::exists(record)) << test::readFile(record);
    EXPECT_EQ(TLTaskEx::programOnPath("probe-xyz"), std::nullopt);
    // The asynchronous form's own test before its launch.
    EXPECT_FALSE(TLTaskEx::isRunnable("probe-xyz"));
    // Bare names on the absolute folders of PATH still run, in every form.
    EXPECT_EQ(TLTaskEx::programOnPath("sh").value_or("").front(), '/');
    EXPECT_EQ(TLTaskEx::stringFromTask("echo", {"found"}), "found\n");
    EXPECT_EQ(TLTaskEx::terminationCodeFromTask("sh", {"-c", "exit 3"}), 3);
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

TEST(TLTaskExTest, TimeOutEndsTheWholeProcessGroupPromptly)
{
    struct Case {
        const char *name;
        double timeout;
        const char *script;
    };
    // Each would run for 30 seconds; generous bounds only tell "ended by the
    // time-out" from "ran to its end".
    const std::vector<Case> cases = {
        {"under a second", 0.2, "sleep 30"},
        {"a grandchild holds the output pipe", 1.0, "sleep 30 & sleep 30"},
        {"the program ignores the terminate request", 1.0, "trap '' TERM; sleep 30"},
    };
    for (const Case &testCase : cases) {
        const auto start = std::chrono::steady_clock::now();
        const auto output = TLTaskEx::dataFromTask(shell, {"-c", testCase.script}, testCase.timeout);
        EXPECT_EQ(output, std::string()) << testCase.name;
        EXPECT_LT(secondsSince(start), 20.0) << testCase.name;
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(TLTaskEx::terminationCodeFromTask(shell, {"-c", "trap '' TERM; sleep 30"}, 1.0), SIGKILL);
    EXPECT_LT(secondsSince(start), 20.0);
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
