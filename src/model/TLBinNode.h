// The common base of every node of a document's bin tree.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class TLBinNode;

using TLBinNodePtr = std::shared_ptr<TLBinNode>;
// A list of nodes in display order; lists handed out are never changed.
using TLNodeList = std::vector<TLBinNodePtr>;
using TLNodeListPtr = std::shared_ptr<const TLNodeList>;

enum class TLBinNodeKind { regularBin, smartBin, binRangeItem, smartRangeItem, mediaItem };

// One node of the bin tree. Nodes are shared objects (always made through
// std::make_shared or the classes' create functions): a node owns its
// children, and refers to its parent through a weak reference, so there are
// no owning cycles and a parent that has gone away reads as no parent.
//
// Thread safety: worker threads read nodes while the main thread edits
// them. Every string and list field is read and written under the node's
// own mutex, which is never held while another node is touched; integer
// fields are atomic. Child lists are immutable snapshots: adding or
// removing a child installs a new list, so a list obtained earlier never
// changes under its holder.
//
// Not every kind has every field (see hasUuid() and hasChildren()); the
// accessors of a missing field are safe: they read as absent or empty and
// their setters report false and change nothing.
class TLBinNode : public std::enable_shared_from_this<TLBinNode>
{
public:
    virtual ~TLBinNode() = default;
    TLBinNode(const TLBinNode &) = delete;
    TLBinNode &operator=(const TLBinNode &) = delete;

    virtual TLBinNodeKind kind() const = 0;
    // The class name of a kind, as used in archives ("TLRegularBin", ...).
    static std::string_view className(TLBinNodeKind kind);
    std::string_view className() const { return className(kind()); }

    // Whether nodes of a kind carry an identifier: every kind but the regular bin.
    static bool kindHasUuid(TLBinNodeKind kind);
    // Whether nodes of a kind hold children: regular bins, smart bins and
    // smart range items.
    static bool kindHasChildren(TLBinNodeKind kind);
    bool hasUuid() const { return kindHasUuid(kind()); }
    bool hasChildren() const { return kindHasChildren(kind()); }

    // The text the outline shows: binName, or shortName for a media item.
    virtual std::string displayName() const;
    // The name of the outline icon of a kind: "empty-bin-small",
    // "smart-bin-small", "bin-range-single" or "smart-range-single"; empty
    // for a media item, whose icon is that of its file (or of the "mov" file
    // type when it has no path).
    static std::string_view iconName(TLBinNodeKind kind);
    std::string_view iconName() const { return iconName(kind()); }
    // Whether the outline can expand the node: it holds children and has at
    // least one.
    bool isExpandable() const { return hasChildren() && !children()->empty(); }

    // The bin's name; empty when none was given. Media items have no bin
    // name (see TLMediaItem::shortName) and keep whatever is set here unused.
    std::string binName() const;
    void setBinName(std::string binName);

    // The identifier; nullopt until one is assigned, and always for kinds
    // without one. setUuid returns false (and stores nothing) for those kinds.
    std::optional<std::string> uuid() const;
    bool setUuid(std::optional<std::string> uuid);

    // The containing node, or null at the top level or once it has gone away.
    // Adding and removing children keeps it up to date.
    TLBinNodePtr parent() const;
    // Returns false, and changes nothing, when `parent` is this node or one of
    // its descendants by parent references (the chain would loop).
    bool setParent(const TLBinNodePtr &parent);

    // The children in display order; never null (an empty list for kinds
    // without children).
    TLNodeListPtr children() const;
    // Installs `children` as the new list (null entries are dropped) and makes
    // this node their parent; children no longer listed lose this node as
    // parent. False, and nothing changed, for kinds without children or when a
    // child is this node or one of its ancestors.
    bool setChildren(TLNodeList children);
    // Appends one node and becomes its parent. False, and nothing changed, for
    // kinds without children, for a null node, and for this node or one of its
    // ancestors (the tree would own itself).
    bool addChild(const TLBinNodePtr &child);
    // Appends the nodes in order, as addChild; nothing is added when any of
    // them would be refused.
    bool addChildren(const TLNodeList &children);
    // Removes the node wherever it stands in the list, compared by identity,
    // and clears its parent if it was this node. A fresh list is installed even
    // when the node was not a child. Returns whether it was one.
    bool removeChild(const TLBinNode *child);
    bool removeChild(const TLBinNodePtr &child) { return removeChild(child.get()); }

protected:
    TLBinNode();

    // Reads or replaces a field under the node's mutex. The replaced value is
    // destroyed after the mutex is released, since it may hold the last
    // reference to other nodes.
    template <typename Value>
    Value guardedRead(const Value &field) const
    {
        std::lock_guard lock(m_mutex);
        return field;
    }
    template <typename Value>
    void guardedWrite(Value &field, Value value)
    {
        std::unique_lock lock(m_mutex);
        std::swap(field, value);
        lock.unlock();
    }

private:
    // Whether `node` is this node or one of its ancestors.
    bool isSelfOrAncestor(const TLBinNode *node) const;
    bool canAdopt(const TLNodeList &children) const;
    void installChildren(TLNodeListPtr children);
    void clearParentIfSelf(const TLBinNodePtr &child);

    mutable std::mutex m_mutex;
    std::string m_binName;
    std::optional<std::string> m_uuid;
    std::weak_ptr<TLBinNode> m_parent;
    TLNodeListPtr m_children;
};
