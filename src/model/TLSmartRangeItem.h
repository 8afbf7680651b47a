// One bin of a series with one bin per distinct value of a clip criterion.
#pragma once

#include "TLBinNode.h"

#include <atomic>
#include <compare>

// A smart range item is named after the criterion value it collects; its
// children are the media items of the clips with that value. `criteria`
// says which criterion made it (the values belong to the smart range engine).
class TLSmartRangeItem : public TLBinNode
{
public:
    // No name, criterion 0, no children.
    TLSmartRangeItem() = default;
    TLSmartRangeItem(std::string binName, std::int64_t criteria);
    static std::shared_ptr<TLSmartRangeItem> create(std::string binName, std::int64_t criteria);

    TLBinNodeKind kind() const override { return TLBinNodeKind::smartRangeItem; }

    std::int64_t criteria() const { return m_criteria; }
    void setCriteria(std::int64_t criteria) { m_criteria = criteria; }

    // Orders two items by binName without regard to case ("Reel A" before
    // "reel b"); use as `a->nameCompare(*b) < 0` to sort.
    std::weak_ordering nameCompare(const TLSmartRangeItem &other) const;
    // Case-insensitive ordering of two UTF-8 texts by their Unicode full
    // case foldings (TLCaseFolding), so "STRASSE" and "straße" are
    // equivalent. Bytes that are not valid UTF-8 compare by their byte
    // value, after every character.
    static std::weak_ordering caseInsensitiveCompare(std::string_view left, std::string_view right);

private:
    std::atomic<std::int64_t> m_criteria = 0;
};
