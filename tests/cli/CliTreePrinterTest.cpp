// Printing a bin tree as text and as JSON.
#include "CliTreePrinter.h"

#include "TLBinRangeItem.h"
#include "TLMediaItem.h"
#include "TLRegularBin.h"
#include "TLSmartBin.h"
#include "TLSmartRangeItem.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

TLNodeList sampleTree()
{
    auto dailies = TLRegularBin::create();
    dailies->setBinName("Dailies \"A\"");
    auto reel = TLBinRangeItem::create("Reel 2", "Reel [1-2]", dailies, 2, 1);
    reel->setUuid("R2");
    auto smart = TLSmartBin::create();
    smart->setBinName("Talk");
    smart->setMatchType(1);
    smart->setFilterArray({TLSmartBinFilter::create(13, 2, "Interview"), TLSmartBinFilter::create(11, 0, "talk")});
    // Passing both filters of an "any" bin lists a clip twice.
    smart->setChildren({TLMediaItem::create("/m/a.mov", "A", "C1"), TLMediaItem::create("/m/a.mov", "A", "C1"),
                        TLMediaItem::create(std::nullopt, "B", "C2")});
    dailies->setChildren({reel, smart});
    auto scene = TLSmartRangeItem::create("12", 7);
    scene->setUuid("S12");
    scene->setChildren({TLMediaItem::create(std::nullopt, "B", "C2")});
    return {dailies, scene};
}

} // namespace

TEST(CliTreePrinterTest, TextShowsKindsNamesCountsAndIdentifiers)
{
    EXPECT_EQ(CliTreePrinter::text(sampleTree()),
              "bin \"Dailies \\\"A\\\"\"\n"
              "  range \"Reel 2\", uuid R2\n"
              "  smart-bin \"Talk\", 3 clips (2 distinct), no uuid yet\n"
              "smart-range \"12\", 1 clip, uuid S12\n");
    EXPECT_EQ(CliTreePrinter::text({}), "(no bins)\n");
    const std::string withClips = CliTreePrinter::text(sampleTree(), true);
    EXPECT_NE(withClips.find("    clip \"B\", uuid C2\n"), std::string::npos) << withClips;
}

TEST(CliTreePrinterTest, JsonHoldsOneObjectPerNode)
{
    const auto json = nlohmann::json::parse(CliTreePrinter::json(sampleTree()));
    ASSERT_EQ(json.size(), 2u);
    const auto &dailies = json[0];
    EXPECT_EQ(dailies["kind"], "bin");
    EXPECT_EQ(dailies["name"], "Dailies \"A\"");
    EXPECT_TRUE(dailies["uuid"].is_null());
    const auto &reel = dailies["children"][0];
    EXPECT_EQ(reel["kind"], "range");
    EXPECT_EQ(reel["expression"], "Reel [1-2]");
    EXPECT_EQ(reel["index"], 1);
    EXPECT_EQ(reel["count"], 2);
    const auto &talk = dailies["children"][1];
    EXPECT_EQ(talk["match"], "any");
    EXPECT_EQ(talk["filters"][0], (nlohmann::json{{"field", "label"}, {"operator", "is"}, {"value", "Interview"}}));
    EXPECT_EQ(talk["clips"], 3);
    EXPECT_EQ(talk["children"][0], (nlohmann::json{{"kind", "clip"}, {"name", "A"}, {"uuid", "C1"},
                                                   {"path", "/m/a.mov"}, {"children", nlohmann::json::array()}}));
    EXPECT_TRUE(talk["children"][2]["path"].is_null());
    EXPECT_EQ(json[1]["criterion"], "scene");
    EXPECT_EQ(json[1]["uuid"], "S12");
    EXPECT_EQ(CliTreePrinter::json({}), "[]\n");
}

TEST(CliTreePrinterTest, JsonReplacesBytesThatAreNotUtf8)
{
    auto bin = TLRegularBin::create();
    bin->setBinName("Bad \xff name");
    const auto json = nlohmann::json::parse(CliTreePrinter::json({bin}));
    EXPECT_EQ(json[0]["name"], "Bad \xEF\xBF\xBD name");
}
