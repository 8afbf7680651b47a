// The Qt application around the documents: windows, menus, the open panel,
// start-up and quitting.
#pragma once

#include "AppController.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <memory>

class DocumentWindow;
class QAction;
class QFileDialog;
class QMainWindow;
class QMenu;
class QtMainThread;

// Runs Corvale on Qt: installs the main-thread door and the alert presenter,
// drives AppController through start-up, keeps one DocumentWindow per open
// project and builds the File and Help menus (with About and the QC logging
// switch) onto every window's menu bar, validated by AppController whenever
// a menu is about to show and whenever a window comes to the front. With no
// document window open a small start window (the same menus and an
// "Open..." button) stands in for the menu bar that Linux does not keep
// without a window.
//
// Make one on the main thread once the QApplication exists; start() then
// the event loop; finish() after the loop has returned. Main thread only.
class ApplicationShell final : public QObject, private AppControllerPlatform
{
    Q_OBJECT

public:
    // What the command line asks for.
    struct Options
    {
        // Projects to open, in order (the desktop's way of opening files).
        QStringList files;
        // With a path: grab the first window opened from the command line,
        // its outline expanded, into this PNG file and quit. Alerts of such a
        // run are written to standard error instead of waiting for a user.
        QString screenshotPath;
        // Runs the start-up checks that may show the open panel.
        bool startupChecks = true;
    };

    // The menu property naming which validation an action follows (an int
    // of MyDocument::MenuAction).
    static constexpr const char *menuActionProperty = "corvaleMenuAction";

    explicit ApplicationShell(QObject *parent = nullptr);
    // Closes what is left without asking and puts the core's default doors
    // back.
    ~ApplicationShell() override;

    // Reads the arguments after the program name: file paths, and
    // "--screenshot <png>". Unknown options are left for Qt and ignored.
    static Options parseArguments(const QStringList &arguments);

    // Start-up: crash detection, the log and the defaults; SIGTERM, SIGINT
    // and SIGHUP made to leave the event loop as a quit does; the files of
    // `options` opened; the open panel unless a file was given (and again
    // after a second when no window is in front); the start window when no
    // document window opened.
    void start(const Options &options);
    // Shut-down after the event loop: stamps the clean exit and drains the
    // log. Returns the process's exit code (non-zero when a screenshot was
    // asked for and not written).
    int finish();

    // Quits once every window agreed to close: waits for running saves,
    // asks each document window to close (a window with unsaved changes asks
    // the user), then leaves the event loop. False, and nothing quits,
    // when a window refused.
    bool requestQuit();

    // Opens `path` in a new document window and shows it; the window already
    // showing that file is brought to the front instead. Null when the
    // document refused the file.
    DocumentWindow *openDocumentWindow(const QString &path);

    // The open document windows, oldest first.
    QList<DocumentWindow *> documentWindows() const;
    // The start window; null while it was never needed.
    QMainWindow *startWindow() const;
    // The open panel while it exists.
    QFileDialog *openPanel() const;
    AppController &controller() { return *m_controller; }

    // Applies AppController's validation to every menu action of `window`
    // (the send toolbar item of a document window included).
    void validateMenus(QMainWindow *window);
    // The action of `window` whose validation is `action` (the Save item for
    // save, ...); null when the window has none.
    static QAction *menuAction(QMainWindow *window, MyDocument::MenuAction action);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // AppControllerPlatform.
    void runOpenPanel(const AppOpenPanelOptions &options, OpenPanelCompletion chosen) override;
    std::optional<std::string> openDocument(const std::string &path) override;
    bool hasKeyWindow() const override;
    MyDocument *currentDocument() const override;
    void showProjectLoader() override;
    bool showAboutPanel() override;
    void performAfterDelay(std::chrono::milliseconds delay, std::function<void()> work) override;

    void installMenus(QMainWindow *window, DocumentWindow *documentWindow);
    QMenu *makeFileMenu(QMainWindow *window, DocumentWindow *documentWindow);
    QMenu *makeHelpMenu(QMainWindow *window);
    DocumentWindow *frontDocumentWindow() const;
    void documentWindowClosed(DocumentWindow *window);
    void showStartWindow();
    void takeScreenshot(DocumentWindow *window);
    void waitForSaves();
    void watchTerminationSignals();

    std::shared_ptr<QtMainThread> m_mainThread;
    std::unique_ptr<AppController> m_controller;
    QList<QPointer<DocumentWindow>> m_documentWindows;
    QPointer<DocumentWindow> m_frontWindow;
    QPointer<QMainWindow> m_startWindow;
    QPointer<QFileDialog> m_openPanel;
    QString m_screenshotPath;
    bool m_screenshotTaken = false;
    bool m_quitting = false;
};
