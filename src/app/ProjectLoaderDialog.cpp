// The project loader dialog's widgets and the forwarding of its actions.
#include "ProjectLoaderDialog.h"

#include <QCloseEvent>
#include <QDialogButtonBox>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int iconSize = 16;

QIcon fileIcon(const QFileIconProvider &provider, const QString &path)
{
    const QFileInfo info(path);
    // A project on a volume that is not mounted here still shows as a file.
    const QIcon icon = info.exists() ? provider.icon(info) : QIcon();
    return icon.isNull() ? provider.icon(QFileIconProvider::File) : icon;
}

} // namespace

ProjectLoaderDialog::ProjectLoaderDialog(TLAppleEvents events,
                                         TLFCPProjectLoader::OpenDocument openDocument,
                                         QWidget *parent)
    : QDialog(parent),
      m_loader(std::move(events), std::move(openDocument), [this] { sessionEnded(); })
{
    setWindowTitle(tr("Open Final Cut Pro Project"));
    setWindowModality(Qt::ApplicationModal);
    buildLayout();
    m_loader.awakeFromNib();
    fillTable();
}

ProjectLoaderDialog *ProjectLoaderDialog::showOpenDialog(
    TLFCPProjectLoader::OpenDocument openDocument, TLAppleEvents events, QWidget *parent)
{
    auto *dialog = new ProjectLoaderDialog(std::move(events), std::move(openDocument), parent);
    dialog->m_deletesItselfWhenClosed = true;
    dialog->show();
    dialog->raise();
    dialog->activateWindow();
    return dialog;
}

void ProjectLoaderDialog::buildLayout()
{
    auto *label = new QLabel(tr("Projects open in Final Cut Pro:"), this);
    m_table = new QTableWidget(0, 1, this);
    m_table->setHorizontalHeaderLabels({tr("Project")});
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->verticalHeader()->hide();
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setIconSize(QSize(iconSize, iconSize));
    m_table->setTextElideMode(Qt::ElideMiddle);
    m_table->setShowGrid(false);

    auto *buttons = new QDialogButtonBox(this);
    m_openButton = buttons->addButton(tr("Open"), QDialogButtonBox::AcceptRole);
    m_cancelButton = buttons->addButton(QDialogButtonBox::Cancel);
    m_openButton->setDefault(true);
    connect(m_openButton, &QPushButton::clicked, this, &ProjectLoaderDialog::openProject);
    connect(m_cancelButton, &QPushButton::clicked, this, &ProjectLoaderDialog::closeDialog);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(m_table);
    layout->addWidget(buttons);
    resize(560, 320);
}

void ProjectLoaderDialog::fillTable()
{
    const QFileIconProvider icons;
    const auto rows = m_loader.numberOfRowsInTableView();
    m_table->setRowCount(static_cast<int>(rows));
    for (std::size_t row = 0; row < rows; ++row) {
        const QString path = QString::fromStdString(m_loader.objectValueForRow(row));
        auto *item = new QTableWidgetItem(fileIcon(icons, path), path);
        item->setToolTip(path);
        m_table->setItem(static_cast<int>(row), 0, item);
    }
    m_openButton->setEnabled(m_loader.isOpenButtonEnabled());
}

void ProjectLoaderDialog::openProject()
{
    std::vector<std::size_t> rows;
    const auto selected = m_table->selectionModel()->selectedRows();
    for (const QModelIndex &index : selected)
        rows.push_back(static_cast<std::size_t>(index.row()));
    if (!m_loader.openProject(rows))
        return;
    // Only now, with every project opened, may the loader go away.
    if (m_deletesItselfWhenClosed)
        deleteLater();
}

void ProjectLoaderDialog::closeDialog()
{
    m_loader.closeDialog();
    if (m_deletesItselfWhenClosed)
        deleteLater();
}

void ProjectLoaderDialog::reject()
{
    closeDialog();
}

void ProjectLoaderDialog::closeEvent(QCloseEvent *event)
{
    m_loader.windowWillClose();
    event->accept();
    if (m_deletesItselfWhenClosed)
        deleteLater();
}

void ProjectLoaderDialog::sessionEnded()
{
    // Hidden, not closed: closing would come back through closeEvent.
    hide();
}
