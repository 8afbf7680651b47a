// The range series sheet.
#include "RangeSheet.h"

#include "AppIcons.h"
#include "MyDocument.h"
#include "SheetControls.h"
#include "TLWriteReport.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include <utility>

RangeSheet::RangeSheet(MyDocument &document, std::function<TLBinNodePtr()> selectedNode, QWidget *parent)
    : QDialog(parent), m_document(document), m_selectedNode(std::move(selectedNode))
{
    setObjectName(QStringLiteral("windowRange"));
    setWindowTitle(tr("New Range Series"));
    setWindowModality(Qt::WindowModal);

    auto *prompt = new QLabel(tr("Bin names (a range in brackets, such as Reel [1-10]):"), this);
    m_expressionField = new QLineEdit(this);
    m_expressionField->setObjectName(QStringLiteral("rangeTextField"));
    m_previewList = new QListWidget(this);
    m_previewList->setObjectName(QStringLiteral("rangeTableView"));
    m_previewList->setSelectionMode(QAbstractItemView::NoSelection);
    m_previewList->setIconSize(QSize(16, 16));
    m_countLabel = new QLabel(this);
    m_countLabel->setObjectName(QStringLiteral("rangeCount"));
    m_nameWarning = makeNameWarning(this, QStringLiteral("rangeNameWarning"));

    const SheetButtons sheetButtons = makeSheetButtons(this, QStringLiteral("rangeCancelButton"),
                                                       QStringLiteral("rangeCreateButton"));
    QDialogButtonBox *buttons = sheetButtons.box;
    m_createButton = sheetButtons.create;

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(prompt);
    layout->addWidget(m_expressionField);
    layout->addWidget(m_previewList, 1);
    layout->addWidget(m_countLabel);
    layout->addWidget(m_nameWarning);
    layout->addWidget(buttons);
    resize(360, 320);

    // textEdited, not textChanged: the document sets the field itself and
    // previews on its own then.
    connect(m_expressionField, &QLineEdit::textEdited, this,
            [this](const QString &text) { m_document.updateRangePreview(text.toStdString()); });
    connect(m_createButton, &QPushButton::clicked, this, [this] {
        static_cast<void>(m_document.createRangeClick(m_expressionField->text().toStdString(), m_selectedNode()));
    });
}

void RangeSheet::present()
{
    open();
    m_expressionField->setFocus();
}

void RangeSheet::dismiss()
{
    QDialog::done(QDialog::Rejected);
}

void RangeSheet::setExpressionText(const std::string &expression)
{
    m_expressionField->setText(QString::fromStdString(expression));
}

void RangeSheet::reloadPreview()
{
    m_previewList->clear();
    const QIcon icon = AppIcons::named("bin-range-single");
    std::string warning;
    for (const auto &name : m_document.rangePreviewNames()) {
        m_previewList->addItem(new QListWidgetItem(icon, QString::fromStdString(name)));
        if (warning.empty())
            warning = TLWriteReport::warningForBinName(name);
    }
    showNameWarning(m_nameWarning, warning);
}

void RangeSheet::setCountText(const std::string &text)
{
    m_countLabel->setText(QString::fromStdString(text));
}

void RangeSheet::reject()
{
    m_document.cancelCreateRange();
}
