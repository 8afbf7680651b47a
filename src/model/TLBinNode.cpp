// Shared fields, capabilities and child-list handling of bin tree nodes.
#include "TLBinNode.h"

#include <algorithm>
#include <unordered_set>

namespace {

// Parent chains are kept acyclic, but a walk along one is still bounded so
// that a chain damaged by a race can never hang the caller.
constexpr int maximumAncestorSteps = 100000;

} // namespace

TLBinNode::TLBinNode() : m_children(std::make_shared<const TLNodeList>()) {}

std::string_view TLBinNode::className(TLBinNodeKind kind)
{
    switch (kind) {
    case TLBinNodeKind::regularBin:
        return "TLRegularBin";
    case TLBinNodeKind::smartBin:
        return "TLSmartBin";
    case TLBinNodeKind::binRangeItem:
        return "TLBinRangeItem";
    case TLBinNodeKind::smartRangeItem:
        return "TLSmartRangeItem";
    case TLBinNodeKind::mediaItem:
        return "TLMediaItem";
    }
    return {};
}

std::string_view TLBinNode::iconName(TLBinNodeKind kind)
{
    switch (kind) {
    case TLBinNodeKind::regularBin:
        return "empty-bin-small";
    case TLBinNodeKind::smartBin:
        return "smart-bin-small";
    case TLBinNodeKind::binRangeItem:
        return "bin-range-single";
    case TLBinNodeKind::smartRangeItem:
        return "smart-range-single";
    case TLBinNodeKind::mediaItem:
        break;
    }
    return {};
}

bool TLBinNode::kindHasUuid(TLBinNodeKind kind)
{
    return kind != TLBinNodeKind::regularBin;
}

bool TLBinNode::kindHasChildren(TLBinNodeKind kind)
{
    return kind == TLBinNodeKind::regularBin || kind == TLBinNodeKind::smartBin
        || kind == TLBinNodeKind::smartRangeItem;
}

std::string TLBinNode::displayName() const
{
    return binName();
}

std::string TLBinNode::binName() const
{
    return guardedRead(m_binName);
}

void TLBinNode::setBinName(std::string binName)
{
    guardedWrite(m_binName, std::move(binName));
}

std::optional<std::string> TLBinNode::uuid() const
{
    if (!hasUuid())
        return std::nullopt;
    return guardedRead(m_uuid);
}

bool TLBinNode::setUuid(std::optional<std::string> uuid)
{
    if (!hasUuid())
        return false;
    guardedWrite(m_uuid, std::move(uuid));
    return true;
}

TLBinNodePtr TLBinNode::parent() const
{
    std::lock_guard lock(m_mutex);
    return m_parent.lock();
}

bool TLBinNode::setParent(const TLBinNodePtr &parent)
{
    if (parent && parent->isSelfOrAncestor(this))
        return false;
    std::weak_ptr<TLBinNode> reference = parent;
    guardedWrite(m_parent, std::move(reference));
    return true;
}

bool TLBinNode::isSelfOrAncestor(const TLBinNode *node) const
{
    if (node == this)
        return true;
    auto ancestor = parent();
    for (int step = 0; ancestor; ++step, ancestor = ancestor->parent()) {
        if (ancestor.get() == node || step == maximumAncestorSteps)
            return true;
    }
    return false;
}

TLNodeListPtr TLBinNode::children() const
{
    return guardedRead(m_children);
}

bool TLBinNode::canAdopt(const TLNodeList &children) const
{
    return std::none_of(children.begin(), children.end(),
                        [this](const TLBinNodePtr &child) { return !child || isSelfOrAncestor(child.get()); });
}

void TLBinNode::installChildren(TLNodeListPtr children)
{
    guardedWrite(m_children, std::move(children));
}

void TLBinNode::clearParentIfSelf(const TLBinNodePtr &child)
{
    if (child && child->parent().get() == this)
        child->setParent(nullptr);
}

bool TLBinNode::setChildren(TLNodeList children)
{
    if (!hasChildren())
        return false;
    std::erase(children, nullptr);
    if (!canAdopt(children))
        return false;
    auto fresh = std::make_shared<const TLNodeList>(std::move(children));
    const auto old = this->children();
    installChildren(fresh);
    const auto self = weak_from_this().lock();
    std::unordered_set<const TLBinNode *> kept;
    for (const auto &child : *fresh) {
        child->setParent(self);
        kept.insert(child.get());
    }
    for (const auto &child : *old) {
        if (!kept.contains(child.get()))
            clearParentIfSelf(child);
    }
    return true;
}

bool TLBinNode::addChild(const TLBinNodePtr &child)
{
    return addChildren(TLNodeList{child});
}

bool TLBinNode::addChildren(const TLNodeList &children)
{
    if (!hasChildren() || !canAdopt(children))
        return false;
    {
        std::unique_lock lock(m_mutex);
        auto fresh = std::make_shared<TLNodeList>(*m_children);
        fresh->insert(fresh->end(), children.begin(), children.end());
        TLNodeListPtr old = std::exchange(m_children, std::move(fresh));
        lock.unlock();
    }
    const auto self = weak_from_this().lock();
    for (const auto &child : children)
        child->setParent(self);
    return true;
}

bool TLBinNode::removeChild(const TLBinNode *child)
{
    if (!hasChildren())
        return false;
    TLBinNodePtr removed;
    {
        std::unique_lock lock(m_mutex);
        auto fresh = std::make_shared<TLNodeList>();
        fresh->reserve(m_children->size());
        for (const auto &node : *m_children) {
            if (node.get() == child)
                removed = node;
            else
                fresh->push_back(node);
        }
        TLNodeListPtr old = std::exchange(m_children, std::move(fresh));
        lock.unlock();
    }
    clearParentIfSelf(removed);
    return removed != nullptr;
}
