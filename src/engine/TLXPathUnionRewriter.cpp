// Spelling out parenthesised union steps: a small XPath tokenizer, and the
// rewriting of "a/(b | c)/d" into "(a/b/d | a/c/d)" on its tokens.
#include "TLXPathUnionRewriter.h"

#include <optional>
#include <utility>
#include <vector>

namespace {

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

// One union step spelled out (`changed`), the reason it cannot be
// (`error`), or neither when the query has no step left to spell out.
struct StepRewrite
{
    std::string query; // set only when changed
    std::string error;
    bool changed = false;
};

// Spells out the first union step of the query, if it has one that parses.
// Malformed brackets are left for the compiler to report.
StepRewrite rewriteFirstUnionStep(const std::string &query)
{
    const std::optional<std::vector<Token>> tokens = tokenize(query);
    const std::size_t open = tokens ? firstUnionStep(*tokens) : std::string_view::npos;
    if (open == std::string_view::npos)
        return {};
    const std::size_t close = matchingClose(*tokens, open);
    if (close == std::string_view::npos || (*tokens)[close].kind != TokenKind::CloseParen)
        return {};
    const std::vector<std::string_view> choices = alternatives(query, *tokens, open + 1, close);
    if (choices.empty())
        return {};
    if (close + 1 < tokens->size() && (*tokens)[close + 1].kind == TokenKind::OpenBracket)
        return {{}, "A predicate cannot follow a parenthesised step", false};
    for (const std::string_view choice : choices) {
        if (choice.front() == '/')
            return {{}, "An alternative of a parenthesised step cannot start with \"/\"", false};
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

} // namespace

TLXPathUnionRewriter::Result TLXPathUnionRewriter::rewriteUnionSteps(std::string_view query)
{
    std::string rewritten(query);
    bool changed = false;
    for (int step = 0; step <= kMostSpelledOutSteps; ++step) {
        StepRewrite next = rewriteFirstUnionStep(rewritten);
        if (!next.error.empty())
            return {std::string(query), std::move(next.error), false};
        if (!next.changed)
            return {std::move(rewritten), {}, changed};
        if (next.query.size() > kLargestRewrittenQuery)
            break;
        rewritten = std::move(next.query);
        changed = true;
    }
    return {std::string(query), "The query has too many parenthesised alternatives", false};
}
