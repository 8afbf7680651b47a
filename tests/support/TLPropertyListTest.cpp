// Property lists: round trips, files, and hostile input that libplist alone
// would crash on or blow up with.
#include "TLPropertyList.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <vector>

namespace {

void appendBigEndian(std::string &out, std::uint64_t value, int width)
{
    for (int i = width - 1; i >= 0; --i)
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}

// A binary property list from raw object bodies, with 4-byte offsets and
// 4-byte references.
std::string binaryPlist(const std::vector<std::string> &objects, std::uint64_t top = 0)
{
    std::string out = "bplist00";
    std::vector<std::uint64_t> offsets;
    for (const auto &object : objects) {
        offsets.push_back(out.size());
        out += object;
    }
    const auto tableOffset = out.size();
    for (auto offset : offsets)
        appendBigEndian(out, offset, 4);
    out.append(6, '\0');
    out.push_back(4);
    out.push_back(4);
    appendBigEndian(out, objects.size(), 8);
    appendBigEndian(out, top, 8);
    appendBigEndian(out, tableOffset, 8);
    return out;
}

// An array object holding the given references (at most 14).
std::string arrayObject(const std::vector<std::uint32_t> &references)
{
    std::string out(1, static_cast<char>(0xA0 | references.size()));
    for (auto reference : references)
        appendBigEndian(out, reference, 4);
    return out;
}

// `depth` arrays, each the only element of the one before.
std::string nestedBinaryArrays(std::uint32_t depth)
{
    std::vector<std::string> objects;
    for (std::uint32_t i = 0; i + 1 < depth; ++i)
        objects.push_back(arrayObject({i + 1}));
    objects.push_back(arrayObject({}));
    return binaryPlist(objects);
}

std::string xmlPlist(std::string_view body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">"
        + std::string(body) + "</plist>\n";
}

std::string repeated(std::string_view text, int count)
{
    std::string out;
    for (int i = 0; i < count; ++i)
        out += text;
    return out;
}

// Bytes of every value in an order with no short period, so that each
// base64 line and each padding case sees different input.
std::string variedBytes(std::size_t count)
{
    std::string bytes(count, '\0');
    std::uint32_t state = 12345;
    for (auto &byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

} // namespace

TEST(TLPropertyListTest, RoundTripsValuesThroughBothFormatsAndFiles)
{
    auto list = TLPropertyList::newDictionary();
    ASSERT_TRUE(list.setStringForKey("name", "Reel A"));
    EXPECT_FALSE(list.setStringForKey("cut", std::string("Reel\0A", 6)));
    ASSERT_TRUE(list.setIntegerForKey("count", -5));
    ASSERT_TRUE(list.setBoolForKey("flag", true));
    ASSERT_TRUE(list.setDataForKey("data", std::string("\0\1bplist00", 10)));
    test::TemporaryFolder folder;
    for (auto format : {TLPropertyList::Format::binary, TLPropertyList::Format::XML}) {
        const auto path = folder.file("settings.plist");
        ASSERT_EQ(list.writeToFile(path, format), "");
        const auto read = TLPropertyList::fromFile(path);
        ASSERT_TRUE(read);
        EXPECT_EQ(read.stringForKey("name"), "Reel A");
        EXPECT_EQ(read.integerForKey("count"), -5);
        EXPECT_EQ(read.boolForKey("flag"), true);
        EXPECT_EQ(read.dataForKey("data"), std::string("\0\1bplist00", 10));
        EXPECT_EQ(read.stringForKey("count"), std::nullopt) << "wrong type is absent";
        EXPECT_EQ(read.integerForKey("missing"), std::nullopt);
    }
    TLPropertyList empty;
    EXPECT_FALSE(empty.setStringForKey("a", "b"));
    EXPECT_EQ(empty.stringForKey("a"), std::nullopt);
    EXPECT_FALSE(empty.toBinary());
    EXPECT_NE(empty.writeToFile(folder.file("empty.plist"), TLPropertyList::Format::XML), "");
}

TEST(TLPropertyListTest, ReadsReferencesInBothForms)
{
    const auto xml = TLPropertyList::fromBytes(xmlPlist(
        "<dict><key>root</key><dict><key>CF$UID</key><integer>7</integer></dict>"
        "<key>two</key><dict><key>CF$UID</key><integer>1</integer><key>x</key><true/></dict></dict>"));
    ASSERT_TRUE(xml);
    EXPECT_EQ(TLPropertyList::uidValue(xml.itemForKey("root")), 7u);
    EXPECT_EQ(TLPropertyList::uidValue(xml.itemForKey("two")), std::nullopt);

    auto built = TLPropertyList::newDictionary();
    plist_dict_set_item(built.root(), "root", plist_new_uid(70000));
    const auto binary = TLPropertyList::fromBytes(*built.toBinary());
    ASSERT_TRUE(binary);
    EXPECT_EQ(plist_get_node_type(binary.itemForKey("root")), PLIST_UID);
    EXPECT_EQ(TLPropertyList::uidValue(binary.itemForKey("root")), 70000u);
}

TEST(TLPropertyListTest, RefusesDeepBinaryNestingBeforeLibplistSeesIt)
{
    std::string reason;
    EXPECT_TRUE(TLPropertyList::fromBytes(nestedBinaryArrays(500), reason)) << reason;
    EXPECT_FALSE(TLPropertyList::fromBytes(nestedBinaryArrays(100000), reason));
    EXPECT_NE(reason.find("nested too deeply"), std::string::npos) << reason;
}

TEST(TLPropertyListTest, RefusesSharedReferencesThatWouldExpandExponentially)
{
    // Each array holds the next one twice; libplist copies per reference.
    std::vector<std::string> objects;
    for (std::uint32_t i = 0; i < 40; ++i)
        objects.push_back(arrayObject({i + 1, i + 1}));
    objects.push_back(arrayObject({}));
    std::string reason;
    EXPECT_FALSE(TLPropertyList::fromBytes(binaryPlist(objects), reason));
    EXPECT_NE(reason.find("too many nodes"), std::string::npos) << reason;
}

TEST(TLPropertyListTest, RefusesDamagedBinaryStructure)
{
    const auto good = binaryPlist({arrayObject({1}), "\x51" "a"});
    ASSERT_TRUE(TLPropertyList::fromBytes(good));
    for (std::size_t cut : {1u, 10u, 33u})
        EXPECT_FALSE(TLPropertyList::fromBytes(std::string_view(good).substr(0, good.size() - cut))) << cut;
    EXPECT_FALSE(TLPropertyList::fromBytes(binaryPlist({arrayObject({0})}))) << "cycle";
    EXPECT_FALSE(TLPropertyList::fromBytes(binaryPlist({arrayObject({5})}))) << "reference out of range";
    EXPECT_FALSE(TLPropertyList::fromBytes(binaryPlist({"\x5F\x10\xFF" "abc"}))) << "string runs past the end";
    EXPECT_FALSE(TLPropertyList::fromBytes(binaryPlist({std::string("\xD1\0\0\0\1\0\0\0\1", 9), "\x10\1"})))
        << "dictionary key that is not a string";
    EXPECT_FALSE(TLPropertyList::fromBytes(binaryPlist({std::string("\x61\xDC\x00", 3)}))) << "lone surrogate";
    auto badTable = good;
    badTable[badTable.size() - 1] = '\x7F';
    EXPECT_FALSE(TLPropertyList::fromBytes(badTable));
}

TEST(TLPropertyListTest, RefusesDeepOrTrickyXML)
{
    std::string reason;
    const auto deep = xmlPlist(repeated("<array>", 300000) + repeated("</array>", 300000));
    EXPECT_FALSE(TLPropertyList::fromBytes(deep, reason));
    EXPECT_NE(reason.find("nested too deeply"), std::string::npos) << reason;
    // Close tags hidden where the parser ignores them must not lower the count.
    for (auto hidden : {"<!-- </array> -->", "<![CDATA[</array>]]>", "<?x </array> ?>"}) {
        const auto tricky = xmlPlist(repeated(std::string("<array>") + hidden, 600) + repeated("</array>", 600));
        EXPECT_FALSE(TLPropertyList::fromBytes(tricky, reason)) << hidden;
    }
    EXPECT_FALSE(TLPropertyList::fromBytes(
        "<!DOCTYPE plist [<!ENTITY x \"<array/>\">]><plist><array>&x;</array></plist>", reason));
    EXPECT_NE(reason.find("internal document type subset"), std::string::npos) << reason;
    EXPECT_FALSE(TLPropertyList::fromBytes(xmlPlist("<array x=/><array></array>")));
    EXPECT_TRUE(TLPropertyList::fromBytes(xmlPlist("<array><!-- a comment --><array/><string>a&amp;b</string></array>")));
}

TEST(TLPropertyListTest, RefusesGarbageAndUnreadableFiles)
{
    EXPECT_FALSE(TLPropertyList::fromBytes(""));
    EXPECT_FALSE(TLPropertyList::fromBytes("not a property list at all"));
    EXPECT_FALSE(TLPropertyList::fromBytes(std::string("\xFF\xFE\0\x01<plist>", 10)));
    test::TemporaryFolder folder;
    EXPECT_FALSE(TLPropertyList::fromFile(folder.path().string())) << "a directory";
    EXPECT_FALSE(TLPropertyList::fromFile(folder.file("missing.plist")));
    test::writeFile(folder.file("garbage.plist"), "bplist00 and then nonsense that is long enough");
    EXPECT_FALSE(TLPropertyList::fromFile(folder.file("garbage.plist")));
}

TEST(TLPropertyListTest, StreamedDataDictionaryIsWhatLibplistWrites)
{
    struct Case
    {
        std::size_t size;
        std::string key;
    };
    // Sizes around the padding cases and the 51-byte line, then many lines.
    const std::vector<Case> cases = {{0, "data"},  {1, "data"},  {2, "data"},         {3, "data"},
                                     {50, "data"}, {51, "data"}, {57, "data"},        {58, "data"},
                                     {1000, "data"}, {1000, "a&<b>\"'"}, {(1u << 20) + 7, "data"}};
    test::TemporaryFolder folder;
    for (const auto &[size, key] : cases) {
        const auto data = variedBytes(size);
        auto reference = TLPropertyList::newDictionary();
        ASSERT_TRUE(reference.setDataForKey(key, data));
        ASSERT_EQ(reference.writeToFile(folder.file("libplist.plist"), TLPropertyList::Format::XML), "");
        const auto path = folder.file("streamed.plist");
        ASSERT_EQ(TLPropertyList::writeDataDictionaryToFile(path, key, data), "") << size;
        const auto streamed = test::readFile(path);
        const auto expected = test::readFile(folder.file("libplist.plist"));
        // The first difference, not a megabyte of both texts.
        const auto difference = std::mismatch(streamed.begin(), streamed.end(), expected.begin(), expected.end());
        EXPECT_TRUE(streamed == expected) << size << " bytes under " << key << ": first difference at byte "
                                          << difference.first - streamed.begin();
        EXPECT_EQ(TLPropertyList::fromFile(path).dataForKey(key), data) << size;
    }
}

TEST(TLPropertyListTest, StreamedDataDictionaryFailsWithoutLeavingAFile)
{
    test::TemporaryFolder folder;
    const auto missing = folder.file("missing/settings.plist");
    EXPECT_NE(TLPropertyList::writeDataDictionaryToFile(missing, "data", "abc"), "");
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "missing"));

    const auto existing = folder.file("settings.plist");
    test::writeFile(existing, "old settings");
    const auto reason = TLPropertyList::writeDataDictionaryToFile(existing, std::string("da\0ta", 5), "abc");
    EXPECT_NE(reason.find("NUL"), std::string::npos) << reason;
    EXPECT_EQ(test::readFile(existing), "old settings");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1) << "no temporary left";
}
