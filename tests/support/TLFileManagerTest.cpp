#include "TLFileManager.h"

#include "TLLog.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// The lines logged while `work` runs, from a fresh log in the sandbox.
template <typename Work>
std::string logOf(Work &&work)
{
    const std::optional<std::string> logPath = TLLog::currentLogPath();
    if (!logPath)
        return {};
    fs::create_directories(fs::path(*logPath).parent_path());
    TLLog::createNewLog(std::nullopt, true);
    work();
    TLLog::finishWriting();
    return test::readFile(*logPath);
}

} // namespace

TEST(TLFileManagerTest, UniqueFilenameNumbersTakenNamesBeforeTheExtension)
{
    const test::TemporaryFolder folder;
    const std::string bins = folder.file("Bins.xml");
    EXPECT_EQ(TLFileManager::uniqueFilename(bins), bins);

    test::writeFile(bins, "x");
    EXPECT_EQ(TLFileManager::uniqueFilename(bins), folder.file("Bins 2.xml"));
    test::writeFile(folder.file("Bins 2.xml"), "x");
    EXPECT_EQ(TLFileManager::uniqueFilename(bins), folder.file("Bins 3.xml"));

    // Without an extension, with a leading dot, with a dotted folder name.
    test::writeFile(folder.file("Bins"), "x");
    EXPECT_EQ(TLFileManager::uniqueFilename(folder.file("Bins")), folder.file("Bins 2"));
    test::writeFile(folder.file(".hidden"), "x");
    EXPECT_EQ(TLFileManager::uniqueFilename(folder.file(".hidden")), folder.file(".hidden 2"));
    fs::create_directories(folder.path() / "v1.0" / "Reels");
    EXPECT_EQ(TLFileManager::uniqueFilename(folder.file("v1.0/Reels")), folder.file("v1.0/Reels 2"));
    EXPECT_EQ(TLFileManager::uniqueFilename(folder.file("v1.0/Reels/")), folder.file("v1.0/Reels 2"));
    EXPECT_EQ(TLFileManager::uniqueFilename(""), "");
}

TEST(TLFileManagerTest, UniqueFilenameCountsADanglingLinkAsTaken)
{
    const test::TemporaryFolder folder;
    fs::create_symlink(folder.file("nowhere"), folder.file("Link.xml"));
    EXPECT_EQ(TLFileManager::uniqueFilename(folder.file("Link.xml")), folder.file("Link 2.xml"));
}

TEST(TLFileManagerTest, RemoveFileRemovesFilesFoldersAndLinksButNotWhatLinksPointTo)
{
    const test::TemporaryFolder folder;
    std::string log = logOf([&] {
        EXPECT_TRUE(TLFileManager::removeFile(folder.file("missing")));
        EXPECT_TRUE(TLFileManager::removeFile(""));
    });
    EXPECT_EQ(log.find("Error removing file"), std::string::npos) << log;

    test::writeFile(folder.file("a.xml"), "x");
    EXPECT_TRUE(TLFileManager::removeFile(folder.file("a.xml")));
    EXPECT_FALSE(fs::exists(folder.file("a.xml")));

    test::writeFile(folder.file("tree/inner/b.xml"), "x");
    EXPECT_TRUE(TLFileManager::removeFile(folder.file("tree")));
    EXPECT_FALSE(fs::exists(folder.file("tree")));

    test::writeFile(folder.file("kept/c.xml"), "keep");
    fs::create_directory_symlink(folder.file("kept"), folder.file("link"));
    EXPECT_TRUE(TLFileManager::removeFile(folder.file("link")));
    EXPECT_FALSE(fs::exists(fs::symlink_status(folder.file("link"))));
    EXPECT_EQ(test::readFile(folder.file("kept/c.xml")), "keep");
}

TEST(TLFileManagerTest, RemoveFileReportsARefusalAndKeepsTheFile)
{
    const test::TemporaryFolder folder;
    const std::string locked = folder.file("locked");
    test::writeFile(locked + "/a.xml", "x");
    fs::permissions(locked, fs::perms::owner_read | fs::perms::owner_exec);
    // Folder permissions do not bind the superuser; the kernel's process
    // files refuse everyone.
    const std::string refused = geteuid() == 0 ? std::string("/proc/self/status") : locked + "/a.xml";
    const std::string log = logOf([&] { EXPECT_FALSE(TLFileManager::removeFile(refused)); });
    fs::permissions(locked, fs::perms::owner_all);
    EXPECT_NE(log.find(" - Error removing file: cannot remove " + refused + ": "), std::string::npos) << log;
    EXPECT_NE(log.find(". Authorizing...\n"), std::string::npos) << log;
    EXPECT_TRUE(fs::exists(refused));
}
