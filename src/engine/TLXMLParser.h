// Path queries over a project's xmeml tree, and the few xmeml readings that
// every part of the application shares (names, uuids, file URLs).
#pragma once

#include <pugixml.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Matches of a query: elements, text nodes or attributes, in document order.
using TLXMLNodeList = std::vector<pugi::xpath_node>;

// Stateless; safe to call from any thread on a tree that no thread is
// changing. Queries are XPath 1.0 plus one extension: a parenthesised union
// used as one step of a path, as in "./media[1]/(video[1] | audio[1])/track",
// which is evaluated as the union of both spelled-out paths in document order.
// Compiled queries are cached process-wide, so repeating a query per clip
// costs only its evaluation.
class TLXMLParser
{
public:
    // Escapes a query as the xmeml tools expect: code units of 160 and above
    // become "&#N;", a bare "&" becomes "&amp;", a carriage return "&#13;",
    // and other code units below 20 are dropped with a log line each.
    // Throws std::out_of_range for a query shorter than four code units that
    // holds "&" (the look-ahead for "&amp;" would run past its end).
    static std::string escapeQueryString(std::string_view query);

    // The string values of every match of the escaped query; nullopt (not an
    // empty list) when nothing matches or the query does not compile.
    static std::optional<std::vector<std::string>>
    stringValuesForQuery(std::string_view query, pugi::xml_node node);

    // The string value of the first match of the escaped query, or nullopt.
    static std::optional<std::string> stringValueForQuery(std::string_view query,
                                                          pugi::xml_node element);

    // Every match of the escaped query; an empty list when nothing matches;
    // nullopt, after logging "XML parsing error: ...", when the query does
    // not compile.
    static std::optional<TLXMLNodeList> nodesForQuery(std::string_view query,
                                                      pugi::xml_node element);

    // The first match of nodesForQuery, or an empty handle.
    static pugi::xpath_node nodeForQuery(std::string_view query, pugi::xml_node element);

    // The matches of the escaped query for each context node in turn,
    // duplicates kept; a query that does not compile contributes nothing.
    static TLXMLNodeList queryNodes(const TLXMLNodeList &nodes, std::string_view xpath);

    // The union of the matches of every query, each node once, in the order
    // first seen. After the first query that fails to compile, that error is
    // logged again for every later query of the call.
    static TLXMLNodeList nodesFromQueries(pugi::xml_node node,
                                          std::span<const std::string> queries);

    // The node's "id" attribute, percent-decoded; nullopt when the attribute
    // is missing or decodes to something that is not ASCII.
    static std::optional<std::string> idAttributeForNode(pugi::xml_node node);

    // The file path of a pathurl's URL, percent-decoded
    // ("file://localhost/a%20b.mov" gives "/a b.mov"); nullopt for nullopt
    // and for text that is not a valid URL (an unencoded blank, say).
    static std::optional<std::string>
    filenameFromPathURLString(const std::optional<std::string> &urlString);

    // Display name: the node's own "name" child, else (unless
    // immediateChildOnly) the first nested "name", else its "id" attribute;
    // percent-decoded unless that gives non-ASCII. nullopt when none exists.
    static std::optional<std::string> nameForNode(pugi::xml_node node,
                                                  bool immediateChildOnly = false);

    // The node's own "uuid" child text, else (unless immediateChildOnly) the
    // first nested one; nullopt when none exists.
    static std::optional<std::string> uuidForNode(pugi::xml_node node,
                                                  bool immediateChildOnly = false);

    // The nearest ancestor named `name`; an empty handle when the root is
    // reached first or an ancestor whose name is in `limits` comes first.
    static pugi::xml_node parentWithName(pugi::xml_node node, std::string_view name,
                                         std::span<const std::string> limits = {});

    // The next node in document order that is not a descendant of `node`;
    // an empty handle at the end of the document or for an empty node.
    static pugi::xml_node nextSiblingForNode(pugi::xml_node node);

    // The track items joined to `clip` through transitions ("-1" edges), in
    // track order, `clip` included. When given, rangeStart and rangeEnd
    // receive the numeric start and end of the chain (0 when not numeric).
    static std::vector<pugi::xml_node> affectedNodesForClip(pugi::xml_node clip,
                                                            std::int64_t *rangeStart = nullptr,
                                                            std::int64_t *rangeEnd = nullptr);

    // The text of a match: an attribute's value, a text node's text, or the
    // concatenated descendant text of an element. Empty for an empty handle.
    static std::string stringValue(const pugi::xpath_node &node);

    // Evaluates a query exactly as given (no escaping) through the compiled
    // query cache. nullopt when it does not compile; `error` then receives
    // the compiler's description.
    static std::optional<TLXMLNodeList> evaluateQuery(std::string_view query,
                                                      pugi::xml_node context,
                                                      std::string *error = nullptr);

    // The first match of an unescaped query in document order, evaluated
    // without collecting the others; an empty handle when none or on error.
    static pugi::xpath_node evaluateFirstNode(std::string_view query, pugi::xml_node context);
};
