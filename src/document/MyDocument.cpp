// Opening a project, restoring and storing its bin tree, saving an xmeml
// file in the background, and the document's own state.
#include "MyDocument.h"

#include "TLAlert.h"
#include "TLAtomicFile.h"
#include "TLException.h"
#include "TLFinderInfo.h"
#include "TLFormat.h"
#include "TLKeyedArchiver.h"
#include "TLKeyedUnarchiver.h"
#include "TLLocalPaths.h"
#include "TLLog.h"
#include "TLMediaItem.h"
#include "TLProjectWriter.h"
#include "TLPropertyList.h"
#include "TLSmartBin.h"
#include "TLSmartBinParser.h"
#include "TLSmartRangeItem.h"
#include "TLSmartRangeParser.h"

#include <pugixml.hpp>

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace {

constexpr std::string_view settingsFolderName = "/Quillmoor/Tessaline/Corvale/Project Settings";
constexpr std::string_view settingsDataKey = "data";
constexpr std::string_view finalCutProProjectType = "Final Cut Pro Project";
constexpr std::string_view binUUIDsQuery = ".//bin/uuid[1]";

using UUIDSet = std::unordered_set<std::string>;

// The last component of a path the way macOS names it: trailing slashes do
// not count, and the root is "/".
std::string lastPathComponent(std::string_view path)
{
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    if (path == "/")
        return std::string(path);
    const std::size_t slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string lowercasedExtension(const std::string &path)
{
    const std::string name = lastPathComponent(path);
    const std::size_t dot = name.rfind('.');
    // A leading dot makes a hidden file, not an extension.
    if (dot == std::string::npos || dot == 0)
        return {};
    std::string extension = name.substr(dot + 1);
    for (char &character : extension) {
        if (character >= 'A' && character <= 'Z')
            character = char(character - 'A' + 'a');
    }
    return extension;
}

bool isFinalCutProProject(const std::string &path)
{
    if (lowercasedExtension(path) == "fcp")
        return true;
    return TLFinderInfo::typeCode(path) == TLFinderInfo::finalCutProProjectType;
}

// An xmeml file exported from a sequence instead of the whole project holds
// nothing the bins could be made of.
bool holdsOnlyASequence(const TLFCPProjectController &controller)
{
    const pugi::xml_document *document = controller.xmlDoc();
    if (!document)
        return false;
    // An exporter's comment or processing instruction ahead of the sequence
    // changes nothing about what the file holds.
    pugi::xml_node first = document->document_element().first_child();
    while (first.type() == pugi::node_comment || first.type() == pugi::node_pi)
        first = first.next_sibling();
    return std::string_view(first.name()) == "sequence";
}

// Lists for the log are kept to one short line: a tree with large smart bins
// would otherwise write every clip of the project.
std::string describeStrings(const std::vector<std::string> &strings)
{
    std::string text = "(";
    for (std::size_t index = 0; index < strings.size(); ++index) {
        if (index > 0)
            text += ", ";
        text += strings[index];
    }
    return text + ")";
}

std::string describeNode(const TLBinNode &node)
{
    std::string text(node.className());
    text += " \"" + node.displayName() + "\"";
    if (const std::optional<std::string> uuid = node.uuid())
        text += " " + *uuid;
    if (node.hasChildren())
        text += ", " + std::to_string(node.children()->size()) + " children";
    return text;
}

std::string describeNodes(const TLNodeList &nodes)
{
    std::string text = "(";
    for (std::size_t index = 0; index < nodes.size(); ++index) {
        if (index > 0)
            text += "; ";
        text += nodes[index] ? describeNode(*nodes[index]) : "null";
    }
    return text + ")";
}

// A node with an identifier field survives only while the project still
// holds a bin with that identifier; an unset identifier never matches.
bool isGoneFromProject(const TLBinNode &node, const UUIDSet &uuids)
{
    if (!node.hasUuid())
        return false;
    const std::optional<std::string> uuid = node.uuid();
    return !uuid || !uuids.contains(*uuid);
}

TLNodeList filterNodes(const TLNodeList &nodes, const UUIDSet &uuids)
{
    TLNodeList kept;
    kept.reserve(nodes.size());
    for (const TLBinNodePtr &node : nodes) {
        if (!node || isGoneFromProject(*node, uuids))
            continue;
        if (node->hasChildren())
            node->setChildren(filterNodes(*node->children(), uuids));
        kept.push_back(node);
    }
    return kept;
}

TLNodeList asNodes(const TLMediaItemList &items)
{
    return TLNodeList(items.begin(), items.end());
}

// Resolves the saved top-level smart ranges. Each criterion groups every
// clip of the project once; a saved item then takes the clips of its value,
// one per clip identifier (a later clip with the same identifier taking the
// earlier one's place), which is what resolving the item on its own gives,
// without one pass over all clips per item.
class SmartRangeResolver
{
public:
    explicit SmartRangeResolver(const TLFCPProjectController &controller) : m_controller(controller) {}

    // The item's new children: empty when no clip has its value any more;
    // nullopt when a clip of its value has no identifier, so that its items
    // could never be found again.
    std::optional<TLNodeList> childrenFor(const TLSmartRangeItem &item)
    {
        Groups &groups = groupsFor(item.criteria());
        const auto found = groups.find(item.binName());
        if (found == groups.end())
            return TLNodeList();
        Group &group = found->second;
        if (!group.children)
            return std::nullopt;
        // Two saved items of the same value must not share media items: a
        // node stands in one place of the tree only.
        if (group.handedOut)
            return copies(*group.children);
        group.handedOut = true;
        return group.children;
    }

private:
    struct Group
    {
        std::optional<TLNodeList> children;
        bool handedOut = false;
    };
    using Groups = std::unordered_map<std::string, Group>;

    Groups &groupsFor(std::int64_t criteria)
    {
        const auto [found, isNew] = m_groupsByCriteria.try_emplace(criteria);
        if (!isNew)
            return found->second;
        for (const auto &item : TLSmartRangeParser::arrayForCriteria(criteria, m_controller))
            found->second.emplace(item->binName(), Group{keyedByUUID(*item->children()), false});
        return found->second;
    }

    static std::optional<TLNodeList> keyedByUUID(const TLNodeList &clips)
    {
        TLNodeList kept;
        std::unordered_map<std::string, std::size_t> indexByUUID;
        for (const TLBinNodePtr &clip : clips) {
            const std::optional<std::string> uuid = clip->uuid();
            if (!uuid)
                return std::nullopt;
            const auto [found, isNew] = indexByUUID.try_emplace(*uuid, kept.size());
            if (isNew)
                kept.push_back(clip);
            else
                kept[found->second] = clip;
        }
        return kept;
    }

    static TLNodeList copies(const TLNodeList &clips)
    {
        TLNodeList copied;
        copied.reserve(clips.size());
        for (const TLBinNodePtr &clip : clips) {
            if (const auto media = std::dynamic_pointer_cast<TLMediaItem>(clip))
                copied.push_back(TLMediaItem::create(media->filePath(), media->shortName(), media->uuid()));
        }
        return copied;
    }

    const TLFCPProjectController &m_controller;
    std::unordered_map<std::int64_t, Groups> m_groupsByCriteria;
};

// A saved top-level smart range is made again from the current clips; false
// when it no longer collects any clip. One whose clips cannot all be found
// again is kept as it was saved.
bool resolveSmartRange(TLSmartRangeItem &item, SmartRangeResolver &resolver)
{
    std::optional<TLNodeList> children = resolver.childrenFor(item);
    if (!children) {
        TLLog::appendLog("Smart range \"%@\" keeps its saved clips: one of its clips has no uuid", item.binName());
        return true;
    }
    if (children->empty())
        return false;
    item.setChildren(std::move(*children));
    return true;
}

// The top level of a restored tree: gone bins dropped, smart bins and
// smart ranges resolved anew, and below that only the identifier filter.
TLNodeList restoredTopLevel(const TLNodeList &saved, const UUIDSet &uuids, const TLFCPProjectController &controller)
{
    SmartRangeResolver smartRanges(controller);
    TLNodeList restored;
    restored.reserve(saved.size());
    for (const TLBinNodePtr &node : saved) {
        if (!node || isGoneFromProject(*node, uuids))
            continue;
        if (node->kind() == TLBinNodeKind::regularBin) {
            node->setChildren(filterNodes(*node->children(), uuids));
        } else if (auto smartBin = std::dynamic_pointer_cast<TLSmartBin>(node)) {
            smartBin->setChildren(asNodes(TLSmartBinParser::arrayFromFilterArray(
                *smartBin->filterArray(), smartBin->binName(), smartBin->matchType(), controller)));
        } else if (auto smartRange = std::dynamic_pointer_cast<TLSmartRangeItem>(node)) {
            if (!resolveSmartRange(*smartRange, smartRanges))
                continue;
        }
        restored.push_back(node);
    }
    return restored;
}

} // namespace

// ---- Life cycle and state ----

MyDocument::MyDocument(MyDocumentServices services)
    : m_services(std::move(services)), m_dataArray(std::make_shared<const TLNodeList>())
{
    if (!m_services.mainThread)
        m_services.mainThread = TLMainThread::shared();
    if (!m_services.view)
        m_services.view = std::make_shared<MyDocumentView>();
}

MyDocument::~MyDocument()
{
    // The workers read this document; none may outlive it.
    try {
        waitForCommands();
        waitForSend();
        waitForSave();
    } catch (...) {
        TLException::logException(std::current_exception(), "MyDocument::~MyDocument");
    }
}

std::string MyDocument::settingsFailureOfLastSave() const
{
    const std::lock_guard lock(m_stateMutex);
    return m_settingsFailureOfLastSave;
}

std::string MyDocument::fileURL() const
{
    const std::lock_guard lock(m_stateMutex);
    return m_fileURL;
}

void MyDocument::setFileURL(std::string path)
{
    const std::lock_guard lock(m_stateMutex);
    m_fileURL = std::move(path);
}

TLNodeListPtr MyDocument::dataArray() const
{
    const std::lock_guard lock(m_stateMutex);
    return m_dataArray;
}

void MyDocument::setDataArray(TLNodeList dataArray)
{
    auto list = std::make_shared<const TLNodeList>(std::move(dataArray));
    const std::lock_guard lock(m_stateMutex);
    m_dataArray.swap(list);
}

std::shared_ptr<TLFCPProjectController> MyDocument::mediaController() const
{
    const std::lock_guard lock(m_stateMutex);
    return m_mediaController;
}

void MyDocument::setMediaController(std::shared_ptr<TLFCPProjectController> controller)
{
    const std::lock_guard lock(m_stateMutex);
    m_mediaController.swap(controller);
}

void MyDocument::onMainThread(std::function<void()> work) const
{
    mainThread().performAndWait(std::move(work));
}

// ---- Opening and settings ----

bool MyDocument::readFromURL(const std::string &path, std::string_view /*type*/)
{
    setFileURL(path);
    auto controller = std::make_shared<TLFCPProjectController>(m_services.projectSources);
    setMediaController(controller);

    const bool isProject = isFinalCutProProject(path);
    const bool loaded = isProject ? controller->loadXMLFromFCP(path) : controller->setXmlDocFromFilePath(path);
    m_isFCPProject = isProject;
    // Opening always stands for a Final Cut Pro project or a file, never for
    // a Premiere Pro project, whatever the document was before.
    m_isPremiereProject = false;
    TLLog::appendLog(isProject ? "Is FCP project" : "Is XML file");

    if (!isProject && holdsOnlyASequence(*controller)) {
        TLAlert::alertSheetWithMessageText(
            "This file is incompatible with Corvale",
            "Corvale only operates on files in your browser. This XML file only contains a sequence and will not "
            "work with Corvale. Please export an XML copy of your entire project rather than a single sequence.",
            nullptr);
        setMediaController(nullptr);
        return false;
    }

    controller->collectClipsAndMasterClipPaths();
    loadSettingsForProject(path);
    return loaded;
}

std::string MyDocument::reasonProjectCannotOpen(const std::string &path, bool opened) const
{
    const std::string cannotOpen = "cannot open " + path;
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (error)
        return cannotOpen + ": " + error.message();
    if (std::filesystem::is_directory(status))
        return cannotOpen + ": it is a folder";
    if (!opened && isFinalCutProProject(path))
        return cannotOpen + ": Final Cut Pro projects open only through Final Cut Pro; export the project as XML";
    if (!opened)
        return cannotOpen;
    const std::shared_ptr<TLFCPProjectController> controller = mediaController();
    const pugi::xml_document *xml = controller ? controller->xmlDoc() : nullptr;
    if (!xml || !xml->document_element()) {
        const std::string parseError = controller ? controller->parseError() : std::string();
        return cannotOpen + ": it is not well-formed XML" + (parseError.empty() ? "" : " (" + parseError + ")");
    }
    return {};
}

std::string MyDocument::openProject(const std::string &path)
{
    const bool opened = readFromURL(path);
    const std::string reason = reasonProjectCannotOpen(path, opened);
    // A file holding only a sequence has had its own alert, and has no
    // controller left.
    if (!reason.empty() && mediaController())
        TLAlert::alertSheetWithMessageText("The project could not be opened", reason, nullptr);
    return reason;
}

std::optional<std::string> MyDocument::settingsPathForProject(const std::string &projectPath)
{
    const std::optional<std::string> support = TLLocalPaths::appSupportDirectory(true);
    const std::string name = lastPathComponent(projectPath);
    if (!support || name.empty() || name == "/" || name.find('\0') != std::string::npos)
        return std::nullopt;
    return *support + std::string(settingsFolderName) + "/" + name + ".plist";
}

void MyDocument::loadSettingsForProject(const std::string &path)
{
    const std::optional<std::string> settingsPath = settingsPathForProject(path);
    if (!settingsPath)
        return;
    std::error_code ignored;
    if (!std::filesystem::exists(*settingsPath, ignored))
        return;
    // A damaged file is left exactly where it is: the user may want it back,
    // and it is only replaced by the next save.
    const std::optional<std::string> data = TLPropertyList::fromFile(*settingsPath).dataForKey(settingsDataKey);
    std::string reason = "no archive under \"data\"";
    const std::optional<TLNodeList> saved =
        data ? TLKeyedUnarchiver::unarchiveObjectWithData(*data, reason) : std::nullopt;
    if (!saved) {
        TLLog::appendLog("Ignoring the unreadable settings file %@: %@", *settingsPath, reason);
        return;
    }
    if (saved->empty())
        return;

    std::shared_ptr<TLFCPProjectController> controller = mediaController();
    if (!controller)
        controller = std::make_shared<TLFCPProjectController>(m_services.projectSources);
    const std::vector<std::string> uuidList = controller->stringValuesForQuery(binUUIDsQuery);
    TLLog::appendLog("bin uuids: %@", describeStrings(uuidList));
    TLLog::appendLog("binArray: %@", describeNodes(*saved));
    TLLog::appendLog("binarray count: %i", saved->size());

    const UUIDSet uuids(uuidList.begin(), uuidList.end());
    try {
        setDataArray(restoredTopLevel(*saved, uuids, *controller));
    } catch (...) {
        TLException::logException(std::current_exception(), "MyDocument::loadSettingsForProject");
        return;
    }
    onMainThread([this] { view().reloadOutline(); });
}

TLNodeList MyDocument::filterBinArray(const TLNodeList &array, const std::vector<std::string> &uuids)
{
    return filterNodes(array, UUIDSet(uuids.begin(), uuids.end()));
}

bool MyDocument::storeSettingsForProject(const std::string &projectPath)
{
    const TLNodeListPtr tree = dataArray();
    return storeSettingsForProject(projectPath, *tree, TLKeyedArchiver::archivedDataWithRootObject(*tree));
}

bool MyDocument::storeSettingsForProject(const std::string &projectPath, const TLNodeList &tree,
                                         const std::optional<std::string> &archive)
{
    const std::string failure = settingsFailureForProject(projectPath, tree, archive);
    if (!failure.empty())
        TLLog::appendLog("Cannot store the settings: %@", failure);
    return failure.empty();
}

std::string MyDocument::settingsFailureForProject(const std::string &projectPath, const TLNodeList &tree,
                                                  const std::optional<std::string> &archive)
{
    const std::optional<std::string> settingsPath = settingsPathForProject(projectPath);
    if (!settingsPath)
        return "no settings file can be named for " + projectPath;
    const std::filesystem::path folder = std::filesystem::path(*settingsPath).parent_path();
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error)
        return "cannot make the settings folder " + folder.string() + ": " + error.message();
    TLLog::appendLog("output data: %@", describeNodes(tree));
    if (!archive)
        return "the bin tree could not be archived";
    // The dictionary is written as XML, as macOS writes it; the archive
    // inside stays binary data, streamed into the file rather than copied.
    return TLPropertyList::writeDataDictionaryToFile(*settingsPath, settingsDataKey, *archive);
}

// ---- Saving ----

bool MyDocument::writeSafelyToURL(const std::string &path, std::string_view type, int saveOperation)
{
    if (type == finalCutProProjectType) {
        sendToFCPOnThread();
        return false;
    }
    const MyDocumentSaveRequest request{path, saveOperation};
    if (m_isQuitting && !isSaving()) {
        // The application ends right after this save: it must not run on a
        // thread that the exit would cut short.
        writeToURLOnThread(request);
        return true;
    }
    if (m_isQuitting || !startSaveThread(request)) {
        TLAlert::alertSheetWithMessageText("Unable to save", "A save operation is already in progress.",
                                           view().windowHandle());
        return false;
    }
    return true;
}

bool MyDocument::startSaveThread(const MyDocumentSaveRequest &request)
{
    const std::lock_guard lock(m_saveMutex);
    if (m_saveRunning && *m_saveRunning)
        return false;
    // The last save has ended (its flag is the thread's last act), so this
    // join returns at once.
    if (m_saveThread.joinable())
        m_saveThread.join();
    auto running = std::make_shared<std::atomic<bool>>(true);
    m_saveRunning = running;
    m_saveThread = std::thread([this, request, running] {
        try {
            writeToURLOnThread(request);
        } catch (...) {
            TLException::logException(std::current_exception(), "MyDocument::writeToURLOnThread");
        }
        *running = false;
    });
    return true;
}

bool MyDocument::isSaving() const
{
    const std::lock_guard lock(m_saveMutex);
    return m_saveRunning && *m_saveRunning;
}

void MyDocument::waitForSave()
{
    std::thread thread;
    {
        const std::lock_guard lock(m_saveMutex);
        thread.swap(m_saveThread);
    }
    if (thread.joinable()) {
        thread.join();
        return;
    }
    // Another caller took the thread to join it; wait for the same end.
    while (isSaving())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

bool MyDocument::writeToURLOnThread(const MyDocumentSaveRequest &request)
{
    TLLog::appendLog("Saving on main thread: %i", mainThread().isMainThread());
    onMainThread([this] {
        view().updateProgressLabel("Generating bin list...");
        view().startProgress();
    });
    std::future<ArchivedTree> archived;
    const std::string failure = writeProjectFile(request.url, archived);
    if (!failure.empty()) {
        void *window = nullptr;
        onMainThread([this, &window] {
            view().endProgress();
            window = view().windowHandle();
        });
        TLAlert::alertSheetWithMessageText("Error writing file", failure, window);
        return false;
    }
    // Type codes are a courtesy to other tools; a file system without
    // extended attributes loses nothing that matters.
    (void)TLFinderInfo::setTypeAndCreatorCode(request.url, TLFinderInfo::xmlType, TLFinderInfo::finalCutProCreator);
    const ArchivedTree tree = archived.valid() ? archived.get() : archiveOf(dataArray());
    const std::string settingsFailure = settingsFailureForProject(request.url, *tree.nodes, tree.archive);
    {
        const std::lock_guard lock(m_stateMutex);
        m_settingsFailureOfLastSave = settingsFailure;
    }
    // Without its settings the tree would be lost at the next opening: the
    // document keeps its unsaved mark, so that closing it asks.
    if (settingsFailure.empty())
        updateChangeCountCleared();
    void *window = nullptr;
    onMainThread([this, &window, message = reportOfLastWrite().message()] {
        view().endProgress();
        view().showWriteReport(message);
        window = view().windowHandle();
    });
    if (!settingsFailure.empty()) {
        TLLog::appendLog("Cannot store the settings: %@", settingsFailure);
        TLAlert::alertSheetWithMessageText(
            "The bins could not be kept",
            TLFormat::stringWithFormat("The project was saved with its bins, but the bin tree could not be kept "
                                       "for its next opening: %@. Save again once that is mended.",
                                       settingsFailure),
            window);
    }
    return true;
}

MyDocument::ArchivedTree MyDocument::archiveOf(TLNodeListPtr tree)
{
    std::optional<std::string> archive = TLKeyedArchiver::archivedDataWithRootObject(*tree);
    return {std::move(tree), std::move(archive)};
}

std::string MyDocument::writeProjectFile(const std::string &path, std::future<ArchivedTree> &archived)
{
    try {
        TLProjectMerge merge = planMerge();
        // The tree now holds the identifiers the file gets; its archive is
        // made on the other core while the project is written.
        archived = std::async(std::launch::async, [tree = dataArray()] { return archiveOf(tree); });
        const std::shared_ptr<TLFCPProjectController> controller = mediaController();
        if (!controller || !controller->xmlDoc())
            return "There is no project to write.";
        onMainThread([this] { view().updateProgressLabel("Writing file..."); });
        const pugi::xml_document &project = *controller->xmlDoc();
        const bool byteOrderMark = controller->hasByteOrderMark();
        const std::string failure = TLAtomicFile::writeWith(path, [&](const TLAtomicFile::Sink &sink) {
            return TLProjectWriter::write(project, merge, byteOrderMark, sink);
        });
        // The file now holds the merged project, and so will the tree once
        // anything looks at it again: the new bins become elements of the
        // tree only then, so a save that ends the program never copies its
        // clips. Written or not, the tree is merged, as the save's merge
        // happens before the write.
        TLFCPProjectController *merged = controller.get();
        controller->deferChange([merged, merge = std::move(merge)] { merge.applyTo(*merged); });
        return failure;
    } catch (const std::exception &exception) {
        TLException::logException(exception, "MyDocument::writeToURLOnThread");
        return exception.what();
    }
}

bool MyDocument::documentCanQuit()
{
    m_isQuitting = true;
    if (isSaving())
        return false;
    return !isDocumentEdited();
}
