// Reading the filter rows of smart bin edits.
#include "CliEdit.h"

#include "CliNames.h"
#include "CliText.h"

namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

// Cuts the first blank-separated word off the front of `text`.
std::string_view takeWord(std::string_view &text)
{
    std::size_t start = 0;
    while (start < text.size() && isBlank(text[start]))
        ++start;
    std::size_t end = start;
    while (end < text.size() && !isBlank(text[end]))
        ++end;
    const std::string_view word = text.substr(start, end - start);
    text.remove_prefix(end);
    return word;
}

} // namespace

std::string CliEdit::parseFilter(std::string_view text, CliFilterRow &row)
{
    std::string_view rest = text;
    const std::string_view field = takeWord(rest);
    const std::string_view op = takeWord(rest);
    if (field.empty() || op.empty())
        return "a filter needs a field and an operator, as in \"scene contains 12\", not " + CliText::quoted(text);
    // One blank (or tab) separates the operator from the value; any more
    // belong to the value, so that values with leading blanks can be asked for.
    if (!rest.empty())
        rest.remove_prefix(1);
    return filterFromParts(field, op, std::string(rest), row);
}

std::string CliEdit::filterFromParts(std::string_view field, std::string_view op, std::string value,
                                     CliFilterRow &row)
{
    const auto type = CliNames::numberForText(CliNames::fields(), field);
    if (!type)
        return "unknown filter field " + CliText::quoted(field) + " (corvale fields lists them)";
    const auto match = CliNames::numberForText(CliNames::operators(), op);
    if (!match)
        return "unknown filter operator " + CliText::quoted(op) + " (corvale fields lists them)";
    row = CliFilterRow{*type, *match, std::move(value)};
    return {};
}

std::string_view CliEdit::optionName(Kind kind)
{
    switch (kind) {
    case Kind::select:
        return "--in";
    case Kind::bin:
        return "--bin";
    case Kind::range:
        return "--range";
    case Kind::smartBin:
        return "--smart-bin";
    case Kind::smartRange:
        return "--smart-range";
    case Kind::remove:
        return "--remove";
    case Kind::rename:
        return "--rename";
    case Kind::keepSelection:
    case Kind::restoreSelection:
        return "--recipe";
    }
    return "";
}
