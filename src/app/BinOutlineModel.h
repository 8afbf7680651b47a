// The item model that shows a document's bin tree (or its smart range
// preview) in a tree view.
#pragma once

#include "MyDocument.h"
#include "TLBinNode.h"

#include <QAbstractItemModel>
#include <QHash>
#include <QIcon>

#include <unordered_map>

// Translates the document's outline answers for Qt; it holds no bins of its
// own. An index's internalPointer() is the core node (a TLBinNode*), and the
// invalid index is the root (the top level, or the preview list).
//
// The document changes its tree first and tells the window afterwards, while
// Qt must hear of rows going and coming before it sees the new tree. So the
// model remembers, for every node whose rows it has reported, the child list
// it reported (an immutable snapshot, which also keeps removed nodes alive
// until the views let go of them), and each reload compares that with the
// document's answers and reports the difference as removed and inserted
// rows. Expansion and selection of the rows that stay are kept.
//
// Main thread only.
class BinOutlineModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    // The role of a row's subtitle, drawn small under its name; never set
    // by this model (rows have no subtitle), for delegates that draw one.
    static constexpr int subtitleRole = Qt::UserRole + 1;

    // A model of `outline` of `document`, which must outlive it.
    explicit BinOutlineModel(MyDocument &document, MyDocument::Outline outline = MyDocument::Outline::bins,
                             QObject *parent = nullptr);

    // The node of `index`; null for the invalid index (the root) and for an
    // index of another model.
    TLBinNodePtr nodeForIndex(const QModelIndex &index) const;
    // The index of `node` in column 0; invalid for null, and for a node whose
    // row has not been reported (a child of a parent never expanded or
    // asked about, or a node no longer shown).
    QModelIndex indexForNode(const TLBinNodePtr &node) const;

    // Brings every reported row up to date with the document.
    void reloadOutline();
    // Updates the node's own row, and with `reloadChildren` its rows below,
    // deeply. A null node is the root: the same as reloadOutline().
    void reloadItem(const TLBinNodePtr &node, bool reloadChildren);

    // QAbstractItemModel
    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    // Display and edit: the row's name; decoration: its icon at 16 by 16;
    // tool tip: a clip's file, a bin's name.
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    // An edit of a name goes to the document; false for any other role or
    // an invalid index.
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    // Selectable always; editable for bins, never for clips.
    Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    // Where a reported node stands: its parent (null: the root) and its row.
    struct Placement
    {
        const TLBinNode *parent = nullptr;
        int row = 0;
    };

    // The rows reported under `parent`, taking them from the document on
    // first use.
    const TLNodeList &reportedChildren(const TLBinNode *parent) const;
    TLNodeList childrenFromDocument(const TLBinNode *parent) const;
    QModelIndex indexForNode(const TLBinNode *node) const;
    void renumberChildren(const TLBinNode *parent);
    // Reports the difference between the remembered and the current child
    // list of `parent`, then does the same below each remaining child.
    void synchronizeChildren(const TLBinNode *parent);
    void removeRows(const TLBinNode *parent, int first, int last);
    void insertRows(const TLBinNode *parent, int row, const TLNodeList &nodes);
    void forgetDescendants(const TLBinNode *node);
    QIcon iconForNode(const TLBinNodePtr &node) const;
    static QString toolTipForNode(const TLBinNodePtr &node);

    MyDocument &m_document;
    MyDocument::Outline m_outline;
    // Reported child lists by parent (null: the root), and where each
    // reported node stands. Filled lazily as the views ask.
    mutable std::unordered_map<const TLBinNode *, TLNodeList> m_reportedChildren;
    mutable std::unordered_map<const TLBinNode *, Placement> m_placements;
    // File type icons by extension: a project holds thousands of clips of a
    // handful of types.
    mutable QHash<QString, QIcon> m_fileTypeIcons;
};
