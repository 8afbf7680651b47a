// Finding, copying and launching the updater.
#include "TLSoftwareUpdate.h"

#include "FakeWorkspace.h"
#include "TLLocalPaths.h"
#include "TLSiteLinks.h"
#include "TLUserDefaults.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <thread>

namespace fs = std::filesystem;

namespace {

class TLSoftwareUpdateTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TLWorkspace::setShared(m_workspace);
        TLSoftwareUpdate::overrideProgramFolder(m_program.path().string());
        m_installed = *TLLocalPaths::applicationDirectory(false) + "/Quillmoor/" + TLSoftwareUpdate::updaterName;
        m_copy = *TLLocalPaths::privateTemporaryDirectory() + "/" + TLSoftwareUpdate::updaterName;
    }

    void TearDown() override
    {
        fs::remove_all(fs::path(m_installed).parent_path());
        fs::remove_all(m_copy);
        (void)TLUserDefaults::forDomain("global")->removeObjectForKey(TLSoftwareUpdate::checkAtStartupKey);
        TLSoftwareUpdate::overrideProgramFolder(std::nullopt);
        TLWorkspace::setShared(nullptr);
    }

    // An installed updater whose program records its arguments.
    void installRecordingUpdater()
    {
        // Written through a copy renamed into place, so the record never
        // exists half written.
        test::writeFile(m_installed,
                        "#!/bin/sh\necho \"$@\" > '" + m_record + ".new'\n/bin/mv '" + m_record + ".new' '" + m_record + "'\n");
        ::chmod(m_installed.c_str(), 0755);
        m_workspace->executables[m_installed] = m_installed;
    }

    std::string recordedArguments() const
    {
        for (int wait = 0; wait < 1000 && !fs::exists(m_record); ++wait)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return fs::exists(m_record) ? test::readFile(m_record) : "";
    }

    std::shared_ptr<test::FakeWorkspace> m_workspace = std::make_shared<test::FakeWorkspace>();
    test::TemporaryFolder m_program;
    test::TemporaryFolder m_scratch;
    std::string m_record = m_scratch.file("arguments");
    std::string m_installed;
    std::string m_copy;
};

} // namespace

TEST_F(TLSoftwareUpdateTest, StartupRunsTheUpdaterWithCheckPathUnlessSwitchedOff)
{
    installRecordingUpdater();
    const auto global = TLUserDefaults::forDomain("global");
    ASSERT_TRUE(global->setBool(TLSoftwareUpdate::checkAtStartupKey, false));
    {
        TLSoftwareUpdate updater;
        EXPECT_FALSE(updater.startup());
    }
    ASSERT_TRUE(global->setString(TLSoftwareUpdate::checkAtStartupKey, "NO"));
    TLSoftwareUpdate updater;
    ASSERT_TRUE(updater.startup()) << "only boolean false switches the check off";
    EXPECT_FALSE(updater.startup()) << "one start-up check per object";
    updater.waitForStartupCheck();
    EXPECT_EQ(recordedArguments(), "-checkpath " + m_program.path().string() + "\n");
}

TEST_F(TLSoftwareUpdateTest, UpdaterInsideTheProgramFolderIsCopiedToThePrivateTemporaryFolder)
{
    const auto inResources = m_program.file("Contents/Resources/Quillmoor Software Update.app");
    const auto inMacOS = m_program.file("Contents/MacOS/Quillmoor Software Update.app");
    test::writeFile(inMacOS + "/updater", "from MacOS");
    test::writeFile(m_copy + "/stale", "older copy");
    EXPECT_EQ(TLSoftwareUpdate::updaterPath(), m_copy);
    EXPECT_EQ(test::readFile(m_copy + "/updater"), "from MacOS");
    EXPECT_FALSE(fs::exists(m_copy + "/stale"));
    EXPECT_FALSE(fs::exists(TLLocalPaths::tempDirectory() + "/" + TLSoftwareUpdate::updaterName))
        << "nothing under a fixed name in the shared temporary folder";
    test::writeFile(inResources + "/updater", "from Resources");
    EXPECT_EQ(TLSoftwareUpdate::updaterPath(), m_copy);
    EXPECT_EQ(test::readFile(m_copy + "/updater"), "from Resources");
    installRecordingUpdater();
    EXPECT_EQ(TLSoftwareUpdate::updaterPath(), m_installed) << "the installed updater comes first";
}

TEST_F(TLSoftwareUpdateTest, MissingUpdaterIsQuietAtStartupAndExplainedOnRequest)
{
    testing::internal::CaptureStdout();
    std::string log = test::logOf([] {
        EXPECT_EQ(TLSoftwareUpdate::updaterPath(), std::nullopt);
        EXPECT_FALSE(TLSoftwareUpdate::automaticallyCheckForUpdates());
    });
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "nothing is printed at start-up";
    EXPECT_NE(log.find("No software updater installed"), std::string::npos) << log;

    TLSoftwareUpdate updater;
    const TLUpdateCheck check = updater.manualUpdateCheck();
    EXPECT_FALSE(check.updaterLaunched);
    EXPECT_NE(check.messageText.find("package manager"), std::string::npos) << check.messageText;
    EXPECT_EQ(check.downloadURL, TLSiteLinks::TessalineToolsURL());
    EXPECT_NE(check.informativeText.find(check.downloadURL), std::string::npos) << check.informativeText;
    EXPECT_TRUE(m_workspace->requests().empty());

    test::writeFile(m_installed, "not a program");
    log = test::logOf([] { EXPECT_FALSE(TLSoftwareUpdate::automaticallyCheckForUpdates()); });
    EXPECT_NE(log.find("Unable to launch Software Update - executable path doesn't exist"), std::string::npos);
}

TEST_F(TLSoftwareUpdateTest, ManualCheckOpensTheUpdaterThroughTheWorkspace)
{
    installRecordingUpdater();
    TLSoftwareUpdate updater;
    EXPECT_TRUE(updater.manualUpdateCheck().updaterLaunched);
    const auto requests = m_workspace->requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].kind, "launchApplication");
    EXPECT_EQ(requests[0].values, (std::vector<std::string>{m_installed}));
}
