// An owned property-list tree (libplist), read safely from untrusted bytes
// and written back as binary or XML.
#pragma once

#include <plist/plist.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Move-only owner of one libplist tree. An empty list (false) stands for
// "nothing could be read"; every accessor of an empty list is safe and
// answers nullopt, a null node or false.
//
// Reading is hardened: libplist recurses while parsing binary input and
// while freeing any tree, and it copies a binary object once per reference.
// Before any byte reaches libplist the input is therefore checked for size,
// structure, nesting depth and the number of nodes the parse would create.
class TLPropertyList
{
public:
    enum class Format { binary, XML };

    // Inputs larger than this are refused without being read (this also keeps
    // every length inside libplist's 32-bit sizes). Sized so that the largest
    // bin archive the archiver writes (about 100 bytes a media item, base64
    // inside an XML settings file) still reads back.
    static constexpr std::size_t maximumByteCount = 256 * 1024 * 1024;
    // Deepest accepted nesting of containers (XML: of elements).
    static constexpr int maximumDepth = 512;
    // Most nodes a parse may create, counting every copy of a shared binary
    // object separately. A media item of a bin archive takes about 13, and
    // the archiver accepts half a million nodes.
    static constexpr std::size_t maximumNodeCount = std::size_t(1) << 23;

    TLPropertyList() = default;
    ~TLPropertyList();
    TLPropertyList(TLPropertyList &&other) noexcept;
    TLPropertyList &operator=(TLPropertyList &&other) noexcept;
    TLPropertyList(const TLPropertyList &) = delete;
    TLPropertyList &operator=(const TLPropertyList &) = delete;

    // Parses binary ("bplist00") or XML bytes. Empty on any failure: empty,
    // oversized, truncated or garbage input, nesting deeper than
    // maximumDepth, more than maximumNodeCount nodes, reference cycles, an
    // XML document type with an internal subset.
    static TLPropertyList fromBytes(std::string_view bytes);
    // As above; on failure `reason` says why (unchanged on success).
    static TLPropertyList fromBytes(std::string_view bytes, std::string &reason);
    // Reads and parses a file. Empty when the path is missing, is not a
    // regular file, cannot be read, is larger than maximumByteCount, or its
    // contents are refused by fromBytes.
    static TLPropertyList fromFile(const std::string &path);

    // Takes ownership of a tree built with the libplist API (null gives an
    // empty list). The caller vouches for its depth.
    static TLPropertyList adopt(plist_t root);
    // A list holding one empty dictionary.
    static TLPropertyList newDictionary();

    explicit operator bool() const { return m_root != nullptr; }
    // The root node, still owned by this list; null when empty.
    plist_t root() const { return m_root; }
    // Gives up ownership of the root (null when empty) and leaves the list empty.
    plist_t release();

    // The serialised tree; nullopt when empty or when it cannot be written
    // (binary: TLBinaryPropertyListWriter, in linear time; XML: libplist).
    // A tree read from XML keeps references as {"CF$UID": n} dictionaries
    // (libplist does not convert them), so its binary form has no UIDs.
    std::optional<std::string> toBinary() const;
    std::optional<std::string> toXML() const;
    // Serialises and replaces the file at `path` atomically. Returns "" on
    // success, else the reason (empty list, serialisation or I/O failure).
    [[nodiscard]] std::string writeToFile(const std::string &path, Format format) const;
    // Saves a dictionary whose only entry is `data` under `key` as XML at
    // `path`, atomically and byte for byte as writeToFile(Format::XML) saves
    // it, but encoding piece by piece: memory stays bounded however large the
    // data (a whole bin archive), with no second copy of it. Returns "" on
    // success, else the reason (a key holding a NUL, I/O failure).
    [[nodiscard]] static std::string writeDataDictionaryToFile(const std::string &path, std::string_view key,
                                                               std::string_view data);

    // Root dictionary lookups: nullopt (or null) when the list is empty, the
    // root is not a dictionary, the key is missing or the value has another type.
    plist_t itemForKey(std::string_view key) const;
    std::optional<std::string> stringForKey(std::string_view key) const;
    std::optional<std::int64_t> integerForKey(std::string_view key) const;
    std::optional<bool> boolForKey(std::string_view key) const;
    std::optional<std::string> dataForKey(std::string_view key) const;

    // Root dictionary updates; false (and nothing changed) when the root is
    // not a dictionary, or for a string holding a NUL (libplist would cut it
    // short). An existing value under the key is replaced.
    bool setStringForKey(std::string_view key, std::string_view value);
    bool setIntegerForKey(std::string_view key, std::int64_t value);
    bool setBoolForKey(std::string_view key, bool value);
    bool setDataForKey(std::string_view key, std::string_view value);

    // Node helpers, all null-safe: nullopt (or null) for a null node or a
    // node of another type.
    static plist_t dictionaryItem(plist_t dictionary, std::string_view key);
    // The string with its exact length (embedded NULs kept).
    static std::optional<std::string> stringValue(plist_t node);
    // Integers are stored unsigned; a negative value comes back as written.
    static std::optional<std::int64_t> integerValue(plist_t node);
    static std::optional<bool> boolValue(plist_t node);
    static std::optional<std::string> dataValue(plist_t node);
    // The elements of an array node in order; empty for a null node or another
    // type. Prefer this to indexed access: libplist walks an array it parsed
    // from its start on every plist_array_get_item.
    static std::vector<plist_t> arrayItems(plist_t array);
    // A keyed-archive reference: a UID node, or a dictionary whose only
    // entry is "CF$UID" with an integer (the XML form, which libplist reads
    // back as a plain dictionary).
    static std::optional<std::uint64_t> uidValue(plist_t node);

private:
    explicit TLPropertyList(plist_t root) : m_root(root) {}
    bool setItemForKey(std::string_view key, plist_t item);

    plist_t m_root = nullptr;
};
