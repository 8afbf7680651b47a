#include "TLFileManager.h"

#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TestSupport.h"

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <regex>
#include <string>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#ifdef __linux__
#include <linux/fs.h>
#endif

using test::logOf;

namespace fs = std::filesystem;

namespace {

// Every entry of the zip archive at `path`, with its contents; an entry
// named "!error" holds the reader's complaint.
std::map<std::string, std::string> zipEntries(const std::string &path)
{
    std::map<std::string, std::string> entries;
    archive *reader = archive_read_new();
    archive_read_support_format_zip(reader);
    if (archive_read_open_filename(reader, path.c_str(), 16384) != ARCHIVE_OK) {
        entries["!error"] = archive_error_string(reader);
        archive_read_free(reader);
        return entries;
    }
    archive_entry *entry = nullptr;
    int status = ARCHIVE_OK;
    while ((status = archive_read_next_header(reader, &entry)) == ARCHIVE_OK) {
        std::string contents;
        char buffer[4096];
        la_ssize_t count = 0;
        while ((count = archive_read_data(reader, buffer, sizeof buffer)) > 0)
            contents.append(buffer, static_cast<std::size_t>(count));
        if (archive_entry_filetype(entry) == AE_IFLNK)
            contents = std::string("-> ") + archive_entry_symlink(entry);
        entries[archive_entry_pathname(entry)] = contents;
    }
    if (status != ARCHIVE_EOF)
        entries["!error"] = archive_error_string(reader);
    archive_read_free(reader);
    return entries;
}

std::string commandOutput(const std::string &command)
{
    std::string output;
    FILE *pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
        return output;
    char buffer[4096];
    std::size_t count = 0;
    while ((count = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.append(buffer, count);
    ::pclose(pipe);
    return output;
}

fs::path trashRoot()
{
    return fs::path(TLLocalPaths::trashDirectory()).parent_path();
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

TEST(TLFileManagerTest, TrashFileMovesItemsIntoTheDesktopTrashWithARecord)
{
    const test::TemporaryFolder folder;
    const std::string original = folder.file("My Bins%é.xml");
    test::writeFile(original, "first");
    ASSERT_TRUE(TLFileManager::trashFile(original));
    EXPECT_FALSE(fs::exists(original));
    EXPECT_EQ(test::readFile(trashRoot() / "files" / "My Bins%é.xml"), "first");
    const std::string record = test::readFile(trashRoot() / "info" / "My Bins%é.xml.trashinfo");
    const std::string encodedFolder = folder.path().string(); // sandbox paths need no escaping
    EXPECT_TRUE(std::regex_match(record, std::regex("\\[Trash Info\\]\nPath=" + encodedFolder +
                                                    "/My%20Bins%25%C3%A9\\.xml\n"
                                                    "DeletionDate=\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\n")))
        << record;

    // A second item of that name, and a third whose name only a stray
    // record holds, get numbered names; folders go whole.
    test::writeFile(original, "second");
    ASSERT_TRUE(TLFileManager::trashFile(original));
    EXPECT_EQ(test::readFile(trashRoot() / "files" / "My Bins%é 2.xml"), "second");
    test::writeFile(trashRoot() / "info" / "Reels.trashinfo", "stray");
    test::writeFile(folder.file("Reels/a.xml"), "a");
    ASSERT_TRUE(TLFileManager::trashFile(folder.file("Reels/")));
    EXPECT_EQ(test::readFile(trashRoot() / "files" / "Reels 2" / "a.xml"), "a");
    EXPECT_EQ(test::readFile(trashRoot() / "info" / "Reels.trashinfo"), "stray");
    EXPECT_TRUE(fs::exists(trashRoot() / "info" / "Reels 2.trashinfo"));

    // A link to the folder holding the Trash is only a link: it goes alone.
    fs::create_directory_symlink(trashRoot().parent_path(), folder.file("data"));
    ASSERT_TRUE(TLFileManager::trashFile(folder.file("data")));
    EXPECT_TRUE(fs::is_symlink(trashRoot() / "files" / "data"));
    EXPECT_TRUE(fs::is_directory(trashRoot() / "files"));

    EXPECT_TRUE(TLFileManager::trashFile(folder.file("missing")));
    EXPECT_TRUE(TLFileManager::trashFile(""));
}

TEST(TLFileManagerTest, TrashFileRefusesTheTrashAndWhatHoldsIt)
{
    test::writeFile(trashRoot() / "files" / "kept", "x");
    const std::string log = logOf([] {
        EXPECT_FALSE(TLFileManager::trashFile(TLLocalPaths::trashDirectory()));
        EXPECT_FALSE(TLFileManager::trashFile(TLLocalPaths::trashDirectory() + "/kept"));
        EXPECT_FALSE(TLFileManager::trashFile(trashRoot().parent_path().string()));
        EXPECT_FALSE(TLFileManager::trashFile("/"));
    });
    EXPECT_TRUE(fs::exists(trashRoot() / "files" / "kept"));
    EXPECT_NE(log.find(" - Unable to move / to the Trash: "), std::string::npos) << log;
    EXPECT_NE(log.find(" - Unable to move " + TLLocalPaths::trashDirectory() + " to the Trash: the Trash"),
              std::string::npos)
        << log;
}

TEST(TLFileManagerTest, CreateDirectoryMakesEveryMissingFolderButNoneForADetachedVolume)
{
    const test::TemporaryFolder folder;
    EXPECT_TRUE(TLFileManager::createDirectory(folder.file("a/b/c")));
    EXPECT_TRUE(fs::is_directory(folder.file("a/b/c")));
    EXPECT_TRUE(TLFileManager::createDirectory(folder.file("a/b")));

    test::writeFile(folder.file("file"), "x");
    const std::string log = logOf([&] {
        EXPECT_FALSE(TLFileManager::createDirectory(folder.file("file")));
        EXPECT_FALSE(TLFileManager::createDirectory(folder.file("file/inner")));
    });
    EXPECT_NE(log.find(" - Error creating folder: cannot create " + folder.file("file") + ": "), std::string::npos)
        << log;
    EXPECT_NE(log.find(". Authorizing...\n"), std::string::npos) << log;

    const std::string volume = "/Volumes/CorvaleTestMissingDisk";
    if (fs::exists(volume))
        GTEST_SKIP() << volume << " exists on this machine";
    EXPECT_TRUE(TLFileManager::isDriveMountedForPath("/Volumes"));
    EXPECT_TRUE(TLFileManager::isDriveMountedForPath("/Volumes/"));
    EXPECT_TRUE(TLFileManager::isDriveMountedForPath("Volumes/CorvaleTestMissingDisk/x"));
    EXPECT_TRUE(TLFileManager::isDriveMountedForPath(folder.file("x")));
    EXPECT_FALSE(TLFileManager::isDriveMountedForPath(volume));
    EXPECT_FALSE(TLFileManager::isDriveMountedForPath(volume + "/x"));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(TLFileManager::createDirectory(volume + "/x"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unable to create directory. Drive is not mounted.\n");
    EXPECT_FALSE(fs::exists(volume));
}

TEST(TLFileManagerTest, LinuxVolumeFoldersWithNothingMountedAreDetached)
{
    // Names no machine mounts anything at.
    const std::string user = "corvale-test-user";
    const std::string disk = "CorvaleTestMissingDisk";
    const struct {
        std::string path;
        bool mounted;
    } cases[] = {
        {"/media/" + user + "/" + disk + "/Bins", false},
        {"/media/" + user + "/" + disk, false},
        {"/media/" + user + "/" + disk + "/../" + disk + "/x", false},
        {"/run/media/" + user + "/" + disk + "/Bins", false},
        {"/mnt/" + disk + "/Bins", false},
        {"/mnt/" + disk, false},
        {"//mnt/" + disk + "/", false},
        {"/media", true},
        {"/media/" + user, true},
        {"/run/media/" + user, true},
        {"/mnt", true},
        {"/mnt/../tmp/x", true},
        {"mnt/" + disk + "/x", true},
        {"/mediathek/" + user + "/" + disk, true},
    };
    for (const auto &each : cases)
        EXPECT_EQ(TLFileManager::isDriveMountedForPath(each.path), each.mounted) << each.path;

    // Nothing is created where the volume would appear; should that ever
    // break, what was made under these unique names goes again.
    struct RemoveStrayFolders {
        ~RemoveStrayFolders()
        {
            std::error_code ignored;
            fs::remove_all("/mnt/CorvaleTestMissingDisk", ignored);
            fs::remove_all("/media/corvale-test-user", ignored);
        }
    } removeStrayFolders;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(TLFileManager::createDirectory("/mnt/" + disk + "/Bins"));
    EXPECT_FALSE(TLFileManager::createDirectory("/media/" + user + "/" + disk + "/Bins"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unable to create directory. Drive is not mounted.\n"
                                                      "Unable to create directory. Drive is not mounted.\n");
    EXPECT_FALSE(fs::exists("/mnt/" + disk));
    EXPECT_FALSE(fs::exists("/media/" + user));
}

TEST(TLFileManagerTest, CompressFileKeepsTheFolderAsTheTopEntryWhenAsked)
{
    const test::TemporaryFolder folder;
    test::writeFile(folder.file("Logs/a.log"), "alpha");
    test::writeFile(folder.file("Logs/sub/b.log"), std::string(200000, 'b'));
    fs::create_symlink("a.log", folder.file("Logs/link"));
    const std::string zip = folder.file("Logs/Logs.zip"); // inside what it compresses
    ASSERT_TRUE(TLFileManager::compressFile(folder.file("Logs"), zip));
    const std::map<std::string, std::string> expected = {
        {"Logs/", ""}, {"Logs/a.log", "alpha"}, {"Logs/link", "-> a.log"},
        {"Logs/sub/", ""}, {"Logs/sub/b.log", std::string(200000, 'b')}};
    EXPECT_EQ(zipEntries(zip), expected);
    if (fs::exists("/usr/bin/unzip")) {
        const std::string listing = commandOutput("/usr/bin/unzip -l '" + zip + "' 2>&1");
        EXPECT_NE(listing.find("Logs/sub/b.log"), std::string::npos) << listing;
        EXPECT_EQ(listing.find("warning"), std::string::npos) << listing;
    }

    // Again without the parent: the old archive goes to the Trash first.
    ASSERT_TRUE(TLFileManager::compressFile(folder.file("Logs"), zip, false));
    EXPECT_EQ(zipEntries(zip).count("a.log"), 1u);
    EXPECT_EQ(zipEntries(zip).count("Logs.zip"), 0u);
    EXPECT_EQ(zipEntries(trashRoot() / "files" / "Logs.zip").count("Logs/a.log"), 1u);

    ASSERT_TRUE(TLFileManager::compressFile(folder.file("Logs/a.log"), folder.file("one.zip"), false));
    EXPECT_EQ(zipEntries(folder.file("one.zip")), (std::map<std::string, std::string>{{"a.log", "alpha"}}));
}

TEST(TLFileManagerTest, CompressFileFailsWithoutLeavingAnArchive)
{
    const test::TemporaryFolder folder;
    test::writeFile(folder.file("Logs/a.log"), "alpha");
    const std::string log = logOf([&] {
        EXPECT_FALSE(TLFileManager::compressFile(folder.file("missing"), folder.file("m.zip")));
        EXPECT_FALSE(TLFileManager::compressFile(folder.file("Logs"), folder.file("no/such/folder/l.zip")));
    });
    EXPECT_NE(log.find(" - Unable to compress " + folder.file("missing") + ": "), std::string::npos) << log;
    EXPECT_NE(log.find(" - Unable to compress " + folder.file("Logs") + ": "), std::string::npos) << log;
    EXPECT_FALSE(fs::exists(folder.file("m.zip")));
    EXPECT_FALSE(fs::exists(folder.file("no")));
}

TEST(TLFileManagerTest, UnlockFileClearsTheImmutableFlagSoTheFileCanGo)
{
    const test::TemporaryFolder folder;
    const std::string log = logOf([&] { TLFileManager::unlockFile(folder.file("missing")); });
    EXPECT_EQ(log.find("Unable to unlock"), std::string::npos) << log;
#if defined(__linux__) && defined(FS_IOC_SETFLAGS)
    const std::string locked = folder.file("locked.xml");
    test::writeFile(locked, "x");
    const int descriptor = ::open(locked.c_str(), O_RDONLY);
    int flags = 0;
    bool canLock = ::ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0;
    flags |= FS_IMMUTABLE_FL;
    canLock = canLock && ::ioctl(descriptor, FS_IOC_SETFLAGS, &flags) == 0;
    if (!canLock) {
        ::close(descriptor);
        GTEST_SKIP() << "this file system or user cannot lock files";
    }
    EXPECT_TRUE(TLFileManager::removeFile(locked));
    EXPECT_FALSE(fs::exists(locked));
    // Should the removal have failed, the folder must still be deletable.
    flags &= ~FS_IMMUTABLE_FL;
    ::ioctl(descriptor, FS_IOC_SETFLAGS, &flags);
    ::close(descriptor);
#endif
}

TEST(TLFileManagerTest, WaitsAndExistenceGoToTheFileSystem)
{
    const test::TemporaryFolder folder;
    const std::string log = logOf([&] {
        TLFileManager::waitForFileCreation(folder.file("never.xml"), 10);
        test::writeFile(folder.file("old.xml"), "x");
        fs::last_write_time(folder.file("old.xml"), fs::file_time_type::clock::now() - std::chrono::minutes(1));
        TLFileManager::waitForFileWrites(folder.file("old.xml"));
        test::writeFile(folder.file("old.lock"), "");
        TLFileManager::waitForFileWrites(folder.file("old.xml"), folder.file("old.lock"));
    });
    EXPECT_NE(log.find(" - File " + folder.file("never.xml") + " is not yet created. Waiting...\n"),
              std::string::npos)
        << log;
    EXPECT_EQ(log.find("being written"), log.rfind("being written")) << "only the wait with a lock file: " << log;
    EXPECT_NE(log.find(" - File " + folder.file("old.xml") + " finished writing.\n"), std::string::npos) << log;

    fs::create_symlink(folder.file("nowhere"), folder.file("dangling"));
    EXPECT_TRUE(TLFileManager::fileExistsAtPath(folder.file("dangling")));
    EXPECT_TRUE(TLFileManager::fileExistsAtPath(folder.file("old.xml")));
    EXPECT_FALSE(TLFileManager::fileExistsAtPath(folder.file("nowhere")));
    EXPECT_FALSE(TLFileManager::fileExistsAtPath(""));
}
