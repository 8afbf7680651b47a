// A smart bin filter row.
#include "TLSmartBinFilter.h"

#include <utility>

TLSmartBinFilter::TLSmartBinFilter(std::int64_t filterType, std::int64_t filterMatch, std::string filterString)
    : m_filterType(filterType), m_filterMatch(filterMatch), m_filterString(std::move(filterString))
{
}

std::shared_ptr<TLSmartBinFilter> TLSmartBinFilter::create(std::int64_t filterType, std::int64_t filterMatch,
                                                           std::string filterString)
{
    return std::make_shared<TLSmartBinFilter>(filterType, filterMatch, std::move(filterString));
}

std::string TLSmartBinFilter::filterString() const
{
    std::lock_guard lock(m_mutex);
    return m_filterString;
}

void TLSmartBinFilter::setFilterString(std::string filterString)
{
    std::lock_guard lock(m_mutex);
    m_filterString.swap(filterString);
}
