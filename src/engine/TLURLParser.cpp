// URI reference checking and splitting, and file paths from file URLs.
#include "TLURLParser.h"

#include "TLTextCoding.h"

#include <algorithm>
#include <cctype>

namespace {

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
        const bool allowed = text[index] == '%' ? TLTextCoding::isPercentEscapeAt(text, index)
                                                : isUnreservedOrDelimiter(text[index]);
        if (!allowed)
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

} // namespace

std::optional<TLURLParser::Components> TLURLParser::parseURIReference(std::string_view text)
{
    if (!hasOnlyURICharacters(text) || std::count(text.begin(), text.end(), '#') > 1)
        return std::nullopt;
    Components components;
    const std::size_t colon = text.find(':');
    if (colon != std::string_view::npos && colon < text.find_first_of("/?#")) {
        if (!isScheme(text.substr(0, colon)))
            return std::nullopt;
        components.scheme = text.substr(0, colon);
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
    components.path = text;
    return components;
}

std::optional<std::string> TLURLParser::filePathForURL(std::string_view url)
{
    const std::optional<Components> components = parseURIReference(url);
    if (!components)
        return std::nullopt;
    std::optional<std::string> path = TLTextCoding::percentDecoded(components->path);
    if (!path || path->empty() || !TLTextCoding::isValidUTF8(*path) || path->find('\0') != std::string::npos)
        return std::nullopt;
    if (path->size() > 1 && path->back() == '/')
        path->pop_back();
    return path;
}
