// The commands end to end: arguments, refusals, sorting and showing the
// sample project, saving again, recipes, dry runs and bin paths.
#include "CliCommandLine.h"

#include "MyDocument.h"
#include "ProjectFixtures.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <sys/wait.h>

namespace {

struct Outcome
{
    int status = -1;
    std::string out;
    std::string err;
};

Outcome corvale(const std::vector<std::string> &arguments)
{
    std::ostringstream out;
    std::ostringstream err;
    const int status = CliCommandLine::run(arguments, out, err);
    return {status, out.str(), err.str()};
}

std::string settingsFor(const std::string &project)
{
    return MyDocument::settingsPathForProject(project).value_or("");
}

bool exists(const std::string &path)
{
    return std::filesystem::exists(path);
}

// Every bin identifier of a written project, as often as it occurs.
std::vector<std::string> binUuidsIn(const std::string &path)
{
    pugi::xml_document document;
    EXPECT_TRUE(document.load_file(path.c_str()));
    std::vector<std::string> uuids;
    for (const auto &node : document.select_nodes("//bin/uuid"))
        uuids.push_back(node.node().text().get());
    return uuids;
}

// The identifier of every top-level node shown for a project, by name.
std::map<std::string, std::string> shownUuids(const std::string &project)
{
    const Outcome show = corvale({"show", project, "--json"});
    EXPECT_EQ(show.status, 0) << show.err;
    std::map<std::string, std::string> uuids;
    for (const auto &node : nlohmann::json::parse(show.out))
        uuids[node["name"].get<std::string>()] = node["uuid"].is_null() ? "" : node["uuid"].get<std::string>();
    return uuids;
}

class CliCommandLineTest : public ::testing::Test
{
protected:
    void SetUp() override { TLAlert::setPresenter(m_alerts); }
    void TearDown() override { TLAlert::setPresenter(nullptr); }

    // A fresh copy of the shipped sample under `name`, with no settings
    // left over for that name.
    std::string copySample(const std::string &name)
    {
        const std::string path = m_folder.file(name);
        std::filesystem::copy_file(CORVALE_EXAMPLES_DIR "/sample-project.xml", path);
        std::filesystem::remove(settingsFor(path));
        return path;
    }

    std::vector<std::string> alertMessages() const
    {
        std::vector<std::string> messages;
        for (const auto &alert : m_alerts->alerts())
            messages.push_back(alert.message);
        return messages;
    }

    std::shared_ptr<test::RecordingAlertPresenter> m_alerts = std::make_shared<test::RecordingAlertPresenter>();
    test::TemporaryFolder m_folder;
};

} // namespace

TEST_F(CliCommandLineTest, ArgumentErrorsExitOneWithOneLineAndTouchNothing)
{
    const std::string project = copySample("Arguments.xml");
    const std::string before = test::readFile(project);
    const std::vector<std::vector<std::string>> cases = {
        {},
        {"unknown"},
        {"show"},
        {"sort"},
        {"sort", project, "--frobnicate"},
        {"sort", project, "--rename", "A"},
        {"sort", project, "--filter", "name contains a"},
        {"sort", project, "--smart-bin", "S", "--bin", "B", "--match", "any"},
        {"sort", project, "--smart-bin", "S", "--match", "any", "--match", "all"},
        {"sort", project, "--smart-bin", "S", "--filter", "nam contains a"},
        {"sort", project, "--smart-bin", "S", "--match", "most"},
        {"sort", project, "--smart-range", "colour"},
        {"sort", project, "--range", "Reel ]1-3["},
        {"sort", project, "--bin", ""},
        {"sort", project, "--json"},
        {"sort", project, "--recipe", m_folder.file("missing.json")},
        {"sort", m_folder.file("missing.xml"), "--bin", "A"},
        {"sort", m_folder.path().string(), "--bin", "A"},
    };
    for (const auto &arguments : cases) {
        const Outcome run = corvale(arguments);
        const std::string shown = arguments.empty() ? "(none)" : arguments.back();
        EXPECT_EQ(run.status, CliCommandLine::failure) << shown;
        EXPECT_EQ(run.err.rfind("corvale: ", 0), 0u) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_EQ(run.out, "") << shown;
    }
    EXPECT_EQ(test::readFile(project), before);
    EXPECT_FALSE(exists(settingsFor(project)));
    EXPECT_TRUE(m_alerts->alerts().empty());
}

TEST_F(CliCommandLineTest, RefusedEditExitsTwoAndWritesNothing)
{
    const std::string project = copySample("Refused.xml");
    const std::string before = test::readFile(project);
    const Outcome smartBin = corvale({"sort", project, "--bin", "Dailies", "--in", "Dailies", "--smart-bin", "S",
                                  "--filter", "name contains drone"});
    EXPECT_EQ(smartBin.status, CliCommandLine::refusal);
    EXPECT_NE(smartBin.err.find("--smart-bin \"S\" was refused; nothing was written"), std::string::npos) << smartBin.err;
    const Outcome bin = corvale({"sort", project, "--range", "Reel [1-2]", "--in", "Reel 1", "--bin", "X"});
    EXPECT_EQ(bin.status, CliCommandLine::refusal);
    const Outcome empty = corvale({"sort", project, "--smart-bin", "No Filters"});
    EXPECT_EQ(empty.status, CliCommandLine::refusal);
    EXPECT_EQ(alertMessages(), (std::vector<std::string>{"Smart bins can only be added to regular bins",
                                                         "Bins can only be added to regular bins",
                                                         "Unable to create smart bin"}));
    EXPECT_EQ(test::readFile(project), before);
    EXPECT_FALSE(exists(settingsFor(project)));
}

TEST_F(CliCommandLineTest, SortThenShowRoundTripsTheSample)
{
    const std::string project = copySample("RoundTrip.xml");
    const Outcome sort = corvale({"sort", project, "--range", "Reel [1-3]", "--smart-bin", "Drone and Archive",
                              "--match", "any", "--filter", "name contains drone", "--filter",
                              "name contains archive", "--smart-range", "scene"});
    ASSERT_EQ(sort.status, 0) << sort.err;
    EXPECT_EQ(sort.out + sort.err, "");
    EXPECT_TRUE(exists(settingsFor(project)));

    const Outcome show = corvale({"show", project, "--json"});
    ASSERT_EQ(show.status, 0) << show.err;
    const auto tree = nlohmann::json::parse(show.out);
    std::multiset<std::string> kinds;
    for (const auto &node : tree) {
        kinds.insert(node["kind"].get<std::string>());
        EXPECT_TRUE(node["uuid"].is_string()) << node["name"];
    }
    EXPECT_EQ(kinds.count("range"), 3u);
    EXPECT_EQ(kinds.count("smart-bin"), 1u);
    EXPECT_EQ(kinds.count("smart-range"), 15u); // the scenes of the sample, "Unspecified" included
    EXPECT_EQ(tree[0]["name"], "Reel 1");
    EXPECT_EQ(tree[3]["filters"][1]["value"], "archive");
    // Every written bin (the project's own four and the new ones) once.
    const auto uuids = binUuidsIn(project);
    EXPECT_EQ(std::set<std::string>(uuids.begin(), uuids.end()).size(), uuids.size());
    EXPECT_EQ(uuids.size(), 5u + 3u + 1u + 15u);

    const Outcome text = corvale({"show", project});
    EXPECT_NE(text.out.find("range \"Reel 1\", uuid " + tree[0]["uuid"].get<std::string>() + "\n"), std::string::npos)
        << text.out;
}

TEST_F(CliCommandLineTest, SecondSortReplacesTheBinsOfTheFirst)
{
    const std::string project = test::fixtures::writeSampleProject(m_folder, "Second.xml");
    std::filesystem::remove(settingsFor(project));
    ASSERT_EQ(corvale({"sort", project, "--range", "Reel [1-2]", "--smart-bin", "Sun", "--filter",
                       "name contains sun", "--smart-range", "scene"})
                  .status,
              0);
    const auto first = shownUuids(project);
    ASSERT_EQ(first.size(), 5u);

    const Outcome again = corvale({"sort", project, "--range", "Take [1-2]"});
    ASSERT_EQ(again.status, 0) << again.err;
    const auto second = shownUuids(project);
    for (const auto &[name, uuid] : first)
        EXPECT_EQ(second.at(name), uuid) << name;
    EXPECT_EQ(second.size(), 7u);
    const auto uuids = binUuidsIn(project);
    EXPECT_EQ(std::set<std::string>(uuids.begin(), uuids.end()).size(), uuids.size());
    EXPECT_EQ(uuids.size(), 2u + 7u);
}

TEST_F(CliCommandLineTest, EveryBinTheMergeLeavesOutIsNamedWithItsReason)
{
    const std::string tail = " \"&\" or \"<\" and is not well-formed XML) and will be gone when the project is next "
                             "opened\n";
    const struct
    {
        std::vector<std::string> edits;
        std::string notes;
        std::size_t binsWritten;
    } cases[] = {
        {{"--smart-bin", "Rock & Roll", "--filter", "name contains drone", "--range", "Reel [1-2]"},
         "corvale: note: the bin \"Rock & Roll\" could not be merged into the project (its name holds" + tail, 2},
        {{"--bin", "R&D"}, "corvale: note: the bin \"R&D\" could not be merged into the project (its name holds" + tail,
         0},
        {{"--bin", "Top", "--in", "Top", "--bin", "A<B"},
         "corvale: note: the bin \"Top\" could not be merged into the project (the name of \"Top/A<B\" inside it "
         "holds" + tail,
         0},
        // The sample already holds "Selects": a copy left out is not one more.
        {{"--bin", "Selects", "--in", "Selects", "--bin", "R&D"},
         "corvale: note: the bin \"Selects\" could not be merged into the project (the name of \"Selects/R&D\" "
         "inside it holds" + tail,
         0},
    };
    for (const auto &[edits, notes, binsWritten] : cases) {
        SCOPED_TRACE(edits[1]);
        const std::string project = copySample("LeftOut.xml");
        const std::size_t binsBefore = binUuidsIn(project).size();
        std::vector<std::string> arguments = {"sort", project};
        arguments.insert(arguments.end(), edits.begin(), edits.end());
        const Outcome run = corvale(arguments);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, notes);
        EXPECT_EQ(binUuidsIn(project).size(), binsBefore + binsWritten);
        std::filesystem::remove(project);
    }
}

TEST_F(CliCommandLineTest, ClipsWithoutAnIdentifierAreCountedInShowAndNotedAfterASort)
{
    test::ProjectBuilder builder;
    builder.addClip({.id = "a", .name = "Drone 1", .uuid = "A1"})
        .addClip({.id = "b", .name = "Drone 2"})
        .addClip({.id = "c", .name = "Drone 3"})
        .addClip({.id = "d", .name = "Street"});
    const std::string project = builder.writeTo(m_folder, "Newsroom.xml");
    const Outcome run = corvale({"sort", project, "--smart-bin", "Drones", "--filter", "name contains drone",
                                 "--smart-bin", "Streets", "--filter", "name contains street"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "corvale: note: 2 clips of the bin \"Drones\" could not be written into it (they have no uuid "
                       "of their own in the project)\n"
                       "corvale: note: 1 clip of the bin \"Streets\" could not be written into it (it has no uuid of "
                       "its own in the project)\n");

    const auto tree = nlohmann::json::parse(corvale({"show", project, "--json"}).out);
    ASSERT_EQ(tree.size(), 2u);
    // The sort wrote the clip with an identifier into the bin, where the
    // resolvers find it once more.
    EXPECT_EQ(tree[0]["clips"], 4);
    EXPECT_EQ(tree[0]["clipsWithoutUUID"], 2);
    EXPECT_EQ(tree[1]["clipsWithoutUUID"], 1);
    EXPECT_NE(corvale({"show", project}).out.find("smart-bin \"Drones\", 4 clips (3 distinct), 2 without uuid, uuid "),
              std::string::npos);
}

TEST_F(CliCommandLineTest, DryRunPrintsTheTreeAndWritesNothing)
{
    const std::string project = copySample("DryRun.xml");
    const std::string before = test::readFile(project);
    const Outcome run = corvale({"sort", project, "--dry-run", "--json", "--range", "Reel [1-3]", "--remove", "Reel 2",
                             "--bin", "Selects", "--in", "Selects", "--bin", "Old", "--rename", "Selects/Old", "New"});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto tree = nlohmann::json::parse(run.out);
    // Removing one bin of a series removes the whole series.
    ASSERT_EQ(tree.size(), 1u);
    EXPECT_EQ(tree[0]["name"], "Selects");
    EXPECT_EQ(tree[0]["children"][0]["name"], "New");
    EXPECT_EQ(test::readFile(project), before);
    EXPECT_FALSE(exists(settingsFor(project)));
}

TEST_F(CliCommandLineTest, RecipeEditsTakeThePlaceOfTheOption)
{
    const std::string project = copySample("Recipe.xml");
    const std::string output = m_folder.file("Recipe Sorted.xml");
    std::filesystem::remove(settingsFor(output));
    const std::string before = test::readFile(project);
    const Outcome run = corvale({"sort", project, "-o", output, "--range", "Cam [A,B]", "--recipe",
                             CORVALE_EXAMPLES_DIR "/sample-recipe.json", "--bin", "Last"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(test::readFile(project), before);
    EXPECT_FALSE(exists(settingsFor(project)));
    EXPECT_TRUE(exists(settingsFor(output)));

    const auto tree = nlohmann::json::parse(corvale({"show", output, "--json"}).out);
    ASSERT_GE(tree.size(), 3u);
    EXPECT_EQ(tree.front()["name"], "Cam A");
    EXPECT_EQ(tree.back()["name"], "Last");
    const auto selects = std::find_if(tree.begin(), tree.end(), [](const auto &node) { return node["name"] == "Selects"; });
    ASSERT_NE(selects, tree.end());
    EXPECT_FALSE((*selects)["children"].empty());
    EXPECT_EQ((*selects)["children"][0]["kind"], "smart-range");
}

TEST_F(CliCommandLineTest, ARecipeStartsAtTheTopAndKeepsItsSelectionToItself)
{
    const std::string project = copySample("Scoped.xml");
    const std::string recipe = m_folder.file("scoped.json");
    test::writeFile(recipe, R"({"edits": [{"bin": "Inner"}, {"in": "Inner"}, {"bin": "Deep"}]})");
    const Outcome run = corvale({"sort", project, "--dry-run", "--bin", "Outer", "--in", "Outer", "--recipe", recipe,
                                 "--bin", "After"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "bin \"Outer\"\n"
                       "  bin \"After\"\n"
                       "bin \"Inner\"\n"
                       "  bin \"Deep\"\n");
}

TEST_F(CliCommandLineTest, AmbiguousAndMissingBinPathsAreClearErrors)
{
    const std::string project = copySample("Paths.xml");
    const std::string before = test::readFile(project);
    const Outcome ambiguous = corvale({"sort", project, "--bin", "Dup", "--bin", "Dup", "--in", "Dup", "--bin", "X"});
    EXPECT_EQ(ambiguous.status, CliCommandLine::failure);
    EXPECT_EQ(ambiguous.err, "corvale: the bin path \"Dup\" is ambiguous: 2 bins are named \"Dup\" at the top level; "
                             "nothing was written\n");
    const Outcome missing = corvale({"sort", project, "--bin", "Dailies", "--remove", "Dailies/Reel 1"});
    EXPECT_EQ(missing.status, CliCommandLine::failure);
    EXPECT_EQ(missing.err, "corvale: no bin \"Reel 1\" in \"Dailies\"; nothing was written\n");
    const Outcome removed = corvale({"sort", project, "--bin", "A", "--in", "A", "--remove", "A", "--bin", "B"});
    EXPECT_EQ(removed.status, CliCommandLine::failure);
    EXPECT_NE(removed.err.find("\"A\" is no longer in the tree"), std::string::npos) << removed.err;
    EXPECT_EQ(test::readFile(project), before);
    EXPECT_FALSE(exists(settingsFor(project)));
}

TEST_F(CliCommandLineTest, ProjectsThatCannotBeSortedAreRefusedBeforeAnyEdit)
{
    const std::string garbled = m_folder.file("Garbled.xml");
    test::writeFile(garbled, "<xmeml><project>");
    const std::string plain = m_folder.file("Plain.xml");
    test::writeFile(plain, "<notes><note/></notes>");
    const std::string sequence = test::fixtures::writeSequenceOnlyProject(m_folder, "Sequence.xml");
    EXPECT_EQ(corvale({"show", garbled}).err, "corvale: cannot open " + garbled + ": it is not well-formed XML (Start-end tags mismatch at offset 15)\n");
    EXPECT_NE(corvale({"sort", plain, "--bin", "A"}).err.find("holds no xmeml project"), std::string::npos);
    EXPECT_EQ(corvale({"sort", sequence, "--bin", "A"}).status, CliCommandLine::failure);
    EXPECT_EQ(alertMessages(), std::vector<std::string>{"This file is incompatible with Corvale"});
    EXPECT_EQ(test::readFile(plain), "<notes><note/></notes>");
}

TEST_F(CliCommandLineTest, AFailedWriteLeavesProjectAndSettingsAlone)
{
    const std::string project = copySample("Unwritable.xml");
    const std::string output = m_folder.file("no such folder/out.xml");
    const Outcome run = corvale({"sort", project, "-o", output, "--range", "Reel [1-2]"});
    EXPECT_EQ(run.status, CliCommandLine::failure);
    EXPECT_NE(run.err.find("cannot write " + output), std::string::npos) << run.err;
    EXPECT_EQ(alertMessages(), std::vector<std::string>{"Error writing file"});
    EXPECT_FALSE(exists(settingsFor(output)));
    EXPECT_FALSE(exists(settingsFor(project)));
}

// Only the program shows what reaches the terminal: its exit status and the
// alert on standard error.
TEST_F(CliCommandLineTest, SettingsThatCannotBeKeptExitOneAndSaySoAfterTheProjectIsWritten)
{
    const std::string project = copySample("Blocked.xml");
    std::filesystem::create_directories(settingsFor(project)); // a folder where the file must go
    const Outcome run = corvale({"sort", project, "--range", "Reel [1-2]"});
    EXPECT_EQ(run.status, CliCommandLine::failure);
    EXPECT_NE(run.err.find("corvale: " + project + " was written with its bins, but the bin tree could not be kept ("),
              std::string::npos)
        << run.err;
    EXPECT_EQ(alertMessages(), std::vector<std::string>{"The bins could not be kept"});
    EXPECT_NE(test::readFile(project).find("<name>Reel 2</name>"), std::string::npos);
}

TEST_F(CliCommandLineTest, TheProgramPrintsTheRefusalAlertOnStandardError)
{
    const std::string project = copySample("Program.xml");
    const std::string err = m_folder.file("err.txt");
    const std::string command = "'" CORVALE_PROGRAM "' sort '" + project +
                                "' --bin Dailies --in Dailies --smart-bin S --filter 'name contains drone' 2>'" +
                                err + "' >/dev/null";
    const int raw = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(raw));
    EXPECT_EQ(WEXITSTATUS(raw), 2);
    EXPECT_EQ(test::readFile(err), "Smart bins can only be added to regular bins\n"
                                   "You cannot add a smart bin to a range, smart bin, smart range or movie clip.\n"
                                   "corvale: --smart-bin \"S\" was refused; nothing was written\n");
    EXPECT_FALSE(exists(settingsFor(project)));
}

TEST_F(CliCommandLineTest, SortingAgainWithoutEditsKeepsEveryBinOnce)
{
    // Text with "&" and a carriage return is what a bin carries over from its
    // earlier self on the next save.
    test::ProjectBuilder builder("Cartoons");
    const std::vector<std::pair<std::string, std::string>> clips = {
        {"Tom & Jerry", "1"}, {"Line one\r\nLine two", "2"}, {"Plain", "1"}};
    for (std::size_t index = 0; index < clips.size(); ++index) {
        const std::string number = std::to_string(index + 1);
        builder.addClip({.id = "clip-" + number,
                         .name = "Clip\r" + number,
                         .uuid = "0000000" + number + "-0000-0000-0000-00000000000" + number,
                         .pathurl = "file://localhost/Media/clip-" + number + ".mov",
                         .masterclipid = "M" + number,
                         .scene = clips[index].second,
                         .lognote = clips[index].first});
    }
    // pugixml writes a carriage return as it is; exporters write a reference.
    std::string xml = builder.xml();
    for (std::size_t at = xml.find('\r'); at != std::string::npos; at = xml.find('\r', at))
        xml.replace(at, 1, "&#13;");
    const std::string project = m_folder.file("Resort.xml");
    test::writeFile(project, xml);
    std::filesystem::remove(settingsFor(project));

    const Outcome first = corvale({"sort", project, "--range", "Reel [1-2]", "--smart-bin", "Toons", "--filter",
                                   "log-note contains jerry", "--smart-range", "scene"});
    ASSERT_EQ(first.status, 0) << first.err;
    const auto shown = shownUuids(project);
    ASSERT_EQ(shown.size(), 2u + 1u + 2u);
    std::set<std::string> identified;
    for (const auto &[name, uuid] : shown) {
        EXPECT_FALSE(uuid.empty()) << name;
        identified.insert(uuid);
    }
    for (int sort = 1; sort <= 3; ++sort) {
        SCOPED_TRACE("sort " + std::to_string(sort));
        if (sort > 1) {
            const Outcome again = corvale({"sort", project});
            ASSERT_EQ(again.status, 0) << again.err;
            EXPECT_EQ(again.err, "");
        }
        pugi::xml_document written;
        ASSERT_TRUE(written.load_file(project.c_str()));
        std::multiset<std::string> uuids;
        for (const auto &uuid : written.select_nodes("/xmeml/project/children/bin/uuid"))
            uuids.insert(uuid.node().text().get());
        for (const auto &uuid : identified)
            EXPECT_EQ(uuids.count(uuid), 1u) << uuid;
        EXPECT_EQ(shownUuids(project), shown);
    }
}
