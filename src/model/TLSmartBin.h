// A bin whose clips are those passing a list of metadata filters.
#pragma once

#include "TLBinNode.h"
#include "TLSmartBinFilter.h"

#include <atomic>

// A smart bin holds its filter rows, a match type (whether all rows or any
// row must match; the values belong to the smart bin engine), an identifier
// once it has been written to xmeml, and as children the media items that
// matched at the last resolution. A new one has no filters, no children,
// match type 0, no name and no identifier.
class TLSmartBin : public TLBinNode
{
public:
    TLSmartBin();
    static std::shared_ptr<TLSmartBin> create() { return std::make_shared<TLSmartBin>(); }

    TLBinNodeKind kind() const override { return TLBinNodeKind::smartBin; }

    // The filter rows in entry order; never null. The list handed out never
    // changes: setFilterArray installs a new one (null rows are dropped).
    TLFilterListPtr filterArray() const;
    void setFilterArray(TLFilterList filterArray);

    std::int64_t matchType() const { return m_matchType; }
    void setMatchType(std::int64_t matchType) { m_matchType = matchType; }

private:
    TLFilterListPtr m_filterArray;
    std::atomic<std::int64_t> m_matchType = 0;
};
