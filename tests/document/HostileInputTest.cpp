// Projects, paths and settings files made to hurt: each must open, sort and
// save to a clear result, without a crash, a hang or a change to files the
// user did not ask to write.
#include "MyDocument.h"

#include "ProjectFixtures.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLLocalPaths.h"
#include "TLMediaItem.h"
#include "TLPropertyList.h"
#include "TLRegularBin.h"
#include "TLSmartBin.h"
#include "TLSmartBinParser.h"
#include "TLSmartRangeItem.h"
#include "TLSmartRangeParser.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Snapshot = std::map<std::string, std::string>;

// Every file below `folder` with its bytes (folders as a marker), so that
// a test can tell whether anything changed.
Snapshot snapshotOf(const fs::path &folder)
{
    Snapshot files;
    std::error_code error;
    if (!fs::exists(folder, error))
        return files;
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        const std::string key = entry.path().string();
        files[key] = entry.is_directory() ? std::string("<folder>") : test::readFile(entry.path());
    }
    return files;
}

std::string clipXML(const std::string &name, const std::string &uuid, const std::string &scene)
{
    return "<clip id=\"" + uuid + "\"><name>" + name + "</name><uuid>" + uuid + "</uuid>"
           "<media><video><track><clipitem><file id=\"f-" + uuid + "\"><pathurl>file://localhost/Media/" + uuid
           + ".mov</pathurl></file></clipitem></track></video></media>"
             "<logginginfo><scene>" + scene + "</scene></logginginfo></clip>";
}

std::string projectXML(const std::string &children, const std::string &doctype = "")
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + doctype
           + "<xmeml version=\"5\"><project><name>Hostile</name><children>" + children
           + "</children></project></xmeml>\n";
}

// A smart bin of the clips whose name contains `text`.
std::shared_ptr<TLSmartBin> smartBin(const std::string &name, const std::string &text)
{
    auto bin = TLSmartBin::create();
    bin->setBinName(name);
    bin->setMatchType(2);
    bin->setFilterArray({TLSmartBinFilter::create(0, 0, text)});
    return bin;
}

class HostileInputTest : public testing::Test
{
protected:
    HostileInputTest()
    {
        TLAlert::setPresenter(alerts);
        std::error_code ignored;
        fs::remove_all(settingsFolder(), ignored);
    }
    ~HostileInputTest() override { TLAlert::setPresenter(nullptr); }

    static std::string settingsFolder()
    {
        return *TLLocalPaths::appSupportDirectory(true) + "/Quillmoor/Tessaline/Corvale/Project Settings";
    }

    // Opens the project, adds a smart bin (clips named with `text`) and a
    // smart range by scene as the commands would, and saves to `target`.
    // Returns the document for further checks.
    std::unique_ptr<MyDocument> openSortAndSave(const std::string &project, const std::string &text,
                                                const std::string &target)
    {
        auto document = std::make_unique<MyDocument>();
        EXPECT_TRUE(document->readFromURL(project));
        const auto controller = document->mediaController();
        if (!controller)
            return document;
        auto bin = smartBin("Found", text);
        bin->setChildren(
            toNodes(TLSmartBinParser::arrayFromFilterArray(*bin->filterArray(), "Found", 2, *controller)));
        TLNodeList tree{bin};
        for (const auto &item : TLSmartRangeParser::arrayForCriteria(7, *controller))
            tree.push_back(item);
        document->setDataArray(tree);
        EXPECT_TRUE(document->writeToURLOnThread({target, 0}));
        return document;
    }

    template <typename Items>
    static TLNodeList toNodes(const Items &items)
    {
        return TLNodeList(items.begin(), items.end());
    }

    test::TemporaryFolder folder;
    std::shared_ptr<test::RecordingAlertPresenter> alerts = std::make_shared<test::RecordingAlertPresenter>();
};

} // namespace

TEST_F(HostileInputTest, EntitiesAreNeitherExpandedNorReadWhenSortingAndSaving)
{
    const auto secret = folder.file("secret.txt");
    test::writeFile(secret, "TOP-SECRET");
    std::string doctype = "<!DOCTYPE xmeml [\n<!ENTITY lol0 \"lol\">\n";
    for (int level = 1; level < 12; ++level) {
        doctype += "<!ENTITY lol" + std::to_string(level) + " \"";
        for (int i = 0; i < 10; ++i)
            doctype += "&lol" + std::to_string(level - 1) + ";";
        doctype += "\">\n";
    }
    doctype += "<!ENTITY secret SYSTEM \"file://" + secret + "\">\n]>\n";
    const std::string original =
        projectXML(clipXML("&lol11;", "A1", "&secret;") + clipXML("Plain", "A2", "1"), doctype);
    const auto project = folder.file("Laughs.xml");
    test::writeFile(project, original);
    const auto saved = folder.file("Saved.xml");

    const auto document = openSortAndSave(project, "lol", saved);
    ASSERT_NE(document->mediaController(), nullptr);
    EXPECT_EQ(test::readFile(project), original);
    EXPECT_EQ(test::readFile(secret), "TOP-SECRET");
    const std::string written = test::readFile(saved);
    EXPECT_EQ(written.find("TOP-SECRET"), std::string::npos);
    EXPECT_EQ(written.find("lollol"), std::string::npos);
    EXPECT_LT(written.size(), 64u * 1024u);
    // The name is the entity reference itself, kept as text.
    const auto found = document->dataArray()->at(0)->children();
    ASSERT_EQ(found->size(), 1u);
    EXPECT_EQ(found->at(0)->displayName(), "&lol11;");
    EXPECT_TRUE(alerts->alerts().empty());
}

TEST_F(HostileInputTest, AHundredThousandLevelsOpenSortGenerateAndSave)
{
    constexpr int depth = 100000;
    std::string children;
    children.reserve(std::size_t(depth) * 25 + 1024);
    for (int level = 0; level < depth; ++level)
        children += "<bin><children>";
    children += clipXML("Deep shot", "D1", "Deep");
    for (int level = 0; level < depth; ++level)
        children += "</children></bin>";
    // A clip whose logged scene is itself a hundred thousand levels deep.
    std::string scene;
    for (int level = 0; level < depth; ++level)
        scene += "<b>";
    scene += "Nested";
    for (int level = 0; level < depth; ++level)
        scene += "</b>";
    children += clipXML("Shallow shot", "S1", scene);
    const std::string original = projectXML(children);
    const auto project = folder.file("Deep.xml");
    test::writeFile(project, original);
    const auto saved = folder.file("DeepSaved.xml");

    auto document = openSortAndSave(project, "shot", saved);
    ASSERT_NE(document->mediaController(), nullptr);
    EXPECT_EQ(document->mediaController()->clips().size(), 2u);
    const auto tree = document->dataArray();
    ASSERT_EQ(tree->size(), 3u);
    EXPECT_EQ(tree->at(0)->children()->size(), 2u);
    EXPECT_EQ(tree->at(1)->displayName(), "Deep");
    // The scene is read from the text right inside it; markup is no scene.
    EXPECT_EQ(tree->at(2)->displayName(), "Unspecified");
    EXPECT_NE(document->generateXMLOutput().find("<name>Found</name>"), std::string::npos);
    EXPECT_EQ(test::readFile(project), original);

    // The saved project reopens with the same clips and restores the bins,
    // the smart ones resolved again over the deep tree.
    const auto written = test::readFile(saved);
    EXPECT_LT(written.size(), original.size() * 4);
    MyDocument reopened;
    ASSERT_TRUE(reopened.readFromURL(saved));
    EXPECT_EQ(reopened.mediaController()->clips().size(), 6u) << "two clips and their copies in four bins";
    ASSERT_EQ(reopened.dataArray()->size(), 3u);
    EXPECT_EQ(reopened.dataArray()->at(0)->children()->size(), 6u) << "each copy matches again";
    EXPECT_TRUE(alerts->alerts().empty());
}

TEST_F(HostileInputTest, AClipNameOfSeveralMegabytesSurvivesTheRoundTrip)
{
    const std::string name = "Huge " + std::string(8u * 1024u * 1024u, 'x');
    const std::string original = projectXML(clipXML(name, "H1", "1") + clipXML("Small", "H2", "1"));
    const auto project = folder.file("Huge.xml");
    test::writeFile(project, original);
    const auto saved = folder.file("HugeSaved.xml");

    auto document = openSortAndSave(project, "huge", saved);
    const auto tree = document->dataArray();
    ASSERT_EQ(tree->at(0)->children()->size(), 1u);
    EXPECT_EQ(tree->at(0)->children()->at(0)->displayName(), name);
    EXPECT_EQ(test::readFile(project), original);

    MyDocument reopened;
    ASSERT_TRUE(reopened.readFromURL(saved));
    ASSERT_EQ(reopened.dataArray()->size(), 2u);
    ASSERT_EQ(reopened.dataArray()->at(0)->children()->size(), 3u) << "the clip and its copies in both bins";
    EXPECT_EQ(reopened.dataArray()->at(0)->children()->at(0)->displayName(), name);
    EXPECT_TRUE(alerts->alerts().empty());
}

TEST_F(HostileInputTest, AbsurdPathsAndFilesThatAreNotXMLChangeNothing)
{
    const auto project = test::fixtures::writeSampleProject(folder, "Sample.xml");
    const Snapshot before = snapshotOf(folder.path());

    // A path of 8 MiB, one without any folder, one whose last name is far
    // beyond what a file system takes, and one with a NUL in it.
    const std::string longName(4096, 'n');
    const std::vector<std::string> paths = {
        folder.path().string() + "/" + std::string(8u * 1024u * 1024u, 'a'),
        std::string(1u * 1024u * 1024u, 'b'),
        folder.file(longName + ".xml"),
        folder.file("Sample.xml") + std::string(1, '\0') + "x",
    };
    for (const auto &path : paths) {
        MyDocument document;
        EXPECT_FALSE(document.readFromURL(path)) << path.size();
        EXPECT_TRUE(document.dataArray()->empty());
        document.setDataArray({smartBin("Any", "")});
        EXPECT_FALSE(document.storeSettingsForProject(path));
        EXPECT_FALSE(document.writeToURLOnThread({path, 0}));
    }
    const auto shown = alerts->alerts();
    ASSERT_EQ(shown.size(), paths.size());
    for (const auto &alert : shown) {
        EXPECT_EQ(alert.message, "Error writing file");
        EXPECT_FALSE(alert.informativeText.empty());
    }

    // Files that are not XML open without a project and stay as they were.
    const std::vector<std::string> notXML = {
        "",
        "\x89PNG\r\n\x1a\n\0\0\0\rIHDR",
        "plain text, no markup at all",
        std::string("\xff\xfe<\0x\0m\0", 8),
        "<xmeml><project><children><clip>",
    };
    int index = 0;
    for (const auto &contents : notXML) {
        const auto path = folder.file("not-xml-" + std::to_string(index++) + ".xml");
        test::writeFile(path, contents);
        MyDocument document;
        EXPECT_TRUE(document.readFromURL(path));
        ASSERT_NE(document.mediaController(), nullptr);
        EXPECT_EQ(document.mediaController()->xmlDoc(), nullptr);
        EXPECT_TRUE(document.mediaController()->clips().empty());
        document.setDataArray({smartBin("Any", "")});
        EXPECT_NE(document.generateXMLOutput().find("<name>Any</name>"), std::string::npos);
        EXPECT_EQ(test::readFile(path), contents);
        fs::remove(path);
    }
    EXPECT_EQ(snapshotOf(folder.path()), before);
    EXPECT_EQ(test::readFile(project), test::fixtures::sampleProjectXML());
    EXPECT_TRUE(snapshotOf(settingsFolder()).empty());
}

namespace {

std::string uid(long long value)
{
    return "<dict><key>CF$UID</key><integer>" + std::to_string(value) + "</integer></dict>";
}

// An XML keyed archive of `objects` (after "$null") with the root at `root`.
std::string archiveXML(const std::string &objects, long long root = 1)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
           "<key>$archiver</key><string>NSKeyedArchiver</string><key>$version</key><integer>100000</integer>"
           "<key>$top</key><dict><key>root</key>" + uid(root) + "</dict>"
           "<key>$objects</key><array><string>$null</string>" + objects + "</array></dict></plist>";
}

std::string listOf(const std::string &items, long long classUid)
{
    return "<dict><key>NS.objects</key><array>" + items + "</array><key>$class</key>" + uid(classUid) + "</dict>";
}

std::string classEntry(const std::string &name)
{
    return "<dict><key>$classname</key><string>" + name + "</string><key>$classes</key><array><string>" + name
           + "</string></array></dict>";
}

// A regular bin: name at `name`, children list at `children`, parent `parent`.
std::string regularBinEntry(long long name, long long children, long long parent, long long classUid)
{
    return "<dict><key>$0</key>" + uid(name) + "<key>$1</key>" + uid(children) + "<key>$2</key>" + uid(parent)
           + "<key>$class</key>" + uid(classUid) + "</dict>";
}

std::string settingsWithArchive(const std::string &archive)
{
    auto settings = TLPropertyList::newDictionary();
    settings.setDataForKey("data", archive);
    return *settings.toXML();
}

} // namespace

TEST_F(HostileInputTest, SettingsWithCyclesOrStrayReferencesOpenEmptyAndStayUntouched)
{
    const auto project = test::fixtures::writeSampleProject(folder, "Cycles.xml");
    const auto settingsPath = *MyDocument::settingsPathForProject(project);
    fs::create_directories(fs::path(settingsPath).parent_path());

    // Objects: 1 top list, 2 bin A, 3 its children, 4 bin B, 5 B's
    // children, 6 a name, 7 the list class, 8 the bin class.
    const std::string listClass = classEntry("NSMutableArray");
    const std::string binClass = classEntry("TLRegularBin");
    const auto twoBins = [&](const std::string &childrenOfA, const std::string &childrenOfB, long long parentOfB,
                             long long root = 1) {
        return archiveXML(listOf(uid(2), 7) + regularBinEntry(6, 3, 0, 8) + listOf(childrenOfA, 7)
                              + regularBinEntry(6, 5, parentOfB, 8) + listOf(childrenOfB, 7) + "<string>Bin</string>"
                              + listClass + binClass,
                          root);
    };
    const std::vector<std::pair<std::string, std::string>> archives = {
        {"A holds B holds A", twoBins(uid(4), uid(2), 2)},
        {"a list that holds its own list", twoBins(uid(3), "", 2)},
        {"a class that is its own object", archiveXML(listOf("", 1))},
        {"root out of range", twoBins(uid(4), "", 2, 50)},
        {"child out of range", twoBins(uid(4000000000LL), "", 2)},
        {"negative reference", twoBins(uid(-1), "", 2)},
        {"name out of range", archiveXML(listOf(uid(2), 4) + regularBinEntry(999, 0, 0, 5) + "<string>x</string>"
                                         + listClass + binClass)},
        {"root is $null", archiveXML(listOf("", 2) + listClass, 0)},
        {"root beyond the objects", archiveXML(listOf("", 2) + listClass, 12345)},
    };
    for (const auto &[label, archive] : archives) {
        const std::string contents = settingsWithArchive(archive);
        test::writeFile(settingsPath, contents);
        {
            MyDocument document;
            EXPECT_TRUE(document.readFromURL(project)) << label;
            EXPECT_TRUE(document.dataArray()->empty()) << label;
        }
        EXPECT_EQ(test::readFile(settingsPath), contents) << label;
    }
    // A parent reference that names anything but the holder (the child
    // itself, nothing at all) is repaired, and the tree kept.
    for (const long long parentOfB : {4LL, 99LL}) {
        test::writeFile(settingsPath, settingsWithArchive(twoBins(uid(4), "", parentOfB)));
        MyDocument document;
        EXPECT_TRUE(document.readFromURL(project));
        ASSERT_EQ(document.dataArray()->size(), 1u) << parentOfB;
        const TLBinNodePtr holder = document.dataArray()->front();
        ASSERT_EQ(holder->children()->size(), 1u) << parentOfB;
        EXPECT_EQ(holder->children()->front()->parent(), holder) << parentOfB;
    }
    // The same shapes as a binary archive with real UIDs.
    auto binary = TLPropertyList::fromBytes(twoBins(uid(4), uid(2), 2));
    ASSERT_TRUE(binary);
    const std::string contents = settingsWithArchive(*binary.toBinary());
    test::writeFile(settingsPath, contents);
    MyDocument document;
    EXPECT_TRUE(document.readFromURL(project));
    EXPECT_TRUE(document.dataArray()->empty());
    EXPECT_EQ(test::readFile(settingsPath), contents);
    EXPECT_TRUE(alerts->alerts().empty());
}

TEST_F(HostileInputTest, ASettingsFileThatIsAFolderSurvivesOpeningAndSaving)
{
    const auto project = test::fixtures::writeSampleProject(folder, "Folder.xml");
    const auto settingsPath = *MyDocument::settingsPathForProject(project);
    fs::create_directories(settingsPath);
    test::writeFile(settingsPath + "/inside.txt", "kept");
    const Snapshot before = snapshotOf(settingsFolder());

    MyDocument document;
    EXPECT_TRUE(document.readFromURL(project));
    EXPECT_TRUE(document.dataArray()->empty());
    document.setDataArray({smartBin("Any", "")});
    EXPECT_FALSE(document.storeSettingsForProject(project));
    // The project itself is written; only its settings cannot be, and the
    // user is told why, the document keeping its unsaved mark.
    document.updateChangeCountDone();
    EXPECT_TRUE(document.writeToURLOnThread({project, 0}));
    EXPECT_NE(test::readFile(project).find("<name>Any</name>"), std::string::npos);
    EXPECT_EQ(snapshotOf(settingsFolder()), before);
    ASSERT_EQ(alerts->alerts().size(), 1u);
    EXPECT_EQ(alerts->alerts()[0].message, "The bins could not be kept");
    EXPECT_NE(alerts->alerts()[0].informativeText.find(settingsPath), std::string::npos);
    EXPECT_NE(document.settingsFailureOfLastSave(), "");
    EXPECT_TRUE(document.isDocumentEdited());
}
