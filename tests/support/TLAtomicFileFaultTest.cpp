// Atomic replacement when the target's folder goes away while the new
// contents are still being written.
#include "TLAtomicFile.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

TEST(TLAtomicFileFaultTest, AFolderMovedOrRemovedMidWriteKeepsTheOldFileAndSaysWhy)
{
    namespace fs = std::filesystem;
    test::TemporaryFolder folder;
    const fs::path projectFolder = folder.path() / "Project";
    const fs::path moved = folder.path() / "Moved";
    const std::string chunk(256 * 1024, 'n');

    for (const bool removeOutright : {false, true}) {
        fs::create_directory(projectFolder);
        const std::string path = (projectFolder / "Project.xml").string();
        test::writeFile(path, "old contents");
        const std::string reason = TLAtomicFile::writeWith(path, [&](const TLAtomicFile::Sink &sink) {
            bool written = sink(chunk);
            if (removeOutright)
                fs::remove_all(projectFolder);
            else
                fs::rename(projectFolder, moved);
            for (int piece = 0; piece < 8; ++piece)
                written = sink(chunk) && written;
            return written;
        });
        EXPECT_NE(reason.find("No such file or directory"), std::string::npos) << reason;
        EXPECT_NE(reason.find(path), std::string::npos) << reason;
        EXPECT_FALSE(fs::exists(projectFolder)) << "the write made the folder again";
    }
    // The file that moved with its folder is the old one, whole.
    EXPECT_EQ(test::readFile(moved / "Project.xml"), "old contents");
}
