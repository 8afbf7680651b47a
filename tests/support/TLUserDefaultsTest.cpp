// Preference files: conversions, registered defaults, atomic updates and
// damaged files.
#include "TLUserDefaults.h"

#include "TLLocalPaths.h"
#include "TLPropertyList.h"
#include "TestSupport.h"
#include "Unprivileged.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

const char *const plistHeader = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";

std::string plistWith(const std::string &body)
{
    return std::string(plistHeader) + "<dict>" + body + "</dict></plist>\n";
}

} // namespace

TEST(TLUserDefaultsTest, StandardAndDomainFilesLieInThePreferencesFolderAndAreShared)
{
    const auto folder = TLLocalPaths::prefsDirectory(true);
    ASSERT_TRUE(folder);
    EXPECT_EQ(TLUserDefaults::standard()->path(), *folder + "/com.quillmoor.Corvale.plist");
    EXPECT_EQ(TLUserDefaults::forDomain("global")->path(), *folder + "/com.quillmoor.global.plist");
    EXPECT_EQ(TLUserDefaults::forDomain("qc"), TLUserDefaults::forDomain("qc"));
    EXPECT_EQ(TLUserDefaults::forDomain("../escape")->path(), "");
    EXPECT_FALSE(TLUserDefaults::forDomain("")->setBool("key", true));
}

TEST(TLUserDefaultsTest, ReadsStoredValuesWithConversions)
{
    test::TemporaryFolder folder;
    const auto path = folder.file("prefs.plist");
    test::writeFile(path, plistWith("<key>flag</key><true/><key>number</key><integer>-7</integer>"
                                    "<key>yes</key><string>yes</string><key>one</key><string>1</string>"
                                    "<key>text</key><string> 42 </string><key>word</key><string>4x</string>"
                                    "<key>real</key><real>2.9</real><key>huge</key><real>1e300</real>"
                                    "<key>when</key><date>2020-02-03T04:05:06Z</date><key>list</key><array/>"));
    TLUserDefaults defaults(path);
    EXPECT_EQ(defaults.boolForKey("flag"), true);
    EXPECT_EQ(defaults.integerForKey("flag"), 1);
    EXPECT_EQ(defaults.boolForKey("number"), true);
    EXPECT_EQ(defaults.integerForKey("number"), -7);
    EXPECT_EQ(defaults.boolForKey("yes"), true);
    EXPECT_EQ(defaults.boolForKey("one"), true);
    EXPECT_EQ(defaults.boolForKey("word"), false);
    EXPECT_EQ(defaults.integerForKey("text"), 42);
    EXPECT_EQ(defaults.integerForKey("word"), std::nullopt);
    EXPECT_EQ(defaults.integerForKey("real"), 2);
    EXPECT_EQ(defaults.integerForKey("huge"), std::nullopt);
    EXPECT_EQ(defaults.stringForKey("text"), " 42 ");
    EXPECT_EQ(defaults.stringForKey("number"), std::nullopt);
    EXPECT_EQ(defaults.dateForKey("when"), std::chrono::system_clock::from_time_t(1580702706));
    EXPECT_EQ(defaults.boolForKey("list"), std::nullopt);
    EXPECT_EQ(defaults.boolForKey("absent"), std::nullopt);
}

TEST(TLUserDefaultsTest, BinaryFileIsReadAndRewrittenAsXML)
{
    test::TemporaryFolder folder;
    const auto path = folder.file("prefs.plist");
    auto list = TLPropertyList::newDictionary();
    ASSERT_TRUE(list.setStringForKey("kept", "value"));
    ASSERT_EQ(list.writeToFile(path, TLPropertyList::Format::binary), "");
    TLUserDefaults defaults(path);
    EXPECT_EQ(defaults.stringForKey("kept"), "value");
    ASSERT_TRUE(defaults.setBool("added", true));
    EXPECT_EQ(test::readFile(path).rfind("<?xml", 0), 0u);
    EXPECT_EQ(defaults.stringForKey("kept"), "value");
    EXPECT_FALSE(std::filesystem::exists(path + ".damaged"));
}

TEST(TLUserDefaultsTest, RegisteredDefaultsAnswerOnlyForMissingKeysAndAreNotWritten)
{
    test::TemporaryFolder folder;
    const auto path = folder.file("prefs.plist");
    TLUserDefaults defaults(path);
    defaults.registerDefaults({{"showOpenDialogAtStartup", std::int64_t(1)}, {"name", std::string("x")}});
    EXPECT_EQ(defaults.integerForKey("showOpenDialogAtStartup"), 1);
    EXPECT_EQ(defaults.boolForKey("showOpenDialogAtStartup"), true);
    EXPECT_EQ(defaults.stringForKey("name"), "x");
    ASSERT_TRUE(defaults.setInteger("showOpenDialogAtStartup", 0));
    EXPECT_EQ(defaults.integerForKey("showOpenDialogAtStartup"), 0);
    EXPECT_EQ(TLPropertyList::fromFile(path).itemForKey("name"), nullptr);
    ASSERT_TRUE(defaults.removeObjectForKey("showOpenDialogAtStartup"));
    EXPECT_EQ(defaults.integerForKey("showOpenDialogAtStartup"), 1);
}

TEST(TLUserDefaultsTest, SettersKeepOtherKeysAndWriteAnXMLPropertyList)
{
    test::TemporaryFolder folder;
    const auto path = folder.file("new folder/prefs.plist");
    TLUserDefaults defaults(path);
    const auto launch = std::chrono::system_clock::from_time_t(1700000000) + std::chrono::milliseconds(700);
    ASSERT_TRUE(defaults.setBool("flag", true));
    ASSERT_TRUE(defaults.setString("name", "Caf\xc3\xa9"));
    ASSERT_TRUE(defaults.setDate("launch", launch));
    // Another writer's change between two sets survives the second one.
    TLUserDefaults other(path);
    ASSERT_TRUE(other.setInteger("count", 3));
    ASSERT_TRUE(defaults.setInteger("count2", 4));
    EXPECT_EQ(test::readFile(path).rfind("<?xml", 0), 0u);
    EXPECT_EQ(defaults.boolForKey("flag"), true);
    EXPECT_EQ(defaults.stringForKey("name"), "Caf\xc3\xa9");
    EXPECT_EQ(defaults.dateForKey("launch"), std::chrono::system_clock::from_time_t(1700000000));
    EXPECT_EQ(defaults.integerForKey("count"), 3);
    EXPECT_FALSE(defaults.setString("nul", std::string("a\0b", 3)));
    EXPECT_FALSE(defaults.setBool(std::string_view("k\0y", 3), true));
    EXPECT_TRUE(defaults.removeObjectForKey("never there"));
}

TEST(TLUserDefaultsTest, DamagedFileReadsAsEmptyAndIsMovedAsideBeforeTheFirstWrite)
{
    test::TemporaryFolder folder;
    std::string deep = plistHeader;
    for (int level = 0; level < 1000; ++level)
        deep += "<array>";
    const std::vector<std::string> damages = {"not a property list", plistHeader + std::string("<array/></plist>"), deep};
    for (const auto &damage : damages) {
        const auto path = folder.file("prefs.plist");
        test::writeFile(path, damage);
        TLUserDefaults defaults(path);
        const std::string log = test::logOf([&] {
            EXPECT_EQ(defaults.boolForKey("flag"), std::nullopt);
            EXPECT_EQ(defaults.stringForKey("flag"), std::nullopt);
        });
        EXPECT_EQ(log.find("cannot be read"), log.rfind("cannot be read")) << "one line, not one per lookup";
        EXPECT_NE(log.find("cannot be read"), std::string::npos);
        EXPECT_TRUE(defaults.removeObjectForKey("flag"));
        EXPECT_EQ(test::readFile(path), damage) << "reading or removing nothing leaves the file alone";
        ASSERT_TRUE(defaults.setBool("flag", true));
        EXPECT_EQ(test::readFile(path + ".damaged"), damage);
        EXPECT_EQ(defaults.boolForKey("flag"), true);
        std::filesystem::remove(path);
    }
}

TEST(TLUserDefaultsTest, FolderOrPipeInPlaceOfTheFileIsNeitherReadNorLost)
{
    test::TemporaryFolder folder;
    const auto path = folder.file("prefs.plist");
    std::filesystem::create_directory(path);
    test::writeFile(path + "/inside", "kept");
    TLUserDefaults defaults(path);
    EXPECT_EQ(defaults.stringForKey("x"), std::nullopt);
    ASSERT_TRUE(defaults.setString("x", "y"));
    EXPECT_EQ(test::readFile(path + ".damaged/inside"), "kept");
    EXPECT_EQ(defaults.stringForKey("x"), "y");

    const auto pipePath = folder.file("pipe.plist");
    ASSERT_EQ(::mkfifo(pipePath.c_str(), 0600), 0);
    EXPECT_EQ(TLUserDefaults(pipePath).boolForKey("x"), std::nullopt) << "must not block";
}

TEST(TLUserDefaultsTest, UnwritableFolderFailsAndKeepsTheFile)
{
    test::UnprivilegedFolder folder;
    EXPECT_EQ(test::runUnprivileged([&]() -> std::string {
                  TLUserDefaults defaults(folder.file("prefs.plist"));
                  if (!defaults.setBool("flag", true))
                      return "the first write failed";
                  ::chmod(folder.path().c_str(), 0555);
                  if (defaults.setBool("flag", false))
                      return "a write into a read-only folder succeeded";
                  return defaults.boolForKey("flag") == true ? "" : "the kept value was lost";
              }),
              "");
}

TEST(TLUserDefaultsTest, ConcurrentSettersLoseNoKey)
{
    test::TemporaryFolder folder;
    const auto defaults = std::make_shared<TLUserDefaults>(folder.file("prefs.plist"));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 10; ++i)
                defaults->setInteger("key" + std::to_string(t * 10 + i), i);
        });
    for (auto &thread : threads)
        thread.join();
    for (int k = 0; k < 40; ++k)
        EXPECT_EQ(defaults->integerForKey("key" + std::to_string(k)), k % 10);
}
