#include "TLAuthorization.h"

#include "TLFileManager.h"
#include "TLLocalPaths.h"
#include "TLTrash.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

// Records every command instead of running it, so nothing is elevated.
class RecordingRunner : public TLAuthorization::CommandRunner
{
public:
    bool promptAvailable = true;
    bool grant = true;
    int status = 0;
    int prompts = 0;
    std::vector<std::string> commands;

    bool isPromptAvailable() override { return promptAvailable; }
    bool requestRight() override
    {
        ++prompts;
        return grant;
    }
    bool requestRight(const std::string &username, const std::string &password) override
    {
        return username == "admin" && password == "secret";
    }
    void runDirectly(const std::string &tool, const std::vector<std::string> &arguments, bool wait) override
    {
        record(wait ? "direct-wait" : "direct", tool, arguments);
    }
    int runPrivileged(const std::string &tool, const std::vector<std::string> &arguments, bool wait) override
    {
        record(wait ? "privileged-wait" : "privileged", tool, arguments);
        return status;
    }

private:
    void record(const std::string &how, const std::string &tool, const std::vector<std::string> &arguments)
    {
        std::string line = how + ": " + tool;
        for (const std::string &argument : arguments)
            line += " " + argument;
        commands.push_back(line);
    }
};

// `text` matched literally inside a regular expression.
std::string literal(const std::string &text)
{
    return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

// Runs the test body as the given user id, whoever really runs it.
class UserIdOverride
{
public:
    explicit UserIdOverride(unsigned uid) { TLLocalPaths::overrideUserId(uid); }
    ~UserIdOverride() { TLLocalPaths::overrideUserId(std::nullopt); }
};

} // namespace

TEST(TLAuthorizationTest, SharedControllerIsOneInstanceThatUsesTheConfiguredRunner)
{
    auto runner = std::make_shared<RecordingRunner>();
    TLAuthorization::setCommandRunner(runner);
    TLAuthorization &shared = TLAuthorization::sharedController();
    EXPECT_EQ(&shared, &TLAuthorization::sharedController(false));
    const UserIdOverride user(1000);
    const test::TemporaryFolder folder;
    EXPECT_TRUE(shared.authCreateDir(folder.file("made")));
    EXPECT_EQ(runner->commands.back(), "privileged: /bin/mkdir -p " + folder.file("made"));
    shared.authEnd();
    TLAuthorization::setCommandRunner(nullptr);
}

TEST(TLAuthorizationTest, PromptsOnceAndRefusesWithoutAPrompt)
{
    const UserIdOverride user(1000);
    auto runner = std::make_shared<RecordingRunner>();
    TLAuthorization withGUI(true, runner);
    EXPECT_TRUE(withGUI.userDirectory().has_value());
    EXPECT_TRUE(withGUI.canAuthorize());
    EXPECT_FALSE(withGUI.isAuthorized());
    EXPECT_EQ(withGUI.authExecTask("/bin/rm", {"-Rdf", "/nowhere"}, false), 0);
    EXPECT_EQ(withGUI.authExecTask("/bin/rm", {"x"}), 0);
    EXPECT_EQ(runner->prompts, 1);
    EXPECT_EQ(runner->commands,
              (std::vector<std::string>{"privileged-wait: /bin/rm -Rdf /nowhere", "privileged: /bin/rm x"}));
    EXPECT_EQ(withGUI.authExecTask("/missing/tool", {}), -2);
    withGUI.authEnd();
    EXPECT_FALSE(withGUI.isAuthorized());

    runner->grant = false;
    EXPECT_EQ(withGUI.authExecTask("/bin/rm", {"x"}), -1);
    runner->status = 126;
    runner->grant = true;
    EXPECT_EQ(withGUI.authExecTask("/bin/rm", {"x"}), 126);
    EXPECT_FALSE(withGUI.authRemoveFile("/tmp/x"));

    // Without a GUI, or without a prompt to show, nothing is asked.
    TLAuthorization withoutGUI(false, runner);
    EXPECT_FALSE(withoutGUI.canAuthorize());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(withoutGUI.authStart());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unable to authorize\n");
    runner->promptAvailable = false;
    TLAuthorization noPrompt(true, runner);
    EXPECT_EQ(noPrompt.authExecTask("/bin/rm", {"x"}), -1);
    EXPECT_EQ(runner->prompts, 3);

    EXPECT_FALSE(noPrompt.authStartWithUser("admin", "wrong"));
    EXPECT_TRUE(noPrompt.authStartWithUser("admin", "secret"));
    EXPECT_TRUE(noPrompt.isAuthorized());
}

TEST(TLAuthorizationTest, RootRunsTheToolsItselfWithoutAsking)
{
    const UserIdOverride user(0);
    auto runner = std::make_shared<RecordingRunner>();
    runner->promptAvailable = false;
    TLAuthorization root(false, runner);
    EXPECT_FALSE(root.userDirectory().has_value());
    EXPECT_TRUE(root.isAuthorized());
    EXPECT_TRUE(root.canAuthorize());
    const test::TemporaryFolder folder;
    test::writeFile(folder.file("a b"), "x");
    EXPECT_TRUE(root.authMoveFile(folder.file("a b"), folder.file("c")));
    EXPECT_TRUE(root.authCopyFile(folder.file("a b"), folder.file("d")));
    EXPECT_TRUE(root.authCreateDir(folder.file("e")));
    EXPECT_TRUE(root.authRemoveFile(folder.file("a b")));
    EXPECT_EQ(root.authExecTask("/bin/rm", {"y"}, false), 0);
    EXPECT_EQ(runner->prompts, 0);
    EXPECT_EQ(runner->commands, (std::vector<std::string>{
                                    "direct: /bin/mv -f " + folder.file("a b") + " " + folder.file("c"),
                                    "direct: /bin/cp -f -p -R " + folder.file("a b") + " " + folder.file("d"),
                                    "direct: /bin/mkdir -p " + folder.file("e"),
                                    "direct: /bin/rm -Rdf " + folder.file("a b"),
                                    "direct-wait: /bin/rm y",
                                }));

    // With the flag, root removes the Trash path outright: the computed
    // destination, not the item.
    runner->commands.clear();
    EXPECT_TRUE(root.authTrashFile(folder.file("a b"), true));
    EXPECT_EQ(runner->commands,
              (std::vector<std::string>{"direct: /bin/rm -Rdf " + TLLocalPaths::trashDirectory() + "/a b"}));
    runner->commands.clear();
    EXPECT_TRUE(root.authTrashFolderContents(folder.path().string(), true));
    EXPECT_EQ(runner->commands, (std::vector<std::string>{"direct: /bin/rm -R -f " + folder.file("a b")}));
}

TEST(TLAuthorizationTest, SystemFoldersAndAbsentPathsAreRefused)
{
    const UserIdOverride user(1000);
    auto runner = std::make_shared<RecordingRunner>();
    TLAuthorization rights(true, runner);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(rights.authRemoveFile("/usr"));
    EXPECT_FALSE(rights.authTrashFile("/bin"));
    EXPECT_FALSE(rights.authMoveFile(std::string("/sbin"), std::string("/tmp/x")));
    EXPECT_FALSE(rights.authTrashFolderContents("/var"));
    EXPECT_FALSE(rights.authMoveFolderContents("/usr", "/tmp"));
    EXPECT_FALSE(rights.authMoveFile(std::nullopt, std::string("/tmp/x")));
    EXPECT_FALSE(rights.authMoveFile(std::string("/tmp/x"), std::nullopt));
    EXPECT_FALSE(rights.authCopyFile(std::nullopt, std::string("/tmp/x")));
    EXPECT_FALSE(rights.authCopyFile(std::string("/tmp/x"), std::nullopt));
    EXPECT_FALSE(rights.authMoveFile(std::string("/no/such/item"), std::string("/tmp/x")));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Unable to delete path /usr because it is a system directory.\n"
              "Unable to trash path /bin because it is a system directory.\n"
              "Unable to move path /sbin because it is a system directory.\n"
              "Unable to trash folder contents of path /var because it is a system directory.\n"
              "Unable to move contents of path /usr because it is a system directory.\n"
              "Error in authMoveFile: old path is null\n"
              "Error in authMoveFile: new path is null\n"
              "Error in authCopyFile: old path is null\n"
              "Error in authCopyFile: new path is null\n");
    EXPECT_TRUE(runner->commands.empty());

    // Only the folder itself is protected, not what lies below it.
    EXPECT_TRUE(rights.authRemoveFile("/usr/share/x"));
    EXPECT_EQ(runner->commands, (std::vector<std::string>{"privileged: /bin/rm -Rdf /usr/share/x"}));
}

TEST(TLAuthorizationTest, TrashingMovesIntoTheTrashWithATimeStampWhenTheNameIsTaken)
{
    const UserIdOverride user(1000);
    auto runner = std::make_shared<RecordingRunner>();
    TLAuthorization rights(true, runner);
    const test::TemporaryFolder folder;
    const std::string trash = TLLocalPaths::trashDirectory();
    test::writeFile(folder.file("Auth Bins.xml"), "x");
    test::writeFile(folder.file("Auth Reels"), "x");
    EXPECT_TRUE(rights.authTrashFile(folder.file("Auth Bins.xml")));
    EXPECT_EQ(runner->commands.back(), "privileged: /bin/mv -f " + folder.file("Auth Bins.xml") + " " + trash + "/Auth Bins.xml");

    test::writeFile(trash + "/Auth Bins.xml", "taken");
    test::writeFile(trash + "/Auth Reels", "taken");
    runner->commands.clear();
    EXPECT_TRUE(rights.authTrashFolderContents(folder.path().string()));
    ASSERT_EQ(runner->commands.size(), 2u);
    const std::string prefix = "privileged: /bin/mv -f ";
    EXPECT_TRUE(std::regex_match(runner->commands[0], std::regex(literal(prefix + folder.file("Auth Bins.xml") + " " + trash) +
                                                                 "/Auth Bins_\\d{14}\\.xml")))
        << runner->commands[0];
    EXPECT_TRUE(std::regex_match(runner->commands[1],
                                 std::regex(literal(prefix + folder.file("Auth Reels") + " " + trash) + "/Auth Reels_\\d{14}\\.")))
        << runner->commands[1];

    runner->commands.clear();
    const test::TemporaryFolder empty;
    EXPECT_TRUE(rights.authMoveFolderContents(empty.path().string(), "/tmp"));
    EXPECT_TRUE(rights.authMoveFolderContents(folder.path().string(), folder.file("sub")));
    EXPECT_EQ(runner->commands.size(), 2u);
    EXPECT_EQ(runner->commands[0], prefix + folder.file("Auth Bins.xml") + " " + folder.file("sub") + "/Auth Bins.xml");
    runner->status = 1;
    EXPECT_FALSE(rights.authTrashFolderContents(folder.path().string()));
}

TEST(TLAuthorizationTest, TrashingWithRightsWritesARecordUnderACollisionFreeName)
{
    const UserIdOverride user(1000);
    auto runner = std::make_shared<RecordingRunner>();
    TLAuthorization rights(true, runner);
    const test::TemporaryFolder folder;
    const std::string item = folder.file("Record Me%.txt");
    test::writeFile(item, "x");
    const std::string info = TLTrash::folder() + "/info/";
    const std::string prefix = "privileged: /bin/mv -f " + item + " " + TLLocalPaths::trashDirectory() + "/";

    std::vector<std::string> names;
    for (int copy = 0; copy < 3; ++copy) {
        ASSERT_TRUE(rights.authTrashFile(item));
        const std::string &command = runner->commands.back();
        ASSERT_EQ(command.rfind(prefix, 0), 0u) << command;
        names.push_back(command.substr(prefix.size()));
    }
    EXPECT_EQ(names[0], "Record Me%.txt");
    EXPECT_TRUE(std::regex_match(names[1], std::regex(R"(Record Me%_\d{14}\.txt)"))) << names[1];
    EXPECT_TRUE(std::regex_match(names[2], std::regex(R"(Record Me%_\d{14}( 2)?\.txt)"))) << names[2];
    EXPECT_NE(names[1], names[2]) << "the same second must not give the same name twice";
    for (const std::string &name : names) {
        const std::string record = test::readFile(info + name + ".trashinfo");
        EXPECT_TRUE(std::regex_match(record, std::regex(literal("[Trash Info]\nPath=" + folder.path().string() +
                                                                "/Record%20Me%25.txt\nDeletionDate=") +
                                                        R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\n)")))
            << record;
    }

    // A path ending in ".." names the folder above: it is never moved into
    // the Trash under that name.
    runner->commands.clear();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(rights.authTrashFile(folder.file("sub/..")));
    const std::string console = testing::internal::GetCapturedStderr();
    EXPECT_EQ(console.rfind("Unable to trash path " + folder.file("sub/..") + ": ", 0), 0u) << console;
    EXPECT_TRUE(runner->commands.empty());

    // A move that cannot be started takes its record back with it.
    runner->status = 1;
    const auto recordCount = [&] {
        return std::distance(fs::directory_iterator(info), fs::directory_iterator());
    };
    const auto before = recordCount();
    EXPECT_FALSE(rights.authTrashFile(item));
    EXPECT_EQ(recordCount(), before);
}

TEST(TLAuthorizationTest, FileManagerRetriesARefusedRemovalWithRightsUnlessRootOrTold)
{
    auto runner = std::make_shared<RecordingRunner>();
    TLAuthorization::setCommandRunner(runner);
    // The kernel's process files refuse removal to everyone, root included.
    const std::string refused = "/proc/self/status";
    {
        const UserIdOverride user(1000);
        EXPECT_FALSE(TLFileManager::removeFile(refused, false));
        EXPECT_TRUE(runner->commands.empty());
        EXPECT_TRUE(TLFileManager::removeFile(refused));
        EXPECT_EQ(runner->commands, (std::vector<std::string>{"privileged: /bin/rm -Rdf " + refused}));
    }
    runner->commands.clear();
    const UserIdOverride root(0);
    EXPECT_FALSE(TLFileManager::removeFile(refused));
    EXPECT_TRUE(runner->commands.empty());
    TLAuthorization::sharedController().authEnd();
    TLAuthorization::setCommandRunner(nullptr);
}
