// Property-list trees: hardened reading, serialising and dictionary helpers.
#include "TLPropertyList.h"

#include "TLAtomicFile.h"
#include "TLBinaryPropertyListWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr std::string_view binaryMagic = "bplist00";
constexpr std::size_t trailerSize = 32;

std::uint64_t readBigEndian(std::string_view bytes, std::uint64_t offset, unsigned width)
{
    std::uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i)
        value = (value << 8) | static_cast<unsigned char>(bytes[offset + i]);
    return value;
}

// Checks a binary property list the way libplist will walk it, so that
// libplist only ever sees input whose every offset is in range and whose
// expanded tree is shallow and small. libplist copies an object once per
// reference, hence the "expanded" node count rather than the object count.
class BinaryScanner
{
public:
    explicit BinaryScanner(std::string_view bytes) : m_bytes(bytes) {}

    // "" when the input is safe to hand to libplist, else the reason.
    std::string check()
    {
        if (auto problem = readTrailer(); !problem.empty())
            return problem;
        return walk();
    }

private:
    enum State : std::uint8_t { unvisited, inProgress, done };

    struct Object
    {
        std::uint64_t referenceStart = 0;
        std::uint64_t referenceCount = 0; // twice the entry count for a dictionary
        std::uint64_t keyCount = 0;
    };

    struct Frame
    {
        std::uint64_t index;
        Object object;
        std::uint64_t next = 0;
        std::uint64_t childHeight = 0;
        std::uint64_t expanded = 1;
    };

    bool fits(std::uint64_t position, std::uint64_t length) const
    {
        return position <= m_tableOffset && length <= m_tableOffset - position;
    }

    std::string readTrailer()
    {
        if (m_bytes.size() < binaryMagic.size() + trailerSize)
            return "binary property list is truncated";
        const std::uint64_t trailer = m_bytes.size() - trailerSize;
        m_offsetWidth = static_cast<unsigned char>(m_bytes[trailer + 6]);
        m_referenceWidth = static_cast<unsigned char>(m_bytes[trailer + 7]);
        m_objectCount = readBigEndian(m_bytes, trailer + 8, 8);
        const std::uint64_t top = readBigEndian(m_bytes, trailer + 16, 8);
        m_tableOffset = readBigEndian(m_bytes, trailer + 24, 8);
        if (m_offsetWidth < 1 || m_offsetWidth > 8 || m_referenceWidth < 1 || m_referenceWidth > 8)
            return "binary property list has a damaged trailer";
        if (m_objectCount == 0 || m_objectCount > TLPropertyList::maximumNodeCount)
            return "binary property list has a bad object count";
        if (top >= m_objectCount)
            return "binary property list names a missing top object";
        if (m_tableOffset <= binaryMagic.size() || m_tableOffset > trailer
            || m_objectCount > (trailer - m_tableOffset) / m_offsetWidth)
            return "binary property list has its offset table out of range";
        m_top = top;
        return {};
    }

    std::optional<std::uint64_t> offsetOf(std::uint64_t index) const
    {
        const auto offset = readBigEndian(m_bytes, m_tableOffset + index * m_offsetWidth, m_offsetWidth);
        if (offset < binaryMagic.size() || offset >= m_tableOffset)
            return std::nullopt;
        return offset;
    }

    // Reads the length that follows a marker whose low nibble is 0xF.
    bool readCount(std::uint64_t &position, unsigned lowNibble, std::uint64_t &count) const
    {
        if (lowNibble != 0xF) {
            count = lowNibble;
            return true;
        }
        if (!fits(position, 1))
            return false;
        const auto marker = static_cast<unsigned char>(m_bytes[position]);
        if ((marker >> 4) != 0x1 || (marker & 0xF) > 3)
            return false;
        const unsigned width = 1u << (marker & 0xF);
        if (!fits(position + 1, width))
            return false;
        count = readBigEndian(m_bytes, position + 1, width);
        position += 1 + width;
        return true;
    }

    // Unpaired surrogates are refused: libplist's converter is not trusted with them.
    bool isWellFormedUtf16(std::uint64_t position, std::uint64_t units) const
    {
        bool expectLow = false;
        for (std::uint64_t i = 0; i < units; ++i) {
            const auto unit = readBigEndian(m_bytes, position + 2 * i, 2);
            const bool isHigh = unit >= 0xD800 && unit <= 0xDBFF;
            const bool isLow = unit >= 0xDC00 && unit <= 0xDFFF;
            if (expectLow != isLow)
                return false;
            expectLow = isHigh;
        }
        return !expectLow;
    }

    bool readObject(std::uint64_t index, Object &object) const
    {
        const auto offset = offsetOf(index);
        if (!offset)
            return false;
        const auto marker = static_cast<unsigned char>(m_bytes[*offset]);
        const unsigned kind = marker >> 4;
        const unsigned low = marker & 0xF;
        std::uint64_t position = *offset + 1;
        std::uint64_t count = 0;
        switch (kind) {
        case 0x0:
            return low == 0x0 || low == 0x8 || low == 0x9;
        case 0x1:
            return low <= 4 && fits(position, std::uint64_t(1) << low);
        case 0x2:
            return (low == 2 || low == 3) && fits(position, std::uint64_t(1) << low);
        case 0x3:
            return low == 3 && fits(position, 8);
        case 0x4:
        case 0x5:
            return readCount(position, low, count) && fits(position, count);
        case 0x6:
            return readCount(position, low, count) && count <= m_tableOffset / 2
                && fits(position, 2 * count) && isWellFormedUtf16(position, count);
        case 0x8:
            return low <= 7 && fits(position, low + 1);
        case 0xA:
        case 0xD:
            break;
        default:
            return false;
        }
        if (!readCount(position, low, count))
            return false;
        const std::uint64_t references = kind == 0xD ? 2 : 1;
        if (count > m_tableOffset / (references * m_referenceWidth)
            || !fits(position, count * references * m_referenceWidth))
            return false;
        object.referenceStart = position;
        object.referenceCount = count * references;
        object.keyCount = kind == 0xD ? count : 0;
        return true;
    }

    bool isStringObject(std::uint64_t index) const
    {
        const auto offset = offsetOf(index);
        if (!offset)
            return false;
        const unsigned kind = static_cast<unsigned char>(m_bytes[*offset]) >> 4;
        return kind == 0x5 || kind == 0x6;
    }

    std::string enter(std::uint64_t index)
    {
        Frame frame{index, {}};
        if (!readObject(index, frame.object))
            return "binary property list has a damaged object";
        m_state[index] = inProgress;
        m_frames.push_back(frame);
        if (m_frames.size() > std::size_t(TLPropertyList::maximumDepth))
            return "binary property list is nested too deeply";
        return {};
    }

    // Folds a finished child into the frame that refers to it.
    std::string account(Frame &frame, std::uint64_t childHeight, std::uint64_t childExpanded)
    {
        frame.childHeight = std::max(frame.childHeight, childHeight);
        frame.expanded += childExpanded;
        if (frame.expanded > TLPropertyList::maximumNodeCount)
            return "binary property list expands to too many nodes";
        return {};
    }

    std::string stepInto(Frame &frame)
    {
        const bool isKey = frame.next < frame.object.keyCount;
        const auto child = readBigEndian(m_bytes, frame.object.referenceStart + frame.next * m_referenceWidth,
                                         m_referenceWidth);
        ++frame.next;
        if (child >= m_objectCount)
            return "binary property list refers to a missing object";
        if (isKey && !isStringObject(child))
            return "binary property list has a dictionary key that is not a string";
        if (m_state[child] == inProgress)
            return "binary property list refers to itself";
        if (m_state[child] == done)
            return account(frame, m_height[child], m_expanded[child]);
        return enter(child);
    }

    std::string walk()
    {
        m_state.assign(m_objectCount, unvisited);
        m_height.assign(m_objectCount, 0);
        m_expanded.assign(m_objectCount, 0);
        if (auto problem = enter(m_top); !problem.empty())
            return problem;
        while (!m_frames.empty()) {
            Frame &frame = m_frames.back();
            if (frame.next < frame.object.referenceCount) {
                if (auto problem = stepInto(frame); !problem.empty())
                    return problem;
                continue;
            }
            const Frame finished = frame;
            m_frames.pop_back();
            m_state[finished.index] = done;
            m_height[finished.index] = static_cast<std::uint16_t>(finished.childHeight + 1);
            m_expanded[finished.index] = static_cast<std::uint32_t>(finished.expanded);
            if (finished.childHeight + 1 > std::uint64_t(TLPropertyList::maximumDepth))
                return "binary property list is nested too deeply";
            if (m_frames.empty())
                break;
            if (auto problem = account(m_frames.back(), finished.childHeight + 1, finished.expanded);
                !problem.empty())
                return problem;
        }
        return {};
    }

    std::string_view m_bytes;
    unsigned m_offsetWidth = 0;
    unsigned m_referenceWidth = 0;
    std::uint64_t m_objectCount = 0;
    std::uint64_t m_top = 0;
    std::uint64_t m_tableOffset = 0;
    std::vector<std::uint8_t> m_state;
    std::vector<std::uint16_t> m_height;
    std::vector<std::uint32_t> m_expanded;
    std::vector<Frame> m_frames;
};

bool isNameCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_'
        || c == '-' || c == '.' || c == ':';
}

// Bounds the element nesting of XML before libplist parses it (libplist
// parses iteratively but frees recursively). Whatever this scanner skips
// (comments, CDATA, processing instructions, declarations) it skips only
// where every reasonable reading agrees on the extent: a declaration or
// instruction holding a "<", a comment holding "--", or a tag whose
// attributes are not plainly quoted are refused outright. So a close tag counted here is
// always a close tag for libplist as well, and the depth is never
// under-counted.
class XMLScanner
{
public:
    explicit XMLScanner(std::string_view bytes) : m_bytes(bytes) {}

    std::string check()
    {
        while (m_position < m_bytes.size()) {
            const char c = m_bytes[m_position];
            if (c == '\0')
                return "XML property list holds a NUL byte";
            if (c != '<') {
                ++m_position;
                continue;
            }
            if (auto problem = markup(); !problem.empty())
                return problem;
        }
        return {};
    }

private:
    bool startsWith(std::string_view prefix) const
    {
        return m_bytes.substr(m_position, prefix.size()) == prefix;
    }

    // Moves past `terminator`, searching from `from`; false when it is missing
    // or when `forbidden` occurs before it.
    bool skipTo(std::size_t from, std::string_view terminator, std::string_view forbidden)
    {
        const auto end = m_bytes.find(terminator, from);
        if (end == std::string_view::npos)
            return false;
        if (!forbidden.empty() && m_bytes.substr(from, end - from).find(forbidden) != std::string_view::npos)
            return false;
        m_position = end + terminator.size();
        return true;
    }

    std::string markup()
    {
        if (startsWith("<!--"))
            return skipTo(m_position + 4, "-->", "--") ? "" : "XML property list has a bad comment";
        if (startsWith("<![CDATA["))
            return skipTo(m_position + 9, "]]>", {}) ? "" : "XML property list has an unterminated CDATA section";
        if (startsWith("<?"))
            return skipTo(m_position + 2, "?>", "<") ? "" : "XML property list has a bad processing instruction";
        if (startsWith("<!"))
            return declaration();
        if (startsWith("</"))
            return closeTag();
        return openTag();
    }

    // Document type and similar declarations; an internal subset ("[") could
    // declare entities, and no property list needs one.
    std::string declaration()
    {
        const auto bracket = m_bytes.find_first_of("[>", m_position);
        if (bracket != std::string_view::npos && m_bytes[bracket] == '[')
            return "XML property list declares an internal document type subset";
        const auto end = tagEnd(m_position + 2);
        if (!end)
            return "XML property list has a bad declaration";
        m_position = *end + 1;
        return {};
    }

    // The position of the ">" closing a tag, refusing "<" anywhere inside and
    // ">" inside quotes.
    std::optional<std::size_t> tagEnd(std::size_t from) const
    {
        char quote = 0;
        for (std::size_t i = from; i < m_bytes.size(); ++i) {
            const char c = m_bytes[i];
            if (c == '<' || c == '\0' || (quote && c == '>'))
                return std::nullopt;
            if (quote) {
                quote = c == quote ? 0 : quote;
                continue;
            }
            if (c == '"' || c == '\'')
                quote = c;
            else if (c == '>')
                return i;
        }
        return std::nullopt;
    }

    std::string_view nameAt(std::size_t from) const
    {
        std::size_t end = from;
        while (end < m_bytes.size() && isNameCharacter(m_bytes[end]))
            ++end;
        return m_bytes.substr(from, end - from);
    }

    std::string closeTag()
    {
        const auto name = nameAt(m_position + 2);
        const auto end = tagEnd(m_position + 2 + name.size());
        if (name.empty() || !end || m_open.empty() || m_open.back() != name)
            return "XML property list has a mismatched close tag";
        for (auto i = m_position + 2 + name.size(); i < *end; ++i)
            if (!isBlank(m_bytes[i]))
                return "XML property list has a mismatched close tag";
        m_open.pop_back();
        m_position = *end + 1;
        return {};
    }

    static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

    // Reads the attributes of a start tag strictly (name="value" or
    // name='value', no "<" or ">" in values), so that where the tag ends and
    // whether it is empty is never open to interpretation. Returns the
    // position of the closing ">" and sets `isEmptyElement`.
    std::optional<std::size_t> startTagEnd(std::size_t position, bool &isEmptyElement) const
    {
        while (position < m_bytes.size()) {
            const char c = m_bytes[position];
            if (isBlank(c)) {
                ++position;
                continue;
            }
            if (c == '>')
                return position;
            if (c == '/') {
                isEmptyElement = true;
                return position + 1 < m_bytes.size() && m_bytes[position + 1] == '>'
                    ? std::optional<std::size_t>(position + 1) : std::nullopt;
            }
            if (!skipAttribute(position))
                return std::nullopt;
        }
        return std::nullopt;
    }

    bool skipAttribute(std::size_t &position) const
    {
        const auto name = nameAt(position);
        position += name.size();
        while (position < m_bytes.size() && isBlank(m_bytes[position]))
            ++position;
        if (name.empty() || position >= m_bytes.size() || m_bytes[position] != '=')
            return false;
        ++position;
        while (position < m_bytes.size() && isBlank(m_bytes[position]))
            ++position;
        if (position >= m_bytes.size() || (m_bytes[position] != '"' && m_bytes[position] != '\''))
            return false;
        const auto end = m_bytes.find(m_bytes[position], position + 1);
        if (end == std::string_view::npos
            || m_bytes.substr(position, end - position).find_first_of("<>") != std::string_view::npos)
            return false;
        position = end + 1;
        return true;
    }

    std::string openTag()
    {
        const auto name = nameAt(m_position + 1);
        bool isEmptyElement = false;
        const auto end = startTagEnd(m_position + 1 + name.size(), isEmptyElement);
        if (name.empty() || !end)
            return "XML property list has a bad tag";
        if (++m_elementCount > TLPropertyList::maximumNodeCount)
            return "XML property list has too many elements";
        m_position = *end + 1;
        if (isEmptyElement)
            return {};
        m_open.push_back(name);
        if (m_open.size() > std::size_t(TLPropertyList::maximumDepth))
            return "XML property list is nested too deeply";
        return {};
    }

    std::string_view m_bytes;
    std::size_t m_position = 0;
    std::size_t m_elementCount = 0;
    std::vector<std::string_view> m_open;
};

std::optional<std::string> readWholeFile(const std::string &path)
{
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return std::nullopt;
    struct stat info {};
    std::optional<std::string> contents;
    if (::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode)
        && std::uint64_t(info.st_size) <= TLPropertyList::maximumByteCount) {
        contents.emplace();
        char buffer[65536];
        while (contents) {
            const ssize_t count = ::read(descriptor, buffer, sizeof buffer);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0 || contents->size() + std::size_t(count) > TLPropertyList::maximumByteCount)
                contents.reset();
            else if (count == 0)
                break;
            else
                contents->append(buffer, std::size_t(count));
        }
    }
    ::close(descriptor);
    return contents;
}

// The text libplist writes around a dictionary, and how it lays out a
// <data> value one level deep: a tab before every line and at most 68
// base64 characters (51 bytes) on each. A settings file streamed from here
// must not differ by a byte from one libplist wrote.
constexpr std::string_view xmlDictionaryOpening =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n<dict>\n";
constexpr std::string_view xmlDataClosing = "\t</data>\n</dict>\n</plist>\n";
constexpr std::size_t base64LineLength = 68;
constexpr std::size_t bytesPerBase64Line = base64LineLength / 4 * 3;
// Enough lines per write to keep system calls rare, few enough that the
// buffer stays near a quarter of a megabyte.
constexpr std::size_t base64LinesPerChunk = 4096;

// libplist escapes only these three in a key; quotes stay as they are.
std::string escapedXMLText(std::string_view text)
{
    std::string escaped;
    for (const char c : text) {
        if (c == '&')
            escaped += "&amp;";
        else if (c == '<')
            escaped += "&lt;";
        else if (c == '>')
            escaped += "&gt;";
        else
            escaped += c;
    }
    return escaped;
}

// Writes the padded base64 of `bytes` at `out`; returns the end.
char *writeBase64(std::string_view bytes, char *out)
{
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto byteAt = [bytes](std::size_t index) { return std::uint32_t(static_cast<unsigned char>(bytes[index])); };
    std::size_t index = 0;
    for (; index + 3 <= bytes.size(); index += 3) {
        const std::uint32_t group = byteAt(index) << 16 | byteAt(index + 1) << 8 | byteAt(index + 2);
        for (const int shift : {18, 12, 6, 0})
            *out++ = alphabet[(group >> shift) & 63];
    }
    const std::size_t rest = bytes.size() - index;
    if (rest == 0)
        return out;
    const std::uint32_t group = byteAt(index) << 16 | (rest == 2 ? byteAt(index + 1) << 8 : 0);
    *out++ = alphabet[group >> 18];
    *out++ = alphabet[(group >> 12) & 63];
    *out++ = rest == 2 ? alphabet[(group >> 6) & 63] : '=';
    *out++ = '=';
    return out;
}

// The base64 lines of `data`, a chunk of lines at a time; false once the sink fails.
bool writeBase64Lines(const TLAtomicFile::Sink &sink, std::string_view data)
{
    std::string chunk(base64LinesPerChunk * (base64LineLength + 2), '\0');
    while (!data.empty()) {
        char *end = chunk.data();
        for (std::size_t line = 0; line < base64LinesPerChunk && !data.empty(); ++line) {
            const auto piece = data.substr(0, bytesPerBase64Line);
            data.remove_prefix(piece.size());
            *end++ = '\t';
            end = writeBase64(piece, end);
            *end++ = '\n';
        }
        if (!sink(std::string_view(chunk.data(), std::size_t(end - chunk.data()))))
            return false;
    }
    return true;
}

} // namespace

TLPropertyList::~TLPropertyList()
{
    if (m_root)
        plist_free(m_root);
}

TLPropertyList::TLPropertyList(TLPropertyList &&other) noexcept : m_root(other.release()) {}

TLPropertyList &TLPropertyList::operator=(TLPropertyList &&other) noexcept
{
    if (this != &other) {
        if (m_root)
            plist_free(m_root);
        m_root = other.release();
    }
    return *this;
}

TLPropertyList TLPropertyList::fromBytes(std::string_view bytes)
{
    std::string ignored;
    return fromBytes(bytes, ignored);
}

TLPropertyList TLPropertyList::fromBytes(std::string_view bytes, std::string &reason)
{
    if (bytes.empty()) {
        reason = "property list is empty";
        return {};
    }
    if (bytes.size() > maximumByteCount) {
        reason = "property list is too large";
        return {};
    }
    const bool isBinary = bytes.substr(0, binaryMagic.size()) == binaryMagic;
    auto problem = isBinary ? BinaryScanner(bytes).check() : XMLScanner(bytes).check();
    if (!problem.empty()) {
        reason = std::move(problem);
        return {};
    }
    plist_t root = nullptr;
    const auto length = static_cast<std::uint32_t>(bytes.size());
    if (isBinary)
        plist_from_bin(bytes.data(), length, &root);
    else
        plist_from_xml(bytes.data(), length, &root);
    if (!root)
        reason = isBinary ? "binary property list is damaged" : "XML property list is damaged";
    return TLPropertyList(root);
}

TLPropertyList TLPropertyList::fromFile(const std::string &path)
{
    const auto contents = readWholeFile(path);
    if (!contents)
        return {};
    return fromBytes(*contents);
}

TLPropertyList TLPropertyList::adopt(plist_t root)
{
    return TLPropertyList(root);
}

TLPropertyList TLPropertyList::newDictionary()
{
    return TLPropertyList(plist_new_dict());
}

plist_t TLPropertyList::release()
{
    return std::exchange(m_root, nullptr);
}

// libplist's own binary writer slows down more than linearly with the
// number of objects (minutes for the archive of a large smart range); ours
// stays linear.
std::optional<std::string> TLPropertyList::toBinary() const
{
    if (!m_root)
        return std::nullopt;
    return TLBinaryPropertyListWriter::dataWithPropertyList(m_root);
}

std::optional<std::string> TLPropertyList::toXML() const
{
    if (!m_root)
        return std::nullopt;
    char *text = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(m_root, &text, &length);
    if (!text)
        return std::nullopt;
    std::string result(text, length);
    plist_to_xml_free(text);
    return result;
}

std::string TLPropertyList::writeToFile(const std::string &path, Format format) const
{
    if (!m_root)
        return "cannot write " + path + ": the property list is empty";
    const auto bytes = format == Format::binary ? toBinary() : toXML();
    if (!bytes)
        return "cannot write " + path + ": the property list cannot be serialised";
    return TLAtomicFile::writeContents(path, *bytes);
}

std::string TLPropertyList::writeDataDictionaryToFile(const std::string &path, std::string_view key,
                                                      std::string_view data)
{
    // libplist keeps keys as C strings and would cut this one short.
    if (key.find('\0') != std::string_view::npos)
        return "cannot write " + path + ": the key holds a NUL";
    const std::string opening =
        std::string(xmlDictionaryOpening) + "\t<key>" + escapedXMLText(key) + "</key>\n\t<data>\n";
    return TLAtomicFile::writeWith(path, [&opening, data](const TLAtomicFile::Sink &sink) {
        return sink(opening) && writeBase64Lines(sink, data) && sink(xmlDataClosing);
    });
}

plist_t TLPropertyList::itemForKey(std::string_view key) const
{
    return dictionaryItem(m_root, key);
}

std::optional<std::string> TLPropertyList::stringForKey(std::string_view key) const
{
    return stringValue(itemForKey(key));
}

std::optional<std::int64_t> TLPropertyList::integerForKey(std::string_view key) const
{
    return integerValue(itemForKey(key));
}

std::optional<bool> TLPropertyList::boolForKey(std::string_view key) const
{
    return boolValue(itemForKey(key));
}

std::optional<std::string> TLPropertyList::dataForKey(std::string_view key) const
{
    return dataValue(itemForKey(key));
}

bool TLPropertyList::setItemForKey(std::string_view key, plist_t item)
{
    if (!m_root || plist_get_node_type(m_root) != PLIST_DICT) {
        plist_free(item);
        return false;
    }
    plist_dict_set_item(m_root, std::string(key).c_str(), item);
    return true;
}

bool TLPropertyList::setStringForKey(std::string_view key, std::string_view value)
{
    if (value.find('\0') != std::string_view::npos)
        return false;
    return setItemForKey(key, plist_new_string(std::string(value).c_str()));
}

bool TLPropertyList::setIntegerForKey(std::string_view key, std::int64_t value)
{
    return setItemForKey(key, plist_new_uint(static_cast<std::uint64_t>(value)));
}

bool TLPropertyList::setBoolForKey(std::string_view key, bool value)
{
    return setItemForKey(key, plist_new_bool(value ? 1 : 0));
}

bool TLPropertyList::setDataForKey(std::string_view key, std::string_view value)
{
    return setItemForKey(key, plist_new_data(value.data(), value.size()));
}

plist_t TLPropertyList::dictionaryItem(plist_t dictionary, std::string_view key)
{
    if (!dictionary || plist_get_node_type(dictionary) != PLIST_DICT)
        return nullptr;
    return plist_dict_get_item(dictionary, std::string(key).c_str());
}

std::optional<std::string> TLPropertyList::stringValue(plist_t node)
{
    if (!node || plist_get_node_type(node) != PLIST_STRING)
        return std::nullopt;
    std::uint64_t length = 0;
    const char *text = plist_get_string_ptr(node, &length);
    if (!text)
        return std::string();
    return std::string(text, length);
}

std::optional<std::int64_t> TLPropertyList::integerValue(plist_t node)
{
    if (!node || plist_get_node_type(node) != PLIST_UINT)
        return std::nullopt;
    std::uint64_t value = 0;
    plist_get_uint_val(node, &value);
    return static_cast<std::int64_t>(value);
}

std::optional<bool> TLPropertyList::boolValue(plist_t node)
{
    if (!node || plist_get_node_type(node) != PLIST_BOOLEAN)
        return std::nullopt;
    std::uint8_t value = 0;
    plist_get_bool_val(node, &value);
    return value != 0;
}

std::optional<std::string> TLPropertyList::dataValue(plist_t node)
{
    if (!node || plist_get_node_type(node) != PLIST_DATA)
        return std::nullopt;
    std::uint64_t length = 0;
    const char *bytes = plist_get_data_ptr(node, &length);
    if (!bytes)
        return std::string();
    return std::string(bytes, length);
}

std::vector<plist_t> TLPropertyList::arrayItems(plist_t array)
{
    std::vector<plist_t> items;
    if (!array || plist_get_node_type(array) != PLIST_ARRAY)
        return items;
    items.reserve(plist_array_get_size(array));
    plist_array_iter iterator = nullptr;
    plist_array_new_iter(array, &iterator);
    for (plist_t item = nullptr;;) {
        plist_array_next_item(array, iterator, &item);
        if (!item)
            break;
        items.push_back(item);
    }
    std::free(iterator);
    return items;
}

std::optional<std::uint64_t> TLPropertyList::uidValue(plist_t node)
{
    if (!node)
        return std::nullopt;
    const auto type = plist_get_node_type(node);
    if (type == PLIST_UID) {
        std::uint64_t value = 0;
        plist_get_uid_val(node, &value);
        return value;
    }
    if (type != PLIST_DICT || plist_dict_get_size(node) != 1)
        return std::nullopt;
    const auto value = integerValue(plist_dict_get_item(node, "CF$UID"));
    if (!value || *value < 0)
        return std::nullopt;
    return static_cast<std::uint64_t>(*value);
}
