// Bin paths: escapes, resolving, and the two ways a path can fail.
#include "CliBinPath.h"

#include "TLBinRangeItem.h"
#include "TLMediaItem.h"
#include "TLRegularBin.h"
#include "TLSmartBin.h"

#include <gtest/gtest.h>

namespace {

TLBinNodePtr regularBin(const std::string &name, const TLNodeList &children = {})
{
    auto bin = TLRegularBin::create();
    bin->setBinName(name);
    bin->setChildren(children);
    return bin;
}

} // namespace

TEST(CliBinPathTest, ComponentsUnescapeAndIgnoreOuterSlashes)
{
    std::vector<std::string> names;
    ASSERT_EQ(CliBinPath::components("/Dailies/Reel 3/", names), "");
    EXPECT_EQ(names, (std::vector<std::string>{"Dailies", "Reel 3"}));
    ASSERT_EQ(CliBinPath::components("A\\/B/C\\\\", names), "");
    EXPECT_EQ(names, (std::vector<std::string>{"A/B", "C\\"}));
    ASSERT_EQ(CliBinPath::components("/", names), "");
    EXPECT_TRUE(names.empty());
    EXPECT_NE(CliBinPath::components("A//B", names).find("empty"), std::string::npos);
    EXPECT_NE(CliBinPath::components("A\\x", names).find("bad bin path"), std::string::npos);
    EXPECT_NE(CliBinPath::components("A\\", names).find("bad bin path"), std::string::npos);
}

TEST(CliBinPathTest, ResolvesBinsButNeverClips)
{
    const auto reel = TLBinRangeItem::create("Reel 3", "Reel [1-3]", nullptr, 3, 2);
    const auto smart = TLSmartBin::create();
    smart->setBinName("Talk");
    smart->setChildren({TLMediaItem::create(std::nullopt, "Clip", "C1")});
    const auto slash = regularBin("A/B");
    const TLNodeList tree{regularBin("Dailies", {reel, smart}), slash};

    TLBinNodePtr node;
    ASSERT_EQ(CliBinPath::resolve(tree, "Dailies/Reel 3", node), "");
    EXPECT_EQ(node, reel);
    ASSERT_EQ(CliBinPath::resolve(tree, "A\\/B", node), "");
    EXPECT_EQ(node, slash);
    ASSERT_EQ(CliBinPath::resolve(tree, "", node), "");
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(CliBinPath::resolve(tree, "Dailies/Talk/Clip", node), "no bin \"Clip\" in \"Dailies/Talk\"");
    EXPECT_EQ(CliBinPath::resolve(tree, "dailies", node), "no bin \"dailies\" at the top level");
    EXPECT_EQ(CliBinPath::pathOfNode(reel), "Dailies/Reel 3");
    EXPECT_EQ(CliBinPath::pathOfNode(slash), "A\\/B");
}

TEST(CliBinPathTest, TwoBinsOfOneNameMakeThePathAmbiguous)
{
    const TLNodeList tree{regularBin("Dailies", {regularBin("Reel"), regularBin("Reel")}), regularBin("Dailies")};
    TLBinNodePtr node;
    EXPECT_EQ(CliBinPath::resolve(tree, "Dailies/Reel", node),
              "the bin path \"Dailies/Reel\" is ambiguous: 2 bins are named \"Dailies\" at the top level");
    EXPECT_EQ(node, nullptr);
}

TEST(CliBinPathTest, ARemovedBinIsNoLongerInTheTree)
{
    const auto inner = regularBin("Inner");
    const auto outer = regularBin("Outer", {inner});
    TLNodeList tree{outer};
    EXPECT_TRUE(CliBinPath::isInTree(tree, inner));
    EXPECT_TRUE(CliBinPath::isInTree(tree, nullptr));
    outer->removeChild(inner);
    EXPECT_FALSE(CliBinPath::isInTree(tree, inner));
    inner->setParent(outer); // a stale parent reference does not count
    EXPECT_FALSE(CliBinPath::isInTree(tree, inner));
    EXPECT_FALSE(CliBinPath::isInTree({}, outer));
}
