// The sheet that adds a smart bin: name, match type and filter rows.
#pragma once

#include "TLBinNode.h"

#include <QDialog>

#include <cstddef>
#include <cstdint>
#include <functional>

class MyDocument;
class QComboBox;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QStyledItemDelegate;
class QTableWidget;

// The name field ("smartBinNameTextField"), the match type pop-up
// ("smartBinMatchTypePopUp"), the table of filter rows ("smartBinTableView":
// a field pop-up, an operator pop-up and the text to compare with), the add
// and remove row buttons, the spinner ("smartBinSpinner") and Cancel and
// Create. The rows live in the document: the table shows them and writes
// every change of a cell straight back. Window-modal on its parent.
class SmartBinSheet : public QDialog
{
    Q_OBJECT
public:
    // The table's columns, in order, by the document's column identifiers.
    static constexpr const char *typeColumn = "filterType";
    static constexpr const char *matchColumn = "filterMatch";
    static constexpr const char *textColumn = "filterString";

    // `selectedNode` answers the outline's selected node when Create is
    // pressed; the document must outlive the sheet.
    SmartBinSheet(MyDocument &document, std::function<TLBinNodePtr()> selectedNode, QWidget *parent = nullptr);

    // Shows the sheet (open()) with the name field ready for a new bin.
    void present();
    // Hides the sheet without asking the document.
    void dismiss();
    // Refills the table from the document's filter rows.
    void reloadTable();
    // Opens the text cell of `row` for editing; nothing past the last row.
    void editFilterText(std::size_t row);
    // Hands an open cell editor's text to the document and closes it.
    void endEditing();
    // The spinner runs while a bin is being built; Create waits meanwhile.
    void startSpinner();
    void stopSpinner();
    // The chosen match type: the pop-up's index.
    std::int64_t matchType() const;

    // Escape: the document's cancel.
    void reject() override;

private:
    void fillRow(int row);
    QComboBox *makePopUp(const QStringList &labels, int row, const char *column);
    void removeSelectedRows();

    MyDocument &m_document;
    std::function<TLBinNodePtr()> m_selectedNode;
    QLineEdit *m_nameField = nullptr;
    QComboBox *m_matchTypePopUp = nullptr;
    QTableWidget *m_table = nullptr;
    QStyledItemDelegate *m_textDelegate = nullptr;
    QProgressBar *m_spinner = nullptr;
    QPushButton *m_createButton = nullptr;
};
