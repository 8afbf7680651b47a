// The Qt application shell: document windows, menus, open panel, start-up
// and quitting around AppController.
#include "ApplicationShell.h"

#include "AppIcons.h"
#include "BinOutlineModel.h"
#include "DocumentWindow.h"
#include "ProjectLoaderDialog.h"
#include "QtAlertPresenter.h"
#include "QtMainThread.h"
#include "TLAlert.h"
#include "TLLog.h"
#include "TLSmartBin.h"
#include "TLTerminationSignals.h"

#include <QAction>
#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPixmap>
#include <QPushButton>
#include <QSocketNotifier>
#include <QTimer>
#include <QTreeView>
#include <QVBoxLayout>

#include <algorithm>
#include <cstring>
#include <fstream>

namespace {

using MenuAction = MyDocument::MenuAction;

// Time for a freshly shown window to lay itself out and paint before it is
// grabbed.
constexpr int screenshotDelayMilliseconds = 500;
const QSize screenshotSize(760, 560);
// How long one pass of the quit-time wait for running saves may block.
constexpr int saveWaitMilliseconds = 50;

QString toQString(const std::string &text)
{
    return QString::fromStdString(text);
}

// A key equivalent of the core ("s") with the platform's Command modifier,
// which is Ctrl here; an empty one removes the shortcut.
QKeySequence shortcutForKeyEquivalent(const std::string &keyEquivalent)
{
    if (keyEquivalent.empty())
        return {};
    return QKeySequence(QStringLiteral("Ctrl+") + toQString(keyEquivalent).toUpper());
}

void applyState(QAction *action, const MyDocument::MenuItemState &state)
{
    action->setEnabled(state.enabled);
    action->setVisible(!state.hidden);
    if (state.title)
        action->setText(toQString(*state.title));
    if (state.keyEquivalent)
        action->setShortcut(shortcutForKeyEquivalent(*state.keyEquivalent));
}

QAction *addAction(QMenu *menu, const QString &text, const QString &objectName,
                   MenuAction validation = MenuAction::other)
{
    QAction *action = menu->addAction(text);
    action->setObjectName(objectName);
    action->setProperty(ApplicationShell::menuActionProperty, static_cast<int>(validation));
    return action;
}

QString nameFilterForExtensions(const std::vector<std::string> &extensions)
{
    QStringList patterns;
    for (const std::string &extension : extensions)
        patterns << QStringLiteral("*.") + toQString(extension);
    return QStringLiteral("Final Cut Pro projects and XML files (%1)").arg(patterns.join(u' '));
}

// Why a file could not be opened, when the document has not said so itself:
// it only explains the files it could read.
std::string unexplainedOpenFailure(const std::string &path)
{
    const QFileInfo info(toQString(path));
    if (!info.exists())
        return "The file does not exist.";
    if (!info.isFile() || !std::ifstream(path).is_open())
        return "The file could not be read.";
    return {};
}

} // namespace

ApplicationShell::ApplicationShell(QObject *parent)
    : QObject(parent), m_mainThread(std::make_shared<QtMainThread>()),
      m_controller(std::make_unique<AppController>(static_cast<AppControllerPlatform &>(*this)))
{
    TLMainThread::setShared(m_mainThread);
    TLAlert::setPresenter(std::make_shared<QtAlertPresenter>());
}

ApplicationShell::~ApplicationShell()
{
    m_quitting = true;
    for (const QPointer<DocumentWindow> &window : std::as_const(m_documentWindows))
        delete window.data();
    m_documentWindows.clear();
    delete m_startWindow.data();
    delete m_openPanel.data();
    TLAlert::setPresenter(nullptr);
    TLMainThread::setShared(nullptr);
}

ApplicationShell::Options ApplicationShell::parseArguments(const QStringList &arguments)
{
    QCommandLineParser parser;
    const QCommandLineOption screenshot(QStringLiteral("screenshot"),
                                        QStringLiteral("Grab the first window into <png> and quit."),
                                        QStringLiteral("png"));
    parser.addOption(screenshot);
    parser.addPositionalArgument(QStringLiteral("projects"), QStringLiteral("Projects to open."));
    parser.parse(QStringList{QCoreApplication::applicationName()} + arguments);
    Options options;
    options.files = parser.positionalArguments();
    options.screenshotPath = parser.value(screenshot);
    return options;
}

void ApplicationShell::start(const Options &options)
{
    AppController::installTerminateHandler();
    watchTerminationSignals();
    // Windows come and go (the start window stands in when the last document
    // closes), so leaving is always an explicit quit.
    QApplication::setQuitOnLastWindowClosed(false);
    m_controller->initialize();
    m_screenshotPath = options.screenshotPath;
    // A screenshot run has nobody to answer an alert: alerts go to standard
    // error and answer themselves.
    if (!m_screenshotPath.isEmpty())
        TLAlert::setPresenter(TLAlertPresenter::standardError());
    for (const QString &file : options.files)
        m_controller->applicationOpenFile(QFileInfo(file).absoluteFilePath().toStdString());
    const bool startupChecks = options.startupChecks && m_screenshotPath.isEmpty();
    if (startupChecks && options.files.isEmpty())
        (void)m_controller->applicationShouldOpenUntitledFile();
    if (startupChecks) {
        m_controller->applicationDidFinishLaunching();
        m_controller->checkForUpdatesAtStartup();
    }
    if (m_documentWindows.isEmpty())
        showStartWindow();
    if (!m_screenshotPath.isEmpty() && m_documentWindows.isEmpty())
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
}

int ApplicationShell::finish()
{
    m_controller->applicationWillTerminate();
    return !m_screenshotPath.isEmpty() && !m_screenshotTaken ? 1 : 0;
}

void ApplicationShell::watchTerminationSignals()
{
    const int signalPipe = TLTerminationSignals::install();
    if (signalPipe < 0)
        return;
    auto *notifier = new QSocketNotifier(signalPipe, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        const int signal = TLTerminationSignals::takeSignal();
        if (signal == 0)
            return;
        TLLog::appendLog("Quitting on signal %@ (%@)", signal, strsignal(signal));
        // A logout does not wait for questions: unsaved changes are not
        // asked about, but running saves are let finish. Leaving the event
        // loop lets finish() stamp the clean exit and drain the log.
        m_quitting = true;
        waitForSaves();
        QCoreApplication::quit();
    });
}

bool ApplicationShell::requestQuit()
{
    m_quitting = true;
    // A window refuses to close while its save runs, so those end first.
    waitForSaves();
    const QList<DocumentWindow *> windows = documentWindows();
    for (DocumentWindow *window : windows) {
        if (!window->close()) {
            m_quitting = false;
            return false;
        }
    }
    QCoreApplication::quit();
    return true;
}

void ApplicationShell::waitForSaves()
{
    // A save hands its progress to the main thread and waits for it, so the
    // wait keeps serving that work.
    for (DocumentWindow *window : documentWindows()) {
        while (window->document().isSaving()) {
            m_mainThread->runPendingWork();
            QCoreApplication::processEvents(QEventLoop::AllEvents, saveWaitMilliseconds);
        }
    }
}

DocumentWindow *ApplicationShell::openDocumentWindow(const QString &path)
{
    const QString absolutePath = QFileInfo(path).absoluteFilePath();
    for (DocumentWindow *window : documentWindows()) {
        if (QFileInfo(window->projectPath()).absoluteFilePath() == absolutePath) {
            window->show();
            window->raise();
            window->activateWindow();
            return window;
        }
    }
    auto *window = new DocumentWindow;
    if (!window->openProject(absolutePath)) {
        delete window;
        return nullptr;
    }
    window->setAttribute(Qt::WA_DeleteOnClose);
    installMenus(window, window);
    window->installEventFilter(this);
    connect(window, &QObject::destroyed, this, [this, window] { documentWindowClosed(window); });
    m_documentWindows.append(window);
    m_frontWindow = window;
    validateMenus(window);
    window->show();
    window->raise();
    window->activateWindow();
    if (m_startWindow)
        m_startWindow->hide();
    if (!m_screenshotPath.isEmpty() && m_documentWindows.size() == 1)
        QTimer::singleShot(screenshotDelayMilliseconds, window, [this, window] { takeScreenshot(window); });
    return window;
}

QList<DocumentWindow *> ApplicationShell::documentWindows() const
{
    QList<DocumentWindow *> windows;
    for (const QPointer<DocumentWindow> &window : m_documentWindows) {
        if (window)
            windows.append(window.data());
    }
    return windows;
}

QMainWindow *ApplicationShell::startWindow() const
{
    return m_startWindow.data();
}

QFileDialog *ApplicationShell::openPanel() const
{
    return m_openPanel.data();
}

void ApplicationShell::documentWindowClosed(DocumentWindow *window)
{
    m_documentWindows.removeIf([window](const QPointer<DocumentWindow> &entry) {
        return !entry || entry.data() == window;
    });
    if (!m_screenshotPath.isEmpty() && !m_screenshotTaken) {
        QCoreApplication::quit();
        return;
    }
    if (m_documentWindows.isEmpty() && !m_quitting)
        showStartWindow();
}

namespace {

// Every bin open, but smart bins closed: a reopened project resolves them
// against the clip copies its earlier saves wrote into bins too, and a
// picture of a clip listed three times explains nothing.
void expandForScreenshot(QTreeView &outline, const BinOutlineModel *model)
{
    outline.expandAll();
    if (!model)
        return;
    for (int row = 0; row < model->rowCount(); ++row) {
        const QModelIndex index = model->index(row, 0);
        if (std::dynamic_pointer_cast<TLSmartBin>(model->nodeForIndex(index)))
            outline.collapse(index);
    }
}

} // namespace

void ApplicationShell::takeScreenshot(DocumentWindow *window)
{
    // Room for the toolbar and a good part of the sorted tree.
    window->resize(window->size().expandedTo(screenshotSize));
    if (QTreeView *outline = window->outlineView())
        expandForScreenshot(*outline, window->outlineModel());
    // The window is the timer's context: closed before the grab, it takes
    // the timer with it, and documentWindowClosed ends the run instead.
    QTimer::singleShot(screenshotDelayMilliseconds, window, [this, window] {
        m_screenshotTaken = window->grab().save(m_screenshotPath, "PNG");
        if (!m_screenshotTaken)
            TLLog::appendLogAndPrint("Unable to write the screenshot %@", m_screenshotPath.toStdString());
        QCoreApplication::quit();
    });
}

// ---- Menus ----

void ApplicationShell::installMenus(QMainWindow *window, DocumentWindow *documentWindow)
{
    QMenuBar *bar = window->menuBar();
    bar->addMenu(makeFileMenu(window, documentWindow));
    bar->addMenu(makeHelpMenu(window));
}

QMenu *ApplicationShell::makeFileMenu(QMainWindow *window, DocumentWindow *documentWindow)
{
    auto *menu = new QMenu(tr("&File"), window);
    AppController &controller = *m_controller;
    QAction *open = addAction(menu, tr("&Open..."), QStringLiteral("openAction"));
    open->setShortcut(QKeySequence::Open);
    connect(open, &QAction::triggered, this, [&controller] { controller.openFile(); });
    QAction *openProject = addAction(menu, tr("Open Final Cut Pro Project..."),
                                     QStringLiteral("openFCPProjectAction"), MenuAction::openFCPProject);
    connect(openProject, &QAction::triggered, this, [&controller] { controller.openFCPProject(); });
    menu->addSeparator();
    QAction *close = addAction(menu, tr("&Close"), QStringLiteral("closeAction"));
    close->setShortcut(QKeySequence::Close);
    connect(close, &QAction::triggered, window, &QWidget::close);

    QAction *save = addAction(menu, tr("&Save"), QStringLiteral("saveAction"), MenuAction::save);
    QAction *saveAs = addAction(menu, tr("Save &As..."), QStringLiteral("saveAsAction"), MenuAction::saveAs);
    saveAs->setShortcut(QKeySequence(QStringLiteral("Ctrl+Shift+S")));
    QAction *revert = addAction(menu, tr("&Revert to Saved"), QStringLiteral("revertAction"), MenuAction::revert);
    QAction *send = documentWindow ? documentWindow->sendAction() : nullptr;
    if (send) {
        // The window's own toolbar item, so that menu and toolbar are one
        // action with one validation.
        send->setProperty(menuActionProperty, static_cast<int>(MenuAction::sendToFCP));
        menu->addAction(send);
    } else {
        send = addAction(menu, tr("Send to Final Cut Pro"), QStringLiteral("sendAction"), MenuAction::sendToFCP);
    }
    if (documentWindow) {
        connect(save, &QAction::triggered, documentWindow, &DocumentWindow::saveDocument);
        connect(saveAs, &QAction::triggered, documentWindow, &DocumentWindow::saveDocumentAs);
        connect(revert, &QAction::triggered, documentWindow, &DocumentWindow::revertDocumentToSaved);
    }
    menu->addSeparator();
    QAction *qcLogging = addAction(menu, tr("Log for Quality Control"), QStringLiteral("qcLoggingAction"));
    qcLogging->setCheckable(true);
    qcLogging->setChecked(AppController::isQCLoggingEnabled());
    connect(qcLogging, &QAction::toggled, this, [&controller](bool on) { controller.prefsToggleQCLogging(on); });
    menu->addSeparator();
    QAction *quit = addAction(menu, tr("&Quit"), QStringLiteral("quitAction"));
    quit->setShortcut(QKeySequence::Quit);
    quit->setMenuRole(QAction::QuitRole);
    connect(quit, &QAction::triggered, this, [this] { (void)requestQuit(); });
    connect(menu, &QMenu::aboutToShow, this, [this, window, qcLogging] {
        const QSignalBlocker blocker(qcLogging);
        qcLogging->setChecked(AppController::isQCLoggingEnabled());
        validateMenus(window);
    });
    return menu;
}

QMenu *ApplicationShell::makeHelpMenu(QMainWindow *window)
{
    auto *menu = new QMenu(tr("&Help"), window);
    AppController *controller = m_controller.get();
    const auto add = [&](const QString &text, const QString &name, void (AppController::*action)()) {
        QAction *item = addAction(menu, text, name);
        connect(item, &QAction::triggered, this, [controller, action] { (controller->*action)(); });
        return item;
    };
    add(tr("Corvale User Manual"), QStringLiteral("helpUserManualAction"), &AppController::helpUserManual)
        ->setShortcut(QKeySequence::HelpContents);
    add(tr("Tessaline Home Page"), QStringLiteral("helpTessalineHomeAction"), &AppController::helpTessalineHome);
    add(tr("Report a Bug..."), QStringLiteral("helpReportBugAction"), &AppController::helpReportBug);
    add(tr("Suggest a Feature..."), QStringLiteral("helpSuggestFeatureAction"), &AppController::helpSuggestFeature);
    add(tr("Support"), QStringLiteral("helpSupportAction"), &AppController::helpSupport);
    add(tr("Quillmoor Home Page"), QStringLiteral("helpTLHomeAction"), &AppController::helpTLHome);
    add(tr("Check for Updates..."), QStringLiteral("checkForUpdatesAction"), &AppController::checkForUpdates);
    menu->addSeparator();
    add(tr("View Log"), QStringLiteral("viewLogAction"), &AppController::viewLog);
    add(tr("View Task Log"), QStringLiteral("viewTaskLogAction"), &AppController::viewTaskLog);
    add(tr("Gather Logs..."), QStringLiteral("gatherLogsAction"), &AppController::gatherLogs);
    menu->addSeparator();
    add(tr("About Corvale"), QStringLiteral("aboutAction"), &AppController::showAboutDialog)
        ->setMenuRole(QAction::AboutRole);
    connect(menu, &QMenu::aboutToShow, this, [this, window] { validateMenus(window); });
    return menu;
}

void ApplicationShell::validateMenus(QMainWindow *window)
{
    if (!window)
        return;
    auto *documentWindow = qobject_cast<DocumentWindow *>(window);
    const MyDocument *document = documentWindow ? &documentWindow->document() : nullptr;
    for (QAction *action : window->findChildren<QAction *>()) {
        const QVariant validation = action->property(menuActionProperty);
        if (!validation.isValid())
            continue;
        const auto kind = static_cast<MenuAction>(validation.toInt());
        applyState(action, m_controller->validateUserInterfaceItem(kind, document));
    }
}

QAction *ApplicationShell::menuAction(QMainWindow *window, MyDocument::MenuAction action)
{
    if (!window)
        return nullptr;
    for (QAction *candidate : window->findChildren<QAction *>()) {
        const QVariant validation = candidate->property(menuActionProperty);
        if (validation.isValid() && validation.toInt() == static_cast<int>(action))
            return candidate;
    }
    return nullptr;
}

bool ApplicationShell::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Close && watched == m_startWindow && !m_quitting)
        QTimer::singleShot(0, this, [this] { (void)requestQuit(); });
    if (event->type() == QEvent::WindowActivate) {
        if (auto *documentWindow = qobject_cast<DocumentWindow *>(watched))
            m_frontWindow = documentWindow;
        validateMenus(qobject_cast<QMainWindow *>(watched));
    }
    return QObject::eventFilter(watched, event);
}

// ---- The start window ----

void ApplicationShell::showStartWindow()
{
    if (!m_startWindow) {
        auto *window = new QMainWindow;
        window->setWindowTitle(QStringLiteral("Corvale"));
        window->setWindowIcon(AppIcons::application());
        auto *central = new QWidget(window);
        auto *layout = new QVBoxLayout(central);
        auto *icon = new QLabel(central);
        icon->setPixmap(AppIcons::application().pixmap(64, 64));
        icon->setAlignment(Qt::AlignCenter);
        auto *text = new QLabel(tr("Open a Final Cut Pro project or an XML file to sort its media into bins."),
                                central);
        text->setWordWrap(true);
        text->setAlignment(Qt::AlignCenter);
        auto *open = new QPushButton(tr("Open..."), central);
        open->setObjectName(QStringLiteral("startOpenButton"));
        connect(open, &QPushButton::clicked, this, [this] { m_controller->openFile(); });
        layout->addWidget(icon);
        layout->addWidget(text);
        layout->addWidget(open, 0, Qt::AlignHCenter);
        window->setCentralWidget(central);
        installMenus(window, nullptr);
        window->installEventFilter(this);
        window->resize(420, 260);
        m_startWindow = window;
    }
    validateMenus(m_startWindow);
    m_startWindow->show();
}

// ---- AppControllerPlatform ----

void ApplicationShell::runOpenPanel(const AppOpenPanelOptions &options, OpenPanelCompletion chosen)
{
    if (m_openPanel) {
        m_openPanel->raise();
        m_openPanel->activateWindow();
        return;
    }
    auto *panel = new QFileDialog(nullptr, tr("Open"));
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setOption(QFileDialog::DontUseNativeDialog);
    panel->setOption(QFileDialog::ReadOnly, !options.canCreateDirectories);
    panel->setFileMode(options.allowsMultipleSelection ? QFileDialog::ExistingFiles : QFileDialog::ExistingFile);
    panel->setAcceptMode(QFileDialog::AcceptOpen);
    panel->setNameFilter(nameFilterForExtensions(options.allowedExtensions));
    if (auto *grid = qobject_cast<QGridLayout *>(panel->layout())) {
        auto *message = new QLabel(toQString(options.message), panel);
        message->setObjectName(QStringLiteral("openPanelMessage"));
        grid->addWidget(message, grid->rowCount(), 0, 1, grid->columnCount());
    }
    connect(panel, &QFileDialog::filesSelected, this, [this, chosen = std::move(chosen)](const QStringList &files) {
        std::vector<std::string> paths;
        for (const QString &file : files)
            paths.push_back(file.toStdString());
        // The panel goes away first, so that the documents' windows come
        // to the front over nothing.
        QTimer::singleShot(0, this, [chosen, paths] { chosen(paths); });
    });
    m_openPanel = panel;
    panel->open();
}

std::optional<std::string> ApplicationShell::openDocument(const std::string &path)
{
    if (openDocumentWindow(toQString(path)))
        return std::nullopt;
    return unexplainedOpenFailure(path);
}

bool ApplicationShell::hasKeyWindow() const
{
    QList<QWidget *> windows;
    for (DocumentWindow *window : documentWindows())
        windows.append(window);
    if (m_openPanel)
        windows.append(m_openPanel.data());
    return std::any_of(windows.cbegin(), windows.cend(), [](const QWidget *window) { return window->isVisible(); });
}

MyDocument *ApplicationShell::currentDocument() const
{
    DocumentWindow *window = frontDocumentWindow();
    return window ? &window->document() : nullptr;
}

DocumentWindow *ApplicationShell::frontDocumentWindow() const
{
    if (auto *active = qobject_cast<DocumentWindow *>(QApplication::activeWindow()))
        return active;
    if (m_frontWindow)
        return m_frontWindow.data();
    const QList<DocumentWindow *> windows = documentWindows();
    return windows.isEmpty() ? nullptr : windows.last();
}

void ApplicationShell::showProjectLoader()
{
    const auto openProject = [this](const std::string &path) -> std::optional<std::string> {
        std::optional<std::string> failure = openDocument(path);
        // The loader shows a reason for every project that failed.
        if (failure && failure->empty())
            failure = "The document could not be opened.";
        return failure;
    };
    ProjectLoaderDialog::showOpenDialog(openProject, TLAppleEvents(), frontDocumentWindow());
}

bool ApplicationShell::showAboutPanel()
{
    QWidget *parent = frontDocumentWindow();
    if (!parent)
        parent = m_startWindow.data();
    auto *about = new QMessageBox(parent);
    about->setAttribute(Qt::WA_DeleteOnClose);
    about->setObjectName(QStringLiteral("aboutPanel"));
    about->setWindowTitle(tr("About Corvale"));
    about->setIconPixmap(AppIcons::application().pixmap(64, 64));
    about->setText(QStringLiteral("<b>Corvale</b> %1").arg(QCoreApplication::applicationVersion()));
    about->setInformativeText(tr("Sorts the media of a video-editing project into bins.\n"
                                 "Part of the Tessaline tools by Quillmoor."));
    about->setStandardButtons(QMessageBox::Ok);
    about->open();
    return true;
}

void ApplicationShell::performAfterDelay(std::chrono::milliseconds delay, std::function<void()> work)
{
    QTimer::singleShot(delay, this, std::move(work));
}
