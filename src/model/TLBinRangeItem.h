// One bin of a numbered series made from a range expression.
#pragma once

#include "TLBinNode.h"

#include <atomic>

// An always empty bin such as "Reel 3" from the expression "Reel [1-10]".
// The items of one series carry the same expression and stand as
// consecutive siblings in the order of their rangeCurrentIndex; the editing
// commands find a whole series from any of its items by that. No children.
class TLBinRangeItem : public TLBinNode
{
public:
    // No name, no expression, no parent, count and index 0.
    TLBinRangeItem() = default;
    // `parent` may be null (top level); it is only referred to, not changed.
    TLBinRangeItem(std::string binName, std::string rangeExpression, const TLBinNodePtr &parent,
                   std::int64_t rangeCount, std::int64_t rangeCurrentIndex);
    static std::shared_ptr<TLBinRangeItem> create(std::string binName, std::string rangeExpression,
                                                  const TLBinNodePtr &parent, std::int64_t rangeCount,
                                                  std::int64_t rangeCurrentIndex);

    TLBinNodeKind kind() const override { return TLBinNodeKind::binRangeItem; }

    // The whole expression the series was made from.
    std::string rangeExpression() const;
    void setRangeExpression(std::string rangeExpression);
    // The number of items in the series.
    std::int64_t rangeCount() const { return m_rangeCount; }
    void setRangeCount(std::int64_t rangeCount) { m_rangeCount = rangeCount; }
    // This item's 0-based position in the series.
    std::int64_t rangeCurrentIndex() const { return m_rangeCurrentIndex; }
    void setRangeCurrentIndex(std::int64_t rangeCurrentIndex) { m_rangeCurrentIndex = rangeCurrentIndex; }

private:
    std::string m_rangeExpression;
    std::atomic<std::int64_t> m_rangeCount = 0;
    std::atomic<std::int64_t> m_rangeCurrentIndex = 0;
};
