// Reading bin texts back as XML.
#include "TLBinText.h"

#include "TLFormat.h"
#include "TLXMLParser.h"

namespace {

bool isReferenceName(std::string_view name)
{
    if (name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos")
        return true;
    const bool hexadecimal = name.starts_with("#x");
    const std::string_view digits = name.substr(hexadecimal ? 2 : 1);
    if (!name.starts_with('#') || digits.empty())
        return false;
    const char *allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    return digits.find_first_not_of(allowed) == std::string_view::npos;
}

// Past the CDATA section, comment or processing instruction that starts at
// `at`; just past the "<" for anything else.
std::size_t skipMarkup(std::string_view text, std::size_t at)
{
    static constexpr std::pair<std::string_view, std::string_view> sections[] = {
        {"<![CDATA[", "]]>"}, {"<!--", "-->"}, {"<?", "?>"}};
    for (const auto &[open, close] : sections) {
        if (text.substr(at).starts_with(open)) {
            const std::size_t end = text.find(close, at + open.size());
            return end == std::string_view::npos ? text.size() : end + close.size();
        }
    }
    return at + 1;
}

std::string problemAt(std::string_view problem, std::size_t offset)
{
    return TLFormat::stringWithFormat("%@ at offset %li", problem, static_cast<long>(offset));
}

// What pugixml lets through but XML forbids: an "&" that starts no
// predefined entity or character reference (a bin name holding "&" is
// written bare), "]]>" outside a CDATA section, and control characters.
// CDATA sections, comments and processing instructions are skipped; pugixml
// checks their own syntax.
std::optional<std::string> looseMarkupProblem(std::string_view text)
{
    for (std::size_t at = 0; at < text.size();) {
        const char character = text[at];
        if (character == '<') {
            at = skipMarkup(text, at);
            continue;
        }
        if (character == '&') {
            const std::size_t end = text.find(';', at);
            if (end == std::string_view::npos || !isReferenceName(text.substr(at + 1, end - at - 1)))
                return problemAt("Undefined entity or unescaped &", at);
            at = end + 1;
            continue;
        }
        if (character == ']' && text.substr(at).starts_with("]]>"))
            return problemAt("\"]]>\" outside a CDATA section", at);
        if (static_cast<unsigned char>(character) < 0x20 && character != '\t' && character != '\n' &&
            character != '\r')
            return problemAt("Control character", at);
        ++at;
    }
    return std::nullopt;
}

} // namespace

bool TLBinText::isPlain(std::string_view text)
{
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '<' || character == '&' || character == '\r'
            || (byte < 0x20 && character != '\t' && character != '\n'))
            return false;
    }
    return text.find("]]>") == std::string_view::npos;
}

std::shared_ptr<pugi::xml_document> TLBinText::parsed(std::string_view text, std::string &problem)
{
    if (std::optional<std::string> loose = looseMarkupProblem(text)) {
        problem = std::move(*loose);
        return nullptr;
    }
    auto bin = std::make_shared<pugi::xml_document>();
    const pugi::xml_parse_result result =
        bin->load_buffer(text.data(), text.size(), TLXMLParser::projectParseOptions, pugi::encoding_utf8);
    if (!result) {
        problem = problemAt(result.description(), static_cast<std::size_t>(result.offset));
        return nullptr;
    }
    // A name holding markup can close the bin early and open another one.
    if (bin->first_child() != bin->last_child()) {
        problem = "Text after the bin element";
        return nullptr;
    }
    return bin;
}

std::optional<std::string> TLBinText::nameAsWritten(std::string_view name)
{
    if (isPlain(name))
        return std::string(name);
    std::string problem;
    const auto element = parsed("<name>" + std::string(name) + "</name>", problem);
    if (!element)
        return std::nullopt;
    return TLXMLParser::stringValue(pugi::xpath_node(element->document_element()));
}
