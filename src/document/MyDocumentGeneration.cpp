// Writing the bin tree as xmeml, merging it into the project, and sending it.
#include "MyDocument.h"

#include "TLAtomicFile.h"
#include "TLBinText.h"
#include "TLException.h"
#include "TLFileManager.h"
#include "TLFormat.h"
#include "TLLog.h"
#include "TLUUID.h"
#include "TLXMLParser.h"
#include "TLXMLWriter.h"
#include "TLProjectWriter.h"

#include <pugixml.hpp>

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

// The bins of a large project run to hundreds of megabytes; the log keeps
// the first megabyte of such a text and says how long the whole was.
std::string textForLog(const std::string &text)
{
    constexpr std::size_t limit = 1024 * 1024;
    if (text.size() <= limit)
        return text;
    std::size_t cut = limit;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
        --cut; // never split a character
    return text.substr(0, cut) + "... (" + std::to_string(text.size()) + " bytes in all)";
}


constexpr std::string_view replaceOrAdd = "replaceoradd";
constexpr std::string_view binType = "bin";
constexpr std::string_view projectChildrenQuery = "./xmeml[1]/project[1]/children[1]";
constexpr std::string_view premiereOutputSuffix = "-Corvale.xml";
// Premiere Pro reads the file after the hand-over returns; it gets this long.
constexpr std::chrono::milliseconds premiereReadingTime{1000};

// Serialises pugixml output straight into the text being built, so clip
// elements are never copied through a temporary string.
class StringAppender final : public pugi::xml_writer
{
public:
    explicit StringAppender(std::string &output) : m_output(output) {}
    void write(const void *data, size_t size) override
    {
        m_output.append(static_cast<const char *>(data), size);
    }

private:
    std::string &m_output;
};

// Replaces whatever the element holds with one text node.
void setElementText(pugi::xml_node element, std::string_view text)
{
    element.remove_children();
    element.append_child(pugi::node_pcdata).set_value(text.data(), text.size());
}

// How a bin text is meant to be read. The text sent to Final Cut Pro keeps
// the carried-over text of earlier bins bare and the clips as the XML
// library prints them; a bin text that is parsed back into the project
// must read back as exactly the texts it was made of, so its carried-over
// text is escaped and its clips are written with every character a parser
// would normalise as a reference.
enum class BinTextUse { send, merge };

// Appends the bin elements of nodes to one growing text. The controller may
// be null (nothing earlier, no clips).
class BinWriter
{
public:
    BinWriter(const TLFCPProjectController *controller, std::string &output, BinTextUse use = BinTextUse::send)
        : m_controller(controller), m_output(output), m_use(use)
    {
    }

    void writeBin(TLBinNode &node)
    {
        pugi::xml_node earlier;
        std::optional<std::string> uuid = node.uuid();
        if (uuid && m_controller)
            earlier = m_controller->nodeWithUUID(*uuid, binType);
        if (!uuid) {
            uuid = TLUUID::generateUUID();
            // Kept by every kind with an identifier field; a regular bin
            // refuses it and so gets a new identifier on every write.
            node.setUuid(uuid);
        }
        m_output += "<bin><uuid>";
        m_output += *uuid;
        m_output += "</uuid><updatebehavior>replaceoradd</updatebehavior><name>";
        m_output += node.binName();
        m_output += "</name><children>";
        const std::string earlierText = earlierChildrenText(earlier);
        writeChildren(node);
        m_output += m_use == BinTextUse::merge ? TLXMLWriter::escapedText(earlierText) : earlierText;
        m_output += "</children></bin>";
    }

    // The bare text of the earlier bin's children. Its updatebehavior is set
    // in the project document first, so a later save keeps "replaceoradd".
    static std::string earlierChildrenText(pugi::xml_node earlier)
    {
        const pugi::xml_node children = earlier.child("children");
        if (!children)
            return {};
        if (const pugi::xml_node behavior = children.child("updatebehavior"))
            setElementText(behavior, replaceOrAdd);
        return TLXMLParser::stringValue(pugi::xpath_node(children));
    }

private:
    void writeChildren(TLBinNode &node)
    {
        switch (node.kind()) {
        case TLBinNodeKind::regularBin:
            for (const TLBinNodePtr &child : *node.children())
                writeBin(*child);
            return;
        case TLBinNodeKind::smartBin:
        case TLBinNodeKind::smartRangeItem:
            writeClips(node);
            return;
        case TLBinNodeKind::binRangeItem:
        case TLBinNodeKind::mediaItem:
            return;
        }
    }

    void writeClips(const TLBinNode &node)
    {
        if (!m_controller)
            return;
        StringAppender appender(m_output);
        TLXMLWriter mergeWriter(
            [this](std::string_view bytes) {
                m_output.append(bytes);
                return true;
            },
            TLXMLWriter::Layout::raw);
        for (const TLBinNodePtr &child : *node.children()) {
            if (child->kind() != TLBinNodeKind::mediaItem)
                continue;
            const std::optional<std::string> uuid = child->uuid();
            const pugi::xml_node clip = uuid ? m_controller->clipNodeWithUUID(*uuid) : pugi::xml_node();
            if (!clip)
                continue;
            MyDocument::setUpdateBehavior(replaceOrAdd, clip);
            if (m_use == BinTextUse::send) {
                clip.print(appender, "", pugi::format_raw, pugi::encoding_utf8);
                continue;
            }
            mergeWriter.writeNode(clip);
            mergeWriter.finish();
        }
    }

    const TLFCPProjectController *m_controller;
    std::string &m_output;
    BinTextUse m_use;
};

// Describes each bin of a merge without writing it: its texts and the
// project's clip elements it will hold, with the same lasting effects as
// writing its text (identifiers given out, "replaceoradd" set on the clips
// and on earlier bins' children). A bin whose own uuid or name is not plain
// text cannot be described this way, since only parsing shows what such a
// name becomes; it is reported, for the caller to take the text road.
class BinPlanner
{
public:
    explicit BinPlanner(const TLFCPProjectController &controller) : m_controller(controller) {}

    // Fills `bin` for the node; false when a text of it is not plain.
    bool planBin(TLBinNode &node, TLMergedBin &bin)
    {
        pugi::xml_node earlier;
        std::optional<std::string> uuid = node.uuid();
        if (uuid)
            earlier = m_controller.nodeWithUUID(*uuid, binType);
        if (!uuid) {
            uuid = TLUUID::generateUUID();
            node.setUuid(uuid);
        }
        bin.uuid = *uuid;
        bin.name = node.binName();
        bool plain = TLBinText::isPlain(bin.uuid) && TLBinText::isPlain(bin.name);
        bin.carriedText = BinWriter::earlierChildrenText(earlier);
        switch (node.kind()) {
        case TLBinNodeKind::regularBin:
            for (const TLBinNodePtr &child : *node.children())
                plain = planBin(*child, bin.bins.emplace_back()) && plain;
            break;
        case TLBinNodeKind::smartBin:
        case TLBinNodeKind::smartRangeItem:
            collectClips(node, bin.clips);
            break;
        case TLBinNodeKind::binRangeItem:
        case TLBinNodeKind::mediaItem:
            break;
        }
        return plain;
    }

private:
    void collectClips(const TLBinNode &node, std::vector<pugi::xml_node> &clips)
    {
        for (const TLBinNodePtr &child : *node.children()) {
            if (child->kind() != TLBinNodeKind::mediaItem)
                continue;
            const std::optional<std::string> uuid = child->uuid();
            const pugi::xml_node clip = uuid ? m_controller.clipNodeWithUUID(*uuid) : pugi::xml_node();
            if (!clip)
                continue;
            MyDocument::setUpdateBehavior(replaceOrAdd, clip);
            clips.push_back(clip);
        }
    }

    const TLFCPProjectController &m_controller;
};

bool isWithinAny(pugi::xml_node node, const std::vector<pugi::xml_node> &ancestors)
{
    for (; node; node = node.parent()) {
        if (std::find(ancestors.begin(), ancestors.end(), node) != ancestors.end())
            return true;
    }
    return false;
}

// The earlier bin element that a top-level node's bin replaces: the first
// bin of its identifier that is not inside one of the elements `replaced`
// already (removing those takes it along). Logs "bin: ..." with what was
// found. Nodes without an identifier field (regular bins) replace nothing.
pugi::xml_node earlierBinToReplace(const TLBinNodePtr &node, const TLFCPProjectController &controller,
                                   const std::vector<pugi::xml_node> &replaced)
{
    const std::optional<std::string> uuid = node && node->hasUuid() ? node->uuid() : std::nullopt;
    if (!node || !node->hasUuid())
        return {};
    pugi::xml_node earlier;
    if (uuid) {
        for (const pugi::xml_node &bin : controller.binsWithUUID(*uuid)) {
            if (!isWithinAny(bin, replaced)) {
                earlier = bin;
                break;
            }
        }
    }
    if (!earlier) {
        TLLog::appendLog("bin: %@", nullptr);
        return {};
    }
    // The element itself may hold thousands of clips: name it, don't print it.
    TLLog::appendLog("bin: <bin> %@ (%@)", TLXMLParser::nameForNode(earlier, true), *uuid);
    return earlier;
}

// "/Projects/Spots.prproj" gives "/Projects/Spots-Corvale.xml", or a free
// variant of it.
std::string premiereOutputPath(const std::string &projectPath)
{
    std::filesystem::path path(projectPath);
    path.replace_extension();
    return TLFileManager::uniqueFilename(path.string() + std::string(premiereOutputSuffix));
}

} // namespace

std::string MyDocument::generateXMLOutput()
{
    const std::shared_ptr<TLFCPProjectController> controller = mediaController();
    const TLNodeListPtr bins = dataArray();
    std::string output;
    output.reserve(16 * 1024);
    output += TLFormat::stringWithFormat(
        R"(<?xml version="1.0" encoding="UTF-8"?><!DOCTYPE xmeml><xmeml version="%i">)",
        finalCutProBridge()->maximumXMEMLVersion());
    BinWriter writer(controller.get(), output);
    if (bins) {
        for (const TLBinNodePtr &node : *bins)
            writer.writeBin(*node);
    }
    output += "</xmeml>";
    TLLog::appendLog("Output: %@", textForLog(output));
    return output;
}

std::string MyDocument::generateXMLForObjectAndChildren(const TLBinNodePtr &node)
{
    if (!node)
        return {};
    const std::shared_ptr<TLFCPProjectController> controller = mediaController();
    std::string output;
    BinWriter(controller.get(), output).writeBin(*node);
    return output;
}

pugi::xml_node MyDocument::setUpdateBehavior(std::string_view behavior, pugi::xml_node element)
{
    if (!element)
        return element;
    pugi::xml_node child = element.child("updatebehavior");
    if (!child)
        child = element.append_child("updatebehavior");
    setElementText(child, behavior);
    return element;
}

void MyDocument::removeXMLElementAndChildren(const TLBinNodePtr &node)
{
    const std::shared_ptr<TLFCPProjectController> controller = mediaController();
    if (!node || !controller)
        return;
    if (const pugi::xml_node earlier = earlierBinToReplace(node, *controller, {}))
        controller->detachNode(earlier);
}

void MyDocument::addBinsToXML()
{
    const TLProjectMerge merge = planMerge();
    if (const std::shared_ptr<TLFCPProjectController> controller = mediaController())
        merge.applyTo(*controller);
}

TLWriteReport MyDocument::reportOfLastWrite() const
{
    const std::lock_guard lock(m_stateMutex);
    return m_reportOfLastWrite;
}

TLProjectMerge MyDocument::planMerge()
{
    TLLog::appendLog("Adding bins to XML...");
    std::shared_ptr<TLFCPProjectController> controller = mediaController();
    if (!controller) {
        controller = std::make_shared<TLFCPProjectController>(m_services.projectSources);
        setMediaController(controller);
    }
    if (!controller->xmlDoc() || !controller->xmlDoc()->document_element())
        controller->setEmptyXMEMLDoc();

    const TLNodeListPtr bins = dataArray();
    const TLNodeList topLevel = bins ? *bins : TLNodeList();
    TLProjectMerge merge;
    TLNodeList leftOut;
    BinPlanner planner(*controller);
    for (const TLBinNodePtr &node : topLevel) {
        TLMergedBin bin;
        if (planner.planBin(*node, bin)) {
            merge.bins.push_back(std::move(bin));
            continue;
        }
        std::string text;
        BinWriter(controller.get(), text, BinTextUse::merge).writeBin(*node);
        std::string problem;
        if (std::shared_ptr<pugi::xml_document> parsed = TLBinText::parsed(text, problem)) {
            TLMergedBin parsedBin;
            parsedBin.parsed = std::move(parsed);
            merge.bins.push_back(std::move(parsedBin));
            continue;
        }
        TLLog::appendLog("Error creating bin: %@", problem);
        leftOut.push_back(node);
    }
    for (const TLBinNodePtr &node : topLevel) {
        if (const pugi::xml_node earlier = earlierBinToReplace(node, *controller, merge.replaced))
            merge.replaced.push_back(earlier);
    }
    merge.target = controller->firstNodeForQuery(projectChildrenQuery).node();
    {
        const std::lock_guard lock(m_stateMutex);
        m_reportOfLastWrite = TLWriteReport::ofWrite(topLevel, std::move(leftOut));
    }
    return merge;
}

void MyDocument::sendToFCP()
{
    if (m_sendThread.joinable()) {
        if (m_sendRunning && *m_sendRunning)
            m_earlierSendThreads.push_back(std::move(m_sendThread));
        else
            m_sendThread.join();
    }
    auto running = std::make_shared<std::atomic<bool>>(true);
    m_sendRunning = running;
    m_sendThread = std::thread([this, running] {
        sendToFCPOnThread();
        *running = false;
    });
}

void MyDocument::waitForSend()
{
    for (std::thread &thread : m_earlierSendThreads)
        thread.join();
    m_earlierSendThreads.clear();
    if (m_sendThread.joinable())
        m_sendThread.join();
}

void MyDocument::sendToFCPOnThread()
{
    // No lock: sends may overlap, and the modal progress sheet is what keeps
    // the user from editing the tree meanwhile.
    try {
        runSendSteps();
    } catch (...) {
        TLException::logException(std::current_exception(), "MyDocument::sendToFCPOnThread");
    }
    // Whatever happened, the sheet must not stay up over the window.
    try {
        onMainThread([this] { view().endProgress(); });
    } catch (...) {
        TLException::logException(std::current_exception(), "MyDocument::sendToFCPOnThread");
    }
}

void MyDocument::runSendSteps()
{
    TLLog::appendLog(isPremiereProject() ? "Sending to Premiere Pro..." : "Sending to Final Cut Pro...");
    updateChangeCountCleared();
    onMainThread([this] { view().updateProgressLabel("Generating bin list..."); });
    onMainThread([this] { view().startProgress(); });

    const std::string projectPath = fileURL();
    const std::string text = generateXMLOutput();
    const TLNodeListPtr bins = dataArray();
    TLWriteReport report = TLWriteReport::ofWrite(bins ? *bins : TLNodeList());
    {
        const std::lock_guard lock(m_stateMutex);
        m_reportOfLastWrite = report;
    }
    // Premiere Pro projects see this label too.
    onMainThread([this] { view().updateProgressLabel("Sending to Final Cut Pro..."); });
    if (isPremiereProject()) {
        sendToPremiere(projectPath);
    } else {
        const std::optional<std::string> path =
            projectPath.empty() ? std::nullopt : std::optional<std::string>(projectPath);
        (void)finalCutProBridge()->sendXMLToFCP(text, path);
    }

    onMainThread([this] { view().updateProgressLabel("Finishing..."); });
    // The settings get the identifiers that generation has just given out,
    // so the next send replaces these bins.
    if (!projectPath.empty())
        (void)storeSettingsForProject(projectPath);
    onMainThread([this, message = report.message()] { view().showWriteReport(message); });
}

void MyDocument::sendToPremiere(const std::string &projectPath)
{
    // Premiere Pro imports the whole project, as it stands: the tree is not
    // merged into it first.
    const std::shared_ptr<TLFCPProjectController> controller = mediaController();
    if (projectPath.empty() || !controller || !controller->xmlDoc())
        return;
    const std::string outputPath = premiereOutputPath(projectPath);
    const pugi::xml_document &project = *controller->xmlDoc();
    const bool byteOrderMark = controller->hasByteOrderMark();
    const std::string failure = TLAtomicFile::writeWith(outputPath, [&](const TLAtomicFile::Sink &sink) {
        return TLProjectWriter::write(project, TLProjectMerge{}, byteOrderMark, sink);
    });
    if (!failure.empty())
        return;
    premiereBridge()->openFCPXML(outputPath);
    if (m_services.waitForHost)
        m_services.waitForHost(premiereReadingTime);
    else
        std::this_thread::sleep_for(premiereReadingTime);
    TLFileManager::removeFile(outputPath);
}

std::shared_ptr<TLFinalCutProBridge> MyDocument::finalCutProBridge() const
{
    if (m_services.projectSources.finalCutPro)
        return m_services.projectSources.finalCutPro;
    static const std::shared_ptr<TLFinalCutProBridge> standard = TLFinalCutProBridge::standard();
    return standard;
}

std::shared_ptr<TLPremiereBridge> MyDocument::premiereBridge() const
{
    if (m_services.projectSources.premiere)
        return m_services.projectSources.premiere;
    static const std::shared_ptr<TLPremiereBridge> standard = TLPremiereBridge::standard();
    return standard;
}
