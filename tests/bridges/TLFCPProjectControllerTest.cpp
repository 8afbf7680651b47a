// The project controller: loading from each source, queries, clip lookup
// and the master-clip path table, with the hosts replaced by fakes.
#include "TLFCPProjectController.h"

#include "FakeAlertPresenter.h"
#include "FakeFileWaiting.h"
#include "FakeFinalCutProBridge.h"
#include "FakePremiereBridge.h"
#include "TLPremiereEvents.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <thread>

namespace {

const char *const projectXML = R"(<?xml version="1.0" encoding="UTF-8"?>
<xmeml version="5">
  <project>
    <name>Demo</name>
    <children>
      <bin>
        <name>Selects</name>
        <uuid>BIN-1</uuid>
        <children>
          <clip id="a"><name>Nested</name>
            <media><video><track><clipitem id="a1">
              <uuid>NESTED-1</uuid><masterclipid>M1</masterclipid>
              <file id="f1"><pathurl>file://localhost/one.mov</pathurl></file>
            </clipitem></track></video></media>
          </clip>
        </children>
      </bin>
      <clip id="b"><name>First</name><uuid>CLIP-2</uuid>
        <file id="f2"><pathurl>file://localhost/two.mov</pathurl></file>
      </clip>
      <clip id="c"><name>Second</name><uuid>CLIP-2</uuid>
        <media><audio><track><clipitem id="c1"><masterclipid>M1</masterclipid>
          <file id="f3"><pathurl>file://localhost/three.mov</pathurl></file>
        </clipitem></track></audio></media>
      </clip>
      <clip id="d"><name>Third</name><uuid>BIN-1</uuid>
        <media><video><track><clipitem id="d1">
          <file id="f4"><pathurl>file://localhost/four.mov</pathurl></file>
        </clipitem><clipitem id="d2"><masterclipid/>
          <file id="f5"><pathurl>file://localhost/five.mov</pathurl></file>
        </clipitem></track></video></media>
      </clip>
    </children>
  </project>
</xmeml>
)";

struct Hosts
{
    std::shared_ptr<test::FakeFinalCutProBridge> finalCutPro =
        std::make_shared<test::FakeFinalCutProBridge>();
    std::shared_ptr<test::FakePremiereBridge> premiere = std::make_shared<test::FakePremiereBridge>();
    std::shared_ptr<test::FakeFileWaiting> fileWaiting = std::make_shared<test::FakeFileWaiting>();
    std::shared_ptr<test::FakeAlertPresenter> alerts = std::make_shared<test::FakeAlertPresenter>();

    TLProjectSources sources() const { return {finalCutPro, premiere, fileWaiting, alerts}; }
};

std::string nameOf(pugi::xml_node node)
{
    return node.child("name").text().get();
}

std::string writeProject(const test::TemporaryFolder &folder, std::string_view contents = projectXML,
                         std::string_view name = "project.xml")
{
    const auto path = folder.file(name);
    test::writeFile(path, contents);
    return path;
}

} // namespace

TEST(TLFCPProjectControllerTest, NewControllerHoldsAnEmptyDocument)
{
    TLFCPProjectController controller;
    ASSERT_NE(controller.xmlDoc(), nullptr);
    EXPECT_FALSE(controller.xmlDoc()->first_child());
    EXPECT_TRUE(controller.clips().empty());
    EXPECT_TRUE(controller.masterClipPaths().empty());
    EXPECT_TRUE(controller.stringValuesForQuery(".//clip").empty());
    EXPECT_FALSE(controller.clipNodeWithUUID("CLIP-2"));
}

TEST(TLFCPProjectControllerTest, FileLoadKeepsTheDocumentForMissingPathsAndDropsItForNonXML)
{
    test::TemporaryFolder folder;
    TLFCPProjectController controller;
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder)));
    EXPECT_EQ(controller.stringValuesForQuery(".//project/name"),
              std::vector<std::string>{"Demo"});

    EXPECT_FALSE(controller.setXmlDocFromFilePath(folder.file("missing.xml")));
    EXPECT_FALSE(controller.xmlDocSelect(folder.path().string())) << "a folder is not a file";
    EXPECT_EQ(controller.stringValuesForQuery(".//project/name"),
              std::vector<std::string>{"Demo"});

    EXPECT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder, "just some text\n", "a.txt")));
    EXPECT_EQ(controller.xmlDoc(), nullptr);
    EXPECT_EQ(controller.nodesForQuery(".//clip"), TLXMLNodeList());
    EXPECT_TRUE(controller.stringValuesForQuery(".//name").empty());
    EXPECT_FALSE(controller.firstNodeForQuery(".//name"));

    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder)));
    EXPECT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder, "", "empty.xml")));
    EXPECT_EQ(controller.xmlDoc(), nullptr);
    EXPECT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder, "<xmeml><project>", "cut.xml")));
    EXPECT_EQ(controller.xmlDoc(), nullptr) << "a truncated file leaves no half tree";
}

TEST(TLFCPProjectControllerTest, QueriesAreUnescapedAndBadOnesFindNothing)
{
    test::TemporaryFolder folder;
    TLFCPProjectController controller;
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder)));

    EXPECT_EQ(controller.nodesForQuery(".//clip")->size(), 4u);
    EXPECT_EQ(controller.stringValuesForQuery(".//clip/@id"),
              (std::vector<std::string>{"a", "b", "c", "d"}));
    EXPECT_EQ(nameOf(controller.firstNodeForQuery(".//clip[uuid]").node()), "First");
    EXPECT_TRUE(controller.stringValuesForQuery(".//sequence").empty());
    EXPECT_EQ(controller.nodesForQuery(".//clip[").has_value(), false);
    EXPECT_FALSE(controller.firstNodeForQuery(".//clip["));
    EXPECT_TRUE(controller.stringValuesForQuery(".//clip[").empty());

    ASSERT_TRUE(controller.setXmlDocFromFilePath(
        writeProject(folder, "<xmeml><clip><name>Café</name></clip></xmeml>", "accent.xml")));
    EXPECT_EQ(controller.stringValuesForQuery(".//clip[name=\"Café\"]/name"),
              std::vector<std::string>{"Café"});
}

TEST(TLFCPProjectControllerTest, NodeWithUUIDMatchesTheTypeAndKeepsTheUUIDLiteral)
{
    test::TemporaryFolder folder;
    TLFCPProjectController controller;
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder)));
    EXPECT_EQ(nameOf(controller.nodeWithUUID("BIN-1", "bin")), "Selects");
    EXPECT_EQ(nameOf(controller.nodeWithUUID("BIN-1", "clip")), "Third");
    EXPECT_EQ(nameOf(controller.nodeWithUUID("CLIP-2", "clip")), "First");
    EXPECT_FALSE(controller.nodeWithUUID("CLIP-2", "bin"));
    EXPECT_FALSE(controller.nodeWithUUID("NESTED-1", "clip")) << "only a direct uuid child counts";
    EXPECT_FALSE(controller.nodeWithUUID("BIN-1", "bin]|//clip"));
    EXPECT_FALSE(controller.nodeWithUUID("BIN-1", ""));

    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder, R"(<xmeml>
        <bin><name>Plain</name><uuid>x</uuid></bin>
        <bin><name>Quoted</name><uuid>a"b</uuid></bin>
        <bin><name>Both</name><uuid>it's "it"</uuid></bin></xmeml>)", "quotes.xml")));
    EXPECT_EQ(nameOf(controller.nodeWithUUID("a\"b", "bin")), "Quoted");
    EXPECT_EQ(nameOf(controller.nodeWithUUID("it's \"it\"", "bin")), "Both");
    EXPECT_FALSE(controller.nodeWithUUID("none\"][1]/..|.//bin/uuid[\"x", "bin"))
        << "a quote in the uuid must not end the literal";
}

TEST(TLFCPProjectControllerTest, ClipNodeWithUUIDUsesOwnUUIDsAndTheFirstOfDuplicates)
{
    test::TemporaryFolder folder;
    TLFCPProjectController controller;
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder)));
    EXPECT_FALSE(controller.clipNodeWithUUID("CLIP-2")) << "no clips have been set yet";

    controller.collectClipsAndMasterClipPaths();
    ASSERT_EQ(controller.clips().size(), 4u);
    EXPECT_FALSE(controller.clipNodeWithUUID("NESTED-1"));
    EXPECT_EQ(nameOf(controller.clipNodeWithUUID("CLIP-2")), "First");
    EXPECT_EQ(nameOf(controller.clipNodeWithUUID("BIN-1")), "Third");
    EXPECT_FALSE(controller.clipNodeWithUUID(""));

    auto reversed = controller.clips();
    std::reverse(reversed.begin(), reversed.end());
    controller.setClips(reversed);
    EXPECT_EQ(nameOf(controller.clipNodeWithUUID("CLIP-2")), "Second") << "list order, rebuilt";
}

TEST(TLFCPProjectControllerTest, ClipNodeWithUUIDAnswersManyThreadsAtOnce)
{
    std::string xml = "<xmeml>";
    for (int i = 0; i < 2000; ++i)
        xml += "<clip><name>" + std::to_string(i) + "</name><uuid>U" + std::to_string(i)
               + "</uuid></clip>";
    test::TemporaryFolder folder;
    TLFCPProjectController controller;
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder, xml + "</xmeml>")));
    controller.collectClipsAndMasterClipPaths();

    std::atomic<int> wrong = 0;
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t)
        workers.emplace_back([&] {
            for (int i = 0; i < 2000; ++i)
                if (nameOf(controller.clipNodeWithUUID("U" + std::to_string(i))) != std::to_string(i))
                    ++wrong;
        });
    for (auto &worker : workers)
        worker.join();
    EXPECT_EQ(wrong, 0);
}

TEST(TLFCPProjectControllerTest, MasterClipPathsCountUnknownsAndLaterIdsReplaceEarlier)
{
    test::TemporaryFolder folder;
    TLFCPProjectController controller;
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder)));
    controller.collectClipsAndMasterClipPaths();

    std::map<std::string, std::string> table;
    for (const auto &[key, pathurl] : controller.masterClipPaths())
        table[key] = pathurl.text().get();
    EXPECT_EQ(table, (std::map<std::string, std::string>{
                         {"M1", "file://localhost/three.mov"},
                         {"Unknown1", "file://localhost/two.mov"},
                         {"Unknown2", "file://localhost/four.mov"},
                         {"", "file://localhost/five.mov"},
                     }));

    // The tree walk must read the same ids as the query it stands for.
    const auto pathurls = controller.nodesForQuery(".//pathurl");
    ASSERT_EQ(pathurls->size(), 5u);
    for (const auto &pathurl : *pathurls) {
        const auto id = TLXMLParser::stringValueForQuery("./../../masterclipid", pathurl.node());
        if (id) {
            EXPECT_EQ(controller.masterClipPaths().count(*id), 1u) << *id;
        }
    }

    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder, "<pathurl>root</pathurl>", "r.xml")));
    controller.collectClipsAndMasterClipPaths();
    EXPECT_TRUE(controller.clips().empty());
    ASSERT_EQ(controller.masterClipPaths().size(), 1u);
    EXPECT_EQ(controller.masterClipPaths().begin()->first, "Unknown1");
}

TEST(TLFCPProjectControllerTest, ClipsOutliveAReloadUntilTheyAreSetAgain)
{
    test::TemporaryFolder folder;
    TLFCPProjectController controller;
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder)));
    controller.collectClipsAndMasterClipPaths();
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder, "<xmeml/>", "other.xml")));

    ASSERT_EQ(controller.clips().size(), 4u);
    EXPECT_EQ(nameOf(controller.clips().front().node()), "Nested");
    EXPECT_EQ(std::string(controller.masterClipPaths().at("M1").text().get()),
              "file://localhost/three.mov");
    controller.collectClipsAndMasterClipPaths();
    EXPECT_TRUE(controller.clips().empty());
    EXPECT_TRUE(controller.masterClipPaths().empty());

    controller.setXmlDoc(nullptr);
    EXPECT_EQ(controller.xmlDoc(), nullptr);
    controller.collectClipsAndMasterClipPaths();
    EXPECT_TRUE(controller.clips().empty());
}

TEST(TLFCPProjectControllerTest, FinalCutProLoadAsksOnlyForExistingProjectsAndKeepsOnEmptyAnswers)
{
    test::TemporaryFolder folder;
    Hosts hosts;
    TLFCPProjectController controller(hosts.sources());
    const auto project = writeProject(folder, "binary fcp project", "Demo.fcp");
    hosts.finalCutPro->projectXML = projectXML;

    EXPECT_FALSE(controller.loadXMLFromFCP(folder.file("Gone.fcp")));
    EXPECT_TRUE(hosts.finalCutPro->projectRequests.empty());

    ASSERT_TRUE(controller.fcpProjectSelect(project));
    ASSERT_EQ(hosts.finalCutPro->projectRequests.size(), 1u);
    EXPECT_EQ(hosts.finalCutPro->projectRequests[0].path, project);
    EXPECT_TRUE(hosts.finalCutPro->projectRequests[0].launchFCP);
    EXPECT_EQ(controller.nodesForQuery(".//clip")->size(), 4u);

    hosts.finalCutPro->projectXML = std::nullopt;
    EXPECT_FALSE(controller.loadXMLFromFCP(project));
    hosts.finalCutPro->projectXML = "";
    EXPECT_FALSE(controller.loadXMLFromFCP(project));
    EXPECT_EQ(controller.nodesForQuery(".//clip")->size(), 4u);

    hosts.finalCutPro->projectXML = "<xmeml><clip>";
    EXPECT_TRUE(controller.loadXMLFromFCP(project)) << "parse errors are not the load's failure";
    EXPECT_EQ(controller.xmlDoc(), nullptr);
}

TEST(TLFCPProjectControllerTest, TableOfContentsLoadReportsParseErrorsOnTheConsole)
{
    test::TemporaryFolder folder;
    Hosts hosts;
    TLFCPProjectController controller(hosts.sources());
    const auto project = writeProject(folder, "binary fcp project", "Demo.fcp");

    EXPECT_FALSE(controller.loadTOCFromFCP(folder.file("Gone.fcp")));
    EXPECT_TRUE(hosts.finalCutPro->tocRequests.empty());

    hosts.finalCutPro->tocData = "<xmeml><sequence><name>Cut</name></sequence></xmeml>";
    ASSERT_TRUE(controller.loadTOCFromFCP(project));
    EXPECT_TRUE(hosts.finalCutPro->tocRequests.at(0).launchFCP);
    EXPECT_EQ(controller.stringValuesForQuery(".//sequence/name"), std::vector<std::string>{"Cut"});

    hosts.finalCutPro->tocData = "";
    EXPECT_FALSE(controller.loadTOCFromFCP(project));
    EXPECT_EQ(controller.stringValuesForQuery(".//sequence/name"), std::vector<std::string>{"Cut"});

    hosts.finalCutPro->tocData = "<xmeml><sequence></xmeml>";
    testing::internal::CaptureStderr();
    EXPECT_FALSE(controller.loadTOCFromFCP(project));
    const auto console = testing::internal::GetCapturedStderr();
    EXPECT_EQ(console.rfind("Error importing XML: ", 0), 0u) << console;
    EXPECT_EQ(controller.xmlDoc(), nullptr);
}

TEST(TLFCPProjectControllerTest, PremiereLoadWaitsForTheExportAndParsesIt)
{
    Hosts hosts;
    TLFCPProjectController controller(hosts.sources());
    hosts.premiere->exportContents = projectXML;

    ASSERT_TRUE(controller.loadXMLFromPremiere("/Projects/Demo.prproj"));
    EXPECT_EQ(hosts.premiere->openedProjects, std::vector<std::string>{"/Projects/Demo.prproj"});
    ASSERT_EQ(hosts.premiere->exportPaths.size(), 1u);
    const auto exportPath = hosts.premiere->exportPaths[0];
    EXPECT_EQ(exportPath.rfind(test::sandboxRoot().string(), 0), 0u) << exportPath;
    ASSERT_EQ(hosts.fileWaiting->creationWaits.size(), 1u);
    EXPECT_EQ(hosts.fileWaiting->creationWaits[0], std::make_pair(exportPath, 10.0));
    EXPECT_EQ(hosts.fileWaiting->writeWaits, std::vector<std::string>{exportPath});
    EXPECT_TRUE(std::filesystem::exists(exportPath)) << "the export is left in place";
    EXPECT_EQ(controller.nodesForQuery(".//clip")->size(), 4u);
    EXPECT_TRUE(hosts.alerts->alerts().empty());
}

TEST(TLFCPProjectControllerTest, PremiereLoadWithoutExportAlertsAndKeepsTheDocument)
{
    test::TemporaryFolder folder;
    Hosts hosts;
    TLFCPProjectController controller(hosts.sources());
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder)));

    EXPECT_FALSE(controller.loadXMLFromPremiere("/Projects/Demo.prproj"));
    hosts.premiere->exportContents = "";
    EXPECT_FALSE(controller.loadXMLFromPremiere("/Projects/Demo.prproj"));
    const auto alerts = hosts.alerts->alerts();
    ASSERT_EQ(alerts.size(), 2u);
    EXPECT_EQ(alerts[0].message, "No XML data found");
    EXPECT_EQ(alerts[0].informativeText,
              "The project may have taken too long to load - wait until it has completely loaded "
              "in Premiere and then load it in this application.");
    EXPECT_EQ(alerts[0].parentWindow, nullptr);
    EXPECT_EQ(controller.nodesForQuery(".//clip")->size(), 4u);

    hosts.premiere->exportContents = "<xmeml><clip></xmeml>";
    EXPECT_FALSE(controller.loadXMLFromPremiere("/Projects/Demo.prproj"));
    EXPECT_EQ(controller.xmlDoc(), nullptr);
    EXPECT_EQ(hosts.alerts->alerts().size(), 2u) << "a bad export is logged, not alerted";
}

TEST(TLFCPProjectControllerTest, DefaultHostsAnswerWithTheirOwnMessagesWhereTheyAreMissing)
{
    test::TemporaryFolder folder;
    const auto project = writeProject(folder, "binary fcp project", "Demo.fcp");
    auto alerts = std::make_shared<test::FakeAlertPresenter>();
    TLFCPProjectController controller({{}, {}, std::make_shared<test::FakeFileWaiting>(), alerts});
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder)));

    testing::internal::CaptureStderr();
    EXPECT_FALSE(controller.loadXMLFromFCP(project));
    EXPECT_FALSE(controller.loadTOCFromFCP(project));
    const auto console = testing::internal::GetCapturedStderr();
    EXPECT_EQ(console, "Error: Final Cut Pro is not running.\nError sending AppleEvent\n"
                       "Error: Final Cut Pro is not running.\nError sending AppleEvent\n");
    EXPECT_EQ(controller.nodesForQuery(".//clip")->size(), 4u);

    // Premiere Pro is nowhere installed here: it says so and exports nothing.
    std::vector<std::chrono::microseconds> sleeps;
    TLPremiereEvents::setSleeper([&](std::chrono::microseconds duration) { sleeps.push_back(duration); });
    const auto log = test::logOf([&] { EXPECT_FALSE(controller.loadXMLFromPremiere("/Projects/Demo.prproj")); });
    TLPremiereEvents::setSleeper({});
    EXPECT_NE(log.find(" - Premiere Pro not found on this computer.\n"), std::string::npos) << log;
    ASSERT_EQ(alerts->alerts().size(), 1u);
    EXPECT_EQ(alerts->alerts()[0].message, "No XML data found");
    EXPECT_EQ(sleeps, std::vector<std::chrono::microseconds>{std::chrono::seconds(5)}) << "the export's wait";
    EXPECT_EQ(controller.nodesForQuery(".//clip")->size(), 4u);
}

TEST(TLFCPProjectControllerTest, EntitiesAreNeitherExpandedNorFetched)
{
    test::TemporaryFolder folder;
    const auto secret = folder.file("secret.txt");
    test::writeFile(secret, "TOP-SECRET");
    std::string laughs = "<!DOCTYPE xmeml [\n<!ENTITY lol0 \"lol\">\n";
    for (int level = 1; level < 10; ++level) {
        laughs += "<!ENTITY lol" + std::to_string(level) + " \"";
        for (int i = 0; i < 10; ++i)
            laughs += "&lol" + std::to_string(level - 1) + ";";
        laughs += "\">\n";
    }
    laughs += "<!ENTITY secret SYSTEM \"file://" + secret + "\">\n]>\n"
              "<xmeml><clip><name>&lol9;</name><uuid>&secret;</uuid></clip></xmeml>";

    TLFCPProjectController controller;
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder, laughs)));
    ASSERT_NE(controller.xmlDoc(), nullptr);
    EXPECT_EQ(controller.stringValuesForQuery(".//clip/name"), std::vector<std::string>{"&lol9;"});
    EXPECT_EQ(controller.stringValuesForQuery(".//clip/uuid"), std::vector<std::string>{"&secret;"});
}

TEST(TLFCPProjectControllerTest, VeryDeepNestingLoadsWithoutCrashing)
{
    constexpr int depth = 100000;
    std::string deep;
    for (int i = 0; i < depth; ++i)
        deep += "<bin>";
    deep += "<clip><uuid>DEEP</uuid><file><pathurl>x</pathurl></file></clip>";
    std::string closing;
    for (int i = 0; i < depth; ++i)
        closing += "</bin>";

    test::TemporaryFolder folder;
    TLFCPProjectController controller;
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder, deep + closing)));
    ASSERT_NE(controller.xmlDoc(), nullptr);
    controller.collectClipsAndMasterClipPaths();
    ASSERT_EQ(controller.clips().size(), 1u);
    EXPECT_TRUE(controller.clipNodeWithUUID("DEEP"));
    EXPECT_EQ(controller.masterClipPaths().count("Unknown1"), 1u);

    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder, deep, "unclosed.xml")));
    EXPECT_EQ(controller.xmlDoc(), nullptr);
}

TEST(TLFCPProjectControllerTest, BinLookupsFollowDetachingAndAddingLikeTheQueryWould)
{
    test::TemporaryFolder folder;
    TLFCPProjectController controller;
    ASSERT_TRUE(controller.setXmlDocFromFilePath(writeProject(folder, R"(<xmeml><project><children>
        <bin><name>Outer</name><uuid>A</uuid><children>
          <bin><name>Inner</name><uuid>B</uuid></bin></children></bin>
        <bin><name>Second A</name><uuid>A</uuid></bin>
        <bin><name>Two ids</name><uuid>C</uuid><uuid>D</uuid></bin>
      </children></project></xmeml>)")));
    const auto agreesWithQuery = [&](const char *uuid) {
        const auto query = std::string(".//bin/uuid[text()=\"") + uuid + "\"][1]/..";
        return controller.nodeWithUUID(uuid, "bin") == controller.firstNodeForQuery(query).node();
    };
    EXPECT_EQ(nameOf(controller.nodeWithUUID("A", "bin")), "Outer") << "the first in document order";
    EXPECT_EQ(nameOf(controller.nodeWithUUID("D", "bin")), "Two ids");

    ASSERT_TRUE(controller.detachNode(controller.nodeWithUUID("A", "bin")));
    EXPECT_EQ(nameOf(controller.nodeWithUUID("A", "bin")), "Second A");
    EXPECT_FALSE(controller.nodeWithUUID("B", "bin")) << "bins inside a detached bin go with it";
    EXPECT_FALSE(controller.detachNode(pugi::xml_node()));

    auto children = controller.firstNodeForQuery("./xmeml/project/children").node();
    auto added = children.prepend_child("bin");
    added.append_child("uuid").text().set("B");
    controller.documentDidChange();
    EXPECT_EQ(controller.nodeWithUUID("B", "bin"), added);
    for (const char *uuid : {"A", "B", "C", "D", "E"})
        EXPECT_TRUE(agreesWithQuery(uuid)) << uuid;
}
