// Smart bin filter matching on small inline projects: every field, every
// operator, the three match types and the log lines.
#include "TLSmartBinParser.h"

#include "TLLog.h"
#include "ProjectFixtures.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

using Project = test::LoadedProject;

struct Row
{
    std::int64_t type;
    std::int64_t match;
    std::string text;
};

TLFilterList filters(const std::vector<Row> &rows)
{
    TLFilterList list;
    for (const Row &row : rows)
        list.push_back(TLSmartBinFilter::create(row.type, row.match, row.text));
    return list;
}

std::vector<std::string> matchedNames(const Project &project, const std::vector<Row> &rows,
                                      std::int64_t matchType)
{
    std::vector<std::string> names;
    const TLMediaItemList items =
        TLSmartBinParser::arrayFromFilterArray(filters(rows), "Bin", matchType, project.controller());
    for (const std::shared_ptr<TLMediaItem> &item : items)
        names.push_back(item->shortName());
    return names;
}

// One clip with every field, one holding its file directly, one with an
// empty sample rate and one with nothing but a name.
const char *const fieldClips = R"(
<clip id="full"><uuid>U-FULL</uuid><name>Reel One</name><duration>9</duration>
  <rate><timebase>25</timebase></rate>
  <logginginfo><scene>Scene 1</scene><shottake>2</shottake><lognote>note &amp; more</lognote>
    <good>TRUE</good></logginginfo>
  <labels><label2>Red</label2></labels>
  <comments><mastercomment1>c1</mastercomment1><mastercomment2>c2</mastercomment2>
    <mastercomment3>c3</mastercomment3><mastercomment4>c4</mastercomment4></comments>
  <media>
    <video><track><clipitem><fielddominance>upper</fielddominance>
      <file><pathurl>file://localhost/Volumes/Media/a%20b.MOV</pathurl>
        <media><video><samplecharacteristics><width>1920</width><height>1080</height></samplecharacteristics></video></media>
      </file></clipitem></track></video>
    <audio>stereo<track><clipitem><file><media><audio><samplecharacteristics>
      <samplerate>48000</samplerate><depth>16</depth></samplecharacteristics></audio></media></file></clipitem></track></audio>
  </media>
</clip>
<clip id="direct"><uuid>U-DIRECT</uuid><name>Direct</name><duration>100</duration>
  <file><pathurl>file://localhost/snd/b.WAV</pathurl></file>
</clip>
<clip id="silent"><name>Silent</name>
  <media><video><track><clipitem><file><pathurl>file://localhost/v/c.mp4</pathurl></file></clipitem></track></video>
    <audio><track><clipitem><file><media><audio><samplecharacteristics><samplerate/></samplecharacteristics></audio></media></file></clipitem></track></audio>
  </media>
</clip>
<clip id="bare"><name>Bare</name></clip>
)";

struct FieldCase
{
    std::int64_t type;
    std::vector<std::optional<std::string>> values; // of full, direct, silent, bare
};

} // namespace

TEST(TLSmartBinParserTest, EveryFieldReadsItsValueAndAMissingFieldPassesEveryRow)
{
    const Project project(fieldClips);
    const std::vector<std::string> clips{"Reel One", "Direct", "Silent", "Bare"};
    const std::nullopt_t none = std::nullopt;
    const std::vector<FieldCase> cases{
        {0, {"Reel One", "Direct", "Silent", "Bare"}},
        {1, {"a b.MOV", "b.WAV", "c.mp4", none}},
        {2, {"MOV", "WAV", "mp4", none}},
        {3, {none, "file://localhost/snd/b.WAV", none, none}},
        {4, {"9", "100", none, none}},
        {5, {"25", none, none, none}},
        {6, {"1920", none, none, none}},
        {7, {"1080", none, none, none}},
        {8, {"upper", none, none, none}},
        {9, {"Scene 1", none, none, none}},
        {10, {"2", none, none, none}},
        {11, {"note & more", none, none, none}},
        {12, {"TRUE", none, none, none}},
        {13, {"Red", none, none, none}},
        {14, {"c1", none, none, none}},
        {15, {"c2", none, none, none}},
        {16, {"c3", none, none, none}},
        {17, {"c4", none, none, none}},
        {18, {"stereo", none, none, none}},
        {19, {"true", "true", "false", "false"}},
        {20, {"16", none, none, none}},
    };
    for (const FieldCase &field : cases) {
        // Each present value is matched by "equals" on its own clip alone,
        // besides the clips that lack the field.
        for (std::size_t owner = 0; owner < clips.size(); ++owner) {
            if (!field.values[owner])
                continue;
            std::vector<std::string> expected;
            for (std::size_t clip = 0; clip < clips.size(); ++clip) {
                if (!field.values[clip] || field.values[clip] == field.values[owner])
                    expected.push_back(clips[clip]);
            }
            EXPECT_EQ(matchedNames(project, {{field.type, 2, *field.values[owner]}}, 2), expected)
                << "type " << field.type << " value " << *field.values[owner];
        }
    }
}

// The smart range finds both values in the same clip: it reads media at any
// depth under the file.
TEST(TLSmartBinParserTest, SampleRateAndDepthAreReadOnlyFromTheFilesOwnMedia)
{
    const Project project(R"(<clip><name>nested</name><uuid>U</uuid><media><audio><track><clipitem><file>
        <other><media><audio><samplecharacteristics><samplerate>32000</samplerate><depth>24</depth>
        </samplecharacteristics></audio></media></other></file></clipitem></track></audio></media></clip>)");
    const std::vector<std::string> nested{"nested"};
    EXPECT_EQ(matchedNames(project, {{19, 2, "false"}}, 2), nested);
    // No depth is read: a clip without the field passes a row that no
    // depth of 24 would.
    EXPECT_EQ(matchedNames(project, {{20, 2, "none"}}, 2), nested);
}

TEST(TLSmartBinParserTest, OperatorsCompareTextAsStated)
{
    const Project project(R"(
        <clip><name>REEL 9</name><duration>9</duration></clip>
        <clip><name>Reel</name><duration>1</duration></clip>
        <clip><name>ÉTÉ</name><duration>100</duration></clip>
        <clip><name>𝄞</name><duration>10</duration></clip>
        <clip><name>～</name></clip>)");
    using Names = std::vector<std::string>;
    EXPECT_EQ(matchedNames(project, {{0, 0, "reel"}}, 2), (Names{"REEL 9", "Reel"}));
    EXPECT_EQ(matchedNames(project, {{0, 0, "été"}}, 2), (Names{"ÉTÉ"}));
    EXPECT_EQ(matchedNames(project, {{0, 0, ""}}, 2), (Names{"REEL 9", "Reel", "ÉTÉ", "𝄞", "～"}));
    EXPECT_EQ(matchedNames(project, {{0, 1, "reel"}}, 2), (Names{"ÉTÉ", "𝄞", "～"}));
    EXPECT_EQ(matchedNames(project, {{0, 2, "reel"}}, 2), Names{});
    EXPECT_EQ(matchedNames(project, {{0, 2, "Reel"}}, 2), (Names{"Reel"}));
    EXPECT_EQ(matchedNames(project, {{0, 3, "Reel"}}, 2), (Names{"REEL 9", "ÉTÉ", "𝄞", "～"}));
    // Durations compare as text: 9 sorts after 100, 1 before it; a clip
    // without a duration passes.
    EXPECT_EQ(matchedNames(project, {{4, 4, "100"}}, 2), (Names{"REEL 9", "～"}));
    EXPECT_EQ(matchedNames(project, {{4, 5, "100"}}, 2), (Names{"Reel", "𝄞", "～"}));
    // UTF-16 order puts U+1D11E (a surrogate pair) before U+FF5E, unlike UTF-8.
    EXPECT_EQ(matchedNames(project, {{0, 5, "～"}}, 2), (Names{"REEL 9", "Reel", "ÉTÉ", "𝄞"}));
    EXPECT_EQ(matchedNames(project, {{0, 4, "𝄞"}}, 2), (Names{"～"}));
    for (const std::int64_t other : {6, -1, 99})
        EXPECT_EQ(matchedNames(project, {{0, other, "x"}}, 2).size(), 5u) << other;
}

TEST(TLSmartBinParserTest, ContainsIgnoresCaseInEveryScript)
{
    const Project project(R"(
        <clip><name>STRASSE 1</name></clip>
        <clip><name>Straße 2</name></clip>
        <clip><name>ΟΔΥΣΣΕΑΣ</name></clip>
        <clip><name>ȘTEFAN ȚEPEȘ</name></clip>
        <clip><name>ＦＣＰ Ｒｅｅｌ</name></clip>
        <clip><name>Strand</name></clip>)");
    struct Case
    {
        std::int64_t match;
        std::string filter;
        std::vector<std::string> names;
    };
    const std::vector<Case> cases{
        // "ß" and "SS" both fold to "ss", and the final sigma to a sigma.
        {0, "straße", {"STRASSE 1", "Straße 2"}},
        {0, "SS", {"STRASSE 1", "Straße 2"}},
        {0, "οδυσσεας", {"ΟΔΥΣΣΕΑΣ"}},
        {0, "ștefan țepeș", {"ȘTEFAN ȚEPEȘ"}},
        {0, "ｆｃｐ ｒＥＥＬ", {"ＦＣＰ Ｒｅｅｌ"}},
        {1, "STRASSE", {"ΟΔΥΣΣΕΑΣ", "ȘTEFAN ȚEPEȘ", "ＦＣＰ Ｒｅｅｌ", "Strand"}},
    };
    for (const Case &test : cases)
        EXPECT_EQ(matchedNames(project, {{0, test.match, test.filter}}, 2), test.names)
            << "operator " << test.match << " filter " << test.filter;
}

TEST(TLSmartBinParserTest, MatchTypesListClipsAsEachRuleSays)
{
    const Project project("<clip><name>ab</name></clip><clip><name>a</name></clip><clip><name>c</name></clip>");
    using Names = std::vector<std::string>;
    const std::vector<Row> aAndB{{0, 0, "a"}, {0, 0, "b"}};
    EXPECT_EQ(matchedNames(project, aAndB, 1), (Names{"ab", "ab", "a"}));
    EXPECT_EQ(matchedNames(project, aAndB, 2), (Names{"ab"}));
    EXPECT_EQ(matchedNames(project, aAndB, 7), (Names{"ab"}));
    EXPECT_EQ(matchedNames(project, aAndB, 0), Names{});
    EXPECT_EQ(matchedNames(project, {{0, 0, "a"}}, 0), (Names{"ab", "a"}));
    // A row above type 20 is skipped but still counts among the rows.
    EXPECT_EQ(matchedNames(project, {{0, 0, "a"}, {21, 0, "x"}}, 2), Names{});
    EXPECT_EQ(matchedNames(project, {{21, 0, "x"}, {0, 0, "a"}}, 1), (Names{"ab", "a"}));
    EXPECT_EQ(matchedNames(project, {{21, 0, "x"}, {0, 0, "a"}}, 0), Names{});
    EXPECT_EQ(matchedNames(project, {{21, 0, "x"}}, 1), Names{});
    // A type below 0 reads no field, so every clip passes it.
    EXPECT_EQ(matchedNames(project, {{-1, 2, "x"}}, 2), (Names{"ab", "a", "c"}));
    EXPECT_EQ(matchedNames(project, {}, 1), Names{});

    const Project empty("");
    EXPECT_EQ(matchedNames(empty, {{0, 0, "a"}}, 1), Names{});
}

TEST(TLSmartBinParserTest, MediaItemsAndTheBinCarryTheClipsAndTheArguments)
{
    const Project project(std::string(fieldClips) + R"(
        <clip><name>Blank%20URL</name><uuid>U-BLANK</uuid>
          <media><video><track><clipitem><file><pathurl/><pathurl>file:///not used</pathurl></file></clipitem>
            <clipitem><file><pathurl>file:///second.mov</pathurl></file></clipitem></track></video></media></clip>)");
    const TLFilterList rows = filters({{9, 0, "scene"}, {21, 0, ""}, {0, 1, "Bare"}});
    const std::shared_ptr<TLSmartBin> bin = TLSmartBinParser::binFromFilterArray(rows, "Selects", 1, project.controller());
    EXPECT_EQ(bin->binName(), "Selects");
    EXPECT_EQ(bin->matchType(), 1);
    EXPECT_EQ(*bin->filterArray(), rows);
    EXPECT_FALSE(bin->uuid());

    const TLNodeListPtr children = bin->children();
    std::vector<std::tuple<std::optional<std::string>, std::string, std::optional<std::string>>> items;
    for (const TLBinNodePtr &child : *children) {
        ASSERT_EQ(child->kind(), TLBinNodeKind::mediaItem);
        EXPECT_EQ(child->parent(), bin);
        const auto &item = static_cast<const TLMediaItem &>(*child);
        items.emplace_back(item.filePath(), item.shortName(), item.uuid());
    }
    using Item = decltype(items)::value_type;
    // Under "any" a clip is listed once per row it matches; Bare fails the name row.
    const std::vector<Item> expected{
        {"/Volumes/Media/a b.MOV", "Reel One", "U-FULL"}, {"/Volumes/Media/a b.MOV", "Reel One", "U-FULL"},
        {"/snd/b.WAV", "Direct", "U-DIRECT"},             {"/snd/b.WAV", "Direct", "U-DIRECT"},
        {"/v/c.mp4", "Silent", std::nullopt},             {"/v/c.mp4", "Silent", std::nullopt},
        {std::nullopt, "Bare", std::nullopt},
        // The first pathurl is empty: the clip's path is the next first pathurl's.
        {"/second.mov", "Blank URL", "U-BLANK"},          {"/second.mov", "Blank URL", "U-BLANK"},
    };
    EXPECT_EQ(items, expected);
    // Entries for the same clip are separate items.
    EXPECT_NE(children->at(1), children->at(2));
}

TEST(TLSmartBinParserTest, WritesTheMatchTypeAndTheRowsToTheLog)
{
    const Project project("<clip><name>a</name></clip>");
    const TLFilterList rows = filters({{9, 2, "Scene 1"}, {0, 0, "50% \"x\""}});
    const std::optional<std::string> logPath = TLLog::currentLogPath();
    ASSERT_TRUE(logPath);
    // A fresh log in the sandbox; as root the log lives in the machine's folder.
    std::filesystem::create_directories(std::filesystem::path(*logPath).parent_path());
    TLLog::createNewLog(std::nullopt, true);
    TLSmartBinParser::arrayFromFilterArray(rows, "Bin", 2, project.controller());
    TLLog::finishWriting();
    const std::string log = test::readFile(*logPath);
    EXPECT_NE(log.find(" - smart bin matchtype: 2\n"), std::string::npos) << log;
    EXPECT_NE(log.find(" - smart bin filterarray: 2 rows: (type 9, match 2, \"Scene 1\"), "
                       "(type 0, match 0, \"50% \"x\"\")\n"),
              std::string::npos)
        << log;
}
