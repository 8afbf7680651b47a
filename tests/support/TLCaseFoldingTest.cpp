// Case folding: Unicode's own folding table, the letters users type, and
// invalid bytes left alone.
#include "TLCaseFolding.h"

#include <gtest/gtest.h>

#include <compare>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Ordering = std::weak_ordering;

std::string utf8(char32_t c)
{
    std::string text;
    if (c < 0x80) {
        text += static_cast<char>(c);
    } else if (c < 0x800) {
        text += static_cast<char>(0xC0 | (c >> 6));
        text += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        text += static_cast<char>(0xE0 | (c >> 12));
        text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        text += static_cast<char>(0xF0 | (c >> 18));
        text += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (c & 0x3F));
    }
    return text;
}

// One line of CaseFolding.txt: "0130; F; 0069 0307; # LATIN CAPITAL ...".
struct FoldingLine
{
    std::string status;
    std::string character;
    std::string folding;
};

std::optional<FoldingLine> parsedFoldingLine(const std::string &line)
{
    if (line.empty() || line[0] == '#')
        return std::nullopt;
    std::istringstream fields(line);
    std::string code;
    std::string status;
    std::string mapping;
    if (!std::getline(fields, code, ';') || !std::getline(fields, status, ';') || !std::getline(fields, mapping, ';'))
        return std::nullopt;
    FoldingLine parsed{"", utf8(std::stoul(code, nullptr, 16)), ""};
    std::istringstream(status) >> parsed.status;
    std::istringstream scalars(mapping);
    std::string scalar;
    while (scalars >> scalar)
        parsed.folding += utf8(std::stoul(scalar, nullptr, 16));
    return parsed;
}

std::string escaped(const std::string &text)
{
    std::string hex;
    for (const char c : text) {
        static constexpr char digits[] = "0123456789ABCDEF";
        const auto byte = static_cast<unsigned char>(c);
        hex += {'\\', 'x', digits[byte >> 4], digits[byte & 0xF]};
    }
    return hex;
}

} // namespace

TEST(TLCaseFoldingTest, FoldsEveryCharacterAsUnicodesFullFoldingTableDoes)
{
    std::ifstream table(CORVALE_UNICODE_CASE_FOLDING_FILE);
    ASSERT_TRUE(table) << "Unicode's case folding table is missing at " << CORVALE_UNICODE_CASE_FOLDING_FILE
                       << "; install it with scripts/install-deps (Debian package unicode-data)";
    std::size_t checked = 0;
    std::vector<std::string> mismatches;
    for (std::string line; std::getline(table, line);) {
        const std::optional<FoldingLine> folding = parsedFoldingLine(line);
        // C and F together are the full folding; S and T are the simple and
        // Turkic alternatives.
        if (!folding || (folding->status != "C" && folding->status != "F"))
            continue;
        ++checked;
        const bool folds = TLCaseFolding::foldedCase(folding->character) == folding->folding;
        const bool compares = std::is_eq(TLCaseFolding::caseInsensitiveCompare(folding->character, folding->folding));
        if (!folds || !compares)
            mismatches.push_back(escaped(folding->character) + (folds ? " compares apart" : " folds wrongly"));
    }
    // Unicode 15 has 1,530 such lines; far fewer means the table went unread.
    EXPECT_GT(checked, 1400u);
    std::string listed;
    for (std::size_t index = 0; index < mismatches.size() && index < 20; ++index)
        listed += mismatches[index] + "\n";
    EXPECT_TRUE(mismatches.empty()) << mismatches.size() << " mismatches, first:\n" << listed;
}

TEST(TLCaseFoldingTest, FoldsTheLettersOfEveryScriptAndLeavesInvalidBytesAlone)
{
    struct Case
    {
        std::string text;
        std::string folded;
    };
    const std::vector<Case> cases{
        {"", ""},
        {"Scene 12 TAKE_B.MOV", "scene 12 take_b.mov"},
        {"ÉTÉ Reel ŁÓDŹ ΑΒΓ ДЁ Ÿ", "été reel łódź αβγ дё ÿ"},
        // One character may fold to several.
        {"STRASSE Straße", "strasse strasse"},
        {"İstanbul", "i\u0307stanbul"},
        {"ﬃ", "ffi"},
        // Accented Greek capitals and the final sigma.
        {"ΟΔΥΣΣΈΑΣ Οδυσσέας", "οδυσσέασ οδυσσέασ"},
        {"ȘTEFAN ȚARĂ", "ștefan țară"},
        {"ҐАНОК", "ґанок"},
        {"ƏLI", "əli"},
        {"ẪN", "ẫn"},
        {"ＦＣＰ７", "ｆｃｐ７"},
        {"𐐀", "𐐨"},
        // × is no capital, 東京 has no case, 𝐀 is a symbol of its own.
        {"×ß東京Ⅻ𝐀", "×ss東京ⅻ𝐀"},
        // A stray continuation byte, a truncated sequence, an overlong "A",
        // an encoded surrogate, a code point past U+10FFFF and a byte no
        // sequence starts with, each beside letters that fold.
        {"\x80" "Σ", "\x80" "σ"},
        {"Σ" "\xCE", "σ" "\xCE"},
        {"\xC3" "É", "\xC3" "é"},
        {"A" "\xC1\x81" "B", "a" "\xC1\x81" "b"},
        {"Ș" "\xED\xA0\x80" "Ț", "ș" "\xED\xA0\x80" "ț"},
        {"ẞ" "\xF4\x90\x80\x80", "ss" "\xF4\x90\x80\x80"},
        {"A" "\xFF" "B", "a" "\xFF" "b"},
    };
    for (const Case &test : cases) {
        EXPECT_EQ(TLCaseFolding::foldedCase(test.text), test.folded) << escaped(test.text);
        // A folding folds to itself and compares equal to what it came from.
        EXPECT_EQ(TLCaseFolding::foldedCase(test.folded), test.folded) << escaped(test.text);
        EXPECT_TRUE(std::is_eq(TLCaseFolding::caseInsensitiveCompare(test.text, test.folded))) << escaped(test.text);
    }
}

TEST(TLCaseFoldingTest, FoldsALongTextWholeWithoutBreakingACharacter)
{
    std::string text;
    std::string folded;
    for (int count = 0; count < 500'000; ++count) {
        text += "Ẫ";
        folded += "ẫ";
    }
    text += "Σ";
    folded += "σ";
    EXPECT_TRUE(TLCaseFolding::foldedCase(text) == folded);
}

TEST(TLCaseFoldingTest, OrdersByFoldedScalarsWithInvalidBytesAfterEveryCharacter)
{
    struct Case
    {
        std::string left;
        std::string right;
        Ordering order;
    };
    const std::vector<Case> cases{
        {"", "", Ordering::equivalent},
        {"Reel A", "reel b", Ordering::less},
        {"reel", "Reel 2", Ordering::less},
        {"Z", "a", Ordering::greater},
        {"ÉCLAIR", "éclair", Ordering::equivalent},
        {"STRASSE", "straße", Ordering::equivalent},
        {"Straße 2", "STRASSE 10", Ordering::greater},
        {"s", "ß", Ordering::less},
        {"ΟΔΥΣΣΕΑΣ", "οδυσσεας", Ordering::equivalent},
        {"ȘTEFAN", "ștefan", Ordering::equivalent},
        {"Ґанок", "ґАНОК", Ordering::equivalent},
        {"ＦＣＰ", "ｆｃｐ", Ordering::equivalent},
        // "İ" folds to "i" and a combining dot, so it follows "i".
        {"İ", "i", Ordering::greater},
        // Invalid bytes follow every character, the highest ones included,
        // and order among themselves by value.
        {"\xC1\x81", "a", Ordering::greater},
        {"\x80", "ｆ", Ordering::greater},
        {"\x80", "\xF4\x8F\xBF\xBF", Ordering::greater},
        {"\xFE", "𝐀", Ordering::greater},
        {"a" "\xFF", "A" "\xFE", Ordering::greater},
        {"\xC3", "\xC3\x83", Ordering::greater},
        {"\xCE" "Σ", "\xCE" "σ", Ordering::equivalent},
    };
    for (const Case &test : cases) {
        EXPECT_EQ(TLCaseFolding::caseInsensitiveCompare(test.left, test.right), test.order)
            << escaped(test.left) << " vs " << escaped(test.right);
        // Swapped, the order turns round.
        EXPECT_EQ(0 <=> TLCaseFolding::caseInsensitiveCompare(test.right, test.left), test.order)
            << escaped(test.right) << " vs " << escaped(test.left);
    }
}

TEST(TLCaseFoldingTest, ContainsAPartWhateverTheCaseOfEither)
{
    struct Case
    {
        std::string text;
        std::string part;
        bool contains;
    };
    const std::vector<Case> cases{
        {"Scene REEL 4", "reel", true},
        {"Drone ÜBER Stadt", "über", true},
        {"STRASSE 1", "straße", true},
        {"Straße", "SS", true},
        {"ΟΔΥΣΣΕΑΣ", "οδυσσεας", true},
        {"Bucureşti ȘI Iași", "și ia", true},
        {"anything", "", true},
        {"", "", true},
        {"", "a", false},
        {"Reel", "reels", false},
        {"STRASSE", "straßen", false},
    };
    for (const Case &test : cases)
        EXPECT_EQ(TLCaseFolding::containsIgnoringCase(test.text, test.part), test.contains)
            << test.text << " / " << test.part;
}
