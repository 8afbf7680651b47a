// The application log, driven in a temporary folder: creation, rotation,
// the switch file, the queue rules, and every failure the log reports.
#include "TLLog.h"

#include "TLLocalPaths.h"
#include "TLPropertyList.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <regex>
#include <stdexcept>
#include <thread>
#include <sys/stat.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

namespace {

static_assert(!std::is_copy_constructible_v<TLLog> && !std::is_default_constructible_v<TLLog>);

TLLog &logger()
{
    return TLLog::sharedController();
}

template <typename Action>
std::string standardOutputOf(Action action)
{
    testing::internal::CaptureStdout();
    action();
    TLLog::finishWriting();
    return testing::internal::GetCapturedStdout();
}

std::vector<std::string> linesOf(const std::string &text)
{
    std::vector<std::string> lines;
    for (std::size_t start = 0, end; start < text.size(); start = end + 1) {
        end = text.find('\n', start);
        lines.push_back(text.substr(start, end - start));
        if (end == std::string::npos)
            break;
    }
    return lines;
}

// The text of a stamped line: what follows "2024-03-05 14:07:09 +0000 - ".
std::string textOf(const std::string &line)
{
    static const std::regex stamp(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d [+-]\d{4} - )");
    std::smatch match;
    if (!std::regex_search(line, match, stamp) || match.position(0) != 0)
        return "<unstamped> " + line;
    return match.suffix();
}

class TLLogTest : public testing::Test
{
protected:
    void SetUp() override
    {
        TLLog::finishWriting();
        TLLog::registerMainThread();
        setVariable("XDG_STATE_HOME", m_folder.file("state"));
        setVariable("XDG_CONFIG_HOME", m_folder.file("config"));
        setVariable("CORVALE_LOCAL_ROOT", m_folder.file("local"));
        TLLocalPaths::overrideUserId(1000);
        logger().setLoggingDisabled(false);
        logger().setNoPrinting(false);
        logger().setAppName("TestLog");
    }

    void TearDown() override
    {
        TLLog::willTerminate();
        TLLocalPaths::overrideUserId(std::nullopt);
        logger().overrideExecutablePath(std::nullopt);
        logger().setLoggingDisabled(false);
        for (const auto &[name, value] : m_saved)
            setenv(name.c_str(), value.c_str(), 1);
    }

    void setVariable(const std::string &name, const std::string &value)
    {
        if (!m_saved.count(name)) {
            const char *old = std::getenv(name.c_str());
            m_saved[name] = old ? old : "";
        }
        setenv(name.c_str(), value.c_str(), 1);
    }

    std::string folder() const { return m_folder.file("state") + "/Logs/Quillmoor"; }
    std::string generation(int number) const
    {
        return folder() + "/TestLog." + std::to_string(number) + ".log";
    }
    std::vector<std::string> texts(int number = 1) const
    {
        std::vector<std::string> result;
        for (const auto &line : linesOf(test::readFile(generation(number))))
            result.push_back(textOf(line));
        return result;
    }
    void writeSwitch(const TLPropertyList &list) const
    {
        std::filesystem::create_directories(m_folder.file("config"));
        ASSERT_EQ(list.writeToFile(m_folder.file("config") + "/com.quillmoor.global.plist",
                                   TLPropertyList::Format::XML), "");
    }

    test::TemporaryFolder m_folder;
    std::map<std::string, std::string> m_saved;
};

} // namespace

TEST_F(TLLogTest, StartsAFreshFileWithItsHeader)
{
    EXPECT_EQ(&TLLog::sharedController(), &logger());
    TLLog::createNewLog();
    TLLog::appendLog("Opened %@ with %li clips", "Spots.fcp", 12L);
    TLLog::finishWriting();

    const auto lines = texts();
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(Log started: \d{4}-\d\d-\d\d \d\d:\d\d:\d\d [+-]\d{4})")))
        << lines[0];
    EXPECT_EQ(lines[1], "Version: " CORVALE_VERSION);
    EXPECT_EQ(lines[2], "Path: " + std::filesystem::read_symlink("/proc/self/exe").string());
    EXPECT_TRUE(std::regex_match(lines[3], std::regex(R"(System: .+ \(Linux .+\), [1-9]\d* CPU\(s\), \d+\.\d\d GB RAM)")))
        << lines[3];
    EXPECT_EQ(lines[4], "Running in 64-bit mode");
    EXPECT_EQ(lines[5], "Opened Spots.fcp with 12 clips");
    EXPECT_EQ(TLLog::availableLogs(), std::vector<std::string>{generation(1)});
}

TEST_F(TLLogTest, OnlyTheStringOneOrTrueDisablesLogging)
{
    const auto check = [&](auto set, bool disables) {
        auto list = TLPropertyList::newDictionary();
        set(list);
        writeSwitch(list);
        logger().setLoggingDisabled(false);
        std::filesystem::remove_all(folder());
        const auto output = standardOutputOf([] {
            TLLog::createNewLog();
            TLLog::appendLog("a line");
        });
        EXPECT_EQ(output, disables ? "Logging is disabled\n" : "");
        EXPECT_EQ(std::filesystem::exists(generation(1)), !disables);
        EXPECT_EQ(logger().loggingDisabled(), disables);
    };
    check([](TLPropertyList &list) { list.setStringForKey("disable-logging", "1"); }, true);
    check([](TLPropertyList &list) { list.setBoolForKey("disable-logging", true); }, true);
    check([](TLPropertyList &list) { list.setIntegerForKey("disable-logging", 1); }, true);
    check([](TLPropertyList &list) { list.setStringForKey("disable-logging", "0"); }, false);
    check([](TLPropertyList &list) { list.setStringForKey("disable-logging", "yes"); }, false);
    check([](TLPropertyList &list) { list.setBoolForKey("disable-logging", false); }, false);
    check([](TLPropertyList &list) { list.setStringForKey("other-key", "1"); }, false);

    // Once disabled, a new log is not even attempted.
    logger().setLoggingDisabled(true);
    std::filesystem::remove_all(folder());
    std::filesystem::remove(m_folder.file("config") + "/com.quillmoor.global.plist");
    EXPECT_EQ(standardOutputOf([] { TLLog::createNewLog(); }), "");
    EXPECT_FALSE(std::filesystem::exists(generation(1)));
}

TEST_F(TLLogTest, DamagedSwitchFileLeavesLoggingOn)
{
    for (const char *contents : {"bplist00\xff\xff\xff garbage", "<?xml version=\"1.0\"?><plist><dict><key>disable-logging",
                                 ""}) {
        test::writeFile(m_folder.file("config") + "/com.quillmoor.global.plist", contents);
        TLLog::createNewLog();
        TLLog::finishWriting();
        EXPECT_FALSE(logger().loggingDisabled());
        EXPECT_TRUE(std::filesystem::exists(generation(1)));
    }
}

TEST_F(TLLogTest, RotatesFiveGenerations)
{
    for (int number = 1; number <= 5; ++number)
        test::writeFile(generation(number), "old " + std::to_string(number));
    TLLog::createNewLog();
    TLLog::finishWriting();
    for (int number = 2; number <= 5; ++number)
        EXPECT_EQ(test::readFile(generation(number)), "old " + std::to_string(number - 1));
    EXPECT_EQ(texts(1)[0].rfind("Log started: ", 0), 0u);
    EXPECT_EQ(TLLog::availableLogs().size(), 5u);

    // Only generation 1: it becomes 2.
    for (int number = 2; number <= 5; ++number)
        std::filesystem::remove(generation(number));
    test::writeFile(generation(1), "only one");
    TLLog::createNewLog();
    TLLog::finishWriting();
    EXPECT_EQ(test::readFile(generation(2)), "only one");
    EXPECT_EQ(TLLog::availableLogs(), (std::vector<std::string>{generation(1), generation(2)}));

    // No generation 1: nothing moves, even with older ones present.
    std::filesystem::remove(generation(1));
    test::writeFile(generation(3), "three");
    TLLog::createNewLog();
    TLLog::finishWriting();
    EXPECT_EQ(test::readFile(generation(2)), "only one");
    EXPECT_EQ(test::readFile(generation(3)), "three");
    EXPECT_FALSE(std::filesystem::exists(generation(4)));
}

TEST_F(TLLogTest, AFailedMoveStopsTheRotation)
{
    test::writeFile(generation(1), "one");
    test::writeFile(generation(4), "four");
    // A folder that cannot be deleted, and that a file cannot replace.
    test::writeFile(generation(5) + "/keep", "");
    const auto output = standardOutputOf([] { TLLog::createNewLog(); });
    EXPECT_EQ(output, "Unable to move file " + generation(4) + " to " + generation(5) + ".\n");
    EXPECT_EQ(test::readFile(generation(1)), "one");
    EXPECT_EQ(test::readFile(generation(4)), "four");
}

TEST_F(TLLogTest, PercentSignsAndBlankMessages)
{
    EXPECT_EQ(TLLog::escapeTextForLogging("no percent"), "no percent");
    EXPECT_EQ(TLLog::escapeTextForLogging("50% done, 100%. %-5d %+d %@ %li"), "50%% done, 100%%. %%-5d %%+d %@ %li");
    EXPECT_EQ(TLLog::escapeTextForLogging("already 10%% here"), "already 10%% here");

    TLLog::createNewLog(std::nullopt, true);
    TLLog::finishWriting();
    TLLog::setWritingSuspended(true);
    const auto queued = logger().bytesInQueue();
    TLLog::appendLog(" \n\t ");
    TLLog::fastAppendLog("\xE3\x80\x80\n");
    EXPECT_EQ(logger().bytesInQueue(), queued);
    EXPECT_EQ(logger().operationCount(), 0u);

    TLLog::appendLog("50% done");
    TLLog::appendLog("Finished at 100%.");
    TLLog::appendLog("  %@ left: 10%  ", "Bins");
    TLLog::appendLog("trailing %");
    TLLog::appendLog(std::string_view());
    TLLog::finishWriting();
    const auto lines = texts();
    const std::vector<std::string> last(lines.end() - 4, lines.end());
    EXPECT_EQ(last, (std::vector<std::string>{"50% done", "Finished at 100%.", "Bins left: 10%", "trailing %"}));
    EXPECT_EQ(logger().bytesInQueue(), 0u);
}

TEST_F(TLLogTest, AppendLogAndPrintShowsAConsoleCopy)
{
    TLLog::createNewLog();
    const auto output = standardOutputOf([] {
        TLLog::appendLogAndPrint("  Sent %@ at 50%  ", "bins");
        TLLog::appendLogAndPrint("%@", std::string("a %@ b\0c", 8));
        TLLog::appendLogAndDebugPrint("debug only %li", 3L);
    });
    EXPECT_EQ(output, "Sent bins at 50%%\na  bc\n");
    const auto lines = texts();
    const std::vector<std::string> last(lines.end() - 3, lines.end());
    EXPECT_EQ(last, (std::vector<std::string>{"Sent bins at 50%", std::string("a  b\0c", 6), "debug only 3"}));

    logger().setNoPrinting(true);
    EXPECT_EQ(standardOutputOf([] { TLLog::appendLogAndPrint("quiet"); }), "");
}

TEST_F(TLLogTest, RotatesWhenTheFileReachesFiveMillionBytes)
{
    TLLog::createNewLog();
    // Everything is queued before the writer starts, so lines wait behind
    // the one that fills the file: the new file must still begin with its
    // header.
    TLLog::setWritingSuspended(true);
    const std::string block(1000000, 'x');
    for (int count = 0; count < 5; ++count)
        TLLog::fastAppendLog("%@", block);
    TLLog::fastAppendLog("queued behind the full file");
    TLLog::setWritingSuspended(false);
    TLLog::finishWriting();

    EXPECT_GE(std::filesystem::file_size(generation(2)), 5000000u);
    const auto lines = texts(1);
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_EQ(lines.front().rfind("Log started: ", 0), 0u);
    EXPECT_EQ(lines[4], "Running in 64-bit mode");
    EXPECT_EQ(lines[5], "Log truncated at 500KB");
    EXPECT_EQ(lines[6], "queued behind the full file");
    EXPECT_LT(logger().bytesWritten(), 1000u);
}

// Runs of the command line at the same time: each child process starts the
// way the command line does and writes its lines while the other writes.
TEST_F(TLLogTest, RunsOfTheCommandLineShareOneFileWithoutLosingLines)
{
    const std::string commandLine = TLLog::commandLineLogName("TestLog");
    const std::string current = folder() + "/" + commandLine + ".1.log";
    constexpr int linesPerRun = 3000;
    TLLog::finishWriting();
    std::vector<pid_t> runs;
    for (int run = 0; run < 2; ++run) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child > 0) {
            runs.push_back(child);
            continue;
        }
        logger().setAppName(commandLine);
        TLLog::continueLog(std::nullopt, true);
        for (int line = 0; line < linesPerRun; ++line)
            logger().appendLogOnThread("run " + std::to_string(run) + " line " + std::to_string(line) + " "
                                       + std::string(200, char('a' + run)));
        ::_exit(0);
    }
    for (const pid_t child : runs) {
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }

    std::map<std::string, int> seen;
    int headers = 0;
    const std::regex whole(R"(run ([01]) line \d+ (a{200}|b{200}))");
    for (const auto &line : linesOf(test::readFile(current))) {
        const std::string text = textOf(line);
        std::smatch match;
        if (text.starts_with("Log started: "))
            ++headers;
        else if (std::regex_match(text, match, whole) && match[2].str()[0] == 'a' + (match[1].str()[0] - '0'))
            ++seen[text.substr(0, text.find(' ', text.find("line ") + 5))];
        else if (!line.empty() && !text.starts_with("Version: ") && !text.starts_with("Path: ")
                 && !text.starts_with("System: ") && text != "Running in 64-bit mode")
            ADD_FAILURE() << "damaged line: " << line.substr(0, 80);
    }
    EXPECT_EQ(headers, 2) << "each run adds its header to the one file";
    EXPECT_EQ(seen.size(), 2u * linesPerRun);
    for (const auto &[text, count] : seen)
        EXPECT_EQ(count, 1) << text;
    EXPECT_EQ(TLLog::availableLogs(), std::vector<std::string>{current});
}

TEST_F(TLLogTest, ShortBackgroundMessagesWaitForTheQueue)
{
    TLLog::createNewLog();
    TLLog::finishWriting();
    // A suspended queue shows who waited: finishWriting resumes and drains it.
    const auto countAfterAppend = [](std::string text, bool onMainThread) {
        TLLog::setWritingSuspended(true);
        const auto append = [&] { TLLog::appendLog("%@", text); };
        onMainThread ? append() : std::thread(append).join();
        const auto count = logger().operationCount();
        TLLog::finishWriting();
        return count;
    };
    EXPECT_EQ(countAfterAppend("short from the background", false), 0u);
    EXPECT_EQ(countAfterAppend(std::string(99, 's'), false), 0u);
    EXPECT_EQ(countAfterAppend(std::string(100, 'l'), false), 1u);
    EXPECT_EQ(countAfterAppend("short on the main thread", true), 1u);

    // Past 99 characters in the queue, nobody waits.
    TLLog::setWritingSuspended(true);
    TLLog::fastAppendLog("%@", std::string(95, 'q'));
    std::thread([] { TLLog::appendLog("short"); }).join();
    EXPECT_EQ(logger().operationCount(), 2u);
    TLLog::finishWriting();
    EXPECT_EQ(texts().back(), "short");
}

TEST_F(TLLogTest, ShutdownWaitsForTenLinesAndDropsALongerBacklog)
{
    TLLog::createNewLog();
    TLLog::finishWriting();
    TLLog::setWritingSuspended(true);
    for (int count = 0; count < 11; ++count)
        TLLog::fastAppendLog("dropped %i", count);
    TLLog::willTerminate();
    EXPECT_EQ(texts().back(), "Running in 64-bit mode");
    EXPECT_EQ(logger().bytesInQueue(), 0u);

    logger().setAppName("TestLog");
    TLLog::setWritingSuspended(true);
    for (int count = 0; count < 10; ++count)
        TLLog::fastAppendLog("kept %i", count);
    TLLog::willTerminate();
    EXPECT_EQ(texts().back(), "kept 9");
    EXPECT_FALSE(logger().hasFileHandle());
}

TEST_F(TLLogTest, LinesFromManyThreadsStayWhole)
{
    TLLog::createNewLog();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([thread] {
            for (int line = 0; line < 50; ++line)
                TLLog::fastAppendLog("thread %i line %i", thread, line);
        });
    for (auto &thread : threads)
        thread.join();
    TLLog::finishWriting();
    const auto lines = texts();
    ASSERT_EQ(lines.size(), 5u + 200u);
    for (std::size_t index = 5; index < lines.size(); ++index)
        EXPECT_TRUE(std::regex_match(lines[index], std::regex(R"(thread \d line \d+)"))) << lines[index];
}

TEST_F(TLLogTest, UnusableFolderOrFileIsReportedNotFatal)
{
    // The state folder is a file, so the log folder cannot be made.
    test::writeFile(m_folder.file("state"), "not a folder");
    auto output = standardOutputOf([] {
        TLLog::createNewLog();
        TLLog::appendLog("lost line");
    });
    EXPECT_EQ(output, "Unable to create folder " + folder() + ".\n"
                      "Unable to log the following information: lost line\n"
                      "Unable to open log for output\n");
    logger().setNoPrinting(true);
    EXPECT_EQ(standardOutputOf([] { TLLog::appendLog("silently lost"); }), "");
}

TEST_F(TLLogTest, AWriteErrorLosesTheLineAndTheLogGoesOn)
{
    TLLog::createNewLog();
    TLLog::finishWriting();
    std::filesystem::remove(generation(1));
    std::filesystem::create_symlink("/dev/full", generation(1));
    logger().closeFileHandle();
    const auto output = standardOutputOf([] { TLLog::appendLog("lost to a full disk"); });
    EXPECT_EQ(output, "Exception writing to log: No space left on device\n");

    std::filesystem::remove(generation(1));
    test::writeFile(generation(1), "");
    TLLog::appendLog("after the disk was freed");
    TLLog::finishWriting();
    EXPECT_EQ(texts(), std::vector<std::string>{"after the disk was freed"});
    EXPECT_EQ(logger().bytesInQueue(), 0u);
}

TEST_F(TLLogTest, AsRootTheLogIsWrittenInTheMachineWideFolder)
{
    TLLocalPaths::overrideUserId(0);
    const std::string machineWide = m_folder.file("local") + "/var/log/quillmoor";
    EXPECT_EQ(TLLog::currentLogPath(), machineWide + "/TestLog.1.log");
    const mode_t previous = ::umask(077);
    TLLog::createNewLog();
    ::umask(previous);
    TLLog::appendLog("written as root");
    TLLog::finishWriting();
    const auto lines = linesOf(test::readFile(machineWide + "/TestLog.1.log"));
    ASSERT_GE(lines.size(), 6u);
    EXPECT_EQ(textOf(lines[0]).rfind("Log started: ", 0), 0u);
    EXPECT_EQ(textOf(lines[5]), "written as root");
    for (const std::string &made : {machineWide, m_folder.file("local") + "/var/log"})
        EXPECT_EQ(std::filesystem::status(made).permissions(), std::filesystem::perms(0755)) << made;

    // The generations rotate there too; the user's folder is left alone.
    TLLog::createNewLog();
    TLLog::finishWriting();
    EXPECT_NE(test::readFile(machineWide + "/TestLog.2.log").find("written as root"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(folder()));
}

TEST_F(TLLogTest, TheFileIsNamedAfterTheExecutable)
{
    logger().setAppName(std::nullopt);
    EXPECT_EQ(logger().appName(), "corvale_support_tests");
    logger().overrideExecutablePath("/opt/Corvale/Corvale.bin");
    TLLog::createNewLog("Other");
    TLLog::finishWriting();
    EXPECT_TRUE(std::filesystem::exists(folder() + "/Corvale.1.log"));
    EXPECT_FALSE(std::filesystem::exists(folder() + "/Other.1.log"));

    logger().setAppName(std::nullopt);
    logger().overrideExecutablePath("");
    TLLog::createNewLog("Given");
    TLLog::createNewLog("Later");
    TLLog::finishWriting();
    EXPECT_EQ(logger().appName(), "Given");
    logger().setAppName(std::nullopt);
    TLLog::createNewLog();
    TLLog::finishWriting();
    EXPECT_TRUE(std::filesystem::exists(folder() + "/Unknown.1.log"));
    EXPECT_EQ(test::readFile(folder() + "/Unknown.1.log").find("Path: "), std::string::npos);
}

TEST_F(TLLogTest, AnEscapingExceptionIsLoggedAndPrinted)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            // The console copy goes to standard output; the check reads standard error.
            dup2(STDERR_FILENO, STDOUT_FILENO);
            TLLog::sharedController();
            std::thread([] { throw std::runtime_error("escaped from a worker"); }).join();
        },
        "escaped from a worker");
}
