#include "TLWorkspace.h"

#include "FakeWorkspace.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

namespace fs = std::filesystem;

namespace {

// Puts `folder` alone on PATH while it lives.
class PathOverride
{
public:
    explicit PathOverride(const std::string &folder)
    {
        if (const char *path = std::getenv("PATH"))
            m_saved = path;
        ::setenv("PATH", folder.c_str(), 1);
    }
    ~PathOverride() { ::setenv("PATH", m_saved.c_str(), 1); }

private:
    std::string m_saved;
};

// An executable script at `path` that appends its arguments to `record` and
// exits with `status`.
void writeRecordingProgram(const std::string &path, const std::string &record, int status)
{
    // Appended through a copy renamed into place, so the record never
    // exists half written.
    test::writeFile(path, "#!/bin/sh\n{ /bin/cat '" + record + "' 2>/dev/null; echo \"$@\"; } > '" + record +
                              ".new'\n/bin/mv '" + record + ".new' '" + record + "'\nexit " + std::to_string(status) + "\n");
    fs::permissions(path, fs::perms::owner_all);
}

// The record's text once it exists (programs started without waiting).
std::string waitForRecord(const std::string &record)
{
    for (int attempt = 0; attempt < 500 && !fs::exists(record); ++attempt)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return fs::exists(record) ? test::readFile(record) : std::string();
}

} // namespace

TEST(TLWorkspaceTest, DesktopOpensFilesAndAddressesThroughXdgOpen)
{
    const test::TemporaryFolder folder;
    const std::string record = folder.file("record.txt");
    writeRecordingProgram(folder.file("xdg-open"), record, 0);
    const std::shared_ptr<TLWorkspace> workspace = TLWorkspace::desktop();
    {
        const PathOverride path(folder.path().string());
        EXPECT_TRUE(workspace->openFile("/tmp/Project Bins.xml"));
        EXPECT_TRUE(workspace->openURL("https://example.com/support"));
        EXPECT_FALSE(workspace->openFile(""));
        EXPECT_FALSE(workspace->openURL(""));
    }
    EXPECT_EQ(test::readFile(record), "/tmp/Project Bins.xml\nhttps://example.com/support\n");

    // A failing or missing opener is a failure.
    writeRecordingProgram(folder.file("xdg-open"), record, 4);
    const PathOverride failing(folder.path().string());
    EXPECT_FALSE(workspace->openFile("/tmp/a.xml"));
    fs::remove(folder.file("xdg-open"));
    EXPECT_FALSE(workspace->openURL("https://example.com"));
}

TEST(TLWorkspaceTest, DesktopLaunchesProgramFilesAndFindsNoRunningApplications)
{
    const test::TemporaryFolder folder;
    const std::string record = folder.file("record.txt");
    const std::string program = folder.file("editor");
    writeRecordingProgram(program, record, 0);
    const std::shared_ptr<TLWorkspace> workspace = TLWorkspace::desktop();

    EXPECT_TRUE(workspace->openFile("/tmp/x.xml", program));
    EXPECT_EQ(waitForRecord(record), "/tmp/x.xml\n");
    EXPECT_FALSE(workspace->openFile("", program));
    EXPECT_FALSE(workspace->launchApplication(folder.file("missing"), {}));
    fs::create_directory(folder.file("Editor.app"));
    EXPECT_FALSE(workspace->launchApplication(folder.file("Editor.app"), {}));

    EXPECT_EQ(workspace->executablePath(program), program);
    EXPECT_EQ(workspace->executablePath(folder.file("Editor.app")), std::nullopt);
    EXPECT_TRUE(workspace->runningApplicationsWithBundleIdentifier("com.apple.FinalCutPro").empty());
}

TEST(TLWorkspaceTest, SharedWorkspaceCanBeReplacedAndRestored)
{
    auto fake = std::make_shared<test::FakeWorkspace>();
    fake->running.push_back({"com.apple.FinalCutPro", 42, "/Applications/Final Cut Pro.app"});
    TLWorkspace::setShared(fake);
    EXPECT_EQ(TLWorkspace::shared(), fake);
    EXPECT_EQ(TLWorkspace::shared()->runningApplicationsWithBundleIdentifier("com.apple.FinalCutPro").size(), 1u);
    EXPECT_TRUE(TLWorkspace::shared()->openURL("https://example.com"));
    ASSERT_EQ(fake->requests().size(), 1u);
    EXPECT_EQ(fake->requests()[0].kind, "openURL");

    TLWorkspace::setShared(nullptr);
    EXPECT_NE(TLWorkspace::shared(), nullptr);
    EXPECT_NE(TLWorkspace::shared(), fake);
}
