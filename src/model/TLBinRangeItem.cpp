// Range series items.
#include "TLBinRangeItem.h"

TLBinRangeItem::TLBinRangeItem(std::string binName, std::string rangeExpression, const TLBinNodePtr &parent,
                               std::int64_t rangeCount, std::int64_t rangeCurrentIndex)
    : m_rangeExpression(std::move(rangeExpression)), m_rangeCount(rangeCount),
      m_rangeCurrentIndex(rangeCurrentIndex)
{
    setBinName(std::move(binName));
    setParent(parent);
}

std::shared_ptr<TLBinRangeItem> TLBinRangeItem::create(std::string binName, std::string rangeExpression,
                                                       const TLBinNodePtr &parent, std::int64_t rangeCount,
                                                       std::int64_t rangeCurrentIndex)
{
    return std::make_shared<TLBinRangeItem>(std::move(binName), std::move(rangeExpression), parent,
                                            rangeCount, rangeCurrentIndex);
}

std::string TLBinRangeItem::rangeExpression() const
{
    return guardedRead(m_rangeExpression);
}

void TLBinRangeItem::setRangeExpression(std::string rangeExpression)
{
    guardedWrite(m_rangeExpression, std::move(rangeExpression));
}
