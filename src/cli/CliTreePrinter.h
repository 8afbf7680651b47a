// The bin tree as the command line prints it: indented text for people,
// JSON for programs.
#pragma once

#include "TLBinNode.h"

#include <string>
#include <string_view>

// Stateless. Kinds are printed as the words of the sort options: "bin"
// (a regular bin), "range" (one bin of a range series), "smart-bin",
// "smart-range" (one bin of a smart range), and "clip" for the clips that
// smart bins and smart ranges list.
class CliTreePrinter
{
public:
    // The word for a node kind.
    static std::string_view kindWord(TLBinNodeKind kind);

    // One line per bin, indented two blanks per level: the kind, the name in
    // double quotes (a '"' or '\' inside preceded by a '\'), the number of
    // clips for smart bins and smart ranges (with the number of distinct
    // clip identifiers when a clip is listed more than once, and the number
    // of clips without an identifier, which a save cannot write into the
    // bin, as ", 3 without uuid"), and the identifier ("no uuid
    // yet" before the bin was first written; nothing for regular bins, which
    // never keep one). Clips get a line each only with `withClips`. An
    // empty tree prints "(no bins)". Every line ends in "\n".
    static std::string text(const TLNodeList &topLevel, bool withClips = false);

    // A JSON array (pretty-printed, ending in "\n") of one object per node,
    // children nested: "kind", "name", "uuid" (null when unset) and
    // "children" for every node; "expression", "index" and "count" for a
    // range; "match", "filters" (each with "field", "operator", "value") and
    // "clips" and "clipsWithoutUUID" for a smart bin; "criterion", "clips"
    // and "clipsWithoutUUID" for a smart range;
    // "path" (null when unknown) for a clip. Field, operator, match and
    // criterion values are the words of `corvale fields`. Text that is not
    // valid UTF-8 is printed with U+FFFD in place of the bad bytes.
    static std::string json(const TLNodeList &topLevel);

    // The number of clips (media items) among the node's children.
    static std::size_t clipCount(const TLBinNodePtr &node);
};
