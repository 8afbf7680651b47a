// Crash detection: stamps, the report search and the reporter's launch.
#include "TLCrashwick.h"

#include "FakeWorkspace.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLUserDefaults.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <future>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::system_clock;

class TLCrashwickTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TLWorkspace::setShared(m_workspace);
        m_folders = TLCrashwick::crashReportFolders();
        ASSERT_EQ(m_folders.size(), 4u);
        TLCrashwick::overrideProgramFolder(m_program.path().string());
        // The reporter is installed on PATH unless a test says otherwise.
        ::setenv("PATH", ("/usr/bin:/bin:" + m_programs.path().string()).c_str(), 1);
    }

    void TearDown() override
    {
        ::setenv("PATH", m_path.c_str(), 1);
        TLAlert::setPresenter(nullptr);
        for (const auto &folder : m_folders)
            fs::remove_all(folder);
        (void)TLUserDefaults::forDomain("global")->removeObjectForKey(TLCrashwick::disableCrashReporterKey);
        TLCrashwick::overrideProgramFolder(std::nullopt);
        TLWorkspace::setShared(nullptr);
    }

    // Stamps as a run would have left them.
    void stampLastRun(Clock::time_point launch, std::optional<Clock::time_point> exit = std::nullopt)
    {
        TLUserDefaults stamps(m_stamps);
        ASSERT_TRUE(stamps.setDate("launch", launch));
        if (exit) {
            ASSERT_TRUE(stamps.setDate("exit", *exit));
        }
    }

    // An executable file called like the reporter in `folder`.
    static std::string installReporter(const test::TemporaryFolder &folder)
    {
        const std::string reporter = folder.file(TLCrashwick::reporterBundleIdentifier);
        test::writeFile(reporter, "#!/bin/sh\n");
        ::chmod(reporter.c_str(), 0755);
        return reporter;
    }

    // A crash report in the folder of `order` (0 to 3) written at `written`.
    std::string report(std::size_t order, const std::string &name, Clock::time_point written)
    {
        const fs::path path = fs::path(m_folders[order]) / name;
        test::writeFile(path, "Process: Corvale");
        fs::last_write_time(path, std::chrono::file_clock::from_sys(written));
        return path.string();
    }

    std::shared_ptr<test::FakeWorkspace> m_workspace = std::make_shared<test::FakeWorkspace>();
    std::vector<std::string> m_folders;
    test::TemporaryFolder m_program;
    test::TemporaryFolder m_temporary;
    std::string m_stamps = m_temporary.file("stamps.plist");
    Clock::time_point m_launch = Clock::now() - std::chrono::hours(1);
    std::string m_path = std::getenv("PATH") ? std::getenv("PATH") : "";
    test::TemporaryFolder m_programs;
    std::string m_reporter = installReporter(m_programs);
};

} // namespace

TEST_F(TLCrashwickTest, FirstRunAndCleanExitSearchNothing)
{
    report(0, "Corvale_fresh.crash", Clock::now());
    EXPECT_EQ(TLCrashwick::checkForCrashes("Corvale", m_stamps), std::nullopt) << "first run";
    stampLastRun(m_launch, m_launch);
    EXPECT_EQ(TLCrashwick::checkForCrashes("Corvale", m_stamps), std::nullopt) << "exit equal to launch";
    test::writeFile(m_stamps, "damaged");
    EXPECT_EQ(TLCrashwick::checkForCrashes("Corvale", m_stamps), std::nullopt);
    EXPECT_TRUE(m_workspace->requests().empty());
}

TEST_F(TLCrashwickTest, FreshReportIsFoundByPrefixInAnyCaseAndOpenedInTheReporter)
{
    stampLastRun(m_launch, m_launch - std::chrono::hours(2));
    report(1, "Corvale-other_x.crash", Clock::now());
    report(1, "CORVALE_2026-01-01.crash", Clock::now());
    const auto expected = report(1, "corvale_2026-01-02.crash", Clock::now());
    std::optional<std::string> found;
    const std::string log = test::logOf([&] { found = TLCrashwick::checkForCrashes("Corvale", m_stamps); });
    EXPECT_EQ(found, expected) << "the last name in name order";
    EXPECT_NE(log.find("Application crashed on last launch"), std::string::npos);
    const auto requests = m_workspace->requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].kind, "openFileWithApplication");
    EXPECT_EQ(requests[0].values, (std::vector<std::string>{expected, m_reporter}));
}

TEST_F(TLCrashwickTest, ReporterIsNeverTakenFromTheWorkingFolderAndTheUserIsToldWhereTheReportIs)
{
    const test::TemporaryFolder working;
    installReporter(working);
    const fs::path before = fs::current_path();
    fs::current_path(working.path());
    ::setenv("PATH", ":.:/usr/bin:/bin", 1);
    const auto alerts = std::make_shared<test::RecordingAlertPresenter>();
    TLAlert::setPresenter(alerts);
    stampLastRun(m_launch);
    const auto crash = report(0, "Corvale_a.crash", Clock::now());

    const std::string log = test::logOf([&] { EXPECT_EQ(TLCrashwick::checkForCrashes("Corvale", m_stamps), crash); });
    fs::current_path(before);
    EXPECT_TRUE(m_workspace->requests().empty());
    EXPECT_NE(log.find("No crash reporter installed; the crash report is " + crash), std::string::npos);
    ASSERT_EQ(alerts->alerts().size(), 1u);
    EXPECT_EQ(alerts->alerts()[0].message, TLCrashwick::unsentReportMessage("Corvale"));
    EXPECT_NE(alerts->alerts()[0].informativeText.find(crash), std::string::npos);
}

TEST_F(TLCrashwickTest, StaleReportsAreIgnoredAndFoldersSearchedInOrder)
{
    stampLastRun(m_launch);
    report(0, "Corvale_old.crash", m_launch - std::chrono::minutes(5));
    EXPECT_EQ(TLCrashwick::checkForCrashes("Corvale", m_stamps), std::nullopt);
    const auto local = report(3, "Corvale_new.ips", m_launch + std::chrono::minutes(1));
    EXPECT_EQ(TLCrashwick::checkForCrashes("Corvale", m_stamps), local);
    const auto userDiagnostic = report(1, "Corvale_new.ips", m_launch + std::chrono::minutes(1));
    EXPECT_EQ(TLCrashwick::checkForCrashes("Corvale", m_stamps), userDiagnostic);
}

TEST_F(TLCrashwickTest, SwitchedOffReporterIsLoggedButNotLaunched)
{
    stampLastRun(m_launch);
    const auto crash = report(2, "Corvale_a.crash", Clock::now());
    const auto global = TLUserDefaults::forDomain("global");
    ASSERT_TRUE(global->setString(TLCrashwick::disableCrashReporterKey, "1"));
    std::optional<std::string> found;
    const std::string log = test::logOf([&] { found = TLCrashwick::checkForCrashes("Corvale", m_stamps); });
    EXPECT_EQ(found, crash);
    EXPECT_NE(log.find("Crash reporter disabled"), std::string::npos);
    ASSERT_TRUE(global->setBool(TLCrashwick::disableCrashReporterKey, true));
    EXPECT_EQ(TLCrashwick::checkForCrashes("Corvale", m_stamps), crash);
    EXPECT_TRUE(m_workspace->requests().empty());
    ASSERT_TRUE(global->setInteger(TLCrashwick::disableCrashReporterKey, 1));
    EXPECT_EQ(TLCrashwick::checkForCrashes("Corvale", m_stamps), crash);
    EXPECT_EQ(m_workspace->requests().size(), 1u) << "only the string \"1\" and true switch it off";
}

TEST_F(TLCrashwickTest, ReporterBesideTheProgramIsPreferredInItsOrder)
{
    stampLastRun(m_launch);
    const auto crash = report(0, "Corvale_a.crash", Clock::now());
    const auto beside = m_program.file("Crashwick.app");
    const auto resources = m_program.file("Contents/Resources/Crashwick.app");
    test::writeFile(beside, "");
    TLCrashwick::checkForCrashes("Corvale", m_stamps);
    test::writeFile(resources, "");
    TLCrashwick::checkForCrashes("Corvale", m_stamps);
    const auto requests = m_workspace->requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].values, (std::vector<std::string>{crash, beside}));
    EXPECT_EQ(requests[1].values, (std::vector<std::string>{crash, resources}));
}

TEST_F(TLCrashwickTest, StartTellsTheDelegateThenStampsAndStopStampsTheExit)
{
    stampLastRun(m_launch);
    const auto crash = report(0, "Corvale_a.crash", Clock::now());
    std::promise<std::string> told;
    const auto before = std::chrono::floor<std::chrono::seconds>(Clock::now());
    TLCrashwick::startCrashwick("Corvale", m_stamps, [&](const std::string &path) { told.set_value(path); });
    auto answer = told.get_future();
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(answer.get(), crash);
    TLUserDefaults stamps(m_stamps);
    EXPECT_GE(stamps.dateForKey("launch"), before);
    EXPECT_EQ(TLCrashwick::checkForCrashes("Corvale", m_stamps), std::nullopt) << "the report predates nothing now";
    TLCrashwick::stopCrashwick(m_stamps);
    EXPECT_GE(stamps.dateForKey("exit"), stamps.dateForKey("launch"));

    // Without a path the stamps go to the application's user defaults.
    TLCrashwick::startCrashwick();
    TLCrashwick::stopCrashwick();
    const auto standard = TLUserDefaults::standard();
    EXPECT_GE(standard->dateForKey("exit"), standard->dateForKey("launch"));
    EXPECT_GE(standard->dateForKey("launch"), before);
}

TEST(TLCrashwickChownTest, RunsChownForTheUserNamedAfterUsers)
{
    test::TemporaryFolder folder;
    const auto script = folder.file("chown");
    const auto record = folder.file("arguments");
    test::writeFile(script, "#!/bin/sh\necho \"$@\" >> '" + record + "'\n");
    ::chmod(script.c_str(), 0755);
    TLCrashwick::overrideChownProgram(script);
    TLCrashwick::chownPlist("/Users/alice/Library/Preferences/stamps.plist");
    TLCrashwick::chownPlist("/home/bob/.config/stamps.plist");
    TLCrashwick::chownPlist("/srv/stamps.plist");
    TLCrashwick::chownPlist("/data/Users");
    TLCrashwick::overrideChownProgram(std::nullopt);
    EXPECT_EQ(test::readFile(record), "alice /Users/alice/Library/Preferences/stamps.plist\n"
                                      "bob /home/bob/.config/stamps.plist\n");
}
