// Standard folders on Linux, the root correction and the path-string helpers.
#include "TLLocalPaths.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <regex>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// Sets an environment variable for one test and puts the old value back.
class ScopedEnvironment
{
public:
    ScopedEnvironment(const char *name, const char *value) : m_name(name)
    {
        if (const char *old = std::getenv(name))
            m_old = old;
        value ? setenv(name, value, 1) : unsetenv(name);
    }
    ~ScopedEnvironment() { m_old ? setenv(m_name, m_old->c_str(), 1) : unsetenv(m_name); }

private:
    const char *m_name;
    std::optional<std::string> m_old;
};

std::string environment(const char *name)
{
    return std::getenv(name);
}

} // namespace

TEST(TLLocalPathsTest, UserFoldersFollowTheXdgVariablesAndTheirDefaults)
{
    const std::string home = environment("HOME");
    EXPECT_EQ(TLLocalPaths::userDirectory(), home);
    EXPECT_EQ(TLLocalPaths::prefsDirectory(true), environment("XDG_CONFIG_HOME"));
    EXPECT_EQ(TLLocalPaths::appSupportDirectory(true), environment("XDG_DATA_HOME"));
    EXPECT_EQ(TLLocalPaths::cacheDirectory(true), environment("XDG_CACHE_HOME"));
    EXPECT_EQ(TLLocalPaths::libraryDirectory(true), environment("XDG_STATE_HOME"));
    EXPECT_EQ(TLLocalPaths::logDirectory(true), environment("XDG_STATE_HOME") + "/Logs");
    EXPECT_EQ(TLLocalPaths::trashDirectory(), environment("XDG_DATA_HOME") + "/Trash/files");
    EXPECT_EQ(TLLocalPaths::applicationDirectory(true), home + "/Applications");
    EXPECT_EQ(TLLocalPaths::adminApplicationDirectory(true), home + "/Applications/Utilities");

    {
        // Relative values are ignored as if unset; a trailing slash is dropped.
        const ScopedEnvironment config("XDG_CONFIG_HOME", "relative/config");
        const ScopedEnvironment cache("XDG_CACHE_HOME", nullptr);
        const ScopedEnvironment state("XDG_STATE_HOME", (home + "/state/").c_str());
        EXPECT_EQ(TLLocalPaths::prefsDirectory(true), home + "/.config");
        EXPECT_EQ(TLLocalPaths::cacheDirectory(true), home + "/.cache");
        EXPECT_EQ(TLLocalPaths::libraryDirectory(true), home + "/state");
    }
    const ScopedEnvironment temporary("TMPDIR", "/some/tmp/");
    EXPECT_EQ(TLLocalPaths::tempDirectory(), "/some/tmp");
    const ScopedEnvironment noTemporary("TMPDIR", nullptr);
    EXPECT_EQ(TLLocalPaths::tempDirectory(), "/tmp");
}

TEST(TLLocalPathsTest, DesktopDocumentsAndMoviesComeFromTheUserDirsFile)
{
    const std::string home = environment("HOME");
    const std::string file = environment("XDG_CONFIG_HOME") + "/user-dirs.dirs";
    EXPECT_EQ(TLLocalPaths::desktopDirectory(), home + "/Desktop");
    EXPECT_EQ(TLLocalPaths::documentDirectory(true), home + "/Documents");
    EXPECT_EQ(TLLocalPaths::movieDirectory(), home + "/Videos");

    test::writeFile(file, "# written by xdg-user-dirs-update\n"
                          "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n"
                          "  XDG_DOCUMENTS_DIR=\"/data/My \\\"Docs\\\"/\"\n"
                          "XDG_VIDEOS_DIR=\"$HOME/\"\n"
                          "XDG_DESKTOP_DIR=\"$HOME/Bureau\"\n");
    EXPECT_EQ(TLLocalPaths::desktopDirectory(), home + "/Bureau");
    EXPECT_EQ(TLLocalPaths::documentDirectory(true), "/data/My \"Docs\"");
    EXPECT_EQ(TLLocalPaths::movieDirectory(), home);

    // Damaged entries fall back: to the environment, then to the usual name.
    test::writeFile(file, "XDG_DESKTOP_DIR=$HOME/Unquoted\nXDG_DOCUMENTS_DIR=\"relative\"\n"
                          "XDG_VIDEOS_DIR=\"$HOME/open\n" + std::string(200000, '\xff'));
    const ScopedEnvironment desktop("XDG_DESKTOP_DIR", "/from/environment");
    EXPECT_EQ(TLLocalPaths::desktopDirectory(), "/from/environment");
    EXPECT_EQ(TLLocalPaths::documentDirectory(true), home + "/Documents");
    EXPECT_EQ(TLLocalPaths::movieDirectory(), home + "/Videos");
    std::filesystem::remove(file);
}

TEST(TLLocalPathsTest, MachineWideFoldersLieUnderTheLocalRoot)
{
    const std::string root = environment("CORVALE_LOCAL_ROOT");
    EXPECT_EQ(TLLocalPaths::applicationDirectory(false), root + "/opt");
    EXPECT_EQ(TLLocalPaths::adminApplicationDirectory(false), root + "/opt/Utilities");
    EXPECT_EQ(TLLocalPaths::libraryDirectory(false), root + "/var/lib");
    EXPECT_EQ(TLLocalPaths::logDirectory(false), root + "/var/lib/Logs");
    EXPECT_EQ(TLLocalPaths::prefsDirectory(false), root + "/etc/xdg");
    EXPECT_EQ(TLLocalPaths::cacheDirectory(false), root + "/var/cache");
    EXPECT_EQ(TLLocalPaths::appSupportDirectory(false), root + "/usr/local/share");
    EXPECT_EQ(TLLocalPaths::localDocumentationDirectory(), root + "/usr/local/share/doc");
    EXPECT_EQ(TLLocalPaths::systemLibraryDirectory(), root + "/usr/lib");
    EXPECT_EQ(TLLocalPaths::pathForDirectory(TLLocalPaths::Directory::desktop, TLLocalPaths::Domain::local),
              std::nullopt);
    EXPECT_EQ(TLLocalPaths::darwinCacheDirectory(), std::nullopt);

    const ScopedEnvironment unset("CORVALE_LOCAL_ROOT", nullptr);
    EXPECT_EQ(TLLocalPaths::libraryDirectory(false), "/var/lib");
}

TEST(TLLocalPathsTest, RootCorrectionKeepsItsOneCharacterShortCut)
{
    const std::string home = environment("HOME");
    EXPECT_EQ(TLLocalPaths::rootCorrectedPath("/var/root/Library"), home + "/Library");
    EXPECT_EQ(TLLocalPaths::rootCorrectedPath("/private/var/root/Library"), home + "/t/Library");
    EXPECT_EQ(TLLocalPaths::rootCorrectedPath("/var/root"), home);

    // As root the Linux folders are left alone; so they are for anyone else.
    for (const unsigned uid : {0u, 1000u}) {
        TLLocalPaths::overrideUserId(uid);
        EXPECT_EQ(TLLocalPaths::userId(), uid);
        EXPECT_EQ(TLLocalPaths::libraryDirectory(true), environment("XDG_STATE_HOME"));
        const ScopedEnvironment state("XDG_STATE_HOME", "/var/root/Library");
        EXPECT_EQ(TLLocalPaths::libraryDirectory(true), uid == 0 ? home + "/Library" : "/var/root/Library");
        EXPECT_EQ(TLLocalPaths::libraryDirectory(false), environment("CORVALE_LOCAL_ROOT") + "/var/lib");
    }
    TLLocalPaths::overrideUserId(std::nullopt);
}

TEST(TLLocalPathsTest, RandomNamesUuidsAndTemporaryFiles)
{
    EXPECT_EQ(TLLocalPaths::randomString(0), "");
    const auto random = TLLocalPaths::randomString(500);
    EXPECT_TRUE(std::regex_match(random, std::regex("[a-z0-9]{500}")));
    EXPECT_GT(std::set<char>(random.begin(), random.end()).size(), 20u);

    const std::regex uuidPattern("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");
    const auto first = TLLocalPaths::uuid();
    EXPECT_TRUE(std::regex_match(first, uuidPattern)) << first;
    EXPECT_NE(first, TLLocalPaths::uuid());

    const auto file = TLLocalPaths::tempFile();
    const std::string folder = TLLocalPaths::tempDirectory() + "/";
    ASSERT_EQ(file.rfind(folder, 0), 0u);
    EXPECT_TRUE(std::regex_match(file.substr(folder.size()),
                                 std::regex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}[a-z0-9]{8}")));
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_FALSE(TLLocalPaths::username().empty());
}

TEST(TLLocalPathsTest, TrailingSlashes)
{
    EXPECT_EQ(TLLocalPaths::ensureTrailingSlash(std::nullopt), std::nullopt);
    EXPECT_EQ(TLLocalPaths::ensureTrailingSlash(""), "");
    EXPECT_EQ(TLLocalPaths::ensureTrailingSlash("/a"), "/a/");
    EXPECT_EQ(TLLocalPaths::ensureTrailingSlash("/a/"), "/a/");
    EXPECT_EQ(TLLocalPaths::stripTrailingSlash(std::nullopt), std::nullopt);
    EXPECT_EQ(TLLocalPaths::stripTrailingSlash("/"), "/");
    EXPECT_EQ(TLLocalPaths::stripTrailingSlash("a"), "a");
    EXPECT_EQ(TLLocalPaths::stripTrailingSlash("/a/"), "/a");
    EXPECT_EQ(TLLocalPaths::stripTrailingSlash("/a//"), "/a/");
}

TEST(TLLocalPathsTest, SystemDirectories)
{
    EXPECT_TRUE(TLLocalPaths::isPathSystemDirectory("/"));
    EXPECT_FALSE(TLLocalPaths::isPathSystemDirectory("/a"));
    EXPECT_FALSE(TLLocalPaths::isPathSystemDirectory(""));
    EXPECT_FALSE(TLLocalPaths::isPathSystemDirectory(std::nullopt));
    EXPECT_FALSE(TLLocalPaths::isPathSystemDirectory("/usr/local/bin"));
    EXPECT_TRUE(TLLocalPaths::isPathSystemDirectory("/usr/lib"));
    EXPECT_FALSE(TLLocalPaths::isPathSystemDirectory("/usr/lib", true));
    EXPECT_TRUE(TLLocalPaths::isPathSystemDirectory("/usr", true));
    // A trailing slash costs two characters.
    EXPECT_FALSE(TLLocalPaths::isPathSystemDirectory("/usr/", true));
    EXPECT_TRUE(TLLocalPaths::isPathSystemDirectory("/System/Library/"));
    for (const char *path : {"/var/log/x", "/bin/sh", "/sbin/x", "/private/var/db", "/System/x"})
        EXPECT_TRUE(TLLocalPaths::isPathSystemDirectory(path)) << path;

    // The standard folders are protected as themselves, never their contents.
    const std::string home = TLLocalPaths::userDirectory();
    for (const auto &folder : {std::optional<std::string>(home), TLLocalPaths::desktopDirectory(),
                               TLLocalPaths::prefsDirectory(false), TLLocalPaths::appSupportDirectory(true),
                               TLLocalPaths::localDocumentationDirectory()}) {
        EXPECT_TRUE(TLLocalPaths::isPathSystemDirectory(folder, true)) << *folder;
        EXPECT_FALSE(TLLocalPaths::isPathSystemDirectory(*folder + "/Project")) << *folder;
    }
}

TEST(TLLocalPathsTest, LinuxSystemFoldersAreProtected)
{
    const struct {
        const char *path;
        bool exact;  // protected with exactMatch
        bool prefix; // protected without it
    } cases[] = {
        {"/etc", true, true},           {"/etc/passwd", false, true},    {"/boot", true, true},
        {"/boot/vmlinuz", false, true}, {"/lib", true, true},            {"/lib64", true, true},
        {"/lib32/x", false, true},      {"/libx32/x", false, true},      {"/proc", true, true},
        {"/proc/1", false, true},       {"/sys/kernel", false, true},    {"/dev/sda", false, true},
        {"/run", true, true},           {"/run/lock", false, true},      {"/snap/core", false, true},
        {"/root", true, true},          {"/srv", true, true},            {"/lost+found", true, true},
        {"/usr/local", true, true},     {"/opt", true, true},            {"/home", true, true},
        {"/home/ada", true, true},      {"/home/ada/Bins.xml", false, false},
        {"/tmp", true, true},           {"/tmp/Bins.xml", false, false}, {"/media", true, true},
        {"/media/ada", true, true},     {"/media/ada/Disk/x", false, false},
        {"/run/media/ada", true, true}, {"/run/media/ada/Disk/x", false, false},
        {"/run/user/1000/x", false, false},
        {"/mnt", true, true},           {"/mnt/Disk/x", false, false},   {"/srv/www/x", false, false},
        {"/etcetera", false, false},    {"/usr/local/bin", false, false},
    };
    for (const auto &each : cases) {
        EXPECT_EQ(TLLocalPaths::isPathSystemDirectory(std::string(each.path), true), each.exact) << each.path;
        EXPECT_EQ(TLLocalPaths::isPathSystemDirectory(std::string(each.path)), each.prefix) << each.path;
    }
}

TEST(TLLocalPathsTest, VolumesAndTimeMachineBackups)
{
    using Folders = std::vector<std::string>;
    const struct {
        const char *path;
        Folders mountPoints;
    } cases[] = {
        {"/Volumes/Disk/x", {"/Volumes/Disk"}},
        {"/Volumes/Disk", {"/Volumes/Disk"}},
        {"/mnt/Disk/a/b", {"/mnt/Disk"}},
        {"/media/ada/Disk/x", {"/media/ada", "/media/ada/Disk"}},
        {"/run/media/ada/Disk", {"/run/media/ada", "/run/media/ada/Disk"}},
        {"/media/ada/../bob/Disk/x", {"/media/bob", "/media/bob/Disk"}},
        {"/media/ada", {}},
        {"/run/media/ada", {}},
        {"/mnt", {}},
        {"/Volumes/", {}},
        {"mnt/Disk/x", {}},
        {"/home/ada/mnt/Disk", {}},
    };
    for (const auto &each : cases)
        EXPECT_EQ(TLLocalPaths::volumeMountPoints(each.path), each.mountPoints) << each.path;

    EXPECT_FALSE(TLLocalPaths::isPathOnTimeMachineVolume("/Backups.backupdb/x"));
    EXPECT_TRUE(TLLocalPaths::isPathOnTimeMachineVolume("/Volumes/Disk/Backups.backupdb/Mac"));
    EXPECT_TRUE(TLLocalPaths::isPathOnTimeMachineVolume("/Volumes/Disk/Backups.backupdb"));
    EXPECT_TRUE(TLLocalPaths::isPathOnTimeMachineVolume("/media/ada/Disk/Backups.backupdb/Mac"));
    EXPECT_FALSE(TLLocalPaths::isPathOnTimeMachineVolume("/home/ada/Backups.backupdb/Mac"));
    EXPECT_FALSE(TLLocalPaths::isPathOnTimeMachineVolume("/Volumes/Disk/Backups.backupdb2/Mac"));
    EXPECT_FALSE(TLLocalPaths::isPathOnTimeMachineVolume(std::nullopt));
}

TEST(TLLocalPathsTest, PrivateTemporaryFolderIsTheUsersAloneAndNeverAPlantedOne)
{
    const test::TemporaryFolder folder;
    const ScopedEnvironment noRuntime("XDG_RUNTIME_DIR", nullptr);
    const std::string fixedName = "corvale-" + std::to_string(geteuid());
    const auto isPrivate = [](const std::string &path) {
        struct stat status{};
        return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
               (status.st_mode & 07777) == 0700;
    };

    // What another user may leave at the fixed name before the program runs.
    const std::string elsewhere = folder.file("elsewhere");
    std::filesystem::create_directory(elsewhere);
    std::filesystem::permissions(elsewhere, std::filesystem::perms::owner_all);
    const struct {
        const char *what;
        std::function<void(const std::string &)> plant;
        bool usable;
    } cases[] = {
        {"nothing", [](const std::string &) {}, true},
        {"a private folder of the user's", [](const std::string &path) { mkdir(path.c_str(), 0700); }, true},
        {"a link to a private folder",
         [&](const std::string &path) { std::filesystem::create_directory_symlink(elsewhere, path); }, false},
        {"an open folder", [](const std::string &path) { mkdir(path.c_str(), 0777), chmod(path.c_str(), 0777); }, false},
        {"a file", [](const std::string &path) { test::writeFile(path, "x"); }, false},
        // As root the folder goes to nobody; as anyone else to root's "/".
        {"another user's folder",
         [&](const std::string &path) {
             if (geteuid() == 0) {
                 mkdir(path.c_str(), 0700);
                 (void)lchown(path.c_str(), 65534, 65534);
             } else {
                 std::filesystem::create_directory_symlink("/", path);
             }
         },
         false},
    };
    int round = 0;
    for (const auto &each : cases) {
        const std::string temporary = folder.file("tmp" + std::to_string(++round));
        std::filesystem::create_directory(temporary);
        const ScopedEnvironment tmpdir("TMPDIR", temporary.c_str());
        const std::string fixed = temporary + "/" + fixedName;
        each.plant(fixed);
        const std::optional<std::string> made = TLLocalPaths::privateTemporaryDirectory();
        ASSERT_TRUE(made.has_value()) << each.what;
        EXPECT_TRUE(isPrivate(*made)) << each.what;
        if (each.usable)
            EXPECT_EQ(*made, fixed) << each.what;
        else
            EXPECT_TRUE(std::regex_match(*made, std::regex(temporary + "/" + fixedName + "-[A-Za-z0-9]{6}")))
                << each.what << ": " << *made;
    }
    EXPECT_TRUE(isPrivate(elsewhere)) << "the link's target is left alone";
    EXPECT_TRUE(std::filesystem::is_empty(elsewhere));

    // The runtime folder is used when it is the user's own and private.
    const std::string runtime = folder.file("runtime");
    mkdir(runtime.c_str(), 0700);
    const ScopedEnvironment tmpdir("TMPDIR", folder.path().c_str());
    {
        const ScopedEnvironment trusted("XDG_RUNTIME_DIR", runtime.c_str());
        EXPECT_EQ(TLLocalPaths::privateTemporaryDirectory(), runtime + "/corvale");
        EXPECT_TRUE(isPrivate(runtime + "/corvale"));
    }
    chmod(runtime.c_str(), 0755);
    const ScopedEnvironment open("XDG_RUNTIME_DIR", runtime.c_str());
    EXPECT_EQ(TLLocalPaths::privateTemporaryDirectory(), folder.file(fixedName));
}
