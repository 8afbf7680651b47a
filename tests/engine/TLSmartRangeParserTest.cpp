// Smart range resolution on small inline projects: every criterion, the
// master-clip table fallbacks, grouping and the bin-name mode.
#include "TLSmartRangeParser.h"

#include "TLLog.h"
#include "TLMediaItem.h"
#include "ProjectFixtures.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using Project = test::LoadedProject;

// A clip whose one track item holds the given file.
std::string trackClip(const std::string &name, const std::string &uuid, const std::string &file,
                      const std::string &extra = "", const std::string &kind = "video")
{
    return "<clip><name>" + name + "</name><uuid>" + uuid + "</uuid>" + extra + "<media><" + kind
           + "><track><clipitem><masterclipid>M-" + name + "</masterclipid><file>" + file
           + "</file></clipitem></track></" + kind + "></media></clip>";
}

std::string pathurl(const std::string &url)
{
    return "<pathurl>" + url + "</pathurl>";
}

std::string scene(const std::string &text)
{
    return "<logginginfo><scene>" + text + "</scene></logginginfo>";
}

// Clips in this order: A, B, C, D, E, F, H, I, A2. A sequence outside the
// clips puts a file under the master clip id M9 into the table.
const std::string mainProject =
    trackClip("A", "U1", pathurl("file://localhost/Volumes/Media/Day1/a.MOV"),
              scene("Reel1"))
    + trackClip("B", "U2",
                pathurl("file://localhost/Volumes/Other/Day1/b.mov")
                    + "<media><audio><samplecharacteristics><samplerate>48000</samplerate>"
                      "<depth>24</depth></samplecharacteristics></audio></media>",
                scene("reel1"), "audio")
    + trackClip("C", "U3", pathurl("file://localhost/Volumes/Media/Day2/noext"), scene("Reel1"))
    + "<clip><uuid>U4</uuid></clip>"
    + trackClip("E", "U5", pathurl("file://localhost/Volumes/Media/Day 3/e.mov"))
    + "<clip><name>F</name><uuid>U6</uuid><media><video><track><clipitem><masterclipid>M9</masterclipid>"
      "<file id=\"f9\"/></clipitem></track></video></media></clip>"
    + "<clip><name>h.wav</name><uuid>U8</uuid></clip>"
    + "<clip><name>I</name>" + scene("NoUUID") + "</clip>"
    + "<clip><name>A2</name><uuid>U1</uuid>" + scene("Reel1") + "</clip>"
    + "<sequence><media><video><track><clipitem><masterclipid>M9</masterclipid><file>"
    + pathurl("file://localhost/Volumes/Media/Day9/f.mxf") + "</file></clipitem></track></video></media></sequence>";

// Value name -> clip names, in the order returned.
using Groups = std::vector<std::pair<std::string, std::vector<std::string>>>;

Groups groupsFor(const Project &project, std::int64_t criteria)
{
    Groups groups;
    for (const std::shared_ptr<TLSmartRangeItem> &item :
         TLSmartRangeParser::arrayForCriteria(criteria, project.controller())) {
        EXPECT_EQ(item->criteria(), criteria);
        std::vector<std::string> names;
        for (const TLBinNodePtr &child : *item->children()) {
            EXPECT_EQ(child->parent(), item);
            names.push_back(child->displayName());
        }
        groups.emplace_back(item->binName(), names);
    }
    return groups;
}

std::vector<std::string> binNames(const Project &project, std::int64_t criteria, const std::string &binName)
{
    std::vector<std::string> names;
    for (const TLBinNodePtr &node : TLSmartRangeParser::arrayForCriteria(criteria, binName, project.controller())) {
        EXPECT_EQ(node->kind(), TLBinNodeKind::mediaItem);
        names.push_back(node->displayName());
    }
    return names;
}

// Runs `work` on a fresh log and returns what it logged.
template <typename Work>
std::string loggedBy(Work work)
{
    const std::optional<std::string> logPath = TLLog::currentLogPath();
    EXPECT_TRUE(logPath);
    if (!logPath)
        return {};
    // As root the log lives in the machine's folder, which the sandbox lacks.
    std::filesystem::create_directories(std::filesystem::path(*logPath).parent_path());
    TLLog::createNewLog(std::nullopt, true);
    work();
    TLLog::finishWriting();
    return test::readFile(*logPath);
}

} // namespace

TEST(TLSmartRangeParserTest, FileTypeAndFolderComeFromTheMediaURLOrItsFallbacks)
{
    const Project project(mainProject);
    EXPECT_EQ(groupsFor(project, 0), (Groups{{"mov", {"A", "B", "E"}},
                                             {"Unspecified", {"C", "I", "A2"}},
                                             {"Unknown", {""}},
                                             {"mxf", {"F"}},
                                             {"wav", {"h.wav"}}}));
    EXPECT_EQ(groupsFor(project, 2), (Groups{{"Day1", {"A", "B"}},
                                             {"Day2", {"C"}},
                                             {"Unknown", {"", "h.wav", "I", "A2"}},
                                             {"Unspecified", {"E"}},
                                             {"Day9", {"F"}}}));
}

TEST(TLSmartRangeParserTest, FileTypesDifferingOnlyInCaseShareOneItemInEveryScript)
{
    // Files known by name only: ".ΜΟΥ" and ".μου"; ".ΦΩΣ" and ".φως",
    // whose final sigma folds too.
    const Project project(trackClip("X", "UX", "<name>x.ΜΟΥ</name>") + trackClip("Y", "UY", "<name>y.μου</name>")
                          + trackClip("Z", "UZ", "<name>z.ΦΩΣ</name>") + trackClip("W", "UW", "<name>w.φως</name>"));
    EXPECT_EQ(groupsFor(project, 0), (Groups{{"μου", {"X", "Y"}}, {"φωσ", {"Z", "W"}}}));
}

TEST(TLSmartRangeParserTest, QueriedCriteriaGroupByExactTextInClipOrder)
{
    const Project project(mainProject);
    EXPECT_EQ(groupsFor(project, 7), (Groups{{"Reel1", {"A", "C", "A2"}},
                                             {"reel1", {"B"}},
                                             {"Unspecified", {"", "E", "F", "h.wav"}},
                                             {"NoUUID", {"I"}}}));
    const std::vector<std::string> others{"C", "", "E", "F", "h.wav", "I", "A2"};
    Groups sampleRates{{"Unspecified", {"A"}}, {"48000", {"B"}}};
    sampleRates[0].second.insert(sampleRates[0].second.end(), others.begin(), others.end());
    EXPECT_EQ(groupsFor(project, 17), sampleRates);
    EXPECT_EQ(groupsFor(project, 18).at(1), (Groups::value_type{"24", {"B"}}));

    const Project stored("<clip><name>x</name><logginginfo><good>TRUE</good></logginginfo></clip>"
                         "<clip><name>y</name><logginginfo><good>yes</good></logginginfo></clip>"
                         "<clip><name>z</name><media><audio>2</audio></media></clip>"
                         "<clip><name>w</name><logginginfo><good/></logginginfo><media><audio/></media></clip>");
    EXPECT_EQ(groupsFor(stored, 10), (Groups{{"TRUE", {"x"}}, {"yes", {"y"}}, {"Unspecified", {"z", "w"}}}));
    EXPECT_EQ(groupsFor(stored, 16), (Groups{{"false", {"x", "y", "w"}}, {"true", {"z"}}}));
}

TEST(TLSmartRangeParserTest, EveryQueriedCriterionReadsItsField)
{
    const Project project(R"(<clip><name>full</name><uuid>U</uuid>
        <rate><timebase>25</timebase></rate>
        <logginginfo><scene>S</scene><shottake>T</shottake><lognote>N</lognote><good>G</good></logginginfo>
        <labels><label2>L</label2></labels>
        <comments><mastercomment1>C1</mastercomment1><mastercomment2>C2</mastercomment2>
          <mastercomment3>C3</mastercomment3><mastercomment4>C4</mastercomment4></comments>
        <media>
          <video><track><clipitem><fielddominance>lower</fielddominance><file>
            <media><video><samplecharacteristics><width>720</width><height>576</height></samplecharacteristics></video></media>
          </file></clipitem></track></video>
          <audio>audio text<track><clipitem><file><media><audio><samplecharacteristics>
            <samplerate>44100</samplerate><depth>16</depth></samplecharacteristics></audio></media></file></clipitem></track></audio>
        </media></clip>
        <clip><name>bare</name></clip>)");
    const std::map<std::int64_t, std::string> expected{
        {3, "25"},  {4, "720"}, {5, "576"}, {6, "lower"}, {7, "S"},  {8, "T"},     {9, "N"},     {10, "G"},
        {11, "L"},  {12, "C1"}, {13, "C2"}, {14, "C3"},   {15, "C4"}, {16, "true"}, {17, "44100"}, {18, "16"}};
    for (const auto &[criteria, value] : expected) {
        const std::string bareValue = criteria == 16 ? "false" : "Unspecified";
        EXPECT_EQ(groupsFor(project, criteria), (Groups{{value, {"full"}}, {bareValue, {"bare"}}}))
            << "criterion " << criteria;
    }
    for (const std::int64_t unsupported : {1, 19, 20, 1000}) {
        EXPECT_TRUE(groupsFor(project, unsupported).empty()) << unsupported;
        EXPECT_TRUE(binNames(project, unsupported, "Unspecified").empty()) << unsupported;
    }
    EXPECT_EQ(groupsFor(project, -1), (Groups{{"Unspecified", {"full", "bare"}}}));
    EXPECT_TRUE(groupsFor(Project(""), 7).empty());
}

// The smart bin reads only the file's own media element (its test of the
// same clip finds neither value).
TEST(TLSmartRangeParserTest, SampleRateAndDepthAreFoundInMediaNestedDeeperInTheFile)
{
    const Project project(R"(<clip><name>nested</name><uuid>U</uuid><media><audio><track><clipitem><file>
        <other><media><audio><samplecharacteristics><samplerate>32000</samplerate><depth>24</depth>
        </samplecharacteristics></audio></media></other></file></clipitem></track></audio></media></clip>)");
    EXPECT_EQ(groupsFor(project, 17), (Groups{{"32000", {"nested"}}}));
    EXPECT_EQ(groupsFor(project, 18), (Groups{{"24", {"nested"}}}));
}

TEST(TLSmartRangeParserTest, FileNameFallbackTakesTheFirstTableURLEndingWithTheEscapedName)
{
    const auto loose = [](const std::string &url) {
        return "<sequence><media><video><track><clipitem><file>" + pathurl(url)
               + "</file></clipitem></track></video></media></sequence>";
    };
    // Without master clip ids the table keys are Unknown1 to Unknown5, in this order.
    const Project project(
        "<clip><name>G</name><uuid>UG</uuid><media><video><track><clipitem><masterclipid>MX</masterclipid>"
        "<file><name>g é#.mov</name></file></clipitem></track></video></media></clip>"
        "<clip><name>J</name><uuid>UJ</uuid><media><audio><track><clipitem>"
        "<file><name>sub/j.mov</name></file></clipitem></track></audio></media></clip>"
        "<clip><name>k.aif</name><uuid>UK</uuid></clip>"
        "<clip><name>lost.mov</name><uuid>UL</uuid></clip>"
        + loose("file://localhost/Volumes/Z/xg%20%C3%A9%23.mov") + loose("file://localhost/Volumes/X/Day7/g%20%C3%A9%23.mov")
        + loose("file://localhost/Volumes/Y/Day8/g%20%C3%A9%23.mov") + loose("file://localhost/Volumes/Q/Day5/sub/j.mov")
        + loose("file://localhost/Volumes/R/Day4/k.aif"));
    EXPECT_EQ(groupsFor(project, 2),
              (Groups{{"Day7", {"G"}}, {"sub", {"J"}}, {"Day4", {"k.aif"}}, {"Unknown", {"lost.mov"}}}));
    EXPECT_EQ(groupsFor(project, 0), (Groups{{"mov", {"G", "J", "lost.mov"}}, {"aif", {"k.aif"}}}));

    const TLNodeList items = TLSmartRangeParser::arrayForCriteria(2, std::string("Day7"), project.controller());
    ASSERT_EQ(items.size(), 1u);
    const auto &item = static_cast<const TLMediaItem &>(*items[0]);
    EXPECT_EQ(item.filePath(), "/Volumes/X/Day7/g é#.mov");
    EXPECT_EQ(item.shortName(), "G");
    EXPECT_EQ(item.uuid(), "UG");
}

TEST(TLSmartRangeParserTest, BinNameModeReturnsTheMatchingClipsKeyedByUuid)
{
    const Project project(mainProject);
    // A2 shares A's uuid and replaces it in its place.
    EXPECT_EQ(binNames(project, 7, "Reel1"), (std::vector<std::string>{"A2", "C"}));
    EXPECT_EQ(binNames(project, 7, "reel1"), (std::vector<std::string>{"B"}));
    EXPECT_EQ(binNames(project, 7, "Unspecified"), (std::vector<std::string>{"", "E", "F", "h.wav"}));
    EXPECT_TRUE(binNames(project, 7, "REEL1").empty());
    EXPECT_THROW(binNames(project, 7, "NoUUID"), std::invalid_argument);
    // The clip without a uuid is harmless when its value does not match.
    EXPECT_EQ(binNames(project, 0, "mxf"), (std::vector<std::string>{"F"}));

    const TLNodeList items = TLSmartRangeParser::arrayForCriteria(2, std::string("Day9"), project.controller());
    ASSERT_EQ(items.size(), 1u);
    const auto &item = static_cast<const TLMediaItem &>(*items[0]);
    EXPECT_EQ(item.filePath(), "/Volumes/Media/Day9/f.mxf");
    EXPECT_EQ(item.uuid(), "U6");
    // Without a bin name the general form returns the smart range items.
    const TLNodeList nodes = TLSmartRangeParser::arrayForCriteria(7, std::nullopt, project.controller());
    ASSERT_EQ(nodes.size(), 4u);
    EXPECT_EQ(nodes[0]->kind(), TLBinNodeKind::smartRangeItem);
    EXPECT_EQ(nodes[0]->binName(), "Reel1");
}

TEST(TLSmartRangeParserTest, WritesTheClipsTheCriterionThePathsAndTheOutputToTheLog)
{
    const Project project(mainProject);
    const std::string log = loggedBy([&] {
        TLSmartRangeParser::arrayForCriteria(2, project.controller());
        TLSmartRangeParser::arrayForCriteria(7, std::string("reel1"), project.controller());
    });
    for (const char *line : {
             " - smart range clipitems: 9 clips\n",
             " - smart range criteria: 2\n",
             " - smart range paths: (file://localhost/Volumes/Media/Day1/a.MOV)\n",
             " - smart range paths: ()\n",
             " - smart range output: 5 values: Day1 (2 clips), Day2 (1 clip), Unknown (4 clips), "
             "Unspecified (1 clip), Day9 (1 clip)\n",
             " - smart range criteria: 7\n",
             " - smart range output: \"reel1\": 1 clip\n",
         })
        EXPECT_NE(log.find(line), std::string::npos) << line << log;
}

TEST(TLSmartRangeParserTest, MediaURLsAreThePathURLsOfTheFirstVideoAndAudioTrackFiles)
{
    const Project project(R"(<clip><name>X</name><uuid>UX</uuid><media>
        <audio><track><clipitem><file><pathurl>file:///a/1.wav</pathurl><pathurl>file:///a/no.wav</pathurl></file></clipitem>
            <clipitem><file><pathurl/></file></clipitem><?clipitem not an element?>
            <clipitem><file><name>no URL</name></file><file><pathurl>file:///a/second-file.wav</pathurl></file></clipitem></track>
          <track><clipitem><file><pathurl><![CDATA[file:///a/2.wav]]></pathurl></file></clipitem></track></audio>
        <video><track><clipitem><file><pathurl>file:///v/1.mov</pathurl></file></clipitem></track></video>
        <video><track><clipitem><file><pathurl>file:///v/second-video.mov</pathurl></file></clipitem></track></video>
        <audio><track><clipitem><file><pathurl>file:///a/second-audio.wav</pathurl></file></clipitem></track></audio>
      </media><media><video><track><clipitem><file><pathurl>file:///second-media.mov</pathurl></file></clipitem></track></video></media>
      </clip>)");
    Groups groups;
    const std::string log = loggedBy([&] { groups = groupsFor(project, 2); });
    EXPECT_EQ(groups, (Groups{{"a", {"X"}}}));
    // The same texts, in the same order, as the union query gives.
    const std::optional<TLXMLNodeList> urls = TLXMLParser::evaluateQuery(
        "./media[1]/(video[1] | audio[1])/track/clipitem/file[1]/pathurl[1]/text()",
        project.controller().clips().at(0).node());
    ASSERT_TRUE(urls);
    std::string expected = "(";
    for (const pugi::xpath_node &url : *urls)
        expected += (expected.size() > 1 ? ", " : "") + TLXMLParser::stringValue(url);
    expected += ")";
    EXPECT_EQ(expected, "(file:///a/1.wav, file:///a/2.wav, file:///v/1.mov)");
    EXPECT_NE(log.find(" - smart range paths: " + expected + "\n"), std::string::npos) << log;
}
