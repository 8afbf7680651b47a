// The window side of a document opened by the command line: no window, and
// a note of the bin whose name the document asked to have typed in.
#pragma once

#include "MyDocumentView.h"

#include <mutex>

// A new empty bin is named by the user typing over "Untitled Bin" in the
// outline; the command line types for them, so it needs to know which node
// the document put into name editing. Everything else is the silent
// default of MyDocumentView.
class CliDocumentView final : public MyDocumentView
{
public:
    void editItemName(const TLBinNodePtr &node) override;

    // The node last put into name editing, and forgets it; null when none
    // was since the last call.
    TLBinNodePtr takeEditedItem();

private:
    std::mutex m_mutex;
    TLBinNodePtr m_editedItem;
};
