// Smart bin resolution: reading each clip's fields once and testing the
// filter rows against them.
#include "TLSmartBinParser.h"

#include "TLCaseFolding.h"
#include "TLClipFields.h"
#include "TLLog.h"
#include "TLPathText.h"
#include "TLTextCoding.h"
#include "TLXMLParser.h"

#include <array>
#include <optional>
#include <string_view>

namespace {

constexpr std::size_t kFieldCount = TLClipFields::smartBinFieldCount;
constexpr std::int64_t kLastFieldType = std::int64_t(kFieldCount) - 1;

constexpr std::string_view pathURLQuery = ".//pathurl[1]/text()";
// The clip's first pathurl element, found without gathering the first
// pathurl child of every element inside the clip (several times faster).
constexpr std::string_view firstPathURLElementQuery = "(.//pathurl)[1]";

enum Operator : std::int64_t { contains, lacks, equals, differs, sortsAfter, sortsBefore };

// A filter row with everything that does not depend on the clip worked out
// before the clip loop.
struct PreparedRow
{
    std::int64_t type = 0;
    std::int64_t match = 0;
    std::string filter;
    std::string foldedFilter;
    std::u16string filterUnits;
    std::string escapedQuery; // empty for fields not read by a query

    bool isSkipped() const { return type > kLastFieldType; }
    bool readsField() const { return type >= 0 && type <= kLastFieldType; }
};

PreparedRow prepare(const TLSmartBinFilter &row)
{
    PreparedRow prepared;
    prepared.type = row.filterType();
    prepared.match = row.filterMatch();
    prepared.filter = row.filterString();
    if (prepared.match == contains || prepared.match == lacks)
        prepared.foldedFilter = TLCaseFolding::foldedCase(prepared.filter);
    if (prepared.match == sortsAfter || prepared.match == sortsBefore)
        prepared.filterUnits = TLTextCoding::utf16Units(prepared.filter);
    const TLClipField *field = TLClipFields::smartBinField(prepared.type);
    if (field && field->query)
        prepared.escapedQuery = TLXMLParser::escapeQueryString(field->query);
    return prepared;
}

std::vector<PreparedRow> prepareRows(const TLFilterList &filterArray)
{
    std::vector<PreparedRow> rows;
    rows.reserve(filterArray.size());
    for (const std::shared_ptr<TLSmartBinFilter> &row : filterArray) {
        if (row)
            rows.push_back(prepare(*row));
    }
    return rows;
}

std::string describeRows(const std::vector<PreparedRow> &rows)
{
    std::string text = std::to_string(rows.size()) + (rows.size() == 1 ? " row" : " rows");
    for (std::size_t index = 0; index < rows.size(); ++index) {
        const PreparedRow &row = rows[index];
        text += index == 0 ? ": " : ", ";
        text += "(type " + std::to_string(row.type) + ", match " + std::to_string(row.match) + ", \""
                + row.filter + "\")";
    }
    return text;
}

// The text of ".//pathurl[1]/text()". The first pathurl of the clip in
// document order is always the first of its parent, so when it holds plain
// text its first text node is the answer; anything else (an empty pathurl,
// one with elements inside) takes the full query.
std::optional<std::string> firstPathURLText(const pugi::xml_node &clip)
{
    const pugi::xml_node first = TLXMLParser::evaluateFirstNode(firstPathURLElementQuery, clip).node();
    if (!first)
        return std::nullopt;
    const pugi::xml_node text = first.first_child();
    const bool plainText = text && !text.next_sibling()
                           && (text.type() == pugi::node_pcdata || text.type() == pugi::node_cdata);
    if (plainText)
        return std::string(text.value());
    return TLXMLParser::evaluateFirstText(pathURLQuery, clip);
}

// What the matching reads of one clip, each at most once however many rows
// read it: its path only when a row or a match needs it, each field only
// when a row tests it.
class ClipFields
{
public:
    ClipFields(const pugi::xml_node &clip, const std::string &escapedSampleRateQuery)
        : m_clip(clip), m_escapedSampleRateQuery(escapedSampleRateQuery)
    {}

    const std::optional<std::string> &path()
    {
        if (!m_path)
            m_path = TLXMLParser::filenameFromPathURLString(firstPathURLText(m_clip));
        return *m_path;
    }

    const std::optional<std::string> &value(const PreparedRow &row)
    {
        std::optional<std::optional<std::string>> &cached = m_values[std::size_t(row.type)];
        if (!cached)
            cached = read(row);
        return *cached;
    }

private:
    std::optional<std::string> read(const PreparedRow &row)
    {
        if (!row.escapedQuery.empty())
            return TLXMLParser::evaluateFirstText(row.escapedQuery, m_clip);
        if (row.type == TLClipFields::hasAudioField)
            return hasAudio() ? "true" : "false";
        if (!path())
            return std::nullopt;
        if (row.type == TLClipFields::fileNameField)
            return std::string(TLPathText::lastPathComponent(*path()));
        return std::string(TLPathText::pathExtension(*path()));
    }

    bool hasAudio()
    {
        if (path()) {
            const std::string extension = TLCaseFolding::foldedCase(TLPathText::pathExtension(*path()));
            if (extension == "aif" || extension == "aiff" || extension == "wav")
                return true;
        }
        const std::optional<std::string> sampleRate = TLXMLParser::evaluateFirstText(m_escapedSampleRateQuery, m_clip);
        return sampleRate && !sampleRate->empty();
    }

    pugi::xml_node m_clip;
    const std::string &m_escapedSampleRateQuery;
    std::optional<std::optional<std::string>> m_path;
    std::array<std::optional<std::optional<std::string>>, kFieldCount> m_values;
};

bool rowMatches(const PreparedRow &row, const std::optional<std::string> &value)
{
    // A clip that lacks the field passes every row on it.
    if (!value)
        return true;
    switch (row.match) {
    case contains:
        return TLCaseFolding::foldedCase(*value).find(row.foldedFilter) != std::string::npos;
    case lacks:
        return TLCaseFolding::foldedCase(*value).find(row.foldedFilter) == std::string::npos;
    case equals:
        return *value == row.filter;
    case differs:
        return *value != row.filter;
    case sortsAfter:
        return TLTextCoding::utf16Units(*value) > row.filterUnits;
    case sortsBefore:
        return TLTextCoding::utf16Units(*value) < row.filterUnits;
    default:
        return true;
    }
}

// The clip as a media item. Its path, name and uuid are read when it first
// matches, and only once however many rows it matches.
class ClipEntry
{
public:
    ClipEntry(const pugi::xml_node &clip, ClipFields &fields) : m_clip(clip), m_fields(fields) {}

    std::shared_ptr<TLMediaItem> newMediaItem()
    {
        if (!m_shortName) {
            m_shortName = TLXMLParser::nameForNode(m_clip, true).value_or(std::string());
            m_uuid = TLXMLParser::uuidForNode(m_clip, true);
        }
        return TLMediaItem::create(m_fields.path(), *m_shortName, m_uuid);
    }

private:
    pugi::xml_node m_clip;
    ClipFields &m_fields;
    std::optional<std::string> m_shortName;
    std::optional<std::string> m_uuid;
};

// All of one clip's rows are evaluated before the next clip, while its nodes
// are still in the cache. Under match type 0 only the first row that is not
// skipped counts; the counter makes the last of n matching rows list the
// clip, so rows of skipped types still count among the n.
void matchClip(const pugi::xml_node &clip, const std::vector<PreparedRow> &rows, std::int64_t matchType,
               const std::string &escapedSampleRateQuery, TLMediaItemList &result)
{
    ClipFields fields(clip, escapedSampleRateQuery);
    ClipEntry entry(clip, fields);
    const std::optional<std::string> noValue;
    std::size_t matches = 0;
    for (const PreparedRow &row : rows) {
        if (row.isSkipped())
            continue;
        const bool matched = rowMatches(row, row.readsField() ? fields.value(row) : noValue);
        if (matched && (matches + 1 >= rows.size() || matchType == 1))
            result.push_back(entry.newMediaItem());
        else if (matched)
            ++matches;
        if (matchType == 0)
            return;
    }
}

} // namespace

std::shared_ptr<TLSmartBin> TLSmartBinParser::binFromFilterArray(const TLFilterList &filterArray,
                                                                 const std::string &name, std::int64_t matchType,
                                                                 const TLProjectView &mediaController)
{
    std::shared_ptr<TLSmartBin> bin = TLSmartBin::create();
    bin->setBinName(name);
    bin->setMatchType(matchType);
    bin->setFilterArray(filterArray);
    const TLMediaItemList items = arrayFromFilterArray(filterArray, name, matchType, mediaController);
    bin->setChildren(TLNodeList(items.begin(), items.end()));
    return bin;
}

TLMediaItemList TLSmartBinParser::arrayFromFilterArray(const TLFilterList &filterArray, const std::string &,
                                                       std::int64_t matchType,
                                                       const TLProjectView &mediaController)
{
    const std::vector<PreparedRow> rows = prepareRows(filterArray);
    TLLog::appendLog("smart bin matchtype: %i", matchType);
    TLLog::appendLog("smart bin filterarray: %@", describeRows(rows));
    TLMediaItemList result;
    if (rows.empty())
        return result;
    const std::string escapedSampleRateQuery = TLXMLParser::escapeQueryString(TLClipFields::smartBinSampleRateQuery);
    for (const pugi::xpath_node &clip : mediaController.clips())
        matchClip(clip.node(), rows, matchType, escapedSampleRateQuery, result);
    return result;
}
