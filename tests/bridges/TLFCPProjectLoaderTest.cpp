// The project loader lists Final Cut Pro's open projects once and opens the
// chosen ones in row order, reporting each failure on its own.
#include "TLFCPProjectLoader.h"

#include "FakeAppleEventTransport.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

class TLFCPProjectLoaderTest : public testing::Test
{
protected:
    TLFCPProjectLoaderTest() { TLAlert::setPresenter(alerts); }
    ~TLFCPProjectLoaderTest() override { TLAlert::setPresenter(nullptr); }

    std::unique_ptr<TLFCPProjectLoader> makeLoader()
    {
        auto open = [this](const std::string &path) -> std::optional<std::string> {
            opened.push_back(path);
            if (path == failing)
                return "The file is damaged.";
            return std::nullopt;
        };
        return std::make_unique<TLFCPProjectLoader>(
            TLAppleEvents(host, [this](const std::string &line) { console.push_back(line); }), open,
            [this] { ++windowCloses; });
    }

    std::shared_ptr<test::FakeAppleEventTransport> host = std::make_shared<test::FakeAppleEventTransport>();
    std::shared_ptr<test::RecordingAlertPresenter> alerts = std::make_shared<test::RecordingAlertPresenter>();
    std::vector<std::string> opened;
    std::vector<std::string> console;
    std::string failing;
    int windowCloses = 0;
};

TEST_F(TLFCPProjectLoaderTest, ListIsTakenOnceAndFillsTheTable)
{
    host->openProjects = {"/Projects/A.fcp", "/Projects/B.fcp"};
    const auto loader = makeLoader();
    EXPECT_FALSE(loader->isOpenButtonEnabled());
    EXPECT_TRUE(host->sent.empty()) << "nothing is asked before the dialog is loaded";

    loader->awakeFromNib();
    EXPECT_TRUE(loader->hasModalSession());
    EXPECT_TRUE(loader->isOpenButtonEnabled());
    ASSERT_EQ(loader->numberOfRowsInTableView(), 2u);
    EXPECT_EQ(loader->objectValueForRow(1), "/Projects/B.fcp");
    EXPECT_EQ(loader->objectValueForRow(2), "");

    host->openProjects.push_back("/Projects/C.fcp");
    loader->awakeFromNib();
    EXPECT_EQ(loader->numberOfRowsInTableView(), 2u) << "the list is not refreshed while the dialog is up";
    EXPECT_EQ(host->sentIDs(), std::vector<std::string>{"fcLP"});
}

TEST_F(TLFCPProjectLoaderTest, FinalCutProNotRunningGivesAnEmptyListAndADisabledButton)
{
    host->running = false;
    const auto loader = makeLoader();
    loader->awakeFromNib();
    EXPECT_EQ(loader->numberOfRowsInTableView(), 0u);
    EXPECT_FALSE(loader->isOpenButtonEnabled());
    EXPECT_EQ(console, std::vector<std::string>{"Error: Final Cut Pro is not running."});
    EXPECT_FALSE(loader->openProject({0}));
    EXPECT_TRUE(opened.empty());
}

TEST_F(TLFCPProjectLoaderTest, OpensSelectedRowsInAscendingOrderAndReportsEachFailure)
{
    host->openProjects = {"/P/One.fcp", "/P/Two.fcp", "/P/Three.fcp", "/P/Four.fcp"};
    failing = "/P/Two.fcp";
    const auto loader = makeLoader();
    loader->awakeFromNib();

    EXPECT_FALSE(loader->openProject({}));
    EXPECT_FALSE(loader->openProject({7}));
    EXPECT_TRUE(loader->hasModalSession()) << "nothing selected leaves the dialog up";
    EXPECT_EQ(windowCloses, 0);

    EXPECT_TRUE(loader->openProject({3, 1, 0, 3, 9}));
    EXPECT_EQ(opened, (std::vector<std::string>{"/P/One.fcp", "/P/Two.fcp", "/P/Four.fcp"}));
    EXPECT_FALSE(loader->hasModalSession());
    EXPECT_EQ(windowCloses, 1);
    const auto shown = alerts->alerts();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].message, "Error loading project");
    EXPECT_EQ(shown[0].informativeText, "The file is damaged.");
    EXPECT_EQ(shown[0].parentWindow, nullptr);
}

TEST_F(TLFCPProjectLoaderTest, ThrowingOrMissingOpenerIsReportedAndTheRestStillOpen)
{
    host->openProjects = {"/P/One.fcp", "/P/Two.fcp"};
    std::vector<std::string> tried;
    TLFCPProjectLoader loader(TLAppleEvents(host, [](const std::string &) {}), [&](const std::string &path) {
        tried.push_back(path);
        if (path == "/P/One.fcp")
            throw std::runtime_error("boom");
        return std::optional<std::string>();
    });
    loader.awakeFromNib();
    EXPECT_TRUE(loader.openProject({0, 1}));
    EXPECT_EQ(tried, (std::vector<std::string>{"/P/One.fcp", "/P/Two.fcp"}));

    TLFCPProjectLoader withoutOpener(TLAppleEvents(host, [](const std::string &) {}), nullptr);
    withoutOpener.awakeFromNib();
    EXPECT_TRUE(withoutOpener.openProject({1}));
    const auto shown = alerts->alerts();
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[0].informativeText, "The document could not be opened.");
    EXPECT_EQ(shown[1].informativeText, "The document could not be opened.");
}

TEST_F(TLFCPProjectLoaderTest, CloseBoxAndCloseActionEndTheSessionOnce)
{
    host->openProjects = {"/P/One.fcp"};
    const auto loader = makeLoader();
    loader->awakeFromNib();
    loader->windowWillClose();
    EXPECT_FALSE(loader->hasModalSession());
    EXPECT_EQ(windowCloses, 1);
    loader->closeDialog();
    EXPECT_EQ(windowCloses, 1) << "an ended session is not ended again";
    EXPECT_TRUE(opened.empty());
}

TEST_F(TLFCPProjectLoaderTest, UnloadableDialogSaysToReinstall)
{
    testing::internal::CaptureStderr();
    TLFCPProjectLoader::reportUnloadableDialog();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Critical error: unable to load FCP project loader dialog. You must reinstall the application.\n");
    const auto shown = alerts->alerts();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].message, "Critical error: unable to load FCP project loader dialog.");
    EXPECT_EQ(shown[0].informativeText, "You must reinstall the application.");
    EXPECT_EQ(shown[0].description.defaultButtonTitle, "OK");
    EXPECT_EQ(shown[0].parentWindow, nullptr);
}

} // namespace
