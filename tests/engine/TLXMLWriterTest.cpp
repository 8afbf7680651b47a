#include "TLXMLWriter.h"

#include "TLXMLParser.h"
#include "XMLTreeDifference.h"

#include <gtest/gtest.h>

#include <string>

namespace {

pugi::xml_document parsed(const std::string &text)
{
    pugi::xml_document document;
    const auto result = document.load_string(text.c_str(), TLXMLParser::projectParseOptions);
    EXPECT_TRUE(result) << result.description() << " in " << text;
    return document;
}

std::string written(pugi::xml_node node, TLXMLWriter::Layout layout = TLXMLWriter::Layout::indented,
                    const TLXMLWriter::Changes &changes = {})
{
    std::string text;
    TLXMLWriter writer(
        [&text](std::string_view bytes) {
            text.append(bytes);
            return true;
        },
        layout);
    writer.writeNode(node, 0, changes);
    writer.finish();
    return text;
}

TEST(TLXMLWriterTest, EveryKindOfNodeReadsBackAsItWas)
{
    const std::string awkward[] = {
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone=\"yes\"?>\n<!-- stamp -->\n"
        "<!DOCTYPE xmeml [ <!ENTITY e \"x\"> ]><?app keep?>\n<xmeml version=\"5\"><a>x</a></xmeml>\n<!--end-->",
        "<r><t>line one&#13;\nline two&#13;&#10;&#9;tabbed</t><s> </s><e></e></r>",
        "<r><n>Tom &amp; Jerry &lt;b&gt; ]]&gt; caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC</n></r>",
        "<r><c><![CDATA[a < b & c ]]]]><![CDATA[> d]]></c><c><![CDATA[]]></c></r>",
        "<r a=\"q&quot;&lt;&amp;'&#9;&#10;&#13;\" b=\"\"><!-- a - b -- c- --><?pi a ?&gt; b?></r>",
        "<r>mixed <b>bold</b> text<i/> end</r>",
        "<r><x>&#1;&#31;</x></r>",
        "<r>&#32;<b/>&#9;&#13;<![CDATA[x]]>&#10;</r>",
    };
    for (const std::string &text : awkward) {
        SCOPED_TRACE(text);
        const pugi::xml_document original = parsed(text);
        for (const auto layout : {TLXMLWriter::Layout::indented, TLXMLWriter::Layout::raw}) {
            const pugi::xml_document again = parsed(written(original, layout));
            EXPECT_EQ(test::treeDifference(original, again), "");
        }
    }
}

TEST(TLXMLWriterTest, CharactersAParserWouldChangeAreReferences)
{
    const pugi::xml_document document = parsed("<r a=\"1&#9;2&#10;3&#13;&quot;\">a&#13;b\tc&amp;&lt;&gt;</r>");
    EXPECT_EQ(written(document), "<r a=\"1&#09;2&#10;3&#13;&quot;\">a&#13;b\tc&amp;&lt;&gt;</r>\n");
    EXPECT_EQ(TLXMLWriter::escapedText("Tom & Jerry <3>\r\n"), "Tom &amp; Jerry &lt;3&gt;&#13;\n");
    // The declaration names the encoding written, whatever the source's was.
    EXPECT_EQ(written(parsed("<?xml version=\"1.0\" encoding=\"UTF-16\"?><r/>")),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<r />\n");
}

TEST(TLXMLWriterTest, IndentsBetweenElementsOnlyAndStopsAtGreatDepth)
{
    EXPECT_EQ(written(parsed("<a><b><c>t</c><d/></b>tail<e/></a>")),
              "<a>\n\t<b>\n\t\t<c>t</c>\n\t\t<d />\n\t</b>tail<e />\n</a>\n");

    std::string deep;
    const unsigned depth = TLXMLWriter::maximumIndentedDepth + 3;
    for (unsigned level = 0; level < depth; ++level)
        deep += "<d>";
    for (unsigned level = 0; level < depth; ++level)
        deep += "</d>";
    const std::string text = written(parsed(deep));
    // Past the limit no tabs are added: the text grows with the depth, not
    // with its square.
    EXPECT_EQ(text.find(std::string(TLXMLWriter::maximumIndentedDepth + 1, '\t')), std::string::npos);
    EXPECT_NE(text.find(std::string(TLXMLWriter::maximumIndentedDepth, '\t') + "<d>"), std::string::npos);
    EXPECT_EQ(test::treeDifference(parsed(deep), parsed(text)), "");
}

TEST(TLXMLWriterTest, ChangesLeaveSubtreesOutAndAppendContent)
{
    const pugi::xml_document document = parsed("<r><keep/><drop><x/></drop><c/></r>");
    TLXMLWriter::Changes changes;
    changes.leftOut = {document.child("r").child("drop")};
    changes.appendTo = document.child("r").child("c");
    changes.appendsContent = true;
    changes.appendContent = [](TLXMLWriter &writer, unsigned depth) { writer.textElement("n", "A&B", depth); };
    EXPECT_EQ(written(document, TLXMLWriter::Layout::indented, changes),
              "<r>\n\t<keep />\n\t<c>\n\t\t<n>A&amp;B</n>\n\t</c>\n</r>\n");

    // Leaving out an element's only child leaves it empty.
    changes.leftOut = {document.child("r").child("keep"), document.child("r").child("drop")};
    changes.appendTo = {};
    changes.appendsContent = false;
    EXPECT_EQ(written(document, TLXMLWriter::Layout::raw, changes), "<r><c/></r>");
}

} // namespace
