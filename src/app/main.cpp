// The desktop application's entry point: one QApplication, the shell, the
// event loop.
#include "AppIcons.h"
#include "ApplicationShell.h"
#include "TLFatalSignals.h"

#include <QApplication>

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Corvale"));
    QApplication::setApplicationVersion(QStringLiteral(CORVALE_VERSION));
    QApplication::setOrganizationName(QStringLiteral("Quillmoor"));
    QApplication::setWindowIcon(AppIcons::application());
    QGuiApplication::setDesktopFileName(QStringLiteral("com.quillmoor.Corvale"));
    // A crash leaves a report for the next start's crash detection.
    TLFatalSignals::install();

    int exitCode = 0;
    {
        ApplicationShell shell;
        shell.start(ApplicationShell::parseArguments(QApplication::arguments().mid(1)));
        application.exec();
        exitCode = shell.finish();
    }
    return exitCode;
}
