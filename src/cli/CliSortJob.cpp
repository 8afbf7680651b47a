// Running the command line's edits as the document's editing commands.
#include "CliSortJob.h"

#include "CliBinPath.h"
#include "CliNames.h"
#include "CliText.h"
#include "TLSmartBinFilter.h"

#include <utility>

namespace {

std::string describe(const CliEdit &edit)
{
    // Appended piece by piece: g++ 12 warns wrongly (-Wrestrict) about
    // "text" + std::string once inlined at -O3.
    std::string text(CliEdit::optionName(edit.kind));
    text += ' ';
    if (edit.kind == CliEdit::Kind::smartRange)
        text.append(CliNames::wordForNumber(CliNames::criteria(), edit.criterion));
    else
        text.append(CliText::quoted(edit.text));
    if (!edit.origin.empty() && edit.origin.rfind("--", 0) != 0)
        text.append(" (").append(edit.origin).append(")");
    return text;
}

TLFilterList filterListOf(const CliEdit &edit)
{
    TLFilterList rows;
    for (const auto &row : edit.filters)
        rows.push_back(TLSmartBinFilter::create(row.filterType, row.filterMatch, row.filterString));
    return rows;
}

} // namespace

CliSortJob::CliSortJob(MyDocument &document, CliDocumentView &view)
    : m_document(document), m_view(view)
{
}

CliSortJob::Outcome CliSortJob::apply(const CliEdit &edit, std::string &reason)
{
    switch (edit.kind) {
    case CliEdit::Kind::select:
        return select(edit, reason);
    case CliEdit::Kind::bin:
        return addBin(edit, reason);
    case CliEdit::Kind::range:
        return addRange(edit, reason);
    case CliEdit::Kind::smartBin:
        return addSmartBin(edit, reason);
    case CliEdit::Kind::smartRange:
        return addSmartRange(edit, reason);
    case CliEdit::Kind::remove:
        return removeBin(edit, reason);
    case CliEdit::Kind::rename:
        return renameBin(edit, reason);
    case CliEdit::Kind::keepSelection:
        m_keptSelections.push_back(std::exchange(m_selection, Selection()));
        return Outcome::done;
    case CliEdit::Kind::restoreSelection:
        if (!m_keptSelections.empty()) {
            m_selection = std::move(m_keptSelections.back());
            m_keptSelections.pop_back();
        }
        return Outcome::done;
    }
    reason = "unknown edit";
    return Outcome::failed;
}

CliSortJob::Outcome CliSortJob::select(const CliEdit &edit, std::string &reason)
{
    TLBinNodePtr node;
    if (!resolve(edit.text, node, reason))
        return Outcome::failed;
    m_selection = Selection{node, edit.text};
    return Outcome::done;
}

CliSortJob::Outcome CliSortJob::addBin(const CliEdit &edit, std::string &reason)
{
    if (!selectionIsInTree(reason))
        return Outcome::failed;
    m_view.takeEditedItem();
    const auto result = m_document.emptyBinClick(m_selection.node);
    if (result != MyDocument::EditResult::done)
        return outcomeOf(result, edit, reason);
    // The window would now wait for the user to type the name over
    // "Untitled Bin"; the command line types it.
    const TLBinNodePtr added = m_view.takeEditedItem();
    if (!added) {
        reason = describe(edit) + ": the new bin could not be named";
        return Outcome::failed;
    }
    m_document.setObjectValueForItem(edit.text, added);
    return Outcome::done;
}

CliSortJob::Outcome CliSortJob::addRange(const CliEdit &edit, std::string &reason)
{
    if (!selectionIsInTree(reason))
        return Outcome::failed;
    m_document.binRangeClick();
    m_document.updateRangePreview(edit.text);
    const auto result = m_document.createRangeClick(edit.text, m_selection.node);
    if (result == MyDocument::EditResult::failed)
        m_document.cancelCreateRange();
    return outcomeOf(result, edit, reason);
}

CliSortJob::Outcome CliSortJob::addSmartBin(const CliEdit &edit, std::string &reason)
{
    if (!selectionIsInTree(reason))
        return Outcome::failed;
    m_document.smartBinClick();
    m_document.setSmartBinFilterArray(filterListOf(edit));
    const auto result = m_document.createSmartBinClick(edit.text, edit.matchType, m_selection.node).get();
    if (result != MyDocument::EditResult::done)
        m_document.cancelCreateSmartBin();
    return outcomeOf(result, edit, reason);
}

CliSortJob::Outcome CliSortJob::addSmartRange(const CliEdit &edit, std::string &reason)
{
    if (!selectionIsInTree(reason))
        return Outcome::failed;
    m_document.smartRangeClick(edit.criterion);
    const auto result = m_document.createSmartRangeClick(m_selection.node).get();
    if (result != MyDocument::EditResult::done)
        m_document.cancelCreateSmartRange();
    return outcomeOf(result, edit, reason);
}

CliSortJob::Outcome CliSortJob::removeBin(const CliEdit &edit, std::string &reason)
{
    TLBinNodePtr node;
    if (!resolve(edit.text, node, reason))
        return Outcome::failed;
    if (!node) {
        reason = describe(edit) + ": name a bin to remove, not the top level";
        return Outcome::failed;
    }
    // Selecting one bin of a range series selects the whole series, and the
    // removal takes what is selected.
    const auto change = m_document.outlineViewSelectionDidChange({node});
    m_document.remove(change.selection);
    return Outcome::done;
}

CliSortJob::Outcome CliSortJob::renameBin(const CliEdit &edit, std::string &reason)
{
    TLBinNodePtr node;
    if (!resolve(edit.text, node, reason))
        return Outcome::failed;
    if (!node) {
        reason = describe(edit) + ": name a bin to rename, not the top level";
        return Outcome::failed;
    }
    m_document.setObjectValueForItem(edit.newName, node);
    return Outcome::done;
}

bool CliSortJob::resolve(const std::string &path, TLBinNodePtr &node, std::string &reason) const
{
    const auto tree = m_document.dataArray();
    reason = CliBinPath::resolve(tree ? *tree : TLNodeList(), path, node);
    return reason.empty();
}

bool CliSortJob::selectionIsInTree(std::string &reason) const
{
    const auto tree = m_document.dataArray();
    if (CliBinPath::isInTree(tree ? *tree : TLNodeList(), m_selection.node))
        return true;
    reason = "the bin chosen with --in " + CliText::quoted(m_selection.path) + " is no longer in the tree";
    return false;
}

CliSortJob::Outcome CliSortJob::outcomeOf(MyDocument::EditResult result, const CliEdit &edit,
                                          std::string &reason) const
{
    switch (result) {
    case MyDocument::EditResult::done:
        return Outcome::done;
    case MyDocument::EditResult::refused:
        reason = describe(edit) + " was refused";
        return Outcome::refused;
    case MyDocument::EditResult::failed:
        break;
    }
    reason = describe(edit) + " could not be applied";
    if (edit.kind == CliEdit::Kind::range)
        reason = "the range expression " + CliText::quoted(edit.text) + " is malformed";
    // A smart bin goes into whatever is selected; a range bin has no room.
    if (edit.kind == CliEdit::Kind::smartBin)
        reason = describe(edit) + ": the bin chosen with --in " + CliText::quoted(m_selection.path) + " cannot hold bins";
    return Outcome::failed;
}
