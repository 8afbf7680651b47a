// UTF-8 to UTF-16 units, UTF-8 checking and percent decoding, on damaged input too.
#include "TLTextCoding.h"

#include <gtest/gtest.h>

#include <string>

TEST(TLTextCodingTest, Utf16UnitsReplaceEachBadByteWithOneReplacementCharacter)
{
    EXPECT_EQ(TLTextCoding::utf16Units(""), u"");
    EXPECT_EQ(TLTextCoding::utf16Units("a\xC3\xA9\xE2\x82\xAC"), u"a\u00E9\u20AC");
    EXPECT_EQ(TLTextCoding::utf16Units("\xF0\x9F\x98\x80"), std::u16string({0xD83D, 0xDE00}));
    EXPECT_EQ(TLTextCoding::utf16Units(std::string("a\0b", 3)), std::u16string(u"a\0b", 3));
    // A stray continuation byte, a truncated sequence, an overlong "/", an
    // encoded surrogate, a code point past U+10FFFF and a lead byte above F4.
    EXPECT_EQ(TLTextCoding::utf16Units("\x80" "a"), u"\uFFFDa");
    EXPECT_EQ(TLTextCoding::utf16Units("\xE2\x82"), u"\uFFFD\uFFFD");
    EXPECT_EQ(TLTextCoding::utf16Units("\xC0\xAF"), u"\uFFFD\uFFFD");
    EXPECT_EQ(TLTextCoding::utf16Units("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(TLTextCoding::utf16Units("\xF4\x90\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(TLTextCoding::utf16Units("\xF5" "a"), u"\uFFFDa");
}

TEST(TLTextCodingTest, Utf16LengthCountsWhatUtf16UnitsBuilds)
{
    for (const std::string text : {"", "a\xC3\xA9\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\x80" "a", "\xE2\x82",
                                   "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF0\x9F\x98"})
        EXPECT_EQ(TLTextCoding::utf16Length(text), TLTextCoding::utf16Units(text).size()) << text;
    EXPECT_EQ(TLTextCoding::utf16Length("\xF0\x9F\x98\x80"), 2u);
}

TEST(TLTextCodingTest, IsValidUTF8RefusesEveryMalformedSequence)
{
    for (const char *good : {"", "plain", "caf\xC3\xA9", "\xEF\xBF\xBF", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(TLTextCoding::isValidUTF8(good)) << good;
    for (const char *bad : {"\x80", "\xC3", "a\xC3(", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xBF\xBF", "\xF4\x90\x80\x80",
                            "\xFF"})
        EXPECT_FALSE(TLTextCoding::isValidUTF8(bad)) << bad;
}

TEST(TLTextCodingTest, PercentDecodingNeedsTwoHexDigitsAndCanRefuseHighBytes)
{
    using Bytes = TLTextCoding::EscapedBytes;
    EXPECT_EQ(TLTextCoding::percentDecoded(""), "");
    EXPECT_EQ(TLTextCoding::percentDecoded("Scene%201%2f%2F"), "Scene 1//");
    EXPECT_EQ(TLTextCoding::percentDecoded("caf%C3%A9 caf\xC3\xA9"), "caf\xC3\xA9 caf\xC3\xA9");
    EXPECT_EQ(TLTextCoding::percentDecoded("%00"), std::string(1, '\0'));
    EXPECT_EQ(TLTextCoding::percentDecoded("%25%32%30"), "%20"); // decoded once, never again
    EXPECT_EQ(TLTextCoding::percentDecoded("%7F", Bytes::AsciiOnly), "\x7F");
    EXPECT_EQ(TLTextCoding::percentDecoded("%80", Bytes::AsciiOnly), std::nullopt);
    for (const char *bad : {"50%", "%", "%4", "%4g", "%%41", "a%x1"})
        EXPECT_EQ(TLTextCoding::percentDecoded(bad), std::nullopt) << bad;

    EXPECT_TRUE(TLTextCoding::isPercentEscapeAt("a%fF", 1));
    EXPECT_FALSE(TLTextCoding::isPercentEscapeAt("a%fF", 0));
    EXPECT_FALSE(TLTextCoding::isPercentEscapeAt("a%f", 1));
    EXPECT_FALSE(TLTextCoding::isPercentEscapeAt("%41", 7));
}
