// The window of one open project: the bin outline, its toolbar and sheets.
#pragma once

#include "MyDocument.h"
#include "TLBinNode.h"

#include <QMainWindow>
#include <QString>

#include <memory>

class BinOutlineModel;
class DocumentSheets;
class QAction;
class QCloseEvent;
class QItemSelection;
class QLabel;
class QToolBar;
class QTreeView;
class TLMainThread;

// Shows one MyDocument: the outline of its bin tree (icon-and-text rows,
// renaming in place, double-click, whole-series selection), a toolbar with
// the four add buttons, removal and the send item, and the document's
// sheets. The window only maps rows to nodes and shows: every command goes
// to the document, which decides, refuses through TLAlert, raises the change
// count and tells the window what to show through its MyDocumentView. The
// application adds the menus onto menuBar() and validates the save, revert
// and send items (sendAction() included) against the document.
//
// Main thread only.
class DocumentWindow : public QMainWindow
{
    Q_OBJECT

public:
    // The type a host project's save passes to the document: it sends.
    static constexpr const char *hostProjectType = "Final Cut Pro Project";
    // The type of an xmeml file's save.
    static constexpr const char *xmemlFileType = "XML";

    // A window with an empty document, until openProject().
    explicit DocumentWindow(QWidget *parent = nullptr);
    // Lets go of the document once its background work is over; the window
    // no longer shows anything of it meanwhile.
    ~DocumentWindow() override;

    // Opens the project at `path` in a new document shown in this window,
    // titled with the file's name. False, with the window left as it was,
    // when the document refused to open (a missing or unreadable file, an
    // xmeml file holding only a sequence; the document has said why).
    bool openProject(const QString &path);

    // The document shown; an empty one before a project was opened.
    MyDocument &document();
    const MyDocument &document() const;
    // The project file shown; empty before a project was opened.
    QString projectPath() const;
    // Whether the document is a Final Cut Pro or Premiere Pro project, whose
    // save is a send.
    bool isHostProject() const;

    // The toolbar's send item, validated by the application like the menus.
    QAction *sendAction() const { return m_sendAction; }
    // The four add buttons and removal.
    QAction *emptyBinAction() const { return m_emptyBinAction; }
    QAction *binRangeAction() const { return m_binRangeAction; }
    QAction *smartBinAction() const { return m_smartBinAction; }
    QAction *smartRangeAction() const { return m_smartRangeAction; }
    QAction *removeAction() const { return m_removeAction; }
    QToolBar *toolbar() const { return m_toolbar; }

    // The bar above the outline naming what the last save or send could
    // not write (hidden when it wrote everything), and its text.
    QWidget *noticeBar() const { return m_noticeBar; }
    QLabel *noticeText() const { return m_noticeText; }

    // The bin outline and its model, and the sheets.
    QTreeView *outlineView() const { return m_outlineView; }
    BinOutlineModel *outlineModel() const { return m_model; }
    DocumentSheets &sheets() { return *m_sheets; }

    // The node of the selected row the commands act on: the current row when
    // it is selected, else the first selected one; null for none.
    TLBinNodePtr selectedNode() const;
    // The selected nodes in the outline's row order.
    TLNodeList selectedNodes() const;

    // Saves to `path` as the document's file from now on (the bin tree goes
    // to that name's settings file). False when the save could not start.
    bool saveDocumentToPath(const QString &path);

public slots:
    // Saves an xmeml file in the background; a host project is sent.
    void saveDocument();
    // Asks for a new location, then saves there.
    void saveDocumentAs();
    // After confirmation, reads the project again from its file, dropping
    // the changes since.
    void revertDocumentToSaved();
    // The document's send, on a thread of its own.
    void sendToHost();

    // The toolbar's commands.
    void emptyBin();
    void binRange();
    void smartBin();
    void smartRange();
    void removeSelection();

signals:
    // The document posted the named notification ("enableAddButtons" or
    // "disableAddButtons") with the outline as its object.
    void notificationPosted(const QString &name);

protected:
    // Asks through TLAlert before unsaved changes are lost, and waits for a
    // running save.
    void closeEvent(QCloseEvent *event) override;

private:
    class View;
    friend class View;

    void createToolbar();
    void createOutline();
    // The bar above the outline that tells what the last save or send could
    // not write; it stays until closed or until a write leaves out nothing.
    QWidget *createNoticeBar();
    void showNotice(const QString &message);
    // While a name is typed in place, the status bar says what a save would
    // make of it.
    void nameEdited(const QString &name);
    // Makes `document` the one shown, with a fresh model and sheets.
    void installDocument(std::unique_ptr<MyDocument> document);
    std::unique_ptr<MyDocument> makeDocument() const;
    // Lets go of `document` once its workers are done, serving the work they
    // hand to the main thread meanwhile.
    void retireDocument(std::unique_ptr<MyDocument> document);
    void updateTitle();
    void updateModified();
    // Updates the edited mark from the event loop, once for a burst of calls.
    void scheduleModifiedUpdate();
    void outlineSelectionChanged();
    void outlineDoubleClicked(const QModelIndex &index);
    void extendSelection(const TLNodeList &nodes);
    void selectNode(const TLBinNodePtr &node);
    void editNodeName(const TLBinNodePtr &node);
    void expandNode(const TLBinNodePtr &node);
    const char *saveType() const;

    // The view of the document shown, owned by that document.
    View *m_view = nullptr;
    std::shared_ptr<TLMainThread> m_mainThread;
    std::unique_ptr<MyDocument> m_document;
    std::unique_ptr<DocumentSheets> m_sheets;
    BinOutlineModel *m_model = nullptr;
    QTreeView *m_outlineView = nullptr;
    QWidget *m_noticeBar = nullptr;
    QLabel *m_noticeText = nullptr;
    QToolBar *m_toolbar = nullptr;
    QAction *m_emptyBinAction = nullptr;
    QAction *m_binRangeAction = nullptr;
    QAction *m_smartBinAction = nullptr;
    QAction *m_smartRangeAction = nullptr;
    QAction *m_removeAction = nullptr;
    QAction *m_sendAction = nullptr;
    // Set while the window itself widens the selection, so that the change
    // is not taken for the user's.
    bool m_extendingSelection = false;
    bool m_modifiedUpdatePending = false;
};
