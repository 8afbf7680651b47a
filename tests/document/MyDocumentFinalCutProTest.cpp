// A Final Cut Pro project's whole road through the Apple Events bridge:
// opened, its xmeml fetched, bins built with the document's commands and
// sent back for import.
#include "MyDocument.h"

#include "FakeAppleEventTransport.h"
#include "ProjectFixtures.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLAppleEventsBridge.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr TLFourCharCode code(const char (&text)[5])
{
    return TLFourCharCodeFromString(text);
}

TEST(MyDocumentFinalCutProTest, OpensFetchesBuildsAndSendsThroughAppleEvents)
{
    const test::TemporaryFolder folder;
    const auto alerts = std::make_shared<test::RecordingAlertPresenter>();
    TLAlert::setPresenter(alerts);
    const std::string project = folder.file("Spots.fcp");
    test::writeFile(project, "binary project");

    auto host = std::make_shared<test::FakeAppleEventTransport>();
    host->openProjects = {project};
    // Final Cut Pro ends its xmeml with a NUL.
    host->xmlReplies[code("eXML")] = test::fixtures::sampleProjectXML() + std::string(1, '\0');
    std::vector<std::string> console;
    TLProjectSources sources;
    sources.finalCutPro = std::make_shared<TLAppleEventsBridge>(
        TLAppleEvents(host, [&](const std::string &line) { console.push_back(line); }));
    MyDocumentServices services;
    services.projectSources = sources;

    {
        MyDocument document(services);
        ASSERT_TRUE(document.readFromURL(project));
        EXPECT_EQ(host->sentIDs(), (std::vector<std::string>{"fcLP", "eXML"}));
        EXPECT_EQ(host->sent[1].parameter(code("fcpP")).data, test::FakeAppleEventTransport::referenceForPath(project));
        ASSERT_TRUE(document.mediaController());
        EXPECT_EQ(document.mediaController()->clips().size(), 3u);

        ASSERT_EQ(document.createRangeClick("Reel [1-2]", nullptr), MyDocument::EditResult::done);
        ASSERT_EQ(document.emptyBinClick(nullptr), MyDocument::EditResult::done);
        const TLNodeList bins = *document.dataArray();
        ASSERT_EQ(bins.size(), 3u);
        document.setObjectValueForItem("Caf\xC3\xA9", bins[2]);

        document.sendToFCPOnThread();
    }
    TLAlert::setPresenter(nullptr);

    ASSERT_EQ(host->sentIDs(), (std::vector<std::string>{"fcLP", "eXML", "iXML"}));
    const auto &import = host->sent.back();
    EXPECT_EQ(import.timeoutTicks, 36000);
    EXPECT_EQ(import.parameter(code("fcpP")).data, test::FakeAppleEventTransport::referenceForPath(project));
    const std::string text = import.parameter(code("xmlD")).data;
    EXPECT_EQ(text.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE xmeml><xmeml version=\"5\">", 0), 0u)
        << text;
    EXPECT_NE(text.find("<name>Reel 1</name>"), std::string::npos) << text;
    EXPECT_NE(text.find("<name>Reel 2</name>"), std::string::npos) << text;
    EXPECT_NE(text.find("<name>Caf&#233;</name>"), std::string::npos) << "escaped for Final Cut Pro: " << text;
    EXPECT_TRUE(console.empty());
    EXPECT_TRUE(alerts->alerts().empty());
    EXPECT_TRUE(std::filesystem::exists(*MyDocument::settingsPathForProject(project)));
    EXPECT_EQ(test::readFile(project), "binary project");
}

} // namespace
