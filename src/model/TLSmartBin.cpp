// Smart bins: filter rows and match type on top of the common node.
#include "TLSmartBin.h"

TLSmartBin::TLSmartBin() : m_filterArray(std::make_shared<const TLFilterList>()) {}

TLFilterListPtr TLSmartBin::filterArray() const
{
    return guardedRead(m_filterArray);
}

void TLSmartBin::setFilterArray(TLFilterList filterArray)
{
    std::erase(filterArray, nullptr);
    guardedWrite(m_filterArray, TLFilterListPtr(std::make_shared<const TLFilterList>(std::move(filterArray))));
}
