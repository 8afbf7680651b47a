// Path queries over xmeml trees: query escaping, the process-wide cache of
// compiled queries, and the readings of names, uuids and file URLs that every
// part shares.
#include "TLXMLParser.h"

#include "TLFormat.h"
#include "TLLog.h"
#include "TLTextCoding.h"
#include "TLURLParser.h"
#include "TLXPathUnionRewriter.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace {

// ---------------------------------------------------------------------------
// Text helpers

// The five units from `index`, as a bounds-checked substring would give them.
std::u16string_view fiveUnitsAt(std::u16string_view units, std::size_t index)
{
    if (index > units.size() || units.size() - index < 5)
        throw std::out_of_range("The look-ahead for \"&amp;\" runs past the end of the query");
    return units.substr(index, 5);
}

// The leading integer of a text, as the xmeml tools read numbers: blanks
// skipped, an optional sign, digits up to the first other character;
// 0 when there are none, clamped at the limits.
std::int64_t integerValue(const std::optional<std::string> &text)
{
    if (!text)
        return 0;
    std::string_view rest = *text;
    while (!rest.empty() && (rest.front() == ' ' || rest.front() == '\t' || rest.front() == '\n'))
        rest.remove_prefix(1);
    const bool negative = !rest.empty() && rest.front() == '-';
    if (!rest.empty() && (rest.front() == '-' || rest.front() == '+'))
        rest.remove_prefix(1);
    std::uint64_t magnitude = 0;
    const std::uint64_t limit = negative ? std::uint64_t(std::numeric_limits<std::int64_t>::max()) + 1
                                         : std::uint64_t(std::numeric_limits<std::int64_t>::max());
    for (; !rest.empty() && rest.front() >= '0' && rest.front() <= '9'; rest.remove_prefix(1))
        magnitude = std::min(limit, magnitude * 10 + std::uint64_t(rest.front() - '0'));
    if (!negative)
        return std::int64_t(magnitude);
    return magnitude == limit ? std::numeric_limits<std::int64_t>::min() : -std::int64_t(magnitude);
}

// ---------------------------------------------------------------------------
// The compiled-query cache

struct CompiledQuery
{
    pugi::xpath_query query; // usable only when error is empty
    std::string error;
};

struct TextHash
{
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept
    {
        return std::hash<std::string_view>{}(text);
    }
};

struct QueryCache
{
    std::shared_mutex mutex;
    std::unordered_map<std::string, std::shared_ptr<const CompiledQuery>, TextHash, std::equal_to<>> queries;
};

// Queries built around values (a uuid, a name) are each compiled once too;
// the cache is emptied when it holds this many so that it cannot grow
// without bound over a long session.
constexpr std::size_t kLargestCache = 4096;

QueryCache &queryCache()
{
    static QueryCache cache;
    return cache;
}

std::string describe(const pugi::xpath_parse_result &result, const std::string &text)
{
    return std::string(result.description()) + " at offset " + std::to_string(result.offset)
           + " of \"" + text + "\"";
}

// The one place where pugixml's compile errors are caught: every failure
// becomes a cached error text, so a bad query is not compiled again.
std::shared_ptr<const CompiledQuery> compile(const std::string &text)
{
    auto compiled = std::make_shared<CompiledQuery>();
    if (text.find('\0') != std::string::npos) {
        compiled->error = "The query holds a NUL character";
        return compiled;
    }
    const TLXPathUnionRewriter::Result rewrite = TLXPathUnionRewriter::rewriteUnionSteps(text);
    if (!rewrite.error.empty()) {
        compiled->error = rewrite.error + " in \"" + text + "\"";
        return compiled;
    }
    try {
        compiled->query = pugi::xpath_query(rewrite.query.c_str());
    } catch (const pugi::xpath_exception &exception) {
        compiled->error = describe(exception.result(), rewrite.query);
        return compiled;
    }
    // Builds of pugixml without exceptions report through the result instead.
    if (!compiled->query)
        compiled->error = describe(compiled->query.result(), rewrite.query);
    return compiled;
}

std::shared_ptr<const CompiledQuery> compiledQuery(std::string_view text)
{
    QueryCache &cache = queryCache();
    {
        std::shared_lock lock(cache.mutex);
        if (const auto found = cache.queries.find(text); found != cache.queries.end())
            return found->second;
    }
    // Compiled outside the lock; when two threads race, the first entry stays.
    std::shared_ptr<const CompiledQuery> compiled = compile(std::string(text));
    std::unique_lock lock(cache.mutex);
    if (cache.queries.size() >= kLargestCache)
        cache.queries.clear();
    return cache.queries.try_emplace(std::string(text), std::move(compiled)).first->second;
}

// The compiled node-set query, or nullptr with `error` set.
std::shared_ptr<const CompiledQuery> nodeSetQuery(std::string_view text, std::string *error)
{
    std::shared_ptr<const CompiledQuery> compiled = compiledQuery(text);
    std::string reason = compiled->error;
    if (reason.empty() && compiled->query.return_type() != pugi::xpath_type_node_set)
        reason = "The query does not select nodes: \"" + std::string(text) + "\"";
    if (reason.empty())
        return compiled;
    if (error)
        *error = std::move(reason);
    return nullptr;
}

std::optional<TLXMLNodeList> evaluateNodes(std::string_view text, const pugi::xpath_node &context,
                                           std::string *error)
{
    const std::shared_ptr<const CompiledQuery> compiled = nodeSetQuery(text, error);
    if (!compiled)
        return std::nullopt;
    if (!context)
        return TLXMLNodeList();
    pugi::xpath_node_set nodes = compiled->query.evaluate_node_set(context);
    nodes.sort();
    return TLXMLNodeList(nodes.begin(), nodes.end());
}

pugi::xpath_node firstNode(std::string_view text, const pugi::xpath_node &context, std::string *error)
{
    const std::shared_ptr<const CompiledQuery> compiled = nodeSetQuery(text, error);
    if (!compiled || !context)
        return {};
    return compiled->query.evaluate_node(context);
}

void logQueryError(const std::string &error)
{
    TLLog::appendLog("XML parsing error: %@", error);
}

// ---------------------------------------------------------------------------
// Tree helpers

bool isText(const pugi::xml_node &node)
{
    return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

// The node after `node` in document order that still lies inside `root`.
pugi::xml_node nextInside(pugi::xml_node node, const pugi::xml_node &root)
{
    if (pugi::xml_node child = node.first_child())
        return child;
    for (; node && node != root; node = node.parent()) {
        if (pugi::xml_node sibling = node.next_sibling())
            return sibling;
    }
    return {};
}

std::string descendantText(const pugi::xml_node &root)
{
    std::string text;
    for (pugi::xml_node node = root.first_child(); node; node = nextInside(node, root)) {
        if (isText(node))
            text += node.value();
    }
    return text;
}

// The text of "./<name>[1]/text()": the first text child of the first such child.
std::optional<std::string> childText(const pugi::xml_node &node, const char *name)
{
    for (const pugi::xml_node child : node.child(name).children()) {
        if (isText(child))
            return std::string(child.value());
    }
    return std::nullopt;
}

bool isMinusOne(const std::optional<std::string> &text)
{
    return text && *text == "-1";
}

// Transitions join track items; the other children of a track (its
// "enabled" flag, say) or stray text must not break a chain.
pugi::xml_node previousElement(pugi::xml_node node)
{
    do
        node = node.previous_sibling();
    while (node && node.type() != pugi::node_element);
    return node;
}

pugi::xml_node nextElement(pugi::xml_node node)
{
    do
        node = node.next_sibling();
    while (node && node.type() != pugi::node_element);
    return node;
}

// Walks from `clip` in one direction while the edge at that side lies in a
// transition. `edge` is the chain's start (walking back) or end (forward);
// an item's near edge faces the clip, its far edge becomes the chain's edge.
void extendChain(const pugi::xml_node &clip, std::vector<pugi::xml_node> &chain,
                 std::optional<std::string> &edge, bool backward)
{
    const char *farEdge = backward ? "start" : "end";
    const char *nearEdge = backward ? "end" : "start";
    const auto step = backward ? previousElement : nextElement;
    if (!isMinusOne(edge))
        return;
    for (pugi::xml_node item = step(clip); item; item = step(item)) {
        std::optional<std::string> newEdge = childText(item, farEdge);
        const std::optional<std::string> beyond = childText(step(item), nearEdge);
        if (std::string_view(item.name()) == "transitionitem" && isMinusOne(beyond)) {
            newEdge = "-1";
        } else if (!isMinusOne(edge) && !isMinusOne(childText(item, nearEdge))) {
            // The edge is always "-1" here, so this never stops a walk; it is
            // the rule for an item that does not reach into a transition.
            return;
        }
        chain.insert(backward ? chain.begin() : chain.end(), item);
        if (!isMinusOne(newEdge)) {
            edge = std::move(newEdge);
            return;
        }
        edge = "-1";
    }
}

// Key of a match for duplicate removal: its node and attribute.
struct MatchHash
{
    std::size_t operator()(const pugi::xpath_node &match) const noexcept
    {
        return std::hash<const void *>{}(match.node().internal_object())
               ^ (std::hash<const void *>{}(match.attribute().internal_object()) << 1);
    }
};

} // namespace

// ---------------------------------------------------------------------------

std::string TLXMLParser::escapeQueryString(std::string_view query)
{
    const std::u16string units = TLTextCoding::utf16Units(query);
    const std::u16string_view view(units);
    // Deliberately unsigned: below four units this wraps to a huge bound, so
    // the look-ahead for "&amp;" runs past the end and throws.
    const std::size_t lookAheadBound = units.size() - 4;
    std::string escaped;
    escaped.reserve(query.size());
    for (std::size_t index = 0; index < units.size(); ++index) {
        const char16_t unit = units[index];
        if (unit >= 160) {
            escaped += "&#" + std::to_string(unit) + ";";
        } else if (unit == u'&') {
            const bool isEntity = index < lookAheadBound && fiveUnitsAt(view, index) == u"&amp;";
            escaped += isEntity ? "&" : "&amp;";
        } else if (unit == 13) {
            escaped += "&#13;";
        } else if (unit < 20) {
            TLLog::appendLog("Stripped character %C", TLFormatArgument::character(unit));
        } else {
            escaped += TLFormat::utf8ForCodePoint(unit);
        }
    }
    return escaped;
}

std::optional<std::vector<std::string>> TLXMLParser::stringValuesForQuery(std::string_view query,
                                                                           pugi::xml_node node)
{
    const std::optional<TLXMLNodeList> nodes = evaluateQuery(escapeQueryString(query), node);
    if (!nodes || nodes->empty())
        return std::nullopt;
    std::vector<std::string> values;
    values.reserve(nodes->size());
    for (const pugi::xpath_node &match : *nodes)
        values.push_back(stringValue(match));
    return values;
}

std::optional<std::string> TLXMLParser::stringValueForQuery(std::string_view query, pugi::xml_node element)
{
    const pugi::xpath_node match = evaluateFirstNode(escapeQueryString(query), element);
    if (!match)
        return std::nullopt;
    return stringValue(match);
}

std::optional<TLXMLNodeList> TLXMLParser::nodesForQuery(std::string_view query, pugi::xml_node element)
{
    std::string error;
    std::optional<TLXMLNodeList> nodes = evaluateNodes(escapeQueryString(query), element, &error);
    if (!nodes)
        logQueryError(error);
    return nodes;
}

pugi::xpath_node TLXMLParser::nodeForQuery(std::string_view query, pugi::xml_node element)
{
    std::string error;
    const pugi::xpath_node match = firstNode(escapeQueryString(query), element, &error);
    if (!error.empty())
        logQueryError(error);
    return match;
}

TLXMLNodeList TLXMLParser::queryNodes(const TLXMLNodeList &nodes, std::string_view xpath)
{
    const std::string escaped = escapeQueryString(xpath);
    TLXMLNodeList found;
    for (const pugi::xpath_node &context : nodes) {
        const std::optional<TLXMLNodeList> matches = evaluateNodes(escaped, context, nullptr);
        if (matches)
            found.insert(found.end(), matches->begin(), matches->end());
    }
    return found;
}

TLXMLNodeList TLXMLParser::nodesFromQueries(pugi::xml_node node, std::span<const std::string> queries)
{
    TLXMLNodeList found;
    std::unordered_set<pugi::xpath_node, MatchHash> seen;
    // One error slot for the whole call, never cleared: once a query has
    // failed, every later query reports that failure again.
    std::string error;
    for (const std::string &query : queries) {
        const std::optional<TLXMLNodeList> matches = evaluateNodes(escapeQueryString(query), node, &error);
        if (!error.empty())
            logQueryError(error);
        if (!matches)
            continue;
        for (const pugi::xpath_node &match : *matches) {
            if (seen.insert(match).second)
                found.push_back(match);
        }
    }
    return found;
}

std::optional<std::string> TLXMLParser::idAttributeForNode(pugi::xml_node node)
{
    const pugi::xml_attribute id = node.attribute("id");
    if (!id)
        return std::nullopt;
    return TLTextCoding::percentDecoded(id.value(), TLTextCoding::EscapedBytes::AsciiOnly);
}

std::optional<std::string>
TLXMLParser::filenameFromPathURLString(const std::optional<std::string> &urlString)
{
    if (!urlString)
        return std::nullopt;
    return TLURLParser::filePathForURL(*urlString);
}

std::optional<std::string> TLXMLParser::nameForNode(pugi::xml_node node, bool immediateChildOnly)
{
    // "./name[1]/text()", read directly: it is asked of every clip.
    std::optional<std::string> name = childText(node, "name");
    if (!name && !immediateChildOnly)
        name = TLXMLParser::evaluateFirstText(".//name[1]/text()", node);
    if (!name && !immediateChildOnly && node.attribute("id"))
        name = node.attribute("id").value();
    if (!name)
        return std::nullopt;
    std::optional<std::string> decoded = TLTextCoding::percentDecoded(*name, TLTextCoding::EscapedBytes::AsciiOnly);
    return decoded ? decoded : name;
}

std::optional<std::string> TLXMLParser::uuidForNode(pugi::xml_node node, bool immediateChildOnly)
{
    // "./uuid[1]/text()", read directly: it is asked of every clip.
    std::optional<std::string> uuid = childText(node, "uuid");
    if (!uuid && !immediateChildOnly)
        uuid = TLXMLParser::evaluateFirstText(".//uuid[1]/text()", node);
    if (!uuid)
        return std::nullopt;
    std::optional<std::string> decoded = TLTextCoding::percentDecoded(*uuid, TLTextCoding::EscapedBytes::AsciiOnly);
    return decoded ? decoded : uuid;
}

pugi::xml_node TLXMLParser::parentWithName(pugi::xml_node node, std::string_view name,
                                           std::span<const std::string> limits)
{
    for (pugi::xml_node ancestor = node.parent(); ancestor && ancestor.type() != pugi::node_document;
         ancestor = ancestor.parent()) {
        const std::string_view ancestorName = ancestor.name();
        // The limits come first: an ancestor that is both wanted and a limit ends the search.
        if (std::find(limits.begin(), limits.end(), ancestorName) != limits.end())
            return {};
        if (ancestorName == name)
            return ancestor;
    }
    return {};
}

pugi::xml_node TLXMLParser::nextSiblingForNode(pugi::xml_node node)
{
    for (; node; node = node.parent()) {
        if (pugi::xml_node sibling = node.next_sibling())
            return sibling;
    }
    return {};
}

std::vector<pugi::xml_node> TLXMLParser::affectedNodesForClip(pugi::xml_node clip, std::int64_t *rangeStart,
                                                              std::int64_t *rangeEnd)
{
    std::vector<pugi::xml_node> chain{clip};
    std::optional<std::string> start = childText(clip, "start");
    std::optional<std::string> end = childText(clip, "end");
    if (clip) {
        extendChain(clip, chain, start, true);
        extendChain(clip, chain, end, false);
    }
    if (rangeStart)
        *rangeStart = integerValue(start);
    if (rangeEnd)
        *rangeEnd = integerValue(end);
    return chain;
}

std::string TLXMLParser::stringValue(const pugi::xpath_node &node)
{
    if (node.attribute())
        return node.attribute().value();
    const pugi::xml_node element = node.node();
    if (element.type() == pugi::node_element || element.type() == pugi::node_document)
        return descendantText(element);
    return element.value();
}

std::optional<TLXMLNodeList> TLXMLParser::evaluateQuery(std::string_view query, pugi::xml_node context,
                                                        std::string *error)
{
    return evaluateNodes(query, context, error);
}

pugi::xpath_node TLXMLParser::evaluateFirstNode(std::string_view query, pugi::xml_node context)
{
    return firstNode(query, context, nullptr);
}

std::optional<std::string> TLXMLParser::evaluateString(std::string_view query, pugi::xml_node context)
{
    const std::shared_ptr<const CompiledQuery> compiled = compiledQuery(query);
    if (!compiled->error.empty())
        return std::nullopt;
    return compiled->query.evaluate_string(context);
}

std::optional<std::string> TLXMLParser::evaluateFirstText(std::string_view query, pugi::xml_node context)
{
    const pugi::xpath_node match = evaluateFirstNode(query, context);
    if (!match)
        return std::nullopt;
    return stringValue(match);
}
