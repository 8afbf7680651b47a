// Resolves a smart bin: which clips of the project pass its filter rows.
#pragma once

#include "TLProjectView.h"
#include "TLMediaItem.h"
#include "TLSmartBin.h"
#include "TLSmartBinFilter.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

using TLMediaItemList = std::vector<std::shared_ptr<TLMediaItem>>;

// Stateless. Every clip of the project is tested against the rows in
// order; a row reads one field of the clip and compares it, as text, with
// the row's filterString.
//
// Fields (filterType): those of TLClipFields::smartBinFields(), each read by
// its query (the first text it selects) except 1 file name and 2 file
// extension (as written) of the clip's media path, and 19 "true"/"false"
// whether the clip has audio (an "aif", "aiff" or "wav" file in any case,
// else an audio sample rate). A row of a type above the table's last (20)
// is skipped; a type below 0 reads no field.
//
// Operators (filterMatch), v the field value, f the filterString: 0 v
// contains f ignoring case (TLCaseFolding; every text contains ""), 1 v does
// not contain f, 2 v equals f exactly, 3 v differs from f, 4 v sorts after f
// and 5 v sorts before f in UTF-16 code-unit order (so "9" sorts after
// "100"); any other operator always matches. A clip that lacks the field
// (no value) passes the row whatever its operator.
//
// Match types: 1 ("any") lists a clip once for every row it matches; 0
// evaluates only the first row of type 20 or below and lists the clip when
// it matches and the bin has exactly one row (two or more rows keep the bin
// empty); any other value ("all") lists a clip once when all rows match,
// skipped rows counting among the rows (so one of them keeps the bin empty).
//
// Called on worker threads; the project must not load meanwhile. Each
// call logs "smart bin matchtype: <type>" and "smart bin filterarray:
// <rows>". No exception leaves these operations except std::bad_alloc.
class TLSmartBinParser
{
public:
    // A new smart bin named `name` with the match type and rows given and,
    // as children, the media items of arrayFromFilterArray.
    static std::shared_ptr<TLSmartBin> binFromFilterArray(const TLFilterList &filterArray,
                                                          const std::string &name,
                                                          std::int64_t matchType,
                                                          const TLProjectView &mediaController);

    // The media items of the clips that pass the rows, in clip order (a clip
    // may appear more than once under match type 1), each made from the
    // clip's media path (the first pathurl inside it; none when it has none
    // or the URL is not valid), its own name (empty when it has none) and
    // its own uuid. `name` takes no part in the matching. Null rows are
    // dropped first, as the smart bin drops them. Empty for no rows or no
    // clips.
    static TLMediaItemList arrayFromFilterArray(const TLFilterList &filterArray, const std::string &name,
                                                std::int64_t matchType,
                                                const TLProjectView &mediaController);
};
