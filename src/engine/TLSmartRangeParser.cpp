// Smart range resolution: each clip's media URL and criterion value, and the
// grouping of clips by value.
#include "TLSmartRangeParser.h"

#include "TLCaseFolding.h"
#include "TLClipFields.h"
#include "TLLog.h"
#include "TLMediaItem.h"
#include "TLPathText.h"
#include "TLXMLParser.h"

#include <cstring>
#include <stdexcept>
#include <string_view>
#include <unordered_map>

namespace {

constexpr std::int64_t kLastCriterion = std::int64_t(TLClipFields::smartRangeCriterionCount) - 1;

enum Criterion : std::int64_t {
    fileType = TLClipFields::fileTypeCriterion,
    unsupported = TLClipFields::noCriterion,
    folder = TLClipFields::folderCriterion,
    hasAudio = TLClipFields::hasAudioCriterion,
};

constexpr std::string_view masterClipIDQuery = "./media[1]/(video[1] | audio[1])/track/clipitem/masterclipid/text()";
constexpr std::string_view mediaFileNameQuery =
    "./media[1]/(video[1] | audio[1])/track/clipitem/file[1]/name[1]/text()";
constexpr std::string_view clipNameQuery = "./name[1]/text()";

constexpr const char *unknownValue = "Unknown";
constexpr const char *unspecifiedValue = "Unspecified";
// The output line names at most this many groups.
constexpr std::size_t kLargestLoggedGroupCount = 100;

bool isSupported(std::int64_t criteria)
{
    return criteria != unsupported && criteria <= kLastCriterion;
}

// A file name as it appears in a media URL: UTF-8, with every character that
// a URL may not hold as it is escaped in upper-case hex.
std::string percentEscaped(std::string_view name)
{
    static constexpr std::string_view unsafe = "\"#%<>[\\]^`{|}";
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string escaped;
    escaped.reserve(name.size());
    for (const char character : name) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte > 0x20 && byte < 0x7F && unsafe.find(character) == std::string_view::npos) {
            escaped += character;
            continue;
        }
        escaped += '%';
        escaped += hex[byte >> 4];
        escaped += hex[byte & 0xF];
    }
    return escaped;
}

// The master-clip path table with the URL texts read out of its elements.
// The search by file name is answered from an index of the URLs by their
// last component, built on first use: a URL ends with "/name" exactly when
// its last component is the name (for names without "/"), and the index
// keeps the first such URL in table order. Names holding "/" are searched
// the long way.
class MasterClipTable
{
public:
    explicit MasterClipTable(const TLMasterClipPaths &table) : m_table(table) {}

    std::optional<std::string> urlForMasterClipID(std::string_view identifier) const
    {
        const auto found = m_table.find(identifier);
        if (found == m_table.end())
            return std::nullopt;
        return TLXMLParser::stringValue(pugi::xpath_node(found->second));
    }

    std::optional<std::string> urlForFileName(std::string_view name)
    {
        buildIndex();
        const std::string escaped = percentEscaped(name);
        if (escaped.find('/') == std::string::npos) {
            const auto found = m_byLastComponent.find(escaped);
            if (found == m_byLastComponent.end())
                return std::nullopt;
            return m_urls[found->second];
        }
        const std::string tail = "/" + escaped;
        for (const std::string &url : m_urls) {
            if (url.ends_with(tail))
                return url;
        }
        return std::nullopt;
    }

private:
    void buildIndex()
    {
        if (m_indexBuilt)
            return;
        m_indexBuilt = true;
        m_urls.reserve(m_table.size());
        for (const auto &entry : m_table)
            m_urls.push_back(TLXMLParser::stringValue(pugi::xpath_node(entry.second)));
        // Built after m_urls is complete: the keys view its strings.
        for (std::size_t index = 0; index < m_urls.size(); ++index) {
            const std::string_view url = m_urls[index];
            const std::size_t slash = url.rfind('/');
            if (slash != std::string_view::npos)
                m_byLastComponent.try_emplace(url.substr(slash + 1), index);
        }
    }

    const TLMasterClipPaths &m_table;
    bool m_indexBuilt = false;
    std::vector<std::string> m_urls;
    std::unordered_map<std::string_view, std::size_t> m_byLastComponent;
};

bool isElement(const pugi::xml_node &node, const char *name)
{
    return node.type() == pugi::node_element && std::strcmp(node.name(), name) == 0;
}

// The first child element of that name, as the step "name[1]" selects it.
pugi::xml_node firstElement(const pugi::xml_node &parent, const char *name)
{
    for (pugi::xml_node child = parent.first_child(); child; child = child.next_sibling()) {
        if (isElement(child, name))
            return child;
    }
    return {};
}

void appendPathURLTexts(const pugi::xml_node &clipitem, TLXMLNodeList &urls)
{
    const pugi::xml_node pathurl = firstElement(firstElement(clipitem, "file"), "pathurl");
    for (pugi::xml_node text = pathurl.first_child(); text; text = text.next_sibling()) {
        if (text.type() == pugi::node_pcdata || text.type() == pugi::node_cdata)
            urls.emplace_back(text);
    }
}

// The text nodes of the query
//     ./media[1]/(video[1] | audio[1])/track/clipitem/file[1]/pathurl[1]/text()
// gathered by walking its steps directly, since as a query it is the
// costliest part of a clip. The first video and the first audio element are
// visited in their own order, so the texts come in document order.
TLXMLNodeList mediaURLNodes(const pugi::xml_node &clip)
{
    TLXMLNodeList urls;
    const pugi::xml_node media = firstElement(clip, "media");
    const pugi::xml_node video = firstElement(media, "video");
    const pugi::xml_node audio = firstElement(media, "audio");
    for (pugi::xml_node kind = media.first_child(); kind; kind = kind.next_sibling()) {
        if (kind != video && kind != audio)
            continue;
        for (pugi::xml_node track = kind.first_child(); track; track = track.next_sibling()) {
            if (!isElement(track, "track"))
                continue;
            for (pugi::xml_node clipitem = track.first_child(); clipitem; clipitem = clipitem.next_sibling()) {
                if (isElement(clipitem, "clipitem"))
                    appendPathURLTexts(clipitem, urls);
            }
        }
    }
    return urls;
}

std::string describeURLs(const TLXMLNodeList &urls)
{
    std::string text = "(";
    for (std::size_t index = 0; index < urls.size(); ++index) {
        if (index > 0)
            text += ", ";
        text += TLXMLParser::stringValue(urls[index]);
    }
    return text + ")";
}

// Where one clip's media is: the text of its first media URL, and the file
// name found when it has none. The URL's file path is decoded on first use.
class ClipMedia
{
public:
    ClipMedia() = default;
    ClipMedia(std::optional<std::string> url, std::optional<std::string> fileName)
        : m_url(std::move(url)), m_fileName(std::move(fileName))
    {}

    const std::optional<std::string> &url() const { return m_url; }
    const std::optional<std::string> &fileName() const { return m_fileName; }

    const std::optional<std::string> &filePath() const
    {
        if (!m_filePath)
            m_filePath = TLXMLParser::filenameFromPathURLString(m_url);
        return *m_filePath;
    }

private:
    std::optional<std::string> m_url;
    std::optional<std::string> m_fileName;
    mutable std::optional<std::optional<std::string>> m_filePath;
};

ClipMedia mediaOf(const pugi::xml_node &clip, MasterClipTable &table)
{
    const TLXMLNodeList urls = mediaURLNodes(clip);
    // One line per clip: fastAppendLog never waits for the writer, where
    // appendLog would make a worker wait for the disk once per clip.
    TLLog::fastAppendLog("smart range paths: %@", describeURLs(urls));
    if (!urls.empty())
        return {TLXMLParser::stringValue(urls.front()), std::nullopt};
    if (const std::optional<std::string> identifier = TLXMLParser::evaluateFirstText(masterClipIDQuery, clip)) {
        if (std::optional<std::string> url = table.urlForMasterClipID(*identifier))
            return {std::move(url), std::nullopt};
    }
    std::optional<std::string> fileName = TLXMLParser::evaluateFirstText(mediaFileNameQuery, clip);
    if (!fileName)
        fileName = TLXMLParser::evaluateFirstText(clipNameQuery, clip);
    if (!fileName)
        return {};
    if (std::optional<std::string> url = table.urlForFileName(*fileName))
        return {std::move(url), std::nullopt};
    return {std::nullopt, std::move(fileName)};
}

std::optional<std::string> fileTypeOf(const ClipMedia &media)
{
    const std::optional<std::string> &source = media.url() ? media.url() : media.fileName();
    if (!source)
        return unknownValue;
    return TLCaseFolding::foldedCase(TLPathText::pathExtension(*source));
}

std::optional<std::string> folderOf(const ClipMedia &media)
{
    if (!media.url())
        return unknownValue;
    const std::optional<std::string> &path = media.filePath();
    if (!path)
        return std::nullopt;
    return std::string(TLPathText::lastPathComponent(TLPathText::deletingLastPathComponent(*path)));
}

struct Request
{
    std::int64_t criteria = 0;
    std::string escapedQuery; // empty for values not read by a query
};

std::string valueOf(const Request &request, const pugi::xml_node &clip, const ClipMedia &media)
{
    std::optional<std::string> value;
    if (request.criteria == fileType)
        value = fileTypeOf(media);
    else if (request.criteria == folder)
        value = folderOf(media);
    else if (!request.escapedQuery.empty())
        value = TLXMLParser::evaluateFirstText(request.escapedQuery, clip);
    if (request.criteria == hasAudio)
        value = value && !value->empty() ? "true" : "false";
    if (!value || value->empty())
        return unspecifiedValue;
    return std::move(*value);
}

std::shared_ptr<TLMediaItem> mediaItemFor(const pugi::xml_node &clip, const ClipMedia &media,
                                          std::optional<std::string> uuid)
{
    return TLMediaItem::create(media.filePath(),
                               TLXMLParser::nameForNode(clip, true).value_or(std::string()), std::move(uuid));
}

std::string clipsText(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " clip" : " clips");
}

// The groups by value, in the order their values were first seen; each
// group's media items are collected apart and installed once at the end,
// since every addChild copies the child list.
class Groups
{
public:
    explicit Groups(std::int64_t criteria) : m_criteria(criteria) {}

    void add(std::string value, std::shared_ptr<TLMediaItem> item)
    {
        const auto [found, isNew] = m_indexByValue.try_emplace(value, m_values.size());
        if (isNew) {
            m_values.push_back(std::move(value));
            m_members.emplace_back();
        }
        m_members[found->second].push_back(std::move(item));
    }

    std::string description() const
    {
        std::string text = std::to_string(m_values.size()) + (m_values.size() == 1 ? " value" : " values");
        for (std::size_t index = 0; index < m_values.size() && index < kLargestLoggedGroupCount; ++index) {
            text += index == 0 ? ": " : ", ";
            text += m_values[index] + " (" + clipsText(m_members[index].size()) + ")";
        }
        if (m_values.size() > kLargestLoggedGroupCount)
            text += ", ... " + std::to_string(m_values.size() - kLargestLoggedGroupCount) + " more";
        return text;
    }

    TLSmartRangeItemList items() const
    {
        TLSmartRangeItemList items;
        items.reserve(m_values.size());
        for (std::size_t index = 0; index < m_values.size(); ++index) {
            std::shared_ptr<TLSmartRangeItem> item = TLSmartRangeItem::create(m_values[index], m_criteria);
            item->setChildren(m_members[index]);
            items.push_back(std::move(item));
        }
        return items;
    }

private:
    std::int64_t m_criteria;
    std::unordered_map<std::string, std::size_t> m_indexByValue;
    std::vector<std::string> m_values;
    std::vector<TLNodeList> m_members;
};

// The media items of one bin, keyed by clip uuid in first-seen order.
class BinMembers
{
public:
    void put(const std::string &uuid, std::shared_ptr<TLMediaItem> item)
    {
        const auto [found, isNew] = m_indexByUuid.try_emplace(uuid, m_items.size());
        if (isNew)
            m_items.push_back(std::move(item));
        else
            m_items[found->second] = std::move(item);
    }

    const TLNodeList &items() const { return m_items; }

private:
    std::unordered_map<std::string, std::size_t> m_indexByUuid;
    TLNodeList m_items;
};

Request requestFor(std::int64_t criteria)
{
    Request request{criteria, {}};
    const TLClipField *criterion = TLClipFields::smartRangeCriterion(criteria);
    // The query is a fixed text: escaped once here rather than once per clip.
    if (criterion && criterion->query)
        request.escapedQuery = TLXMLParser::escapeQueryString(criterion->query);
    return request;
}

void logStart(std::int64_t criteria, const TLProjectView &mediaController)
{
    TLLog::appendLog("smart range clipitems: %@", clipsText(mediaController.clips().size()));
    TLLog::appendLog("smart range criteria: %i", criteria);
}

} // namespace

TLSmartRangeItemList TLSmartRangeParser::arrayForCriteria(std::int64_t criteria,
                                                          const TLProjectView &mediaController)
{
    logStart(criteria, mediaController);
    if (!isSupported(criteria))
        return {};
    const Request request = requestFor(criteria);
    MasterClipTable table(mediaController.masterClipPaths());
    Groups groups(criteria);
    for (const pugi::xpath_node &match : mediaController.clips()) {
        const pugi::xml_node clip = match.node();
        const ClipMedia media = mediaOf(clip, table);
        std::string value = valueOf(request, clip, media);
        groups.add(std::move(value), mediaItemFor(clip, media, TLXMLParser::uuidForNode(clip, true)));
    }
    TLLog::appendLog("smart range output: %@", groups.description());
    return groups.items();
}

TLNodeList TLSmartRangeParser::arrayForCriteria(std::int64_t criteria, const std::optional<std::string> &binName,
                                                const TLProjectView &mediaController)
{
    if (!binName) {
        const TLSmartRangeItemList items = arrayForCriteria(criteria, mediaController);
        return TLNodeList(items.begin(), items.end());
    }
    logStart(criteria, mediaController);
    if (!isSupported(criteria))
        return {};
    const Request request = requestFor(criteria);
    MasterClipTable table(mediaController.masterClipPaths());
    BinMembers members;
    for (const pugi::xpath_node &match : mediaController.clips()) {
        const pugi::xml_node clip = match.node();
        const ClipMedia media = mediaOf(clip, table);
        if (valueOf(request, clip, media) != *binName)
            continue;
        std::optional<std::string> uuid = TLXMLParser::uuidForNode(clip, true);
        if (!uuid)
            throw std::invalid_argument("A clip with the value \"" + *binName + "\" has no uuid to be keyed by");
        members.put(*uuid, mediaItemFor(clip, media, uuid));
    }
    TLLog::appendLog("smart range output: %@", "\"" + *binName + "\": " + clipsText(members.items().size()));
    return members.items();
}
