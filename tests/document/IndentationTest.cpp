// Indentation between elements is not text: every rule that reads a
// project's text answers the same for a pretty-printed file as for the same
// project on one line.
#include "MyDocument.h"

#include "FakeFinalCutProBridge.h"
#include "FakePremiereBridge.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLSmartBinParser.h"
#include "TLSmartRangeParser.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

const std::string oneLine =
    "<?xml version=\"1.0\"?><xmeml version=\"4\"><project><name>P</name><children>"
    "<clip id=\"a\"><uuid>A</uuid><name>Alpha</name><logginginfo><scene>1</scene></logginginfo>"
    "<media><video><track><clipitem><file><name>a.mov</name><pathurl>file://localhost/M/a.mov</pathurl>"
    "</file></clipitem></track></video><audio>2<track/></audio></media></clip>"
    "<clip id=\"b\"><uuid>B</uuid><name>Beta</name><logginginfo><scene>2</scene><lognote></lognote></logginginfo>"
    "<media><audio><track><clipitem><file><pathurl>file://localhost/N/b.wav</pathurl></file></clipitem>"
    "</track></audio></media></clip>"
    "</children></project></xmeml>";

// The same project as a pretty printer writes it, with a comment between
// elements as exporters add them.
std::string prettyPrinted(const std::string &text)
{
    pugi::xml_document document;
    EXPECT_TRUE(document.load_string(text.c_str(), pugi::parse_default | pugi::parse_declaration));
    document.child("xmeml").prepend_child(pugi::node_comment).set_value(" exported ");
    std::ostringstream out;
    document.save(out, "  ", pugi::format_indent);
    return out.str();
}

// What each reading rule makes of a project: smart ranges by "has audio",
// scene, folder and file type; a smart bin by name; the log note filter.
std::vector<std::string> readings(const std::string &text)
{
    test::TemporaryFolder folder;
    const std::string path = folder.path().string() + "/Project.xml";
    test::writeFile(path, text);
    MyDocument document(MyDocumentServices{
        TLProjectSources{std::make_shared<test::FakeFinalCutProBridge>(),
                         std::make_shared<test::FakePremiereBridge>(), {}, {}},
        {}, {}, {}});
    EXPECT_TRUE(document.readFromURL(path));
    const TLFCPProjectController &controller = *document.mediaController();
    std::vector<std::string> found;
    for (const std::int64_t criterion : {16, 7, 2, 0}) {
        for (const auto &item : TLSmartRangeParser::arrayForCriteria(criterion, controller)) {
            std::string line = std::to_string(criterion) + " " + item->binName() + ":";
            for (const auto &clip : *item->children())
                line += " " + clip->displayName() + " " + clip->uuid().value_or("-");
            found.push_back(line);
        }
    }
    for (const auto &filter : {TLSmartBinFilter::create(0, 0, "Alpha"), TLSmartBinFilter::create(9, 0, "")}) {
        for (const auto &clip : TLSmartBinParser::arrayFromFilterArray({filter}, "bin", 0, controller))
            found.push_back("bin " + clip->displayName() + " " + clip->filePath().value_or("-"));
    }
    return found;
}

TEST(IndentationTest, RulesReadThePrettyPrintedProjectAsTheOneLineOne)
{
    const std::vector<std::string> expected = readings(oneLine);
    EXPECT_EQ(readings(prettyPrinted(oneLine)), expected);
    // The readings themselves: only the clip with text directly in its audio
    // element has audio; the other's media path comes from its audio track.
    EXPECT_NE(std::find(expected.begin(), expected.end(), "16 true: Alpha A"), expected.end());
    EXPECT_NE(std::find(expected.begin(), expected.end(), "16 false: Beta B"), expected.end());
}

TEST(IndentationTest, ASequenceAfterACommentIsStillRefusedInEitherLayout)
{
    const std::string sequenceOnly = "<xmeml version=\"4\"><sequence><name>S</name></sequence></xmeml>";
    const auto alerts = std::make_shared<test::RecordingAlertPresenter>();
    TLAlert::setPresenter(alerts);
    for (const std::string &text : {sequenceOnly, prettyPrinted(sequenceOnly)}) {
        test::TemporaryFolder folder;
        const std::string path = folder.path().string() + "/Sequence.xml";
        test::writeFile(path, text);
        MyDocument document;
        EXPECT_FALSE(document.readFromURL(path)) << text;
    }
    TLAlert::setPresenter(nullptr);
    EXPECT_EQ(alerts->alerts().size(), 2u);
}

} // namespace
