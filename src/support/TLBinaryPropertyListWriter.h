// Serialises libplist trees as binary property lists in time linear in the tree.
#pragma once

#include <plist/plist.h>

#include <optional>
#include <string>

// Writes the "bplist00" form of a libplist tree: header, object table,
// offset table and trailer, with object references and offsets in the
// fewest bytes that hold the largest of them.
//
// The tree is walked once to number its objects and once to write them, so
// the cost grows with the size of the tree and nothing else; a keyed archive
// of several hundred thousand objects is written in a fraction of a second.
// Equal strings (values and dictionary keys alike) and equal UIDs become one
// shared object, which keeps keyed archives small. Dictionaries keep the
// order of their entries.
//
// How values are written:
// - integers: libplist keeps them as 64-bit unsigned; a value with the high
//   bit set is a negative number stored by cast and is written as a signed
//   8-byte integer, so that it reads back as the same bits anywhere;
// - strings: pure ASCII as ASCII strings, anything else as UTF-16 (big
//   endian); a byte that is not part of valid UTF-8 is written as U+FFFD;
// - dates: seconds since 1 January 2001 as an 8-byte real;
// - reals: always 8 bytes.
class TLBinaryPropertyListWriter
{
public:
    // The binary property list of the tree under `propertyList` (borrowed
    // and left unchanged). nullopt for a null tree, for a tree holding a node
    // that has no binary form (a bare dictionary key or an untyped node), and
    // when memory runs out. Never throws.
    static std::optional<std::string> dataWithPropertyList(plist_t propertyList);
};
