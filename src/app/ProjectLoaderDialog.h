// The dialog that lists the projects open in Final Cut Pro and opens the
// chosen ones as documents.
#pragma once

#include "TLFCPProjectLoader.h"

#include <QDialog>

class QPushButton;
class QTableWidget;

// The Qt face of TLFCPProjectLoader: a table of the open projects' paths
// with the desktop's icon for each file, several rows selectable, an Open
// button enabled only when the list is not empty, and a Cancel button. The
// loader decides everything; this class forwards the actions and shows.
//
// The dialog is modal for the application while it is up (the loader's
// session) but never runs a loop of its own: it is shown and returns. Once
// the session ends (Open with a selection, Cancel, Escape or the close box)
// the dialog hides; one made by showOpenDialog() then deletes itself.
// Main thread only.
class ProjectLoaderDialog final : public QDialog
{
    Q_OBJECT

public:
    // A dialog over a loader asking `events` for the projects and opening
    // them through `openDocument` (see TLFCPProjectLoader). It asks for the
    // list at once; show it with show().
    ProjectLoaderDialog(TLAppleEvents events, TLFCPProjectLoader::OpenDocument openDocument,
                        QWidget *parent = nullptr);

    // Shows a fresh dialog over a fresh loader, modal for the application,
    // and returns at once with it; it deletes itself once closed. Final
    // Cut Pro not running gives an empty list and a disabled Open button.
    static ProjectLoaderDialog *showOpenDialog(TLFCPProjectLoader::OpenDocument openDocument,
                                               TLAppleEvents events = TLAppleEvents(),
                                               QWidget *parent = nullptr);

    // The loader behind the dialog.
    const TLFCPProjectLoader &loader() const { return m_loader; }
    // The widgets, for tests.
    QTableWidget *table() const { return m_table; }
    QPushButton *openButton() const { return m_openButton; }
    QPushButton *cancelButton() const { return m_cancelButton; }

public slots:
    // Opens the selected projects, in row order; with no row selected
    // nothing happens and the dialog stays up.
    void openProject();
    // Ends the session and hides the dialog.
    void closeDialog();
    // Escape: the same as closeDialog().
    void reject() override;

protected:
    // The close box: the same as closeDialog().
    void closeEvent(QCloseEvent *event) override;

private:
    void buildLayout();
    void fillTable();
    void sessionEnded();

    TLFCPProjectLoader m_loader;
    QTableWidget *m_table = nullptr;
    QPushButton *m_openButton = nullptr;
    QPushButton *m_cancelButton = nullptr;
    bool m_deletesItselfWhenClosed = false;
};
