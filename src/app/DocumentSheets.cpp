// The sheets of a document window: made on first use, shown and closed at
// the document's word.
#include "DocumentSheets.h"

#include "MyDocument.h"
#include "ProgressSheet.h"
#include "RangeSheet.h"
#include "SmartBinSheet.h"
#include "SmartRangeSheet.h"

#include <QWidget>

#include <utility>

DocumentSheets::DocumentSheets(MyDocument &document, QWidget *window, std::function<TLBinNodePtr()> selectedNode)
    : m_document(document), m_window(window), m_selectedNode(std::move(selectedNode))
{
    if (!m_selectedNode)
        m_selectedNode = [] { return TLBinNodePtr(); };
}

DocumentSheets::~DocumentSheets()
{
    // The window usually takes its child sheets with it, but the document's
    // last calls may come after it, and a sheet without a window is ours.
    delete m_rangeSheet;
    delete m_smartBinSheet;
    delete m_smartRangeSheet;
    delete m_progressSheet;
}

std::int64_t DocumentSheets::smartRangeCriteria()
{
    return ensureSmartRangeSheet().criteria();
}

void DocumentSheets::openSmartRangeSheet()
{
    m_document.smartRangeClick(smartRangeCriteria());
}

// ---- Range sheet ----

RangeSheet &DocumentSheets::ensureRangeSheet()
{
    if (!m_rangeSheet)
        m_rangeSheet = new RangeSheet(m_document, m_selectedNode, m_window);
    return *m_rangeSheet;
}

void DocumentSheets::showRangeSheet()
{
    ensureRangeSheet().present();
}

void DocumentSheets::closeRangeSheet()
{
    if (m_rangeSheet)
        m_rangeSheet->dismiss();
}

void DocumentSheets::setRangeExpressionText(const std::string &expression)
{
    ensureRangeSheet().setExpressionText(expression);
}

void DocumentSheets::reloadRangePreview()
{
    ensureRangeSheet().reloadPreview();
}

void DocumentSheets::setRangeCountText(const std::string &text)
{
    ensureRangeSheet().setCountText(text);
}

// ---- Smart bin sheet ----

SmartBinSheet &DocumentSheets::ensureSmartBinSheet()
{
    if (!m_smartBinSheet)
        m_smartBinSheet = new SmartBinSheet(m_document, m_selectedNode, m_window);
    return *m_smartBinSheet;
}

void DocumentSheets::showSmartBinSheet()
{
    ensureSmartBinSheet().present();
}

void DocumentSheets::closeSmartBinSheet()
{
    if (m_smartBinSheet)
        m_smartBinSheet->dismiss();
}

void *DocumentSheets::smartBinSheetHandle() const
{
    QWidget *sheet = m_smartBinSheet.data();
    return sheet;
}

void DocumentSheets::reloadSmartBinTable()
{
    ensureSmartBinSheet().reloadTable();
}

void DocumentSheets::editSmartBinFilterText(std::size_t row)
{
    ensureSmartBinSheet().editFilterText(row);
}

void DocumentSheets::endSmartBinEditing()
{
    if (m_smartBinSheet)
        m_smartBinSheet->endEditing();
}

void DocumentSheets::startSmartBinSpinner()
{
    ensureSmartBinSheet().startSpinner();
}

void DocumentSheets::stopSmartBinSpinner()
{
    if (m_smartBinSheet)
        m_smartBinSheet->stopSpinner();
}

// ---- Smart range sheet ----

SmartRangeSheet &DocumentSheets::ensureSmartRangeSheet()
{
    if (!m_smartRangeSheet)
        m_smartRangeSheet = new SmartRangeSheet(m_document, m_selectedNode, m_window);
    return *m_smartRangeSheet;
}

void DocumentSheets::showSmartRangeSheet()
{
    ensureSmartRangeSheet().present();
}

void DocumentSheets::closeSmartRangeSheet()
{
    if (m_smartRangeSheet)
        m_smartRangeSheet->dismiss();
}

void DocumentSheets::reloadSmartRangePreview()
{
    ensureSmartRangeSheet().reloadPreview();
}

void DocumentSheets::startSmartRangeSpinner()
{
    ensureSmartRangeSheet().startSpinner();
}

void DocumentSheets::stopSmartRangeSpinner()
{
    if (m_smartRangeSheet)
        m_smartRangeSheet->stopSpinner();
}

void DocumentSheets::setSmartRangeCreateEnabled(bool enabled)
{
    ensureSmartRangeSheet().setCreateEnabled(enabled);
}

// ---- Progress sheet ----

ProgressSheet &DocumentSheets::ensureProgressSheet()
{
    if (!m_progressSheet)
        m_progressSheet = new ProgressSheet(m_window);
    return *m_progressSheet;
}

void DocumentSheets::startProgress()
{
    ensureProgressSheet().start();
}

void DocumentSheets::endProgress()
{
    if (m_progressSheet)
        m_progressSheet->end();
}

void DocumentSheets::updateProgressLabel(const std::string &text)
{
    ensureProgressSheet().setLabelText(text);
}

// ---- For tests ----

QDialog *DocumentSheets::rangeSheet() const
{
    return m_rangeSheet.data();
}

QDialog *DocumentSheets::smartBinSheet() const
{
    return m_smartBinSheet.data();
}

QDialog *DocumentSheets::smartRangeSheet() const
{
    return m_smartRangeSheet.data();
}

QDialog *DocumentSheets::progressSheet() const
{
    return m_progressSheet.data();
}
