// The conversations with Final Cut Pro, played against a scripted host.
#include "TLAppleEvents.h"

#include "FakeAppleEventTransport.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <regex>
#include <stdexcept>

namespace {

constexpr TLFourCharCode code(const char (&text)[5])
{
    return TLFourCharCodeFromString(text);
}
const std::string project = "/Projects/Show One.fcp";

struct Harness
{
    std::shared_ptr<test::FakeAppleEventTransport> host = std::make_shared<test::FakeAppleEventTransport>();
    std::vector<std::string> console;
    TLAppleEvents events{host, [this](const std::string &line) { console.push_back(line); }};
};

std::string infoPlist(const std::string &version)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + version + "</dict></plist>\n";
}

std::string versionEntry(const std::string &version)
{
    return "<key>CFBundleShortVersionString</key><string>" + version + "</string>";
}

} // namespace

TEST(TLAppleEventsTest, EscapesEachUTF16UnitAndFormatsDataByOneNul)
{
    EXPECT_EQ(TLAppleEvents::escapeCharactersInXMLString("<a x=\"1\">a&b\r</a>"), "<a x=\"1\">a&b&#13;</a>");
    EXPECT_EQ(TLAppleEvents::escapeCharactersInXMLString("\xC3\xA9\xC2\xA0"), "&#233;&#160;");
    EXPECT_EQ(TLAppleEvents::escapeCharactersInXMLString("\xF0\x9F\x98\x80"), "&#55357;&#56832;");
    EXPECT_EQ(TLAppleEvents::escapeCharactersInXMLString("\xC2\x9F\n"), "\xC2\x9F\n");
    EXPECT_EQ(TLAppleEvents::escapeCharactersInXMLString("\xFF"), "&#65533;");
    EXPECT_EQ(TLAppleEvents::escapeCharactersInXMLString(""), "");

    EXPECT_EQ(TLAppleEvents::formatData(""), "");
    EXPECT_EQ(TLAppleEvents::formatData(std::string("ab\0", 3)), "ab");
    EXPECT_EQ(TLAppleEvents::formatData(std::string("ab\0\0", 4)), std::string("ab\0", 3));
    EXPECT_EQ(TLAppleEvents::formatData("ab"), "ab");

    EXPECT_TRUE(std::regex_match(TLAppleEvents::generateUUID(),
                                 std::regex("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}")));
}

TEST(TLAppleEventsTest, VersionsComeFromTheInstalledInfoPlist)
{
    Harness harness;
    test::TemporaryFolder folder;
    harness.host->installedPath = folder.path().string() + "/Final Cut Pro.app";
    EXPECT_EQ(harness.events.finalCutProVersionString(), "7.0"); // no Info.plist
    EXPECT_EQ(harness.events.finalCutProMajorVersion(), 7);
    EXPECT_EQ(harness.events.maximumXMEMLVersion(), 5);

    const auto plist = folder.path() / "Final Cut Pro.app/Contents/Info.plist";
    std::filesystem::create_directories(plist.parent_path());
    const std::pair<const char *, int> cases[] = {{"5.1.1", 2}, {"5.1.2", 3}, {"5.0", 3}, {"4.5", 1},
                                                  {"6.0.6", 4}, {"7.0.3", 5}, {"10.1", 5}};
    for (const auto &[version, xmeml] : cases) {
        test::writeFile(plist, infoPlist(versionEntry(version)));
        EXPECT_EQ(harness.events.maximumXMEMLVersion(), xmeml) << version;
    }
    EXPECT_EQ(harness.events.finalCutProMajorVersion(), 1); // "10.1": the first character only

    test::writeFile(plist, infoPlist(versionEntry("7")));
    EXPECT_EQ(harness.events.finalCutProMajorVersion(), 7);
    EXPECT_THROW(harness.events.maximumXMEMLVersion(), std::out_of_range);

    test::writeFile(plist, infoPlist(""));
    EXPECT_EQ(harness.events.finalCutProVersionString(), std::nullopt);
    EXPECT_EQ(harness.events.finalCutProMajorVersion(), 7);
    EXPECT_EQ(harness.events.maximumXMEMLVersion(), 1);

    test::writeFile(plist, "not a property list");
    EXPECT_EQ(harness.events.finalCutProVersionString(), "7.0");
}

TEST(TLAppleEventsTest, ListsOpenProjectsUntilAnItemFails)
{
    Harness harness;
    harness.host->running = false;
    EXPECT_EQ(harness.events.listOfOpenFCPProjects(), std::nullopt);
    EXPECT_EQ(harness.console, std::vector<std::string>{"Error: Final Cut Pro is not running."});
    EXPECT_TRUE(harness.host->sent.empty());

    harness.host->running = true;
    harness.host->openProjects = {"/a.fcp", "/b.fcp", "/c.fcp"};
    EXPECT_EQ(harness.events.listOfOpenFCPProjects(), (std::vector<std::string>{"/a.fcp", "/b.fcp", "/c.fcp"}));
    const auto &event = harness.host->sent.at(0);
    EXPECT_EQ(event.eventClass, code("KeyG"));
    EXPECT_EQ(event.eventID, code("fcLP"));
    EXPECT_EQ(event.target, "KeyG");
    EXPECT_EQ(event.returnID, -1);
    EXPECT_EQ(event.transactionID, 0);
    EXPECT_EQ(event.sendMode, 3);
    EXPECT_EQ(event.priority, 1);
    EXPECT_EQ(event.timeoutTicks, -1);
    EXPECT_TRUE(event.parameters.empty());

    harness.host->failingRecordField = 2;
    EXPECT_EQ(harness.events.listOfOpenFCPProjects(), std::vector<std::string>{"/a.fcp"});
    harness.host->sendErrors[code("fcLP")] = -609;
    EXPECT_EQ(harness.events.listOfOpenFCPProjects(), std::vector<std::string>{});
    EXPECT_EQ(harness.console.size(), 1u);
}

TEST(TLAppleEventsTest, SendsEscapedXMLForImportWithItsTimeOut)
{
    Harness harness;
    EXPECT_TRUE(harness.events.sendXMLToFCP("<xmeml>\xC3\xA9\r</xmeml>", project));
    const auto &event = harness.host->sent.at(0);
    EXPECT_EQ(event.eventID, code("iXML"));
    EXPECT_EQ(event.timeoutTicks, 36000);
    ASSERT_EQ(event.parameters.size(), 2u);
    EXPECT_EQ(event.parameters[0].keyword, code("fcpP"));
    EXPECT_EQ(event.parameters[0].type, code("fsrf"));
    EXPECT_EQ(event.parameters[0].data, test::FakeAppleEventTransport::referenceForPath(project));
    EXPECT_EQ(event.parameters[1].keyword, code("xmlD"));
    EXPECT_EQ(event.parameters[1].type, code("utf8"));
    EXPECT_EQ(event.parameters[1].data, "<xmeml>&#233;&#13;</xmeml>");

    harness.host->everyPathReferenced = false;
    EXPECT_TRUE(harness.events.sendXMLToFCP("<xmeml/>", project));
    EXPECT_EQ(harness.host->sent.at(1).parameters.size(), 1u);
    EXPECT_TRUE(harness.events.sendXMLToFCP("<xmeml/>", std::nullopt));

    harness.host->putErrors[code("xmlD")] = -50;
    EXPECT_FALSE(harness.events.sendXMLToFCP("<xmeml/>", std::nullopt));
    harness.host->putErrors.clear();
    harness.host->sendErrors[code("iXML")] = -1712;
    EXPECT_FALSE(harness.events.sendXMLToFCP("<xmeml/>", std::nullopt));
    harness.host->eventErrors[code("iXML")] = -1708;
    EXPECT_FALSE(harness.events.sendXMLToFCP("<xmeml/>", std::nullopt));
    harness.host->addressError = -1700;
    EXPECT_FALSE(harness.events.sendXMLToFCP("<xmeml/>", std::nullopt));
    EXPECT_EQ(harness.console,
              (std::vector<std::string>{"Error adding XML data to event: -50", "Error sending AppleEvent: -1712",
                                        "Error creating AppleEvent: -1708", "Error creating AEDescription: -1700"}));

    std::vector<std::string> console;
    TLAppleEvents hostless(TLAppleEventTransport::withoutHost(), [&](const std::string &line) { console.push_back(line); });
    EXPECT_FALSE(hostless.sendXMLToFCP("<xmeml/>", project));
    EXPECT_EQ(console, std::vector<std::string>{"Error sending AppleEvent: -600"});
    EXPECT_EQ(hostless.getProjectXML(project, true), std::nullopt);

#ifndef __APPLE__
    // Without a transport the system's own is used, here the hostless one.
    console.clear();
    const TLAppleEvents standard(nullptr, [&](const std::string &line) { console.push_back(line); });
    EXPECT_FALSE(standard.sendXMLToFCP("<xmeml/>", project));
    EXPECT_EQ(console, std::vector<std::string>{"Error sending AppleEvent: -600"});
    EXPECT_FALSE(standard.isFCPRunning());
    EXPECT_EQ(standard.maximumXMEMLVersion(), 5) << "no Final Cut Pro installed reads as version 7.0";
#endif
}

TEST(TLAppleEventsTest, FetchesProjectXMLAndClosesOnlyWhatItOpened)
{
    Harness harness;
    harness.host->xmlReplies[code("eXML")] = std::string("<xmeml/>\0\0", 10);
    harness.host->running = false;
    EXPECT_EQ(harness.events.getProjectXMLData(project, false), std::nullopt);
    EXPECT_TRUE(harness.host->sent.empty());
    EXPECT_TRUE(harness.console.empty());

    // Launching opens the project and sends at once; the host is still not
    // listing it, so the project counts as not open before and is closed.
    harness.host->running = true;
    EXPECT_EQ(harness.events.getProjectXMLData(project, true, true), std::string("<xmeml/>\0", 9));
    ASSERT_EQ(harness.host->opened.size(), 1u);
    EXPECT_EQ(harness.host->opened[0].path, project);
    EXPECT_EQ(harness.host->opened[0].bundleIdentifier, "com.apple.FinalCutPro");
    EXPECT_EQ(harness.host->opened[0].launch, TLAppleEventLaunch::async);
    EXPECT_EQ(harness.host->sentIDs(), (std::vector<std::string>{"fcLP", "eXML", "cfcP"}));
    EXPECT_EQ(harness.host->sent[1].parameters.at(0).keyword, code("fcpP"));
    EXPECT_EQ(harness.host->sent[1].timeoutTicks, -1);
    EXPECT_EQ(harness.host->sent[2].parameter(code("fcCF")).data, std::string(4, '\0'));

    harness.host->sent.clear();
    harness.host->openProjects = {project};
    harness.host->xmlReplies[code("eXML")] = std::string("<xmeml/>\0", 9);
    EXPECT_EQ(harness.events.getProjectXML(project, false, true), "<xmeml/>");
    EXPECT_EQ(harness.host->sentIDs(), (std::vector<std::string>{"fcLP", "eXML"}));

    harness.host->xmlReplies[code("eXML")] = "<xmeml>\xFF</xmeml>";
    EXPECT_EQ(harness.events.getProjectXML(project), std::nullopt);
    EXPECT_EQ(harness.events.getProjectXMLData(project, false), "<xmeml>\xFF</xmeml>");
    EXPECT_TRUE(harness.console.empty());

    harness.host->openProjects.clear();
    EXPECT_EQ(harness.events.getProjectXML(project), std::nullopt);
    EXPECT_EQ(harness.console, std::vector<std::string>{"Error: project is not open."});
}

TEST(TLAppleEventsTest, FetchReportsEachFailingStep)
{
    Harness harness;
    harness.host->openProjects = {project};
    harness.host->xmlReplies = {{code("eXML"), "<xmeml/>"}, {code("gXML"), "<clip/>"}, {code("eTCX"), "<toc/>"}};
    harness.host->dataError = -108;
    EXPECT_EQ(harness.events.getProjectXMLData(project, false), std::nullopt);
    harness.host->replyParameterError = -1701;
    EXPECT_EQ(harness.events.getProjectXMLData(project, false), std::nullopt);
    harness.host->sendErrors[code("gXML")] = -1712;
    EXPECT_EQ(harness.events.getItemXMLData("ID-1", project, false), std::nullopt);
    harness.host->putErrors[code("fcIU")] = -50;
    EXPECT_EQ(harness.events.getItemXMLData("ID-1", project, false), std::nullopt);
    harness.host->putErrors[code("fcpP")] = -50;
    EXPECT_EQ(harness.events.getItemXMLData("ID-1", project, false), std::nullopt);
    harness.host->eventErrors[code("eTCX")] = -1708;
    EXPECT_EQ(harness.events.getTOCData(project, false), std::nullopt);
    // The listing's address comes first; the fetch's own is the next one.
    harness.host->failingAddressCall = harness.host->addressCalls + 2;
    harness.host->addressError = -1700;
    EXPECT_EQ(harness.events.getTOCData(project, false), std::nullopt);
    EXPECT_EQ(harness.console,
              (std::vector<std::string>{"Error retrieving XML data", "Error getting XML information",
                                        "Error sending AppleEvent",
                                        "Error adding destination project file to AppleEvent query",
                                        "Error adding project file to AppleEvent query", "Error creating AppleEvent",
                                        "Error creating app description"}));
}

TEST(TLAppleEventsTest, ItemAndTableOfContentsFetchesNeverCloseThroughTheStringForms)
{
    Harness harness;
    harness.host->xmlReplies[code("gXML")] = "<clip/>";
    harness.host->xmlReplies[code("eTCX")] = "<toc/>";
    EXPECT_EQ(harness.events.getItemXML("ID-1", project, true, true), "<clip/>");
    EXPECT_EQ(harness.host->sentIDs(), (std::vector<std::string>{"fcLP", "gXML"}));
    EXPECT_EQ(harness.host->sent[1].parameter(code("fcIU")).data, "ID-1");
    EXPECT_EQ(harness.host->sent[1].parameter(code("fcIU")).type, code("utf8"));

    harness.host->sent.clear();
    EXPECT_EQ(harness.events.getTOC(project), std::nullopt); // not open: silent
    EXPECT_TRUE(harness.console.empty());
    EXPECT_EQ(harness.events.getTOC(project, true), "<toc/>");
    EXPECT_EQ(harness.host->opened.back().launch, TLAppleEventLaunch::withoutActivation);
    EXPECT_EQ(harness.host->sentIDs(), (std::vector<std::string>{"fcLP", "fcLP", "eTCX"}));

    harness.host->everyPathReferenced = false;
    harness.host->sent.clear();
    EXPECT_EQ(harness.events.getItemXMLData("ID-1", project, true), "<clip/>");
    EXPECT_TRUE(harness.host->sent.back().parameters.empty());
}

TEST(TLAppleEventsTest, OpensSavesAndClosesProjects)
{
    Harness harness;
    const std::string path = "/Projects/\xC3\xA9t\xC3\xA9 one%.fcp";
    harness.host->openProjects = {path};
    harness.events.openItem("ID-7", path, false);
    EXPECT_EQ(harness.host->sentIDs(), (std::vector<std::string>{"fcLP", "fcOI"}));
    EXPECT_EQ(harness.host->sent[1].parameter(code("fcIU")).data, "ID-7");

    harness.host->sent.clear();
    EXPECT_TRUE(harness.events.saveProject(path));
    const auto &save = harness.host->sent.at(0);
    EXPECT_EQ(save.eventID, code("sfcP"));
    EXPECT_EQ(save.parameter(code("fcpU")).type, code("furl"));
    EXPECT_EQ(save.parameter(code("fcpU")).data, "/Projects/%C3%A9t%C3%A9%20one%25.fcp");
    EXPECT_EQ(save.parameter(code("fsOF")).type, code("bool"));
    EXPECT_EQ(save.parameter(code("fsOF")).data, "\x01");

    harness.events.closeProject(path, false);
    const auto &close = harness.host->sent.at(1);
    EXPECT_EQ(close.eventID, code("cfcP"));
    EXPECT_EQ(close.parameter(code("fcCF")).type, code("long"));
    const std::int32_t discard = 1;
    EXPECT_EQ(close.parameter(code("fcCF")).data, std::string(reinterpret_cast<const char *>(&discard), 4));

    harness.host->putErrors[code("fsOF")] = -50;
    EXPECT_FALSE(harness.events.saveProject(path));
    harness.host->sendErrors[code("fcOI")] = -1712;
    harness.events.openItem("ID-7", path, false);
    harness.host->running = false;
    EXPECT_FALSE(harness.events.saveProject(path));
    EXPECT_EQ(harness.console,
              (std::vector<std::string>{"Error adding overwrite flag to AppleEvent query", "Error sending AppleEvent",
                                        "Error: Final Cut Pro is not running."}));
}

TEST(TLAppleEventsTest, GuardedOperationsSwallowTransportExceptions)
{
    struct ThrowingHost : test::FakeAppleEventTransport
    {
        TLAppleEventResult send(const TLAppleEventDescriptor &, std::int32_t, std::int16_t, std::int32_t) override
        {
            throw std::runtime_error("host vanished");
        }
    };
    auto host = std::make_shared<ThrowingHost>();
    TLAppleEvents events(host, [](const std::string &) {});
    EXPECT_EQ(events.listOfOpenFCPProjects(), std::nullopt);
    EXPECT_FALSE(events.sendXMLToFCP("<xmeml/>", project));
    EXPECT_EQ(events.getProjectXMLData(project, true), std::nullopt);
    EXPECT_FALSE(events.saveProject(project));
    EXPECT_NO_THROW(events.closeProject(project, true));
}

TEST(TLAppleEventsTest, SequencesInProjectKeepOnlyNamedSequences)
{
    Harness harness;
    harness.host->openProjects = {project};
    harness.host->xmlReplies[code("eTCX")] =
        "<toc><sequence><name>A</name></sequence><sequence/><bin><sequence><name>B</name></sequence></bin></toc>";
    const auto sequences = harness.events.sequencesInProject(project);
    ASSERT_TRUE(sequences);
    ASSERT_EQ(sequences->sequences.size(), 2u);
    EXPECT_STREQ(sequences->sequences[1].child_value("name"), "B");

    harness.host->xmlReplies[code("eTCX")] = "<toc><sequence>";
    EXPECT_EQ(harness.events.sequencesInProject(project), std::nullopt);
    ASSERT_EQ(harness.console.size(), 1u);
    EXPECT_EQ(harness.console[0].rfind("Error: ", 0), 0u);
    harness.host->xmlReplies[code("eTCX")] = "";
    EXPECT_EQ(harness.events.sequencesInProject(project), std::nullopt);
}
