// The program's log: where it is written, and that the support tools of the
// desktop program find it.
#include "AppController.h"
#include "TLLog.h"
#include "TLTroubleshootingUtils.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

TEST(CliLogTest, TheSupportToolsOfTheDesktopProgramFindTheProgramsLog)
{
    const std::string log = *TLLog::logFolder() + "/" +
                            TLLog::commandLineLogName(AppController::applicationName) + ".1.log";
    std::filesystem::remove_all(*TLLog::logFolder());
    const std::string command = "'" CORVALE_PROGRAM "' show /nonexistent.xml >/dev/null 2>&1";
    for (int run = 0; run < 2; ++run)
        (void)std::system(command.c_str());
    ASSERT_TRUE(std::filesystem::exists(log));
    const std::string text = test::readFile(log);
    std::size_t headers = 0;
    for (std::size_t at = text.find("Log started: "); at != std::string::npos; at = text.find("Log started: ", at + 1))
        ++headers;
    EXPECT_EQ(headers, 2u) << "the second run continues the file instead of pushing the first run's lines out";

    TLLog::sharedController().setAppName(AppController::applicationName);
    const auto available = TLLog::availableLogs();
    TLLog::sharedController().setAppName(std::nullopt);
    EXPECT_NE(std::find(available.begin(), available.end(), log), available.end());
    EXPECT_TRUE(TLTroubleshootingUtils::gatherLogsForAppsWithNames({AppController::applicationName}, true))
        << "the program's log is the only one there, and gathering finds it";
    std::filesystem::remove_all(*TLLog::logFolder());
    std::filesystem::remove_all(*TLTroubleshootingUtils::archiveFolder());
}
