// The text algorithms that read clip metadata, names and URLs out of
// projects, most of them counting UTF-16 code units: any bytes, damaged
// UTF-8 included. An input "a\0b" also gives the two-text operations "a"
// and "b".
#include "FuzzSupport.h"

#include "TLAppleEvents.h"
#include "TLCaseFolding.h"
#include "TLLog.h"
#include "TLPathText.h"
#include "TLTextCoding.h"
#include "TLURLParser.h"
#include "TLXMLParser.h"

#include <compare>
#include <cstdlib>
#include <stdexcept>

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

void codeUnits(std::string_view text)
{
    const std::u16string units = TLTextCoding::utf16Units(text);
    check(TLTextCoding::utf16Length(text) == units.size());
    check(units.size() <= text.size());
    (void)TLTextCoding::isValidUTF8(text);
    for (std::size_t index = 0; index <= text.size(); ++index)
        (void)TLTextCoding::isPercentEscapeAt(text, index);
    const auto decoded = TLTextCoding::percentDecoded(text);
    check(!decoded || decoded->size() <= text.size());
    const auto ascii = TLTextCoding::percentDecoded(text, TLTextCoding::EscapedBytes::AsciiOnly);
    check(!ascii || decoded);
}

void escaping(std::string_view text)
{
    try {
        (void)TLXMLParser::escapeQueryString(text);
    } catch (const std::out_of_range &) {
        // The documented refusal of a short query holding "&".
        check(TLTextCoding::utf16Length(text) < 4);
    }
    (void)TLAppleEvents::escapeCharactersInXMLString(text);
    (void)TLLog::escapeTextForLogging(text);
}

void caseFolding(std::string_view left, std::string_view right)
{
    const std::string folded = TLCaseFolding::foldedCase(left);
    check(TLCaseFolding::foldedCase(folded) == folded);
    check(std::is_eq(TLCaseFolding::caseInsensitiveCompare(left, left)));
    check(std::is_eq(TLCaseFolding::caseInsensitiveCompare(left, folded)));
    const auto forward = TLCaseFolding::caseInsensitiveCompare(left, right);
    const auto backward = TLCaseFolding::caseInsensitiveCompare(right, left);
    check(std::is_lt(forward) == std::is_gt(backward));
    check(TLCaseFolding::containsIgnoringCase(left, left));
    check(TLCaseFolding::containsIgnoringCase(left, ""));
    (void)TLCaseFolding::containsIgnoringCase(left, right);
}

void paths(std::string_view text)
{
    (void)TLURLParser::parseURIReference(text);
    const auto path = TLURLParser::filePathForURL(text);
    check(!path || TLTextCoding::isValidUTF8(*path));
    (void)TLXMLParser::filenameFromPathURLString(std::string(text));
    (void)TLPathText::lastPathComponent(text);
    (void)TLPathText::deletingLastPathComponent(text);
    (void)TLPathText::pathExtension(text);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::sandbox(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view input = fuzz::text(data, size);
    codeUnits(input);
    escaping(input);
    caseFolding(fuzz::firstPart(input), fuzz::secondPart(input));
    paths(fuzz::firstPart(input));
    return 0;
}
