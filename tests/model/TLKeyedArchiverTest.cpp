// Writing bin trees as keyed archives, and reading them back.
#include "TLBinRangeItem.h"
#include "TLBinaryPropertyListWriter.h"
#include "TLKeyedArchiver.h"
#include "TLKeyedUnarchiver.h"
#include "TLMediaItem.h"
#include "TLPropertyList.h"
#include "TLRegularBin.h"
#include "TLSmartBin.h"
#include "TLSmartRangeItem.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

plist_t objectAt(const TLPropertyList &archive, std::uint64_t uid)
{
    return plist_array_get_item(archive.itemForKey("$objects"), static_cast<std::uint32_t>(uid));
}

std::optional<std::uint64_t> field(plist_t object, const char *key)
{
    return TLPropertyList::uidValue(TLPropertyList::dictionaryItem(object, key));
}

std::string classNameOf(const TLPropertyList &archive, plist_t object)
{
    const plist_t descriptor = objectAt(archive, field(object, "$class").value_or(0));
    return TLPropertyList::stringValue(TLPropertyList::dictionaryItem(descriptor, "$classname")).value_or("");
}

// Regular bin "A" holding the range item "Reel 1" of "Reel [1-1]".
TLNodeList exampleTree()
{
    const auto bin = TLRegularBin::create();
    bin->setBinName("A");
    const auto item = TLBinRangeItem::create("Reel 1", "Reel [1-1]", bin, 1, 0);
    item->setUuid("6F1C2A3B-4D5E-6F70-8192-A3B4C5D6E7F8");
    bin->addChild(item);
    return {bin};
}

std::string text(const std::optional<std::string> &value)
{
    return value ? "'" + *value + "'" : "nil";
}

// Every field of every node, children nested: equal for equal trees.
std::string describe(const TLNodeList &nodes)
{
    std::string out = "[";
    for (const auto &node : nodes) {
        out += std::string(node->className()) + " " + text(node->binName()) + " " + text(node->uuid());
        if (const auto *item = dynamic_cast<const TLBinRangeItem *>(node.get()))
            out += " " + text(item->rangeExpression()) + std::to_string(item->rangeCount()) + "/"
                   + std::to_string(item->rangeCurrentIndex());
        if (const auto *item = dynamic_cast<const TLMediaItem *>(node.get()))
            out += " " + text(item->filePath()) + " " + text(item->shortName());
        if (const auto *range = dynamic_cast<const TLSmartRangeItem *>(node.get()))
            out += " criteria " + std::to_string(range->criteria());
        if (const auto *smart = dynamic_cast<const TLSmartBin *>(node.get())) {
            out += " match " + std::to_string(smart->matchType());
            for (const auto &filter : *smart->filterArray())
                out += " {" + std::to_string(filter->filterType()) + " " + std::to_string(filter->filterMatch()) + " "
                       + text(filter->filterString()) + "}";
        }
        out += " " + describe(*node->children()) + ";";
    }
    return out + "]";
}

// Each kind and field, with the strings that test sharing and encoding:
// empty, absent, non-ASCII (also past 14 UTF-16 units and outside the
// BMP), equal to the archive's own keys and class names, and repeated; a
// filter row in two smart bins; negative and 64-bit integers.
TLNodeList everyKindTree()
{
    const auto shared = TLSmartBinFilter::create(2, -1, "$0");
    const auto smart = TLSmartBin::create();
    smart->setBinName("NSMutableArray");
    smart->setMatchType(INT64_MIN);
    smart->setUuid("");
    smart->setFilterArray({shared, TLSmartBinFilter::create(0, INT64_MAX, "\u00e9t\u00e9")});
    smart->addChild(TLMediaItem::create("/m\u00e9dia/\U0001F3AC.mov", "root", "$class"));
    smart->addChild(TLMediaItem::create(std::nullopt, "", std::nullopt));
    const auto other = TLSmartBin::create();
    other->setFilterArray({shared});
    smart->addChild(other);
    const auto bin = TLRegularBin::create();
    bin->setBinName("\u6771\u4eac\u306e\u64ae\u5f71\u3001\u4e00\u65e5\u76ee\u3068\u4e8c\u65e5\u76ee\u306e\u7d20\u6750");
    bin->addChild(smart);
    bin->addChild(TLBinRangeItem::create("Reel 1", "a range name longer than fourteen", bin, 65536, -2));
    const auto range = TLSmartRangeItem::create("$null", 4294967296);
    range->addChild(TLMediaItem::create("Reel 1", "Reel 1", "TLMediaItem"));
    return {bin, range, TLRegularBin::create()};
}

// A smart range of `count` clips with distinct paths (the first
// `withoutPath` have none), names and identifiers.
TLNodeList clipsTree(int count, int withoutPath = 0)
{
    const auto range = TLSmartRangeItem::create("Reel A001", 2);
    TLNodeList clips;
    for (int i = 0; i < count; ++i) {
        auto path = i < withoutPath ? std::nullopt : std::optional("/Volumes/Media/A001_C" + std::to_string(i) + ".MOV");
        clips.push_back(TLMediaItem::create(path, "A001_C" + std::to_string(i), "CLIP-" + std::to_string(i)));
    }
    range->setChildren(std::move(clips));
    return {range};
}

struct ArchiveCase
{
    const char *name;
    std::function<TLNodeList()> tree;
    int referenceWidth; // bytes a reference takes
    int offsetWidth;    // bytes an offset takes
};

} // namespace

TEST(TLKeyedArchiverTest, WritesTheStandardLayout)
{
    const auto archive = TLPropertyList::fromBytes(TLKeyedArchiver::archivedDataWithRootObject(exampleTree()).value_or(""));
    ASSERT_TRUE(archive);
    EXPECT_EQ(archive.stringForKey("$archiver"), "NSKeyedArchiver");
    EXPECT_EQ(archive.integerForKey("$version"), 100000);
    EXPECT_EQ(field(archive.itemForKey("$top"), "root"), 1u);
    ASSERT_EQ(plist_array_get_size(archive.itemForKey("$objects")), 12u);
    EXPECT_EQ(TLPropertyList::stringValue(objectAt(archive, 0)), "$null");
    EXPECT_EQ(classNameOf(archive, objectAt(archive, 1)), "NSMutableArray");

    const plist_t bin = objectAt(archive, 2);
    EXPECT_EQ(classNameOf(archive, bin), "TLRegularBin");
    EXPECT_EQ(plist_dict_get_size(bin), 4u) << "exactly three fields and the class";
    EXPECT_EQ(field(bin, "$2"), 0u) << "no parent at the top level";
    EXPECT_EQ(TLPropertyList::stringValue(objectAt(archive, field(bin, "$0").value_or(0))), "A");

    const plist_t item = objectAt(archive, 5);
    EXPECT_EQ(classNameOf(archive, item), "TLBinRangeItem");
    EXPECT_EQ(field(item, "$2"), 2u) << "the back reference is the bin's own entry";
    EXPECT_EQ(TLPropertyList::integerValue(TLPropertyList::dictionaryItem(item, "rangeCount")), 1);
    EXPECT_EQ(TLPropertyList::stringValue(objectAt(archive, field(item, "$3").value_or(0))),
              "6F1C2A3B-4D5E-6F70-8192-A3B4C5D6E7F8");
    const auto descriptor = objectAt(archive, 11);
    EXPECT_EQ(TLPropertyList::stringValue(TLPropertyList::dictionaryItem(descriptor, "$classname")), "TLRegularBin");
}

TEST(TLKeyedArchiverTest, RefusesWhatCouldNotBeReadBack)
{
    const auto shared = TLRegularBin::create();
    const auto first = TLRegularBin::create();
    const auto second = TLRegularBin::create();
    first->addChild(shared);
    second->addChild(shared);
    EXPECT_EQ(TLKeyedArchiver::archivedDataWithRootObject({first, second}), std::nullopt);

    auto deepest = TLRegularBin::create();
    const TLNodeList top = {deepest};
    for (int depth = 1; depth <= TLKeyedUnarchiver::maximumDepth; ++depth) {
        auto next = TLRegularBin::create();
        deepest->addChild(next);
        deepest = next;
    }
    EXPECT_EQ(TLKeyedArchiver::archivedDataWithRootObject(top), std::nullopt);
    deepest->parent()->removeChild(deepest);
    EXPECT_TRUE(TLKeyedArchiver::archivedDataWithRootObject(top)) << "the deepest tree the reader takes";

    TLNodeList most;
    for (std::size_t count = 0; count < TLKeyedUnarchiver::maximumNodeCount; ++count)
        most.push_back(TLRegularBin::create());
    EXPECT_TRUE(TLKeyedArchiver::archivedDataWithRootObject(most)) << "the most nodes the reader takes";
    most.push_back(TLRegularBin::create());
    EXPECT_EQ(TLKeyedArchiver::archivedDataWithRootObject(most), std::nullopt);
}

// The generic binary writer, given the archive as libplist reads it, must
// give back the very same bytes: same object order, sharing and widths.
TEST(TLKeyedArchiverTest, ArchivesReadBackAndMatchTheGenericWriter)
{
    const ArchiveCase cases[] = {
        {"empty", [] { return TLNodeList(); }, 1, 1},
        {"example", exampleTree, 1, 2},
        {"every kind", everyKindTree, 1, 2},
        {"256 objects, numbered up to 255", [] { return clipsTree(27, 3); }, 1, 2},
        {"100 clips", [] { return clipsTree(100); }, 2, 2},
        {"10000 clips", [] { return clipsTree(10000); }, 3, 3},
    };
    for (const auto &archiveCase : cases) {
        SCOPED_TRACE(archiveCase.name);
        const TLNodeList tree = archiveCase.tree();
        const auto bytes = TLKeyedArchiver::archivedDataWithRootObject(tree);
        ASSERT_TRUE(bytes);
        std::string reason;
        const auto decoded = TLKeyedUnarchiver::unarchiveObjectWithData(*bytes, reason);
        ASSERT_TRUE(decoded) << reason;
        EXPECT_EQ(describe(*decoded), describe(tree));
        const auto parsed = TLPropertyList::fromBytes(*bytes, reason);
        ASSERT_TRUE(parsed) << reason;
        EXPECT_EQ(TLBinaryPropertyListWriter::dataWithPropertyList(parsed.root()), bytes);
        EXPECT_EQ((*bytes)[bytes->size() - 25], archiveCase.referenceWidth);
        EXPECT_EQ((*bytes)[bytes->size() - 26], archiveCase.offsetWidth);
    }
}

TEST(TLKeyedArchiverTest, WritesStringsUpToANul)
{
    const auto bin = TLRegularBin::create();
    bin->setBinName(std::string("Day\0 2", 6));
    const auto decoded =
        TLKeyedUnarchiver::unarchiveObjectWithData(TLKeyedArchiver::archivedDataWithRootObject({bin}).value_or(""));
    ASSERT_TRUE(decoded && decoded->size() == 1);
    EXPECT_EQ(decoded->front()->binName(), "Day");
}

TEST(TLKeyedArchiverTest, RoundTripPreservesFieldsOrderAndParents)
{
    const auto outer = TLRegularBin::create();
    outer->setBinName("Outer");
    auto level = outer;
    for (int i = 0; i < 5; ++i) {
        auto inner = TLRegularBin::create();
        inner->setBinName("Level " + std::to_string(i));
        level->addChild(inner);
        level = inner;
    }
    for (int i = 0; i < 3; ++i)
        level->addChild(TLBinRangeItem::create("Reel " + std::to_string(i + 1), "Reel [1-3]", level, 3, i));
    const auto smart = TLSmartBin::create();
    smart->setBinName("Interviews");
    smart->setMatchType(1);
    smart->setUuid("AAAAAAAA-0000-0000-0000-000000000001");
    smart->setFilterArray({TLSmartBinFilter::create(2, -1, "Ann"), TLSmartBinFilter::create(0, 0, "")});
    smart->addChild(TLMediaItem::create("/media/a.mov", "a", "CLIP-A"));
    smart->addChild(TLMediaItem::create(std::nullopt, "b", "CLIP-B"));
    const auto nested = TLSmartBin::create();
    smart->addChild(nested);
    const auto range = TLSmartRangeItem::create("Reel A", 7);
    range->addChild(TLMediaItem::create("/media/c.mov", "c", std::nullopt));
    outer->addChild(smart);

    const auto bytes = TLKeyedArchiver::archivedDataWithRootObject({outer, range});
    ASSERT_TRUE(bytes);
    ASSERT_EQ(bytes->substr(0, 8), "bplist00");
    std::string reason;
    const auto decoded = TLKeyedUnarchiver::unarchiveObjectWithData(*bytes, reason);
    ASSERT_TRUE(decoded) << reason;
    ASSERT_EQ(decoded->size(), 2u);

    TLBinNodePtr node = decoded->at(0);
    EXPECT_EQ(node->binName(), "Outer");
    EXPECT_EQ(node->parent(), nullptr);
    for (int i = 0; i < 5; ++i) {
        const auto child = node->children()->at(0);
        EXPECT_EQ(child->binName(), "Level " + std::to_string(i));
        EXPECT_EQ(child->parent(), node);
        node = child;
    }
    ASSERT_EQ(node->children()->size(), 3u);
    for (int i = 0; i < 3; ++i) {
        const auto item = std::dynamic_pointer_cast<TLBinRangeItem>(node->children()->at(std::size_t(i)));
        ASSERT_TRUE(item);
        EXPECT_EQ(item->binName(), "Reel " + std::to_string(i + 1));
        EXPECT_EQ(item->rangeExpression(), "Reel [1-3]");
        EXPECT_EQ(item->rangeCount(), 3);
        EXPECT_EQ(item->rangeCurrentIndex(), i);
        EXPECT_EQ(item->uuid(), std::nullopt);
        EXPECT_EQ(item->parent(), node);
    }

    const auto smartBack = std::dynamic_pointer_cast<TLSmartBin>(decoded->at(0)->children()->at(1));
    ASSERT_TRUE(smartBack);
    EXPECT_EQ(smartBack->binName(), "Interviews");
    EXPECT_EQ(smartBack->matchType(), 1);
    EXPECT_EQ(smartBack->uuid(), "AAAAAAAA-0000-0000-0000-000000000001");
    ASSERT_EQ(smartBack->filterArray()->size(), 2u);
    EXPECT_EQ(smartBack->filterArray()->at(0)->filterMatch(), -1);
    EXPECT_EQ(smartBack->filterArray()->at(0)->filterString(), "Ann");
    ASSERT_EQ(smartBack->children()->size(), 3u);
    const auto clip = std::dynamic_pointer_cast<TLMediaItem>(smartBack->children()->at(1));
    ASSERT_TRUE(clip);
    EXPECT_EQ(clip->filePath(), std::nullopt);
    EXPECT_EQ(clip->shortName(), "b");
    EXPECT_EQ(clip->uuid(), "CLIP-B");
    EXPECT_EQ(clip->parent(), smartBack);
    EXPECT_EQ(smartBack->children()->at(2)->kind(), TLBinNodeKind::smartBin);

    const auto rangeBack = std::dynamic_pointer_cast<TLSmartRangeItem>(decoded->at(1));
    ASSERT_TRUE(rangeBack);
    EXPECT_EQ(rangeBack->criteria(), 7);
    EXPECT_EQ(std::dynamic_pointer_cast<TLMediaItem>(rangeBack->children()->at(0))->filePath(), "/media/c.mov");
}
