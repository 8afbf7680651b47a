// Replacing files atomically.
#include "TLAtomicFile.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

TEST(TLAtomicFileTest, ReplacesContentsAndKeepsPermissions)
{
    test::TemporaryFolder folder;
    const auto path = folder.file("project.xml");
    ASSERT_EQ(TLAtomicFile::writeContents(path, "first"), "");
    ::chmod(path.c_str(), 0640);
    ASSERT_EQ(TLAtomicFile::writeContents(path, "second"), "");
    EXPECT_EQ(test::readFile(path), "second");
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1)
        << "no temporary file is left behind";
}

TEST(TLAtomicFileTest, UnwritableFolderLeavesTheOldFileAndSaysWhy)
{
    if (::geteuid() == 0)
        GTEST_SKIP() << "root may write into read-only folders";
    test::TemporaryFolder folder;
    const auto path = folder.file("settings.plist");
    test::writeFile(path, "old");
    ::chmod(folder.path().c_str(), 0555);
    const auto reason = TLAtomicFile::writeContents(path, "new");
    ::chmod(folder.path().c_str(), 0755);
    EXPECT_NE(reason.find("Permission denied"), std::string::npos) << reason;
    EXPECT_EQ(test::readFile(path), "old");
}

TEST(TLAtomicFileTest, NewFilesFollowTheUmaskNotAPrivateMode)
{
    test::TemporaryFolder folder;
    const auto path = folder.file("new.xml");
    const mode_t previous = ::umask(022);
    const auto reason = TLAtomicFile::writeContents(path, "x");
    ::umask(previous);
    ASSERT_EQ(reason, "");
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644u);
}

TEST(TLAtomicFileTest, MissingFolderIsReportedNotCreated)
{
    test::TemporaryFolder folder;
    const auto reason = TLAtomicFile::writeContents(folder.file("gone/file"), "x");
    EXPECT_NE(reason.find("cannot create"), std::string::npos) << reason;
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "gone"));
}
