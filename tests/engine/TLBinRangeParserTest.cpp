// Range expression expansion.
#include "TLBinRangeParser.h"

#include <gtest/gtest.h>

using Names = std::vector<std::string>;

namespace {
Names expand(std::string_view expression)
{
    return TLBinRangeParser::arrayFromExpression(expression);
}
} // namespace

TEST(TLBinRangeParserTest, RangesCountUpDownAndByStep)
{
    EXPECT_EQ(expand("Reel [1-3]"), (Names{"Reel 1", "Reel 2", "Reel 3"}));
    EXPECT_EQ(expand("Reel [3-1]"), (Names{"Reel 3", "Reel 2", "Reel 1"}));
    EXPECT_EQ(expand("Shot [0-20x5]_v2"),
              (Names{"Shot 0_v2", "Shot 5_v2", "Shot 10_v2", "Shot 15_v2", "Shot 20_v2"}));
    EXPECT_EQ(expand("[10-1x4]"), (Names{"10", "6", "2"}));
    EXPECT_EQ(expand("Reel [001-003]"), (Names{"Reel 1", "Reel 2", "Reel 3"}));
    EXPECT_EQ(expand("[4-4]"), (Names{"4"}));
    EXPECT_EQ(expand("[A-C]"), (Names{"0"})) << "letters read as zero";
    EXPECT_EQ(expand("[ 7-9 ]"), (Names{"7", "8", "9"})) << "leading blanks are skipped";
}

TEST(TLBinRangeParserTest, LiteralsAndDuplicatesKeepFirstProducedOrder)
{
    EXPECT_EQ(expand("Cam [A,B,C]"), (Names{"Cam A", "Cam B", "Cam C"}));
    EXPECT_EQ(expand("Day [1-3,2,5]"), (Names{"Day 1", "Day 2", "Day 3", "Day 5"}));
    EXPECT_EQ(expand("[a, b]"), (Names{"a", " b"}));
    EXPECT_EQ(expand("[a,,a,3x]"), (Names{"a", "3x"}));
    EXPECT_EQ(expand("Reel 7"), (Names{"Reel 7"}));
    EXPECT_EQ(expand("[1-3]-[4-6]"), (Names{"1-[4-6]", "2-[4-6]", "3-[4-6]"}));
    EXPECT_EQ(expand("Caméra [é,1-2]"), (Names{"Caméra é", "Caméra 1", "Caméra 2"}));
}

TEST(TLBinRangeParserTest, MalformedItemsAndBodiesGiveNothing)
{
    for (const char *expression : {"[1-10x0]", "[1-10x]", "[-5]", "[5-]", "Reel [1-3", "[]", "[,]"})
        EXPECT_TRUE(expand(expression).empty()) << expression;
    EXPECT_EQ(expand("[-5,2]"), (Names{"2"})) << "only the malformed item is skipped";
}

TEST(TLBinRangeParserTest, EachRangeIsCappedAtOneThousandValuesWithoutOverflow)
{
    const auto up = expand("[1-5000]");
    ASSERT_EQ(up.size(), 1000u);
    EXPECT_EQ(up.front(), "1");
    EXPECT_EQ(up.back(), "1000");
    const auto down = expand("[5000-1]");
    ASSERT_EQ(down.size(), 1000u);
    EXPECT_EQ(down.back(), "4001");

    const auto extreme = expand("[-2147483648x1,2147483000-99999999999]");
    ASSERT_EQ(extreme.size(), 648u) << "the second number clamps to the largest 32-bit value";
    EXPECT_EQ(extreme.back(), "2147483647");
    EXPECT_EQ(expand("[2147483647-0x2147483647]"), (Names{"2147483647"}));
}

TEST(TLBinRangeParserTest, InvalidRangesThrowInsteadOfReadingPastTheEnd)
{
    EXPECT_THROW(expand("a]b[c"), std::out_of_range);
    EXPECT_THROW(expand("[3x2-5]"), std::out_of_range);
    EXPECT_TRUE(expand("[3x0-5]").empty()) << "a step below one is skipped before the range check";
}

TEST(TLBinRangeParserTest, ManyItemsStayLinear)
{
    std::string body;
    for (int item = 0; item < 200; ++item)
        body += (item ? "," : "") + std::to_string(item * 1000) + "-" + std::to_string(item * 1000 + 999);
    const auto names = expand("R[" + body + "]");
    ASSERT_EQ(names.size(), 200000u);
    EXPECT_EQ(names[123456], "R123456");
}
