// Reading the filter rows of smart bin edits.
#include "CliEdit.h"

#include <gtest/gtest.h>

TEST(CliEditTest, FilterReadsFieldOperatorAndTheRestAsValue)
{
    CliFilterRow row;
    ASSERT_EQ(CliEdit::parseFilter("log-note contains harbour master", row), "");
    EXPECT_EQ(row, (CliFilterRow{11, 0, "harbour master"}));
    ASSERT_EQ(CliEdit::parseFilter("  9\t2 12A", row), "");
    EXPECT_EQ(row, (CliFilterRow{9, 2, "12A"}));
    ASSERT_EQ(CliEdit::parseFilter("label is", row), "");
    EXPECT_EQ(row, (CliFilterRow{13, 2, ""}));
    ASSERT_EQ(CliEdit::parseFilter("name is  two blanks", row), "");
    EXPECT_EQ(row.filterString, " two blanks");
}

TEST(CliEditTest, BadFiltersSayWhyAndLeaveTheRowAlone)
{
    CliFilterRow row{1, 1, "kept"};
    EXPECT_NE(CliEdit::parseFilter("", row).find("needs a field and an operator"), std::string::npos);
    EXPECT_NE(CliEdit::parseFilter("scene", row).find("needs a field and an operator"), std::string::npos);
    EXPECT_NE(CliEdit::parseFilter("scen contains 1", row).find("unknown filter field \"scen\""), std::string::npos);
    EXPECT_NE(CliEdit::parseFilter("scene has 1", row).find("unknown filter operator \"has\""), std::string::npos);
    EXPECT_EQ(row, (CliFilterRow{1, 1, "kept"}));
}
