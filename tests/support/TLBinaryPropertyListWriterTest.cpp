// The binary property-list writer: exact bytes, round trips through the
// hardened reader, agreement with libplist's own writer, and keyed archives.
#include "TLBinaryPropertyListWriter.h"
#include "TLKeyedArchiver.h"
#include "TLKeyedUnarchiver.h"
#include "TLMediaItem.h"
#include "TLPropertyList.h"
#include "TLRegularBin.h"
#include "TLSmartRangeItem.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <limits>
#include <string>

namespace {

std::uint64_t readBigEndian(const std::string &bytes, std::size_t offset, unsigned width)
{
    std::uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i)
        value = (value << 8) | static_cast<unsigned char>(bytes[offset + i]);
    return value;
}

// The first difference between two trees as "path: what", or "" when equal.
// Dictionaries must agree in order too; dates are compared as instants.
std::string difference(plist_t left, plist_t right, const std::string &path = "/")
{
    if (plist_get_node_type(left) != plist_get_node_type(right))
        return path + ": types differ";
    switch (plist_get_node_type(left)) {
    case PLIST_ARRAY: {
        const auto leftItems = TLPropertyList::arrayItems(left);
        const auto rightItems = TLPropertyList::arrayItems(right);
        if (leftItems.size() != rightItems.size())
            return path + ": lengths differ";
        for (std::size_t i = 0; i < leftItems.size(); ++i) {
            if (auto found = difference(leftItems[i], rightItems[i], path + std::to_string(i) + "/"); !found.empty())
                return found;
        }
        return {};
    }
    case PLIST_DICT: {
        if (plist_dict_get_size(left) != plist_dict_get_size(right))
            return path + ": sizes differ";
        plist_dict_iter leftIterator = nullptr, rightIterator = nullptr;
        plist_dict_new_iter(left, &leftIterator);
        plist_dict_new_iter(right, &rightIterator);
        std::string found;
        for (plist_t leftValue = nullptr, rightValue = nullptr; found.empty();) {
            char *leftKey = nullptr, *rightKey = nullptr;
            plist_dict_next_item(left, leftIterator, &leftKey, &leftValue);
            plist_dict_next_item(right, rightIterator, &rightKey, &rightValue);
            if (!leftValue) {
                std::free(leftKey);
                std::free(rightKey);
                break;
            }
            const std::string key = leftKey;
            found = key != rightKey ? path + ": keys differ" : difference(leftValue, rightValue, path + key + "/");
            std::free(leftKey);
            std::free(rightKey);
        }
        std::free(leftIterator);
        std::free(rightIterator);
        return found;
    }
    case PLIST_DATE: {
        std::int32_t seconds[2] = {}, microseconds[2] = {};
        plist_get_date_val(left, &seconds[0], &microseconds[0]);
        plist_get_date_val(right, &seconds[1], &microseconds[1]);
        const auto instant = [&](int i) { return std::int64_t(seconds[i]) * 1000000 + microseconds[i]; };
        return instant(0) == instant(1) ? "" : path + ": dates differ";
    }
    default:
        return plist_compare_node_value(left, right) ? "" : path + ": values differ";
    }
}

plist_t arrayOf(std::initializer_list<plist_t> items)
{
    plist_t array = plist_new_array();
    for (plist_t item : items)
        plist_array_append_item(array, item);
    return array;
}

// One of every kind the writer knows, with the edges of each encoding.
TLPropertyList everyType()
{
    auto list = TLPropertyList::newDictionary();
    plist_t integers = plist_new_array();
    for (std::int64_t value : std::initializer_list<std::int64_t>{0, 14, 255, 256, 65536, 4294967295, 4294967296,
                                                                   -1, -300, std::numeric_limits<std::int64_t>::max(),
                                                                   std::numeric_limits<std::int64_t>::min()})
        plist_array_append_item(integers, plist_new_uint(static_cast<std::uint64_t>(value)));
    plist_dict_set_item(list.root(), "integers", integers);
    plist_dict_set_item(list.root(), "uids", arrayOf({plist_new_uid(0), plist_new_uid(300), plist_new_uid(70000),
                                                      plist_new_uid(4000000000)}));
    plist_dict_set_item(list.root(), "strings", arrayOf({plist_new_string(""), plist_new_string("Reel A"),
                                                         plist_new_string("Caf\u00e9 \u6771\u4eac"),
                                                         plist_new_string("\U0001F3AC clip \U0001F600"),
                                                         plist_new_string("fifteen chars!!")}));
    plist_dict_set_item(list.root(), "reals", arrayOf({plist_new_real(3.25), plist_new_real(-1e300)}));
    plist_dict_set_item(list.root(), "dates", arrayOf({plist_new_date(0, 0), plist_new_date(600000000, 500000),
                                                       plist_new_date(-86400, 250000), plist_new_date(-1, 500000)}));
    plist_dict_set_item(list.root(), "flags", arrayOf({plist_new_bool(1), plist_new_bool(0)}));
    plist_dict_set_item(list.root(), "data", arrayOf({plist_new_data("", 0), plist_new_data("\0\1\2", 3)}));
    plist_dict_set_item(list.root(), "empty", arrayOf({plist_new_array(), plist_new_dict()}));
    plist_t nested = plist_new_dict();
    plist_dict_set_item(nested, "\u00e9t\u00e9", arrayOf({arrayOf({plist_new_string("deep")}), plist_new_uid(1)}));
    plist_dict_set_item(list.root(), "nested", nested);
    return list;
}

std::string libplistBytes(plist_t root)
{
    char *bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    std::string result(bytes, length);
    plist_to_bin_free(bytes);
    return result;
}

} // namespace

TEST(TLBinaryPropertyListWriterTest, WritesTheExactLayout)
{
    auto list = TLPropertyList::adopt(arrayOf({plist_new_bool(1), plist_new_uid(300), plist_new_uint(std::uint64_t(-5))}));
    const std::string expected("bplist00"
                               "\xA3\x01\x02\x03" "\x09" "\x81\x01\x2C" "\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFB"
                               "\x08\x0C\x0D\x10"
                               "\0\0\0\0\0\0\x01\x01" "\0\0\0\0\0\0\0\x04" "\0\0\0\0\0\0\0\0" "\0\0\0\0\0\0\0\x19",
                               8 + 4 + 1 + 3 + 9 + 4 + 32);
    EXPECT_EQ(list.toBinary(), expected);

    // libplist lays out a list of dates the same way; dates before 2001 must
    // keep their exact seconds, which libplist's date getter does not give.
    auto dates = TLPropertyList::adopt(arrayOf({plist_new_date(-1, 500000), plist_new_date(-86400, 250000),
                                                plist_new_date(600000000, 500000)}));
    EXPECT_EQ(dates.toBinary(), libplistBytes(dates.root()));
}

TEST(TLBinaryPropertyListWriterTest, RoundTripsEveryTypeAndAgreesWithLibplist)
{
    const auto list = everyType();
    const auto bytes = TLBinaryPropertyListWriter::dataWithPropertyList(list.root());
    ASSERT_TRUE(bytes);
    std::string reason;
    const auto read = TLPropertyList::fromBytes(*bytes, reason);
    ASSERT_TRUE(read) << reason;
    EXPECT_EQ(difference(list.root(), read.root()), "");
    const auto libplistRead = TLPropertyList::fromBytes(libplistBytes(list.root()));
    ASSERT_TRUE(libplistRead);
    EXPECT_EQ(difference(libplistRead.root(), read.root()), "");
    EXPECT_EQ(TLPropertyList::integerValue(plist_array_get_item(read.itemForKey("integers"), 8)), -300);
    EXPECT_NE(bytes->find("\xD8\x3C\xDF\xAC", 0, 4), std::string::npos) << "U+1F3AC as a surrogate pair";
}

TEST(TLBinaryPropertyListWriterTest, LongCountsAndWideReferencesRoundTrip)
{
    // 70,000 distinct integers need three bytes for references and offsets.
    plist_t numbers = plist_new_array();
    for (std::uint64_t i = 0; i < 70000; ++i)
        plist_array_append_item(numbers, plist_new_uint(i * 1000));
    plist_t wide = plist_new_dict();
    for (int i = 0; i < 20; ++i)
        plist_dict_set_item(wide, ("key " + std::to_string(i)).c_str(), plist_new_string(std::string(i * 20, 'x').c_str()));
    const std::string blob(70000, '\xAB');
    auto list = TLPropertyList::adopt(arrayOf({numbers, wide, plist_new_data(blob.data(), blob.size())}));
    const auto bytes = list.toBinary();
    ASSERT_TRUE(bytes);
    const std::size_t trailer = bytes->size() - 32;
    EXPECT_EQ(readBigEndian(*bytes, trailer + 6, 1), 3u) << "offset width";
    EXPECT_EQ(readBigEndian(*bytes, trailer + 7, 1), 3u) << "reference width";
    std::string reason;
    const auto read = TLPropertyList::fromBytes(*bytes, reason);
    ASSERT_TRUE(read) << reason;
    EXPECT_EQ(difference(list.root(), read.root()), "");
}

TEST(TLBinaryPropertyListWriterTest, SharesEqualStringsAndUids)
{
    auto list = TLPropertyList::newDictionary();
    for (int i = 0; i < 1000; ++i)
        plist_dict_set_item(list.root(), std::to_string(i).c_str(), arrayOf({plist_new_string("0"), plist_new_uid(7)}));
    const auto bytes = list.toBinary();
    ASSERT_TRUE(bytes);
    // The root, 1000 keys (key "0" doubles as the value "0"), 1000 arrays, one UID.
    EXPECT_EQ(readBigEndian(*bytes, bytes->size() - 24, 8), 2002u);
    const auto read = TLPropertyList::fromBytes(*bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(difference(list.root(), read.root()), "");
}

TEST(TLBinaryPropertyListWriterTest, RefusesWhatHasNoBinaryFormAndRepairsBadText)
{
    EXPECT_EQ(TLBinaryPropertyListWriter::dataWithPropertyList(nullptr), std::nullopt);
    plist_t key = plist_new_string("x");
    plist_set_key_val(key, "x");
    auto withKey = TLPropertyList::adopt(arrayOf({plist_new_string("a"), key}));
    EXPECT_EQ(withKey.toBinary(), std::nullopt);

    auto damaged = TLPropertyList::adopt(arrayOf({plist_new_string("Reel\xFF\xC3")}));
    const auto read = TLPropertyList::fromBytes(damaged.toBinary().value_or(""));
    ASSERT_TRUE(read);
    EXPECT_EQ(TLPropertyList::stringValue(plist_array_get_item(read.root(), 0)), "Reel\uFFFD\uFFFD");
}

TEST(TLBinaryPropertyListWriterTest, KeyedArchiveOfALargeSmartRangeReadsBack)
{
    const auto range = TLSmartRangeItem::create("Reel 7", 3);
    range->setUuid("0A1B2C3D-0000-4000-8000-000000000001");
    TLNodeList clips;
    for (int i = 0; i < 3000; ++i)
        clips.push_back(TLMediaItem::create("/Volumes/Media/\u6771\u4eac " + std::to_string(i) + ".mov",
                                            "Clip " + std::to_string(i % 100), "UUID-" + std::to_string(i)));
    range->setChildren(clips);
    const auto bin = TLRegularBin::create();
    bin->setBinName("Days");
    bin->addChild(range);

    const auto bytes = TLKeyedArchiver::archivedDataWithRootObject({bin});
    ASSERT_TRUE(bytes);
    std::string reason;
    const auto nodes = TLKeyedUnarchiver::unarchiveObjectWithData(*bytes, reason);
    ASSERT_TRUE(nodes) << reason;
    ASSERT_EQ(nodes->size(), 1u);
    const auto readRange = (*nodes)[0]->children()->at(0);
    EXPECT_EQ(readRange->binName(), "Reel 7");
    EXPECT_EQ(readRange->uuid(), range->uuid());
    const auto readClips = readRange->children();
    ASSERT_EQ(readClips->size(), clips.size());
    const auto &last = static_cast<const TLMediaItem &>(*readClips->back());
    EXPECT_EQ(last.filePath(), "/Volumes/Media/\u6771\u4eac 2999.mov");
    EXPECT_EQ(last.shortName(), "Clip 99");
    EXPECT_EQ(last.uuid(), "UUID-2999");
    EXPECT_EQ(readClips->back()->parent(), readRange);
}
