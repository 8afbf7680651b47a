// The `corvale` program: the command line over the application's core.
#include "AppController.h"
#include "CliCommandLine.h"
#include "TLAlert.h"
#include "TLAlertPresenter.h"
#include "TLFatalSignals.h"
#include "TLLog.h"

#include <iostream>
#include <string>
#include <vector>

int main(int argc, char **argv)
{
    // Alerts are read on the terminal; the log's own complaints never mix
    // with what the commands print (show --json is read by programs).
    TLAlert::setPresenter(TLAlertPresenter::standardError());
    // The log sits beside the desktop program's under a name the support
    // tools look for; runs at the same time continue one file together
    // instead of each starting a fresh one.
    TLLog::sharedController().setAppName(TLLog::commandLineLogName(AppController::applicationName));
    TLLog::continueLog(std::nullopt, true);
    TLFatalSignals::install();
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + (argc > 0 ? argc : 0));
    const int status = CliCommandLine::run(arguments, std::cout, std::cerr);
    std::cout.flush();
    return status;
}
