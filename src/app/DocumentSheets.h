// The sheets of a document window: range, smart bin, smart range and progress.
#pragma once

#include "TLBinNode.h"

#include <QPointer>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

class MyDocument;
class QDialog;
class QWidget;
class ProgressSheet;
class RangeSheet;
class SmartBinSheet;
class SmartRangeSheet;

// Owns the window-modal sheets of one document window and answers the sheet
// and progress calls the document makes of its view (the window forwards
// them here). The sheets only show: every button hands the user's input to
// the document's commands, which decide, alert, and close the sheet again
// through this object. Each sheet is made on first use and kept, as a child
// of the window, for the next time. Main thread only.
class DocumentSheets
{
public:
    // `window` parents the sheets (null makes them free-standing);
    // `selectedNode` answers the bin outline's selected node (null for none)
    // at the moment a sheet's create button is pressed.
    DocumentSheets(MyDocument &document, QWidget *window, std::function<TLBinNodePtr()> selectedNode);
    // Deletes the sheets made so far.
    ~DocumentSheets();
    DocumentSheets(const DocumentSheets &) = delete;
    DocumentSheets &operator=(const DocumentSheets &) = delete;

    // The smart range sheet's chosen criterion (the number its pop-up item
    // stands for); the pop-up's first criterion before the sheet was made.
    std::int64_t smartRangeCriteria();
    // The smart range add button's command: opens the sheet through the
    // document with the chosen criterion.
    void openSmartRangeSheet();

    // ---- Range sheet ----
    // Shows the sheet window-modally (open(), never a nested event loop).
    void showRangeSheet();
    // Hides the sheet; nothing when it was never shown.
    void closeRangeSheet();
    // Replaces the expression field's text; that alone starts no preview.
    void setRangeExpressionText(const std::string &expression);
    // Refills the preview list from MyDocument::rangePreviewNames().
    void reloadRangePreview();
    void setRangeCountText(const std::string &text);

    // ---- Smart bin sheet ----
    void showSmartBinSheet();
    void closeSmartBinSheet();
    // The sheet as a QWidget* in a void*, for alerts shown on it; null before
    // it was first made.
    void *smartBinSheetHandle() const;
    // Refills the filter table from the document's filter rows.
    void reloadSmartBinTable();
    // Opens the text cell of `row` for editing; nothing past the last row.
    void editSmartBinFilterText(std::size_t row);
    // Hands a text still being typed in the table to the document, then
    // closes its editor; nothing when no cell is being edited.
    void endSmartBinEditing();
    void startSmartBinSpinner();
    void stopSmartBinSpinner();

    // ---- Smart range sheet ----
    void showSmartRangeSheet();
    void closeSmartRangeSheet();
    // Rebuilds the preview outline from the document's smart range preview.
    void reloadSmartRangePreview();
    void startSmartRangeSpinner();
    void stopSmartRangeSpinner();
    void setSmartRangeCreateEnabled(bool enabled);

    // ---- Progress sheet of saving and sending ----
    // Shows the sheet if it is not already visible, brings it to the front
    // and runs its bar.
    void startProgress();
    // Hides the sheet if it is visible.
    void endProgress();
    // Sets the sheet's label, also before it is shown.
    void updateProgressLabel(const std::string &text);

    // The sheets, for tests; null before first made.
    QDialog *rangeSheet() const;
    QDialog *smartBinSheet() const;
    QDialog *smartRangeSheet() const;
    QDialog *progressSheet() const;

private:
    RangeSheet &ensureRangeSheet();
    SmartBinSheet &ensureSmartBinSheet();
    SmartRangeSheet &ensureSmartRangeSheet();
    ProgressSheet &ensureProgressSheet();

    MyDocument &m_document;
    QPointer<QWidget> m_window;
    std::function<TLBinNodePtr()> m_selectedNode;
    QPointer<RangeSheet> m_rangeSheet;
    QPointer<SmartBinSheet> m_smartBinSheet;
    QPointer<SmartRangeSheet> m_smartRangeSheet;
    QPointer<ProgressSheet> m_progressSheet;
};
