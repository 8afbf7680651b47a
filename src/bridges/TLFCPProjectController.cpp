// Loading a project's xmeml from its sources and answering queries on it.
#include "TLFCPProjectController.h"

#include "TLAlert.h"
#include "TLFormat.h"
#include "TLLocalPaths.h"
#include "TLLog.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <thread>
#include <unordered_set>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr auto premierePause = std::chrono::microseconds(500);
constexpr double premiereCreationTimeout = 10;

// A block from pugixml's allocator, so that the document can take it over
// and parse in place: the file's bytes then exist once, not twice.
struct PugiDeallocation
{
    void operator()(char *block) const { pugi::get_memory_deallocation_function()(block); }
};
using PugiBlock = std::unique_ptr<char, PugiDeallocation>;

struct Bytes
{
    PugiBlock block;
    size_t size = 0;
};

std::optional<Bytes> allocateBytes(size_t size)
{
    // Never ask for zero bytes: the allocator may answer null for that.
    auto *memory = static_cast<char *>(pugi::get_memory_allocation_function()(size ? size : 1));
    if (!memory)
        return std::nullopt;
    return Bytes{PugiBlock(memory), size};
}

bool readAll(int descriptor, Bytes &bytes)
{
    size_t done = 0;
    while (done < bytes.size) {
        const auto count = ::read(descriptor, bytes.block.get() + done, bytes.size - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        if (count == 0)
            break; // the file shrank meanwhile: parse what is there
        done += size_t(count);
    }
    bytes.size = done;
    return true;
}

// The whole contents of a regular file; nullopt for anything else (missing,
// a folder, a device or pipe that could block, unreadable).
std::optional<Bytes> readRegularFile(const std::string &path)
{
    // The system would stop at a NUL and read another, shorter path.
    if (path.find('\0') != std::string::npos)
        return std::nullopt;
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
        return std::nullopt;
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return std::nullopt;
    std::optional<Bytes> bytes;
    // Checked again on the open file: the path may have been swapped since.
    if (::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode))
        bytes = allocateBytes(size_t(info.st_size));
    if (bytes && !readAll(descriptor, *bytes))
        bytes.reset();
    ::close(descriptor);
    return bytes;
}

std::optional<Bytes> copyBytes(const std::string &text)
{
    auto bytes = allocateBytes(text.size());
    if (bytes)
        std::memcpy(bytes->block.get(), text.data(), text.size());
    return bytes;
}

struct Parse
{
    std::shared_ptr<pugi::xml_document> document; // null unless well-formed
    std::string error;                             // empty unless not
    bool hasByteOrderMark = false;
};

bool startsWithByteOrderMark(const Bytes &bytes)
{
    const std::string_view start(bytes.block.get(), std::min<size_t>(bytes.size, 3));
    return start.starts_with("\xEF\xBB\xBF") || start.starts_with("\xFE\xFF") || start.starts_with("\xFF\xFE")
           || (bytes.size >= 4 && std::memcmp(bytes.block.get(), "\0\0\xFE\xFF", 4) == 0);
}

Parse parseBytes(Bytes bytes, pugi::xml_encoding encoding)
{
    const bool hasByteOrderMark = startsWithByteOrderMark(bytes);
    auto document = std::make_shared<pugi::xml_document>();
    const auto result = document->load_buffer_inplace_own(bytes.block.release(), bytes.size,
                                                          TLXMLParser::projectParseOptions, encoding);
    if (result)
        return {std::move(document), {}, hasByteOrderMark};
    return {nullptr, TLFormat::stringWithFormat("%@ at offset %li", result.description(),
                                                long(result.offset)), hasByteOrderMark};
}

bool somethingExistsAt(const std::string &path)
{
    std::error_code error;
    return std::filesystem::exists(path, error);
}

void logException(const char *method, const char *reason)
{
    TLLog::appendLog("Exception in %s. %@ - %@.", method, "std::exception", reason);
}

// Runs `body`, turning any exception into a log line and `fallback`.
template <typename Result, typename Body>
Result guarded(const char *method, Result fallback, Body &&body) noexcept
{
    try {
        return body();
    } catch (const std::exception &exception) {
        logException(method, exception.what());
    } catch (...) {
        logException(method, "unknown exception");
    }
    return fallback;
}

bool isPlainElementName(std::string_view name)
{
    if (name.empty())
        return false;
    for (const unsigned char c : name) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
                           || c == '_' || c == '-' || c == '.' || c >= 0x80;
        if (!plain)
            return false;
    }
    return true;
}

// An XPath 1.0 string literal for any text. A literal cannot hold its own
// delimiter, so text with double quotes is spelled as a concat() of its
// pieces with each quote as an apostrophe-delimited literal of its own.
std::string stringLiteral(std::string_view text)
{
    std::string literal;
    literal.reserve(text.size() + 16);
    const bool hasQuote = text.find('"') != std::string_view::npos;
    literal.append(hasQuote ? "concat(\"" : "\"");
    for (const char c : text) {
        if (c == '"')
            literal.append("\", '\"', \"");
        else
            literal.push_back(c);
    }
    literal.append(hasQuote ? "\")" : "\"");
    return literal;
}

// The master clip id of the clipitem holding the file holding `pathurl`:
// the string value of "./../../masterclipid", found by walking the tree
// rather than by evaluating that query once per media file.
std::optional<std::string> masterClipIdOfPathURL(pugi::xml_node pathurl)
{
    const auto masterClipId = pathurl.parent().parent().child("masterclipid");
    if (!masterClipId)
        return std::nullopt;
    return TLXMLParser::stringValue(pugi::xpath_node(masterClipId));
}

// Every clip, pathurl and bin element, each in document order: what
// ".//clip" and ".//pathurl" select from the document node, and the bins
// the uuid lookups index, gathered in one walk because a large project has
// millions of nodes to visit.
struct ClipsPathURLsAndBins : pugi::xml_tree_walker
{
    TLXMLNodeList clips;
    std::vector<pugi::xml_node> pathurls;
    std::vector<pugi::xml_node> bins;

    bool for_each(pugi::xml_node &node) override
    {
        if (node.type() != pugi::node_element)
            return true;
        if (std::strcmp(node.name(), "clip") == 0)
            clips.emplace_back(node);
        else if (std::strcmp(node.name(), "pathurl") == 0)
            pathurls.push_back(node);
        else if (std::strcmp(node.name(), "bin") == 0)
            bins.push_back(node);
        return true;
    }
};

TLMasterClipPaths buildMasterClipPaths(const std::vector<pugi::xml_node> &pathurls)
{
    TLMasterClipPaths table;
    int unknownCount = 0;
    for (const auto pathurl : pathurls) {
        auto key = masterClipIdOfPathURL(pathurl);
        if (!key)
            key = TLFormat::stringWithFormat("Unknown%i", ++unknownCount);
        table.insert_or_assign(std::move(*key), pathurl);
    }
    return table;
}


constexpr std::string_view binElementName = "bin";

// Calls `visit(element)` for every element at or below `root`, in
// document order. Iterative, since projects may nest deeply.
template <typename Visit>
void forEachElement(pugi::xml_node root, Visit visit)
{
    for (pugi::xml_node node = root; node;) {
        if (node.type() == pugi::node_element)
            visit(node);
        if (pugi::xml_node child = node.first_child()) {
            node = child;
            continue;
        }
        while (node && node != root && !node.next_sibling())
            node = node.parent();
        node = node == root ? pugi::xml_node() : node.next_sibling();
    }
}

// Calls `found(text, bin)` once for each text node of each uuid child of
// the bin: the pairs that ".//bin/uuid[text()=...]" can match for it.
template <typename Found>
void forEachUuidOfBin(pugi::xml_node bin, Found &found)
{
    for (pugi::xml_node uuid = bin.child("uuid"); uuid; uuid = uuid.next_sibling("uuid"))
        for (pugi::xml_node text = uuid.first_child(); text; text = text.next_sibling())
            if (text.type() == pugi::node_pcdata || text.type() == pugi::node_cdata)
                found(std::string(text.value()), bin);
}

// The same for every bin element at or below `root`, in document order.
template <typename Found>
void forEachBinUuid(pugi::xml_node root, Found found)
{
    forEachElement(root, [&found](pugi::xml_node node) {
        if (binElementName == node.name())
            forEachUuidOfBin(node, found);
    });
}

} // namespace

TLFCPProjectController::TLFCPProjectController(TLProjectSources sources)
    : m_sources(std::move(sources)),
      m_document(std::make_shared<pugi::xml_document>()),
      m_clipIndexBuilt(std::make_unique<std::once_flag>())
{
    if (!m_sources.finalCutPro)
        m_sources.finalCutPro = TLFinalCutProBridge::standard();
    if (!m_sources.premiere)
        m_sources.premiere = TLPremiereBridge::standard();
    if (!m_sources.fileWaiting)
        m_sources.fileWaiting = TLFileWaiting::standard();
}

TLFCPProjectController::~TLFCPProjectController() = default;

bool TLFCPProjectController::setXmlDocFromFilePath(const std::string &path)
{
    return guarded("TLFCPProjectController::setXmlDocFromFilePath", false, [&] {
        auto bytes = readRegularFile(path);
        if (!bytes)
            return false;
        // Let go of the old tree before building the new one, so that two
        // large projects are never held at once unless clips still need it.
        dropDocument();
        auto parse = parseBytes(std::move(*bytes), pugi::encoding_auto);
        adoptDocument(std::move(parse.document), parse.hasByteOrderMark, parse.error);
        return true;
    });
}

bool TLFCPProjectController::loadXMLFromFCP(const std::string &path)
{
    return guarded("TLFCPProjectController::loadXMLFromFCP", false, [&] {
        if (!somethingExistsAt(path))
            return false;
        auto text = m_sources.finalCutPro->getProjectXML(path, true);
        if (!text || text->empty())
            return false;
        return replaceDocumentWithText(std::move(*text));
    });
}

bool TLFCPProjectController::replaceDocumentWithText(std::string text)
{
    auto bytes = copyBytes(text);
    text = std::string(); // the parse buffer is the one copy from here on
    if (!bytes)
        return false;
    dropDocument();
    auto parse = parseBytes(std::move(*bytes), pugi::encoding_utf8);
    adoptDocument(std::move(parse.document), parse.hasByteOrderMark, parse.error);
    return true;
}

bool TLFCPProjectController::loadXMLFromPremiere(const std::string &path)
{
    return guarded("TLFCPProjectController::loadXMLFromPremiere", false, [&] {
        const auto exportPath = TLLocalPaths::tempFile();
        m_sources.premiere->openProject(path);
        std::this_thread::sleep_for(premierePause);
        m_sources.premiere->exportFCPXML(exportPath);
        // Premiere Pro may still be writing when its script returns.
        m_sources.fileWaiting->waitForFileCreation(exportPath, premiereCreationTimeout);
        m_sources.fileWaiting->waitForFileWrites(exportPath);
        std::this_thread::sleep_for(premierePause);

        auto bytes = readRegularFile(exportPath);
        if (!bytes || bytes->size == 0) {
            // An alert of its own shows through this controller's presenter
            // when it has one, else through the one in use.
            TLAlert::alertSheetWithMessageText(
                "No XML data found", std::nullopt, std::nullopt, std::nullopt,
                "The project may have taken too long to load - wait until it has completely "
                "loaded in Premiere and then load it in this application.",
                nullptr, nullptr, std::nullopt, true,
                std::make_shared<TLAlert>(m_sources.alertPresenter));
            return false;
        }
        dropDocument();
        auto parse = parseBytes(std::move(*bytes), pugi::encoding_auto);
        adoptDocument(std::move(parse.document), parse.hasByteOrderMark, parse.error);
        const std::string &error = parse.error;
        if (!m_document)
            TLLog::appendLog("Error loading XML data: %@", error);
        return m_document != nullptr;
    });
}

bool TLFCPProjectController::loadTOCFromFCP(const std::string &path)
{
    return guarded("TLFCPProjectController::loadTOCFromFCP", false, [&] {
        if (!somethingExistsAt(path))
            return false;
        auto data = m_sources.finalCutPro->getTOCData(path, true);
        if (!data || data->empty())
            return false;
        auto bytes = copyBytes(*data);
        data.reset();
        if (!bytes)
            return false;
        dropDocument();
        auto parse = parseBytes(std::move(*bytes), pugi::encoding_auto);
        adoptDocument(std::move(parse.document), parse.hasByteOrderMark, parse.error);
        const std::string &error = parse.error;
        if (m_document)
            return true;
        // The system console, not the application log.
        const auto line = TLFormat::stringWithFormat("Error importing XML: %@\n", error);
        std::fwrite(line.data(), 1, line.size(), stderr);
        return false;
    });
}

bool TLFCPProjectController::fcpProjectSelect(const std::string &path)
{
    return loadXMLFromFCP(path);
}

bool TLFCPProjectController::xmlDocSelect(const std::string &path)
{
    return setXmlDocFromFilePath(path);
}

std::optional<TLXMLNodeList> TLFCPProjectController::nodesForQuery(std::string_view query) const
{
    makeDeferredChange();
    using Result = std::optional<TLXMLNodeList>;
    return guarded("TLFCPProjectController::nodesForQuery", Result(), [&]() -> Result {
        if (!m_document)
            return TLXMLNodeList();
        return TLXMLParser::evaluateQuery(query, *m_document);
    });
}

pugi::xpath_node TLFCPProjectController::firstNodeForQuery(std::string_view query) const
{
    makeDeferredChange();
    return guarded("TLFCPProjectController::firstNodeForQuery", pugi::xpath_node(), [&] {
        if (!m_document)
            return pugi::xpath_node();
        return TLXMLParser::evaluateFirstNode(query, *m_document);
    });
}

std::vector<std::string> TLFCPProjectController::stringValuesForQuery(std::string_view query) const
{
    using Result = std::vector<std::string>;
    return guarded("TLFCPProjectController::stringValuesForQuery", Result(), [&] {
        Result values;
        const auto nodes = nodesForQuery(query);
        if (!nodes)
            return values;
        values.reserve(nodes->size());
        for (const auto &node : *nodes)
            values.push_back(TLXMLParser::stringValue(node));
        return values;
    });
}

pugi::xml_node TLFCPProjectController::nodeWithUUID(std::string_view uuid,
                                                    std::string_view type) const
{
    makeDeferredChange();
    return guarded("TLFCPProjectController::nodeWithUUID", pugi::xml_node(), [&] {
        if (!isPlainElementName(type))
            return pugi::xml_node();
        if (type == binElementName) {
            std::lock_guard lock(m_binIndexMutex);
            const BinIndex &index = binIndex();
            const auto found = index.find(std::string(uuid));
            return found == index.end() || found->second.empty() ? pugi::xml_node() : found->second.front();
        }
        std::string query(".//");
        query.append(type).append("/uuid[text()=").append(stringLiteral(uuid)).append("][1]/..");
        return firstNodeForQuery(query).node();
    });
}

std::vector<pugi::xml_node> TLFCPProjectController::binsWithUUID(std::string_view uuid) const
{
    using Result = std::vector<pugi::xml_node>;
    makeDeferredChange();
    return guarded("TLFCPProjectController::binsWithUUID", Result(), [&] {
        std::lock_guard lock(m_binIndexMutex);
        const BinIndex &index = binIndex();
        const auto found = index.find(std::string(uuid));
        return found == index.end() ? Result() : found->second;
    });
}

const TLFCPProjectController::BinIndex &TLFCPProjectController::binIndex() const
{
    if (m_document && m_binIndexDocument.lock() == m_document)
        return m_binIndex;
    m_binIndex.clear();
    m_binIndexDocument = m_document;
    if (m_document)
        forEachBinUuid(*m_document, [this](const std::string &uuid, pugi::xml_node bin) { indexBin(uuid, bin); });
    return m_binIndex;
}

void TLFCPProjectController::indexBin(const std::string &uuid, pugi::xml_node bin) const
{
    auto &bins = m_binIndex[uuid];
    if (bins.empty() || bins.back() != bin)
        bins.push_back(bin);
}

bool TLFCPProjectController::detachNode(pugi::xml_node element)
{
    makeDeferredChange();
    pugi::xml_node parent = element.parent();
    if (!element || !parent)
        return false;
    {
        std::lock_guard lock(m_binIndexMutex);
        if (m_document && m_binIndexDocument.lock() == m_document)
            forEachBinUuid(element, [this](const std::string &uuid, pugi::xml_node bin) {
                auto &bins = m_binIndex[uuid];
                bins.erase(std::remove(bins.begin(), bins.end(), bin), bins.end());
            });
    }
    forgetNodesWithin(element);
    return parent.remove_child(element);
}

void TLFCPProjectController::forgetNodesWithin(pugi::xml_node element)
{
    std::unordered_set<const void *> gone;
    forEachElement(element, [&gone](pugi::xml_node node) {
        if (std::string_view(node.name()) == "clip" || std::string_view(node.name()) == "pathurl")
            gone.insert(node.internal_object());
    });
    if (gone.empty())
        return;
    const auto isGone = [&gone](pugi::xml_node node) { return gone.contains(node.internal_object()); };
    const auto clipCount = m_clips.size();
    std::erase_if(m_clips, [&isGone](const pugi::xpath_node &clip) { return isGone(clip.node()); });
    std::erase_if(m_masterClipPaths, [&isGone](const auto &entry) { return isGone(entry.second); });
    if (m_clips.size() != clipCount) {
        m_clipIndex.clear();
        m_clipIndexBuilt = std::make_unique<std::once_flag>();
    }
}

void TLFCPProjectController::prepareBinLookups() const
{
    makeDeferredChange();
    std::lock_guard lock(m_binIndexMutex);
    binIndex();
}

void TLFCPProjectController::documentDidChange()
{
    makeDeferredChange();
    std::lock_guard lock(m_binIndexMutex);
    m_binIndexDocument.reset();
    m_binIndex.clear();
}

pugi::xml_node TLFCPProjectController::clipNodeWithUUID(std::string_view uuid) const
{
    makeDeferredChange();
    return guarded("TLFCPProjectController::clipNodeWithUUID", pugi::xml_node(), [&] {
        std::call_once(*m_clipIndexBuilt, [this] { buildClipIndex(); });
        const auto found = m_clipIndex.find(std::string(uuid));
        return found == m_clipIndex.end() ? pugi::xml_node() : found->second;
    });
}

void TLFCPProjectController::buildClipIndex() const
{
    m_clipIndex.clear();
    m_clipIndex.reserve(m_clips.size());
    for (const auto &clip : m_clips) {
        auto uuid = TLXMLParser::uuidForNode(clip.node(), true);
        // emplace keeps the first clip of a uuid that several clips share
        if (uuid)
            m_clipIndex.emplace(std::move(*uuid), clip.node());
    }
}

void TLFCPProjectController::collectClipsAndMasterClipPaths()
{
    makeDeferredChange();
    guarded("TLFCPProjectController::collectClipsAndMasterClipPaths", 0, [&] {
        ClipsPathURLsAndBins found;
        if (m_document)
            m_document->traverse(found);
        setClips(std::move(found.clips));
        setMasterClipPaths(buildMasterClipPaths(found.pathurls));
        // The bins were met on the way: indexing them now spares the uuid
        // lookups a walk of their own.
        std::lock_guard lock(m_binIndexMutex);
        m_binIndex.clear();
        m_binIndexDocument = m_document;
        auto index = [this](const std::string &uuid, pugi::xml_node bin) { indexBin(uuid, bin); };
        for (const pugi::xml_node &bin : found.bins)
            forEachUuidOfBin(bin, index);
        return 0;
    });
}

void TLFCPProjectController::setXmlDoc(std::unique_ptr<pugi::xml_document> document)
{
    dropDocument();
    adoptDocument(std::move(document), false, {});
}

pugi::xml_document *TLFCPProjectController::xmlDoc()
{
    makeDeferredChange();
    return m_document.get();
}

const pugi::xml_document *TLFCPProjectController::xmlDoc() const
{
    makeDeferredChange();
    return m_document.get();
}

void TLFCPProjectController::dropDocument()
{
    dropDeferredChange();
    m_document.reset();
}

void TLFCPProjectController::adoptDocument(std::shared_ptr<pugi::xml_document> document, bool hasByteOrderMark,
                                           std::string parseError)
{
    dropDeferredChange();
    m_document = std::move(document);
    m_hasByteOrderMark = hasByteOrderMark;
    m_parseError = std::move(parseError);
}

void TLFCPProjectController::deferChange(std::function<void()> change)
{
    // Changes are made in the order they were decided.
    makeDeferredChange();
    const std::lock_guard lock(m_deferredChangeMutex);
    m_deferredChange = std::move(change);
    m_hasDeferredChange.store(static_cast<bool>(m_deferredChange), std::memory_order_release);
}

void TLFCPProjectController::makeDeferredChangeNow() const
{
    const std::lock_guard lock(m_deferredChangeMutex);
    // Empty when this thread is making the change already and the change
    // has called back, or when another thread has made it meanwhile.
    if (!m_deferredChange)
        return;
    const std::function<void()> change = std::move(m_deferredChange);
    m_deferredChange = nullptr;
    guarded("TLFCPProjectController::makeDeferredChange", 0, [&change] {
        change();
        return 0;
    });
    m_hasDeferredChange.store(false, std::memory_order_release);
}

void TLFCPProjectController::dropDeferredChange()
{
    const std::lock_guard lock(m_deferredChangeMutex);
    m_deferredChange = nullptr;
    m_hasDeferredChange.store(false, std::memory_order_release);
}

void TLFCPProjectController::setEmptyXMEMLDoc()
{
    guarded("TLFCPProjectController::setEmptyXMEMLDoc", 0, [&] {
        auto document = std::make_unique<pugi::xml_document>();
        // The prolog Final Cut Pro writes, so that a new document is
        // written as one of its exports would be.
        pugi::xml_node declaration = document->append_child(pugi::node_declaration);
        declaration.append_attribute("version").set_value("1.0");
        declaration.append_attribute("encoding").set_value("UTF-8");
        document->append_child(pugi::node_doctype).set_value("xmeml");
        pugi::xml_node root = document->append_child("xmeml");
        root.append_attribute("version").set_value(m_sources.finalCutPro->maximumXMEMLVersion());
        setXmlDoc(std::move(document));
        return 0;
    });
}

void TLFCPProjectController::setClips(TLXMLNodeList clips)
{
    makeDeferredChange();
    m_clips = std::move(clips);
    m_clipsDocument = m_document;
    m_clipIndex.clear();
    m_clipIndexBuilt = std::make_unique<std::once_flag>();
}

void TLFCPProjectController::setMasterClipPaths(TLMasterClipPaths masterClipPaths)
{
    makeDeferredChange();
    m_masterClipPaths = std::move(masterClipPaths);
    m_masterClipPathsDocument = m_document;
}
