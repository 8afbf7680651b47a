// The words and numbers of fields, operators, match types and criteria.
#include "CliNames.h"

#include <gtest/gtest.h>

TEST(CliNamesTest, WordsAndNumbersMapToTheEngineNumbers)
{
    EXPECT_EQ(CliNames::numberForText(CliNames::fields(), "scene"), 9);
    EXPECT_EQ(CliNames::numberForText(CliNames::fields(), "File-Type"), 2);
    EXPECT_EQ(CliNames::numberForText(CliNames::fields(), "extension"), 2);
    EXPECT_EQ(CliNames::numberForText(CliNames::fields(), "20"), 20);
    EXPECT_EQ(CliNames::numberForText(CliNames::operators(), "contains"), 0);
    EXPECT_EQ(CliNames::numberForText(CliNames::operators(), "before"), 5);
    EXPECT_EQ(CliNames::numberForText(CliNames::matchTypes(), "first"), 0);
    EXPECT_EQ(CliNames::numberForText(CliNames::matchTypes(), "any"), 1);
    EXPECT_EQ(CliNames::numberForText(CliNames::matchTypes(), "all"), 2);
    // The two tables number the same words differently.
    EXPECT_EQ(CliNames::numberForText(CliNames::criteria(), "scene"), 7);
    EXPECT_EQ(CliNames::numberForText(CliNames::criteria(), "file-type"), 0);
    EXPECT_EQ(CliNames::numberForText(CliNames::criteria(), "1"), 1);
}

TEST(CliNamesTest, AnythingOutsideATableIsRejected)
{
    for (const char *text : {"", "21", "-1", "+3", " 9", "9 ", "scen", "1e1", "99999999999999999999"})
        EXPECT_FALSE(CliNames::numberForText(CliNames::fields(), text)) << text;
    EXPECT_FALSE(CliNames::numberForText(CliNames::operators(), "6"));
    EXPECT_FALSE(CliNames::numberForText(CliNames::matchTypes(), "3"));
    EXPECT_FALSE(CliNames::numberForText(CliNames::criteria(), "19"));
    // Criterion 1 has a number but no word: an empty word must not match "".
    EXPECT_FALSE(CliNames::numberForText(CliNames::criteria(), ""));
}

TEST(CliNamesTest, NumbersPrintAsTheirMainWord)
{
    EXPECT_EQ(CliNames::wordForNumber(CliNames::fields(), 2), "file-type");
    EXPECT_EQ(CliNames::wordForNumber(CliNames::operators(), 1), "does-not-contain");
    EXPECT_EQ(CliNames::wordForNumber(CliNames::criteria(), 1), "1");
    EXPECT_EQ(CliNames::wordForNumber(CliNames::fields(), 42), "42");
    const std::string listing = CliNames::listing();
    EXPECT_NE(listing.find("   9  scene"), std::string::npos) << listing;
    EXPECT_NE(listing.find("also extension"), std::string::npos);
}
