// Gathering logs into an archive on the desktop, and opening the logs.
#include "TLTroubleshootingUtils.h"

#include "FakeWorkspace.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLCrashwick.h"
#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TestSupport.h"
#include "Unprivileged.h"

#include <gtest/gtest.h>

#include <archive.h>
#include <archive_entry.h>
#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

// The listing of `unzip -l`, or nullopt when unzip is not installed.
std::optional<std::string> unzipListing(const std::string &archive)
{
    if (std::system("command -v unzip >/dev/null 2>&1") != 0)
        return std::nullopt;
    std::string listing;
    FILE *pipe = ::popen(("unzip -l '" + archive + "'").c_str(), "r");
    if (!pipe)
        return std::nullopt;
    std::array<char, 4096> buffer {};
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe))
        listing.append(buffer.data(), count);
    ::pclose(pipe);
    return listing;
}

// The mode of every entry of a zip, by name, as libarchive reads it back.
std::map<std::string, mode_t> entryModes(const std::string &zip)
{
    std::map<std::string, mode_t> modes;
    archive *reader = archive_read_new();
    archive_read_support_format_zip(reader);
    if (archive_read_open_filename(reader, zip.c_str(), 16384) == ARCHIVE_OK) {
        archive_entry *entry = nullptr;
        while (archive_read_next_header(reader, &entry) == ARCHIVE_OK)
            modes[archive_entry_pathname(entry)] = archive_entry_perm(entry);
    }
    archive_read_free(reader);
    return modes;
}

// The general-purpose flags of the local header whose name holds `name`
// byte for byte; nullopt when no entry is stored under those bytes.
std::optional<unsigned> localHeaderFlags(const std::string &zip, const std::string &name)
{
    const std::string bytes = test::readFile(zip);
    const auto number = [&](std::size_t at) {
        return unsigned(static_cast<unsigned char>(bytes[at])) | unsigned(static_cast<unsigned char>(bytes[at + 1])) << 8;
    };
    for (std::size_t at = bytes.find("PK\3\4"); at != std::string::npos && at + 30 <= bytes.size();
         at = bytes.find("PK\3\4", at + 4)) {
        const std::string stored = bytes.substr(at + 30, number(at + 26));
        if (stored.find(name) != std::string::npos)
            return number(at + 6);
    }
    return std::nullopt;
}

class TLTroubleshootingUtilsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TLAlert::setPresenter(m_alerts);
        TLWorkspace::setShared(m_workspace);
        m_logs = *TLLocalPaths::libraryDirectory(true) + "/Logs/Quillmoor";
        m_localLogs = TLLog::machineWideLogFolder();
        m_preferences = *TLLocalPaths::prefsDirectory(true);
        m_desktop = *TLTroubleshootingUtils::archiveFolder();
    }

    void TearDown() override
    {
        for (const auto &folder : TLCrashwick::crashReportFolders())
            fs::remove_all(folder);
        fs::remove_all(m_logs);
        fs::remove_all(m_localLogs);
        fs::remove_all(m_desktop);
        for (const char *name : {"com.quillmoor.Gather.plist", "com.quillmoor.MyApp.plist", "com.quillmoor.otherapp.plist"})
            fs::remove(m_preferences + "/" + name);
        TLWorkspace::setShared(nullptr);
        TLAlert::setPresenter(nullptr);
    }

    std::vector<std::string> alertMessages() const
    {
        std::vector<std::string> messages;
        for (const auto &alert : m_alerts->alerts())
            messages.push_back(alert.message + " / " + alert.informativeText);
        return messages;
    }

    std::shared_ptr<test::RecordingAlertPresenter> m_alerts = std::make_shared<test::RecordingAlertPresenter>();
    std::shared_ptr<test::FakeWorkspace> m_workspace = std::make_shared<test::FakeWorkspace>();
    std::string m_logs;
    std::string m_localLogs;
    std::string m_preferences;
    std::string m_desktop;
};

} // namespace

TEST_F(TLTroubleshootingUtilsTest, GathersMatchingFilesIntoAZipThatMirrorsTheirFolders)
{
    test::writeFile(m_logs + "/Gather.1.log", "log one");
    test::writeFile(m_logs + "/Gather.1.task.log", "task");
    test::writeFile(m_localLogs + "/Gather.3.log", "root log");
    test::writeFile(m_logs + "/Other.1.log", "not ours");
    test::writeFile(m_logs + "/Gather.1.log.bak", "not a log");
    const auto reports = TLCrashwick::crashReportFolders();
    test::writeFile(reports[1] + "/Gather_2026.ips", "report");
    test::writeFile(reports[1] + "/Gather-x_2026.crash", "another app");
    test::writeFile(m_preferences + "/com.quillmoor.Gather.plist", "<plist/>");
    test::TemporaryFolder extra;
    test::writeFile(extra.file("notes.txt"), "extra");

    ASSERT_TRUE(TLTroubleshootingUtils::gatherLogsForAppsWithNames({"Gather"}, false, {extra.file("notes.txt")}));
    EXPECT_EQ(alertMessages(), (std::vector<std::string>{
                                   "Logs gathered successfully / The gathered logs were placed on your desktop."}));
    EXPECT_FALSE(fs::exists(TLTroubleshootingUtils::stagingFolder().value_or("/")));
    const std::string archive = m_desktop + "/Gather Logs.zip";
    ASSERT_TRUE(fs::exists(archive));
    const auto listing = unzipListing(archive);
    if (!listing)
        GTEST_SKIP() << "unzip is not installed";
    for (const std::string &path : {m_logs + "/Gather.1.log", m_logs + "/Gather.1.task.log",
                                    m_localLogs + "/Gather.3.log", reports[1] + "/Gather_2026.ips",
                                    m_preferences + "/com.quillmoor.Gather.plist", extra.file("notes.txt")})
        EXPECT_NE(listing->find("TL_App_Logs" + path + "\n"), std::string::npos) << path << "\n" << *listing;
    for (const char *absent : {"Other.1.log", "Gather.1.log.bak", "Gather-x_2026.crash"})
        EXPECT_EQ(listing->find(absent), std::string::npos) << absent;
}

TEST_F(TLTroubleshootingUtilsTest, SecondArchiveGetsATimeStampedNameAndSilentShowsNothing)
{
    test::writeFile(m_logs + "/Gather.1.log", "log");
    ASSERT_TRUE(TLTroubleshootingUtils::gatherLogsForAppsWithNames({"Gather"}, true));
    ASSERT_TRUE(TLTroubleshootingUtils::gatherLogsForAppsWithNames({"Gather"}, true));
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(m_desktop))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[0], "Gather Logs.zip");
    EXPECT_TRUE(names[1].starts_with("Gather Logs_") && names[1].ends_with(".zip") && names[1].size() == 30) << names[1];
    EXPECT_TRUE(m_alerts->alerts().empty());
}

TEST_F(TLTroubleshootingUtilsTest, NothingFoundMakesNoArchive)
{
    EXPECT_FALSE(TLTroubleshootingUtils::gatherLogsForAppWithName("Nobody"));
    EXPECT_EQ(alertMessages(), (std::vector<std::string>{"No logs found / There were no logs available to gather."}));
    EXPECT_TRUE(fs::is_empty(m_desktop));
    EXPECT_FALSE(TLTroubleshootingUtils::gatherLogsForAppsWithNames({}));
    test::TemporaryFolder extra;
    EXPECT_FALSE(TLTroubleshootingUtils::gatherLogsForAppsWithNames({"Nobody"}, true, {extra.file("missing")}));
    EXPECT_TRUE(fs::is_empty(m_desktop));
}

TEST_F(TLTroubleshootingUtilsTest, PreferencesAreFoundWithoutBlanksOrInLowerCase)
{
    test::writeFile(m_preferences + "/com.quillmoor.MyApp.plist", "mine");
    test::writeFile(m_preferences + "/com.quillmoor.otherapp.plist", "other");
    ASSERT_TRUE(TLTroubleshootingUtils::gatherLogsForAppsWithNames({"My App", "OtherApp"}, true));
    const auto listing = unzipListing(m_desktop + "/My App Logs.zip");
    if (!listing)
        GTEST_SKIP() << "unzip is not installed";
    EXPECT_NE(listing->find("com.quillmoor.MyApp.plist"), std::string::npos);
    EXPECT_NE(listing->find("com.quillmoor.otherapp.plist"), std::string::npos);
}

TEST_F(TLTroubleshootingUtilsTest, LinksAreFollowedOnlyToRegularFilesInReach)
{
    test::writeFile(m_logs + "/Gather.1.log", "log");
    const fs::path home = TLLocalPaths::userDirectory();
    test::writeFile(home / "kept.txt", "linked log");
    test::TemporaryFolder elsewhere;
    test::writeFile(elsewhere.file("shared.txt"), "in the shared temporary folder");
    fs::create_symlink(home / "kept.txt", m_logs + "/Gather.2.log");
    fs::create_symlink("/etc/passwd", m_logs + "/Gather.3.log");
    fs::create_symlink(home, m_logs + "/Gather.4.log");
    fs::create_symlink(home / "missing", m_logs + "/Gather.5.log");
    fs::create_symlink(elsewhere.file("shared.txt"), m_logs + "/Gather.6.log");
    const bool gathered = TLTroubleshootingUtils::gatherLogsForAppWithName("Gather");
    fs::remove(home / "kept.txt");
    ASSERT_TRUE(gathered);
    const auto listing = unzipListing(m_desktop + "/Gather Logs.zip");
    if (!listing)
        GTEST_SKIP() << "unzip is not installed";
    EXPECT_NE(listing->find("Gather.2.log"), std::string::npos) << *listing;
    for (const char *skipped : {"Gather.3.log", "Gather.4.log", "Gather.5.log", "Gather.6.log", "passwd"})
        EXPECT_EQ(listing->find(skipped), std::string::npos) << skipped << "\n" << *listing;
}

TEST_F(TLTroubleshootingUtilsTest, ViewingOpensTheCurrentLogOrExplainsItsAbsence)
{
    EXPECT_FALSE(TLTroubleshootingUtils::viewLogForApp("Gather"));
    EXPECT_FALSE(TLTroubleshootingUtils::viewTaskLogForApp("Gather"));
    EXPECT_EQ(alertMessages(),
              (std::vector<std::string>{
                  "No log found / You must perform a task before viewing the log.",
                  "No log found / You must run the application as a task (e.g. through Task Scheduler) before "
                  "viewing a log."}));
    test::writeFile(m_logs + "/Gather.1.log", "log");
    test::writeFile(m_logs + "/Gather.1.task.log", "task");
    EXPECT_TRUE(TLTroubleshootingUtils::viewLogForApp("Gather"));
    EXPECT_TRUE(TLTroubleshootingUtils::viewTaskLogForApp("Gather"));
    const auto requests = m_workspace->requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].values, (std::vector<std::string>{m_logs + "/Gather.1.log"}));
    EXPECT_EQ(requests[1].values, (std::vector<std::string>{m_logs + "/Gather.1.task.log"}));
}

TEST_F(TLTroubleshootingUtilsTest, GatheredCopiesAndTheArchiveAreTheUsersAloneWhateverTheUmask)
{
    test::writeFile(m_logs + "/Gather.1.log", "log");
    ::chmod((m_logs + "/Gather.1.log").c_str(), 0644);
    const mode_t previous = ::umask(0);
    const bool gathered = TLTroubleshootingUtils::gatherLogsForAppWithName("Gather");
    ::umask(previous);
    ASSERT_TRUE(gathered);
    const std::string archive = m_desktop + "/Gather Logs.zip";
    struct stat status {};
    ASSERT_EQ(::stat(archive.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    const auto modes = entryModes(archive);
    ASSERT_EQ(modes.count("TL_App_Logs" + m_logs + "/Gather.1.log"), 1u);
    for (const auto &[name, mode] : modes)
        EXPECT_EQ(mode, name.ends_with("/") ? 0700u : 0600u) << name;
}

TEST_F(TLTroubleshootingUtilsTest, EntryNamesAreStoredAsUTF8WhateverTheLocale)
{
    const std::string name = "Gather-M\u00fcller \u65e5\u672c.1.log";
    test::writeFile(m_logs + "/" + name, "log");
    const std::string locale = std::setlocale(LC_ALL, nullptr);
    std::setlocale(LC_ALL, "C");
    const bool gathered = TLTroubleshootingUtils::gatherLogsForAppWithName("Gather");
    std::setlocale(LC_ALL, locale.c_str());
    ASSERT_TRUE(gathered);
    const auto flags = localHeaderFlags(m_desktop + "/Gather Logs.zip", name);
    ASSERT_TRUE(flags) << "no entry is named in UTF-8";
    EXPECT_NE(*flags & 0x0800u, 0u) << "the language-encoding flag is clear";
}

// Another local user creating the staging folder's old fixed name in the
// shared temporary folder must not stop the user from gathering.
TEST_F(TLTroubleshootingUtilsTest, ANamePlantedInTheSharedTemporaryFolderDoesNotBlockGathering)
{
    const test::UnprivilegedFolder user;
    const std::string shared = user.file("tmp");
    fs::create_directories(shared + "/TL_App_Logs");
    test::writeFile(shared + "/TL_App_Logs/planted", "someone else's");
    ::chmod(shared.c_str(), 01777);
    TLLog::finishWriting();
    const std::string failure = test::runUnprivileged([&]() -> std::string {
        for (const auto &[variable, folder] : std::map<std::string, std::string>{
                 {"HOME", "/home"}, {"XDG_STATE_HOME", "/home/state"}, {"XDG_CONFIG_HOME", "/home/config"},
                 {"XDG_DATA_HOME", "/home/data"}, {"XDG_CACHE_HOME", "/home/cache"}, {"CORVALE_LOCAL_ROOT", "/local"},
                 {"TMPDIR", "/tmp"}})
            ::setenv(variable.c_str(), (user.path() + folder).c_str(), 1);
        ::unsetenv("XDG_RUNTIME_DIR");
        test::writeFile(*TLLog::userLogFolder() + "/Gather.1.log", "log");
        if (!TLTroubleshootingUtils::gatherLogsForAppsWithNames({"Gather"}, true))
            return "gathering failed";
        if (!fs::exists(user.file("home/Desktop/Gather Logs.zip")))
            return "no archive on the desktop";
        return "";
    });
    EXPECT_EQ(failure, "");
    EXPECT_TRUE(fs::exists(shared + "/TL_App_Logs/planted"));
}
