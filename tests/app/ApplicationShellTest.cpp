#include "AppTestMain.h"

#include "ApplicationShell.h"
#include "DocumentWindow.h"
#include "MyDocument.h"
#include "QtAlertPresenter.h"
#include "TLAlert.h"
#include "TLBinNode.h"
#include "TLMainThread.h"

#include <QAction>
#include <QFileDialog>
#include <QLabel>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QThread>
#include <QTimer>
#include <QTreeView>

#include <atomic>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <thread>

namespace {

using MenuAction = MyDocument::MenuAction;

// A fresh copy of the sample project, so that nothing writes to examples/.
class SampleProject
{
public:
    SampleProject()
    {
        m_path = m_folder.file("sample-project.xml");
        test::writeFile(m_path, test::readFile(CORVALE_EXAMPLES_DIR "/sample-project.xml"));
        // Every copy has the same name, and so the same settings file.
        std::error_code ignored;
        std::filesystem::remove(settingsPath(), ignored);
    }
    QString path() const { return QString::fromStdString(m_path); }
    std::string contents() const { return test::readFile(m_path); }
    std::string settingsPath() const { return MyDocument::settingsPathForProject(m_path).value_or(""); }

private:
    test::TemporaryFolder m_folder;
    std::string m_path;
};

ApplicationShell::Options quietStart()
{
    ApplicationShell::Options options;
    options.startupChecks = false;
    return options;
}

bool isShownAndEnabled(const QAction *action)
{
    return action && action->isVisible() && action->isEnabled();
}

bool isHiddenAndDisabled(const QAction *action)
{
    return action && !action->isVisible() && !action->isEnabled();
}

// Presses the button titled `title` of the alert on screen.
void answerAlert(const QString &title)
{
    const auto presenter = std::dynamic_pointer_cast<QtAlertPresenter>(TLAlert::presenter());
    QMessageBox *box = presenter ? presenter->currentMessageBox() : nullptr;
    QVERIFY(box);
    for (QAbstractButton *button : box->buttons()) {
        if (button->text() == title) {
            button->click();
            return;
        }
    }
    QFAIL("no such button");
}

const QKeySequence commandS(QStringLiteral("Ctrl+S"));

} // namespace

class ApplicationShellTest : public QObject
{
    Q_OBJECT

private slots:
    void withoutADocumentTheStartWindowOffersOpenAndSave()
    {
        ApplicationShell shell;
        shell.start(quietStart());
        QMainWindow *start = shell.startWindow();
        QVERIFY(start);
        QVERIFY(start->isVisible());
        QVERIFY(start->findChild<QPushButton *>(QStringLiteral("startOpenButton")));

        QAction *save = ApplicationShell::menuAction(start, MenuAction::save);
        QAction *send = ApplicationShell::menuAction(start, MenuAction::sendToFCP);
        QVERIFY(isShownAndEnabled(save));
        QCOMPARE(save->shortcut(), commandS);
        QVERIFY(isHiddenAndDisabled(send));
        QVERIFY(send->shortcut().isEmpty());
        QVERIFY(ApplicationShell::menuAction(start, MenuAction::revert)->isVisible());
        // Final Cut Pro never runs here.
        QVERIFY(!ApplicationShell::menuAction(start, MenuAction::openFCPProject)->isEnabled());

        const bool qcLogging = AppController::isQCLoggingEnabled();
        start->findChild<QAction *>(QStringLiteral("qcLoggingAction"))->trigger();
        QCOMPARE(AppController::isQCLoggingEnabled(), !qcLogging);
        start->findChild<QAction *>(QStringLiteral("aboutAction"))->trigger();
        QMessageBox *about = start->findChild<QMessageBox *>(QStringLiteral("aboutPanel"));
        QVERIFY(about && about->isVisible());
        about->close();

        start->findChild<QPushButton *>(QStringLiteral("startOpenButton"))->click();
        QFileDialog *panel = shell.openPanel();
        QVERIFY(panel);
        QCOMPARE(panel->fileMode(), QFileDialog::ExistingFiles);
        QVERIFY(panel->nameFilters().join(u' ').contains(QStringLiteral("*.fcp *.xml")));
        QCOMPARE(panel->findChild<QLabel *>(QStringLiteral("openPanelMessage"))->text(),
                 QStringLiteral("Browse for a Final Cut Pro project or XML file:"));
        SampleProject project;
        panel->selectFile(project.path());
        static_cast<QDialog *>(panel)->accept();
        QTRY_COMPARE(shell.documentWindows().size(), 1);
        QCOMPARE(shell.documentWindows().front()->projectPath(), project.path());
        QVERIFY(!start->isVisible());
    }

    void commandSSavesAFileDocument()
    {
        SampleProject project;
        ApplicationShell shell;
        ApplicationShell::Options options = quietStart();
        options.files << project.path();
        shell.start(options);
        QCOMPARE(shell.documentWindows().size(), 1);
        DocumentWindow *window = shell.documentWindows().front();
        QVERIFY(shell.startWindow() == nullptr || !shell.startWindow()->isVisible());

        QAction *save = ApplicationShell::menuAction(window, MenuAction::save);
        QAction *send = ApplicationShell::menuAction(window, MenuAction::sendToFCP);
        QVERIFY(isShownAndEnabled(save));
        QCOMPARE(save->shortcut(), commandS);
        QVERIFY(isHiddenAndDisabled(send));
        QCOMPARE(send, window->sendAction());
        QVERIFY(isShownAndEnabled(ApplicationShell::menuAction(window, MenuAction::saveAs)));

        window->emptyBinAction()->trigger();
        window->outlineView()->setFocus();
        QTest::keyClick(window, Qt::Key_Escape);
        QVERIFY(QTest::qWaitForWindowExposed(window));
        QTest::keySequence(window, commandS);
        QTRY_VERIFY_WITH_TIMEOUT(project.contents().find("Untitled Bin") != std::string::npos, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!window->document().isSaving(), 10000);
        QVERIFY(std::filesystem::exists(project.settingsPath()));
    }

    void commandSSendsAHostProject()
    {
        SampleProject project;
        ApplicationShell shell;
        shell.start(quietStart());
        DocumentWindow *window = shell.openDocumentWindow(project.path());
        QVERIFY(window);
        QCOMPARE(shell.openDocumentWindow(project.path()), window);
        // A Premiere Pro project saves by sending, like a Final Cut Pro one.
        window->document().setPremiereProject(true);
        shell.validateMenus(window);

        QAction *save = ApplicationShell::menuAction(window, MenuAction::save);
        QAction *send = ApplicationShell::menuAction(window, MenuAction::sendToFCP);
        QVERIFY(isHiddenAndDisabled(save));
        QVERIFY(save->shortcut().isEmpty());
        QVERIFY(isHiddenAndDisabled(ApplicationShell::menuAction(window, MenuAction::revert)));
        QVERIFY(isShownAndEnabled(send));
        QCOMPARE(send->text(), QStringLiteral("Send to Premiere Pro"));
        QCOMPARE(send->shortcut(), commandS);

        const std::string before = project.contents();
        QVERIFY(QTest::qWaitForWindowExposed(window));
        QTest::keySequence(window, commandS);
        // The send stores the bin tree with its identifiers; it never writes
        // the project file itself.
        QTRY_VERIFY_WITH_TIMEOUT(std::filesystem::exists(project.settingsPath()), 10000);
        QCOMPARE(project.contents(), before);
    }

    void closingTheLastDocumentBringsBackTheStartWindow()
    {
        SampleProject project;
        ApplicationShell shell;
        shell.start(quietStart());
        QVERIFY(shell.openDocumentWindow(project.path()));
        QVERIFY(!shell.startWindow()->isVisible());
        // A project that cannot be opened says why, and opens no window.
        QTimer::singleShot(100, this, [] { answerAlert(QStringLiteral("OK")); });
        QVERIFY(shell.openDocumentWindow(QStringLiteral("/nonexistent/project.xml")) == nullptr);
        QCOMPARE(shell.documentWindows().size(), 1);

        QVERIFY(shell.documentWindows().front()->close());
        QTRY_VERIFY(shell.documentWindows().isEmpty());
        QVERIFY(shell.startWindow()->isVisible());
    }

    void quitWaitsForEveryWindowToAgree()
    {
        SampleProject project;
        ApplicationShell shell;
        shell.start(quietStart());
        DocumentWindow *window = shell.openDocumentWindow(project.path());
        QVERIFY(window);
        window->document().updateChangeCountDone();
        // The window asks about its unsaved changes; the user cancels.
        QTimer::singleShot(100, this, [] { answerAlert(QStringLiteral("Cancel")); });
        QVERIFY(!shell.requestQuit());
        QCOMPARE(shell.documentWindows().size(), 1);
        QVERIFY(window->isVisible());

        window->document().updateChangeCountCleared();
        QVERIFY(shell.requestQuit());
        QTRY_VERIFY(shell.documentWindows().isEmpty());
        QVERIFY(!shell.startWindow()->isVisible());
    }

    void workersHandTheirWorkToTheEventLoop()
    {
        ApplicationShell shell;
        const auto door = TLMainThread::shared();
        QVERIFY(door->isMainThread());
        std::atomic<bool> ranOnMainThread = false;
        std::atomic<bool> finished = false;
        std::thread worker([&] {
            door->performAndWait([&] { ranOnMainThread = QThread::currentThread() == qApp->thread(); });
            // Work that throws is logged; its caller goes on.
            door->performAndWait([] { throw std::runtime_error("lost work"); });
            finished = true;
        });
        QTRY_VERIFY(finished);
        worker.join();
        QVERIFY(ranOnMainThread);
    }

    void argumentsNameProjectsAndTheScreenshot()
    {
        const auto options = ApplicationShell::parseArguments(
            {QStringLiteral("a.xml"), QStringLiteral("--screenshot"), QStringLiteral("shot.png"),
             QStringLiteral("b.fcp")});
        QCOMPARE(options.files, QStringList({QStringLiteral("a.xml"), QStringLiteral("b.fcp")}));
        QCOMPARE(options.screenshotPath, QStringLiteral("shot.png"));
        QVERIFY(ApplicationShell::parseArguments({}).files.isEmpty());
    }
};

CORVALE_QTEST_MAIN(ApplicationShellTest)
#include "ApplicationShellTest.moc"
