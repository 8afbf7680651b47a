// The command line's stand-in for a document window.
#include "CliDocumentView.h"

#include <utility>

void CliDocumentView::editItemName(const TLBinNodePtr &node)
{
    const std::lock_guard lock(m_mutex);
    m_editedItem = node;
}

TLBinNodePtr CliDocumentView::takeEditedItem()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_editedItem, nullptr);
}
