// The smart range sheet.
#include "SmartRangeSheet.h"

#include "AppIcons.h"
#include "MyDocument.h"
#include "SheetControls.h"
#include "TLClipFields.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QHash>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMimeDatabase>
#include <QProgressBar>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <utility>

namespace {

using Outline = MyDocument::Outline;

// The icons a preview asks for: ours by name, a file's own, or its type's.
// One preview may list thousands of clips of a handful of types, so the
// type icons are looked up once each.
class PreviewIcons
{
public:
    QIcon iconFor(const MyDocument::OutlineIcon &icon)
    {
        using Source = MyDocument::OutlineIcon::Source;
        const QString name = QString::fromStdString(icon.name);
        if (icon.source == Source::imageNamed)
            return AppIcons::named(icon.name);
        if (icon.source == Source::fileIcon && QFileInfo::exists(name))
            return m_provider.icon(QFileInfo(name));
        return typeIcon(icon.source == Source::fileIcon ? QFileInfo(name).suffix() : name);
    }

private:
    QIcon typeIcon(const QString &extension)
    {
        const auto known = m_typeIcons.constFind(extension);
        if (known != m_typeIcons.constEnd())
            return *known;
        const QMimeType type =
            m_types.mimeTypeForFile(QStringLiteral("file.") + extension, QMimeDatabase::MatchExtension);
        const QIcon icon = QIcon::fromTheme(
            type.iconName(), QIcon::fromTheme(type.genericIconName(), m_provider.icon(QFileIconProvider::File)));
        m_typeIcons.insert(extension, icon);
        return icon;
    }

    QFileIconProvider m_provider;
    QMimeDatabase m_types;
    QHash<QString, QIcon> m_typeIcons;
};

// Adds the preview's children of `node` (the root for null) under `parent`,
// or at the top level without one.
void addChildren(QTreeWidget &outline, QTreeWidgetItem *parent, const MyDocument &document,
                 const TLBinNodePtr &node, PreviewIcons &icons)
{
    const std::size_t count = document.numberOfChildrenOfItem(node, Outline::smartRangePreview);
    for (std::size_t index = 0; index < count; ++index) {
        const auto child = document.childOfItem(index, node, Outline::smartRangePreview);
        if (!child)
            continue;
        auto *item = new QTreeWidgetItem;
        item->setText(0, QString::fromStdString(MyDocument::objectValueForItem(child)));
        item->setIcon(0, icons.iconFor(MyDocument::iconForItem(child)));
        if (parent)
            parent->addChild(item);
        else
            outline.addTopLevelItem(item);
        addChildren(outline, item, document, child, icons);
    }
}

} // namespace

SmartRangeSheet::SmartRangeSheet(MyDocument &document, std::function<TLBinNodePtr()> selectedNode,
                                 QWidget *parent)
    : QDialog(parent), m_document(document), m_selectedNode(std::move(selectedNode))
{
    setObjectName(QStringLiteral("windowSmartRange"));
    setWindowTitle(tr("New Smart Range"));
    setWindowModality(Qt::WindowModal);

    m_criteriaPopUp = new QComboBox(this);
    m_criteriaPopUp->setObjectName(QStringLiteral("smartRangeCriteriaPopUp"));
    // A criterion without a label (1) never collects anything, so it is not
    // offered.
    for (const TLClipField &criterion : TLClipFields::smartRangeCriteria()) {
        if (*criterion.label)
            m_criteriaPopUp->addItem(tr(criterion.label), QVariant::fromValue<qlonglong>(criterion.number));
    }
    m_previewOutline = new QTreeWidget(this);
    m_previewOutline->setObjectName(QStringLiteral("smartRangeOutlineView"));
    m_previewOutline->setHeaderHidden(true);
    m_previewOutline->setIconSize(QSize(16, 16));
    m_previewOutline->setSelectionMode(QAbstractItemView::NoSelection);
    m_spinner = makeBusySpinner(this, QStringLiteral("smartRangeSpinner"));

    const SheetButtons sheetButtons = makeSheetButtons(this, QStringLiteral("smartRangeCancelButton"),
                                                       QStringLiteral("smartRangeCreateBtn"));
    QDialogButtonBox *buttons = sheetButtons.box;
    m_createButton = sheetButtons.create;

    auto *criteriaRow = new QHBoxLayout;
    criteriaRow->addWidget(new QLabel(tr("One bin for each:"), this));
    criteriaRow->addWidget(m_criteriaPopUp);
    criteriaRow->addStretch(1);
    criteriaRow->addWidget(m_spinner);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(criteriaRow);
    layout->addWidget(m_previewOutline, 1);
    layout->addWidget(buttons);
    resize(420, 400);

    connect(m_criteriaPopUp, &QComboBox::activated, this,
            [this] { m_document.smartRangeChangeCriteria(criteria()); });
    connect(m_createButton, &QPushButton::clicked, this, [this] {
        // The document's worker finishes on the main thread by itself; the
        // future is for callers that can wait.
        static_cast<void>(m_document.createSmartRangeClick(m_selectedNode()));
    });
}

std::int64_t SmartRangeSheet::criteria() const
{
    return m_criteriaPopUp->currentData().toLongLong();
}

void SmartRangeSheet::present()
{
    open();
}

void SmartRangeSheet::dismiss()
{
    QDialog::done(QDialog::Rejected);
}

void SmartRangeSheet::reloadPreview()
{
    m_previewOutline->clear();
    PreviewIcons icons;
    addChildren(*m_previewOutline, nullptr, m_document, nullptr, icons);
}

void SmartRangeSheet::startSpinner()
{
    m_spinner->show();
}

void SmartRangeSheet::stopSpinner()
{
    m_spinner->hide();
}

void SmartRangeSheet::setCreateEnabled(bool enabled)
{
    m_createButton->setEnabled(enabled);
}

void SmartRangeSheet::reject()
{
    m_document.cancelCreateSmartRange();
}
