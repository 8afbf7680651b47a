// The bin tree as a Qt item model: rows from the document's outline answers,
// kept in step with the document through remembered child lists.
#include "BinOutlineModel.h"

#include "AppIcons.h"
#include "TLMediaItem.h"

#include <QFileIconProvider>
#include <QFileInfo>
#include <QMimeDatabase>

#include <algorithm>
#include <unordered_set>

namespace {

TLBinNode *nodeOf(const QModelIndex &index)
{
    return index.isValid() ? static_cast<TLBinNode *>(index.internalPointer()) : nullptr;
}

TLBinNodePtr sharedNode(const TLBinNode *node)
{
    return node ? const_cast<TLBinNode *>(node)->shared_from_this() : nullptr;
}

// Whether the nodes of `kept`, in order, all stand in `current` in that same
// order, so that only insertions are needed to go from one to the other.
bool isOrderedSubsequence(const TLNodeList &kept, const TLNodeList &current)
{
    auto position = current.begin();
    for (const auto &node : kept) {
        position = std::find(position, current.end(), node);
        if (position == current.end())
            return false;
        ++position;
    }
    return true;
}

} // namespace

BinOutlineModel::BinOutlineModel(MyDocument &document, MyDocument::Outline outline, QObject *parent)
    : QAbstractItemModel(parent), m_document(document), m_outline(outline)
{
}

TLBinNodePtr BinOutlineModel::nodeForIndex(const QModelIndex &index) const
{
    if (!index.isValid() || index.model() != this)
        return nullptr;
    return sharedNode(nodeOf(index));
}

QModelIndex BinOutlineModel::indexForNode(const TLBinNodePtr &node) const
{
    return indexForNode(node.get());
}

QModelIndex BinOutlineModel::indexForNode(const TLBinNode *node) const
{
    if (!node)
        return {};
    const auto found = m_placements.find(node);
    if (found == m_placements.end())
        return {};
    return createIndex(found->second.row, 0, const_cast<TLBinNode *>(node));
}

// ---- Remembered rows ----

TLNodeList BinOutlineModel::childrenFromDocument(const TLBinNode *parent) const
{
    const TLBinNodePtr item = sharedNode(parent);
    const std::size_t count = m_document.numberOfChildrenOfItem(item, m_outline);
    TLNodeList children;
    children.reserve(count);
    for (std::size_t index = 0; index < count; ++index) {
        if (TLBinNodePtr child = m_document.childOfItem(index, item, m_outline))
            children.push_back(std::move(child));
    }
    return children;
}

const TLNodeList &BinOutlineModel::reportedChildren(const TLBinNode *parent) const
{
    const auto found = m_reportedChildren.find(parent);
    if (found != m_reportedChildren.end())
        return found->second;
    TLNodeList &children = m_reportedChildren[parent];
    children = childrenFromDocument(parent);
    for (std::size_t row = 0; row < children.size(); ++row)
        m_placements[children[row].get()] = {parent, int(row)};
    return children;
}

void BinOutlineModel::renumberChildren(const TLBinNode *parent)
{
    const TLNodeList &children = m_reportedChildren[parent];
    for (std::size_t row = 0; row < children.size(); ++row)
        m_placements[children[row].get()] = {parent, int(row)};
}

void BinOutlineModel::forgetDescendants(const TLBinNode *node)
{
    const auto found = m_reportedChildren.find(node);
    if (found == m_reportedChildren.end())
        return;
    const TLNodeList children = std::move(found->second);
    m_reportedChildren.erase(found);
    for (const auto &child : children) {
        const auto placement = m_placements.find(child.get());
        // A node shown elsewhere meanwhile keeps its new place.
        if (placement != m_placements.end() && placement->second.parent == node)
            m_placements.erase(placement);
        forgetDescendants(child.get());
    }
}

void BinOutlineModel::removeRows(const TLBinNode *parent, int first, int last)
{
    beginRemoveRows(indexForNode(parent), first, last);
    TLNodeList &children = m_reportedChildren[parent];
    // Held until the views have let go of the rows.
    const TLNodeList removed(children.begin() + first, children.begin() + last + 1);
    children.erase(children.begin() + first, children.begin() + last + 1);
    for (const auto &node : removed) {
        const auto placement = m_placements.find(node.get());
        if (placement != m_placements.end() && placement->second.parent == parent)
            m_placements.erase(placement);
        forgetDescendants(node.get());
    }
    renumberChildren(parent);
    endRemoveRows();
}

void BinOutlineModel::insertRows(const TLBinNode *parent, int row, const TLNodeList &nodes)
{
    beginInsertRows(indexForNode(parent), row, row + int(nodes.size()) - 1);
    TLNodeList &children = m_reportedChildren[parent];
    children.insert(children.begin() + row, nodes.begin(), nodes.end());
    renumberChildren(parent);
    endInsertRows();
}

void BinOutlineModel::synchronizeChildren(const TLBinNode *parent)
{
    if (!m_reportedChildren.count(parent))
        return;
    const TLNodeList current = childrenFromDocument(parent);
    std::unordered_set<const TLBinNode *> stillThere;
    for (const auto &node : current)
        stillThere.insert(node.get());

    // Gone rows first, from the end, a run of neighbours at a time.
    for (int row = int(m_reportedChildren[parent].size()) - 1; row >= 0; --row) {
        const TLNodeList &reported = m_reportedChildren[parent];
        if (stillThere.count(reported[std::size_t(row)].get()))
            continue;
        const int last = row;
        while (row > 0 && !stillThere.count(reported[std::size_t(row - 1)].get()))
            --row;
        removeRows(parent, row, last);
    }

    // The document only appends and removes; should the remaining rows ever
    // stand in another order, all of them are reported anew.
    if (!isOrderedSubsequence(m_reportedChildren[parent], current) && !m_reportedChildren[parent].empty())
        removeRows(parent, 0, int(m_reportedChildren[parent].size()) - 1);

    std::size_t reportedRow = 0;
    for (std::size_t index = 0; index < current.size();) {
        const TLNodeList &reported = m_reportedChildren[parent];
        if (reportedRow < reported.size() && reported[reportedRow] == current[index]) {
            ++reportedRow;
            ++index;
            continue;
        }
        TLNodeList run;
        const TLBinNodePtr next = reportedRow < reported.size() ? reported[reportedRow] : nullptr;
        while (index < current.size() && current[index] != next)
            run.push_back(current[index++]);
        insertRows(parent, int(reportedRow), run);
        reportedRow += run.size();
    }

    const TLNodeList children = m_reportedChildren[parent];
    if (children.empty())
        return;
    // Names may have changed without any row moving.
    const QModelIndex parentIndex = indexForNode(parent);
    emit dataChanged(index(0, 0, parentIndex), index(int(children.size()) - 1, 0, parentIndex));
    for (const auto &child : children)
        synchronizeChildren(child.get());
}

void BinOutlineModel::reloadOutline()
{
    synchronizeChildren(nullptr);
}

void BinOutlineModel::reloadItem(const TLBinNodePtr &node, bool reloadChildren)
{
    if (!node) {
        reloadOutline();
        return;
    }
    const QModelIndex nodeIndex = indexForNode(node.get());
    if (nodeIndex.isValid())
        emit dataChanged(nodeIndex, nodeIndex);
    if (reloadChildren)
        synchronizeChildren(node.get());
}

// ---- QAbstractItemModel ----

QModelIndex BinOutlineModel::index(int row, int column, const QModelIndex &parent) const
{
    if (!hasIndex(row, column, parent))
        return {};
    const TLNodeList &children = reportedChildren(nodeOf(parent));
    return createIndex(row, column, children[std::size_t(row)].get());
}

QModelIndex BinOutlineModel::parent(const QModelIndex &child) const
{
    const TLBinNode *node = nodeOf(child);
    if (!node)
        return {};
    const auto found = m_placements.find(node);
    if (found == m_placements.end())
        return {};
    return indexForNode(found->second.parent);
}

int BinOutlineModel::rowCount(const QModelIndex &parent) const
{
    if (parent.column() > 0)
        return 0;
    return int(reportedChildren(nodeOf(parent)).size());
}

int BinOutlineModel::columnCount(const QModelIndex & /*parent*/) const
{
    return 1;
}

QVariant BinOutlineModel::data(const QModelIndex &index, int role) const
{
    const TLBinNodePtr node = nodeForIndex(index);
    if (!node)
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return QString::fromStdString(MyDocument::objectValueForItem(node));
    case Qt::ToolTipRole:
        return toolTipForNode(node);
    case Qt::DecorationRole:
        return iconForNode(node);
    default:
        return {};
    }
}

bool BinOutlineModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    const TLBinNodePtr node = nodeForIndex(index);
    if (!node || role != Qt::EditRole)
        return false;
    m_document.setObjectValueForItem(value.toString().toStdString(), node);
    emit dataChanged(index, index);
    return true;
}

Qt::ItemFlags BinOutlineModel::flags(const QModelIndex &index) const
{
    const TLBinNodePtr node = nodeForIndex(index);
    if (!node)
        return Qt::NoItemFlags;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (MyDocument::isItemRenamable(node))
        flags |= Qt::ItemIsEditable;
    return flags;
}

QString BinOutlineModel::toolTipForNode(const TLBinNodePtr &node)
{
    // A clip's name alone does not say which file it is.
    const auto *media = dynamic_cast<const TLMediaItem *>(node.get());
    if (const auto path = media ? media->filePath() : std::nullopt)
        return QString::fromStdString(*path);
    return QString::fromStdString(MyDocument::objectValueForItem(node));
}

QIcon BinOutlineModel::iconForNode(const TLBinNodePtr &node) const
{
    const MyDocument::OutlineIcon icon = MyDocument::iconForItem(node);
    if (icon.source == MyDocument::OutlineIcon::Source::imageNamed)
        return AppIcons::named(icon.name);
    // A clip shows the desktop's icon for its file's type, found by name so
    // that clips on media that is not mounted still get theirs.
    const QString fileName = icon.source == MyDocument::OutlineIcon::Source::fileIcon
                                 ? QFileInfo(QString::fromStdString(icon.name)).fileName()
                                 : QStringLiteral("clip.") + QString::fromStdString(icon.name);
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    const auto cached = m_fileTypeIcons.constFind(suffix);
    if (cached != m_fileTypeIcons.constEnd())
        return *cached;
    const QMimeType type = QMimeDatabase().mimeTypeForFile(fileName, QMimeDatabase::MatchExtension);
    QIcon fileIcon = QIcon::fromTheme(type.iconName(), QIcon::fromTheme(type.genericIconName()));
    if (fileIcon.isNull())
        fileIcon = QFileIconProvider().icon(QFileIconProvider::File);
    m_fileTypeIcons.insert(suffix, fileIcon);
    return fileIcon;
}
