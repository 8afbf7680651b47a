// Saves that meet a full disk, a folder the user may not write, a folder
// that goes away, or a kill: the project file and its settings file are
// each either the whole old version or the whole new one.
#include "MyDocument.h"

#include "ProjectFixtures.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLKeyedUnarchiver.h"
#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLMediaItem.h"
#include "TLPropertyList.h"
#include "TLRegularBin.h"
#include "TLSmartRangeItem.h"
#include "TLSmartRangeParser.h"
#include "TestSupport.h"

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <grp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

// Calls a hook whenever the progress label changes, so that a test can
// strike at a known step of the save.
class HookedView : public MyDocumentView
{
public:
    std::function<void(const std::string &)> onLabel;
    void updateProgressLabel(const std::string &text) override
    {
        if (onLabel)
            onLabel(text);
    }
};

// Lowers the largest file this process may write for as long as it lives,
// with SIGXFSZ ignored, so that writes past it fail with EFBIG as on a full
// disk instead of killing the process.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        m_previousHandler = ::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &m_previous);
        const rlimit limit{bytes, m_previous.rlim_max};
        m_active = ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }
    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &m_previous);
        ::signal(SIGXFSZ, m_previousHandler);
    }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;
    bool isActive() const { return m_active; }

private:
    rlimit m_previous{};
    sighandler_t m_previousHandler = SIG_DFL;
    bool m_active = false;
};

test::FixtureClip clip(int index)
{
    const std::string number = std::to_string(index);
    char uuid[40];
    std::snprintf(uuid, sizeof uuid, "%08X-0000-0000-0000-%012d", index, index);
    return {.id = "clip-" + number,
            .name = "Shot " + number,
            .uuid = uuid,
            .pathurl = "file://localhost/Media/Card%20" + std::to_string(index % 7) + "/shot-" + number + ".mov",
            .masterclipid = "M" + number,
            .duration = "250",
            .timebase = "25",
            .scene = std::to_string(index % 40),
            .shottake = "T" + std::to_string(index % 5)};
}

// Leftovers of a write that never finished, beside the file it replaces.
std::vector<fs::path> temporaryFilesIn(const fs::path &folder)
{
    std::vector<fs::path> found;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(folder, error)) {
        if (entry.path().filename().string().find(".tmp-") != std::string::npos)
            found.push_back(entry.path());
    }
    return found;
}

class SaveFaultTest : public testing::Test
{
protected:
    SaveFaultTest()
    {
        TLAlert::setPresenter(alerts);
        std::error_code ignored;
        fs::remove_all(settingsFolder(), ignored);
    }
    ~SaveFaultTest() override { TLAlert::setPresenter(nullptr); }

    static std::string settingsFolder()
    {
        return *TLLocalPaths::appSupportDirectory(true) + "/Quillmoor/Tessaline/Corvale/Project Settings";
    }

    // Opens a project of `clipCount` clips, sorts it by scene and saves it
    // once (the old version), then adds a bin "Newer" (what the next save
    // would bring).
    void openAndSaveOnce(int clipCount)
    {
        test::ProjectBuilder builder("Faults");
        for (int index = 0; index < clipCount; ++index)
            builder.addClip(clip(index));
        projectPath = builder.writeTo(folder, "Faults.xml");
        MyDocumentServices services;
        services.view = view;
        document = std::make_unique<MyDocument>(services);
        ASSERT_TRUE(document->readFromURL(projectPath));
        TLNodeList tree;
        for (const auto &item : TLSmartRangeParser::arrayForCriteria(7, *document->mediaController()))
            tree.push_back(item);
        document->setDataArray(tree);
        ASSERT_TRUE(document->writeToURLOnThread({projectPath, 0}));
        settingsPath = *MyDocument::settingsPathForProject(projectPath);
        oldProject = test::readFile(projectPath);
        oldSettings = test::readFile(settingsPath);
        auto newer = TLRegularBin::create();
        newer->setBinName("Newer");
        tree.push_back(newer);
        document->setDataArray(tree);
        newTreeSize = tree.size();
    }

    void expectOldFiles() const
    {
        EXPECT_TRUE(test::readFile(projectPath) == oldProject) << "the project file changed";
        EXPECT_TRUE(test::readFile(settingsPath) == oldSettings) << "the settings file changed";
    }

    // "old", "new" or what is wrong with the project file.
    std::string projectState() const
    {
        const std::string bytes = test::readFile(projectPath);
        if (bytes == oldProject)
            return "old";
        pugi::xml_document parsed;
        if (!parsed.load_buffer(bytes.data(), bytes.size()))
            return "broken (" + std::to_string(bytes.size()) + " bytes)";
        const bool hasNewBin = parsed.select_node("/xmeml/project/children/bin[name='Newer']");
        return hasNewBin ? "new" : "complete but neither version";
    }

    std::string settingsState() const
    {
        const std::string bytes = test::readFile(settingsPath);
        if (bytes == oldSettings)
            return "old";
        const auto data = TLPropertyList::fromBytes(bytes).dataForKey("data");
        const auto tree = data ? TLKeyedUnarchiver::unarchiveObjectWithData(*data) : std::nullopt;
        if (!tree)
            return "broken (" + std::to_string(bytes.size()) + " bytes)";
        return tree->size() == newTreeSize ? "new" : "complete but neither version";
    }

    test::TemporaryFolder folder;
    std::shared_ptr<test::RecordingAlertPresenter> alerts = std::make_shared<test::RecordingAlertPresenter>();
    std::shared_ptr<HookedView> view = std::make_shared<HookedView>();
    std::unique_ptr<MyDocument> document;
    std::string projectPath;
    std::string settingsPath;
    std::string oldProject;
    std::string oldSettings;
    std::size_t newTreeSize = 0;
};

} // namespace

TEST_F(SaveFaultTest, AFullDiskLeavesTheOldProjectAndSettings)
{
    openAndSaveOnce(200);
    {
        // Room for neither file: the save fails and says why.
        const FileSizeLimit limit(oldSettings.size() / 2);
        ASSERT_TRUE(limit.isActive());
        EXPECT_FALSE(document->writeToURLOnThread({projectPath, 0}));
    }
    expectOldFiles();
    ASSERT_EQ(alerts->alerts().size(), 1u);
    EXPECT_EQ(alerts->alerts()[0].message, "Error writing file");
    EXPECT_NE(alerts->alerts()[0].informativeText.find("File too large"), std::string::npos)
        << alerts->alerts()[0].informativeText;
    EXPECT_TRUE(temporaryFilesIn(folder.path()).empty());
    EXPECT_TRUE(temporaryFilesIn(fs::path(settingsPath).parent_path()).empty());

    // Room for the project but not for settings that name many more clips
    // (clips the project no longer holds write nothing into it): the new
    // project stands beside the old settings.
    auto bigTree = *document->dataArray();
    TLNodeList gone;
    for (int index = 0; index < 20000; ++index)
        gone.push_back(TLMediaItem::create("/Gone/" + std::to_string(index) + ".mov", "Gone",
                                           "GONE-" + std::to_string(index)));
    bigTree[0]->setChildren(gone);
    document->setDataArray(bigTree);
    {
        const FileSizeLimit limit(oldProject.size() * 3);
        EXPECT_TRUE(document->writeToURLOnThread({projectPath, 0}));
    }
    EXPECT_GT(test::readFile(projectPath).size(), 0u);
    EXPECT_EQ(projectState(), "new");
    EXPECT_TRUE(test::readFile(settingsPath) == oldSettings) << "the settings file changed";
    EXPECT_TRUE(temporaryFilesIn(fs::path(settingsPath).parent_path()).empty());
}

namespace {

// Saves again as the unprivileged user "nobody" (taking root's rights back
// afterwards to compare the files); 0 when the save was refused with the
// reason and left both files as they were.
int saveAsNobody(MyDocument &document, const std::string &projectPath, const std::string &settingsPath,
                 const test::RecordingAlertPresenter &alerts)
{
    const std::string project = test::readFile(projectPath);
    const std::string settings = test::readFile(settingsPath);
    if (::setegid(65534) != 0 || ::seteuid(65534) != 0)
        return 10;
    const bool saved = document.writeToURLOnThread({projectPath, 0});
    if (::seteuid(0) != 0 || ::setegid(0) != 0)
        return 11;
    if (saved)
        return 12;
    if (alerts.alerts().empty() || alerts.alerts().back().informativeText.find("Permission denied") == std::string::npos)
        return 13;
    return test::readFile(projectPath) == project && test::readFile(settingsPath) == settings ? 0 : 14;
}

} // namespace

TEST_F(SaveFaultTest, AFolderTheUserMayNotWriteLeavesBothFiles)
{
    openAndSaveOnce(50);
    if (::geteuid() != 0) {
        fs::permissions(folder.path(), fs::perms::owner_read | fs::perms::owner_exec);
        EXPECT_FALSE(document->writeToURLOnThread({projectPath, 0}));
        fs::permissions(folder.path(), fs::perms::owner_all);
        expectOldFiles();
        ASSERT_EQ(alerts->alerts().size(), 1u);
        EXPECT_NE(alerts->alerts()[0].informativeText.find("Permission denied"), std::string::npos);
        return;
    }
    // Permission bits do not stop root: the save runs in a child process
    // that has given up its rights. The child is a fresh run of this test
    // up to here, with files of its own, and checks them itself.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(saveAsNobody(*document, projectPath, settingsPath, *alerts)), testing::ExitedWithCode(0),
                "");
}

TEST_F(SaveFaultTest, ATargetFolderThatGoesAwayFailsTheSaveAndChangesNothing)
{
    openAndSaveOnce(50);
    const fs::path projectFolder = folder.path() / "Project";
    fs::create_directory(projectFolder);
    const fs::path moved = folder.path() / "Moved";
    fs::rename(projectPath, projectFolder / "Faults.xml");
    projectPath = (projectFolder / "Faults.xml").string();
    settingsPath = *MyDocument::settingsPathForProject(projectPath);

    // Moved away, then removed outright, just before the file is written.
    for (const bool removeOutright : {false, true}) {
        view->onLabel = [&](const std::string &text) {
            if (text != "Writing file...")
                return;
            if (removeOutright)
                fs::remove_all(projectFolder);
            else
                fs::rename(projectFolder, moved);
        };
        EXPECT_FALSE(document->writeToURLOnThread({projectPath, 0}));
        view->onLabel = nullptr;
        EXPECT_FALSE(fs::exists(projectFolder)) << "the save made the folder again";
        EXPECT_TRUE(test::readFile(settingsPath) == oldSettings);
    }
    EXPECT_TRUE(test::readFile(moved / "Faults.xml") == oldProject);
    EXPECT_TRUE(temporaryFilesIn(moved).empty());
    const auto shown = alerts->alerts();
    ASSERT_EQ(shown.size(), 2u);
    for (const auto &alert : shown)
        EXPECT_NE(alert.informativeText.find("No such file or directory"), std::string::npos) << alert.informativeText;
}

namespace {

// Saves in a child process made by fork, which shares the document as it
// stands; the child logs nothing, since the log's writer thread does not
// cross into it. Returns the child's process id (or -1).
pid_t startSaveInChild(MyDocument &document, const std::string &path)
{
    const pid_t child = ::fork();
    if (child != 0)
        return child;
    TLLog::sharedController().setLoggingDisabled(true);
    const bool saved = document.writeToURLOnThread({path, 0});
    ::_exit(saved ? 0 : 1);
}

} // namespace

TEST_F(SaveFaultTest, AKillAtAnyPointOfASaveLeavesNoTruncatedFile)
{
    openAndSaveOnce(4000);

    // One whole save first, to learn how long a save takes.
    const auto started = std::chrono::steady_clock::now();
    const pid_t whole = startSaveInChild(*document, projectPath);
    ASSERT_GT(whole, 0);
    int status = 0;
    ASSERT_EQ(::waitpid(whole, &status, 0), whole);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    const auto duration = std::chrono::steady_clock::now() - started;
    ASSERT_EQ(projectState(), "new");
    ASSERT_EQ(settingsState(), "new");

    const char *seedText = std::getenv("CORVALE_FAULT_SEED");
    const unsigned seed = seedText ? unsigned(std::strtoul(seedText, nullptr, 10)) : std::random_device{}();
    std::mt19937 random(seed);
    std::uniform_int_distribution<long long> delays(0, std::chrono::duration_cast<std::chrono::microseconds>(duration).count());
    std::ostringstream report;
    report << "seed " << seed << " (set CORVALE_FAULT_SEED to repeat), a whole save "
           << std::chrono::duration_cast<std::chrono::milliseconds>(duration).count() << " ms\n";
    for (int run = 0; run < 12; ++run) {
        test::writeFile(projectPath, oldProject);
        test::writeFile(settingsPath, oldSettings);
        const auto delay = std::chrono::microseconds(delays(random));
        const pid_t child = startSaveInChild(*document, projectPath);
        ASSERT_GT(child, 0);
        std::this_thread::sleep_for(delay);
        ::kill(child, SIGKILL);
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        const std::string project = projectState();
        const std::string settings = settingsState();
        const auto leftovers = temporaryFilesIn(folder.path()).size()
                               + temporaryFilesIn(fs::path(settingsPath).parent_path()).size();
        report << "kill after " << delay.count() / 1000 << " ms: project " << project << ", settings " << settings
               << ", " << leftovers << " temporary file(s) left\n";
        EXPECT_TRUE(project == "old" || project == "new") << project;
        EXPECT_TRUE(settings == "old" || settings == "new") << settings;
        for (const auto &path : temporaryFilesIn(folder.path()))
            fs::remove(path);
        for (const auto &path : temporaryFilesIn(fs::path(settingsPath).parent_path()))
            fs::remove(path);
    }
    std::cout << report.str();
    RecordProperty("kills", report.str());
}
