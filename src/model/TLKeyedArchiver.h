// Writes a bin tree as an Apple keyed archive (NSKeyedArchiver form).
#pragma once

#include "TLBinNode.h"

#include <optional>
#include <string>

// The archive is the property list macOS's keyed archiver makes of the
// top-level node list: "$archiver" "NSKeyedArchiver", "$version" 100000,
// "$top" {"root": the list} and the "$objects" table with "$null" first.
// Each node is one table entry whose object fields are written without keys
// ("$0", "$1", ... in its class's field order) and whose integers are
// written inline under their names; lists are NSMutableArray objects. A
// parent is written as a reference to the node whose children hold it
// (nil at the top level), so back references always agree with the tree.
//
// Trees the reader would refuse are refused here too, so an archive that is
// written can always be read back.
//
// The bytes are those TLBinaryPropertyListWriter gives for that property
// list (same object order, equal strings and UIDs shared, same widths), but
// they are written straight from the tree: the memory used grows with the
// archive's size, not with a property-list tree of it.
class TLKeyedArchiver
{
public:
    // The archive as binary property-list bytes. nullopt when the tree cannot
    // be archived: a node that contains itself or stands in two places,
    // nesting deeper than TLKeyedUnarchiver::maximumDepth, or more than
    // TLKeyedUnarchiver::maximumNodeCount nodes, or memory running out.
    // Null entries are skipped. Strings holding a NUL are written up to it.
    static std::optional<std::string> archivedDataWithRootObject(const TLNodeList &rootObject);
};
