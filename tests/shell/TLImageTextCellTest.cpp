#include "TLImageTextCell.h"

#include <gtest/gtest.h>

namespace {

TLImageTextCell cellWithIcon(double side = 16.0)
{
    TLImageTextCell cell;
    cell.setImage(TLCellSize{side, side});
    return cell;
}

} // namespace

TEST(TLImageTextCellTest, WithoutImageRectsAreZeroAndTitleTakesWholeFrame)
{
    const TLImageTextCell cell;
    const TLCellRect frame{10.0, 40.0, 200.0, 20.0};
    EXPECT_EQ(cell.imageRectForBounds(frame), TLCellRect{});
    EXPECT_EQ(cell.titleRectForBounds(frame), TLCellRect{});
    const TLImageTextCellDrawing drawing = cell.drawWithFrame(frame, true);
    EXPECT_FALSE(drawing.imageRect);
    EXPECT_EQ(drawing.titleFrame, frame);
    EXPECT_EQ(cell.editWithFrame(frame), (TLCellRect{17.0, 40.0, 193.0, 20.0}));
    EXPECT_EQ(cell.cellSize({100.0, 17.0}), (TLCellSize{103.0, 17.0}));
    EXPECT_EQ(cell.subtitleColor(), (TLCellColor{0.5, 0.5, 0.5, 1.0}));
}

TEST(TLImageTextCellTest, LayoutKeepsItsAsymmetries)
{
    const TLImageTextCell cell = cellWithIcon();
    const TLCellRect frame{10.0, 40.0, 200.0, 21.0};
    // The image's y ignores the frame's own y; the title moves up, not narrower.
    EXPECT_EQ(cell.imageRectForBounds(frame), (TLCellRect{13.0, 3.0, 16.0, 16.0}));
    EXPECT_EQ(cell.titleRectForBounds(frame), (TLCellRect{29.0, 21.0, 200.0, 21.0}));
    EXPECT_EQ(cell.cellSize({100.0, 17.0}), (TLCellSize{119.0, 17.0}));
}

TEST(TLImageTextCellTest, EditorStartsTwentyThreeRightOfTheEdgeWithSixteenPointIcon)
{
    const TLImageTextCell cell = cellWithIcon();
    const TLCellRect frame{5.0, 0.0, 100.0, 18.0};
    EXPECT_EQ(cell.editWithFrame(frame), (TLCellRect{28.0, 0.0, 77.0, 18.0}));
    EXPECT_EQ(cell.selectWithFrame(frame), cell.editWithFrame(frame));
    // A frame narrower than the slice leaves no room rather than a negative width.
    EXPECT_EQ(cell.editWithFrame({5.0, 0.0, 10.0, 18.0}), (TLCellRect{15.0, 0.0, 0.0, 18.0}));
}

TEST(TLImageTextCellTest, DrawingCentresTheImageForBothOrientations)
{
    const TLImageTextCell cell = cellWithIcon();
    const TLCellRect frame{0.0, 100.0, 200.0, 21.0};
    const TLImageTextCellDrawing flipped = cell.drawWithFrame(frame, true);
    ASSERT_TRUE(flipped.imageRect);
    EXPECT_EQ(*flipped.imageRect, (TLCellRect{3.0, 119.0, 16.0, 16.0}));
    EXPECT_EQ(flipped.titleFrame, (TLCellRect{23.0, 100.0, 177.0, 21.0}));
    const TLImageTextCellDrawing upright = cell.drawWithFrame(frame, false);
    EXPECT_EQ(*upright.imageRect, (TLCellRect{3.0, 103.0, 16.0, 16.0}));
}

TEST(TLImageTextCellTest, SubtitleIsCutByAverageCharacterWidth)
{
    TLImageTextCell cell;
    const TLCellRect frame{0.0, 0.0, 150.0, 30.0};
    EXPECT_FALSE(cell.subtitleForFrame(frame, {10.0, 10.0}));

    cell.setSubtitle("abcdefghij");
    EXPECT_EQ(cell.subtitleForFrame(frame, {100.0, 10.0}),
              (TLImageTextCellSubtitle{"abcdefghij", 2.0, 19.0}));
    // 200 wide for 10 characters: 20 each, so a limit of 100 keeps 5.
    EXPECT_EQ(cell.subtitleForFrame(frame, {200.0, 10.0})->text, "abcde...");

    // Characters beyond the basic plane count as two units and are never split.
    cell.setSubtitle("\xF0\x9F\x8E\xAC\xF0\x9F\x8E\xAC");
    EXPECT_EQ(cell.subtitleForFrame(frame, {400.0, 10.0})->text, "...");
    EXPECT_EQ(cell.subtitleForFrame(frame, {200.0, 10.0})->text, "\xF0\x9F\x8E\xAC...");
}

TEST(TLImageTextCellTest, SubtitleInFrameNarrowerThanMarginIsEllipsisAlone)
{
    TLImageTextCell cell;
    cell.setSubtitle("Reel 1");
    EXPECT_EQ(cell.subtitleForFrame({0.0, 0.0, 20.0, 18.0}, {30.0, 10.0})->text, "...");
    EXPECT_EQ(cell.subtitleForFrame({0.0, 0.0, 0.0, 18.0}, {0.0, 0.0})->text, "...");
}
