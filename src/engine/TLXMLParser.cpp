// Path queries over xmeml trees: query escaping, the process-wide cache of
// compiled queries, the rewriting of parenthesised union steps into XPath 1.0,
// and the readings of names, uuids and file URLs that every part shares.
#include "TLXMLParser.h"

#include "TLLog.h"

#include <algorithm>
#include <cctype>
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

constexpr char16_t kReplacementCharacter = 0xFFFD;

bool isContinuationByte(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

// Decodes one UTF-8 sequence at `index`; nullopt when it is malformed,
// overlong, a surrogate or beyond U+10FFFF. `length` receives its size.
std::optional<char32_t> decodeUTF8(std::string_view text, std::size_t index, std::size_t &length)
{
    const auto lead = static_cast<unsigned char>(text[index]);
    length = 1;
    if (lead < 0x80)
        return lead;
    const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
    if (size == 0 || lead > 0xF4 || index + size > text.size())
        return std::nullopt;
    char32_t point = lead & (0x7F >> size);
    for (std::size_t offset = 1; offset < size; ++offset) {
        const auto byte = static_cast<unsigned char>(text[index + offset]);
        if (!isContinuationByte(byte))
            return std::nullopt;
        point = (point << 6) | (byte & 0x3F);
    }
    static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < kSmallest[size] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF))
        return std::nullopt;
    length = size;
    return point;
}

bool isValidUTF8(std::string_view text)
{
    std::size_t length = 0;
    for (std::size_t index = 0; index < text.size(); index += length) {
        if (!decodeUTF8(text, index, length))
            return false;
    }
    return true;
}

// The UTF-16 code units of the text. A byte that starts no valid sequence
// stands for U+FFFD, so that damaged input is escaped rather than refused.
std::u16string utf16Units(std::string_view text)
{
    std::u16string units;
    units.reserve(text.size());
    std::size_t length = 0;
    for (std::size_t index = 0; index < text.size(); index += length) {
        const std::optional<char32_t> point = decodeUTF8(text, index, length);
        if (!point) {
            units.push_back(kReplacementCharacter);
        } else if (*point < 0x10000) {
            units.push_back(static_cast<char16_t>(*point));
        } else {
            units.push_back(static_cast<char16_t>(0xD800 + ((*point - 0x10000) >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + ((*point - 0x10000) & 0x3FF)));
        }
    }
    return units;
}

// Escaping leaves only units below 160 in place, which need one or two bytes.
void appendSmallUnit(std::string &text, char16_t unit)
{
    if (unit < 0x80) {
        text.push_back(static_cast<char>(unit));
        return;
    }
    text.push_back(static_cast<char>(0xC0 | (unit >> 6)));
    text.push_back(static_cast<char>(0x80 | (unit & 0x3F)));
}

// The five units from `index`, as a bounds-checked substring would give them.
std::u16string_view fiveUnitsAt(std::u16string_view units, std::size_t index)
{
    if (index > units.size() || units.size() - index < 5)
        throw std::out_of_range("The look-ahead for \"&amp;\" runs past the end of the query");
    return units.substr(index, 5);
}

int hexDigitValue(char character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    return -1;
}

bool isEscapeAt(std::string_view text, std::size_t index)
{
    return index + 2 < text.size() && hexDigitValue(text[index + 1]) >= 0
           && hexDigitValue(text[index + 2]) >= 0;
}

// Replaces every %XX escape by its byte. nullopt for a "%" that is not
// followed by two hex digits, and, when asciiOnly, for an escape above 127.
// Characters that are not escaped pass through whatever they are.
std::optional<std::string> percentDecoded(std::string_view text, bool asciiOnly)
{
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] != '%') {
            decoded.push_back(text[index]);
            continue;
        }
        if (!isEscapeAt(text, index))
            return std::nullopt;
        const int byte = hexDigitValue(text[index + 1]) * 16 + hexDigitValue(text[index + 2]);
        if (asciiOnly && byte > 127)
            return std::nullopt;
        decoded.push_back(static_cast<char>(byte));
        index += 2;
    }
    return decoded;
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
// Union steps. XPath 1.0 has no "a/(b | c)/d"; it is rewritten into
// "(a/b/d | a/c/d)", which selects the same nodes in the same order.

enum class TokenKind {
    Name, Operator, Slash, DoubleSlash, Bar, Comma, OpenParen, CloseParen,
    OpenBracket, CloseBracket, At, AxisSeparator, Dot, Literal, Number, Variable, Other
};

struct Token
{
    TokenKind kind;
    std::size_t begin;
    std::size_t end;
};

bool isNameStart(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_' || byte >= 0x80;
}

bool isNameCharacter(char character)
{
    return isNameStart(character) || (character >= '0' && character <= '9') || character == '-'
           || character == '.';
}

std::size_t nameEnd(std::string_view text, std::size_t index)
{
    while (index < text.size() && isNameCharacter(text[index]))
        ++index;
    // A prefixed name, "prefix:local" or "prefix:*", but not an axis "::".
    if (index + 1 < text.size() && text[index] == ':' && text[index + 1] != ':') {
        if (text[index + 1] == '*')
            return index + 2;
        if (isNameStart(text[index + 1]))
            return nameEnd(text, index + 1);
    }
    return index;
}

// XPath's disambiguation rule: after these tokens (or at the start) a name or
// "*" is a name test; after any other token it is an operator.
bool startsOperand(const std::vector<Token> &tokens)
{
    if (tokens.empty())
        return true;
    switch (tokens.back().kind) {
    case TokenKind::Operator: case TokenKind::Slash: case TokenKind::DoubleSlash:
    case TokenKind::Bar: case TokenKind::Comma: case TokenKind::OpenParen:
    case TokenKind::OpenBracket: case TokenKind::At: case TokenKind::AxisSeparator:
        return true;
    default:
        return false;
    }
}

// Length and kind of the punctuation token at `index`.
std::pair<TokenKind, std::size_t> punctuation(std::string_view text, std::size_t index)
{
    const char character = text[index];
    const char next = index + 1 < text.size() ? text[index + 1] : '\0';
    switch (character) {
    case '/': return {next == '/' ? TokenKind::DoubleSlash : TokenKind::Slash, next == '/' ? 2 : 1};
    case '|': return {TokenKind::Bar, 1};
    case ',': return {TokenKind::Comma, 1};
    case '(': return {TokenKind::OpenParen, 1};
    case ')': return {TokenKind::CloseParen, 1};
    case '[': return {TokenKind::OpenBracket, 1};
    case ']': return {TokenKind::CloseBracket, 1};
    case '@': return {TokenKind::At, 1};
    case ':': return {next == ':' ? TokenKind::AxisSeparator : TokenKind::Other, next == ':' ? 2 : 1};
    case '=': case '+': case '-': return {TokenKind::Operator, 1};
    case '<': case '>': return {TokenKind::Operator, next == '=' ? 2 : 1};
    case '!': return {next == '=' ? TokenKind::Operator : TokenKind::Other, next == '=' ? 2 : 1};
    default: return {TokenKind::Other, 1};
    }
}

// The query's tokens; nullopt for an unterminated literal.
std::optional<std::vector<Token>> tokenize(std::string_view text)
{
    std::vector<Token> tokens;
    std::size_t index = 0;
    while (index < text.size()) {
        const char character = text[index];
        const std::size_t begin = index;
        TokenKind kind = TokenKind::Other;
        if (character == ' ' || character == '\t' || character == '\r' || character == '\n') {
            ++index;
            continue;
        }
        if (character == '"' || character == '\'') {
            const std::size_t close = text.find(character, index + 1);
            if (close == std::string_view::npos)
                return std::nullopt;
            kind = TokenKind::Literal;
            index = close + 1;
        } else if ((character >= '0' && character <= '9')
                   || (character == '.' && index + 1 < text.size() && text[index + 1] >= '0'
                       && text[index + 1] <= '9')) {
            kind = TokenKind::Number;
            while (index < text.size() && ((text[index] >= '0' && text[index] <= '9') || text[index] == '.'))
                ++index;
        } else if (character == '.') {
            kind = TokenKind::Dot;
            index += index + 1 < text.size() && text[index + 1] == '.' ? 2 : 1;
        } else if (character == '$') {
            kind = TokenKind::Variable;
            index = nameEnd(text, index + 1);
        } else if (character == '*' || isNameStart(character)) {
            kind = startsOperand(tokens) ? TokenKind::Name : TokenKind::Operator;
            index = character == '*' ? index + 1 : nameEnd(text, index);
        } else {
            const auto [punctuationKind, length] = punctuation(text, index);
            kind = punctuationKind;
            index += length;
        }
        tokens.push_back({kind, begin, index});
    }
    return tokens;
}

bool opens(TokenKind kind)
{
    return kind == TokenKind::OpenParen || kind == TokenKind::OpenBracket;
}

bool closes(TokenKind kind)
{
    return kind == TokenKind::CloseParen || kind == TokenKind::CloseBracket;
}

bool separatesOperands(TokenKind kind)
{
    return kind == TokenKind::Bar || kind == TokenKind::Comma || kind == TokenKind::Operator;
}

// Index of the first "(" that opens a step after "/" or "//", or npos.
std::size_t firstUnionStep(const std::vector<Token> &tokens)
{
    for (std::size_t index = 1; index < tokens.size(); ++index) {
        const TokenKind before = tokens[index - 1].kind;
        if (tokens[index].kind == TokenKind::OpenParen
            && (before == TokenKind::Slash || before == TokenKind::DoubleSlash))
            return index;
    }
    return std::string_view::npos;
}

// Index of the bracket that closes the one at `open`, or npos.
std::size_t matchingClose(const std::vector<Token> &tokens, std::size_t open)
{
    std::size_t depth = 0;
    for (std::size_t index = open; index < tokens.size(); ++index) {
        if (opens(tokens[index].kind))
            ++depth;
        else if (closes(tokens[index].kind) && --depth == 0)
            return index;
    }
    return std::string_view::npos;
}

// The first token of the path that holds the token at `from` (walking back).
std::size_t pathStart(const std::vector<Token> &tokens, std::size_t from)
{
    std::size_t depth = 0;
    for (std::size_t index = from; index-- > 0;) {
        const TokenKind kind = tokens[index].kind;
        if (closes(kind)) {
            ++depth;
        } else if (opens(kind)) {
            if (depth == 0)
                return index + 1;
            --depth;
        } else if (depth == 0 && separatesOperands(kind)) {
            return index + 1;
        }
    }
    return 0;
}

// One past the last token of the path that continues after `from`.
std::size_t pathEnd(const std::vector<Token> &tokens, std::size_t from)
{
    std::size_t depth = 0;
    for (std::size_t index = from; index < tokens.size(); ++index) {
        const TokenKind kind = tokens[index].kind;
        if (opens(kind)) {
            ++depth;
        } else if (closes(kind)) {
            if (depth == 0)
                return index;
            --depth;
        } else if (depth == 0 && separatesOperands(kind)) {
            return index;
        }
    }
    return tokens.size();
}

// The texts between the top-level bars of the tokens first..last-1; empty
// when an alternative is empty.
std::vector<std::string_view> alternatives(std::string_view text, const std::vector<Token> &tokens,
                                           std::size_t first, std::size_t last)
{
    std::vector<std::string_view> found;
    std::size_t depth = 0;
    std::size_t start = first;
    for (std::size_t index = first; index <= last; ++index) {
        const bool atEnd = index == last;
        if (!atEnd && opens(tokens[index].kind))
            ++depth;
        else if (!atEnd && closes(tokens[index].kind))
            --depth;
        if (!atEnd && (depth != 0 || tokens[index].kind != TokenKind::Bar))
            continue;
        if (index == start)
            return {};
        found.push_back(text.substr(tokens[start].begin, tokens[index - 1].end - tokens[start].begin));
        start = index + 1;
    }
    return found;
}

struct Rewrite
{
    std::string text;  // the query with one union step spelled out
    std::string error; // why the step cannot be spelled out
    bool changed = false;
};

// Spells out the first union step of the query, if it has one that parses.
// Malformed brackets are left for the compiler to report.
Rewrite rewriteFirstUnionStep(const std::string &query)
{
    const std::optional<std::vector<Token>> tokens = tokenize(query);
    const std::size_t open = tokens ? firstUnionStep(*tokens) : std::string_view::npos;
    if (open == std::string_view::npos)
        return {query, {}, false};
    const std::size_t close = matchingClose(*tokens, open);
    if (close == std::string_view::npos || (*tokens)[close].kind != TokenKind::CloseParen)
        return {query, {}, false};
    const std::vector<std::string_view> choices = alternatives(query, *tokens, open + 1, close);
    if (choices.empty())
        return {query, {}, false};
    if (close + 1 < tokens->size() && (*tokens)[close + 1].kind == TokenKind::OpenBracket)
        return {query, "A predicate cannot follow a parenthesised step", false};
    for (const std::string_view choice : choices) {
        if (choice.front() == '/')
            return {query, "An alternative of a parenthesised step cannot start with \"/\"", false};
    }
    const std::size_t first = pathStart(*tokens, open - 1);
    const std::size_t last = pathEnd(*tokens, close + 1);
    const std::size_t headBegin = (*tokens)[first].begin;
    const std::size_t tailEnd = last < tokens->size() ? (*tokens)[last].begin : query.size();
    const std::string_view head(query.data() + headBegin, (*tokens)[open].begin - headBegin);
    const std::string_view tail(query.data() + (*tokens)[close].end, tailEnd - (*tokens)[close].end);
    const bool wholeQuery = first == 0 && last == tokens->size();
    std::string text = query.substr(0, headBegin) + (wholeQuery ? "" : "(");
    for (std::size_t index = 0; index < choices.size(); ++index) {
        text.append(index == 0 ? "" : " | ").append(head).append(choices[index]).append(tail);
    }
    text.append(wholeQuery ? "" : ")").append(query.substr(tailEnd));
    return {std::move(text), {}, true};
}

// Spelling out steps multiplies the query by every alternative; past these
// bounds the query is refused rather than grown (and rescanned) without end.
constexpr std::size_t kLargestRewrittenQuery = 16 * 1024;
constexpr int kMostSpelledOutSteps = 64;

Rewrite rewriteUnionSteps(const std::string &query)
{
    Rewrite rewrite{query, {}, false};
    for (int step = 0; step <= kMostSpelledOutSteps; ++step) {
        Rewrite next = rewriteFirstUnionStep(rewrite.text);
        if (!next.error.empty() || !next.changed)
            return {std::move(rewrite.text), std::move(next.error), rewrite.changed};
        if (next.text.size() > kLargestRewrittenQuery)
            break;
        rewrite = std::move(next);
    }
    return {query, "The query has too many parenthesised alternatives", false};
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
    Rewrite rewrite = rewriteUnionSteps(text);
    if (!rewrite.error.empty()) {
        compiled->error = rewrite.error + " in \"" + text + "\"";
        return compiled;
    }
    try {
        compiled->query = pugi::xpath_query(rewrite.text.c_str());
    } catch (const pugi::xpath_exception &exception) {
        compiled->error = describe(exception.result(), rewrite.text);
        return compiled;
    }
    // Builds of pugixml without exceptions report through the result instead.
    if (!compiled->query)
        compiled->error = describe(compiled->query.result(), rewrite.text);
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

std::optional<std::string> firstText(std::string_view query, const pugi::xml_node &node)
{
    const pugi::xpath_node match = TLXMLParser::evaluateFirstNode(query, node);
    if (!match)
        return std::nullopt;
    return TLXMLParser::stringValue(match);
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

// ---------------------------------------------------------------------------
// URLs (RFC 3986 URI references)

bool isUnreservedOrDelimiter(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9'))
        return true;
    return std::string_view("-._~:/?#[]@!$&'()*+,;=").find(character) != std::string_view::npos;
}

// Every character is allowed in a URI and every "%" starts an escape.
bool hasOnlyURICharacters(std::string_view text)
{
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '%' && !isEscapeAt(text, index))
            return false;
        if (text[index] != '%' && !isUnreservedOrDelimiter(text[index]))
            return false;
    }
    return true;
}

bool isScheme(std::string_view text)
{
    if (text.empty() || !std::isalpha(static_cast<unsigned char>(text.front())))
        return false;
    return std::all_of(text.begin(), text.end(), [](char character) {
        return std::isalnum(static_cast<unsigned char>(character)) || character == '+' || character == '-'
               || character == '.';
    });
}

bool isPort(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// userinfo "@" host ":" port, where host may be a bracketed IP literal.
bool isAuthority(std::string_view authority)
{
    if (const std::size_t at = authority.rfind('@'); at != std::string_view::npos) {
        const std::string_view userInfo = authority.substr(0, at);
        if (userInfo.find_first_of("[]@") != std::string_view::npos)
            return false;
        authority.remove_prefix(at + 1);
    }
    if (!authority.empty() && authority.front() == '[') {
        const std::size_t close = authority.find(']');
        if (close == std::string_view::npos || authority.find_first_of("[]", close + 1) != std::string_view::npos)
            return false;
        const std::string_view rest = authority.substr(close + 1);
        return rest.empty() || (rest.front() == ':' && isPort(rest.substr(1)));
    }
    if (authority.find_first_of("[]") != std::string_view::npos)
        return false;
    const std::size_t colon = authority.find(':');
    return colon == std::string_view::npos || isPort(authority.substr(colon + 1));
}

struct URIReference
{
    std::string_view scheme;
    std::string_view path;
};

// The scheme and path of a URI reference; nullopt when the text is not one.
std::optional<URIReference> parseURIReference(std::string_view text)
{
    if (!hasOnlyURICharacters(text) || std::count(text.begin(), text.end(), '#') > 1)
        return std::nullopt;
    URIReference reference;
    const std::size_t colon = text.find(':');
    if (colon != std::string_view::npos && colon < text.find_first_of("/?#")) {
        if (!isScheme(text.substr(0, colon)))
            return std::nullopt;
        reference.scheme = text.substr(0, colon);
        text.remove_prefix(colon + 1);
    }
    const std::size_t pathAndRestEnd = text.find_first_of("?#");
    const std::string_view rest = pathAndRestEnd == std::string_view::npos ? "" : text.substr(pathAndRestEnd);
    text = text.substr(0, pathAndRestEnd);
    if (rest.find_first_of("[]") != std::string_view::npos)
        return std::nullopt;
    if (text.substr(0, 2) == "//") {
        const std::size_t slash = text.find('/', 2);
        if (!isAuthority(text.substr(2, slash == std::string_view::npos ? text.npos : slash - 2)))
            return std::nullopt;
        text = slash == std::string_view::npos ? "" : text.substr(slash);
    }
    if (text.find_first_of("[]") != std::string_view::npos)
        return std::nullopt;
    reference.path = text;
    return reference;
}

bool equalsIgnoringCase(std::string_view left, std::string_view right)
{
    return left.size() == right.size()
           && std::equal(left.begin(), left.end(), right.begin(), [](char a, char b) {
                  return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
              });
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
    const std::u16string units = utf16Units(query);
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
            appendSmallUnit(escaped, unit);
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
    return percentDecoded(id.value(), true);
}

std::optional<std::string>
TLXMLParser::filenameFromPathURLString(const std::optional<std::string> &urlString)
{
    if (!urlString)
        return std::nullopt;
    const std::optional<URIReference> reference = parseURIReference(*urlString);
    if (!reference || (!reference->scheme.empty() && !equalsIgnoringCase(reference->scheme, "file")))
        return std::nullopt;
    std::optional<std::string> path = percentDecoded(reference->path, false);
    if (!path || path->empty() || !isValidUTF8(*path) || path->find('\0') != std::string::npos)
        return std::nullopt;
    if (path->size() > 1 && path->back() == '/')
        path->pop_back();
    return path;
}

std::optional<std::string> TLXMLParser::nameForNode(pugi::xml_node node, bool immediateChildOnly)
{
    std::optional<std::string> name = firstText("./name[1]/text()", node);
    if (!name && !immediateChildOnly)
        name = firstText(".//name[1]/text()", node);
    if (!name && !immediateChildOnly && node.attribute("id"))
        name = node.attribute("id").value();
    if (!name)
        return std::nullopt;
    std::optional<std::string> decoded = percentDecoded(*name, true);
    return decoded ? decoded : name;
}

std::optional<std::string> TLXMLParser::uuidForNode(pugi::xml_node node, bool immediateChildOnly)
{
    std::optional<std::string> uuid = firstText("./uuid[1]/text()", node);
    if (!uuid && !immediateChildOnly)
        uuid = firstText(".//uuid[1]/text()", node);
    if (!uuid)
        return std::nullopt;
    std::optional<std::string> decoded = percentDecoded(*uuid, true);
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
