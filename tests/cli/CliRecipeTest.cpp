// Sort recipes: every kind of edit, and the ways a recipe can be wrong.
#include "CliRecipe.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

namespace {

std::string errorFor(std::string_view text)
{
    std::vector<CliEdit> edits(1);
    const std::string failure = CliRecipe::readText(text, "r.json", edits);
    EXPECT_EQ(edits.size(), 1u) << "a failed recipe must add nothing";
    return failure;
}

} // namespace

TEST(CliRecipeTest, ReadsEveryEditInOrder)
{
    const std::string_view text = R"({
      "description": "all of them",
      "edits": [
        {"in": "Dailies"}, {"bin": "Selects"}, {"range": "Reel [1-3]"},
        {"smart-bin": "Talk", "match": "any",
         "filters": ["label is Interview", {"field": 11, "operator": "contains", "value": "talk"},
                     {"field": "scene", "operator": "5"}]},
        {"smart-range": 7}, {"smart-range": "folder"},
        {"remove": "Old"}, {"rename": "Dailies", "to": "Days"}
      ]})";
    std::vector<CliEdit> edits;
    ASSERT_EQ(CliRecipe::readText(text, "r.json", edits), "");
    ASSERT_EQ(edits.size(), 8u);
    using Kind = CliEdit::Kind;
    const Kind kinds[] = {Kind::select, Kind::bin, Kind::range, Kind::smartBin, Kind::smartRange,
                          Kind::smartRange, Kind::remove, Kind::rename};
    for (std::size_t i = 0; i < std::size(kinds); ++i)
        EXPECT_EQ(edits[i].kind, kinds[i]) << i;
    EXPECT_EQ(edits[3].matchType, 1);
    ASSERT_EQ(edits[3].filters.size(), 3u);
    EXPECT_EQ(edits[3].filters[0], (CliFilterRow{13, 2, "Interview"}));
    EXPECT_EQ(edits[3].filters[1], (CliFilterRow{11, 0, "talk"}));
    EXPECT_EQ(edits[3].filters[2], (CliFilterRow{9, 5, ""}));
    EXPECT_EQ(edits[4].criterion, 7);
    EXPECT_EQ(edits[5].criterion, 2);
    EXPECT_EQ(edits[7].text, "Dailies");
    EXPECT_EQ(edits[7].newName, "Days");
    EXPECT_EQ(edits[2].origin, "r.json, edit 3");
}

TEST(CliRecipeTest, MistakesAreNamedWithTheirEdit)
{
    EXPECT_NE(errorFor("").find("r.json: not a valid recipe"), std::string::npos);
    EXPECT_NE(errorFor("{\"edits\": [").find("not a valid recipe"), std::string::npos);
    EXPECT_NE(errorFor("[]").find("an object with an \"edits\" list"), std::string::npos);
    EXPECT_NE(errorFor("{\"edit\": []}").find("unknown key \"edit\""), std::string::npos);
    EXPECT_NE(errorFor("{\"edits\": {}}").find("needs an \"edits\" list"), std::string::npos);
    EXPECT_NE(errorFor(R"({"edits": [{"bin": "A"}, {"bin": "B", "range": "C"}]})").find("edit 2: an edit has one action"),
              std::string::npos);
    EXPECT_NE(errorFor(R"({"edits": [{"bin": 3}]})").find("\"bin\" must be a text"), std::string::npos);
    EXPECT_NE(errorFor(R"({"edits": [{"bin": "A", "to": "B"}]})").find("unknown key \"to\""), std::string::npos);
    EXPECT_NE(errorFor(R"({"edits": [{"rename": "A"}]})").find("under \"to\""), std::string::npos);
    EXPECT_NE(errorFor(R"({"edits": [{"smart-range": "colour"}]})").find("unknown smart range criterion \"colour\""),
              std::string::npos);
    EXPECT_NE(errorFor(R"({"edits": [{"smart-bin": "S", "match": "most"}]})").find("unknown match type"),
              std::string::npos);
    EXPECT_NE(errorFor(R"({"edits": [{"smart-bin": "S", "filters": ["scene"]}]})").find("needs a field and an operator"),
              std::string::npos);
    EXPECT_NE(errorFor(R"({"edits": [{"smart-bin": "S", "filters": [{"field": "scene"}]}]})").find("needs a \"field\" and an \"operator\""),
              std::string::npos);
    EXPECT_NE(errorFor(R"({"edits": [{"smart-bin": "S", "filters": [{"field": 9.5, "operator": 0}]}]})").find("unknown filter field \"9.5\""),
              std::string::npos);
}

TEST(CliRecipeTest, HostileFilesAreRefusedCleanly)
{
    // Deep nesting and bytes that are not UTF-8 end as a reason, not a crash.
    EXPECT_NE(errorFor(std::string(100000, '[') + std::string(100000, ']')).find("an object"), std::string::npos);
    EXPECT_NE(errorFor("{\"edits\": [{\"bin\": \"\xff\xfe\"}]}").find("not a valid recipe"), std::string::npos);

    test::TemporaryFolder folder;
    std::vector<CliEdit> edits;
    EXPECT_NE(CliRecipe::readFile(folder.file("missing.json"), edits).find("No such file"), std::string::npos);
    EXPECT_NE(CliRecipe::readFile(folder.path().string(), edits).find("not a regular file"), std::string::npos);
    test::writeFile(folder.file("big.json"), std::string(CliRecipe::maximumFileSize + 1, ' '));
    EXPECT_NE(CliRecipe::readFile(folder.file("big.json"), edits).find("larger than"), std::string::npos);
    EXPECT_TRUE(edits.empty());
}

TEST(CliRecipeTest, TheShippedSampleRecipeReads)
{
    std::vector<CliEdit> edits;
    ASSERT_EQ(CliRecipe::readFile(CORVALE_EXAMPLES_DIR "/sample-recipe.json", edits), "");
    EXPECT_GE(edits.size(), 3u);
}
