// The message formatter: directives, and formats that disagree with their values.
#include "TLFormat.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>

TEST(TLFormatTest, FormatsEveryDirectiveOfTheMessages)
{
    EXPECT_EQ(TLFormat::stringWithFormat("%@ and %s", "one", std::string("two")), "one and two");
    EXPECT_EQ(TLFormat::stringWithFormat("%i %d %li %ld %lu", 1, -2, 3L, -4L, 5UL), "1 -2 3 -4 5");
    EXPECT_EQ(TLFormat::stringWithFormat("%f|%0.2f|%.1f|%8.3f|%-8.1f|", 1.5, 2.0 / 3, -0.04, 3.14159, 2.25),
              "1.500000|0.67|-0.0|   3.142|2.2     |");
    EXPECT_EQ(TLFormat::stringWithFormat("%08.2f %+d %05i %-4d| %x %#X", -3.5, 7, -42, 9, 255, 255),
              "-0003.50 +7 -0042 9   | ff 0XFF");
    EXPECT_EQ(TLFormat::stringWithFormat("100%% of %@", "it"), "100% of it");
    EXPECT_EQ(TLFormat::stringWithFormat("%5@|%-5@|%.2@", "ab", "é", "xyz"), "   ab|é    |xy");
    EXPECT_EQ(TLFormat::stringWithFormat("%lld %qu %zu", std::numeric_limits<long long>::min(), 1ULL, std::size_t(2)),
              "-9223372036854775808 1 2");
}

TEST(TLFormatTest, PrintsUtf16CodeUnitsAsUtf8)
{
    EXPECT_EQ(TLFormat::stringWithFormat("[%C%C%C]", TLFormatArgument::character(u'A'),
                                         TLFormatArgument::character(u'\u00e9'),
                                         TLFormatArgument::character(u'\u20ac')),
              "[A\xC3\xA9\xE2\x82\xAC]");
    EXPECT_EQ(TLFormat::stringWithFormat("%C", TLFormatArgument::character(char16_t(0xD83D))), "\xEF\xBF\xBD");
    EXPECT_EQ(TLFormat::stringWithFormat("%C|%C|%C", 0x1F600, -1, 0x110000), "\xF0\x9F\x98\x80|\xEF\xBF\xBD|\xEF\xBF\xBD");
    EXPECT_EQ(TLFormat::stringWithFormat("%C", TLFormatArgument::character(0)), std::string(1, '\0'));
}

TEST(TLFormatTest, AbsentAndMissingValuesNeverReadPastTheValues)
{
    EXPECT_EQ(TLFormat::stringWithFormat("%@ %s %d %f", nullptr, std::optional<std::string>(),
                                         TLFormatArgument(), static_cast<const char *>(nullptr)),
              "(null) (null) (null) (null)");
    EXPECT_EQ(TLFormat::stringWithFormat("a %@ b %d c"), "a  b  c");
    EXPECT_EQ(TLFormat::stringWithFormat("%@ and %@", "one"), "one and ");
    EXPECT_EQ(TLFormat::stringWithFormat("only %@", "one", "two", 3), "only one");
}

TEST(TLFormatTest, ValuesOfTheWrongKindAreConvertedNotMisread)
{
    EXPECT_EQ(TLFormat::stringWithFormat("%@ %@ %@ %s", 42, -7L, 0.5, 3.0), "42 -7 0.5 3");
    EXPECT_EQ(TLFormat::stringWithFormat("%i %f %C", "text", "more", "x"), "text more x");
    EXPECT_EQ(TLFormat::stringWithFormat("%d %d %d %d", 2.9, -2.9, 1e300, std::nan("")),
              "2 -2 9223372036854775807 0");
    EXPECT_EQ(TLFormat::stringWithFormat("%0.1f %lu %x", 3, -1, -1), "3.0 -1 ffffffffffffffff");
    EXPECT_EQ(TLFormat::stringWithFormat("%@ %d", TLFormatArgument::character(u'Z'), TLFormatArgument::character(u'Z')),
              "Z 90");
    EXPECT_EQ(TLFormat::stringWithFormat("%f %f %05f", std::numeric_limits<double>::infinity(), -std::nan(""),
                                         -std::numeric_limits<double>::infinity()),
              "inf nan  -inf");
    EXPECT_EQ(TLFormat::stringWithFormat("%@", true), "1");
}

TEST(TLFormatTest, UnknownAndUnfinishedDirectivesAreCopiedLiterally)
{
    EXPECT_EQ(TLFormat::stringWithFormat("50%"), "50%");
    EXPECT_EQ(TLFormat::stringWithFormat("%"), "%");
    EXPECT_EQ(TLFormat::stringWithFormat("%q then %@", "value"), "%q then value");
    EXPECT_EQ(TLFormat::stringWithFormat("%1$@ %0.2", "value"), "%1$@ %0.2");
    EXPECT_EQ(TLFormat::stringWithFormat("%l"), "%l");
    EXPECT_EQ(TLFormat::stringWithFormat(""), "");
}

TEST(TLFormatTest, HugeWidthsAndPrecisionsAreBounded)
{
    const auto text = TLFormat::stringWithFormat("%99999999999999999999999d|%.99999999999999f", 1, 1e308);
    EXPECT_EQ(text.find('|'), 4096u);
    EXPECT_LT(text.size(), 2u * 4096 + 400);
    EXPECT_EQ(TLFormat::stringWithFormat("%.0d|%.3d|%.0f|%#.0f", 0, 7, 2.5, 3.0), "|007|2|3.");
}
