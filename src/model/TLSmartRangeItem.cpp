// Smart range items and their case-insensitive name ordering.
#include "TLSmartRangeItem.h"

#include "TLCaseFolding.h"

TLSmartRangeItem::TLSmartRangeItem(std::string binName, std::int64_t criteria) : m_criteria(criteria)
{
    setBinName(std::move(binName));
}

std::shared_ptr<TLSmartRangeItem> TLSmartRangeItem::create(std::string binName, std::int64_t criteria)
{
    return std::make_shared<TLSmartRangeItem>(std::move(binName), criteria);
}

std::weak_ordering TLSmartRangeItem::nameCompare(const TLSmartRangeItem &other) const
{
    return caseInsensitiveCompare(binName(), other.binName());
}

std::weak_ordering TLSmartRangeItem::caseInsensitiveCompare(std::string_view left, std::string_view right)
{
    return TLCaseFolding::caseInsensitiveCompare(left, right);
}
