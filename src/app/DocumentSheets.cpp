// The sheets of a document window.
#include "DocumentSheets.h"

#include "MyDocument.h"

#include <QDialog>
#include <QWidget>

#include <utility>

// Placeholders until the sheets exist: the document's calls are accepted
// and do nothing yet.
class ProgressSheet : public QDialog {};
class RangeSheet : public QDialog {};
class SmartBinSheet : public QDialog {};
class SmartRangeSheet : public QDialog {};

DocumentSheets::DocumentSheets(MyDocument &document, QWidget *window, std::function<TLBinNodePtr()> selectedNode)
    : m_document(document), m_window(window), m_selectedNode(std::move(selectedNode))
{
}

DocumentSheets::~DocumentSheets() = default;

void DocumentSheets::showRangeSheet() {}
void DocumentSheets::closeRangeSheet() {}
void DocumentSheets::setRangeExpressionText(const std::string &) {}
void DocumentSheets::reloadRangePreview() {}
void DocumentSheets::setRangeCountText(const std::string &) {}
void DocumentSheets::showSmartBinSheet() {}
void DocumentSheets::closeSmartBinSheet() {}
void *DocumentSheets::smartBinSheetHandle() const { return nullptr; }
void DocumentSheets::reloadSmartBinTable() {}
void DocumentSheets::editSmartBinFilterText(std::size_t) {}
void DocumentSheets::endSmartBinEditing() {}
void DocumentSheets::startSmartBinSpinner() {}
void DocumentSheets::stopSmartBinSpinner() {}
void DocumentSheets::showSmartRangeSheet() {}
void DocumentSheets::closeSmartRangeSheet() {}
void DocumentSheets::reloadSmartRangePreview() {}
void DocumentSheets::startSmartRangeSpinner() {}
void DocumentSheets::stopSmartRangeSpinner() {}
void DocumentSheets::setSmartRangeCreateEnabled(bool) {}
void DocumentSheets::startProgress() {}
void DocumentSheets::endProgress() {}
void DocumentSheets::updateProgressLabel(const std::string &) {}
QDialog *DocumentSheets::rangeSheet() const { return nullptr; }
QDialog *DocumentSheets::smartBinSheet() const { return nullptr; }
QDialog *DocumentSheets::smartRangeSheet() const { return nullptr; }
QDialog *DocumentSheets::progressSheet() const { return nullptr; }
