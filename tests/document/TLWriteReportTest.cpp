#include "TLWriteReport.h"

#include "TLMediaItem.h"
#include "TLRegularBin.h"
#include "TLSmartBin.h"

#include <gtest/gtest.h>

namespace {

TLBinNodePtr smartBinListing(const std::string &name, const std::vector<std::optional<std::string>> &clipUuids)
{
    auto bin = TLSmartBin::create();
    bin->setBinName(name);
    for (const auto &uuid : clipUuids)
        bin->addChild(TLMediaItem::create("/Media/a.mov", "a", uuid));
    return bin;
}

TEST(TLWriteReportTest, WarnsOfNamesASaveLeavesOutOrReadsAsOtherText)
{
    const struct
    {
        std::string name;
        std::string warning;
    } cases[] = {
        {"Reel 1 — Été", ""},
        {"R&D", "Saving leaves the bin \"R&D\" out: its name holds \"&\" or \"<\" and is not well-formed XML."},
        {"a<b", "Saving leaves the bin \"a<b\" out: its name holds \"&\" or \"<\" and is not well-formed XML."},
        {"R&amp;D", "Saving writes the name \"R&amp;D\" as XML, so the project will read it as \"R&D\"."},
        {"<b>Bold</b>", "Saving writes the name \"<b>Bold</b>\" as XML, so the project will read it as \"Bold\"."},
    };
    for (const auto &[name, warning] : cases)
        EXPECT_EQ(TLWriteReport::warningForBinName(name), warning) << name;
}

TEST(TLWriteReportTest, NamesEachBinLeftOutAndEachBinWithClipsThatCannotBeWritten)
{
    auto top = TLRegularBin::create();
    top->setBinName("Dailies");
    const TLBinNodePtr interviews = smartBinListing("Interviews", {"U1", std::nullopt, std::nullopt});
    top->addChild(interviews);
    const TLBinNodePtr complete = smartBinListing("Complete", {"U2"});
    auto leftOut = TLRegularBin::create();
    leftOut->setBinName("R&D");
    leftOut->addChild(smartBinListing("Lost", {std::nullopt}));

    const TLWriteReport report = TLWriteReport::ofWrite({top, complete, leftOut}, {leftOut});
    EXPECT_EQ(TLWriteReport::clipsWithoutIdentifier(*interviews), 2u);
    EXPECT_EQ(report.message(),
              "The bin \"R&D\" could not be merged into the project (its name holds \"&\" or \"<\" and is not "
              "well-formed XML) and will be gone when the project is next opened.\n"
              "2 clips of the bin \"Dailies/Interviews\" could not be written into it (they have no uuid of their "
              "own in the project).");
    EXPECT_TRUE(TLWriteReport::ofWrite({complete}).isEmpty());
    EXPECT_EQ(TLWriteReport::ofWrite({complete}).message(), "");
}

} // namespace
