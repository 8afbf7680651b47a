// Entry point of every GoogleTest program: enters the sandbox (see
// TestSandbox.cpp) before any test runs and removes it afterwards.
#include "TestSupport.h"
#include "TLLog.h"

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    const auto root = test::sandboxRoot();
    // Code under test logs without a log file having been made; the log's
    // own complaints about that would only bury the test output. Tests of
    // the log turn printing back on through createNewLog.
    TLLog::sharedController().setNoPrinting(true);
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
    return result;
}
