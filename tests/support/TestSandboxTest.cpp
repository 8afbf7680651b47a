// The sandbox that every test program runs in.
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>

TEST(TestSandboxTest, HomeAndXdgFoldersLieInsideTheSandbox)
{
    const std::string root = test::sandboxRoot().string();
    for (const char *variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME",
                                 "XDG_STATE_HOME", "CORVALE_LOCAL_ROOT", "TMPDIR"}) {
        const char *value = std::getenv(variable);
        ASSERT_NE(value, nullptr) << variable;
        EXPECT_EQ(std::string(value).rfind(root, 0), 0u) << variable;
    }
}
