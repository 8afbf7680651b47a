// Applies the edits of `corvale sort` to an open document, through the
// document's own editing commands.
#pragma once

#include "CliDocumentView.h"
#include "CliEdit.h"
#include "MyDocument.h"

#include <memory>
#include <string>
#include <vector>

// The job stands in for the user at the window: it keeps the selection
// (chosen with select edits, the top level at first), and runs each edit as
// the matching command with that selection, so the same rules refuse the
// same edits. The selection stays where the user put it: a new bin does not
// become selected, as it would in the window. The edits of a recipe come
// between a keepSelection edit, which starts them at the top level, and a
// restoreSelection edit, which puts the selection back as it was before the
// recipe. Used on the main thread.
class CliSortJob
{
public:
    enum class Outcome { done, refused, failed };

    // `document` must have been made with `view` as its view; both must
    // outlive the job.
    CliSortJob(MyDocument &document, CliDocumentView &view);

    // Runs one edit. done: applied (possibly adding nothing, as a smart
    // range of no values). refused: a rule of the document refused it, and
    // its alert has been shown; `reason` names the edit. failed: nothing
    // changed, and `reason` is a one-line explanation (a bin path that
    // leads nowhere or to several bins, a selection that has since left
    // the tree, a malformed range expression).
    Outcome apply(const CliEdit &edit, std::string &reason);

    // The selected bin; null for the top level.
    TLBinNodePtr selected() const { return m_selection.node; }

private:
    Outcome select(const CliEdit &edit, std::string &reason);
    Outcome addBin(const CliEdit &edit, std::string &reason);
    Outcome addRange(const CliEdit &edit, std::string &reason);
    Outcome addSmartBin(const CliEdit &edit, std::string &reason);
    Outcome addSmartRange(const CliEdit &edit, std::string &reason);
    Outcome removeBin(const CliEdit &edit, std::string &reason);
    Outcome renameBin(const CliEdit &edit, std::string &reason);

    // Finds the bin at `path` in the current tree (null for the top level).
    bool resolve(const std::string &path, TLBinNodePtr &node, std::string &reason) const;
    // Whether the selection is still in the tree; sets `reason` when not.
    bool selectionIsInTree(std::string &reason) const;
    Outcome outcomeOf(MyDocument::EditResult result, const CliEdit &edit, std::string &reason) const;

    // The selected bin (null: the top level) and the path it was chosen by.
    struct Selection
    {
        TLBinNodePtr node;
        std::string path = "/";
    };

    MyDocument &m_document;
    CliDocumentView &m_view;
    Selection m_selection;
    // The selections kept around recipes, innermost last.
    std::vector<Selection> m_keptSelections;
};
