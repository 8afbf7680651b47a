// Replacing files atomically.
#include "TLAtomicFile.h"
#include "TestSupport.h"
#include "Unprivileged.h"

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
    test::UnprivilegedFolder folder;
    const auto path = folder.file("settings.plist");
    EXPECT_EQ(test::runUnprivileged([&]() -> std::string {
                  test::writeFile(path, "old");
                  ::chmod(folder.path().c_str(), 0555);
                  const auto reason = TLAtomicFile::writeContents(path, "new");
                  if (reason.find("Permission denied") == std::string::npos)
                      return "the write did not fail for want of permission: " + reason;
                  return test::readFile(path) == "old" ? "" : "the old file was changed";
              }),
              "");
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

TEST(TLAtomicFileTest, StreamedContentsArriveWholeOrNotAtAll)
{
    test::TemporaryFolder folder;
    const auto path = folder.file("project.xml");
    test::writeFile(path, "old");

    const auto giveUp = TLAtomicFile::writeWith(path, [](const TLAtomicFile::Sink &sink) {
        sink("half of it");
        return false;
    });
    EXPECT_NE(giveUp.find("cannot write"), std::string::npos) << giveUp;
    const auto thrown = TLAtomicFile::writeWith(path, [](const TLAtomicFile::Sink &) -> bool {
        throw std::runtime_error("producer failed");
    });
    EXPECT_NE(thrown, "");
    // Given up after megabytes, while earlier ones are being written.
    const auto giveUpLate = TLAtomicFile::writeWith(path, [](const TLAtomicFile::Sink &sink) {
        const std::string megabytes(3 << 20, 'z');
        return sink(megabytes) && sink(megabytes) && false;
    });
    EXPECT_NE(giveUpLate, "");
    EXPECT_EQ(test::readFile(path), "old");

    std::string expected;
    ASSERT_EQ(TLAtomicFile::writeWith(path, [&expected](const TLAtomicFile::Sink &sink) {
                  const std::string piece(1000, 'x');
                  const std::string large(3 << 20, 'y');
                  for (int index = 0; index < 3000; ++index) {
                      expected += piece + std::to_string(index);
                      if (!sink(piece + std::to_string(index)))
                          return false;
                  }
                  expected += large;
                  return sink(large);
              }),
              "");
    EXPECT_EQ(test::readFile(path), expected);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}
