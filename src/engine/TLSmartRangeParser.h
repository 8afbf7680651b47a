// Resolves a smart range: the project's clips grouped by one metadata
// criterion, one bin per distinct value.
#pragma once

#include "TLBinNode.h"
#include "TLProjectView.h"
#include "TLSmartRangeItem.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using TLSmartRangeItemList = std::vector<std::shared_ptr<TLSmartRangeItem>>;

// Stateless. Each clip's value for the criterion is read as text, by the
// criterion's query in TLClipFields::smartRangeCriteria() except:
//
//   0  file type: the extension of the clip's first media URL, lower-cased;
//      without a media URL the extension of its file name; "Unknown" when it
//      has neither
//   2  folder: the name of the folder holding the media file (from the
//      decoded path of the first media URL; "/" for a file at the root);
//      "Unknown" without a media URL
//  16  has audio: "true" when the text its query selects (the text directly
//      inside the clip's audio element) is not empty, else "false"
//
// Criterion 1 and criteria above 18 are not supported: the result is always
// empty. A criterion below 0 reads no value. An empty or absent value is
// "Unspecified".
//
// A clip's media URLs are the pathurls of the files of its video and audio
// track items. A clip without any is looked up in the project's
// master-clip path table: first under the master clip id of its track
// items, then by file name (its track items' file name, else its own name):
// the first entry, in the table's order, whose URL text ends with "/" and
// the name percent-escaped as in a URL (UTF-8, upper-case hex; blanks, "%",
// "#", quotes, brackets and the like, and every byte outside ASCII). The
// file name of a clip with a URL is the last component of the URL's path.
//
// Called on worker threads; the project must not load meanwhile. Each
// call logs "smart range clipitems: <n> clips", "smart range criteria:
// <criterion>", one "smart range paths: (<urls>)" line per clip (for
// supported criteria) and "smart range output: <groups>".
class TLSmartRangeParser
{
public:
    // arrayForCriteria(criteria, std::nullopt, mediaController): one new
    // smart range item per distinct value, named after it, with this
    // criterion and as children the media items of its clips in clip order.
    // Values are told apart exactly, case included ("Reel1" and "reel1" make
    // two items). The items come in the order their values were first seen;
    // empty for unsupported criteria or a project without clips. No
    // exception leaves it except std::bad_alloc.
    static TLSmartRangeItemList arrayForCriteria(std::int64_t criteria,
                                                 const TLProjectView &mediaController);

    // Without a bin name: the items of arrayForCriteria above, as nodes.
    // With one: new media items for the clips whose value equals the name
    // exactly, one per clip uuid (a later clip with the same uuid replaces
    // the earlier one in its place), in the order the uuids were first seen;
    // empty when no clip has that value. A media item carries the decoded
    // path of the clip's first media URL (none without one or when the URL
    // is not valid), the clip's own name (empty without one) and its own
    // uuid.
    // Throws std::invalid_argument, in the bin-name mode only, when a clip
    // with a matching value has no uuid child of its own: such a clip cannot
    // be found again. Nothing else is thrown except std::bad_alloc.
    static TLNodeList arrayForCriteria(std::int64_t criteria, const std::optional<std::string> &binName,
                                       const TLProjectView &mediaController);
};
