// Writes pugixml trees as UTF-8 text that parses back to the same tree.
#pragma once

#include <pugixml.hpp>

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// Writes nodes one element to a line, indented with one tab per level (or
// on one line, see Layout), and escapes every character a parser would
// otherwise read differently: markup characters, a carriage return (which
// every parser turns into a line feed) and other control characters in
// text, and also tabs and line breaks in attribute values. Comments,
// processing instructions, CDATA sections, the XML declaration and the
// document type are written as they stand (the declaration naming UTF-8,
// the encoding written). Whitespace is added only between elements, and
// only where the element holds no text, so the text of every element reads
// back unchanged.
//
// Output goes through a buffer to `Output`, which answers false once it
// cannot take more; from then on nothing more is handed to it.
class TLXMLWriter
{
public:
    using Output = std::function<bool(std::string_view bytes)>;

    // indented: line breaks and tabs between elements, for elements up to
    // maximumIndentedDepth deep; deeper ones are written without them, so
    // that a tree nested thousands deep does not grow by the square of its
    // depth. raw: no whitespace is added anywhere.
    enum class Layout { indented, raw };
    static constexpr unsigned maximumIndentedDepth = 256;

    // Extra content for one element of a tree being written: subtrees left
    // out with everything in them, and content written as the last
    // children of `appendTo` (by calling back into the writer at the depth
    // given).
    struct Changes
    {
        std::vector<pugi::xml_node> leftOut;
        pugi::xml_node appendTo;
        bool appendsContent = false;
        std::function<void(TLXMLWriter &writer, unsigned depth)> appendContent;
    };

    explicit TLXMLWriter(Output output, Layout layout = Layout::indented);
    ~TLXMLWriter();
    TLXMLWriter(const TLXMLWriter &) = delete;
    TLXMLWriter &operator=(const TLXMLWriter &) = delete;

    // Writes `node` and everything in it at `depth` (a document's children
    // at `depth` itself). Iterative: any depth is fine.
    void writeNode(pugi::xml_node node, unsigned depth = 0);
    void writeNode(pugi::xml_node node, unsigned depth, const Changes &changes);

    // Pieces of elements that are not in a tree. An element opened with
    // openElement must get content before closeElement.
    void openElement(std::string_view name, unsigned depth);
    void closeElement(std::string_view name, unsigned depth);
    void emptyElement(std::string_view name, unsigned depth);
    // Character data, escaped.
    void text(std::string_view text);
    // <name>text</name>, or <name /> for empty text.
    void textElement(std::string_view name, std::string_view text, unsigned depth);
    // Bytes exactly as given (a byte-order mark, say), with no line break.
    void raw(std::string_view bytes);

    // Hands the rest of the buffer to the output; true when the output took
    // every byte so far.
    bool finish();

    // `text` escaped as character data.
    static std::string escapedText(std::string_view text);

private:
    void beforeMarkup(unsigned depth);
    void writeTag(std::string_view start, std::string_view name, std::string_view end, unsigned depth);
    void startTag(pugi::xml_node element, unsigned depth);
    void writeLeaf(pugi::xml_node node, unsigned depth);
    void writeAttributes(pugi::xml_node node, bool isDeclaration);
    void writeEscaped(std::string_view text, bool inAttribute);
    void writeWhitespaceAsReferences(std::string_view text);
    void writeCData(std::string_view text);
    void writeComment(std::string_view text);
    void writeProcessingInstruction(pugi::xml_node node);
    bool indents(unsigned depth) const;
    void put(std::string_view bytes);
    void put(char byte);
    void flushWhenFull();

    Output m_output;
    Layout m_layout;
    std::string m_buffer;
    std::array<char, 6> m_number{};
    bool m_outputOk = true;
    // Whether a line break and an indent come before the next markup: not
    // right after text, and no break before the very first node.
    bool m_breakBeforeMarkup = false;
    bool m_indentBeforeMarkup = true;
};
