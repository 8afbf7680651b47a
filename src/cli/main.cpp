// The `corvale` program: the command line over the application's core.
#include "CliCommandLine.h"
#include "TLAlert.h"
#include "TLAlertPresenter.h"
#include "TLLog.h"

#include <iostream>
#include <string>
#include <vector>

int main(int argc, char **argv)
{
    // Alerts are read on the terminal; the log's own complaints never mix
    // with what the commands print (show --json is read by programs).
    TLAlert::setPresenter(TLAlertPresenter::standardError());
    TLLog::createNewLog(std::nullopt, true);
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + (argc > 0 ? argc : 0));
    const int status = CliCommandLine::run(arguments, std::cout, std::cerr);
    std::cout.flush();
    return status;
}
