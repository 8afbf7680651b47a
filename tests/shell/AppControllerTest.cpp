#include "AppController.h"

#include "FakeWorkspace.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLLocalPaths.h"
#include "TLSiteLinks.h"
#include "TLUserDefaults.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace {

// Records what the controller asks of the windows and panels, and answers
// as prepared.
class FakeAppPlatform : public AppControllerPlatform
{
public:
    int panelsShown = 0;
    AppOpenPanelOptions lastOptions;
    // What the user picks in the panel; none cancels it.
    std::optional<std::vector<std::string>> chosenFiles;
    std::vector<std::string> openedPaths;
    std::map<std::string, std::string> failures; // path -> reason
    bool keyWindow = false;
    MyDocument *document = nullptr;
    int loaderShown = 0;
    bool aboutLoads = true;
    std::vector<std::pair<std::chrono::milliseconds, std::function<void()>>> delayed;

    void runOpenPanel(const AppOpenPanelOptions &options, OpenPanelCompletion chosen) override
    {
        ++panelsShown;
        lastOptions = options;
        if (chosenFiles)
            chosen(*chosenFiles);
    }
    std::optional<std::string> openDocument(const std::string &path) override
    {
        openedPaths.push_back(path);
        const auto failure = failures.find(path);
        if (failure == failures.end())
            return std::nullopt;
        return failure->second;
    }
    bool hasKeyWindow() const override { return keyWindow; }
    MyDocument *currentDocument() const override { return document; }
    void showProjectLoader() override { ++loaderShown; }
    bool showAboutPanel() override { return aboutLoads; }
    void performAfterDelay(std::chrono::milliseconds delay, std::function<void()> work) override
    {
        delayed.emplace_back(delay, std::move(work));
    }
};

class AppControllerTest : public ::testing::Test
{
protected:
    AppControllerTest()
    {
        TLAlert::setPresenter(alerts);
        TLWorkspace::setShared(workspace);
        std::filesystem::remove(prefsFile("Corvale"));
        std::filesystem::remove(prefsFile("qc"));
    }
    ~AppControllerTest() override
    {
        TLAlert::setPresenter(nullptr);
        TLWorkspace::setShared(nullptr);
    }

    static std::string prefsFile(const std::string &domain)
    {
        return TLLocalPaths::prefsDirectory(true).value_or("") + "/com.quillmoor." + domain + ".plist";
    }

    std::shared_ptr<test::RecordingAlertPresenter> alerts = std::make_shared<test::RecordingAlertPresenter>();
    std::shared_ptr<test::FakeWorkspace> workspace = std::make_shared<test::FakeWorkspace>();
    FakeAppPlatform platform;
    AppController controller{platform};
};

} // namespace

TEST_F(AppControllerTest, StartupShowsThePanelOnlyWhileTheDefaultIsOne)
{
    controller.initialize();
    EXPECT_FALSE(controller.applicationShouldOpenUntitledFile());
    EXPECT_EQ(platform.panelsShown, 1);

    for (const std::int64_t value : {0, 2}) {
        ASSERT_TRUE(TLUserDefaults::standard()->setInteger(AppController::showOpenDialogAtStartupKey, value));
        controller.performStartupAction();
    }
    ASSERT_TRUE(TLUserDefaults::standard()->setString(AppController::showOpenDialogAtStartupKey, "no"));
    controller.performStartupAction();
    EXPECT_EQ(platform.panelsShown, 1);
}

TEST_F(AppControllerTest, DelayedStartupCheckSkipsThePanelWhenAWindowIsInFront)
{
    controller.initialize();
    controller.applicationDidFinishLaunching();
    ASSERT_EQ(platform.delayed.size(), 1u);
    EXPECT_EQ(platform.delayed[0].first, std::chrono::seconds(1));

    platform.keyWindow = true;
    platform.delayed[0].second();
    EXPECT_EQ(platform.panelsShown, 0);
    // A panel cancelled within the second comes back once.
    platform.keyWindow = false;
    platform.delayed[0].second();
    EXPECT_EQ(platform.panelsShown, 1);
}

TEST_F(AppControllerTest, OpenPanelOpensEveryChosenFileAndReportsUnexplainedFailures)
{
    platform.chosenFiles = std::vector<std::string>{"/p/a.xml", "/p/b.fcp", "/p/c.xml"};
    platform.failures["/p/b.fcp"] = "No such file.";
    platform.failures["/p/c.xml"] = ""; // refused with its own alert already
    controller.openFile();

    EXPECT_EQ(platform.lastOptions.message, "Browse for a Final Cut Pro project or XML file:");
    EXPECT_EQ(platform.lastOptions.allowedExtensions, (std::vector<std::string>{"fcp", "xml"}));
    EXPECT_TRUE(platform.lastOptions.allowsMultipleSelection);
    EXPECT_FALSE(platform.lastOptions.canChooseDirectories);
    EXPECT_FALSE(platform.lastOptions.canCreateDirectories);
    EXPECT_EQ(platform.openedPaths, *platform.chosenFiles);
    ASSERT_EQ(alerts->alerts().size(), 1u);
    EXPECT_EQ(alerts->alerts()[0].message, "The document could not be opened.");
    EXPECT_EQ(alerts->alerts()[0].informativeText, "/p/b.fcp\nNo such file.");

    EXPECT_TRUE(controller.applicationOpenFile("/p/a.xml"));
    EXPECT_FALSE(controller.applicationOpenFile("/p/c.xml"));
    platform.chosenFiles.reset();
    controller.openFile();
    EXPECT_EQ(platform.openedPaths.size(), 5u);
}

TEST_F(AppControllerTest, CommandSSavesWithoutADocumentAndSendsForAPremiereProject)
{
    using Action = MyDocument::MenuAction;
    auto save = controller.validateUserInterfaceItem(Action::save);
    auto send = controller.validateUserInterfaceItem(Action::sendToFCP);
    EXPECT_TRUE(save.enabled && !save.hidden);
    EXPECT_EQ(save.keyEquivalent, "s");
    EXPECT_TRUE(!send.enabled && send.hidden);
    EXPECT_EQ(send.keyEquivalent, "");
    EXPECT_EQ(send.title, "Send to Final Cut Pro");
    EXPECT_TRUE(controller.validateUserInterfaceItem(Action::revert).enabled);

    MyDocument premiere;
    premiere.setPremiereProject(true);
    platform.document = &premiere;
    save = controller.validateUserInterfaceItem(Action::save);
    send = controller.validateUserInterfaceItem(Action::sendToFCP);
    EXPECT_TRUE(!save.enabled && save.hidden);
    EXPECT_EQ(save.keyEquivalent, "");
    EXPECT_TRUE(send.enabled && !send.hidden);
    EXPECT_EQ(send.keyEquivalent, "s");
    EXPECT_EQ(send.title, "Send to Premiere Pro");
    EXPECT_TRUE(controller.validateUserInterfaceItem(Action::other).enabled);
}

TEST_F(AppControllerTest, OpeningAFinalCutProProjectNeedsFinalCutProRunning)
{
    using Action = MyDocument::MenuAction;
    EXPECT_FALSE(controller.validateUserInterfaceItem(Action::openFCPProject).enabled);
    workspace->running.push_back({"com.apple.FinalCutPro", 42, "/fcp"});
    EXPECT_TRUE(controller.validateUserInterfaceItem(Action::openFCPProject).enabled);
    controller.openFCPProject();
    EXPECT_EQ(platform.loaderShown, 1);
}

TEST_F(AppControllerTest, QCLoggingSwitchIsWrittenAndReplacesADamagedFile)
{
    EXPECT_FALSE(AppController::isQCLoggingEnabled());
    controller.prefsToggleQCLogging(true);
    EXPECT_TRUE(AppController::isQCLoggingEnabled());
    EXPECT_NE(test::readFile(prefsFile("qc")).find("<key>logQC</key>"), std::string::npos);
    controller.prefsToggleQCLogging(false);
    EXPECT_FALSE(AppController::isQCLoggingEnabled());

    test::writeFile(prefsFile("qc"), "<plist><dict><key>logQC");
    controller.prefsToggleQCLogging(true);
    EXPECT_TRUE(AppController::isQCLoggingEnabled());
}

TEST_F(AppControllerTest, UserManualOpensOnlyWhenItExists)
{
    controller.helpUserManual();
    EXPECT_TRUE(workspace->requests().empty());

    const std::string manual = *AppController::userManualPath();
    EXPECT_NE(manual.find("/Documentation/Quillmoor/Tessaline User Manual.pdf"), std::string::npos);
    std::filesystem::create_directories(std::filesystem::path(manual).parent_path());
    test::writeFile(manual, "%PDF");
    controller.helpUserManual();
    ASSERT_EQ(workspace->requests().size(), 1u);
    EXPECT_EQ(workspace->requests()[0].kind, "openFile");
    EXPECT_EQ(workspace->requests()[0].values, std::vector<std::string>{manual});
    std::filesystem::remove(manual);
}

TEST_F(AppControllerTest, AboutPanelThatCannotLoadIsLoggedAndShown)
{
    controller.showAboutDialog();
    EXPECT_TRUE(alerts->alerts().empty());

    platform.aboutLoads = false;
    const std::string log = test::logOf([&] { controller.showAboutDialog(); });
    EXPECT_NE(log.find("Error: unable to load About dialog. Please report this error to Quillmoor."),
              std::string::npos);
    ASSERT_EQ(alerts->alerts().size(), 1u);
    EXPECT_EQ(alerts->alerts()[0].message, "Error: unable to load About dialog.");
    EXPECT_EQ(alerts->alerts()[0].informativeText, "Please report this error to Quillmoor.");
    EXPECT_EQ(alerts->alerts()[0].parentWindow, nullptr);
}

TEST_F(AppControllerTest, HelpLinksNameTheProductFamilyAndTheShortName)
{
    controller.helpTessalineHome();
    controller.helpReportBug();
    controller.helpSuggestFeature();
    controller.helpSupport();
    controller.helpTLHome();
    const auto requests = workspace->requests();
    ASSERT_EQ(requests.size(), 5u);
    const std::vector<std::string> expected = {
        TLSiteLinks::TessalineToolsURL(),
        TLSiteLinks::bugReportURLWithAppName("tessaline", std::string("tessa_line")),
        TLSiteLinks::featureRequestURLWithAppName("tessaline", std::string("tessa_line")),
        TLSiteLinks::supportURLForAppName("tessaline"),
        TLSiteLinks::quillmoorURL(),
    };
    for (std::size_t index = 0; index < expected.size(); ++index) {
        EXPECT_EQ(requests[index].kind, "openURL");
        EXPECT_EQ(requests[index].values, std::vector<std::string>{expected[index]});
    }
    EXPECT_NE(expected[1].find("/support/tessaline/bugreport/?app=tessa_line"), std::string::npos);

    AppController named(platform, std::string("corvale"));
    named.helpSuggestFeature();
    EXPECT_NE(workspace->requests().back().values[0].find("?app=corvale"), std::string::npos);
}

TEST_F(AppControllerTest, CleanExitIsStampedAfterTheLaunch)
{
    controller.initialize();
    const auto launch = TLUserDefaults::standard()->dateForKey("launch");
    ASSERT_TRUE(launch.has_value());
    controller.applicationWillTerminate();
    const auto exit = TLUserDefaults::standard()->dateForKey("exit");
    ASSERT_TRUE(exit.has_value());
    EXPECT_GE(*exit, *launch);
}

TEST(AppControllerDeathTest, AnEscapingExceptionIsLoggedWithItsType)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            // The console copy of the line goes to standard output; the check
            // reads standard error.
            dup2(STDERR_FILENO, STDOUT_FILENO);
            AppController::installTerminateHandler();
            TLLog::sharedController().setNoPrinting(false);
            std::thread([] { throw std::out_of_range("no such bin"); }).join();
        },
        "Exception in terminate\\. std::out_of_range - no such bin\\.");
}
