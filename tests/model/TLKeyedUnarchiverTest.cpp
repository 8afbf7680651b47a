// Reading keyed archives: other writers' forms and hostile archives.
#include "TLBinRangeItem.h"
#include "TLKeyedArchiver.h"
#include "TLKeyedUnarchiver.h"
#include "TLPropertyList.h"
#include "TLSmartBin.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <map>
#include <utility>
#include <vector>

namespace {

std::string uid(int value)
{
    return "<dict><key>CF$UID</key><integer>" + std::to_string(value) + "</integer></dict>";
}

// The archive of regular bin "A" holding range item "Reel 1", laid out as
// macOS writes it, in XML with the references as CF$UID dictionaries.
std::string workedExampleXML(const std::string &nameOfA = "<string>A</string>")
{
    const std::string arrayClass = "<dict><key>$classname</key><string>NSMutableArray</string><key>$classes</key>"
                                   "<array><string>NSMutableArray</string><string>NSArray</string>"
                                   "<string>NSObject</string></array></dict>";
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
           "<key>$archiver</key><string>NSKeyedArchiver</string><key>$objects</key><array>"
           "<string>$null</string>"
           "<dict><key>NS.objects</key><array>" + uid(2) + "</array><key>$class</key>" + uid(10) + "</dict>"
           "<dict><key>$0</key>" + uid(3) + "<key>$1</key>" + uid(4) + "<key>$2</key>" + uid(0)
        + "<key>$class</key>" + uid(11) + "</dict>" + nameOfA
        + "<dict><key>NS.objects</key><array>" + uid(5) + "</array><key>$class</key>" + uid(10) + "</dict>"
           "<dict><key>$0</key>" + uid(6) + "<key>$1</key>" + uid(7)
        + "<key>rangeCount</key><integer>1</integer><key>rangeCurrentIndex</key><integer>0</integer>"
           "<key>$2</key>" + uid(2) + "<key>$3</key>" + uid(8) + "<key>$class</key>" + uid(9) + "</dict>"
           "<string>Reel 1</string><string>Reel [1-1]</string>"
           "<string>6F1C2A3B-4D5E-6F70-8192-A3B4C5D6E7F8</string>"
           "<dict><key>$classname</key><string>TLBinRangeItem</string><key>$classes</key>"
           "<array><string>TLBinRangeItem</string><string>NSObject</string></array></dict>"
        + arrayClass
        + "<dict><key>$classname</key><string>TLRegularBin</string><key>$classes</key>"
          "<array><string>TLRegularBin</string><string>NSObject</string></array></dict>"
          "</array><key>$top</key><dict><key>root</key>" + uid(1) + "</dict>"
          "<key>$version</key><integer>100000</integer></dict></plist>";
}

// Builds archives entry by entry with binary UIDs, for shapes no writer makes.
class ArchiveBuilder
{
public:
    using Fields = std::vector<std::pair<std::string, plist_t>>;

    ArchiveBuilder() { add(plist_new_string("$null")); }

    std::uint64_t add(plist_t entry)
    {
        plist_array_append_item(m_objects.root(), entry);
        return plist_array_get_size(m_objects.root()) - 1;
    }
    std::uint64_t string(const char *text) { return add(plist_new_string(text)); }
    std::uint64_t classNamed(const char *name)
    {
        plist_t descriptor = plist_new_dict();
        plist_dict_set_item(descriptor, "$classname", plist_new_string(name));
        return add(descriptor);
    }
    std::uint64_t object(const char *className, const Fields &fields)
    {
        plist_t entry = plist_new_dict();
        for (const auto &[key, value] : fields)
            plist_dict_set_item(entry, key.c_str(), value);
        plist_dict_set_item(entry, "$class", plist_new_uid(classUid(className)));
        return add(entry);
    }
    std::uint64_t array(const std::vector<std::uint64_t> &items)
    {
        plist_t references = plist_new_array();
        for (auto item : items)
            plist_array_append_item(references, plist_new_uid(item));
        return object("NSArray", {{"NS.objects", references}});
    }
    // A regular bin entry added now; its children list may come later.
    std::uint64_t regularBin(std::uint64_t children, std::uint64_t parent)
    {
        return object("TLRegularBin", {{"$0", plist_new_uid(string("bin"))},
                                       {"$1", plist_new_uid(children)},
                                       {"$2", plist_new_uid(parent)}});
    }
    // Reserves an entry to be replaced with set().
    std::uint64_t placeholder() { return string("placeholder"); }
    void set(std::uint64_t index, std::uint64_t from)
    {
        plist_t moved = plist_copy(plist_array_get_item(m_objects.root(), std::uint32_t(from)));
        plist_array_set_item(m_objects.root(), moved, std::uint32_t(index));
    }

    // The finished archive; the builder is spent afterwards.
    std::string bytes(std::uint64_t root) { return archive(root).toBinary().value_or(""); }
    TLPropertyList archive(std::uint64_t root)
    {
        auto archive = TLPropertyList::newDictionary();
        archive.setStringForKey("$archiver", "NSKeyedArchiver");
        archive.setIntegerForKey("$version", 100000);
        plist_t top = plist_new_dict();
        plist_dict_set_item(top, "root", plist_new_uid(root));
        plist_dict_set_item(archive.root(), "$top", top);
        plist_dict_set_item(archive.root(), "$objects", m_objects.release());
        return archive;
    }

private:
    std::uint64_t classUid(const std::string &name)
    {
        if (!m_classes.contains(name))
            m_classes[name] = classNamed(name.c_str());
        return m_classes[name];
    }

    TLPropertyList m_objects = TLPropertyList::adopt(plist_new_array());
    std::map<std::string, std::uint64_t> m_classes;
};

std::string failureOf(const std::string &bytes)
{
    std::string reason;
    const auto nodes = TLKeyedUnarchiver::unarchiveObjectWithData(bytes, reason);
    return nodes ? "decoded" : reason;
}

} // namespace

TEST(TLKeyedUnarchiverTest, DecodesTheWorkedExampleWithSharedIdentity)
{
    for (const auto &name : {std::string("<string>A</string>"),
                             "<dict><key>NS.string</key><string>A</string><key>$class</key>" + uid(12) + "</dict>"}) {
        auto xml = workedExampleXML(name);
        xml.insert(xml.find("</array><key>$top"),
                   "<dict><key>$classname</key><string>NSMutableString</string></dict>");
        std::string reason;
        const auto nodes = TLKeyedUnarchiver::unarchiveObjectWithData(xml, reason);
        ASSERT_TRUE(nodes) << reason;
        ASSERT_EQ(nodes->size(), 1u);
        const auto &bin = nodes->front();
        EXPECT_EQ(bin->kind(), TLBinNodeKind::regularBin);
        EXPECT_EQ(bin->binName(), "A");
        ASSERT_EQ(bin->children()->size(), 1u);
        const auto item = std::dynamic_pointer_cast<TLBinRangeItem>(bin->children()->front());
        ASSERT_TRUE(item);
        EXPECT_EQ(item->binName(), "Reel 1");
        EXPECT_EQ(item->rangeExpression(), "Reel [1-1]");
        EXPECT_EQ(item->rangeCount(), 1);
        EXPECT_EQ(item->uuid(), "6F1C2A3B-4D5E-6F70-8192-A3B4C5D6E7F8");
        EXPECT_EQ(item->parent(), bin) << "the back reference is the same object";
    }
}

TEST(TLKeyedUnarchiverTest, MissingIntegerKeysReadAsZero)
{
    ArchiveBuilder archive;
    const auto filters = archive.array({});
    const auto bin = archive.object("TLSmartBin", {{"$0", plist_new_uid(filters)},
                                                   {"$1", plist_new_uid(archive.string("Smart"))}});
    const auto nodes = TLKeyedUnarchiver::unarchiveObjectWithData(archive.bytes(archive.array({bin})));
    ASSERT_TRUE(nodes);
    const auto smart = std::dynamic_pointer_cast<TLSmartBin>(nodes->front());
    ASSERT_TRUE(smart);
    EXPECT_EQ(smart->matchType(), 0);
    EXPECT_EQ(smart->binName(), "Smart");
    EXPECT_TRUE(smart->children()->empty()) << "missing fields read as nil";
}

TEST(TLKeyedUnarchiverTest, RefusesBrokenReferencesAndGraphs)
{
    {
        ArchiveBuilder archive;
        EXPECT_NE(failureOf(archive.bytes(archive.array({1000}))).find("out of range"), std::string::npos);
    }
    {
        // The bin lists itself among its own children.
        ArchiveBuilder archive;
        const auto bin = archive.placeholder();
        const auto children = archive.array({bin});
        archive.set(bin, archive.regularBin(children, 0));
        EXPECT_NE(failureOf(archive.bytes(archive.array({bin}))).find("contains itself"), std::string::npos);
    }
    {
        ArchiveBuilder archive;
        const auto shared = archive.regularBin(0, 0);
        const auto first = archive.regularBin(archive.array({shared}), 0);
        const auto second = archive.regularBin(archive.array({shared}), 0);
        EXPECT_NE(failureOf(archive.bytes(archive.array({first, second}))).find("two lists"), std::string::npos);
    }
}

TEST(TLKeyedUnarchiverTest, AParentThatIsNotTheHolderIsRepairedWithOneLogLine)
{
    ArchiveBuilder archive;
    const auto stranger = archive.regularBin(0, 0);
    const auto child = archive.regularBin(0, stranger);
    const auto holder = archive.regularBin(archive.array({child}), 0);
    const std::string bytes = archive.bytes(archive.array({holder, stranger}));
    std::optional<TLNodeList> tree;
    const std::string log = test::logOf([&] { tree = TLKeyedUnarchiver::unarchiveObjectWithData(bytes); });
    ASSERT_TRUE(tree);
    ASSERT_EQ(tree->size(), 2u);
    const TLBinNodePtr kept = tree->front();
    ASSERT_EQ(kept->children()->size(), 1u);
    EXPECT_EQ(kept->children()->front()->parent(), kept);
    EXPECT_NE(log.find("1 parent references did not name the bin holding them"), std::string::npos) << log;
}

TEST(TLKeyedUnarchiverTest, RefusesUnknownClassesAndWrongTypes)
{
    {
        ArchiveBuilder archive;
        const auto evil = archive.object("NSURL", {});
        EXPECT_NE(failureOf(archive.bytes(archive.array({evil}))).find("unknown class"), std::string::npos);
    }
    {
        ArchiveBuilder archive;
        const auto name = archive.array({});
        const auto bin = archive.object("TLRegularBin", {{"$0", plist_new_uid(name)}});
        EXPECT_NE(failureOf(archive.bytes(archive.array({bin}))), "decoded") << "a list as a name";
    }
    {
        ArchiveBuilder archive;
        const auto item = archive.object("TLBinRangeItem", {{"rangeCount", plist_new_string("3")}});
        EXPECT_NE(failureOf(archive.bytes(archive.array({item}))).find("rangeCount"), std::string::npos);
    }
    {
        ArchiveBuilder archive;
        const auto clip = archive.object("TLMediaItem", {});
        EXPECT_NE(failureOf(archive.bytes(archive.array({clip}))).find("cannot"), std::string::npos)
            << "a clip at the top level";
    }
    {
        ArchiveBuilder archive;
        const auto bin = archive.object("TLRegularBin", {{"$0", plist_new_string("inline")}});
        EXPECT_NE(failureOf(archive.bytes(archive.array({bin}))).find("reference"), std::string::npos);
    }
    EXPECT_EQ(failureOf(workedExampleXML()), "decoded");
    auto renamed = workedExampleXML();
    renamed.replace(renamed.find("NSKeyedArchiver"), 15, "NSKeyedArchivex");
    EXPECT_NE(failureOf(renamed), "decoded");
}

TEST(TLKeyedUnarchiverTest, RefusesDeepNestingAndTruncatedBytes)
{
    ArchiveBuilder archive;
    std::uint64_t children = 0;
    for (int depth = 0; depth < 100000; ++depth)
        children = archive.array({archive.regularBin(children, 0)});
    std::string reason;
    EXPECT_FALSE(TLKeyedUnarchiver::unarchiveObjectWithPropertyList(archive.archive(children).root(), reason));
    EXPECT_NE(reason.find("nested too deeply"), std::string::npos) << reason;

    const auto bytes = ArchiveBuilder().bytes(0);
    const auto valid = TLKeyedUnarchiver::unarchiveObjectWithData(workedExampleXML());
    ASSERT_TRUE(valid);
    const auto binary = TLKeyedArchiver::archivedDataWithRootObject(*valid).value_or("");
    ASSERT_TRUE(TLKeyedUnarchiver::unarchiveObjectWithData(binary));
    for (std::size_t keep : {std::size_t(0), std::size_t(40), binary.size() / 2, binary.size() - 1})
        EXPECT_NE(failureOf(binary.substr(0, keep)), "decoded") << keep;
    EXPECT_NE(failureOf(bytes).find("no root"), std::string::npos);
}
