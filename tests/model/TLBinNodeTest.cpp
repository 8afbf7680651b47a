// Bin tree nodes: capabilities, child-list snapshots, parents and ordering.
#include "TLBinRangeItem.h"
#include "TLMediaItem.h"
#include "TLRegularBin.h"
#include "TLSmartBin.h"
#include "TLSmartRangeItem.h"

#include <gtest/gtest.h>

#include <algorithm>

TEST(TLBinNodeTest, CapabilitiesAndDefaultsFollowTheKind)
{
    const TLNodeList nodes = {TLRegularBin::create(), TLSmartBin::create(),
                              TLBinRangeItem::create("Reel 1", "Reel [1-2]", nullptr, 2, 0),
                              TLSmartRangeItem::create("Reel A", 4), TLMediaItem::create(std::nullopt, "clip", "ID")};
    const bool hasUuid[] = {false, true, true, true, true};
    const bool hasChildren[] = {true, true, false, true, false};
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        EXPECT_EQ(nodes[i]->hasUuid(), hasUuid[i]) << nodes[i]->className();
        EXPECT_EQ(nodes[i]->hasChildren(), hasChildren[i]) << nodes[i]->className();
        ASSERT_NE(nodes[i]->children(), nullptr);
        EXPECT_TRUE(nodes[i]->children()->empty());
        EXPECT_EQ(nodes[i]->parent(), nullptr);
    }
    EXPECT_FALSE(nodes[0]->setUuid("X")) << "a regular bin has no identifier";
    EXPECT_EQ(nodes[0]->uuid(), std::nullopt);
    EXPECT_EQ(nodes[1]->uuid(), std::nullopt) << "no identifier until first written";
    EXPECT_FALSE(nodes[2]->addChild(TLRegularBin::create())) << "a range item has no child list";
    EXPECT_EQ(nodes[4]->uuid(), "ID");
    EXPECT_EQ(nodes[4]->displayName(), "clip");
    EXPECT_EQ(nodes[3]->displayName(), "Reel A");
    EXPECT_EQ(nodes[2]->iconName(), "bin-range-single");
    EXPECT_EQ(nodes[4]->iconName(), "");
    EXPECT_FALSE(nodes[0]->isExpandable()) << "only with at least one child";
    nodes[0]->addChild(TLRegularBin::create());
    EXPECT_TRUE(nodes[0]->isExpandable());

    const auto smartBin = std::static_pointer_cast<TLSmartBin>(nodes[1]);
    EXPECT_EQ(smartBin->matchType(), 0);
    EXPECT_TRUE(smartBin->filterArray()->empty());
    const auto item = std::static_pointer_cast<TLBinRangeItem>(nodes[2]);
    EXPECT_EQ(item->rangeExpression(), "Reel [1-2]");
    EXPECT_EQ(item->rangeCount(), 2);
    EXPECT_EQ(std::static_pointer_cast<TLSmartRangeItem>(nodes[3])->criteria(), 4);
}

TEST(TLBinNodeTest, ChildListsAreSnapshotsReplacedOnEveryChange)
{
    const auto bin = TLRegularBin::create();
    const auto a = TLRegularBin::create();
    const auto b = TLSmartBin::create();
    ASSERT_TRUE(bin->addChild(a));
    const auto before = bin->children();
    ASSERT_TRUE(bin->addChildren({b, TLSmartRangeItem::create("c", 0)}));
    EXPECT_EQ(before->size(), 1u) << "a list handed out never changes";
    EXPECT_EQ(bin->children()->at(1), b);
    EXPECT_EQ(b->parent(), bin);

    const auto snapshot = bin->children();
    EXPECT_FALSE(bin->removeChild(TLRegularBin::create()));
    EXPECT_NE(bin->children(), snapshot) << "a fresh list even when nothing was removed";
    EXPECT_EQ(*bin->children(), *snapshot);

    EXPECT_TRUE(bin->removeChild(a));
    EXPECT_EQ(snapshot->size(), 3u);
    EXPECT_EQ(bin->children()->front(), b);
    EXPECT_EQ(a->parent(), nullptr);
}

TEST(TLBinNodeTest, TheTreeCannotOwnItselfAndParentsAreNotOwned)
{
    auto top = TLRegularBin::create();
    const auto middle = TLRegularBin::create();
    const auto leaf = TLRegularBin::create();
    ASSERT_TRUE(top->addChild(middle));
    ASSERT_TRUE(middle->addChild(leaf));
    EXPECT_FALSE(leaf->addChild(top));
    EXPECT_FALSE(middle->addChild(middle));
    EXPECT_FALSE(leaf->setChildren({middle}));
    EXPECT_FALSE(top->addChildren({TLRegularBin::create(), top})) << "nothing is added";
    EXPECT_EQ(top->children()->size(), 1u);
    EXPECT_FALSE(top->setParent(leaf));
    EXPECT_FALSE(top->addChild(nullptr));

    ASSERT_TRUE(middle->setChildren({TLRegularBin::create()}));
    EXPECT_EQ(leaf->parent(), nullptr) << "a child dropped by setChildren loses its parent";

    std::weak_ptr<TLBinNode> weakTop = top;
    top.reset();
    EXPECT_TRUE(weakTop.expired()) << "children do not keep their parent alive";
    EXPECT_EQ(middle->parent(), nullptr);
}

TEST(TLBinNodeTest, NameCompareIgnoresCase)
{
    const auto b = TLSmartRangeItem::create("reel b", 0);
    const auto a = TLSmartRangeItem::create("Reel A", 0);
    std::vector<std::shared_ptr<TLSmartRangeItem>> items = {b, a};
    std::sort(items.begin(), items.end(), [](const auto &x, const auto &y) { return x->nameCompare(*y) < 0; });
    EXPECT_EQ(items.front(), a);
    using Ordering = std::weak_ordering;
    EXPECT_EQ(TLSmartRangeItem::caseInsensitiveCompare("ÉCLAIR", "éclair"), Ordering::equivalent);
    EXPECT_EQ(TLSmartRangeItem::caseInsensitiveCompare("Łódź", "łÓDŹ"), Ordering::equivalent);
    EXPECT_EQ(TLSmartRangeItem::caseInsensitiveCompare("ΑΒΓ", "αβγ"), Ordering::equivalent);
    EXPECT_EQ(TLSmartRangeItem::caseInsensitiveCompare("Reel", "reel 2"), Ordering::less);
    EXPECT_EQ(TLSmartRangeItem::caseInsensitiveCompare("a\xFF", "A\xFE"), Ordering::greater);
    EXPECT_EQ(TLSmartRangeItem::caseInsensitiveCompare("Z", "a"), Ordering::greater);
}
