// Case folding: what folds, what does not, and invalid bytes left alone.
#include "TLCaseFolding.h"

#include <gtest/gtest.h>

TEST(TLCaseFoldingTest, FoldsTheCapitalsOfTheCoveredScriptsOnly)
{
    EXPECT_EQ(TLCaseFolding::foldedCase("ÉTÉ Reel ŁÓDŹ ΑΒΓ ДЁ İ Ÿ"), "été reel łódź αβγ дё i ÿ");
    // × is no capital, ß has no capital here, scripts beyond stay as they are.
    EXPECT_EQ(TLCaseFolding::foldedCase("×ß東京Ⅻ𝐀"), "×ß東京Ⅻ𝐀");
    EXPECT_EQ(TLCaseFolding::foldedCase(""), "");
    // Invalid and overlong bytes are copied, never folded into characters.
    EXPECT_EQ(TLCaseFolding::foldedCase("A\xFF" "B\xC1\x81\xC3"), "a\xFF" "b\xC1\x81\xC3");
}

TEST(TLCaseFoldingTest, ComparesAndSearchesWithoutRegardToCase)
{
    using Ordering = std::weak_ordering;
    EXPECT_EQ(TLCaseFolding::caseInsensitiveCompare("Reel A", "reel b"), Ordering::less);
    EXPECT_EQ(TLCaseFolding::caseInsensitiveCompare("ÉCLAIR", "éclair"), Ordering::equivalent);
    EXPECT_EQ(TLCaseFolding::caseInsensitiveCompare("reel", "Reel 2"), Ordering::less);
    EXPECT_EQ(TLCaseFolding::caseInsensitiveCompare("", ""), Ordering::equivalent);
    // An invalid byte sorts after the folded scripts and apart from "A".
    EXPECT_EQ(TLCaseFolding::caseInsensitiveCompare("\xC1\x81", "a"), Ordering::greater);
    EXPECT_EQ(TLCaseFolding::caseInsensitiveCompare("a\xFF", "A\xFE"), Ordering::greater);

    EXPECT_TRUE(TLCaseFolding::containsIgnoringCase("Scene REEL 4", "reel"));
    EXPECT_TRUE(TLCaseFolding::containsIgnoringCase("Drone ÜBER Stadt", "über"));
    EXPECT_TRUE(TLCaseFolding::containsIgnoringCase("anything", ""));
    EXPECT_TRUE(TLCaseFolding::containsIgnoringCase("", ""));
    EXPECT_FALSE(TLCaseFolding::containsIgnoringCase("", "a"));
    EXPECT_FALSE(TLCaseFolding::containsIgnoringCase("Reel", "reels"));
}
