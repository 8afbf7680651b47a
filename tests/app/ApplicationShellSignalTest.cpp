// A logout's SIGTERM (and SIGINT, SIGHUP) ends the desktop program as a
// quit does, so that the next start does not take the run for a crash.
#include "AppTestMain.h"

#include "ApplicationShell.h"
#include "TLCrashwick.h"
#include "TLUserDefaults.h"

#include <QTimer>

#include <csignal>

class ApplicationShellSignalTest : public QObject
{
    Q_OBJECT

private slots:
    void terminationSignalsLeaveTheEventLoopAndStampTheCleanExit()
    {
        for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
            ApplicationShell shell;
            ApplicationShell::Options options;
            options.startupChecks = false;
            shell.start(options);
            const auto launch = TLUserDefaults::standard()->dateForKey("launch");
            QVERIFY(launch);

            // Only a loop that never ends trips this bound.
            bool timedOut = false;
            QTimer guard;
            guard.setSingleShot(true);
            connect(&guard, &QTimer::timeout, qApp, [&] {
                timedOut = true;
                QCoreApplication::quit();
            });
            guard.start(60000);
            std::raise(signal);
            QCoreApplication::exec();
            QVERIFY(!timedOut);
            QCOMPARE(shell.finish(), 0);

            const auto exit = TLUserDefaults::standard()->dateForKey("exit");
            QVERIFY(exit && *exit >= *launch);
            QVERIFY(!TLCrashwick::checkForCrashes());
            // The log was drained before the program would have ended.
            const std::string line = "Quitting on signal " + std::to_string(signal);
            QVERIFY(test::readFile(TLLog::currentLogPath().value_or("")).find(line) != std::string::npos);
        }
    }
};

CORVALE_QTEST_MAIN(ApplicationShellSignalTest)
#include "ApplicationShellSignalTest.moc"
