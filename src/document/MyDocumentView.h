// What a document asks of the window that shows it.
#pragma once

#include "TLBinNode.h"

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

    // The progress sheet of saving and sending.
    virtual void startProgress() {}
    virtual void endProgress() {}
    virtual void updateProgressLabel(const std::string & /*text*/) {}

    // Sheets, spinners and previews are added here by the editing commands.
};
