// The outline side of a document: the tree operations every command goes
// through, removing, renaming and double-clicking rows, range series and the
// selection, the answers about rows (children, names, icons) and the states
// of menu items.
#include "MyDocument.h"

#include "TLBinRangeItem.h"
#include "TLLog.h"
#include "TLMediaItem.h"

#include <algorithm>
#include <unordered_set>

namespace {

constexpr std::string_view disableAddButtonsNotification = "disableAddButtons";
constexpr std::string_view enableAddButtonsNotification = "enableAddButtons";
constexpr std::string_view sendKeyEquivalent = "s";

bool isLeafKind(TLBinNodeKind kind)
{
    return kind == TLBinNodeKind::binRangeItem || kind == TLBinNodeKind::mediaItem;
}

} // namespace

// ---- Tree operations ----

bool MyDocument::addItem(const TLBinNodePtr &node, const TLBinNodePtr &parent, bool reloadData,
                         bool enterEditMode)
{
    if (!node)
        return false;
    if (parent) {
        if (!parent->addChild(node)) {
            TLLog::appendLog("Unable to add %@ to %@", node->className(), parent->className());
            return false;
        }
    } else {
        const TLNodeListPtr current = dataArray();
        TLNodeList topLevel = current ? *current : TLNodeList{};
        topLevel.push_back(node);
        setDataArray(std::move(topLevel));
        node->setParent(nullptr);
    }
    if (!reloadData)
        return true;
    if (parent) {
        view().reloadItem(parent, true);
        view().expandItem(parent);
    } else {
        view().reloadOutline();
    }
    view().selectItem(node);
    if (enterEditMode)
        view().editItemName(node);
    return true;
}

bool MyDocument::addItems(const TLNodeList &nodes, const TLBinNodePtr &parent, bool reloadData)
{
    TLNodeList added;
    std::copy_if(nodes.begin(), nodes.end(), std::back_inserter(added), [](const auto &node) { return node; });
    if (added.empty())
        return false;
    if (parent) {
        if (!parent->addChildren(added)) {
            TLLog::appendLog("Unable to add %i items to %@", added.size(), parent->className());
            return false;
        }
        if (reloadData) {
            view().reloadItem(parent, true);
            view().expandItem(parent);
        }
    } else {
        const TLNodeListPtr current = dataArray();
        TLNodeList topLevel = current ? *current : TLNodeList{};
        topLevel.insert(topLevel.end(), added.begin(), added.end());
        setDataArray(std::move(topLevel));
        for (const auto &node : added)
            node->setParent(nullptr);
        if (reloadData)
            view().reloadOutline();
    }
    if (reloadData)
        view().selectItem(added.front());
    updateChangeCountDone();
    return true;
}

bool MyDocument::removeItem(const TLBinNodePtr &node, const TLBinNodePtr &parent, bool reloadData)
{
    if (!node)
        return false;
    bool wasThere = false;
    if (parent) {
        wasThere = parent->removeChild(node);
    } else {
        const TLNodeListPtr current = dataArray();
        TLNodeList topLevel = current ? *current : TLNodeList{};
        wasThere = std::erase(topLevel, node) > 0;
        setDataArray(std::move(topLevel));
    }
    if (reloadData)
        reloadItemOrOutline(parent);
    updateChangeCountDone();
    return wasThere;
}

void MyDocument::reloadItemOrOutline(const TLBinNodePtr &item)
{
    if (item)
        view().reloadItem(item, true);
    else
        view().reloadOutline();
}

// ---- Removing, renaming, double-click ----

void MyDocument::remove(const TLNodeList &selected)
{
    for (const auto &node : selected) {
        // Clips belong to their smart bin's last resolution, not to the user.
        if (!node || node->kind() == TLBinNodeKind::mediaItem)
            continue;
        removeItem(node, node->parent(), false);
    }
    view().reloadOutline();
}

void MyDocument::setObjectValueForItem(const std::string &value, const TLBinNodePtr &item)
{
    if (item)
        item->setBinName(value);
}

bool MyDocument::isItemRenamable(const TLBinNodePtr &item)
{
    return item && item->kind() == TLBinNodeKind::regularBin;
}

void MyDocument::outlineViewDoubleClick(const TLBinNodePtr &clicked)
{
    if (!clicked)
        return;
    if (isItemRenamable(clicked)) {
        view().editItemName(clicked);
        return;
    }
    const auto *item = dynamic_cast<const TLBinRangeItem *>(clicked.get());
    if (!item)
        return;
    binRangeClick();
    const std::string expression = item->rangeExpression();
    view().setRangeExpressionText(expression);
    updateRangePreview(expression);
}

// ---- Range series and selection ----

TLNodeList MyDocument::siblingsOfItem(const TLBinNodePtr &item) const
{
    if (const auto parent = item->parent())
        return *parent->children();
    const TLNodeListPtr topLevel = dataArray();
    return topLevel ? *topLevel : TLNodeList{};
}

TLNodeList MyDocument::rangeSeriesOfItem(const TLBinNodePtr &item) const
{
    const auto *rangeItem = dynamic_cast<const TLBinRangeItem *>(item.get());
    if (!rangeItem)
        return {};
    const TLNodeList siblings = siblingsOfItem(item);
    const auto found = std::find(siblings.begin(), siblings.end(), item);
    if (found == siblings.end() || rangeItem->rangeCount() <= 0)
        return {item};
    // A series stands as consecutive siblings in index order, so it starts
    // rangeCurrentIndex places before the item.
    const auto position = std::int64_t(found - siblings.begin());
    const auto size = std::int64_t(siblings.size());
    const std::int64_t first = position - rangeItem->rangeCurrentIndex();
    const std::int64_t end = first + std::min(rangeItem->rangeCount(), size);
    // Indexes that do not place the item inside its own series come from a
    // damaged settings file; the item then stands alone rather than taking
    // its neighbours with it.
    if (first < 0 || first > position || end <= position)
        return {item};
    TLNodeList series;
    for (std::int64_t index = first; index < std::min(end, size); ++index) {
        // Only range items: other bins that a damaged file put in between
        // are never swept along.
        const TLBinNodePtr &sibling = siblings[std::size_t(index)];
        if (sibling->kind() == TLBinNodeKind::binRangeItem)
            series.push_back(sibling);
    }
    return series;
}

MyDocument::SelectionChange MyDocument::outlineViewSelectionDidChange(const TLNodeList &selected)
{
    SelectionChange change{selected, std::string(enableAddButtonsNotification)};
    std::unordered_set<const TLBinNode *> inSelection;
    for (const auto &node : selected)
        inSelection.insert(node.get());

    bool sawRangeItem = false;
    TLNodeList added;
    for (const auto &node : selected) {
        if (!node || node->kind() != TLBinNodeKind::binRangeItem)
            continue;
        sawRangeItem = true;
        for (const auto &member : rangeSeriesOfItem(node)) {
            if (inSelection.insert(member.get()).second)
                added.push_back(member);
        }
    }
    if (!added.empty()) {
        change.selection.insert(change.selection.end(), added.begin(), added.end());
        view().extendSelection(added);
    }
    if (sawRangeItem)
        change.notificationName = std::string(disableAddButtonsNotification);
    view().postNotification(change.notificationName);
    return change;
}

void MyDocument::enableAddButtons()
{
    view().setAddButtonsEnabled(true);
}

void MyDocument::disableAddButtons()
{
    view().setAddButtonsEnabled(false);
}

// ---- Outline answers ----

std::size_t MyDocument::numberOfChildrenOfItem(const TLBinNodePtr &item, Outline outline) const
{
    if (!item) {
        if (outline == Outline::smartRangePreview)
            return smartRangePreview().size();
        const TLNodeListPtr topLevel = dataArray();
        return topLevel ? topLevel->size() : 0;
    }
    // The preview shows each item's clips and nothing deeper.
    if (outline == Outline::smartRangePreview && item->kind() != TLBinNodeKind::smartRangeItem)
        return 0;
    if (isLeafKind(item->kind()))
        return 0;
    return item->children()->size();
}

TLBinNodePtr MyDocument::childOfItem(std::size_t index, const TLBinNodePtr &item, Outline outline) const
{
    if (!item && outline == Outline::smartRangePreview) {
        const auto preview = smartRangePreview();
        return index < preview.size() ? preview[index] : nullptr;
    }
    TLNodeListPtr children = item ? item->children() : dataArray();
    if (!children || index >= children->size())
        return nullptr;
    return (*children)[index];
}

bool MyDocument::isItemExpandable(const TLBinNodePtr &item)
{
    if (!item || isLeafKind(item->kind()))
        return false;
    return !item->children()->empty();
}

std::string MyDocument::objectValueForItem(const TLBinNodePtr &item)
{
    return item ? item->displayName() : std::string();
}

MyDocument::OutlineIcon MyDocument::iconForItem(const TLBinNodePtr &item)
{
    using Source = OutlineIcon::Source;
    if (!item)
        return {Source::imageNamed, {}};
    switch (item->kind()) {
    case TLBinNodeKind::regularBin:
        return {Source::imageNamed, "empty-bin-small"};
    case TLBinNodeKind::binRangeItem:
        return {Source::imageNamed, "bin-range-single"};
    case TLBinNodeKind::smartRangeItem:
        return {Source::imageNamed, "smart-range-single"};
    case TLBinNodeKind::smartBin:
        return {Source::imageNamed, "smart-bin-small"};
    case TLBinNodeKind::mediaItem:
        break;
    }
    const auto *media = dynamic_cast<const TLMediaItem *>(item.get());
    if (const auto path = media ? media->filePath() : std::nullopt)
        return {Source::fileIcon, *path};
    return {Source::fileTypeIcon, "mov"};
}

// ---- Menus ----

MyDocument::MenuItemState MyDocument::validateUserInterfaceItem(MenuAction action, bool isFinalCutProRunning) const
{
    // Command-S belongs to sending for a host project and to saving for an
    // xmeml file, and the other item of the pair is hidden.
    const bool isHostProject = isFCPProject() || isPremiereProject();
    MenuItemState state;
    switch (action) {
    case MenuAction::openFCPProject:
        state.enabled = isFinalCutProRunning;
        break;
    case MenuAction::sendToFCP:
        state.title = isPremiereProject() ? "Send to Premiere Pro" : "Send to Final Cut Pro";
        state.keyEquivalent = isHostProject ? std::string(sendKeyEquivalent) : std::string();
        state.hidden = !isHostProject;
        state.enabled = isHostProject;
        break;
    case MenuAction::save:
        state.keyEquivalent = isHostProject ? std::string() : std::string(sendKeyEquivalent);
        state.hidden = isHostProject;
        state.enabled = !isHostProject;
        break;
    case MenuAction::saveAs:
    case MenuAction::revert:
        state.hidden = isHostProject;
        state.enabled = !isHostProject;
        break;
    case MenuAction::other:
        break;
    }
    return state;
}
