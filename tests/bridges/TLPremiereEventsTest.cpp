// The Premiere Pro scripting bridge against fake installations, a fake
// workspace and a recording program runner: nothing is run for real.
#include "TLPremiereEvents.h"

#include "FakeWorkspace.h"
#include "RecordingAlertPresenter.h"
#include "TLAlert.h"
#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLPremiereEventsBridge.h"
#include "TLPropertyList.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

using test::logOf;

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

struct ToolkitRun {
    std::string path;
    std::vector<std::string> arguments;
    double timeout = 0;
    std::string script; // the script file's contents while the toolkit ran
};

std::size_t occurrences(const std::string &text, const std::string &part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

class TLPremiereEventsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TLWorkspace::setShared(workspace);
        TLAlert::setPresenter(alerts);
        TLPremiereEvents::setTaskRunner([this](const std::string &path,
                                               const std::vector<std::string> &arguments, double timeout) {
            const std::string script = arguments.empty() ? "" : test::readFile(arguments.back());
            runs.push_back({path, arguments, timeout, script});
        });
        TLPremiereEvents::setSleeper([this](std::chrono::microseconds duration) { sleeps.push_back(duration); });
        TLPremiereEvents::setSystemLogger([this](const std::string &line) { systemLog.push_back(line); });
    }

    void TearDown() override
    {
        TLPremiereEvents::setTaskRunner({});
        TLPremiereEvents::setSleeper({});
        TLPremiereEvents::setSystemLogger({});
        TLAlert::setPresenter(nullptr);
        TLWorkspace::setShared(nullptr);
        fs::remove_all(applications);
        fs::remove_all(scripts);
    }

    void install(const std::string &folder, const std::string &version)
    {
        test::writeFile(fs::path(applications) / folder / "Configuration/XManConfig.xml",
                        "<Configuration><VariableForExMan><Data key=\"ProductVersion\">" + version
                            + "</Data></VariableForExMan></Configuration>");
    }

    // Premiere Pro running from a bundle whose Info.plist states `bundleVersion`.
    void runPremiere(const std::optional<std::string> &bundleVersion)
    {
        const fs::path contents = fs::path(applications) / "Running/Adobe Premiere Pro.app/Contents";
        fs::create_directories(contents / "MacOS");
        if (bundleVersion) {
            TLPropertyList info = TLPropertyList::newDictionary();
            info.setStringForKey("CFBundleVersion", *bundleVersion);
            ASSERT_EQ(info.writeToFile((contents / "Info.plist").string(), TLPropertyList::Format::XML), "");
        }
        workspace->running.push_back(
            {TLPremiereEvents::bundleIdentifier, 42, (contents / "MacOS/Adobe Premiere Pro").string()});
    }

    bool hasSlept(std::chrono::microseconds duration) const
    {
        return std::find(sleeps.begin(), sleeps.end(), duration) != sleeps.end();
    }

    const std::string applications = TLLocalPaths::applicationDirectory(false).value();
    const std::string utilities = TLLocalPaths::adminApplicationDirectory(false).value();
    const std::string scripts = TLPremiereEvents::scriptsFolder().value();
    std::shared_ptr<test::FakeWorkspace> workspace = std::make_shared<test::FakeWorkspace>();
    std::shared_ptr<test::RecordingAlertPresenter> alerts = std::make_shared<test::RecordingAlertPresenter>();
    std::vector<ToolkitRun> runs;
    std::vector<std::chrono::microseconds> sleeps;
    std::vector<std::string> systemLog;
};

} // namespace

TEST(TLPremiereEventsScriptTest, ScriptTextIsThePiecesJoinedBare)
{
    const std::string expected =
        "#target \"premierepro-6.0\"\n\n"
        "BridgeTalk.prototype.sendSync = function(timeout) {\nvar self = this;"
        "self.onResult = function(res) {\nthis.result = res.body;\nthis.complete = true;\n}"
        "self.complete = false;\nself.send();\n\n"
        "if (timeout) {\nfor (var i = 0; i < timeout; i++) {\nBridgeTalk.pump(); // process any outstanding messages\n"
        "if (!self.complete) {\n$.sleep(1000);\n} else {\nbreak;\n}\n}\n}"
        "\n\nvar res = self.result;\nself.result = self.complete = self.onResult = undefined;\nreturn res;\n};"
        "var bt = new BridgeTalk;\nbt.target = \"premierepro-6.0\"\n"
        "bt.body = \"app.openDocument('/p/it's \"x\".prproj')\";"
        "bt.onResult = function(obj) {\n};\nbt.sendSync(90);";
    const std::string text =
        TLPremiereEvents::scriptText("6.0", "app.openDocument('/p/it's \"x\".prproj')");
    EXPECT_EQ(text, expected);
    EXPECT_NE(text.find("var self = this;self.onResult = function(res) {"), std::string::npos);
    EXPECT_NE(text.find("}self.complete = false;"), std::string::npos);
    EXPECT_NE(text.find("};var bt = new BridgeTalk;"), std::string::npos);
    EXPECT_EQ(text.back(), ';');
}

TEST_F(TLPremiereEventsTest, NothingInstalledLogsTwiceAndDoesNothingElse)
{
    const std::string log = logOf([] { TLPremiereEvents::openFCPXML("/tmp/a.xml"); });
    EXPECT_EQ(occurrences(log, "Premiere Pro not found on this computer."), 2u);
    EXPECT_TRUE(runs.empty());
    EXPECT_TRUE(workspace->requests().empty());
    EXPECT_FALSE(fs::exists(scripts));
}

TEST_F(TLPremiereEventsTest, NewestInstallationIsLaunchedAndDrivenThroughTheToolkit)
{
    install("Adobe Premiere Pro CS5.5", "5.5");
    install("Adobe Premiere Pro CS6", "6.0");

    TLPremiereEvents::openFCPXML("/Media/it's.xml");

    const auto requests = workspace->requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].kind, "launchApplication");
    EXPECT_EQ(requests[0].values.front(), applications + "/Adobe Premiere Pro CS6/Adobe Premiere Pro CS6.app");
    EXPECT_TRUE(hasSlept(3s));

    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].path, "/usr/bin/open");
    EXPECT_EQ(runs[0].timeout, 30);
    const std::vector<std::string> arguments = {
        "-W", "-g", "-n", "-a",
        utilities + "/Adobe Utilities-CS6.localized/ExtendScript Toolkit CS6/ExtendScript Toolkit.app",
        scripts + "/TL_Script.jsx"};
    EXPECT_EQ(runs[0].arguments, arguments);
    // Nothing runs, so no version can be read: the default target is used.
    EXPECT_EQ(runs[0].script, TLPremiereEvents::scriptText("6.0", "app.openFCPXML('/Media/it's.xml')"));
    EXPECT_EQ(systemLog, (std::vector<std::string>{"start", "end"}));
    EXPECT_TRUE(hasSlept(500us));
    EXPECT_FALSE(hasSlept(5s));
    EXPECT_FALSE(fs::exists(scripts + "/TL_Script.jsx"));
    EXPECT_TRUE(fs::is_directory(scripts));

    EXPECT_TRUE(fs::exists(applications + "/Adobe Premiere Pro CS5.5/extendscriptprqe.txt"));
    EXPECT_TRUE(fs::exists(applications + "/Adobe Premiere Pro CS6/extendscriptprqe.txt"));
    EXPECT_TRUE(alerts->alerts().empty());
}

TEST_F(TLPremiereEventsTest, RunningVersionTakesTwoComponentsOfTheBundleVersion)
{
    EXPECT_EQ(TLPremiereEvents::runningPremiereVersion(), std::nullopt);

    runPremiere("6.0.3");
    EXPECT_EQ(TLPremiereEvents::runningPremiereVersion(), "6.0");

    workspace->running.clear();
    runPremiere("7");
    const std::string log = logOf([] { EXPECT_EQ(TLPremiereEvents::runningPremiereVersion(), std::nullopt); });
    EXPECT_NE(log.find("Unknown Premiere version."), std::string::npos);

    workspace->running.clear();
    fs::remove_all(applications);
    runPremiere(std::nullopt);
    EXPECT_EQ(TLPremiereEvents::runningPremiereVersion(), std::nullopt);
}

TEST_F(TLPremiereEventsTest, RunningPremiereGetsItsOwnTargetAndAnAlertForNewMarkers)
{
    install("Adobe Premiere Pro CS5.5", "5.5");
    runPremiere("5.5.2");

    TLPremiereEvents::exportFCPXML("/out/x.xml", false);

    EXPECT_TRUE(workspace->requests().empty());
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].arguments[4],
              utilities + "/Adobe Utilities-CS5.5.localized/ExtendScript Toolkit CS5.5/ExtendScript Toolkit.app");
    EXPECT_EQ(runs[0].script,
              TLPremiereEvents::scriptText("5.5", "app.project.exportFinalCutProXML('/out/x.xml')"));
    EXPECT_TRUE(hasSlept(5s));
    const auto shown = alerts->alerts();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].message, "Premiere Pro now configured");
    EXPECT_EQ(shown[0].informativeText,
              "Please close and relaunch Adobe Premiere Pro in order to use it with this application.");
    EXPECT_EQ(shown[0].parentWindow, nullptr);

    // The marker stays, so the next command asks nothing.
    TLPremiereEvents::openProject("/p/a.prproj", false);
    EXPECT_EQ(alerts->alerts().size(), 1u);
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_NE(runs[1].script.find("bt.body = \"app.openDocument('/p/a.prproj')\";"), std::string::npos);
}

TEST_F(TLPremiereEventsTest, UnknownRunningVersionFallsBackToTheDefaultTarget)
{
    install("Adobe Premiere Pro CS6", "6.0");
    runPremiere("6");
    TLPremiereEvents::openProject("/p/a.prproj", false);
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].script.rfind("#target \"premierepro-6.0\"", 0), 0u);
}

TEST_F(TLPremiereEventsTest, AnExistingScriptIsNeitherOverwrittenNorDeleted)
{
    install("Adobe Premiere Pro CS6", "6.0");
    test::writeFile(scripts + "/TL_Script.jsx", "mine");

    TLPremiereEvents::openFCPXML("/a.xml");

    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].arguments.back(), scripts + "/TL_Script 2.jsx");
    EXPECT_EQ(test::readFile(scripts + "/TL_Script.jsx"), "mine");
    EXPECT_FALSE(fs::exists(scripts + "/TL_Script 2.jsx"));
}

TEST_F(TLPremiereEventsTest, NotRunningWithoutLaunchStopsAfterTheMarkers)
{
    install("Adobe Premiere Pro CS6", "6.0");
    const std::string log = logOf([] { TLPremiereEvents::openFCPXML("/a.xml", false); });
    EXPECT_NE(log.find("Error: Premiere Pro is not running."), std::string::npos);
    EXPECT_TRUE(runs.empty());
    EXPECT_TRUE(workspace->requests().empty());
    EXPECT_FALSE(fs::exists(scripts));
    EXPECT_TRUE(fs::exists(applications + "/Adobe Premiere Pro CS6/extendscriptprqe.txt"));
}

TEST_F(TLPremiereEventsTest, UnwritableMarkerAndScriptAreLoggedAndNothingRuns)
{
    // Its marker belongs in a folder "Adobe Premiere Pro CS14" that is missing.
    install("Adobe Premiere Pro 2020", "14.0");
    // A file where the scripts folder should be.
    test::writeFile(scripts, "in the way");

    const std::string log = logOf([] { TLPremiereEvents::openFCPXML("/a.xml"); });
    EXPECT_NE(log.find("Unable to create qe file: "), std::string::npos);
    EXPECT_NE(log.find("Unable to write script file to disk: "), std::string::npos);
    EXPECT_TRUE(runs.empty());
    EXPECT_EQ(test::readFile(scripts), "in the way");
}

TEST_F(TLPremiereEventsTest, BridgeForwardsWithLaunching)
{
    install("Adobe Premiere Pro CS6", "6.0");
    TLPremiereEventsBridge bridge;
    bridge.openProject("/p.prproj");
    bridge.exportFCPXML("/x.xml");
    bridge.openFCPXML("/y.xml");
    ASSERT_EQ(runs.size(), 3u);
    EXPECT_NE(runs[0].script.find("app.openDocument('/p.prproj')"), std::string::npos);
    EXPECT_NE(runs[1].script.find("app.project.exportFinalCutProXML('/x.xml')"), std::string::npos);
    EXPECT_NE(runs[2].script.find("app.openFCPXML('/y.xml')"), std::string::npos);
    EXPECT_EQ(workspace->requests().size(), 3u);
}
