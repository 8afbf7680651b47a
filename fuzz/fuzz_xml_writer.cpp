// Any bytes parsed as a project is parsed, then written and parsed again:
// the second tree must equal the first node for node (the declaration's
// encoding aside, which names what was written), in both layouts, and
// writing it once more must give the same bytes.
#include "FuzzSupport.h"

#include "TLXMLParser.h"
#include "TLXMLWriter.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::string written(const pugi::xml_document &document, TLXMLWriter::Layout layout)
{
    std::string text;
    TLXMLWriter writer(
        [&text](std::string_view bytes) {
            text.append(bytes);
            return true;
        },
        layout);
    writer.writeNode(document);
    writer.finish();
    return text;
}

bool sameAttributes(const pugi::xml_node &first, const pugi::xml_node &second)
{
    pugi::xml_attribute other = second.first_attribute();
    for (const pugi::xml_attribute &attribute : first.attributes()) {
        if (!other || std::strcmp(attribute.name(), other.name()) != 0)
            return false;
        const bool namesEncoding = first.type() == pugi::node_declaration
                                   && std::strcmp(attribute.name(), "encoding") == 0;
        if (!namesEncoding && std::strcmp(attribute.value(), other.value()) != 0)
            return false;
        other = other.next_attribute();
    }
    return !other;
}

// Iterative, as fuzzed trees nest deeply.
bool sameTree(pugi::xml_node first, pugi::xml_node second)
{
    const pugi::xml_node firstRoot = first;
    while (true) {
        if (first.type() != second.type() || std::strcmp(first.name(), second.name()) != 0
            || std::strcmp(first.value(), second.value()) != 0 || !sameAttributes(first, second))
            return false;
        if (first.first_child() || second.first_child()) {
            if (!first.first_child() || !second.first_child())
                return false;
            first = first.first_child();
            second = second.first_child();
            continue;
        }
        while (first != firstRoot && !first.next_sibling()) {
            if (second.next_sibling())
                return false;
            first = first.parent();
            second = second.parent();
        }
        if (first == firstRoot)
            return true;
        if (!second.next_sibling())
            return false;
        first = first.next_sibling();
        second = second.next_sibling();
    }
}

// "&#0;" ends a text for the parser, which can leave a text node with no
// characters at all; such a node has no written form and is not compared.
void removeEmptyTexts(pugi::xml_node root)
{
    std::vector<pugi::xml_node> empty;
    for (pugi::xml_node node = root.first_child(); node;) {
        if (node.type() == pugi::node_pcdata && *node.value() == '\0')
            empty.push_back(node);
        if (node.first_child()) {
            node = node.first_child();
            continue;
        }
        while (node != root && !node.next_sibling())
            node = node.parent();
        node = node == root ? pugi::xml_node() : node.next_sibling();
    }
    for (pugi::xml_node &node : empty)
        node.parent().remove_child(node);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::sandbox(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    pugi::xml_document original;
    if (!original.load_buffer(data, size, TLXMLParser::projectParseOptions))
        return 0;
    removeEmptyTexts(original);
    for (const auto layout : {TLXMLWriter::Layout::indented, TLXMLWriter::Layout::raw}) {
        const std::string text = written(original, layout);
        pugi::xml_document again;
        if (!again.load_buffer(text.data(), text.size(), TLXMLParser::projectParseOptions, pugi::encoding_utf8))
            std::abort();
        if (!sameTree(original, again) || written(again, layout) != text)
            std::abort();
    }
    return 0;
}
