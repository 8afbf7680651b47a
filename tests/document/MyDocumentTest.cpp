// Opening projects and files, restoring and storing the bin tree, saving in
// the background, and the quit check.
#include "MyDocument.h"

#include "FakeFinalCutProBridge.h"
#include "ProjectFixtures.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLBinRangeItem.h"
#include "TLFinderInfo.h"
#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLMediaItem.h"
#include "TLPropertyList.h"
#include "TLRegularBin.h"
#include "TLSmartBin.h"
#include "TLSmartRangeItem.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <thread>

namespace {

namespace fs = std::filesystem;
using namespace test::fixtures;

constexpr std::string_view binUuid3 = "CCCCCCCC-CCCC-CCCC-CCCC-CCCCCCCCCCCC";
constexpr std::string_view binUuid4 = "DDDDDDDD-DDDD-DDDD-DDDD-DDDDDDDDDDDD";
constexpr std::string_view goneUuid = "EEEEEEEE-EEEE-EEEE-EEEE-EEEEEEEEEEEE";

// Records the progress sheet; can hold a save at its first step until
// released (or ten seconds have passed, so that a failing test cannot hang).
class ProgressView : public MyDocumentView
{
public:
    void *windowHandle() const override { return const_cast<int *>(&m_window); }
    void startProgress() override { record("startProgress"); }
    void endProgress() override { record("endProgress"); }
    void updateProgressLabel(const std::string &text) override
    {
        record(text);
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(10), [&] { return !m_holding; });
    }

    void hold() { setHolding(true); }
    void release() { setHolding(false); }
    bool waitForCall(const std::string &call)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(10),
                                  [&] { return std::find(m_calls.begin(), m_calls.end(), call) != m_calls.end(); });
    }
    std::vector<std::string> calls() const
    {
        const std::lock_guard lock(m_mutex);
        return m_calls;
    }

private:
    void record(const std::string &call)
    {
        const std::lock_guard lock(m_mutex);
        m_calls.push_back(call);
        m_changed.notify_all();
    }
    void setHolding(bool holding)
    {
        const std::lock_guard lock(m_mutex);
        m_holding = holding;
        m_changed.notify_all();
    }

    int m_window = 0;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_calls;
    bool m_holding = false;
};

// Runs handed-over work on the caller without serialising it, so that a
// save held inside the view does not hold up the test's own alerts.
class PassThroughMainThread : public TLMainThread
{
public:
    bool isMainThread() const override { return std::this_thread::get_id() == m_main; }
    void performAndWait(std::function<void()> work) override { work(); }

private:
    std::thread::id m_main = std::this_thread::get_id();
};

TLBinNodePtr regularBin(const std::string &name, TLNodeList children = {})
{
    auto bin = TLRegularBin::create();
    bin->setBinName(name);
    bin->setChildren(std::move(children));
    return bin;
}

TLBinNodePtr rangeItem(const std::string &name, std::optional<std::string_view> uuid)
{
    auto item = TLBinRangeItem::create(name, "Reel [1-2]", nullptr, 2, 0);
    if (uuid)
        item->setUuid(std::string(*uuid));
    return item;
}

TLBinNodePtr mediaItem(std::string_view uuid)
{
    return TLMediaItem::create("/Media/old.mov", "Old", std::string(uuid));
}

std::vector<std::string> names(const TLNodeListPtr &nodes)
{
    std::vector<std::string> result;
    for (const auto &node : *nodes)
        result.push_back(node->displayName());
    return result;
}

std::size_t occurrences(const std::string &text, const std::string &part)
{
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

class MyDocumentTest : public testing::Test
{
protected:
    MyDocumentTest()
    {
        TLAlert::setPresenter(alerts);
        std::error_code ignored;
        fs::remove_all(settingsFolder(), ignored);
    }
    ~MyDocumentTest() override { TLAlert::setPresenter(nullptr); }

    static std::string settingsFolder()
    {
        return *TLLocalPaths::appSupportDirectory(true) + "/Quillmoor/Tessaline/Corvale/Project Settings";
    }

    std::unique_ptr<MyDocument> makeDocument()
    {
        MyDocumentServices services;
        services.projectSources.finalCutPro = finalCutPro;
        services.mainThread = mainThread;
        services.view = view;
        return std::make_unique<MyDocument>(services);
    }

    // Stores `tree` as the saved bins of the project at `projectPath`.
    void storeTree(const std::string &projectPath, TLNodeList tree)
    {
        auto writer = makeDocument();
        writer->setDataArray(std::move(tree));
        ASSERT_TRUE(writer->storeSettingsForProject(projectPath));
    }

    // The sample project with three more bins in it.
    std::string writeProjectWithMoreBins(std::string_view name)
    {
        auto project = sampleProject();
        project.addBin({"Third", std::string(binUuid3), std::nullopt, {}, {}});
        project.addBin({"Fourth", std::string(binUuid4), std::nullopt, {}, {}});
        return project.writeTo(folder, name);
    }

    test::TemporaryFolder folder;
    std::shared_ptr<test::RecordingAlertPresenter> alerts = std::make_shared<test::RecordingAlertPresenter>();
    std::shared_ptr<test::FakeFinalCutProBridge> finalCutPro = std::make_shared<test::FakeFinalCutProBridge>();
    std::shared_ptr<PassThroughMainThread> mainThread = std::make_shared<PassThroughMainThread>();
    std::shared_ptr<ProgressView> view = std::make_shared<ProgressView>();
};

} // namespace

TEST_F(MyDocumentTest, ProjectsAreToldFromFilesByExtensionOrTypeCode)
{
    finalCutPro->projectXML = sampleProjectXML();
    const auto project = folder.file("X.FCP");
    test::writeFile(project, "binary project");
    auto document = makeDocument();
    EXPECT_TRUE(document->readFromURL(project));
    EXPECT_TRUE(document->isFCPProject());
    EXPECT_FALSE(document->isPremiereProject());
    ASSERT_EQ(finalCutPro->projectRequests.size(), 1u);
    EXPECT_EQ(finalCutPro->projectRequests[0].path, project);
    EXPECT_EQ(document->mediaController()->clips().size(), 3u);

    const auto file = writeSampleProject(folder, "Plain.xml");
    auto plain = makeDocument();
    EXPECT_TRUE(plain->readFromURL(file));
    EXPECT_FALSE(plain->isFCPProject());
    EXPECT_EQ(finalCutPro->projectRequests.size(), 1u);
    EXPECT_EQ(plain->mediaController()->clips().size(), 3u);

    const auto typed = folder.file("Typed.xml");
    test::writeFile(typed, "binary project");
    if (TLFinderInfo::setTypeAndCreatorCode(typed, TLFinderInfo::finalCutProProjectType, 0))
        GTEST_SKIP() << "no extended attributes on this file system";
    auto byType = makeDocument();
    EXPECT_TRUE(byType->readFromURL(typed));
    EXPECT_TRUE(byType->isFCPProject());
    EXPECT_EQ(finalCutPro->projectRequests.size(), 2u);
}

TEST_F(MyDocumentTest, AFileHoldingOnlyASequenceIsRefusedBeforeAnySettingsAreRead)
{
    const auto path = writeSequenceOnlyProject(folder, "Sequence.xml");
    storeTree(path, {regularBin("Would survive")});
    auto document = makeDocument();
    EXPECT_FALSE(document->readFromURL(path));
    EXPECT_EQ(document->mediaController(), nullptr);
    EXPECT_TRUE(document->dataArray()->empty());
    const auto shown = alerts->alerts();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].message, "This file is incompatible with Corvale");
    EXPECT_EQ(shown[0].informativeText,
              "Corvale only operates on files in your browser. This XML file only contains a sequence and will not "
              "work with Corvale. Please export an XML copy of your entire project rather than a single sequence.");
    EXPECT_EQ(shown[0].parentWindow, nullptr);

    // The same settings are read for a project whose first child is a project.
    const auto projectPath = writeSampleProject(folder, "Sequence.xml");
    auto opened = makeDocument();
    EXPECT_TRUE(opened->readFromURL(projectPath));
    EXPECT_EQ(names(opened->dataArray()), std::vector<std::string>{"Would survive"});
}

TEST_F(MyDocumentTest, OpeningBuildsTheMasterClipTableAndLogsTheKind)
{
    const std::optional<std::string> logPath = TLLog::currentLogPath();
    ASSERT_TRUE(logPath);
    fs::create_directories(fs::path(*logPath).parent_path());
    TLLog::createNewLog(std::nullopt, true);

    const auto path = folder.file("Loose.xml");
    test::writeFile(path, projectWithoutMasterClipIdsXML());
    auto document = makeDocument();
    EXPECT_TRUE(document->readFromURL(path));
    std::vector<std::string> keys;
    for (const auto &[key, element] : document->mediaController()->masterClipPaths())
        keys.push_back(key + "=" + element.text().get());
    EXPECT_EQ(keys, (std::vector<std::string>{"Unknown1=file://localhost/Media/loose1.mov",
                                              "Unknown2=file://localhost/Media/loose2.mov",
                                              "Unknown3=file://localhost/Media/loose3.mov"}));

    // A file that is no project at all still opens as far as it can: the
    // load result is the answer, and the document is usable.
    auto missing = makeDocument();
    EXPECT_FALSE(missing->readFromURL(folder.file("missing.xml")));
    ASSERT_NE(missing->mediaController(), nullptr);
    EXPECT_TRUE(missing->dataArray()->empty());

    TLLog::finishWriting();
    const std::string log = test::readFile(*logPath);
    EXPECT_NE(log.find(" - Is XML file\n"), std::string::npos) << log;
}

TEST_F(MyDocumentTest, TopLevelSmartBinsAndSmartRangesAreResolvedAgainstTheCurrentClips)
{
    const auto path = writeProjectWithMoreBins("Restore.xml");
    auto staleSmartBin = TLSmartBin::create();
    staleSmartBin->setBinName("Has S");
    staleSmartBin->setMatchType(1);
    staleSmartBin->setFilterArray({TLSmartBinFilter::create(0, 0, "s")});
    staleSmartBin->setUuid(std::string(binUuid3));
    staleSmartBin->setChildren({mediaItem(clipUuid1)});
    auto sceneOne = TLSmartRangeItem::create("1", 7);
    sceneOne->setUuid(std::string(binUuidSelects));
    auto sceneNine = TLSmartRangeItem::create("9", 7);
    sceneNine->setUuid(std::string(binUuidRejects));
    auto neverSent = TLSmartBin::create();
    neverSent->setBinName("Never sent");
    storeTree(path, {staleSmartBin, sceneOne, sceneNine, neverSent, rangeItem("Reel 1", binUuid4),
                     rangeItem("Reel 2", goneUuid), regularBin("Emptied", {rangeItem("Reel 3", goneUuid)})});

    auto document = makeDocument();
    ASSERT_TRUE(document->readFromURL(path));
    const TLNodeListPtr tree = document->dataArray();
    EXPECT_EQ(names(tree), (std::vector<std::string>{"Has S", "1", "Reel 1", "Emptied"}));
    EXPECT_EQ(names(tree->at(0)->children()), (std::vector<std::string>{"Street", "Sunset"}));
    EXPECT_EQ(names(tree->at(1)->children()), (std::vector<std::string>{"Interview", "Sunset"}));
    EXPECT_EQ(tree->at(1)->uuid(), std::string(binUuidSelects));
    EXPECT_TRUE(tree->at(3)->children()->empty());
}

TEST_F(MyDocumentTest, ASmartRangeTakesOneClipPerIdentifierAndSavedTwinsShareNoClips)
{
    test::ProjectBuilder project;
    project.addClip({.id = "c1", .name = "One", .uuid = "U1", .scene = "x"});
    project.addClip({.id = "c2", .name = "Two", .uuid = "U1", .scene = "x"});
    project.addClip({.id = "c3", .name = "Three", .uuid = "U3", .scene = "x"});
    project.addClip({.id = "c4", .name = "Four", .scene = "y"});
    for (const auto uuid : {binUuidSelects, binUuidRejects, binUuid3})
        project.addBin({.name = "Sent", .uuid = std::string(uuid)});
    const auto path = project.writeTo(folder, "Twins.xml");
    const auto savedRange = [](std::string name, std::string_view uuid, TLNodeList children) {
        auto item = TLSmartRangeItem::create(std::move(name), 7);
        item->setUuid(std::string(uuid));
        item->setChildren(std::move(children));
        return item;
    };
    storeTree(path, {savedRange("x", binUuidSelects, {}), savedRange("x", binUuidRejects, {}),
                     savedRange("y", binUuid3, {mediaItem("U-OLD")})});

    auto document = makeDocument();
    ASSERT_TRUE(document->readFromURL(path));
    const TLNodeListPtr tree = document->dataArray();
    ASSERT_EQ(names(tree), (std::vector<std::string>{"x", "x", "y"}));
    EXPECT_EQ(names(tree->at(0)->children()), (std::vector<std::string>{"Two", "Three"}));
    EXPECT_EQ(names(tree->at(1)->children()), (std::vector<std::string>{"Two", "Three"}));
    EXPECT_NE(tree->at(0)->children()->at(0), tree->at(1)->children()->at(0));
    EXPECT_EQ(tree->at(1)->children()->at(0)->parent(), tree->at(1));
    // A clip without an identifier could never be found again: the saved
    // clips stay.
    EXPECT_EQ(names(tree->at(2)->children()), std::vector<std::string>{"Old"});
    EXPECT_TRUE(document->storeSettingsForProject(path));
}

TEST_F(MyDocumentTest, BelowTheTopLevelOnlyTheIdentifierFilterApplies)
{
    const auto path = writeProjectWithMoreBins("Deep.xml");
    auto nestedSmartBin = TLSmartBin::create();
    nestedSmartBin->setBinName("Nested smart");
    nestedSmartBin->setFilterArray({TLSmartBinFilter::create(0, 0, "")});
    nestedSmartBin->setUuid(std::string(binUuid3));
    // Clip identifiers are not bin identifiers: these go.
    nestedSmartBin->setChildren({mediaItem(clipUuid1), mediaItem(clipUuid2)});
    auto goneRange = TLSmartRangeItem::create("2", 7);
    goneRange->setUuid(std::string(goneUuid));
    auto keptRange = TLSmartRangeItem::create("No such scene", 7);
    keptRange->setUuid(std::string(binUuid4));
    storeTree(path, {regularBin("Outer", {nestedSmartBin, goneRange, keptRange,
                                          regularBin("Inner", {rangeItem("Reel 1", binUuidRejects)})})});

    auto document = makeDocument();
    ASSERT_TRUE(document->readFromURL(path));
    const TLNodeListPtr outer = document->dataArray()->at(0)->children();
    EXPECT_EQ(names(outer), (std::vector<std::string>{"Nested smart", "No such scene", "Inner"}));
    EXPECT_TRUE(outer->at(0)->children()->empty());
    EXPECT_EQ(names(outer->at(2)->children()), std::vector<std::string>{"Reel 1"});
    EXPECT_EQ(outer->at(2)->parent(), document->dataArray()->at(0));

    // The filter on its own, as the loader uses it.
    const TLNodeList filtered = MyDocument::filterBinArray(
        {rangeItem("A", binUuid3), rangeItem("B", std::nullopt), regularBin("C")}, {std::string(binUuid3)});
    ASSERT_EQ(filtered.size(), 2u);
    EXPECT_EQ(filtered[0]->binName(), "A");
    EXPECT_EQ(filtered[1]->binName(), "C");
}

TEST_F(MyDocumentTest, DamagedOrHostileSettingsOpenAnEmptyTreeAndAreLeftAlone)
{
    const auto path = writeSampleProject(folder, "Damaged.xml");
    storeTree(path, {regularBin("A"), regularBin("B")});
    const auto settingsPath = *MyDocument::settingsPathForProject(path);
    const std::string valid = test::readFile(settingsPath);

    // An archive whose list holds itself, and one naming a class of no bin.
    const std::string archiveHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
                                    "<key>$archiver</key><string>NSKeyedArchiver</string>"
                                    "<key>$version</key><integer>100000</integer>"
                                    "<key>$top</key><dict><key>root</key><dict><key>CF$UID</key><integer>1</integer>"
                                    "</dict></dict><key>$objects</key><array><string>$null</string>";
    const std::string selfContaining =
        archiveHead + "<dict><key>NS.objects</key><array><dict><key>CF$UID</key><integer>1</integer></dict></array>"
                      "<key>$class</key><dict><key>CF$UID</key><integer>2</integer></dict></dict>"
                      "<dict><key>$classname</key><string>NSMutableArray</string><key>$classes</key><array>"
                      "<string>NSMutableArray</string><string>NSArray</string></array></dict></array></dict></plist>";
    const std::string foreignClass =
        archiveHead + "<dict><key>$class</key><dict><key>CF$UID</key><integer>2</integer></dict></dict>"
                      "<dict><key>$classname</key><string>NSTask</string><key>$classes</key><array>"
                      "<string>NSTask</string></array></dict></array></dict></plist>";
    const auto settingsWithData = [](const std::string &data) {
        auto settings = TLPropertyList::newDictionary();
        settings.setDataForKey("data", data);
        return *settings.toXML();
    };
    const std::vector<std::string> damaged = {
        valid.substr(0, valid.size() / 2),
        "garbage \x01\x02",
        "",
        settingsWithData("not an archive"),
        settingsWithData(selfContaining),
        settingsWithData(foreignClass),
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><data>AAAA</data></array></plist>",
    };
    for (const std::string &contents : damaged) {
        test::writeFile(settingsPath, contents);
        {
            auto document = makeDocument();
            EXPECT_TRUE(document->readFromURL(path));
            EXPECT_TRUE(document->dataArray()->empty()) << contents;
        }
        EXPECT_EQ(test::readFile(settingsPath), contents);
    }

    fs::remove(settingsPath);
    fs::create_directory(settingsPath);
    auto document = makeDocument();
    EXPECT_TRUE(document->readFromURL(path));
    EXPECT_TRUE(document->dataArray()->empty());
    EXPECT_TRUE(fs::is_directory(settingsPath));
    EXPECT_TRUE(alerts->alerts().empty());
}

TEST_F(MyDocumentTest, ASavedProjectReopensWithItsBinsAndTheirIdentifiers)
{
    const auto path = writeSampleProject(folder, "Sample.xml");
    auto document = makeDocument();
    ASSERT_TRUE(document->readFromURL(path));
    auto reel = rangeItem("Reel 1", std::nullopt);
    document->setDataArray({reel, regularBin("Plain")});
    document->updateChangeCountDone();

    const auto target = folder.file("Saved.xml");
    ASSERT_TRUE(document->writeSafelyToURL(target, "XML", 0));
    document->waitForSave();
    EXPECT_EQ(view->calls(), (std::vector<std::string>{"Generating bin list...", "startProgress",
                                                       "Writing file...", "endProgress"}));
    EXPECT_FALSE(document->isDocumentEdited());
    ASSERT_TRUE(reel->uuid());

    const std::string written = test::readFile(target);
    EXPECT_EQ(written.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", 0), 0u);
    EXPECT_NE(written.find("\n\t<project>\n\t\t<name>Sample</name>\n"), std::string::npos) << written;
    EXPECT_NE(written.find("<uuid>" + *reel->uuid() + "</uuid>"), std::string::npos);
    if (const auto type = TLFinderInfo::typeCode(target)) {
        EXPECT_EQ(*type, TLFinderInfo::xmlType);
        EXPECT_EQ(TLFinderInfo::creatorCode(target), TLFinderInfo::finalCutProCreator);
    }

    // Saving under a new name keeps the old settings as they were.
    EXPECT_FALSE(fs::exists(*MyDocument::settingsPathForProject(path)));
    auto reopened = makeDocument();
    ASSERT_TRUE(reopened->readFromURL(target));
    EXPECT_EQ(names(reopened->dataArray()), (std::vector<std::string>{"Reel 1", "Plain"}));
    EXPECT_EQ(reopened->dataArray()->at(0)->uuid(), reel->uuid());
}

TEST_F(MyDocumentTest, SavingUnderANewNameLeavesTheOldSettingsAndASecondSaveReplacesItsBins)
{
    const auto path = writeSampleProject(folder, "Sample.xml");
    storeTree(path, {regularBin("Old tree")});
    const auto oldSettings = test::readFile(*MyDocument::settingsPathForProject(path));
    auto document = makeDocument();
    ASSERT_TRUE(document->readFromURL(path));
    auto reel = rangeItem("Reel 1", std::nullopt);
    document->setDataArray({reel});

    const auto target = folder.file("Copy.xml");
    ASSERT_TRUE(document->writeSafelyToURL(target, "XML", 1));
    document->waitForSave();
    const std::string first = test::readFile(target);
    ASSERT_TRUE(document->writeSafelyToURL(target, "XML", 1));
    document->waitForSave();
    const std::string second = test::readFile(target);

    EXPECT_EQ(test::readFile(*MyDocument::settingsPathForProject(path)), oldSettings);
    EXPECT_TRUE(fs::exists(*MyDocument::settingsPathForProject(target)));
    EXPECT_EQ(occurrences(first, "<uuid>" + *reel->uuid() + "</uuid>"), 1u);
    EXPECT_EQ(occurrences(second, "<uuid>" + *reel->uuid() + "</uuid>"), 1u);
    EXPECT_EQ(occurrences(second, "<name>Reel 1</name>"), 1u);
}

TEST_F(MyDocumentTest, ASaveWhileOneRunsIsRefusedAndQuittingWaitsForIt)
{
    const auto path = writeSampleProject(folder, "Busy.xml");
    auto document = makeDocument();
    ASSERT_TRUE(document->readFromURL(path));
    view->hold();
    ASSERT_TRUE(document->writeSafelyToURL(path, "XML"));
    ASSERT_TRUE(view->waitForCall("Generating bin list..."));

    EXPECT_TRUE(document->isSaving());
    EXPECT_FALSE(document->writeSafelyToURL(path, "XML"));
    EXPECT_FALSE(document->documentCanQuit());
    EXPECT_TRUE(document->isQuitting());
    const auto shown = alerts->alerts();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].message, "Unable to save");
    EXPECT_EQ(shown[0].informativeText, "A save operation is already in progress.");
    EXPECT_EQ(shown[0].parentWindow, view->windowHandle());

    view->release();
    document->waitForSave();
    EXPECT_FALSE(document->isSaving());
    EXPECT_TRUE(document->documentCanQuit());

    // Once quitting, a save runs to its end before the call returns.
    const auto target = folder.file("AtQuit.xml");
    EXPECT_TRUE(document->writeSafelyToURL(target, "XML"));
    EXPECT_FALSE(document->isSaving());
    EXPECT_TRUE(fs::exists(target));
    document->updateChangeCountDone();
    EXPECT_FALSE(document->documentCanQuit());
}

TEST_F(MyDocumentTest, AFailedWriteShowsTheReasonAndChangesNeitherFile)
{
    const auto path = writeSampleProject(folder, "Sample.xml");
    auto document = makeDocument();
    ASSERT_TRUE(document->readFromURL(path));
    document->setDataArray({rangeItem("Reel 1", std::nullopt)});
    document->updateChangeCountDone();

    // A target whose folder is a file, and a target that is a folder: both
    // fail even for root.
    test::writeFile(folder.file("blocker"), "a file");
    const auto underFile = folder.file("blocker") + "/Saved.xml";
    const auto isFolder = folder.file("Folder.xml");
    fs::create_directory(isFolder);
    const auto settingsPath = *MyDocument::settingsPathForProject(isFolder);
    fs::create_directories(fs::path(settingsPath).parent_path());
    test::writeFile(settingsPath, "earlier settings");

    for (const std::string &target : {underFile, isFolder}) {
        ASSERT_TRUE(document->writeSafelyToURL(target, "XML"));
        document->waitForSave();
    }
    const auto shown = alerts->alerts();
    ASSERT_EQ(shown.size(), 2u);
    for (const auto &alert : shown) {
        EXPECT_EQ(alert.message, "Error writing file");
        EXPECT_EQ(alert.parentWindow, view->windowHandle());
    }
    EXPECT_NE(shown[0].informativeText.find("Not a directory"), std::string::npos) << shown[0].informativeText;
    EXPECT_NE(shown[1].informativeText.find(isFolder), std::string::npos) << shown[1].informativeText;
    EXPECT_EQ(test::readFile(settingsPath), "earlier settings");
    EXPECT_FALSE(fs::exists(*MyDocument::settingsPathForProject(underFile)));
    EXPECT_TRUE(fs::is_directory(isFolder));
    EXPECT_TRUE(fs::is_empty(isFolder));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 3);
    EXPECT_EQ(view->calls().back(), "endProgress");
    EXPECT_TRUE(document->isDocumentEdited());
    EXPECT_FALSE(document->documentCanQuit());
}

TEST_F(MyDocumentTest, SavingAFinalCutProProjectSendsInstead)
{
    finalCutPro->projectXML = sampleProjectXML();
    const auto project = folder.file("Spots.fcp");
    test::writeFile(project, "binary project");
    auto document = makeDocument();
    ASSERT_TRUE(document->readFromURL(project));
    document->setDataArray({rangeItem("Reel 1", std::nullopt)});
    document->updateChangeCountDone();

    EXPECT_FALSE(document->writeSafelyToURL(project, "Final Cut Pro Project"));
    EXPECT_FALSE(document->isSaving());
    ASSERT_EQ(finalCutPro->sends().size(), 1u);
    EXPECT_EQ(test::readFile(project), "binary project");
    EXPECT_FALSE(document->isDocumentEdited());
    EXPECT_TRUE(fs::exists(*MyDocument::settingsPathForProject(project)));
}
