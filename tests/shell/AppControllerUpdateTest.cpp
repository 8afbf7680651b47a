// Help > Check for Updates on a computer without the maker's updater.
#include "AppController.h"

#include "FakeWorkspace.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLSiteLinks.h"
#include "TLSoftwareUpdate.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

namespace {

// A platform with no windows: the update check needs none.
class WindowlessPlatform : public AppControllerPlatform
{
public:
    void runOpenPanel(const AppOpenPanelOptions &, OpenPanelCompletion) override {}
    std::optional<std::string> openDocument(const std::string &) override { return std::nullopt; }
    bool hasKeyWindow() const override { return false; }
    MyDocument *currentDocument() const override { return nullptr; }
    void showProjectLoader() override {}
    bool showAboutPanel() override { return true; }
    void performAfterDelay(std::chrono::milliseconds, std::function<void()>) override {}
};

} // namespace

TEST(AppControllerUpdateTest, WithoutAnUpdaterTheUserIsToldWhereUpdatesComeFrom)
{
    const test::TemporaryFolder program;
    TLSoftwareUpdate::overrideProgramFolder(program.path().string());
    const TLUpdateCheck advice = TLSoftwareUpdate::whereUpdatesComeFrom();
    for (const int answer : {0, 1}) {
        SCOPED_TRACE(answer);
        auto alerts = std::make_shared<test::RecordingAlertPresenter>();
        alerts->returnCode = answer;
        auto workspace = std::make_shared<test::FakeWorkspace>();
        TLAlert::setPresenter(alerts);
        TLWorkspace::setShared(workspace);
        WindowlessPlatform platform;
        AppController controller(platform);

        controller.checkForUpdates();
        ASSERT_EQ(alerts->alerts().size(), 1u);
        EXPECT_EQ(alerts->alerts()[0].message, advice.messageText);
        EXPECT_EQ(alerts->alerts()[0].informativeText, advice.informativeText);
        const auto requests = workspace->requests();
        if (answer == 1) {
            ASSERT_EQ(requests.size(), 1u);
            EXPECT_EQ(requests[0].kind, "openURL");
            EXPECT_EQ(requests[0].values, std::vector<std::string>{TLSiteLinks::TessalineToolsURL()});
        } else {
            EXPECT_TRUE(requests.empty()) << "OK opens nothing";
        }
    }
    TLAlert::setPresenter(nullptr);
    TLWorkspace::setShared(nullptr);
    TLSoftwareUpdate::overrideProgramFolder(std::nullopt);
}
