// A crash report of the program's own, written when it dies of a fatal
// signal, where the next start's crash detection looks for it.
#pragma once

#include <string>

// Linux has no system crash reporter that writes where TLCrashwick looks, so
// the program writes its report itself. On SIGSEGV, SIGABRT, SIGBUS, SIGFPE
// or SIGILL the handler writes "<appName>_<date>-<pid>_<host>.crash" (date
// as "2026-03-05-140709", UTC) into the crash-report folder, readable by the
// user only: the program, its version, the time, the signal with its fault
// address and a backtrace. Then the signal is raised again with its default
// action, so the process still ends as it would have (and leaves a core
// dump where the system keeps them).
//
// The handler only calls functions that are safe in a signal handler: the
// folder, the name's fixed parts and the report's fixed lines are prepared
// at installation. Installing again replaces the earlier settings. Nothing
// here throws.
class TLFatalSignals
{
public:
    // The extension of the reports written.
    static constexpr const char *reportExtension = ".crash";

    // install(first of TLCrashwick::crashReportFolders(),
    // TLCrashwick::defaultApplicationName(), the program's version).
    static bool install();
    // Installs the handler for the fatal signals, writing into `folder`
    // (created when missing). False, with a log line, when the folder is
    // not absolute or cannot be made, or a name is too long to keep; the
    // signals then keep their earlier handling.
    static bool install(const std::string &folder, const std::string &appName,
                        const std::string &version);
};
