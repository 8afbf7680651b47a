// The names tables of the command line and the look-ups over them.
#include "CliNames.h"

#include "TLClipFields.h"

#include <algorithm>
#include <charconv>
#include <vector>

namespace {

// A family of the engine's table as the command line lists it: each number
// with its main word and description, followed by one entry per alias.
template <typename Row>
std::vector<CliName> namesOf(std::span<const Row> rows)
{
    std::vector<CliName> names;
    for (const TLClipChoice &row : rows) {
        names.push_back({row.number, row.name, row.description});
        for (const std::string_view alias : row.aliases)
            names.push_back({row.number, alias, {}});
    }
    return names;
}

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
    static const std::vector<CliName> names = namesOf(TLClipFields::smartBinFields());
    return names;
}

std::span<const CliName> CliNames::operators()
{
    static const std::vector<CliName> names = namesOf(TLClipFields::operators());
    return names;
}

std::span<const CliName> CliNames::matchTypes()
{
    static const std::vector<CliName> names = namesOf(TLClipFields::matchTypes());
    return names;
}

std::span<const CliName> CliNames::criteria()
{
    static const std::vector<CliName> names = namesOf(TLClipFields::smartRangeCriteria());
    return names;
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
