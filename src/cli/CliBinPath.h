// Addressing a bin of a document's tree by the names on its way down from
// the top level, as in "Dailies/Reel 3".
#pragma once

#include "TLBinNode.h"

#include <string>
#include <string_view>
#include <vector>

// Stateless. A path is the bin names from the top level down, separated by
// "/"; a "/" or "\" inside a name is written "\/" or "\\". A leading or
// trailing "/" is ignored, so "/" alone (or an empty path) stands for the
// top level itself. Only bins are addressed: the clips listed in smart bins
// and smart ranges are not. Names are compared exactly, case included.
class CliBinPath
{
public:
    // The names of `path`, unescaped. Returns "" and fills `names`, or a
    // one-line reason (an empty name as in "A//B", a "\" before anything but
    // "/" or "\", or a path ending in a lone "\").
    [[nodiscard]] static std::string components(std::string_view path, std::vector<std::string> &names);

    // Finds the bin at `path` below `topLevel`. Returns "" and sets `node`
    // (null for the top level itself), or a one-line reason: a malformed
    // path, a name that no bin at that place has, or a name that two or more
    // bins there share (the path is then ambiguous, wherever it would lead).
    [[nodiscard]] static std::string resolve(const TLNodeList &topLevel, std::string_view path,
                                             TLBinNodePtr &node);

    // The path of `node` (names escaped), as resolve reads it; "/" for null.
    static std::string pathOfNode(const TLBinNodePtr &node);

    // Whether `node` still hangs in the tree under `topLevel`: its chain of
    // parents ends at a node of `topLevel`. True for null (the top level).
    static bool isInTree(const TLNodeList &topLevel, const TLBinNodePtr &node);
};
