// Installed Premiere Pro versions found under a sandboxed Applications folder.
#include "TLPremiere.h"

#include "TLLocalPaths.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace fs = std::filesystem;

namespace {

std::string configuration(const std::string &version)
{
    return "<?xml version=\"1.0\"?>\n<Configuration><VariableForExMan>"
           "<Data key=\"Other\">1.0</Data><Data key=\"ProductVersion\">" + version
        + "</Data></VariableForExMan></Configuration>";
}

class TLPremiereTest : public ::testing::Test
{
protected:
    void TearDown() override { fs::remove_all(applications); }

    void install(const std::string &name, const std::string &contents)
    {
        test::writeFile(fs::path(applications) / name / "Configuration/XManConfig.xml", contents);
    }

    const std::string applications = TLLocalPaths::applicationDirectory(false).value();
};

} // namespace

TEST_F(TLPremiereTest, VersionsComeInNameOrderFromMatchingInstallationsOnly)
{
    EXPECT_TRUE(TLPremiere::premiereVersions().empty());

    install("Adobe Premiere Pro CS6", configuration("6.0"));
    install("Adobe Premiere Pro CS5.5", configuration("5.5"));
    install("adobe premiere elements", configuration("9.0"));
    install("Adobe Photoshop CS6", configuration("13.0"));
    install("Adobe PremiereX", configuration("1.0"));
    fs::create_directories(fs::path(applications) / "Adobe Premiere Pro CS4");
    install("Adobe Premiere Pro CS3", "<Configuration><VariableForExMan/></Configuration>");

    const std::vector<std::string> expected = {"5.5", "6.0", "9.0"};
    EXPECT_EQ(TLPremiere::premiereVersions(), expected);
}

TEST_F(TLPremiereTest, DamagedOrHostileConfigurationsLoseOnlyTheirOwnEntry)
{
    install("Adobe Premiere Pro CS5", "\x01\xff garbage <<<");
    install("Adobe Premiere Pro CS5.5", configuration("5.5") + "<unclosed");
    install("Adobe Premiere Pro CS6",
            "<!DOCTYPE c [<!ENTITY e \"x\">]><Configuration><VariableForExMan>"
            "<Data key=\"ProductVersion\">&e;</Data></VariableForExMan></Configuration>");
    // A folder where the file should be.
    fs::create_directories(fs::path(applications) / "Adobe Premiere Pro CS7/Configuration/XManConfig.xml");

    const std::vector<std::string> versions = TLPremiere::premiereVersions();
    ASSERT_FALSE(versions.empty());
    EXPECT_EQ(versions.front(), "5.5");
    EXPECT_LE(versions.size(), 2u);
}

TEST(TLPremiereCSNumberTest, OneTrailingZeroComponentIsDropped)
{
    EXPECT_EQ(TLPremiere::csNumber("6.0"), "6");
    EXPECT_EQ(TLPremiere::csNumber("5.5"), "5.5");
    EXPECT_EQ(TLPremiere::csNumber("6.0.0"), "6.0");
    EXPECT_EQ(TLPremiere::csNumber("10"), "10");
    EXPECT_EQ(TLPremiere::csNumber(".0"), "");
    EXPECT_EQ(TLPremiere::csNumber(""), "");
}
