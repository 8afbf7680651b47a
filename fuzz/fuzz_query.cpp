// Queries over a project as the query helper receives them: escaped
// (escapeQueryString), their union steps spelled out, compiled, cached and
// evaluated against a small xmeml project. Any text is a query.
#include "FuzzSupport.h"

#include "TLXMLParser.h"
#include "TLXPathUnionRewriter.h"

#include <pugixml.hpp>

#include <cstdlib>
#include <stdexcept>

namespace {

constexpr char project[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<xmeml version="5"><project><name>Fuzz</name><children>
<clip id="a%201"><name>Été Reel 1</name><uuid>0A1B2C3D-0000-4000-8000-000000000001</uuid>
<duration>120</duration><rate><timebase>25</timebase></rate>
<media><video><track><clipitem id="ci1"><masterclipid>a%201</masterclipid>
<file id="f1"><name>a b.mov</name><pathurl>file://localhost/Media/a%20b.mov</pathurl></file>
</clipitem></track></video><audio><track><clipitem id="ci2"/></track></audio></media>
<logginginfo><scene>1</scene><shottake>2</shottake><lognote>note &amp; more</lognote></logginginfo>
</clip>
<bin><name>Bin</name><uuid>0A1B2C3D-0000-4000-8000-000000000002</uuid><children>
<clip id="b"><name>b</name></clip></children></bin>
</children></project></xmeml>)";

pugi::xml_document &document()
{
    static pugi::xml_document parsed;
    static const bool loaded = parsed.load_string(project);
    if (!loaded)
        std::abort();
    return parsed;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::sandbox(false);
    (void)document();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view query = fuzz::text(data, size);
    const TLXPathUnionRewriter::Result rewritten = TLXPathUnionRewriter::rewriteUnionSteps(query);
    if (rewritten.query.size() > TLXPathUnionRewriter::kLargestRewrittenQuery && rewritten.changed)
        std::abort();

    const pugi::xml_node root = document().document_element();
    (void)TLXMLParser::evaluateQuery(query, document());
    (void)TLXMLParser::evaluateString(query, root);
    try {
        (void)TLXMLParser::nodesForQuery(query, root);
        (void)TLXMLParser::stringValueForQuery(query, root.first_child());
    } catch (const std::out_of_range &) {
        // The documented refusal of a short query holding "&".
    }
    return 0;
}
