// What the table of fields, operators, match types and criteria promises
// the resolvers, the command line and the sheets.
#include "TLClipFields.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace {

struct Family
{
    const char *title;
    std::vector<TLClipChoice> rows;
};

template <typename Row>
std::vector<TLClipChoice> choicesOf(std::span<const Row> rows)
{
    return std::vector<TLClipChoice>(rows.begin(), rows.end());
}

std::vector<Family> families()
{
    return {{"smart bin fields", choicesOf(TLClipFields::smartBinFields())},
            {"operators", choicesOf(TLClipFields::operators())},
            {"match types", choicesOf(TLClipFields::matchTypes())},
            {"smart range criteria", choicesOf(TLClipFields::smartRangeCriteria())}};
}

// The command line matches words ignoring ASCII case.
std::string lowered(std::string_view word)
{
    std::string text(word);
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

std::set<std::int64_t> numbersWithoutQuery(std::span<const TLClipField> rows)
{
    std::set<std::int64_t> numbers;
    for (const TLClipField &row : rows) {
        if (!row.query)
            numbers.insert(row.number);
    }
    return numbers;
}

} // namespace

TEST(TLClipFieldsTest, EachFamilyIsNumberedInOrderWithUniqueNamesAndALabelForEveryOfferedNumber)
{
    for (const Family &family : families()) {
        SCOPED_TRACE(family.title);
        std::set<std::string> words;
        for (std::size_t index = 0; index < family.rows.size(); ++index) {
            const TLClipChoice &row = family.rows[index];
            // The resolvers, the sheets' pop-ups and the command line all
            // take a row's index for its number.
            EXPECT_EQ(row.number, std::int64_t(index));
            if (row.name.empty()) {
                EXPECT_EQ(row.number, TLClipFields::noCriterion) << "only the empty criterion lacks a name";
                EXPECT_STREQ(row.label, "") << "a number without a name is offered by no sheet";
                continue;
            }
            EXPECT_STRNE(row.label, "") << row.name;
            EXPECT_FALSE(row.description.empty()) << row.name;
            EXPECT_TRUE(words.insert(lowered(row.name)).second) << row.name;
            for (const std::string_view alias : row.aliases)
                EXPECT_TRUE(words.insert(lowered(alias)).second) << alias;
        }
    }
    EXPECT_EQ(TLClipFields::smartBinFields().size(), TLClipFields::smartBinFieldCount);
    EXPECT_EQ(TLClipFields::smartRangeCriteria().size(), TLClipFields::smartRangeCriterionCount);
}

TEST(TLClipFieldsTest, OnlyTheComputedNumbersGoWithoutAQuery)
{
    const std::set<std::int64_t> computedFields{TLClipFields::fileNameField, TLClipFields::fileExtensionField,
                                                TLClipFields::hasAudioField};
    EXPECT_EQ(numbersWithoutQuery(TLClipFields::smartBinFields()), computedFields);
    const std::set<std::int64_t> computedCriteria{TLClipFields::fileTypeCriterion, TLClipFields::noCriterion,
                                                  TLClipFields::folderCriterion};
    EXPECT_EQ(numbersWithoutQuery(TLClipFields::smartRangeCriteria()), computedCriteria);
}

TEST(TLClipFieldsTest, LookUpsAnswerOnlyNumbersInTheTable)
{
    EXPECT_EQ(TLClipFields::smartBinField(0), &TLClipFields::smartBinFields().front());
    EXPECT_EQ(TLClipFields::smartBinField(20), &TLClipFields::smartBinFields().back());
    EXPECT_EQ(TLClipFields::smartRangeCriterion(18), &TLClipFields::smartRangeCriteria().back());
    for (const std::int64_t number : {std::int64_t(-1), std::int64_t(21), std::numeric_limits<std::int64_t>::min(),
                                     std::numeric_limits<std::int64_t>::max()})
        EXPECT_EQ(TLClipFields::smartBinField(number), nullptr) << number;
    EXPECT_EQ(TLClipFields::smartRangeCriterion(19), nullptr);
    EXPECT_EQ(TLClipFields::smartRangeCriterion(-1), nullptr);
}
