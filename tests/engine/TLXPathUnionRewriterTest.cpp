// Union steps spelled out as plain XPath 1.0, checked on the rewritten text.
#include "TLXPathUnionRewriter.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string rewritten(const std::string &query)
{
    const TLXPathUnionRewriter::Result result = TLXPathUnionRewriter::rewriteUnionSteps(query);
    EXPECT_TRUE(result.error.empty()) << query << ": " << result.error;
    EXPECT_TRUE(result.changed) << query;
    return result.query;
}

std::string refusal(const std::string &query)
{
    const TLXPathUnionRewriter::Result result = TLXPathUnionRewriter::rewriteUnionSteps(query);
    EXPECT_EQ(result.query, query);
    EXPECT_FALSE(result.changed) << query;
    return result.error;
}

std::string repeated(const std::string &text, int count)
{
    std::string out;
    for (int index = 0; index < count; ++index)
        out += text;
    return out;
}

} // namespace

TEST(TLXPathUnionRewriterTest, SpellsOutEachAlternativeWithTheWholePathAroundIt)
{
    EXPECT_EQ(rewritten("./media[1]/(video[1] | audio[1])/track"),
              "./media[1]/video[1]/track | ./media[1]/audio[1]/track");
    EXPECT_EQ(rewritten("./*/(a|b)"), "./*/a | ./*/b");
    EXPECT_EQ(rewritten("a//(b)"), "a//b");
    EXPECT_EQ(rewritten("ancestor::bin/(a | b)"), "ancestor::bin/a | ancestor::bin/b");
    EXPECT_EQ(rewritten("(.//clip)[2]/(a | b)"), "(.//clip)[2]/a | (.//clip)[2]/b");
    EXPECT_EQ(rewritten("$v/(a | b)"), "$v/a | $v/b");
    EXPECT_EQ(rewritten("./(clip-item|x:y)"), "./clip-item | ./x:y");
    // A path inside a larger expression is bracketed so that the union
    // stays one operand.
    EXPECT_EQ(rewritten("count(./media/(video | audio)//pathurl) + 1"),
              "count((./media/video//pathurl | ./media/audio//pathurl)) + 1");
    EXPECT_EQ(rewritten("./media/*[track/(clipitem | x)/file]"), "./media/*[(track/clipitem/file | track/x/file)]");
    EXPECT_EQ(rewritten("concat(./(a | b), 'x')"), "concat((./a | ./b), 'x')");
    EXPECT_EQ(rewritten("./(a | b)*2"), "(./a | ./b)*2");
    // Brackets and bars inside a literal are text, not syntax.
    EXPECT_EQ(rewritten(".//(pathurl[. = 'x)|(y'] | name)"), ".//pathurl[. = 'x)|(y'] | .//name");
    // Every step is spelled out, so the result holds no union step.
    const std::string twoSteps = rewritten("./(a | b)/(c | d)");
    for (const char *path : {"./a/c", "./a/d", "./b/c", "./b/d"})
        EXPECT_NE(twoSteps.find(path), std::string::npos) << twoSteps;
    EXPECT_EQ(twoSteps.find("/("), std::string::npos) << twoSteps;
}

TEST(TLXPathUnionRewriterTest, QueriesWithoutAWellFormedStepAreLeftForTheCompiler)
{
    for (const std::string query : {"", ".//clip", "(a | b)/c", "./child::(a | b)", "a/(b | c", "a/(b | c]",
                                    "./name[text()='open", "./media[1]/(video[1] | )/track", "a/( | b)"}) {
        const TLXPathUnionRewriter::Result result = TLXPathUnionRewriter::rewriteUnionSteps(query);
        EXPECT_EQ(result.query, query);
        EXPECT_TRUE(result.error.empty()) << query;
        EXPECT_FALSE(result.changed) << query;
    }
    // The well-formed step before a malformed one is still spelled out.
    EXPECT_EQ(rewritten("./(a | b)/(c | )"), "./a/(c | ) | ./b/(c | )");
}

TEST(TLXPathUnionRewriterTest, RefusesWhatCannotBeSpelledOutAndKeepsTheOriginal)
{
    EXPECT_EQ(refusal("a/(b | c)[1]"), "A predicate cannot follow a parenthesised step");
    EXPECT_EQ(refusal("./(a | b)/(c | d)[1]"), "A predicate cannot follow a parenthesised step");
    EXPECT_EQ(refusal("./(/xmeml | name)"), "An alternative of a parenthesised step cannot start with \"/\"");
    EXPECT_EQ(refusal("./(a | //b)"), "An alternative of a parenthesised step cannot start with \"/\"");

    // Twenty-four two-way steps would make sixteen million paths.
    EXPECT_EQ(refusal("." + repeated("/(a | b)", 24)), "The query has too many parenthesised alternatives");
    const int most = TLXPathUnionRewriter::kMostSpelledOutSteps;
    EXPECT_EQ(rewritten("." + repeated("/(a)", most)), "." + repeated("/a", most));
    EXPECT_EQ(refusal("." + repeated("/(a)", most + 1)), "The query has too many parenthesised alternatives");
}
