#include "MyDocument.h"

#include "FakeFinalCutProBridge.h"
#include "FakePremiereBridge.h"
#include "ProjectFixtures.h"
#include "TLBinRangeItem.h"
#include "TLLog.h"
#include "TLMediaItem.h"
#include "TLRegularBin.h"
#include "TLSmartBin.h"
#include "TLSmartRangeItem.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <mutex>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

using test::logOf;

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace {

const std::string header = R"(<?xml version="1.0" encoding="UTF-8"?><!DOCTYPE xmeml><xmeml version="5">)";

std::string emptyBin(const std::string &uuid, const std::string &name)
{
    return "<bin><uuid>" + uuid + "</uuid><updatebehavior>replaceoradd</updatebehavior><name>" + name +
           "</name><children></children></bin>";
}

// Records the progress sheet's calls, from whichever thread they come.
class ProgressView : public MyDocumentView
{
public:
    void startProgress() override { record("start"); }
    void endProgress() override { record("end"); }
    void updateProgressLabel(const std::string &text) override { record(text); }

    std::vector<std::string> calls() const
    {
        const std::lock_guard lock(m_mutex);
        return m_calls;
    }

private:
    void record(std::string call)
    {
        const std::lock_guard lock(m_mutex);
        m_calls.push_back(std::move(call));
    }

    mutable std::mutex m_mutex;
    std::vector<std::string> m_calls;
};

// A document with fake hosts, a recording view and, once loaded, a project.
struct Harness
{
    std::shared_ptr<test::FakeFinalCutProBridge> finalCutPro = std::make_shared<test::FakeFinalCutProBridge>();
    std::shared_ptr<test::FakePremiereBridge> premiere = std::make_shared<test::FakePremiereBridge>();
    std::shared_ptr<ProgressView> view = std::make_shared<ProgressView>();
    // What the document waited for, with whether the file it handed over was
    // still there to be read meanwhile.
    std::vector<std::pair<std::chrono::milliseconds, bool>> waits;
    MyDocument document{MyDocumentServices{TLProjectSources{finalCutPro, premiere, {}, {}}, {}, view,
                                           [this](std::chrono::milliseconds time) {
                                               const auto imports = premiere->imports();
                                               waits.emplace_back(time, !imports.empty() &&
                                                                            fs::exists(imports.back().path));
                                           }}};

    std::shared_ptr<TLFCPProjectController> load(const std::string &xml)
    {
        auto controller = std::make_shared<TLFCPProjectController>(TLProjectSources{finalCutPro, premiere, {}, {}});
        auto parsed = std::make_unique<pugi::xml_document>();
        EXPECT_TRUE(parsed->load_string(xml.c_str()));
        controller->setXmlDoc(std::move(parsed));
        controller->collectClipsAndMasterClipPaths();
        document.setMediaController(controller);
        return controller;
    }

    std::string projectText(unsigned int flags = pugi::format_raw) const
    {
        std::ostringstream out;
        document.mediaController()->xmlDoc()->save(out, "", flags);
        return out.str();
    }
};

std::shared_ptr<TLMediaItem> item(std::string_view uuid)
{
    return TLMediaItem::create(std::nullopt, "clip", std::string(uuid));
}

std::shared_ptr<TLSmartBin> smartBin(std::string name, TLNodeList children, std::optional<std::string> uuid = {})
{
    auto bin = TLSmartBin::create();
    bin->setBinName(std::move(name));
    bin->setChildren(std::move(children));
    bin->setUuid(std::move(uuid));
    return bin;
}

std::shared_ptr<TLBinRangeItem> reel(const std::string &name)
{
    return TLBinRangeItem::create(name, "Reel [1-2]", nullptr, 2, 0);
}

std::size_t count(const std::string &text, const std::string &part)
{
    std::size_t found = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

} // namespace

TEST(MyDocumentGenerationTest, EmptyTreeGivesTheHeaderAndTheClosingTag)
{
    Harness harness;
    harness.finalCutPro->xmemlVersion = 3;
    EXPECT_EQ(harness.document.generateXMLOutput(),
              R"(<?xml version="1.0" encoding="UTF-8"?><!DOCTYPE xmeml><xmeml version="3"></xmeml>)");
}

TEST(MyDocumentGenerationTest, RangeItemsAndVanishedClipsGiveEmptyBinsWithNamesAsTheyStand)
{
    Harness harness;
    harness.load(test::fixtures::sampleProjectXML());
    auto range = reel("Reel 2");
    range->setUuid("R-1");
    auto gone = smartBin("A & <B>", {item("no-such-clip")}, "S-1");
    harness.document.setDataArray({range, gone});

    EXPECT_EQ(harness.document.generateXMLOutput(),
              header + emptyBin("R-1", "Reel 2") + emptyBin("S-1", "A & <B>") + "</xmeml>");
    EXPECT_EQ(harness.document.generateXMLForObjectAndChildren(nullptr), "");
}

TEST(MyDocumentGenerationTest, WritingTwiceKeepsIdentifiersExceptThoseOfRegularBins)
{
    Harness harness;
    auto regular = TLRegularBin::create();
    regular->setBinName("Outer");
    auto nestedRange = reel("Reel 1");
    auto smart = smartBin("Smart", {});
    auto rangeItem = TLSmartRangeItem::create("Scene 1", 0);
    regular->setChildren({nestedRange, smart});
    harness.document.setDataArray({regular, rangeItem});

    const std::regex bin(R"(<bin><uuid>([^<]*)</uuid>)");
    const auto uuids = [&](const std::string &text) {
        std::vector<std::string> found;
        for (std::sregex_iterator it(text.begin(), text.end(), bin), end; it != end; ++it)
            found.push_back((*it)[1]);
        return found;
    };
    const std::vector<std::string> first = uuids(harness.document.generateXMLOutput());
    const std::vector<std::string> second = uuids(harness.document.generateXMLOutput());
    ASSERT_EQ(first.size(), 4u);
    ASSERT_EQ(second.size(), 4u);
    const std::regex canonical("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    for (const std::string &uuid : first)
        EXPECT_TRUE(std::regex_match(uuid, canonical)) << uuid;
    EXPECT_NE(first[0], second[0]); // the regular bin
    EXPECT_EQ(std::vector(first.begin() + 1, first.end()), std::vector(second.begin() + 1, second.end()));
    EXPECT_EQ(nestedRange->uuid(), first[1]);
    EXPECT_EQ(smart->uuid(), first[2]);
    EXPECT_EQ(rangeItem->uuid(), first[3]);
    EXPECT_FALSE(regular->uuid());
}

TEST(MyDocumentGenerationTest, ClipsAreCopiedWithOneReplaceOrAddBehaviour)
{
    Harness harness;
    harness.load(R"(<xmeml version="5"><project><children>)"
                 R"(<clip id="a"><uuid>UA</uuid><updatebehavior>add</updatebehavior><name>A</name></clip>)"
                 R"(<clip id="b"><uuid>UB</uuid><name>B &amp; C</name></clip>)"
                 R"(</children></project></xmeml>)");
    auto bin = smartBin("Both", {item("UB"), item("gone"), item("UA")}, "S");

    EXPECT_EQ(harness.document.generateXMLForObjectAndChildren(bin),
              R"(<bin><uuid>S</uuid><updatebehavior>replaceoradd</updatebehavior><name>Both</name><children>)"
              R"(<clip id="b"><uuid>UB</uuid><name>B &amp; C</name><updatebehavior>replaceoradd</updatebehavior></clip>)"
              R"(<clip id="a"><uuid>UA</uuid><updatebehavior>replaceoradd</updatebehavior><name>A</name></clip>)"
              R"(</children></bin>)");
    // The project's own clips were changed in place.
    EXPECT_EQ(count(harness.projectText(), "<updatebehavior>replaceoradd</updatebehavior>"), 2u);

    pugi::xml_document element;
    element.load_string("<clip><updatebehavior>a<b/>c</updatebehavior><updatebehavior>x</updatebehavior></clip>");
    const pugi::xml_node clip = element.first_child();
    EXPECT_EQ(MyDocument::setUpdateBehavior("replaceoradd", clip), clip);
    EXPECT_STREQ(clip.first_child().child_value(), "replaceoradd");
    EXPECT_FALSE(clip.first_child().child("b"));
    EXPECT_STREQ(clip.last_child().child_value(), "x");
    EXPECT_FALSE(MyDocument::setUpdateBehavior("replaceoradd", pugi::xml_node()));
}

TEST(MyDocumentGenerationTest, EarlierBinChildrenTextIsAppendedBare)
{
    Harness harness;
    harness.load(R"(<xmeml version="5"><project><children><bin><uuid>OLD</uuid><name>Earlier</name><children>)"
                 R"(<clip id="o"><name>Old &amp; gold</name></clip><updatebehavior>add</updatebehavior>)"
                 R"(</children></bin><clip id="n"><uuid>UN</uuid><name>New</name></clip></children></project></xmeml>)");
    auto bin = smartBin("Earlier", {item("UN")}, "OLD");

    const std::string text = harness.document.generateXMLForObjectAndChildren(bin);
    EXPECT_NE(text.find("<updatebehavior>replaceoradd</updatebehavior></clip>Old & goldreplaceoradd</children></bin>"),
              std::string::npos)
        << text;
    EXPECT_NE(harness.projectText().find("</clip><updatebehavior>replaceoradd</updatebehavior></children></bin>"),
              std::string::npos);
}

TEST(MyDocumentGenerationTest, MergeLeavesOutBinsThatDoNotParseAndReplacesEarlierOnesByIdentifier)
{
    namespace fixtures = test::fixtures;
    Harness harness;
    harness.load(fixtures::sampleProjectXML());
    auto loose = TLRegularBin::create();
    loose->setBinName("Loose");
    const std::string selectsUuid(fixtures::binUuidSelects);
    // Names are written bare: those that break the markup keep their bin out.
    const std::vector<std::string> hostile = {"Rock & Roll", "x</name><children></children></bin><bin><name>y",
                                              "&unknown;", "&#;", "A < B", "a]]>b", "bell\x07", "<!-- x"};
    TLNodeList tree;
    for (std::size_t index = 0; index < hostile.size(); ++index)
        tree.push_back(smartBin(hostile[index], {}, "H" + std::to_string(index)));
    tree.push_back(smartBin("Selects", {item(fixtures::clipUuid1), item(fixtures::clipUuid2)}, selectsUuid));
    tree.push_back(loose);
    tree.push_back(smartBin("Fine &amp; <![CDATA[dandy & co]]>", {}, "FINE"));
    harness.document.setDataArray(tree);

    const std::string log = logOf([&] {
        harness.document.addBinsToXML();
        harness.document.addBinsToXML();
    });
    EXPECT_NE(log.find(" - Adding bins to XML...\n"), std::string::npos) << log;
    EXPECT_EQ(count(log, " - Error creating bin: "), 2 * hostile.size()) << log;
    EXPECT_NE(log.find(" - Error creating bin: Undefined entity or unescaped & at offset "), std::string::npos);
    EXPECT_NE(log.find(" - bin: (null)\n"), std::string::npos) << log;
    EXPECT_NE(log.find(" - bin: <bin> Selects (" + selectsUuid + ")\n"), std::string::npos) << log;

    const std::string project = harness.projectText();
    EXPECT_EQ(count(project, "<uuid>" + selectsUuid + "</uuid>"), 1u) << project;
    EXPECT_EQ(count(project, "<name>Loose</name>"), 2u) << project;
    for (std::size_t index = 0; index < hostile.size(); ++index)
        EXPECT_EQ(count(project, "<uuid>H" + std::to_string(index) + "<"), 0u) << hostile[index];
    EXPECT_EQ(count(project, "<name>Fine &amp; <![CDATA[dandy & co]]></name>"), 1u) << project;
    // Replaced bins took clips with them; the clip list follows the merge.
    const auto controller = harness.document.mediaController();
    const pugi::xml_node interview = controller->clipNodeWithUUID(fixtures::clipUuid1);
    ASSERT_TRUE(interview);
    EXPECT_EQ(interview.root(), controller->xmlDoc()->root());
}

TEST(MyDocumentGenerationTest, MergeWithoutProjectChildrenAddsNothing)
{
    Harness harness;
    harness.document.setDataArray({reel("Reel 1")});
    harness.document.addBinsToXML();
    ASSERT_TRUE(harness.document.mediaController());
    EXPECT_EQ(harness.projectText(), R"(<?xml version="1.0" encoding="UTF-8"?><!DOCTYPE xmeml><xmeml version="5"/>)");

    harness.load(R"(<xmeml version="5"><project/></xmeml>)");
    harness.document.addBinsToXML();
    EXPECT_EQ(harness.projectText(), R"(<?xml version="1.0"?><xmeml version="5"><project/></xmeml>)");
}

TEST(MyDocumentGenerationTest, FinalCutProSendPassesTextAndPathAndStoresTheSettings)
{
    const test::TemporaryFolder folder;
    Harness harness;
    harness.load(test::fixtures::sampleProjectXML());
    const std::string projectPath = folder.file("Spots.fcp");
    harness.document.setFileURL(projectPath);
    harness.document.setDataArray({reel("Reel 1")});
    harness.document.updateChangeCountDone();
    const std::optional<std::string> settings = MyDocument::settingsPathForProject(projectPath);
    ASSERT_TRUE(settings);

    const std::string log = logOf([&] {
        harness.document.sendToFCP();
        harness.document.waitForSend();
    });
    const auto sends = harness.finalCutPro->sends();
    ASSERT_EQ(sends.size(), 1u);
    EXPECT_EQ(sends[0].projectPath, projectPath);
    EXPECT_EQ(sends[0].xml.rfind(header + "<bin><uuid>", 0), 0u);
    EXPECT_NE(sends[0].xml.find("<name>Reel 1</name><children></children></bin></xmeml>"), std::string::npos);
    EXPECT_NE(log.find(" - Sending to Final Cut Pro...\n"), std::string::npos) << log;
    EXPECT_FALSE(harness.document.isDocumentEdited());
    EXPECT_TRUE(fs::exists(*settings));
    EXPECT_EQ(harness.view->calls(), (std::vector<std::string>{"Generating bin list...", "start",
                                                               "Sending to Final Cut Pro...", "Finishing...",
                                                               "end"}));
    EXPECT_TRUE(harness.premiere->imports().empty());
}

TEST(MyDocumentGenerationTest, PremiereSendHandsOverTheProjectFileAndRemovesIt)
{
    const test::TemporaryFolder folder;
    Harness harness;
    harness.load(test::fixtures::sampleProjectXML());
    harness.document.setPremiereProject(true);
    harness.document.setFileURL(folder.file("Spots.prproj"));
    harness.document.setDataArray({reel("Reel 1")});
    test::writeFile(folder.file("Spots-Corvale.xml"), "keep");

    const std::string log = logOf([&] { harness.document.sendToFCPOnThread(); });
    const auto imports = harness.premiere->imports();
    ASSERT_EQ(imports.size(), 1u);
    EXPECT_EQ(imports[0].path, folder.file("Spots-Corvale 2.xml"));
    ASSERT_TRUE(imports[0].contents);
    // The project as it stands, not the generated bins.
    EXPECT_NE(imports[0].contents->find("<name>Interview</name>"), std::string::npos);
    EXPECT_EQ(imports[0].contents->find("Reel 1"), std::string::npos);
    EXPECT_FALSE(fs::exists(imports[0].path));
    // It is removed only after the time Premiere Pro is given to read it.
    ASSERT_EQ(harness.waits.size(), 1u);
    EXPECT_EQ(harness.waits[0].first, std::chrono::milliseconds(1000));
    EXPECT_TRUE(harness.waits[0].second);
    EXPECT_EQ(test::readFile(folder.file("Spots-Corvale.xml")), "keep");
    EXPECT_NE(log.find(" - Sending to Premiere Pro...\n"), std::string::npos) << log;
    EXPECT_TRUE(harness.finalCutPro->sends().empty());
    EXPECT_TRUE(fs::exists(*MyDocument::settingsPathForProject(folder.file("Spots.prproj"))));

    // A file that cannot be written hands nothing over.
    harness.document.setFileURL(folder.file("missing/Spots.prproj"));
    harness.document.sendToFCPOnThread();
    EXPECT_EQ(harness.premiere->imports().size(), 1u);
}
