// Case folding of UTF-8 text for name ordering and filter matching.
#include "TLCaseFolding.h"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/stringpiece.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <optional>

namespace {

// One decoded character, or nothing for a byte that starts no valid sequence.
struct Decoded
{
    std::optional<char32_t> scalar;
    std::size_t length = 1;
};

std::size_t sequenceLength(unsigned char lead)
{
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    return 0;
}

// Strict: overlong forms, surrogates and values beyond U+10FFFF are invalid,
// so that no two byte strings decode to the same characters.
Decoded decodeAt(std::string_view text, std::size_t position)
{
    const auto lead = static_cast<unsigned char>(text[position]);
    const std::size_t length = sequenceLength(lead);
    if (length == 1)
        return {char32_t(lead), 1};
    if (length == 0 || text.size() - position < length)
        return {};
    char32_t value = lead & (0x7F >> length);
    for (std::size_t index = 1; index < length; ++index) {
        const auto next = static_cast<unsigned char>(text[position + index]);
        if ((next & 0xC0) != 0x80)
            return {};
        value = (value << 6) | (next & 0x3F);
    }
    static constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < smallest[length] || (value >= 0xD800 && value <= 0xDFFF) || value > 0x10FFFF)
        return {};
    return {value, length};
}

bool isASCII(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

char foldedASCII(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Valid runs are handed to ICU at most this long, which its 32-bit lengths
// hold with room to spare. Default folding looks at no neighbouring
// character, so cutting a run between two characters changes nothing.
constexpr std::size_t longestRun = std::size_t(1) << 20;

// How many bytes from `position` on are valid UTF-8, up to that limit.
std::size_t validRunLength(std::string_view text, std::size_t position)
{
    std::size_t end = position;
    while (end < text.size() && end - position < longestRun) {
        const Decoded decoded = decodeAt(text, end);
        if (!decoded.scalar)
            break;
        end += decoded.length;
    }
    return end - position;
}

void appendFoldedRun(std::string &folded, std::string_view run)
{
    const std::size_t start = folded.size();
    UErrorCode error = U_ZERO_ERROR;
    // The sink appends with std::string, so running out of memory there
    // surfaces as std::bad_alloc; ICU itself holds nothing to release.
    icu::StringByteSink<std::string> sink(&folded, static_cast<int32_t>(run.size()));
    icu::CaseMap::utf8Fold(U_FOLD_CASE_DEFAULT, icu::StringPiece(run.data(), static_cast<int32_t>(run.size())),
                           sink, nullptr, error);
    if (U_SUCCESS(error))
        return;
    if (error == U_MEMORY_ALLOCATION_ERROR)
        throw std::bad_alloc();
    // ICU refuses nothing else for valid UTF-8 this short; should it ever,
    // the run unfolded is still a faithful copy of the text.
    folded.resize(start);
    folded.append(run);
}

// Invalid bytes are keyed above U+10FFFF: folded text can hold any scalar,
// so only there do they sort after every character and never equal one.
constexpr char32_t invalidByteBase = 0x110000;

char32_t orderingKey(std::string_view text, std::size_t &position)
{
    const Decoded decoded = decodeAt(text, position);
    position += decoded.length;
    if (!decoded.scalar)
        return invalidByteBase + static_cast<unsigned char>(text[position - 1]);
    return *decoded.scalar;
}

} // namespace

std::string TLCaseFolding::foldedCase(std::string_view text)
{
    // Most names and metadata are plain ASCII, and this runs for every clip
    // against every filter row: fold those without ICU.
    if (isASCII(text)) {
        std::string folded(text);
        std::transform(folded.begin(), folded.end(), folded.begin(), foldedASCII);
        return folded;
    }
    std::string folded;
    folded.reserve(text.size());
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t length = validRunLength(text, position);
        if (length == 0) {
            folded += text[position++];
            continue;
        }
        appendFoldedRun(folded, text.substr(position, length));
        position += length;
    }
    return folded;
}

std::weak_ordering TLCaseFolding::caseInsensitiveCompare(std::string_view left, std::string_view right)
{
    // One character may fold to several ("ß" to "ss"), so the foldings are
    // compared rather than the characters one by one. Folding keeps every
    // invalid byte and starts each folded run with a lead byte, so the
    // foldings decode into the same invalid bytes as the texts.
    const std::string leftFolded = foldedCase(left);
    const std::string rightFolded = foldedCase(right);
    std::size_t leftPosition = 0;
    std::size_t rightPosition = 0;
    while (leftPosition < leftFolded.size() && rightPosition < rightFolded.size()) {
        const char32_t a = orderingKey(leftFolded, leftPosition);
        const char32_t b = orderingKey(rightFolded, rightPosition);
        if (a != b)
            return a < b ? std::weak_ordering::less : std::weak_ordering::greater;
    }
    const bool leftDone = leftPosition >= leftFolded.size();
    const bool rightDone = rightPosition >= rightFolded.size();
    if (leftDone && rightDone)
        return std::weak_ordering::equivalent;
    return leftDone ? std::weak_ordering::less : std::weak_ordering::greater;
}

bool TLCaseFolding::containsIgnoringCase(std::string_view text, std::string_view part)
{
    if (part.empty())
        return true;
    return foldedCase(text).find(foldedCase(part)) != std::string::npos;
}
