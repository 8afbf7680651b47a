// Type and creator codes kept in the Finder information extended attribute.
#include "TLFinderInfo.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <sys/xattr.h>

#include <string>

namespace {

// Writes raw attribute bytes; false when the file system refuses extended
// attributes, so that the caller can skip.
bool setRawAttribute(const std::string &path, const std::string &bytes)
{
    return ::setxattr(path.c_str(), TLFinderInfo::attributeName, bytes.data(), bytes.size(), 0) == 0;
}

std::string rawAttribute(const std::string &path)
{
    std::string bytes(256, '\0');
    const ssize_t size = ::getxattr(path.c_str(), TLFinderInfo::attributeName, bytes.data(), bytes.size());
    bytes.resize(size < 0 ? 0 : std::size_t(size));
    return bytes;
}

} // namespace

TEST(TLFinderInfoTest, CodesConvertBetweenTextAndNumbers)
{
    EXPECT_EQ(TLFinderInfo::codeFromString("XML "), TLFinderInfo::xmlType);
    EXPECT_EQ(TLFinderInfo::codeFromString("FCPF"), TLFinderInfo::finalCutProProjectType);
    EXPECT_EQ(TLFinderInfo::codeFromString("KeyG"), TLFinderInfo::finalCutProCreator);
    EXPECT_EQ(TLFinderInfo::stringFromCode(0x584D4C20), "XML ");
    EXPECT_EQ(TLFinderInfo::codeFromString("XML"), std::nullopt);
    EXPECT_EQ(TLFinderInfo::codeFromString("XMLXX"), std::nullopt);
}

TEST(TLFinderInfoTest, WrittenCodesReadBackAndKeepTheFindersOtherBytes)
{
    test::TemporaryFolder folder;
    const auto path = folder.file("Project.xml");
    test::writeFile(path, "<xmeml/>");

    std::string existing(32, '\0');
    for (std::size_t index = 0; index < existing.size(); ++index)
        existing[index] = char(0x40 + index);
    if (!setRawAttribute(path, existing))
        GTEST_SKIP() << "no extended attributes on this file system";

    EXPECT_EQ(TLFinderInfo::typeCode(path), TLFinderInfo::codeFromString("@ABC"));
    ASSERT_FALSE(TLFinderInfo::setTypeAndCreatorCode(path, TLFinderInfo::xmlType, TLFinderInfo::finalCutProCreator));
    EXPECT_EQ(TLFinderInfo::typeCode(path), TLFinderInfo::xmlType);
    EXPECT_EQ(TLFinderInfo::creatorCode(path), TLFinderInfo::finalCutProCreator);
    EXPECT_EQ(rawAttribute(path), "XML KeyG" + existing.substr(8));
}

TEST(TLFinderInfoTest, OddOrMissingAttributesReadAsNoCode)
{
    test::TemporaryFolder folder;
    const auto path = folder.file("Loose.xml");
    test::writeFile(path, "x");
    EXPECT_EQ(TLFinderInfo::typeCode(path), std::nullopt);
    EXPECT_EQ(TLFinderInfo::typeCode(folder.file("missing")), std::nullopt);
    EXPECT_EQ(TLFinderInfo::setTypeAndCreatorCode(folder.file("missing"), 1, 2),
              std::errc::no_such_file_or_directory);

    if (!setRawAttribute(path, "FCP"))
        GTEST_SKIP() << "no extended attributes on this file system";
    EXPECT_EQ(TLFinderInfo::typeCode(path), std::nullopt);

    // A short attribute is padded to the Finder's 32 bytes, a long one cut.
    ASSERT_FALSE(TLFinderInfo::setTypeAndCreatorCode(path, TLFinderInfo::finalCutProProjectType, 0));
    EXPECT_EQ(rawAttribute(path), "FCPF" + std::string(28, '\0'));

    ASSERT_TRUE(setRawAttribute(path, "FCPFKeyG" + std::string(100, 'z')));
    EXPECT_EQ(TLFinderInfo::typeCode(path), TLFinderInfo::finalCutProProjectType);
    ASSERT_FALSE(TLFinderInfo::setTypeAndCreatorCode(path, TLFinderInfo::xmlType, 0));
    EXPECT_EQ(rawAttribute(path), "XML " + std::string(4, '\0') + std::string(24, 'z'));
}
