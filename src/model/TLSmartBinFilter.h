// One filter row of a smart bin.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class TLSmartBinFilter;
// A smart bin's filter rows in entry order; lists handed out never change.
using TLFilterList = std::vector<std::shared_ptr<TLSmartBinFilter>>;
using TLFilterListPtr = std::shared_ptr<const TLFilterList>;

// Which clip property a row tests (`filterType`), how it compares it
// (`filterMatch`) and the text compared against (`filterString`). The
// integer value sets belong to the smart bin engine; any value is stored as
// given. Not a tree node. Fields may be read from any thread.
class TLSmartBinFilter
{
public:
    // Type 0, match 0, empty string.
    TLSmartBinFilter() = default;
    TLSmartBinFilter(std::int64_t filterType, std::int64_t filterMatch, std::string filterString);
    static std::shared_ptr<TLSmartBinFilter> create(std::int64_t filterType, std::int64_t filterMatch,
                                                    std::string filterString);

    std::int64_t filterType() const { return m_filterType; }
    void setFilterType(std::int64_t filterType) { m_filterType = filterType; }
    std::int64_t filterMatch() const { return m_filterMatch; }
    void setFilterMatch(std::int64_t filterMatch) { m_filterMatch = filterMatch; }
    std::string filterString() const;
    void setFilterString(std::string filterString);

private:
    std::atomic<std::int64_t> m_filterType = 0;
    std::atomic<std::int64_t> m_filterMatch = 0;
    mutable std::mutex m_mutex;
    std::string m_filterString;
};
