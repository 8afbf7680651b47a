// The names tables of the command line and the look-ups over them.
#include "CliNames.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace {

constexpr std::array kFields{
    CliName{0, "name", "the clip's name"},
    CliName{1, "file-name", "the name of the clip's media file"},
    CliName{2, "file-type", "the extension of the media file, as written"},
    CliName{2, "extension", ""},
    CliName{3, "url", "the URL of the file held directly by the clip"},
    CliName{4, "duration", "the duration, in frames"},
    CliName{5, "timebase", "the frame rate's timebase"},
    CliName{6, "width", "the frame width"},
    CliName{7, "height", "the frame height"},
    CliName{8, "field-dominance", "the field dominance"},
    CliName{9, "scene", "the logged scene"},
    CliName{10, "shot-take", "the logged shot or take"},
    CliName{11, "log-note", "the log note"},
    CliName{12, "good", "the good mark, as stored"},
    CliName{13, "label", "the colour label"},
    CliName{14, "comment-1", "master comment 1"},
    CliName{15, "comment-2", "master comment 2"},
    CliName{16, "comment-3", "master comment 3"},
    CliName{17, "comment-4", "master comment 4"},
    CliName{18, "audio", "the text directly inside the clip's audio"},
    CliName{19, "has-audio", "\"true\" or \"false\": whether the clip has sound"},
    CliName{20, "audio-depth", "the audio bit depth"},
};

constexpr std::array kOperators{
    CliName{0, "contains", "the field contains the value, ignoring case"},
    CliName{1, "does-not-contain", "the field does not contain the value, ignoring case"},
    CliName{1, "not-contains", ""},
    CliName{2, "is", "the field equals the value exactly"},
    CliName{2, "equals", ""},
    CliName{3, "is-not", "the field differs from the value"},
    CliName{4, "after", "the field sorts after the value, as text (\"9\" after \"100\")"},
    CliName{5, "before", "the field sorts before the value, as text"},
};

constexpr std::array kMatchTypes{
    CliName{0, "first", "only the first filter counts, and only in a bin of one filter"},
    CliName{1, "any", "a clip is listed once for every filter it passes"},
    CliName{2, "all", "a clip is listed when it passes every filter"},
};

constexpr std::array kCriteria{
    CliName{0, "file-type", "the media file's extension, lower-cased"},
    CliName{1, "", "(no criterion: makes no bins)"},
    CliName{2, "folder", "the folder that holds the media file"},
    CliName{3, "timebase", "the frame rate's timebase"},
    CliName{4, "width", "the frame width"},
    CliName{5, "height", "the frame height"},
    CliName{6, "field-dominance", "the field dominance"},
    CliName{7, "scene", "the logged scene"},
    CliName{8, "shot-take", "the logged shot or take"},
    CliName{9, "log-note", "the log note"},
    CliName{10, "good", "the good mark, as stored"},
    CliName{11, "label", "the colour label"},
    CliName{12, "comment-1", "master comment 1"},
    CliName{13, "comment-2", "master comment 2"},
    CliName{14, "comment-3", "master comment 3"},
    CliName{15, "comment-4", "master comment 4"},
    CliName{16, "has-audio", "\"true\" or \"false\": whether the clip has sound"},
    CliName{17, "sample-rate", "the audio sample rate"},
    CliName{18, "audio-depth", "the audio bit depth"},
};

char lowerAscii(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsIgnoringAsciiCase(std::string_view left, std::string_view right)
{
    if (left.size() != right.size())
        return false;
    for (std::size_t i = 0; i < left.size(); ++i) {
        if (lowerAscii(left[i]) != lowerAscii(right[i]))
            return false;
    }
    return true;
}

std::optional<std::int64_t> decimalNumber(std::string_view text)
{
    if (text.empty() || text.size() > 18)
        return std::nullopt;
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 0)
        return std::nullopt;
    return number;
}

const CliName *entryForNumber(std::span<const CliName> table, std::int64_t number)
{
    for (const auto &entry : table) {
        if (entry.number == number)
            return &entry;
    }
    return nullptr;
}

void appendTable(std::string &text, std::string_view title, std::span<const CliName> table)
{
    text += title;
    text += '\n';
    std::int64_t lastNumber = -1;
    for (const auto &entry : table) {
        const bool alias = entry.number == lastNumber;
        lastNumber = entry.number;
        if (alias) {
            text.append("        also ").append(entry.word).append("\n");
            continue;
        }
        std::string number = std::to_string(entry.number);
        std::string word(entry.word);
        text.append(4 - std::min<std::size_t>(number.size(), 3), ' ').append(number).append("  ");
        text.append(word).append(word.size() < 18 ? 18 - word.size() : 1, ' ');
        text.append(entry.description).append("\n");
    }
}

} // namespace

std::span<const CliName> CliNames::fields()
{
    return kFields;
}

std::span<const CliName> CliNames::operators()
{
    return kOperators;
}

std::span<const CliName> CliNames::matchTypes()
{
    return kMatchTypes;
}

std::span<const CliName> CliNames::criteria()
{
    return kCriteria;
}

std::optional<std::int64_t> CliNames::numberForText(std::span<const CliName> table, std::string_view text)
{
    if (text.empty())
        return std::nullopt;
    if (const auto number = decimalNumber(text))
        return entryForNumber(table, *number) ? number : std::nullopt;
    for (const auto &entry : table) {
        if (!entry.word.empty() && equalsIgnoringAsciiCase(entry.word, text))
            return entry.number;
    }
    return std::nullopt;
}

std::string CliNames::wordForNumber(std::span<const CliName> table, std::int64_t number)
{
    const CliName *entry = entryForNumber(table, number);
    if (!entry || entry->word.empty())
        return std::to_string(number);
    return std::string(entry->word);
}

std::string CliNames::listing()
{
    std::string text;
    appendTable(text, "Smart bin fields (--filter \"FIELD OPERATOR VALUE\"):", fields());
    appendTable(text, "\nOperators (compare the field's text with VALUE):", operators());
    appendTable(text, "\nMatch types (--match):", matchTypes());
    appendTable(text, "\nSmart range criteria (--smart-range):", criteria());
    text += "\nWords and numbers are interchangeable; a clip without the field passes every filter on it.\n";
    return text;
}
