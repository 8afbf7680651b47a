// The system version triple and the comparisons with it.
#include "TLOSDetect.h"

#include <gtest/gtest.h>

#include <sys/utsname.h>

TEST(TLOSDetectTest, ReleaseTextsAreParsedLeniently)
{
    using V = TLOSDetect::Version;
    EXPECT_EQ(TLOSDetect::versionFromRelease("6.1.0-13-amd64"), (V{6, 1, 0}));
    EXPECT_EQ(TLOSDetect::versionFromRelease("5.15"), (V{5, 15, 0}));
    EXPECT_EQ(TLOSDetect::versionFromRelease("4.19.0-rc1+"), (V{4, 19, 0}));
    EXPECT_EQ(TLOSDetect::versionFromRelease("10.12.6.7"), (V{10, 12, 6}));
    EXPECT_EQ(TLOSDetect::versionFromRelease("3..9"), (V{3, 0, 0}));
    EXPECT_EQ(TLOSDetect::versionFromRelease("99999999999999999999999.1"), (V{0, 0, 0}));
    EXPECT_EQ(TLOSDetect::versionFromRelease("abc"), (V{0, 0, 0}));
    EXPECT_EQ(TLOSDetect::versionFromRelease(""), (V{0, 0, 0}));
}

TEST(TLOSDetectTest, RunningVersionComesFromTheKernelRelease)
{
    struct utsname names {};
    ASSERT_EQ(::uname(&names), 0);
    EXPECT_EQ(TLOSDetect::version(), TLOSDetect::versionFromRelease(names.release));
    const auto running = TLOSDetect::version();
    EXPECT_EQ(TLOSDetect::osxVersion(), std::to_string(running.major) + "." + std::to_string(running.minor) + "."
                                            + std::to_string(running.bugfix));
}

TEST(TLOSDetectTest, ComparisonsAndNamedChecks)
{
    TLOSDetect::overrideVersion(TLOSDetect::Version{10, 12, 0});
    EXPECT_TRUE(TLOSDetect::isSierraOrHigher());
    EXPECT_TRUE(TLOSDetect::isLeopardOrHigher());
    EXPECT_FALSE(TLOSDetect::isOSVersionAtLeast(10, 12, 1));
    EXPECT_FALSE(TLOSDetect::isOSVersionAtLeast(10, 13, 0));
    EXPECT_TRUE(TLOSDetect::isOSVersionAtLeast(9, 99, 99));
    EXPECT_EQ(TLOSDetect::osVersionString(), "10.12.0");
    TLOSDetect::overrideVersion(TLOSDetect::Version{11, 0, 0});
    EXPECT_TRUE(TLOSDetect::isSierraOrHigher());
    EXPECT_TRUE(TLOSDetect::isOSVersionAtLeast(10, 12, 1));
    TLOSDetect::overrideVersion(TLOSDetect::Version{10, 4, 11});
    EXPECT_FALSE(TLOSDetect::isLeopardOrHigher());
    TLOSDetect::overrideVersion(TLOSDetect::Version{10, 9, 5});
    EXPECT_TRUE(TLOSDetect::isMavericksOrHigher());
    EXPECT_FALSE(TLOSDetect::isYosemiteOrHigher());
    TLOSDetect::overrideVersion(std::nullopt);
}
