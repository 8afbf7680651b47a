// What the resolvers read of a project: its clips and its master-clip paths.
#pragma once

#include "TLXMLParser.h"

#include <pugixml.hpp>

#include <functional>
#include <map>
#include <string>

// The master-clip path table: master clip id (or "Unknown1", "Unknown2", ...
// for media without one) to the project's pathurl element. Iteration runs
// in byte-wise key order, the same on every run, so that a search over all
// values that stops at the first hit always finds the same element.
using TLMasterClipPaths = std::map<std::string, pugi::xml_node, std::less<>>;

// A read-only view of a loaded project. The resolvers of smart bins and
// smart ranges see a project only through it, so they know nothing of how
// a project is loaded, merged or sent; the project controller provides it,
// and tests may provide their own. Both answers keep referring to the
// document they were collected from, which the provider keeps alive.
class TLProjectView
{
public:
    virtual ~TLProjectView() = default;

    // The project's clip elements, in document order.
    virtual const TLXMLNodeList &clips() const = 0;
    // The master-clip path table.
    virtual const TLMasterClipPaths &masterClipPaths() const = 0;

protected:
    TLProjectView() = default;
    TLProjectView(const TLProjectView &) = default;
    TLProjectView &operator=(const TLProjectView &) = default;
};
