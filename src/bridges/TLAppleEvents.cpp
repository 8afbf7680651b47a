// Final Cut Pro's Apple Events: which event, which parameters, which replies.
#include "TLAppleEvents.h"

#include "TLException.h"
#include "TLLocalPaths.h"
#include "TLPropertyList.h"
#include "TLTextCoding.h"
#include "TLUUID.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace {

constexpr TLFourCharCode finalCutProSignature = TLFourCharCodeFromString("KeyG");
constexpr TLFourCharCode typeUTF8Text = TLFourCharCodeFromString("utf8");
constexpr TLFourCharCode typeFSRef = TLFourCharCodeFromString("fsrf");
constexpr TLFourCharCode typeFileURL = TLFourCharCodeFromString("furl");
constexpr TLFourCharCode typeBoolean = TLFourCharCodeFromString("bool");
constexpr TLFourCharCode typeSInt32 = TLFourCharCodeFromString("long");
constexpr TLFourCharCode typeAEList = TLFourCharCodeFromString("list");
constexpr TLFourCharCode typeAERecord = TLFourCharCodeFromString("reco");
constexpr TLFourCharCode keyProjectFile = TLFourCharCodeFromString("fcpP");
constexpr TLFourCharCode keyXMLData = TLFourCharCodeFromString("xmlD");
constexpr TLFourCharCode keyItemUUID = TLFourCharCodeFromString("fcIU");
constexpr TLFourCharCode keyProjectURL = TLFourCharCodeFromString("fcpU");
constexpr TLFourCharCode keyOverwrite = TLFourCharCodeFromString("fsOF");
constexpr TLFourCharCode keyCloseFlags = TLFourCharCodeFromString("fcCF");
constexpr TLFourCharCode keyOpenProjects = TLFourCharCodeFromString("fcOP");
constexpr TLFourCharCode keyOneProject = TLFourCharCodeFromString("fcPf");

constexpr std::int16_t autoGenerateReturnID = -1;
constexpr std::int32_t anyTransactionID = 0;
constexpr std::int32_t waitReply = 3;
constexpr std::int16_t highPriority = 1;
constexpr std::int32_t defaultTimeout = -1;
constexpr std::size_t fileReferenceSize = 80;

// Leading blanks, an optional sign and then digits, as far as they go;
// 0 when there are none (the classic intValue reading).
int intValue(std::string_view text)
{
    std::size_t index = 0;
    while (index < text.size() && (text[index] == ' ' || text[index] == '\t'))
        ++index;
    bool negative = false;
    if (index < text.size() && (text[index] == '-' || text[index] == '+'))
        negative = text[index++] == '-';
    long long value = 0;
    for (; index < text.size() && text[index] >= '0' && text[index] <= '9'; ++index)
        value = std::min(value * 10 + (text[index] - '0'), 2147483647LL);
    return int(negative ? -value : value);
}

// Blanks, non-ASCII bytes, controls and the characters a URL never holds
// literally become %XX; "/" and the other URL punctuation stay.
std::string percentEscapedPath(const std::string &path)
{
    static constexpr std::string_view unsafe = " \"%<>[\\]^`{|}";
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string escaped;
    for (const char character : path) {
        const auto byte = std::uint8_t(character);
        if (byte > 32 && byte < 127 && unsafe.find(character) == std::string_view::npos) {
            escaped += character;
            continue;
        }
        escaped += '%';
        escaped += hex[byte >> 4];
        escaped += hex[byte & 0x0F];
    }
    return escaped;
}

std::optional<std::string> decodedUTF8(std::optional<std::string> data)
{
    if (!data || !TLTextCoding::isValidUTF8(*data))
        return std::nullopt;
    return data;
}

} // namespace

TLAppleEvents::TLAppleEvents(std::shared_ptr<TLAppleEventTransport> transport, ConsoleSink console)
    : m_transport(transport ? std::move(transport) : TLAppleEventTransport::platform()),
      m_console(std::move(console))
{
}

void TLAppleEvents::log(const std::string &message) const
{
    if (m_console) {
        m_console(message);
        return;
    }
    const auto line = message + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

bool TLAppleEvents::isFCPRunning() const
{
    return m_transport->isApplicationRunning(bundleIdentifier);
}

std::optional<std::string> TLAppleEvents::finalCutProVersionString() const
{
    const std::string applications = TLLocalPaths::applicationDirectory(false).value_or("");
    std::string application = m_transport->applicationPathForBundleIdentifier(bundleIdentifier)
                                  .value_or(applications + "/Final Cut Studio/Final Cut Pro.app");
    std::error_code error;
    if (!std::filesystem::exists(application, error))
        application = applications + "/Final Cut Pro.app";
    const auto info = TLPropertyList::fromFile(application + "/Contents/Info.plist");
    if (!info || plist_get_node_type(info.root()) != PLIST_DICT)
        return std::string("7.0");
    return TLPropertyList::stringValue(info.itemForKey("CFBundleShortVersionString"));
}

int TLAppleEvents::finalCutProMajorVersion() const
{
    const auto version = finalCutProVersionString();
    if (!version || version->empty())
        return 7;
    // Only the first character counts, whatever follows it.
    return intValue(version->substr(0, 1));
}

int TLAppleEvents::maximumXMEMLVersion() const
{
    const auto version = finalCutProVersionString();
    if (!version)
        return 1;
    auto components = TLTextCoding::componentsSeparatedByString(*version, '.');
    // The bound is re-read as components are added, so a one-component
    // version gets a single "0" and the patch read below throws.
    for (std::size_t appended = 0; components.size() < 3 && appended < 3 - components.size(); ++appended)
        components.push_back("0");
    const int major = intValue(components.at(0));
    const int minor = intValue(components.at(1));
    const int patch = intValue(components.at(2));
    if (major < 5)
        return 1;
    if (major == 5)
        return minor == 1 && patch < 2 ? 2 : 3;
    return major == 6 ? 4 : 5;
}

std::optional<std::vector<std::string>> TLAppleEvents::listOfOpenFCPProjects() const
{
    try {
        return listOfOpenFCPProjectsUnguarded();
    } catch (...) {
        TLException::logException(std::current_exception(), "+[TLAppleEvents listOfOpenFCPProjects]");
        return std::nullopt;
    }
}

std::optional<std::vector<std::string>> TLAppleEvents::listOfOpenFCPProjectsUnguarded() const
{
    if (!isFCPRunning()) {
        log("Error: Final Cut Pro is not running.");
        return std::nullopt;
    }
    std::vector<std::string> paths;
    auto target = m_transport->createAddress(finalCutProSignature);
    if (target.error != 0)
        return paths;
    auto event = m_transport->createEvent(finalCutProSignature, TLFourCharCodeFromString("fcLP"),
                                          target.descriptor, autoGenerateReturnID, anyTransactionID);
    if (event.error != 0)
        return paths;
    auto reply = m_transport->send(event.descriptor, waitReply, highPriority, defaultTimeout);
    if (reply.error != 0)
        return paths;
    auto list = m_transport->replyParameter(reply.descriptor, keyOpenProjects, typeAEList);
    long count = 0;
    if (list.error != 0 || m_transport->countItems(list.descriptor, count) != 0)
        return paths;
    // The first item that cannot be read ends the list; what came before stands.
    for (long index = 1; index <= count; ++index) {
        auto record = m_transport->listItem(list.descriptor, index, typeAERecord);
        if (record.error != 0)
            break;
        auto field = m_transport->recordField(record.descriptor, keyOneProject, typeFSRef);
        std::string reference;
        if (field.error != 0 || m_transport->descriptorData(field.descriptor, reference) != 0)
            break;
        reference.resize(std::min(reference.size(), fileReferenceSize));
        if (const auto path = m_transport->pathForFileReference(reference))
            paths.push_back(*path);
        m_transport->dispose(field.descriptor);
        m_transport->dispose(record.descriptor);
    }
    m_transport->dispose(list.descriptor);
    m_transport->dispose(event.descriptor);
    m_transport->dispose(target.descriptor);
    m_transport->dispose(reply.descriptor);
    return paths;
}

bool TLAppleEvents::sendXMLToFCP(const std::string &xml, const std::optional<std::string> &projectPath) const
{
    try {
        return sendXMLToFCPUnguarded(xml, projectPath);
    } catch (...) {
        TLException::logException(std::current_exception(), "+[TLAppleEvents sendXMLToFCP:projectPath:]");
        return false;
    }
}

bool TLAppleEvents::sendXMLToFCPUnguarded(const std::string &xml,
                                          const std::optional<std::string> &projectPath) const
{
    const auto escaped = escapeCharactersInXMLString(xml);
    auto target = m_transport->createAddress(finalCutProSignature);
    if (target.error != 0) {
        log("Error creating AEDescription: " + std::to_string(target.error));
        return false;
    }
    auto event = m_transport->createEvent(finalCutProSignature, TLFourCharCodeFromString("iXML"),
                                          target.descriptor, autoGenerateReturnID, anyTransactionID);
    if (event.error != 0) {
        log("Error creating AppleEvent: " + std::to_string(event.error));
        return false;
    }
    // A path without a file reference is left out: Final Cut Pro then
    // imports into whatever it takes as the current project.
    const auto reference = projectPath ? m_transport->fileReferenceForPath(*projectPath) : std::nullopt;
    if (reference) {
        const auto error = m_transport->putParameter(event.descriptor, keyProjectFile, typeFSRef, *reference);
        if (error != 0) {
            log("Error creating project FSRef: " + std::to_string(error));
            return false;
        }
    }
    if (const auto error = m_transport->putParameter(event.descriptor, keyXMLData, typeUTF8Text, escaped);
        error != 0) {
        log("Error adding XML data to event: " + std::to_string(error));
        return false;
    }
    auto reply = m_transport->send(event.descriptor, waitReply, highPriority, importTimeoutTicks);
    if (reply.error != 0) {
        log("Error sending AppleEvent: " + std::to_string(reply.error));
        return false;
    }
    m_transport->dispose(reply.descriptor);
    m_transport->dispose(event.descriptor);
    m_transport->dispose(target.descriptor);
    return true;
}

std::optional<TLAppleEventDescriptor> TLAppleEvents::buildItemEvent(TLFourCharCode eventID,
                                                                    const std::string *item,
                                                                    const std::string &path,
                                                                    TLAppleEventDescriptor &target) const
{
    auto address = m_transport->createAddress(finalCutProSignature);
    if (address.error != 0) {
        log("Error creating app description");
        return std::nullopt;
    }
    target = std::move(address.descriptor);
    auto event = m_transport->createEvent(finalCutProSignature, eventID, target, autoGenerateReturnID,
                                          anyTransactionID);
    if (event.error != 0) {
        log("Error creating AppleEvent");
        return std::nullopt;
    }
    const auto reference = m_transport->fileReferenceForPath(path);
    if (!reference)
        return std::move(event.descriptor);
    if (m_transport->putParameter(event.descriptor, keyProjectFile, typeFSRef, *reference) != 0) {
        log("Error adding project file to AppleEvent query");
        return std::nullopt;
    }
    // The item's message names the destination project: long-standing wording.
    if (item && m_transport->putParameter(event.descriptor, keyItemUUID, typeUTF8Text, *item) != 0) {
        log("Error adding destination project file to AppleEvent query");
        return std::nullopt;
    }
    return std::move(event.descriptor);
}

std::optional<bool> TLAppleEvents::prepareProject(FetchKind kind, const std::string &path, bool launchFCP) const
{
    if (!isFCPRunning()) {
        if (!launchFCP)
            return std::nullopt;
        m_transport->openFile(path, bundleIdentifier, TLAppleEventLaunch::async);
    }
    const auto open = listOfOpenFCPProjects();
    const bool wasOpen = open && std::find(open->begin(), open->end(), path) != open->end();
    if (wasOpen)
        return true;
    if (!launchFCP) {
        if (kind != FetchKind::tableOfContents)
            log("Error: project is not open.");
        return std::nullopt;
    }
    // No wait follows: the event goes out at once and Final Cut Pro queues it.
    m_transport->openFile(path, bundleIdentifier,
                          kind == FetchKind::tableOfContents ? TLAppleEventLaunch::withoutActivation
                                                             : TLAppleEventLaunch::async);
    return false;
}

std::optional<std::string> TLAppleEvents::fetchXMLData(FetchKind kind, TLFourCharCode eventID,
                                                       const std::string *item, const std::string &path,
                                                       bool launchFCP, bool closeProject) const
{
    const auto wasOpen = prepareProject(kind, path, launchFCP);
    if (!wasOpen)
        return std::nullopt;
    TLAppleEventDescriptor target;
    auto event = buildItemEvent(eventID, item, path, target);
    if (!event)
        return std::nullopt;
    auto reply = m_transport->send(*event, waitReply, highPriority, defaultTimeout);
    if (reply.error != 0) {
        log("Error sending AppleEvent");
        return std::nullopt;
    }
    auto xml = m_transport->replyParameter(reply.descriptor, keyXMLData, typeUTF8Text);
    if (xml.error != 0) {
        log("Error getting XML information");
        return std::nullopt;
    }
    std::string bytes;
    if (m_transport->descriptorData(xml.descriptor, bytes) != 0) {
        log("Error retrieving XML data");
        return std::nullopt;
    }
    auto result = formatData(std::move(bytes));
    if (kind != FetchKind::tableOfContents && !*wasOpen && closeProject)
        this->closeProject(path, true);
    m_transport->dispose(xml.descriptor);
    m_transport->dispose(reply.descriptor);
    m_transport->dispose(*event);
    m_transport->dispose(target);
    return result;
}

std::optional<std::string> TLAppleEvents::getProjectXMLData(const std::string &path, bool launchFCP,
                                                            bool closeProject) const
{
    try {
        return fetchXMLData(FetchKind::project, TLFourCharCodeFromString("eXML"), nullptr, path, launchFCP,
                            closeProject);
    } catch (...) {
        TLException::logException(std::current_exception(),
                                  "+[TLAppleEvents getProjectXMLData:launchFCP:closeProject:]");
        return std::nullopt;
    }
}

std::optional<std::string> TLAppleEvents::getProjectXML(const std::string &path, bool launchFCP,
                                                        bool closeProject) const
{
    return decodedUTF8(getProjectXMLData(path, launchFCP, closeProject));
}

std::optional<std::string> TLAppleEvents::getItemXMLData(const std::string &item, const std::string &path,
                                                         bool launchFCP, bool closeProject) const
{
    try {
        return fetchXMLData(FetchKind::item, TLFourCharCodeFromString("gXML"), &item, path, launchFCP,
                            closeProject);
    } catch (...) {
        TLException::logException(std::current_exception(),
                                  "+[TLAppleEvents getItemXMLData:forProject:launchFCP:closeProject:]");
        return std::nullopt;
    }
}

std::optional<std::string> TLAppleEvents::getItemXML(const std::string &item, const std::string &path,
                                                     bool launchFCP, bool) const
{
    // The close flag is dropped on purpose: callers rely on the project
    // staying open after an item fetch.
    return decodedUTF8(getItemXMLData(item, path, launchFCP));
}

std::optional<std::string> TLAppleEvents::getTOCData(const std::string &path, bool launchFCP) const
{
    try {
        return fetchXMLData(FetchKind::tableOfContents, TLFourCharCodeFromString("eTCX"), nullptr, path,
                            launchFCP, false);
    } catch (...) {
        TLException::logException(std::current_exception(), "+[TLAppleEvents getTOCData:launchFCP:]");
        return std::nullopt;
    }
}

std::optional<std::string> TLAppleEvents::getTOC(const std::string &path, bool launchFCP) const
{
    return decodedUTF8(getTOCData(path, launchFCP));
}

std::optional<TLAppleEventsSequences> TLAppleEvents::sequencesInProject(const std::string &path) const
{
    const auto data = finalCutProMajorVersion() < 7 ? getProjectXMLData(path, true) : getTOCData(path, true);
    if (!data || data->empty())
        return std::nullopt;
    auto document = std::make_shared<pugi::xml_document>();
    const auto parsed = document->load_buffer(data->data(), data->size());
    if (!parsed) {
        log(std::string("Error: ") + parsed.description());
        return std::nullopt;
    }
    TLAppleEventsSequences result{document, {}};
    for (const auto &match : document->select_nodes(".//sequence/name[1]/.."))
        result.sequences.push_back(match.node());
    return result;
}

void TLAppleEvents::openItem(const std::string &item, const std::string &path, bool launchFCP) const
{
    try {
        if (!prepareProject(FetchKind::item, path, launchFCP))
            return;
        TLAppleEventDescriptor target;
        auto event = buildItemEvent(TLFourCharCodeFromString("fcOI"), &item, path, target);
        if (!event)
            return;
        auto reply = m_transport->send(*event, waitReply, highPriority, defaultTimeout);
        if (reply.error != 0) {
            log("Error sending AppleEvent");
            return;
        }
        m_transport->dispose(reply.descriptor);
        m_transport->dispose(*event);
        m_transport->dispose(target);
    } catch (...) {
        TLException::logException(std::current_exception(), "+[TLAppleEvents openItem:forProject:launchFCP:]");
    }
}

bool TLAppleEvents::saveProject(const std::string &path) const
{
    try {
        return saveOrClose(TLFourCharCodeFromString("sfcP"), path, keyOverwrite, typeBoolean, std::string(1, '\1'));
    } catch (...) {
        TLException::logException(std::current_exception(), "+[TLAppleEvents saveProject:]");
        return false;
    }
}

void TLAppleEvents::closeProject(const std::string &path, bool saveChanges) const
{
    try {
        // 1 discards the changes, 0 saves them, as a native-endian SInt32.
        const std::int32_t flag = saveChanges ? 0 : 1;
        std::string bytes(sizeof flag, '\0');
        std::memcpy(bytes.data(), &flag, sizeof flag);
        saveOrClose(TLFourCharCodeFromString("cfcP"), path, keyCloseFlags, typeSInt32, bytes);
    } catch (...) {
        TLException::logException(std::current_exception(), "+[TLAppleEvents closeProject:saveChanges:]");
    }
}

bool TLAppleEvents::saveOrClose(TLFourCharCode eventID, const std::string &path, TLFourCharCode flagKeyword,
                                TLFourCharCode flagType, const std::string &flagBytes) const
{
    if (!isFCPRunning()) {
        log("Error: Final Cut Pro is not running.");
        return false;
    }
    auto target = m_transport->createAddress(finalCutProSignature);
    if (target.error != 0) {
        log("Error creating app description");
        return false;
    }
    auto event = m_transport->createEvent(finalCutProSignature, eventID, target.descriptor,
                                          autoGenerateReturnID, anyTransactionID);
    if (event.error != 0) {
        log("Error creating AppleEvent");
        return false;
    }
    if (const auto reference = m_transport->fileReferenceForPath(path)) {
        if (m_transport->putParameter(event.descriptor, keyProjectFile, typeFSRef, *reference) != 0) {
            log("Error adding source project file to AppleEvent query");
            return false;
        }
        if (m_transport->putParameter(event.descriptor, keyProjectURL, typeFileURL, percentEscapedPath(path))
            != 0) {
            log("Error adding destination project file to AppleEvent query");
            return false;
        }
        if (m_transport->putParameter(event.descriptor, flagKeyword, flagType, flagBytes) != 0) {
            log("Error adding overwrite flag to AppleEvent query");
            return false;
        }
    }
    auto reply = m_transport->send(event.descriptor, waitReply, highPriority, defaultTimeout);
    if (reply.error != 0) {
        log("Error sending AppleEvent");
        return false;
    }
    m_transport->dispose(reply.descriptor);
    m_transport->dispose(event.descriptor);
    m_transport->dispose(target.descriptor);
    return true;
}

std::string TLAppleEvents::generateUUID()
{
    return TLUUID::generateUUID();
}

std::string TLAppleEvents::escapeCharactersInXMLString(std::string_view text)
{
    std::u16string units = TLTextCoding::utf16Units(text);
    std::string escaped;
    escaped.reserve(text.size());
    // The only non-ASCII units kept are 128 to 159, two UTF-8 bytes each.
    for (const char16_t unit : units) {
        if (unit >= 160 || unit == 13) {
            escaped += "&#" + std::to_string(int(unit)) + ";";
        } else if (unit < 128) {
            escaped += char(unit);
        } else {
            escaped += char(0xC0 | (unit >> 6));
            escaped += char(0x80 | (unit & 0x3F));
        }
    }
    return escaped;
}

std::string TLAppleEvents::formatData(std::string data)
{
    if (!data.empty() && data.back() == '\0')
        data.pop_back();
    return data;
}
