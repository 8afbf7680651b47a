// Comparing XML trees in tests.
#include "XMLTreeDifference.h"

namespace test {

std::string visible(std::string_view text)
{
    std::string shown = "\"";
    for (const char character : text) {
        if (character == '\r')
            shown += "\\r";
        else if (character == '\n')
            shown += "\\n";
        else if (character == '\t')
            shown += "\\t";
        else
            shown += character;
    }
    return shown + "\"";
}

namespace {

bool isUpdateBehavior(pugi::xml_node node)
{
    return node.type() == pugi::node_element && std::string_view(node.name()) == "updatebehavior";
}

} // namespace

std::vector<pugi::xml_node> childrenOf(pugi::xml_node node)
{
    std::vector<pugi::xml_node> children;
    for (const pugi::xml_node child : node.children()) {
        if (!isUpdateBehavior(child))
            children.push_back(child);
    }
    return children;
}

std::string describe(pugi::xml_node node)
{
    static const char *const types[] = {"null",    "document", "element",     "text",   "CDATA",
                                        "comment", "PI",       "declaration", "DOCTYPE"};
    std::string text = types[node.type()];
    if (*node.name())
        text += std::string(" <") + node.name() + ">";
    if (*node.value())
        text += " " + visible(node.value());
    return text;
}

namespace {

std::string attributeDifference(pugi::xml_node expected, pugi::xml_node actual)
{
    pugi::xml_attribute want = expected.first_attribute();
    pugi::xml_attribute got = actual.first_attribute();
    for (; want && got; want = want.next_attribute(), got = got.next_attribute()) {
        // The output is always UTF-8, and its declaration says so.
        const bool isEncoding =
            expected.type() == pugi::node_declaration && std::string_view(want.name()) == "encoding";
        const std::string_view value = isEncoding ? "UTF-8" : want.value();
        if (std::string_view(want.name()) != got.name() || value != got.value())
            return std::string("attribute ") + want.name() + "=" + visible(value) + " became " + got.name() + "=" +
                   visible(got.value());
    }
    if (want || got)
        return std::string("attribute ") + (want ? want.name() : got.name()) + (want ? " lost" : " added");
    return {};
}

} // namespace

std::string treeDifference(pugi::xml_node expected, pugi::xml_node actual)
{
    const pugi::xml_node element = expected.type() == pugi::node_element ? expected : expected.parent();
    const std::string at = (element.type() == pugi::node_element ? element.path() : "/") + ": ";
    if (expected.type() != actual.type() || std::string_view(expected.name()) != actual.name() ||
        std::string_view(expected.value()) != actual.value())
        return at + describe(expected) + " became " + describe(actual);
    if (const std::string difference = attributeDifference(expected, actual); !difference.empty())
        return at + describe(expected) + ": " + difference;
    const std::vector<pugi::xml_node> want = childrenOf(expected);
    const std::vector<pugi::xml_node> got = childrenOf(actual);
    for (std::size_t index = 0; index < std::min(want.size(), got.size()); ++index) {
        if (const std::string difference = treeDifference(want[index], got[index]); !difference.empty())
            return difference;
    }
    if (want.size() > got.size())
        return at + describe(want[got.size()]) + " lost";
    if (got.size() > want.size())
        return at + describe(got[want.size()]) + " added";
    return {};
}

} // namespace test
