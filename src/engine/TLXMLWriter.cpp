// Writing pugixml trees as text that parses back to the same tree.
#include "TLXMLWriter.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr std::size_t bufferLimit = 256 * 1024;

// How a byte is written in character data and in attribute values: as it
// stands, or as the reference the table gives.
enum class ByteClass : unsigned char { plain, textSpecial, attributeSpecial, bothSpecial };

constexpr std::array<ByteClass, 256> byteClasses()
{
    std::array<ByteClass, 256> classes{};
    for (unsigned byte = 0; byte < 0x20; ++byte)
        classes[byte] = ByteClass::bothSpecial;
    // Tabs and line feeds read back as themselves in text, but an attribute
    // value has them turned into spaces.
    classes['\t'] = ByteClass::attributeSpecial;
    classes['\n'] = ByteClass::attributeSpecial;
    classes['&'] = ByteClass::bothSpecial;
    classes['<'] = ByteClass::bothSpecial;
    classes['>'] = ByteClass::textSpecial;
    classes['"'] = ByteClass::attributeSpecial;
    return classes;
}

constexpr std::array<ByteClass, 256> classes = byteClasses();

bool needsReference(unsigned char byte, bool inAttribute)
{
    const ByteClass kind = classes[byte];
    if (kind == ByteClass::bothSpecial)
        return true;
    return kind == (inAttribute ? ByteClass::attributeSpecial : ByteClass::textSpecial);
}

std::string_view referenceFor(unsigned char byte, std::array<char, 6> &number)
{
    switch (byte) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return "&quot;";
    default:
        // Control characters as two-digit character references.
        number = {'&', '#', char('0' + byte / 10), char('0' + byte % 10), ';', '\0'};
        return std::string_view(number.data(), 5);
    }
}

// The nodes a write leaves out, for quick lookups while walking millions.
class LeftOutNodes
{
public:
    explicit LeftOutNodes(const std::vector<pugi::xml_node> &nodes)
    {
        for (const pugi::xml_node &node : nodes)
            m_nodes.push_back(node.internal_object());
        std::sort(m_nodes.begin(), m_nodes.end());
    }

    bool contains(const pugi::xml_node &node) const
    {
        return !m_nodes.empty() && std::binary_search(m_nodes.begin(), m_nodes.end(), node.internal_object());
    }

    pugi::xml_node firstKept(pugi::xml_node node) const
    {
        while (node && contains(node))
            node = node.next_sibling();
        return node;
    }

private:
    std::vector<const pugi::xml_node_struct *> m_nodes;
};

bool isWhitespaceOnly(std::string_view text)
{
    return text.find_first_not_of(" \t\n\r") == std::string_view::npos;
}

// Whitespace beside other nodes is indentation to a parser, which drops
// it. Such a text can only have come from references ("&#32;"), and only
// references bring it back.
bool isStrayWhitespace(const pugi::xml_node &text)
{
    return isWhitespaceOnly(text.value()) && (text.previous_sibling() || text.next_sibling());
}

} // namespace

// The buffer grows as it is used: a writer of one clip or one escaped text
// must not cost a quarter of a megabyte.
TLXMLWriter::TLXMLWriter(Output output, Layout layout) : m_output(std::move(output)), m_layout(layout) {}

TLXMLWriter::~TLXMLWriter() = default;

std::string TLXMLWriter::escapedText(std::string_view text)
{
    std::string escaped;
    TLXMLWriter writer([&escaped](std::string_view bytes) {
        escaped.append(bytes);
        return true;
    });
    writer.writeEscaped(text, false);
    writer.finish();
    return escaped;
}

bool TLXMLWriter::indents(unsigned depth) const
{
    return m_layout == Layout::indented && depth <= maximumIndentedDepth;
}

void TLXMLWriter::put(std::string_view bytes)
{
    m_buffer.append(bytes);
    flushWhenFull();
}

void TLXMLWriter::put(char byte)
{
    m_buffer.push_back(byte);
}

void TLXMLWriter::flushWhenFull()
{
    if (m_buffer.size() >= bufferLimit)
        finish();
}

bool TLXMLWriter::finish()
{
    if (m_outputOk && !m_buffer.empty())
        m_outputOk = m_output(m_buffer);
    m_buffer.clear();
    return m_outputOk;
}

void TLXMLWriter::raw(std::string_view bytes)
{
    put(bytes);
}

void TLXMLWriter::beforeMarkup(unsigned depth)
{
    if (m_breakBeforeMarkup && indents(depth))
        put('\n');
    if (m_indentBeforeMarkup && indents(depth))
        m_buffer.append(depth, '\t');
    m_breakBeforeMarkup = true;
    m_indentBeforeMarkup = true;
}

void TLXMLWriter::writeTag(std::string_view start, std::string_view name, std::string_view end, unsigned depth)
{
    beforeMarkup(depth);
    put(start);
    put(name);
    put(end);
}

void TLXMLWriter::openElement(std::string_view name, unsigned depth)
{
    writeTag("<", name, ">", depth);
}

void TLXMLWriter::emptyElement(std::string_view name, unsigned depth)
{
    writeTag("<", name, indents(depth) ? " />" : "/>", depth);
}

void TLXMLWriter::text(std::string_view text)
{
    writeEscaped(text, false);
    m_breakBeforeMarkup = false;
    m_indentBeforeMarkup = false;
}

void TLXMLWriter::textElement(std::string_view name, std::string_view text, unsigned depth)
{
    if (text.empty()) {
        emptyElement(name, depth);
        return;
    }
    openElement(name, depth);
    this->text(text);
    closeElement(name, depth);
}

void TLXMLWriter::closeElement(std::string_view name, unsigned depth)
{
    writeTag("</", name, ">", depth);
}

void TLXMLWriter::startTag(pugi::xml_node element, unsigned depth)
{
    beforeMarkup(depth);
    put('<');
    put(element.name());
    writeAttributes(element, false);
}

void TLXMLWriter::writeAttributes(pugi::xml_node node, bool isDeclaration)
{
    for (const pugi::xml_attribute &attribute : node.attributes()) {
        put(' ');
        put(attribute.name());
        put("=\"");
        // What is written is UTF-8, whatever the source was.
        if (isDeclaration && std::strcmp(attribute.name(), "encoding") == 0)
            put("UTF-8");
        else
            writeEscaped(attribute.value(), true);
        put('"');
    }
}

void TLXMLWriter::writeEscaped(std::string_view text, bool inAttribute)
{
    std::size_t runStart = 0;
    std::array<char, 6> number{};
    for (std::size_t index = 0; index < text.size(); ++index) {
        const auto byte = static_cast<unsigned char>(text[index]);
        if (!needsReference(byte, inAttribute))
            continue;
        m_buffer.append(text.substr(runStart, index - runStart));
        m_buffer.append(referenceFor(byte, number));
        runStart = index + 1;
    }
    m_buffer.append(text.substr(runStart));
    flushWhenFull();
}

void TLXMLWriter::writeWhitespaceAsReferences(std::string_view text)
{
    for (const char character : text)
        put(character == ' ' ? std::string_view("&#32;") : referenceFor(static_cast<unsigned char>(character), m_number));
    m_breakBeforeMarkup = false;
    m_indentBeforeMarkup = false;
}

// "]]>" cannot stand inside a section: the ">" starts the next one.
void TLXMLWriter::writeCData(std::string_view text)
{
    do {
        put("<![CDATA[");
        const std::size_t end = text.find("]]>");
        const std::size_t length = end == std::string_view::npos ? text.size() : end + 2;
        put(text.substr(0, length));
        put("]]>");
        text.remove_prefix(length);
    } while (!text.empty());
}

// A comment is given back as it was read, even a "--" that XML forbids
// but the parser let through; only "-->" would end it early.
void TLXMLWriter::writeComment(std::string_view text)
{
    put("<!--");
    for (std::size_t end; (end = text.find("-->")) != std::string_view::npos; text.remove_prefix(end + 3)) {
        put(text.substr(0, end));
        put("-- >");
    }
    put(text);
    put("-->");
}

void TLXMLWriter::writeProcessingInstruction(pugi::xml_node node)
{
    put("<?");
    put(node.name());
    std::string_view value = node.value();
    if (!value.empty()) {
        put(' ');
        // "?>" would end the instruction early.
        for (std::size_t end; (end = value.find("?>")) != std::string_view::npos; value.remove_prefix(end + 2)) {
            put(value.substr(0, end));
            put("? >");
        }
        put(value);
    }
    put("?>");
}

void TLXMLWriter::writeLeaf(pugi::xml_node node, unsigned depth)
{
    switch (node.type()) {
    case pugi::node_pcdata:
        if (isStrayWhitespace(node)) {
            writeWhitespaceAsReferences(node.value());
            return;
        }
        text(node.value());
        return;
    case pugi::node_cdata:
        writeCData(node.value());
        m_breakBeforeMarkup = false;
        m_indentBeforeMarkup = false;
        return;
    case pugi::node_comment:
        beforeMarkup(depth);
        writeComment(node.value());
        return;
    case pugi::node_pi:
        beforeMarkup(depth);
        writeProcessingInstruction(node);
        return;
    case pugi::node_declaration:
        beforeMarkup(depth);
        put("<?");
        put(node.name());
        writeAttributes(node, true);
        put("?>");
        return;
    case pugi::node_doctype:
        beforeMarkup(depth);
        put("<!DOCTYPE");
        if (*node.value()) {
            put(' ');
            put(node.value());
        }
        put('>');
        return;
    default:
        return;
    }
}

void TLXMLWriter::writeNode(pugi::xml_node node, unsigned depth)
{
    writeNode(node, depth, Changes{});
}

void TLXMLWriter::writeNode(pugi::xml_node node, unsigned depth, const Changes &changes)
{
    if (!node)
        return;
    const LeftOutNodes leftOut(changes.leftOut);
    if (node.type() == pugi::node_document) {
        for (pugi::xml_node child = leftOut.firstKept(node.first_child()); child;
             child = leftOut.firstKept(child.next_sibling()))
            writeNode(child, depth, changes);
        if (m_breakBeforeMarkup && indents(depth))
            put('\n');
        return;
    }
    const auto close = [&](pugi::xml_node element, unsigned level) {
        if (element == changes.appendTo && changes.appendsContent)
            changes.appendContent(*this, level + 1);
        closeElement(element.name(), level);
    };
    const pugi::xml_node root = node;
    pugi::xml_node current = node;
    unsigned level = depth;
    while (true) {
        if (current.type() == pugi::node_element) {
            const pugi::xml_node firstChild = leftOut.firstKept(current.first_child());
            startTag(current, level);
            if (firstChild || (current == changes.appendTo && changes.appendsContent)) {
                put('>');
                if (firstChild) {
                    current = firstChild;
                    ++level;
                    continue;
                }
                close(current, level);
            } else {
                put(indents(level) ? " />" : "/>");
            }
        } else {
            writeLeaf(current, level);
        }
        // On to the next node: a later sibling, or the end of a parent.
        while (current != root) {
            if (const pugi::xml_node sibling = leftOut.firstKept(current.next_sibling())) {
                current = sibling;
                break;
            }
            current = current.parent();
            --level;
            close(current, level);
        }
        if (current == root)
            return;
    }
}
