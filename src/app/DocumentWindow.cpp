// The document window: outline, toolbar and the view the document talks to.
#include "DocumentWindow.h"

#include "BinOutlineModel.h"
#include "AppIcons.h"
#include "DocumentSheets.h"
#include "ImageTextCellDelegate.h"
#include "QtMainThread.h"
#include "TLAlert.h"
#include "TLMainThread.h"
#include "TLWriteReport.h"

#include <QAction>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QStatusBar>
#include <QStyle>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QTreeView>
#include <QVBoxLayout>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

namespace {

constexpr int closeRetryMilliseconds = 100;

// The rows from the root down to `index`, which orders indexes as the
// outline shows them.
QList<int> rowPath(QModelIndex index)
{
    QList<int> path;
    for (; index.isValid(); index = index.parent())
        path.prepend(index.row());
    return path;
}

QString quotedName(const QString &path)
{
    return QStringLiteral("\u201C%1\u201D").arg(QFileInfo(path).fileName());
}

} // namespace

// What the document asks of its window. One per document; it serves the
// window only while its document is the one shown, so that a document still
// being opened, or one being let go of, changes nothing on the screen.
class DocumentWindow::View final : public MyDocumentView
{
public:
    explicit View(DocumentWindow *window) : m_window(window) {}

    void attach(const MyDocument *document) { m_document = document; }
    void detach() { m_window = nullptr; }

    void *windowHandle() const override
    {
        return m_window ? static_cast<void *>(static_cast<QWidget *>(m_window)) : nullptr;
    }

    void reloadOutline() override
    {
        if (auto *window = shown()) {
            window->m_model->reloadOutline();
            window->updateModified();
        }
    }
    void reloadItem(const TLBinNodePtr &node, bool reloadChildren) override
    {
        if (auto *window = shown()) {
            window->m_model->reloadItem(node, reloadChildren);
            window->updateModified();
        }
    }
    void expandItem(const TLBinNodePtr &node) override
    {
        if (auto *window = shown())
            window->expandNode(node);
    }
    void selectItem(const TLBinNodePtr &node) override
    {
        if (auto *window = shown())
            window->selectNode(node);
    }
    void editItemName(const TLBinNodePtr &node) override
    {
        if (auto *window = shown())
            window->editNodeName(node);
    }
    void extendSelection(const TLNodeList &nodes) override
    {
        if (auto *window = shown())
            window->extendSelection(nodes);
    }
    void postNotification(const std::string &name) override
    {
        if (auto *window = shown())
            emit window->notificationPosted(QString::fromStdString(name));
    }
    void setAddButtonsEnabled(bool enabled) override
    {
        auto *window = shown();
        if (!window)
            return;
        for (QAction *action : {window->m_emptyBinAction, window->m_binRangeAction, window->m_smartBinAction,
                                window->m_smartRangeAction})
            action->setEnabled(enabled);
    }

    void showWriteReport(const std::string &message) override
    {
        if (auto *window = shown())
            window->showNotice(QString::fromStdString(message));
    }

    void startProgress() override { forward(&DocumentSheets::startProgress); }
    void endProgress() override
    {
        forward(&DocumentSheets::endProgress);
        // A save or send has ended: the change count may have been cleared.
        if (auto *window = shown())
            window->updateModified();
    }
    void updateProgressLabel(const std::string &text) override
    {
        forward(&DocumentSheets::updateProgressLabel, text);
    }

    void showRangeSheet() override { forward(&DocumentSheets::showRangeSheet); }
    void closeRangeSheet() override { forward(&DocumentSheets::closeRangeSheet); }
    void setRangeExpressionText(const std::string &expression) override
    {
        forward(&DocumentSheets::setRangeExpressionText, expression);
    }
    void reloadRangePreview() override { forward(&DocumentSheets::reloadRangePreview); }
    void setRangeCountText(const std::string &text) override { forward(&DocumentSheets::setRangeCountText, text); }

    void showSmartBinSheet() override { forward(&DocumentSheets::showSmartBinSheet); }
    void closeSmartBinSheet() override { forward(&DocumentSheets::closeSmartBinSheet); }
    void *smartBinSheetHandle() const override
    {
        const DocumentSheets *sheets = shownSheets();
        return sheets ? sheets->smartBinSheetHandle() : nullptr;
    }
    void reloadSmartBinTable() override { forward(&DocumentSheets::reloadSmartBinTable); }
    void editSmartBinFilterText(std::size_t row) override { forward(&DocumentSheets::editSmartBinFilterText, row); }
    void endSmartBinEditing() override { forward(&DocumentSheets::endSmartBinEditing); }
    void startSmartBinSpinner() override { forward(&DocumentSheets::startSmartBinSpinner); }
    void stopSmartBinSpinner() override { forward(&DocumentSheets::stopSmartBinSpinner); }

    void showSmartRangeSheet() override { forward(&DocumentSheets::showSmartRangeSheet); }
    void closeSmartRangeSheet() override { forward(&DocumentSheets::closeSmartRangeSheet); }
    void reloadSmartRangePreview() override { forward(&DocumentSheets::reloadSmartRangePreview); }
    void startSmartRangeSpinner() override { forward(&DocumentSheets::startSmartRangeSpinner); }
    void stopSmartRangeSpinner() override { forward(&DocumentSheets::stopSmartRangeSpinner); }
    void setSmartRangeCreateEnabled(bool enabled) override
    {
        forward(&DocumentSheets::setSmartRangeCreateEnabled, enabled);
    }

private:
    // The window, while this view's document is the one it shows.
    DocumentWindow *shown() const
    {
        if (!m_window || !m_document || m_window->m_document.get() != m_document)
            return nullptr;
        // The document raises or clears its change count around these calls
        // and says nothing of it: the edited mark is brought up to date once
        // the document is done.
        m_window->scheduleModifiedUpdate();
        return m_window;
    }
    DocumentSheets *shownSheets() const
    {
        DocumentWindow *window = shown();
        return window ? window->m_sheets.get() : nullptr;
    }
    template <typename... Parameters, typename... Arguments>
    void forward(void (DocumentSheets::*operation)(Parameters...), Arguments &&...arguments)
    {
        if (DocumentSheets *sheets = shownSheets())
            (sheets->*operation)(std::forward<Arguments>(arguments)...);
    }

    DocumentWindow *m_window = nullptr;
    const MyDocument *m_document = nullptr;
};

DocumentWindow::DocumentWindow(QWidget *parent)
    : QMainWindow(parent), m_mainThread(TLMainThread::shared())
{
    resize(420, 560);
    createToolbar();
    createOutline();
    installDocument(makeDocument());
}

DocumentWindow::~DocumentWindow()
{
    // The sheets and the model refer to the document: they go first, and the
    // document's view stops showing anything before it is let go of.
    m_sheets.reset();
    m_outlineView->setModel(nullptr);
    delete m_model;
    m_model = nullptr;
    if (m_view)
        m_view->detach();
    retireDocument(std::move(m_document));
}

// ---- The document ----

std::unique_ptr<MyDocument> DocumentWindow::makeDocument() const
{
    auto view = std::make_shared<View>(const_cast<DocumentWindow *>(this));
    auto document = std::make_unique<MyDocument>(MyDocumentServices{{}, m_mainThread, view, {}});
    view->attach(document.get());
    return document;
}

void DocumentWindow::installDocument(std::unique_ptr<MyDocument> document)
{
    std::unique_ptr<MyDocument> previous = std::move(m_document);
    View *previousView = m_view;
    m_sheets.reset();

    m_document = std::move(document);
    // Every document of this window is made by makeDocument, with a View.
    m_view = static_cast<View *>(&m_document->view());

    BinOutlineModel *previousModel = m_model;
    QItemSelectionModel *previousSelection = m_outlineView->selectionModel();
    m_model = new BinOutlineModel(*m_document, MyDocument::Outline::bins, this);
    m_outlineView->setModel(m_model);
    delete previousSelection;
    delete previousModel;
    connect(m_outlineView->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &DocumentWindow::outlineSelectionChanged);
    m_sheets = std::make_unique<DocumentSheets>(*m_document, this, [this] { return selectedNode(); });
    showNotice({});

    const bool hostProject = isHostProject();
    m_sendAction->setVisible(hostProject);
    m_sendAction->setEnabled(hostProject);
    if (const auto title = m_document->validateUserInterfaceItem(MyDocument::MenuAction::sendToFCP, false).title)
        m_sendAction->setText(QString::fromStdString(*title));
    updateTitle();
    updateModified();

    if (previousView)
        previousView->detach();
    retireDocument(std::move(previous));
}

void DocumentWindow::retireDocument(std::unique_ptr<MyDocument> document)
{
    if (!document)
        return;
    // A document that never opened a project has no workers to wait for.
    if (document->fileURL().empty() || !m_mainThread || !m_mainThread->isMainThread()) {
        document.reset();
        return;
    }
    // The document waits for its workers as it goes, and they may be
    // waiting for the main thread: it goes on a thread of its own while this
    // one keeps serving them.
    std::atomic<bool> gone = false;
    std::thread retiring([&document, &gone] {
        document.reset();
        gone = true;
    });
    auto *door = dynamic_cast<QtMainThread *>(m_mainThread.get());
    while (!gone) {
        if (door)
            door->runPendingWork();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    retiring.join();
}

bool DocumentWindow::openProject(const QString &path)
{
    std::unique_ptr<MyDocument> document = makeDocument();
    // A document that failed to open started no work: it can simply go.
    if (!document->openProject(path.toStdString()).empty())
        return false;
    installDocument(std::move(document));
    return true;
}

MyDocument &DocumentWindow::document()
{
    return *m_document;
}

const MyDocument &DocumentWindow::document() const
{
    return *m_document;
}

QString DocumentWindow::projectPath() const
{
    return QString::fromStdString(m_document->fileURL());
}

bool DocumentWindow::isHostProject() const
{
    return m_document->isFCPProject() || m_document->isPremiereProject();
}

const char *DocumentWindow::saveType() const
{
    return isHostProject() ? hostProjectType : xmemlFileType;
}

void DocumentWindow::updateTitle()
{
    const QString path = projectPath();
    const QString name = path.isEmpty() ? tr("Untitled") : QFileInfo(path).fileName();
    setWindowTitle(name + QStringLiteral("[*]"));
    setWindowFilePath(path);
}

void DocumentWindow::updateModified()
{
    // The window may be letting go of its document, serving its workers.
    if (!m_document)
        return;
    setWindowModified(m_document->isDocumentEdited());
}

void DocumentWindow::scheduleModifiedUpdate()
{
    if (m_modifiedUpdatePending)
        return;
    m_modifiedUpdatePending = true;
    QTimer::singleShot(0, this, [this] {
        m_modifiedUpdatePending = false;
        updateModified();
    });
}

// ---- Widgets ----

void DocumentWindow::createToolbar()
{
    m_toolbar = addToolBar(tr("Toolbar"));
    m_toolbar->setObjectName(QStringLiteral("toolbar"));
    m_toolbar->setMovable(false);
    m_toolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);

    const auto addAction = [this](const char *name, const QIcon &icon, const QString &text,
                                  void (DocumentWindow::*slot)()) {
        QAction *action = m_toolbar->addAction(icon, text);
        action->setObjectName(QString::fromLatin1(name));
        connect(action, &QAction::triggered, this, slot);
        return action;
    };
    const auto themeIcon = [this](const char *name, QStyle::StandardPixmap fallback) {
        return QIcon::fromTheme(QString::fromLatin1(name), style()->standardIcon(fallback));
    };
    m_emptyBinAction =
        addAction("btnBin", AppIcons::named("empty-bin-small"), tr("New Bin"), &DocumentWindow::emptyBin);
    m_binRangeAction =
        addAction("btnBinRange", AppIcons::named("bin-range-single"), tr("New Range"), &DocumentWindow::binRange);
    m_smartBinAction =
        addAction("btnSmartBin", AppIcons::named("smart-bin-small"), tr("New Smart Bin"), &DocumentWindow::smartBin);
    m_smartRangeAction = addAction("btnSmartBinRange", AppIcons::named("smart-range-single"), tr("New Smart Range"),
                                   &DocumentWindow::smartRange);
    m_removeAction = addAction("btnRemove", themeIcon("list-remove", QStyle::SP_TrashIcon), tr("Remove"),
                               &DocumentWindow::removeSelection);
    m_removeAction->setShortcuts({QKeySequence(QKeySequence::Delete), QKeySequence(Qt::Key_Backspace)});
    m_removeAction->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    m_toolbar->addSeparator();
    m_sendAction = addAction("toolbarSendFCP", themeIcon("document-send", QStyle::SP_ArrowForward),
                             tr("Send to Final Cut Pro"), &DocumentWindow::sendToHost);
}

void DocumentWindow::createOutline()
{
    m_outlineView = new QTreeView(this);
    m_outlineView->setObjectName(QStringLiteral("outlineView"));
    m_outlineView->setHeaderHidden(true);
    m_outlineView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_outlineView->setSelectionBehavior(QAbstractItemView::SelectRows);
    // Double-click belongs to the document (rename or re-open a series);
    // the name can also be edited with the platform's edit key.
    m_outlineView->setEditTriggers(QAbstractItemView::EditKeyPressed);
    m_outlineView->setExpandsOnDoubleClick(false);
    m_outlineView->setUniformRowHeights(true);
    m_outlineView->setIconSize(QSize(ImageTextCellDelegate::iconSide, ImageTextCellDelegate::iconSide));
    auto *delegate = new ImageTextCellDelegate(m_outlineView);
    m_outlineView->setItemDelegate(delegate);
    connect(delegate, &ImageTextCellDelegate::nameEdited, this, &DocumentWindow::nameEdited);
    connect(delegate, &QAbstractItemDelegate::closeEditor, statusBar(), &QStatusBar::clearMessage);
    m_outlineView->addAction(m_removeAction);
    connect(m_outlineView, &QTreeView::doubleClicked, this, &DocumentWindow::outlineDoubleClicked);

    auto *central = new QWidget(this);
    auto *layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(createNoticeBar());
    layout->addWidget(m_outlineView, 1);
    setCentralWidget(central);
}

QWidget *DocumentWindow::createNoticeBar()
{
    m_noticeBar = new QFrame(this);
    m_noticeBar->setObjectName(QStringLiteral("noticeBar"));
    m_noticeBar->setAutoFillBackground(true);
    m_noticeBar->setBackgroundRole(QPalette::ToolTipBase);
    m_noticeText = new QLabel(m_noticeBar);
    m_noticeText->setObjectName(QStringLiteral("noticeText"));
    m_noticeText->setWordWrap(true);
    m_noticeText->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_noticeText->setForegroundRole(QPalette::ToolTipText);
    auto *close = new QToolButton(m_noticeBar);
    close->setObjectName(QStringLiteral("noticeCloseButton"));
    close->setAutoRaise(true);
    close->setText(QStringLiteral("\u2715"));
    close->setToolTip(tr("Close"));
    connect(close, &QToolButton::clicked, m_noticeBar, &QWidget::hide);
    auto *layout = new QHBoxLayout(m_noticeBar);
    layout->setContentsMargins(8, 4, 4, 4);
    layout->addWidget(m_noticeText, 1);
    layout->addWidget(close, 0, Qt::AlignTop);
    m_noticeBar->hide();
    return m_noticeBar;
}

void DocumentWindow::showNotice(const QString &message)
{
    m_noticeText->setText(message);
    m_noticeBar->setVisible(!message.isEmpty());
}

void DocumentWindow::nameEdited(const QString &name)
{
    statusBar()->showMessage(QString::fromStdString(TLWriteReport::warningForBinName(name.toStdString())));
}

// ---- Selection ----

TLNodeList DocumentWindow::selectedNodes() const
{
    QModelIndexList rows = m_outlineView->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end(),
              [](const QModelIndex &left, const QModelIndex &right) { return rowPath(left) < rowPath(right); });
    TLNodeList nodes;
    for (const QModelIndex &row : rows) {
        if (TLBinNodePtr node = m_model->nodeForIndex(row))
            nodes.push_back(std::move(node));
    }
    return nodes;
}

TLBinNodePtr DocumentWindow::selectedNode() const
{
    QItemSelectionModel *selection = m_outlineView->selectionModel();
    const QModelIndex current = selection->currentIndex();
    if (current.isValid() && selection->isSelected(current))
        return m_model->nodeForIndex(current);
    const TLNodeList nodes = selectedNodes();
    return nodes.empty() ? nullptr : nodes.front();
}

void DocumentWindow::outlineSelectionChanged()
{
    if (m_extendingSelection)
        return;
    m_document->outlineViewSelectionDidChange(selectedNodes());
}

void DocumentWindow::extendSelection(const TLNodeList &nodes)
{
    QItemSelection rows;
    for (const auto &node : nodes) {
        const QModelIndex index = m_model->indexForNode(node);
        if (index.isValid())
            rows.select(index, index);
    }
    m_extendingSelection = true;
    m_outlineView->selectionModel()->select(rows, QItemSelectionModel::Select | QItemSelectionModel::Rows);
    m_extendingSelection = false;
}

void DocumentWindow::selectNode(const TLBinNodePtr &node)
{
    const QModelIndex index = m_model->indexForNode(node);
    if (!index.isValid()) {
        m_outlineView->clearSelection();
        return;
    }
    m_outlineView->selectionModel()->setCurrentIndex(
        index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    m_outlineView->scrollTo(index);
}

void DocumentWindow::editNodeName(const TLBinNodePtr &node)
{
    const QModelIndex index = m_model->indexForNode(node);
    if (!index.isValid())
        return;
    m_outlineView->scrollTo(index);
    m_outlineView->edit(index);
}

void DocumentWindow::expandNode(const TLBinNodePtr &node)
{
    const QModelIndex index = m_model->indexForNode(node);
    if (index.isValid())
        m_outlineView->expand(index);
}

void DocumentWindow::outlineDoubleClicked(const QModelIndex &index)
{
    m_document->outlineViewDoubleClick(m_model->nodeForIndex(index));
}

// ---- Commands ----

void DocumentWindow::emptyBin()
{
    m_document->emptyBinClick(selectedNode());
    updateModified();
}

void DocumentWindow::binRange()
{
    m_document->binRangeClick();
}

void DocumentWindow::smartBin()
{
    m_document->smartBinClick();
}

void DocumentWindow::smartRange()
{
    m_sheets->openSmartRangeSheet();
}

void DocumentWindow::removeSelection()
{
    m_document->remove(selectedNodes());
    updateModified();
}

void DocumentWindow::sendToHost()
{
    m_document->sendToFCP();
}

void DocumentWindow::saveDocument()
{
    const QString path = projectPath();
    if (path.isEmpty()) {
        saveDocumentAs();
        return;
    }
    m_document->writeSafelyToURL(path.toStdString(), saveType());
    updateModified();
}

void DocumentWindow::saveDocumentAs()
{
    const QString path = QFileDialog::getSaveFileName(this, tr("Save As"), projectPath(),
                                                      tr("Final Cut Pro XML (*.xml)"));
    if (!path.isEmpty())
        saveDocumentToPath(path);
}

bool DocumentWindow::saveDocumentToPath(const QString &path)
{
    if (path.isEmpty() || isHostProject())
        return false;
    if (!m_document->writeSafelyToURL(path.toStdString(), xmemlFileType))
        return false;
    m_document->setFileURL(path.toStdString());
    updateTitle();
    updateModified();
    return true;
}

void DocumentWindow::revertDocumentToSaved()
{
    const QString path = projectPath();
    if (path.isEmpty() || isHostProject())
        return;
    if (m_document->isSaving()) {
        TLAlert::alertSheetWithMessageText("Unable to revert", "A save operation is already in progress.",
                                           m_view->windowHandle());
        return;
    }
    const int answer = TLAlert::alertSheetWithMessageText(
        tr("Do you want to revert to the most recently saved version of the document %1?")
            .arg(quotedName(path))
            .toStdString(),
        "Revert", "Cancel", std::nullopt, "Your current changes will be lost.", m_view->windowHandle(), true);
    if (answer != 1)
        return;
    std::unique_ptr<MyDocument> document = makeDocument();
    if (!document->readFromURL(path.toStdString())) {
        TLAlert::alertSheetWithMessageText("Unable to revert", "The project file could not be read again.",
                                           m_view->windowHandle());
        return;
    }
    installDocument(std::move(document));
}

void DocumentWindow::closeEvent(QCloseEvent *event)
{
    // A running save must end first; the window asks again shortly.
    if (m_document->isSaving()) {
        event->ignore();
        QTimer::singleShot(closeRetryMilliseconds, this, &QWidget::close);
        return;
    }
    if (m_document->documentCanQuit()) {
        event->accept();
        return;
    }
    const QString path = projectPath();
    const int answer = TLAlert::alertSheetWithMessageText(
        tr("Do you want to save the changes made to the document %1?").arg(quotedName(path)).toStdString(),
        isHostProject() ? "Send" : "Save", "Cancel", "Don't Save",
        "Your changes will be lost if you don't save them.", m_view->windowHandle(), true);
    if (answer == 1 && !path.isEmpty()) {
        // The document is quitting now, so the save runs to its end here.
        m_document->writeSafelyToURL(path.toStdString(), saveType());
        updateModified();
    }
    if (answer == 0 || (answer == 1 && m_document->isDocumentEdited())) {
        m_document->setQuitting(false);
        event->ignore();
        return;
    }
    event->accept();
}
