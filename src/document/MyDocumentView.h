// What a document asks of the window that shows it.
#pragma once

#include "TLBinNode.h"

#include <cstddef>
#include <string>

// The window side of a document: the outline of the bin tree, the sheets and
// the progress sheet. The document calls these on the main thread only
// (workers hand over through TLMainThread). Every operation has a default
// that does nothing, so a document without a window (the command line, the
// tests) simply runs its rules. The desktop application implements them
// with widgets; tests record them.
class MyDocumentView
{
public:
    virtual ~MyDocumentView() = default;

    // The window that alerts of this document attach to; null for none.
    virtual void *windowHandle() const { return nullptr; }

    // Outline of the bin tree. A null node stands for the top level.
    virtual void reloadOutline() {}
    virtual void reloadItem(const TLBinNodePtr & /*node*/, bool /*reloadChildren*/) {}
    virtual void expandItem(const TLBinNodePtr & /*node*/) {}
    // Selects the node's row, and only that row.
    virtual void selectItem(const TLBinNodePtr & /*node*/) {}
    // Starts editing the node's name in place.
    virtual void editItemName(const TLBinNodePtr & /*node*/) {}

    // What the save or send that just ended could not write, as
    // TLWriteReport::message() words it; "" when it wrote everything.
    // Shown without stopping the user (a save may leave out a bin).
    virtual void showWriteReport(const std::string & /*message*/) {}

    // The progress sheet of saving and sending.
    virtual void startProgress() {}
    virtual void endProgress() {}
    virtual void updateProgressLabel(const std::string & /*text*/) {}

    // Selection and add buttons of the bin outline.
    // Adds the nodes' rows to the selection, keeping what is selected.
    virtual void extendSelection(const TLNodeList & /*nodes*/) {}
    // Posts the named notification with the outline as its object.
    virtual void postNotification(const std::string & /*name*/) {}
    // Enables, or disables, the four add buttons together.
    virtual void setAddButtonsEnabled(bool /*enabled*/) {}

    // The range sheet: the expression field, the preview table (its rows
    // are MyDocument::rangePreviewNames()) and the count text.
    virtual void showRangeSheet() {}
    virtual void closeRangeSheet() {}
    virtual void setRangeExpressionText(const std::string & /*expression*/) {}
    virtual void reloadRangePreview() {}
    virtual void setRangeCountText(const std::string & /*text*/) {}

    // The smart bin sheet: its table of filter rows
    // (MyDocument::smartBinFilterArray()) and its spinner.
    virtual void showSmartBinSheet() {}
    virtual void closeSmartBinSheet() {}
    // The sheet as a window handle, for alerts shown on it; null for none.
    virtual void *smartBinSheetHandle() const { return nullptr; }
    virtual void reloadSmartBinTable() {}
    // Starts editing the text cell of the row.
    virtual void editSmartBinFilterText(std::size_t /*row*/) {}
    // Ends an edit in progress in the table, handing its value over first.
    virtual void endSmartBinEditing() {}
    virtual void startSmartBinSpinner() {}
    virtual void stopSmartBinSpinner() {}

    // The smart range sheet: its preview outline (rows from MyDocument's
    // outline answers for Outline::smartRangePreview), spinner and create
    // button.
    virtual void showSmartRangeSheet() {}
    virtual void closeSmartRangeSheet() {}
    virtual void reloadSmartRangePreview() {}
    virtual void startSmartRangeSpinner() {}
    virtual void stopSmartRangeSpinner() {}
    virtual void setSmartRangeCreateEnabled(bool /*enabled*/) {}
};
