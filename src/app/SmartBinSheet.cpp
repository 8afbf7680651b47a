// The smart bin sheet.
#include "SmartBinSheet.h"

#include "MyDocument.h"
#include "SheetControls.h"
#include "TLClipFields.h"
#include "TLWriteReport.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalBlocker>
#include <QStyledItemDelegate>
#include <QTableWidget>
#include <QVBoxLayout>

#include <set>
#include <span>
#include <utility>
#include <variant>
#include <vector>

namespace {

constexpr int typeColumnIndex = 0;
constexpr int matchColumnIndex = 1;
constexpr int textColumnIndex = 2;

// The labels of a table's rows, in number order: a pop-up's index is the
// number it stands for. The labels are translated in QObject's context.
template <typename Row>
QStringList labelsOf(std::span<const Row> rows)
{
    QStringList labels;
    for (const TLClipChoice &row : rows)
        labels.append(QObject::tr(row.label));
    return labels;
}

QStringList fieldLabels()
{
    return labelsOf(TLClipFields::smartBinFields());
}

QStringList operatorLabels()
{
    return labelsOf(TLClipFields::operators());
}

// Match types: the first row alone, a clip once per matching row, a clip
// that matches every row.
QStringList matchTypeLabels()
{
    return labelsOf(TLClipFields::matchTypes());
}

// Text cells whose open editor can be committed from outside, as Create
// does when the user has not finished typing.
class FilterTextDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const override
    {
        QWidget *editor = QStyledItemDelegate::createEditor(parent, option, index);
        m_editor = editor;
        return editor;
    }

    // Closes the open editor, if any, handing its text over first when
    // `commit`.
    void finishEditing(bool commit)
    {
        QPointer<QWidget> editor = m_editor;
        m_editor = nullptr;
        if (!editor)
            return;
        if (commit)
            emit commitData(editor);
        emit closeEditor(editor, QAbstractItemDelegate::NoHint);
    }

private:
    mutable QPointer<QWidget> m_editor;
};

} // namespace

SmartBinSheet::SmartBinSheet(MyDocument &document, std::function<TLBinNodePtr()> selectedNode, QWidget *parent)
    : QDialog(parent), m_document(document), m_selectedNode(std::move(selectedNode))
{
    setObjectName(QStringLiteral("windowSmartBin"));
    setWindowTitle(tr("New Smart Bin"));
    setWindowModality(Qt::WindowModal);

    m_nameField = new QLineEdit(this);
    m_nameField->setObjectName(QStringLiteral("smartBinNameTextField"));
    auto *nameWarning = makeNameWarning(this, QStringLiteral("smartBinNameWarning"));
    connect(m_nameField, &QLineEdit::textChanged, nameWarning, [nameWarning](const QString &name) {
        showNameWarning(nameWarning, TLWriteReport::warningForBinName(name.toStdString()));
    });
    m_matchTypePopUp = new QComboBox(this);
    m_matchTypePopUp->setObjectName(QStringLiteral("smartBinMatchTypePopUp"));
    m_matchTypePopUp->addItems(matchTypeLabels());
    m_matchTypePopUp->setCurrentIndex(2);

    m_table = new QTableWidget(0, 3, this);
    m_table->setObjectName(QStringLiteral("smartBinTableView"));
    m_table->setHorizontalHeaderLabels({tr("Field"), tr("Comparison"), tr("Text")});
    m_table->horizontalHeader()->setSectionResizeMode(textColumnIndex, QHeaderView::Stretch);
    m_table->verticalHeader()->hide();
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                             QAbstractItemView::SelectedClicked);
    m_textDelegate = new FilterTextDelegate(m_table);
    m_table->setItemDelegateForColumn(textColumnIndex, m_textDelegate);

    auto *addButton = new QPushButton(QStringLiteral("+"), this);
    addButton->setObjectName(QStringLiteral("smartBinAddButton"));
    addButton->setToolTip(tr("Add a filter"));
    auto *removeButton = new QPushButton(QStringLiteral("\u2212"), this);
    removeButton->setObjectName(QStringLiteral("smartBinRemoveButton"));
    removeButton->setToolTip(tr("Remove the selected filters"));
    for (auto *button : {addButton, removeButton})
        button->setFixedWidth(button->sizeHint().height() + 8);
    m_spinner = makeBusySpinner(this, QStringLiteral("smartBinSpinner"));

    const SheetButtons sheetButtons = makeSheetButtons(this, QStringLiteral("smartBinCancelButton"),
                                                       QStringLiteral("smartBinCreateButton"));
    QDialogButtonBox *buttons = sheetButtons.box;
    m_createButton = sheetButtons.create;

    auto *nameRow = new QHBoxLayout;
    nameRow->addWidget(new QLabel(tr("Name:"), this));
    nameRow->addWidget(m_nameField, 1);
    auto *matchRow = new QHBoxLayout;
    matchRow->addWidget(new QLabel(tr("Match:"), this));
    matchRow->addWidget(m_matchTypePopUp);
    matchRow->addStretch(1);
    auto *rowButtons = new QHBoxLayout;
    rowButtons->addWidget(addButton);
    rowButtons->addWidget(removeButton);
    rowButtons->addStretch(1);
    rowButtons->addWidget(m_spinner);
    rowButtons->addWidget(buttons);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(nameRow);
    layout->addWidget(nameWarning);
    layout->addLayout(matchRow);
    layout->addWidget(m_table, 1);
    layout->addLayout(rowButtons);
    resize(560, 300);

    connect(m_table, &QTableWidget::itemChanged, this, [this](QTableWidgetItem *item) {
        if (item->column() == textColumnIndex)
            m_document.setSmartBinObjectValue(item->text().toStdString(), textColumn, std::size_t(item->row()));
    });
    connect(addButton, &QPushButton::clicked, this, [this] {
        // A text still being typed belongs to its row before the rows change.
        endEditing();
        m_document.smartBinAddItem();
    });
    connect(removeButton, &QPushButton::clicked, this, &SmartBinSheet::removeSelectedRows);
    removeButton->setEnabled(false);
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, removeButton,
            [this, removeButton] { removeButton->setEnabled(m_table->selectionModel()->hasSelection()); });
    connect(m_createButton, &QPushButton::clicked, this, [this] {
        // The document's worker finishes on the main thread by itself; the
        // future is for callers that can wait.
        static_cast<void>(m_document.createSmartBinClick(m_nameField->text().toStdString(), matchType(),
                                                         m_selectedNode()));
    });
}

void SmartBinSheet::present()
{
    m_nameField->setText(tr("Untitled Smart Bin"));
    m_nameField->selectAll();
    stopSpinner();
    open();
}

void SmartBinSheet::dismiss()
{
    QDialog::done(QDialog::Rejected);
}

void SmartBinSheet::reloadTable()
{
    // Rows are rebuilt from the document, which the sheet's own buttons have
    // already handed any open edit to; an editor still open would write into
    // a row that may no longer be the one it was opened on, so it is dropped.
    static_cast<FilterTextDelegate *>(m_textDelegate)->finishEditing(false);
    const QSignalBlocker blocker(m_table);
    const auto rows = m_document.smartBinFilterArray().size();
    m_table->clearContents();
    m_table->setRowCount(int(rows));
    for (int row = 0; row < int(rows); ++row)
        fillRow(row);
}

void SmartBinSheet::fillRow(int row)
{
    const auto cell = [&](const char *column) {
        return m_document.smartBinObjectValue(column, std::size_t(row));
    };
    auto *typePopUp = makePopUp(fieldLabels(), row, typeColumn);
    auto *matchPopUp = makePopUp(operatorLabels(), row, matchColumn);
    if (const auto value = cell(typeColumn); value && std::holds_alternative<std::int64_t>(*value))
        typePopUp->setCurrentIndex(int(std::get<std::int64_t>(*value)));
    if (const auto value = cell(matchColumn); value && std::holds_alternative<std::int64_t>(*value))
        matchPopUp->setCurrentIndex(int(std::get<std::int64_t>(*value)));
    QString text;
    if (const auto value = cell(textColumn); value && std::holds_alternative<std::string>(*value))
        text = QString::fromStdString(std::get<std::string>(*value));
    m_table->setCellWidget(row, typeColumnIndex, typePopUp);
    m_table->setCellWidget(row, matchColumnIndex, matchPopUp);
    m_table->setItem(row, textColumnIndex, new QTableWidgetItem(text));
}

QComboBox *SmartBinSheet::makePopUp(const QStringList &labels, int row, const char *column)
{
    auto *popUp = new QComboBox;
    popUp->addItems(labels);
    // activated: only the user's choices go back, not the filling above.
    connect(popUp, &QComboBox::activated, this, [this, row, column](int index) {
        m_document.setSmartBinObjectValue(std::int64_t(index), column, std::size_t(row));
    });
    return popUp;
}

void SmartBinSheet::removeSelectedRows()
{
    endEditing();
    std::set<std::size_t> rows;
    for (const auto &index : m_table->selectionModel()->selectedRows())
        rows.insert(std::size_t(index.row()));
    m_document.smartBinRemoveItem(std::vector<std::size_t>(rows.begin(), rows.end()));
}

void SmartBinSheet::editFilterText(std::size_t row)
{
    if (row >= std::size_t(m_table->rowCount()))
        return;
    auto *item = m_table->item(int(row), textColumnIndex);
    m_table->setCurrentItem(item);
    m_table->editItem(item);
}

void SmartBinSheet::endEditing()
{
    static_cast<FilterTextDelegate *>(m_textDelegate)->finishEditing(true);
}

void SmartBinSheet::startSpinner()
{
    // One build at a time: a second press would add a second bin.
    m_createButton->setEnabled(false);
    m_spinner->show();
}

void SmartBinSheet::stopSpinner()
{
    m_spinner->hide();
    m_createButton->setEnabled(true);
}

std::int64_t SmartBinSheet::matchType() const
{
    return m_matchTypePopUp->currentIndex();
}

void SmartBinSheet::reject()
{
    m_document.cancelCreateSmartBin();
}
