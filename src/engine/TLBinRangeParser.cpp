// Range expression expansion.
#include "TLBinRangeParser.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <unordered_set>

namespace {

// A ranged item never yields more than this many values; the cap is silent.
constexpr std::int64_t maximumValuesPerRange = 1000;

// The names produced so far, in first-produced order, with a set beside the
// list so that many items do not make duplicate detection quadratic.
class NameList
{
public:
    void append(std::string name)
    {
        if (m_seen.insert(name).second)
            m_names.push_back(std::move(name));
    }
    std::vector<std::string> take() { return std::move(m_names); }

private:
    std::vector<std::string> m_names;
    std::unordered_set<std::string> m_seen;
};

bool isLeadingBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// Leading blanks are skipped, then an optional sign and the leading digits
// are read; anything after them is ignored, text without digits is 0, and
// values beyond 32 bits are clamped.
std::int32_t intValue(std::string_view text)
{
    std::size_t position = 0;
    while (position < text.size() && isLeadingBlank(text[position]))
        ++position;
    bool negative = false;
    if (position < text.size() && (text[position] == '+' || text[position] == '-'))
        negative = text[position++] == '-';
    std::int64_t value = 0;
    for (; position < text.size() && text[position] >= '0' && text[position] <= '9'; ++position) {
        value = value * 10 + (text[position] - '0');
        if (value > std::int64_t(INT_MAX) + 1)
            break;
    }
    value = negative ? -value : value;
    if (value > INT_MAX)
        return INT_MAX;
    if (value < INT_MIN)
        return INT_MIN;
    return std::int32_t(value);
}

// The text from `start` with `length` characters, refusing a range that does
// not lie inside the text.
std::string_view substring(std::string_view text, std::size_t start, std::int64_t length)
{
    if (length < 0 || start + std::size_t(length) > text.size())
        throw std::out_of_range("range expression: invalid substring range");
    return text.substr(start, std::size_t(length));
}

struct Range
{
    std::int64_t from;
    std::int64_t to;
    std::int64_t step;
};

// Reads "a-b" or "a-bxs"; no value for the malformed forms that are skipped.
std::optional<Range> rangeFromItem(std::string_view item, std::size_t dash)
{
    if (dash == 0 || dash == item.size() - 1)
        return std::nullopt;
    const std::int64_t from = intValue(item.substr(0, dash));
    const std::size_t x = item.find('x');
    if (x == std::string_view::npos)
        return Range{from, intValue(item.substr(dash + 1)), 1};
    if (x == item.size() - 1)
        return std::nullopt;
    const std::int64_t step = intValue(item.substr(x + 1));
    if (step < 1)
        return std::nullopt;
    const std::int64_t to = intValue(substring(item, dash + 1, std::int64_t(x) - std::int64_t(dash) - 1));
    return Range{from, to, step};
}

void appendRange(const Range &range, std::string_view prefix, std::string_view suffix, NameList &names)
{
    const auto nameFor = [&](std::int64_t value) {
        return std::string(prefix) + std::to_string(value) + std::string(suffix);
    };
    if (range.from > range.to) {
        const std::int64_t lowest = range.from - range.to < maximumValuesPerRange
                                        ? range.to
                                        : range.from - (maximumValuesPerRange - 1);
        for (std::int64_t value = range.from; value >= lowest; value -= range.step)
            names.append(nameFor(value));
        return;
    }
    const std::int64_t highest = range.to - range.from < maximumValuesPerRange
                                     ? range.to
                                     : range.from + (maximumValuesPerRange - 1);
    for (std::int64_t value = range.from; value <= highest; value += range.step)
        names.append(nameFor(value));
}

void appendItem(std::string_view item, std::string_view prefix, std::string_view suffix, NameList &names)
{
    const std::size_t dash = item.find('-');
    if (dash == std::string_view::npos) {
        if (!item.empty())
            names.append(std::string(prefix) + std::string(item) + std::string(suffix));
        return;
    }
    if (const auto range = rangeFromItem(item, dash))
        appendRange(*range, prefix, suffix, names);
}

} // namespace

std::vector<std::string> TLBinRangeParser::arrayFromExpression(std::string_view expression)
{
    const std::size_t open = expression.find('[');
    if (open == std::string_view::npos)
        return {std::string(expression)};
    const std::size_t close = expression.find(']');
    if (close == std::string_view::npos)
        return {};

    const std::string_view prefix = expression.substr(0, open);
    const std::string_view body = substring(expression, open + 1, std::int64_t(close) - std::int64_t(open) - 1);
    const std::string_view suffix = expression.substr(close + 1);

    NameList names;
    std::size_t itemStart = 0;
    while (itemStart <= body.size()) {
        const std::size_t comma = std::min(body.find(',', itemStart), body.size());
        appendItem(body.substr(itemStart, comma - itemStart), prefix, suffix, names);
        itemStart = comma + 1;
    }
    return names.take();
}
