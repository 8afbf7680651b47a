// Reads a bin tree back from a keyed archive, trusting nothing in it.
#pragma once

#include "TLBinNode.h"

#include <plist/plist.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// Accepts what TLKeyedArchiver and macOS's keyed archiver write: binary or
// XML property lists, references as UIDs or {"CF$UID": n} dictionaries,
// strings plain or as NSString/NSMutableString objects, lists as NSArray
// or NSMutableArray. Missing integer keys read as 0 and missing object
// fields as nil.
//
// The archive is treated as hostile: only the six classes of the bin model
// and the Foundation list and string classes are known; every reference,
// type and class is checked; each node may stand in exactly one list, a
// node may only be referred to again as the parent of its own children. A
// parent reference that names anything but the node that holds the child
// (or nil) is repaired, with one log line: the holder is taken. Integer values
// are kept as written: the engines that use them handle values outside
// their sets. The tree is built apart and only handed out complete; every
// parent is set from containment.
class TLKeyedUnarchiver
{
public:
    // Deepest nesting of bins accepted (top-level nodes are at depth 1).
    static constexpr int maximumDepth = 256;
    // Most nodes an archive may hold.
    static constexpr std::size_t maximumNodeCount = 500000;

    // The top-level node list of the archive in `data`; nullopt when the
    // bytes are not a property list, not a keyed archive, or break any of
    // the rules above. An archive of an empty list gives an empty list.
    static std::optional<TLNodeList> unarchiveObjectWithData(std::string_view data);
    // As above; on failure `reason` says why (unchanged on success).
    static std::optional<TLNodeList> unarchiveObjectWithData(std::string_view data, std::string &reason);
    // The same from an already parsed property list (borrowed; null gives nullopt).
    static std::optional<TLNodeList> unarchiveObjectWithPropertyList(plist_t archive, std::string &reason);
};
