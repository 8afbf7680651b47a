// The application's delegate: start-up and shut-down, the application-wide
// menu actions and their validation, independent of any window toolkit.
#pragma once

#include "MyDocument.h"
#include "TLSoftwareUpdate.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// What the open panel offers: files only, several at once, no folder
// creation, the message and the accepted file-name extensions.
struct AppOpenPanelOptions
{
    std::string message;
    std::vector<std::string> allowedExtensions;
    bool allowsMultipleSelection = true;
    bool canChooseFiles = true;
    bool canChooseDirectories = false;
    bool canCreateDirectories = false;
};

// The platform side of the application controller: the toolkit's windows,
// panels and timers. The desktop application implements it with Qt, the
// tests with a fake. Every call comes from the main thread.
class AppControllerPlatform
{
public:
    // Receives the files chosen in the open panel, in the panel's order.
    using OpenPanelCompletion = std::function<void(const std::vector<std::string> &paths)>;

    virtual ~AppControllerPlatform() = default;

    // Shows the open panel as `options` says. `chosen` is called once, with
    // the chosen files, when the user confirms; never when the user cancels.
    // It may be called before this returns.
    virtual void runOpenPanel(const AppOpenPanelOptions &options, OpenPanelCompletion chosen) = 0;

    // Opens the file at `path` as a document and displays its window.
    // nullopt when it opened; otherwise the reason to show the user, or ""
    // when the user has already been told (the document refused the file
    // with an alert of its own).
    virtual std::optional<std::string> openDocument(const std::string &path) = 0;

    // Whether a window has the user's attention: a document window or the
    // open panel itself.
    virtual bool hasKeyWindow() const = 0;

    // The document of the frontmost document window; null when none is open.
    // Valid until control returns to the event loop.
    virtual MyDocument *currentDocument() const = 0;

    // Shows the dialog listing the projects open in Final Cut Pro.
    virtual void showProjectLoader() = 0;

    // Shows the About panel; false when it cannot be loaded.
    virtual bool showAboutPanel() = 0;

    // Runs `work` on the main thread once `delay` has passed.
    virtual void performAfterDelay(std::chrono::milliseconds delay, std::function<void()> work) = 0;
};

// Owns the start-up sequence (crash detection, the log, the registered
// defaults, the optional open panel at start) and the clean-exit stamp, and
// serves the menu items that need no document: opening, the loader dialog,
// sending, the Help links, the troubleshooting items, About and the QC
// logging switch. Lives on the main thread for the whole run. No exception
// leaves it.
class AppController
{
public:
    // The user-defaults key that decides whether the open panel appears at
    // start (integer 1: yes; any other value: no).
    static constexpr const char *showOpenDialogAtStartupKey = "showOpenDialogAtStartup";
    // The key of the QC logging switch in "com.quillmoor.qc.plist".
    static constexpr const char *logQCKey = "logQC";
    // The bundle identifier the loader dialog needs running.
    static constexpr const char *finalCutProBundleIdentifier = "com.apple.FinalCutPro";
    // The application's name, as its logs and gathered logs are named.
    static constexpr const char *applicationName = "Corvale";
    // The web-link product identifier used when the application has none.
    static constexpr const char *defaultShortName = "tessa_line";

    // A controller over `platform` (not owned; it must outlive the
    // controller). `shortName` is the product identifier of the Help links;
    // none (or empty) gives "tessa_line".
    explicit AppController(AppControllerPlatform &platform,
                           std::optional<std::string> shortName = std::nullopt);
    AppController(const AppController &) = delete;
    AppController &operator=(const AppController &) = delete;

    // ---- Start-up and shut-down, in the order the application calls them ----

    // Start-up steps that need no window: crash detection and the launch
    // stamp, a fresh log, then the registered default
    // "showOpenDialogAtStartup" = 1.
    void initialize();
    // Runs performStartupAction and answers false: the application never
    // makes an empty untitled document.
    bool applicationShouldOpenUntitledFile();
    // Schedules the second start-up check: after one second, when no window
    // has the user's attention, performStartupAction runs again.
    void applicationDidFinishLaunching();
    // Shows the open panel when the integer default "showOpenDialogAtStartup"
    // equals 1; does nothing otherwise (also when it is missing or not a
    // number).
    void performStartupAction();
    // Opens `path` as a document (a file handed over by the desktop or on
    // the command line). True when it opened; a failure whose reason the
    // document has not shown itself gets the alert "The document could not
    // be opened." with the path and the reason.
    bool applicationOpenFile(const std::string &path);
    // The automatic update check, on a thread of its own, unless the user
    // switched it off ("SUCheckAtStartup" false).
    void checkForUpdatesAtStartup();
    // Stamps the clean exit for the next launch's crash detection, then
    // drains the log (or drops a long backlog).
    void applicationWillTerminate();

    // Makes the process log an exception that escapes to the top of any
    // thread ("Exception in terminate. <name> - <reason>." through
    // TLException), drain the log and abort. Installed after the log's own
    // handler, which it replaces.
    static void installTerminateHandler();

    // ---- Menu actions ----

    // The open panel with "Browse for a Final Cut Pro project or XML file:"
    // and the extensions "fcp" and "xml"; every chosen file is opened in
    // order (each failure reported as by applicationOpenFile).
    void openFile();
    // The options openFile gives the panel.
    static AppOpenPanelOptions openPanelOptions();
    // Shows the Final Cut Pro project loader dialog.
    void openFCPProject();
    // Starts the current document's send on a thread of its own; nothing
    // without a document.
    void sendToFCP();
    // Writes "logQC" into "com.quillmoor.qc.plist" in the user's preferences
    // folder: true when `on`, false otherwise; a write failure is ignored.
    void prefsToggleQCLogging(bool on);
    // The stored "logQC" switch; false when it is missing or unreadable.
    static bool isQCLoggingEnabled();

    // Help links: the local user manual if it exists (else nothing), the
    // product family's home, bug report, feature request and support pages
    // for "tessaline" and the short name, and the maker's home. Link
    // failures are not reported.
    void helpUserManual();
    void helpTessalineHome();
    void helpReportBug();
    void helpSuggestFeature();
    void helpSupport();
    void helpTLHome();
    // The user manual's path: the machine-wide Library +
    // "/Documentation/Quillmoor/Tessaline User Manual.pdf"; nullopt when
    // there is no such Library.
    static std::optional<std::string> userManualPath();

    // The interactive update check (the updater application itself). When
    // no updater starts, an alert says where updates come from
    // (TLSoftwareUpdate::whereUpdatesComeFrom); its default button opens the
    // download page in the browser.
    void checkForUpdates();

    // Troubleshooting: open the current log or task log of "Corvale", or
    // gather its logs into an archive on the desktop (which reports itself).
    void viewLog();
    void viewTaskLog();
    void gatherLogs();

    // Shows the About panel; when it cannot be loaded, logs "Error: unable
    // to load About dialog. Please report this error to Quillmoor." and
    // shows the alert "Error: unable to load About dialog." / "Please report
    // this error to Quillmoor.", waiting for it.
    void showAboutDialog();

    // ---- Validation ----

    // How a menu or toolbar item of `action` should look for the current
    // document; with no document open, as for an xmeml file (Save and Revert
    // shown with Command-S on Save, Send hidden). Opening a Final Cut Pro
    // project is enabled only while Final Cut Pro runs.
    MyDocument::MenuItemState validateUserInterfaceItem(MyDocument::MenuAction action) const;
    // The same for the items of the window showing `document` (null: a
    // window without a document).
    MyDocument::MenuItemState validateUserInterfaceItem(MyDocument::MenuAction action,
                                                        const MyDocument *document) const;
    // Whether an application with the bundle identifier
    // "com.apple.FinalCutPro" runs, as the workspace sees it.
    static bool isFinalCutProRunning();

    // The product identifier of the Help links.
    const std::string &shortName() const { return m_shortName; }

private:
    void openAndReport(const std::string &path);

    AppControllerPlatform &m_platform;
    std::string m_shortName;
    // Stands in for "no document": it is neither kind of host project, so
    // it validates the items exactly as the rules for no document say.
    MyDocument m_noDocument;
    TLSoftwareUpdate m_softwareUpdate;
};
