// Web addresses of the maker's support pages.
#include "TLSiteLinks.h"

#include "TLUserDefaults.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

TEST(TLSiteLinksTest, AddressesFollowTheBaseSetting)
{
    const auto global = TLUserDefaults::forDomain("global");
    ASSERT_TRUE(global->removeObjectForKey(TLSiteLinks::baseURLKey));
    EXPECT_EQ(TLSiteLinks::quillmoorURL(), "https://www.quillmoor.com");
    EXPECT_EQ(TLSiteLinks::TessalineToolsURL(), "https://www.quillmoor.com/tessaline");
    ASSERT_TRUE(global->setString(TLSiteLinks::baseURLKey, "http://mirror.test/q//"));
    EXPECT_EQ(TLSiteLinks::supportURLForAppName("tessaline"), "http://mirror.test/q/support/tessaline");
    ASSERT_TRUE(global->setString(TLSiteLinks::baseURLKey, ""));
    EXPECT_EQ(TLSiteLinks::baseURL(), TLSiteLinks::defaultBaseURL);
    ASSERT_TRUE(global->removeObjectForKey(TLSiteLinks::baseURLKey));
}

TEST(TLSiteLinksTest, BugReportJoinsSubappAndEscapedVersion)
{
    const std::string base = "https://www.quillmoor.com/support/tessaline";
    EXPECT_EQ(TLSiteLinks::bugReportURLWithAppName("tessaline", "cv", "1.2 beta"),
              base + "/bugreport/?app=cv&version=1.2%20beta");
    EXPECT_EQ(TLSiteLinks::bugReportURLWithAppName("tessaline", std::nullopt, "2.0#\xc3\xa9"),
              base + "/bugreport/?version=2.0%23%C3%A9");
    EXPECT_EQ(TLSiteLinks::bugReportURLWithAppName("tessaline", std::nullopt, std::nullopt), base + "/bugreport/");
    EXPECT_EQ(TLSiteLinks::bugReportURLWithAppName("tessaline", "cv"),
              base + "/bugreport/?app=cv&version=" CORVALE_VERSION);
    EXPECT_EQ(TLSiteLinks::featureRequestURLWithAppName("tessaline", "cv"), base + "/featurerequest/?app=cv");
    EXPECT_EQ(TLSiteLinks::featureRequestURLWithAppName("tessaline", std::nullopt), base + "/featurerequest/");
    EXPECT_EQ(TLSiteLinks::percentEscaped("a/b?c=d&e+f:%\"<>\\^`{|}[]\x7f"),
              "a/b?c=d&e+f:%25%22%3C%3E%5C%5E%60%7B%7C%7D%5B%5D%7F");
}
