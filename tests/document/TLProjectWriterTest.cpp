// A save writes the project in one pass, with the bins written straight from
// the project's clips; it must give exactly the bytes of merging the bins
// into the tree and then writing the tree, save after save.
#include "MyDocument.h"

#include "FakeFinalCutProBridge.h"
#include "FakePremiereBridge.h"
#include "TLBinRangeItem.h"
#include "TLMediaItem.h"
#include "TLProjectWriter.h"
#include "TLRegularBin.h"
#include "TLSmartBin.h"
#include "TLSmartRangeParser.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>

namespace {

constexpr const char *earlierBin = "EEEEEEEE-0000-0000-0000-000000000001";

// Every kind of node a project holds, with text a careless writer changes:
// markup characters, "]]>", carriage returns, tabs, non-ASCII, CDATA,
// whitespace as an element's whole text, comments and instructions, a clip
// without an identifier, and a bin of an earlier save whose children hold
// text (carried over when that bin is written again) with "&" in it.
const std::string project = "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
                            "<!-- exported by a newsroom system -->\r\n"
                            "<!DOCTYPE xmeml>\r\n<?stamp 42?>\r\n"
                            "<xmeml version=\"4\"><project><name>P</name><children>\n"
                            "  <clip id=\"c1\"><uuid>C1</uuid><name>Tom &amp; Jerry &lt;1&gt; ]]&gt;</name>\n"
                            "    <logginginfo><scene>1</scene><lognote>a&#13;\nb\tc caf\xC3\xA9</lognote></logginginfo>\n"
                            "    <!-- checked --><comments><mastercomment1> </mastercomment1></comments></clip>\n"
                            "  <clip id=\"c2\"><uuid>C2</uuid><name><![CDATA[<raw> & ]]]]><![CDATA[>]]></name>\n"
                            "    <logginginfo><scene>2</scene><?note inside?></logginginfo></clip>\n"
                            "  <clip id=\"c3\"><name>no uuid</name><logginginfo><scene>1</scene></logginginfo></clip>\n"
                            "  <bin><uuid>EEEEEEEE-0000-0000-0000-000000000001</uuid><name>Old</name><children>"
                            "<updatebehavior>add</updatebehavior><clip id=\"c1\"><uuid>C1</uuid>"
                            "<name>Tom &amp; Jerry</name></clip></children></bin>\n"
                            "</children></project></xmeml>\r\n<!-- end -->\r\n";

// A tree with every kind of bin: a smart bin that replaces the earlier bin
// (its identifier carried over), smart ranges inside a regular bin, a range
// bin, a bin whose name holds markup that parses, and one whose does not.
TLNodeList treeFor(const TLFCPProjectController &controller)
{
    auto smart = TLSmartBin::create();
    smart->setBinName("Selects > all");
    smart->setUuid(std::string(earlierBin));
    smart->setChildren({TLMediaItem::create(std::nullopt, "a", "C1"), TLMediaItem::create(std::nullopt, "b", "C2")});
    auto folder = TLRegularBin::create();
    folder->setBinName("Scenes");
    TLNodeList scenes;
    for (const auto &item : TLSmartRangeParser::arrayForCriteria(7, controller))
        scenes.push_back(item);
    folder->setChildren(scenes);
    auto marked = TLSmartBin::create();
    marked->setBinName("R&amp;D");
    marked->setChildren({TLMediaItem::create(std::nullopt, "a", "C1")});
    auto broken = TLRegularBin::create();
    broken->setBinName("A & B");
    return {smart, folder, TLBinRangeItem::create("Reel 1", "Reel [1-1]", nullptr, 1, 0), marked, broken};
}

// Identifiers made during a save differ from run to run; each becomes its
// order of first appearance.
std::string withNumberedUUIDs(const std::string &text)
{
    static const std::regex uuid("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");
    std::map<std::string, std::size_t> numbers;
    std::string result;
    auto last = text.cbegin();
    for (std::sregex_iterator match(text.begin(), text.end(), uuid), end; match != end; ++match) {
        result.append(last, (*match)[0].first);
        const auto [found, isNew] = numbers.try_emplace(match->str(), numbers.size());
        result += "uuid-" + std::to_string(found->second);
        last = (*match)[0].second;
    }
    return result.append(last, text.cend());
}

struct OpenProject
{
    test::TemporaryFolder folder;
    std::shared_ptr<test::FakeFinalCutProBridge> finalCutPro = std::make_shared<test::FakeFinalCutProBridge>();
    MyDocument document{MyDocumentServices{
        TLProjectSources{finalCutPro, std::make_shared<test::FakePremiereBridge>(), {}, {}}, {}, {}, {}}};

    OpenProject()
    {
        const std::string path = folder.path().string() + "/Project.xml";
        std::ofstream(path, std::ios::binary) << project;
        EXPECT_TRUE(document.readFromURL(path));
        document.setDataArray(treeFor(*document.mediaController()));
    }

    // The merge made in the tree, then the tree written.
    std::string mergeThenWrite()
    {
        document.addBinsToXML();
        const auto controller = document.mediaController();
        std::string text;
        EXPECT_TRUE(TLProjectWriter::write(*controller->xmlDoc(), {}, controller->hasByteOrderMark(),
                                           [&text](std::string_view bytes) {
                                               text.append(bytes);
                                               return true;
                                           }));
        return withNumberedUUIDs(text);
    }

    // A save as the application makes it.
    std::string save(const std::string &name)
    {
        const std::string path = folder.path().string() + "/" + name;
        EXPECT_TRUE(document.writeToURLOnThread(MyDocumentSaveRequest{path, 0}));
        return withNumberedUUIDs(test::readFile(path));
    }
};

TEST(TLProjectWriterTest, ASaveGivesTheBytesOfMergingIntoTheTreeThenWritingIt)
{
    OpenProject reference;
    OpenProject saved;
    const std::string first = reference.mergeThenWrite();
    EXPECT_EQ(saved.save("first.xml"), first);
    // The second save finds the first one's bins in the tree (replacing
    // them, carrying their text over) as a merge made in the tree would.
    EXPECT_EQ(saved.save("second.xml"), reference.mergeThenWrite());
    EXPECT_EQ(saved.document.reportOfLastWrite().binsLeftOut().size(), 1u);

    // What the first save wrote: the prolog as it was, a carriage return as
    // a reference, the carried text escaped, the earlier bin replaced.
    EXPECT_TRUE(first.starts_with("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                  "<!-- exported by a newsroom system -->\n<!DOCTYPE xmeml>\n<?stamp 42?>\n"));
    EXPECT_TRUE(first.ends_with("</xmeml>\n<!-- end -->\n"));
    EXPECT_NE(first.find("<lognote>a&#13;\nb\tc caf\xC3\xA9</lognote>"), std::string::npos);
    EXPECT_NE(first.find("<mastercomment1> </mastercomment1>"), std::string::npos);
    EXPECT_NE(first.find("</clip>replaceoraddC1Tom &amp; Jerry</children>"), std::string::npos);
    EXPECT_NE(first.find("<name>R&amp;D</name>"), std::string::npos);
    EXPECT_EQ(first.find("<name>Old</name>"), std::string::npos);
    EXPECT_EQ(first.find("A & B"), std::string::npos);
}

TEST(TLProjectWriterTest, AWrittenProjectWritesAgainToTheSameBytes)
{
    OpenProject saved;
    saved.save("first.xml");
    const std::string written = test::readFile(saved.folder.path().string() + "/first.xml");
    MyDocument reopened;
    ASSERT_TRUE(reopened.readFromURL(saved.folder.path().string() + "/first.xml"));
    std::string again;
    const auto controller = reopened.mediaController();
    TLProjectWriter::write(*controller->xmlDoc(), {}, controller->hasByteOrderMark(),
                           [&again](std::string_view bytes) {
                               again.append(bytes);
                               return true;
                           });
    EXPECT_EQ(again, written);
}

} // namespace
