// The logic of the dialog that opens projects currently open in Final Cut
// Pro as documents of this application.
#pragma once

#include "TLAppleEvents.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// Holds the list of open projects, the Open button's state and the dialog's
// modal session; the front end presents it (a table of paths, an Open and a
// close button) and forwards its actions here. Knows no toolkit: opening a
// document and taking the window off the screen are callbacks. Used on the
// main thread only. No exception leaves it.
class TLFCPProjectLoader
{
public:
    // Opens the project file at `path` as a document and displays it, as
    // opening it from disk would. nullopt when it opened; otherwise the
    // error's description, shown to the user as is.
    using OpenDocument = std::function<std::optional<std::string>(const std::string &path)>;
    // Takes the dialog window off the screen once its session has ended.
    using CloseWindow = std::function<void()>;

    // A loader that asks `events` for the open projects and opens them
    // through `openDocument`. A null `openDocument` reports every project as
    // failing with "The document could not be opened."; a null `closeWindow`
    // does nothing. Nothing is asked before awakeFromNib.
    explicit TLFCPProjectLoader(TLAppleEvents events, OpenDocument openDocument,
                                CloseWindow closeWindow = nullptr);

    // For the front end whose dialog layout cannot be loaded: writes
    // "Critical error: unable to load FCP project loader dialog. You must
    // reinstall the application." as one line to standard error (the system
    // console) and shows the alert "Critical error: unable to load FCP
    // project loader dialog." / "You must reinstall the application." with
    // one "OK" button, waiting for it to be answered.
    static void reportUnloadableDialog();

    // Fills the dialog and begins its modal session: takes the list of open
    // projects once (Final Cut Pro not running gives an empty list, its own
    // message having been logged) and enables the Open button when the list
    // holds at least one path. Calling it again while the session runs does
    // nothing; the list is never refreshed while the dialog is up.
    void awakeFromNib();

    // The Open action. `selectedRows` are the table's selected rows in any
    // order; duplicates and rows past the end are ignored. With no usable
    // row nothing happens and false is returned (the dialog stays up).
    // Otherwise the session ends, the window is closed, and each selected
    // project is opened in ascending row order; a project that fails gets the
    // alert "Error loading project" with the error's description and the
    // rest are still opened. True when the selection was acted on.
    bool openProject(const std::vector<std::size_t> &selectedRows);

    // The close action: ends the session and closes the window. Does nothing
    // more when the dialog is already closed.
    void closeDialog();
    // The window's close box: the same as closeDialog.
    void windowWillClose();

    // The table's data: the number of paths, and the path at `row` whatever
    // the column ("" past the last row).
    std::size_t numberOfRowsInTableView() const;
    std::string objectValueForRow(std::size_t row) const;

    // The open projects' paths as taken by awakeFromNib; empty before.
    const std::vector<std::string> &projectArray() const { return m_projectArray; }
    // Whether the Open button is enabled (false before awakeFromNib).
    bool isOpenButtonEnabled() const { return m_openButtonEnabled; }
    // Whether the dialog's modal session is running.
    bool hasModalSession() const { return m_modalSession; }

private:
    void endModalSession();
    void openProjectAtPath(const std::string &path) const;

    TLAppleEvents m_events;
    OpenDocument m_openDocument;
    CloseWindow m_closeWindow;
    std::vector<std::string> m_projectArray;
    bool m_openButtonEnabled = false;
    bool m_modalSession = false;
};
