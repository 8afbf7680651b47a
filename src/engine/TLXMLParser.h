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
// which is evaluated as the union of the spelled-out paths in document order
// (any number of alternatives, at any step; a predicate directly after the
// closing parenthesis, or an alternative starting with "/", is refused as a
// query error; TLXPathUnionRewriter does the spelling out). Compiled queries, and the errors of queries that do not
// compile, are cached process-wide, so repeating a query per clip costs only
// its evaluation. Results are always in document order.
//
// No exception leaves these operations except std::out_of_range from query
// escaping (see escapeQueryString) and std::bad_alloc when memory runs out.
class TLXMLParser
{
public:
    // How project text is parsed: comments, processing instructions, the
    // XML declaration and the document type are kept, so that a saved
    // project gives them back; the document type is only kept as text, so
    // neither internal entity declarations nor external entities are ever
    // expanded or fetched. Whitespace that is all an element holds is kept
    // (it is that element's text); whitespace between elements is not.
    static constexpr unsigned int projectParseOptions = pugi::parse_default | pugi::parse_declaration
                                                        | pugi::parse_doctype | pugi::parse_comments
                                                        | pugi::parse_pi | pugi::parse_ws_pcdata_single;

    // Escapes a query as the xmeml tools expect, working on UTF-16 code
    // units: units of 160 and above become "&#N;" (each half of a surrogate
    // pair on its own), a "&" becomes "&amp;" unless it starts "&amp;" before
    // the last four units, a carriage return becomes "&#13;", and other units
    // below 20 (tab and line feed too; 20 to 31 are kept) are dropped with a
    // "Stripped character" log line each. Bytes that are not valid UTF-8 are
    // read as U+FFFD and so become "&#65533;". Empty input gives "".
    // Throws std::out_of_range for a query shorter than four code units that
    // holds "&" (the look-ahead for "&amp;" runs past its end); every
    // operation below that escapes its query lets that exception through.
    static std::string escapeQueryString(std::string_view query);

    // The string values of every match of the escaped query; nullopt (not an
    // empty list) when nothing matches or the query does not compile. An
    // empty node matches nothing.
    static std::optional<std::vector<std::string>>
    stringValuesForQuery(std::string_view query, pugi::xml_node node);

    // The string value of the first match in document order of the escaped
    // query; nullopt when nothing matches or the query does not compile
    // (silently: nothing is logged).
    static std::optional<std::string> stringValueForQuery(std::string_view query,
                                                          pugi::xml_node element);

    // Every match of the escaped query; an empty list when nothing matches
    // or the node is empty; nullopt, after logging "XML parsing error: ...",
    // when the query does not compile or selects no nodes ("count(a)").
    static std::optional<TLXMLNodeList> nodesForQuery(std::string_view query,
                                                      pugi::xml_node element);

    // The first match of nodesForQuery, found without collecting the
    // others; an empty handle when none. Logs query errors as nodesForQuery.
    static pugi::xpath_node nodeForQuery(std::string_view query, pugi::xml_node element);

    // The matches of the escaped query for each context node in turn (an
    // attribute or text node may be a context), duplicates kept; an empty
    // list for no nodes; a query that does not compile gives an empty list
    // and is not logged.
    static TLXMLNodeList queryNodes(const TLXMLNodeList &nodes, std::string_view xpath);

    // The union of the matches of every escaped query, each node once, in
    // the order first seen; empty for no queries. A query that does not
    // compile contributes nothing and its error is logged; the error is kept
    // for the rest of the call, so every later query, even one that works,
    // logs the latest error again.
    static TLXMLNodeList nodesFromQueries(pugi::xml_node node,
                                          std::span<const std::string> queries);

    // The node's "id" attribute with its %XX escapes decoded; nullopt when
    // the attribute or the node is missing, when a "%" is not followed by two
    // hex digits, or when an escape decodes to a byte above 127. Characters
    // that are not escaped are kept as they are.
    static std::optional<std::string> idAttributeForNode(pugi::xml_node node);

    // The file path of a pathurl's URL, percent-decoded, as
    // TLURLParser::filePathForURL reads it ("file://localhost/a%20b.mov" and
    // "file:///a%20b.mov" give "/a b.mov").
    // The text must be an RFC 3986 URI reference: nullopt for nullopt, for a
    // character that must be escaped and is not (a blank, say, or non-ASCII),
    // and for a "%" without two hex digits. The host is not checked; query and
    // fragment are ignored; a trailing "/" is dropped (except from "/"). A URL
    // of any scheme gives its path ("http://server/media/h.mov" gives
    // "/media/h.mov"); a reference without a scheme gives its own decoded
    // path, relative or not.
    // nullopt too when the path is empty or decodes to something that is not
    // UTF-8 or holds a NUL byte.
    static std::optional<std::string>
    filenameFromPathURLString(const std::optional<std::string> &urlString);

    // Display name: the text of the node's own first "name" child, else
    // (unless immediateChildOnly) the first nested "name" text, else its "id"
    // attribute. %XX escapes are decoded ("Scene%201" gives "Scene 1"); when
    // decoding fails (an invalid escape as in "50%", or one above 127) the
    // text is returned undecoded. nullopt when none exists or for an empty node.
    static std::optional<std::string> nameForNode(pugi::xml_node node,
                                                  bool immediateChildOnly = false);

    // The node's own "uuid" child text, else (unless immediateChildOnly) the
    // first nested one, decoded as nameForNode decodes; nullopt when none
    // exists or for an empty node.
    static std::optional<std::string> uuidForNode(pugi::xml_node node,
                                                  bool immediateChildOnly = false);

    // The nearest ancestor element named `name`; an empty handle when the
    // document is reached first, when an ancestor whose name is in `limits`
    // comes first (even one that is also named `name`), or for an empty node.
    static pugi::xml_node parentWithName(pugi::xml_node node, std::string_view name,
                                         std::span<const std::string> limits = {});

    // The next node in document order that is not a descendant of `node`
    // (its next sibling, else the nearest ancestor's next sibling); an empty
    // handle at the end of the document or for an empty node. Iterative, so
    // any depth is fine.
    static pugi::xml_node nextSiblingForNode(pugi::xml_node node);

    // The track items joined to `clip` through transitions ("-1" edges), in
    // track order, `clip` included (an empty node gives a list of just that
    // node). Only element siblings are walked. When given, rangeStart and
    // rangeEnd receive the leading integer of the chain's start and end text
    // (0 when absent or not numeric).
    static std::vector<pugi::xml_node> affectedNodesForClip(pugi::xml_node clip,
                                                            std::int64_t *rangeStart = nullptr,
                                                            std::int64_t *rangeEnd = nullptr);

    // The text of a match: an attribute's value, a text node's text, or the
    // concatenated text (and CDATA) of all descendants of an element or
    // document, gathered without recursion. Empty for an empty handle.
    static std::string stringValue(const pugi::xpath_node &node);

    // Evaluates a query exactly as given (no escaping) through the compiled
    // query cache; the matches in document order, empty when none or for an
    // empty context. nullopt when it does not compile or selects no nodes;
    // `error` then receives a readable description. Nothing is logged.
    static std::optional<TLXMLNodeList> evaluateQuery(std::string_view query,
                                                      pugi::xml_node context,
                                                      std::string *error = nullptr);

    // The first match of an unescaped query in document order, evaluated
    // without collecting the others; an empty handle when none or on error.
    static pugi::xpath_node evaluateFirstNode(std::string_view query, pugi::xml_node context);

    // The text (as stringValue gives it) of the first match of an unescaped
    // query; nullopt when nothing matches, the query does not compile, or
    // the context is empty. A match without text gives "".
    static std::optional<std::string> evaluateFirstText(std::string_view query, pugi::xml_node context);

    // Any XPath expression of an unescaped query, converted to text as
    // XPath's string() does ("count(.//clip)" gives "3", a node set the text
    // of its first node); nullopt when it does not compile. An empty context
    // counts as no node ("count(.)" gives "0").
    static std::optional<std::string> evaluateString(std::string_view query, pugi::xml_node context);
};
