// Streams pretty-printed XML to a file through a large buffer, the way Final
// Cut Pro indents its exports (one tab per level, LF line ends).
#pragma once

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

// Writes elements one line each; nothing is kept but the buffer and the stack
// of open tags, so documents of any size stream out in constant memory.
// Element and attribute names must outlive the writer (string literals).
// Errors are sticky: after the first failed write every call does nothing
// and finish() returns false.
class XmlStreamWriter
{
public:
    // Writes to `file`, which the caller opened and closes.
    explicit XmlStreamWriter(std::FILE *file) : m_file(file)
    {
        m_buffer.reserve(BufferSize + 4096);
    }

    XmlStreamWriter(const XmlStreamWriter &) = delete;
    XmlStreamWriter &operator=(const XmlStreamWriter &) = delete;

    // Appends `text` unchanged, followed by a line end.
    void line(std::string_view text)
    {
        m_buffer.append(text);
        m_buffer.push_back('\n');
        flushWhenFull();
    }

    // Opens <tag> on a line of its own; the next elements nest inside it.
    void open(std::string_view tag)
    {
        indent();
        m_buffer.push_back('<');
        m_buffer.append(tag);
        m_buffer.append(">\n");
        m_openTags.push_back(tag);
    }

    // Opens <tag attribute="value">; the value is escaped.
    void open(std::string_view tag, std::string_view attribute, std::string_view value)
    {
        startTagWithAttribute(tag, attribute, value);
        m_buffer.append(">\n");
        m_openTags.push_back(tag);
    }

    // Closes the innermost open element. Does nothing when none is open.
    void close()
    {
        if (m_openTags.empty())
            return;
        const std::string_view tag = m_openTags.back();
        m_openTags.pop_back();
        indent();
        m_buffer.append("</");
        m_buffer.append(tag);
        m_buffer.append(">\n");
        flushWhenFull();
    }

    // Writes <tag>text</tag> with the text escaped, or <tag/> for an empty
    // text, as Final Cut Pro writes fields that hold nothing.
    void leaf(std::string_view tag, std::string_view text)
    {
        indent();
        if (text.empty()) {
            m_buffer.push_back('<');
            m_buffer.append(tag);
            m_buffer.append("/>\n");
            return;
        }
        m_buffer.push_back('<');
        m_buffer.append(tag);
        m_buffer.push_back('>');
        appendEscaped(text);
        m_buffer.append("</");
        m_buffer.append(tag);
        m_buffer.append(">\n");
    }

    // Writes <tag>number</tag>.
    void leaf(std::string_view tag, std::int64_t number)
    {
        char digits[24];
        const auto result = std::to_chars(digits, digits + sizeof digits, number);
        leaf(tag, std::string_view(digits, static_cast<std::size_t>(result.ptr - digits)));
    }

    // Writes <tag>TRUE</tag> or <tag>FALSE</tag>, xmeml's spelling of booleans.
    void flag(std::string_view tag, bool value) { leaf(tag, value ? "TRUE" : "FALSE"); }

    // Writes the empty element <tag attribute="value"/>.
    void empty(std::string_view tag, std::string_view attribute, std::string_view value)
    {
        startTagWithAttribute(tag, attribute, value);
        m_buffer.append("/>\n");
    }

    // Closes every open element and writes out the buffer. Returns false
    // when any write failed.
    [[nodiscard]] bool finish()
    {
        while (!m_openTags.empty())
            close();
        flush();
        return !m_failed;
    }

private:
    static constexpr std::size_t BufferSize = std::size_t{1} << 20;

    void startTagWithAttribute(std::string_view tag, std::string_view attribute,
                               std::string_view value)
    {
        indent();
        m_buffer.push_back('<');
        m_buffer.append(tag);
        m_buffer.push_back(' ');
        m_buffer.append(attribute);
        m_buffer.append("=\"");
        appendEscaped(value);
        m_buffer.push_back('"');
    }

    void indent() { m_buffer.append(m_openTags.size(), '\t'); }

    void appendEscaped(std::string_view text)
    {
        for (const char c : text) {
            switch (c) {
            case '&': m_buffer.append("&amp;"); break;
            case '<': m_buffer.append("&lt;"); break;
            case '>': m_buffer.append("&gt;"); break;
            case '"': m_buffer.append("&quot;"); break;
            default: m_buffer.push_back(c);
            }
        }
    }

    void flushWhenFull()
    {
        if (m_buffer.size() >= BufferSize)
            flush();
    }

    void flush()
    {
        if (!m_failed && !m_buffer.empty()
            && std::fwrite(m_buffer.data(), 1, m_buffer.size(), m_file) != m_buffer.size())
            m_failed = true;
        m_buffer.clear();
    }

    std::FILE *m_file;
    std::string m_buffer;
    std::vector<std::string_view> m_openTags;
    bool m_failed = false;
};
