#include "TLAuthorization.h"

#include "TLFileManager.h"
#include "TLLocalPaths.h"
#include "TLPrivilegedCommand.h"
#include "TLTrash.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <unistd.h>
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
    int runDirectly(const std::string &tool, const std::vector<std::string> &arguments) override
    {
        record("direct", tool, arguments);
        return status;
    }
    int runPrivileged(const std::string &tool, const std::vector<std::string> &arguments) override
    {
        record("privileged", tool, arguments);
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

// Runs the test body in `folder`, so that relative paths resolve there.
class WorkingFolder
{
public:
    explicit WorkingFolder(const fs::path &folder) : m_old(fs::current_path()) { fs::current_path(folder); }
    ~WorkingFolder() { fs::current_path(m_old); }

private:
    fs::path m_old;
};

// A graphical session, as far as the runner can tell: the prompt is offered.
class GraphicalSession
{
public:
    GraphicalSession() { setenv("DISPLAY", ":99", 1); }
    ~GraphicalSession() { unsetenv("DISPLAY"); }
};

// A stand-in for pkexec that notes each start in `log` and then does `then`.
std::string standInPkexec(const test::TemporaryFolder &folder, const std::string &name, const std::string &log,
                          const std::string &then)
{
    const std::string path = folder.file(name);
    test::writeFile(path, "#!/bin/sh\necho \"$@\" >> '" + log + "'\n" + then + "\n");
    fs::permissions(path, fs::perms::owner_all);
    return path;
}

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
    EXPECT_EQ(runner->commands.back(), "privileged: /bin/mkdir -p -- " + folder.file("made"));
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
    EXPECT_EQ(withGUI.authExecTask("/bin/rm", {"-Rdf", "/nowhere"}), 0);
    EXPECT_EQ(withGUI.authExecTask("/bin/rm", {"x"}), 0);
    EXPECT_EQ(runner->prompts, 1);
    EXPECT_EQ(runner->commands,
              (std::vector<std::string>{"privileged: /bin/rm -Rdf /nowhere", "privileged: /bin/rm x"}));
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
    EXPECT_EQ(root.authExecTask("/bin/rm", {"y"}), 0);
    EXPECT_EQ(runner->prompts, 0);
    EXPECT_EQ(runner->commands, (std::vector<std::string>{
                                    "direct: /bin/mv -f -- " + folder.file("a b") + " " + folder.file("c"),
                                    "direct: /bin/cp -f -p -R -- " + folder.file("a b") + " " + folder.file("d"),
                                    "direct: /bin/mkdir -p -- " + folder.file("e"),
                                    "direct: /bin/rm -Rdf -- " + folder.file("a b"),
                                    "direct: /bin/rm y",
                                }));
    // Root's tools are waited for too: a failing one fails the operation.
    runner->status = 1;
    EXPECT_FALSE(root.authCreateDir(folder.file("e")));
    runner->status = 0;

    // With the flag, root removes the Trash path outright: the computed
    // destination, not the item.
    runner->commands.clear();
    EXPECT_TRUE(root.authTrashFile(folder.file("a b"), true));
    EXPECT_EQ(runner->commands,
              (std::vector<std::string>{"direct: /bin/rm -Rdf -- " + TLLocalPaths::trashDirectory() + "/a b"}));
    runner->commands.clear();
    EXPECT_TRUE(root.authTrashFolderContents(folder.path().string(), true));
    EXPECT_EQ(runner->commands, (std::vector<std::string>{"direct: /bin/rm -R -f -- " + folder.file("a b")}));
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
    EXPECT_EQ(runner->commands, (std::vector<std::string>{"privileged: /bin/rm -Rdf -- /usr/share/x"}));
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
    EXPECT_EQ(runner->commands.back(), "privileged: /bin/mv -f -- " + folder.file("Auth Bins.xml") + " " + trash + "/Auth Bins.xml");

    test::writeFile(trash + "/Auth Bins.xml", "taken");
    test::writeFile(trash + "/Auth Reels", "taken");
    runner->commands.clear();
    EXPECT_TRUE(rights.authTrashFolderContents(folder.path().string()));
    ASSERT_EQ(runner->commands.size(), 2u);
    const std::string prefix = "privileged: /bin/mv -f -- ";
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
    const std::string prefix = "privileged: /bin/mv -f -- " + item + " " + TLLocalPaths::trashDirectory() + "/";

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
        EXPECT_EQ(runner->commands, (std::vector<std::string>{"privileged: /bin/rm -Rdf -- " + refused}));
    }
    runner->commands.clear();
    const UserIdOverride root(0);
    EXPECT_FALSE(TLFileManager::removeFile(refused));
    EXPECT_TRUE(runner->commands.empty());
    TLAuthorization::sharedController().authEnd();
    TLAuthorization::setCommandRunner(nullptr);
}

TEST(TLAuthorizationTest, PathsReachTheToolsAbsoluteAndAfterTheEndOfOptions)
{
    const UserIdOverride user(1000);
    auto runner = std::make_shared<RecordingRunner>();
    TLAuthorization rights(true, runner);
    const test::TemporaryFolder folder;
    const std::string here = folder.path().string();
    const std::string above = folder.path().parent_path().string();
    test::writeFile(folder.file("-rf"), "x");
    test::writeFile(folder.file("-f"), "x");
    const WorkingFolder working(folder.path());

    struct Case {
        std::function<bool()> operation;
        std::string command; // "" when the operation is refused before any tool runs
    };
    const Case cases[] = {
        {[&] { return rights.authRemoveFile("-rf"); }, "/bin/rm -Rdf -- " + here + "/-rf"},
        {[&] { return rights.authCreateDir("sub/../made/"); }, "/bin/mkdir -p -- " + here + "/made"},
        {[&] { return rights.authMoveFile(std::string("-f"), std::string("./-rf")); },
         "/bin/mv -f -- " + here + "/-f " + here + "/-rf"},
        {[&] { return rights.authCopyFile(std::string("./-f"), std::string("../x")); },
         "/bin/cp -f -p -R -- " + here + "/-f " + above + "/x"},
        {[&] { return rights.authTrashFolderContents("/usr/share/.."); }, ""},
        {[&] { return rights.authRemoveFile("/usr/"); }, ""},
        {[&] { return rights.authMoveFile(std::string("/etc//"), std::string("x")); }, ""},
    };
    testing::internal::CaptureStderr();
    for (const Case &each : cases) {
        runner->commands.clear();
        EXPECT_EQ(each.operation(), !each.command.empty()) << each.command;
        const std::vector<std::string> expected =
            each.command.empty() ? std::vector<std::string>{} : std::vector<std::string>{"privileged: " + each.command};
        EXPECT_EQ(runner->commands, expected);
    }
    testing::internal::GetCapturedStderr();
}

TEST(TLAuthorizationTest, TheSystemRunnerAsksOnceThroughPkexecAndReportsEveryFailure)
{
    const UserIdOverride user(1000);
    const GraphicalSession session;
    const test::TemporaryFolder folder;
    const std::string helper = CORVALE_PRIVILEGED_HELPER_BUILT;
    const std::string log = folder.file("pkexec.log");
    const std::string granting = standInPkexec(folder, "pkexec", log, "exec \"$@\"");
    const std::string refusing = standInPkexec(folder, "pkexec-refusing", log, "exit 126");

    TLAuthorization rights(true, TLAuthorization::systemCommandRunner(granting, helper));
    const std::string made = folder.file("-rf");
    test::writeFile(folder.file("a"), "x");
    EXPECT_TRUE(rights.authCreateDir(made));
    EXPECT_TRUE(fs::is_directory(made));
    EXPECT_TRUE(rights.authCopyFile(folder.file("a"), made + "/b"));
    EXPECT_TRUE(rights.authMoveFile(made + "/b", folder.file("c")));
    EXPECT_TRUE(rights.authRemoveFile(made));
    EXPECT_FALSE(fs::exists(made));
    EXPECT_EQ(test::readFile(folder.file("c")), "x");

    // Failing tools fail the operation.
    EXPECT_FALSE(rights.authCreateDir(folder.file("a/sub")));
    EXPECT_FALSE(rights.authMoveFile(folder.file("c"), folder.file("missing/c")));

    // The helper runs nothing but the program's own commands.
    const std::vector<std::pair<std::string, std::vector<std::string>>> foreign{
        {"/bin/rm", {"-rf", folder.file("c")}},
        {"/bin/rm", {"-Rdf", folder.file("c")}},
        {"/bin/rm", {"-Rdf", "--", "c"}},
        {"/bin/rm", {"-Rdf", "--", folder.file("x/../c")}},
        {"/bin/rm", {"-Rdf", "--", "/"}},
        {"/bin/mv", {"-f", "--", folder.file("c")}},
        {"/bin/sh", {"-c", "rm " + folder.file("c")}},
    };
    for (const auto &[tool, arguments] : foreign)
        EXPECT_EQ(rights.authExecTask(tool, arguments), TLPrivilegedCommand::refusedStatus) << arguments.front();
    EXPECT_TRUE(fs::exists(folder.file("c")));
    EXPECT_EQ(test::readFile(log), helper + "\n") << "one prompt for the whole session";

    // A dismissed prompt fails the operation and does nothing.
    TLAuthorization refused(true, TLAuthorization::systemCommandRunner(refusing, helper));
    EXPECT_FALSE(refused.authCreateDir(folder.file("never")));
    EXPECT_FALSE(refused.isAuthorized());
    EXPECT_FALSE(fs::exists(folder.file("never")));
}
