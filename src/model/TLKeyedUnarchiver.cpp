// Hardened keyed-archive reader for bin trees.
#include "TLKeyedUnarchiver.h"

#include "TLBinRangeItem.h"
#include "TLLog.h"
#include "TLMediaItem.h"
#include "TLPropertyList.h"
#include "TLRegularBin.h"
#include "TLSmartBin.h"
#include "TLSmartRangeItem.h"

#include <stdexcept>
#include <unordered_map>
#include <vector>

namespace {

using Uid = std::uint64_t;

// Thrown inside the reader only; the public functions turn it into nullopt.
class ArchiveError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

[[noreturn]] void fail(const std::string &reason)
{
    throw ArchiveError(reason);
}

enum class ArchiveClass { node, filter, array, string };

struct KnownClass
{
    std::string_view name;
    ArchiveClass archiveClass;
    TLBinNodeKind kind;
};

// The only classes an archive may name; nothing is ever made by an
// arbitrary name.
constexpr KnownClass knownClasses[] = {
    {"TLRegularBin", ArchiveClass::node, TLBinNodeKind::regularBin},
    {"TLSmartBin", ArchiveClass::node, TLBinNodeKind::smartBin},
    {"TLBinRangeItem", ArchiveClass::node, TLBinNodeKind::binRangeItem},
    {"TLSmartRangeItem", ArchiveClass::node, TLBinNodeKind::smartRangeItem},
    {"TLMediaItem", ArchiveClass::node, TLBinNodeKind::mediaItem},
    {"TLSmartBinFilter", ArchiveClass::filter, {}},
    {"NSArray", ArchiveClass::array, {}},
    {"NSMutableArray", ArchiveClass::array, {}},
    {"NSString", ArchiveClass::string, {}},
    {"NSMutableString", ArchiveClass::string, {}},
};

using KindSet = unsigned;

constexpr KindSet kindBit(TLBinNodeKind kind)
{
    return 1u << static_cast<unsigned>(kind);
}

// What bins may hold: a regular bin (and the top level) any bin; smart bins
// and smart ranges their media items, and a smart bin, which the editing
// commands allow to be added under them.
constexpr KindSet binKinds = kindBit(TLBinNodeKind::regularBin) | kindBit(TLBinNodeKind::smartBin)
    | kindBit(TLBinNodeKind::binRangeItem) | kindBit(TLBinNodeKind::smartRangeItem);
constexpr KindSet clipKinds = kindBit(TLBinNodeKind::mediaItem) | kindBit(TLBinNodeKind::smartBin);

// Decoded texts are capped in total: equal strings may be shared in the
// table, and every node keeps a copy of its own.
constexpr std::size_t maximumTextBytes = TLPropertyList::maximumByteCount;

// Reads an object's fields in the order they were written.
class EntryFields
{
public:
    explicit EntryFields(plist_t entry) : m_entry(entry) {}

    // The next unkeyed field; null when missing (read as nil).
    plist_t next() { return TLPropertyList::dictionaryItem(m_entry, "$" + std::to_string(m_next++)); }

    std::int64_t integer(std::string_view key) const
    {
        const plist_t value = TLPropertyList::dictionaryItem(m_entry, key);
        if (!value)
            return 0;
        const auto number = TLPropertyList::integerValue(value);
        if (!number)
            fail("the integer \"" + std::string(key) + "\" holds something else");
        return *number;
    }

private:
    plist_t m_entry;
    int m_next = 0;
};

class ArchiveReader
{
public:
    TLNodeList read(plist_t archive)
    {
        const plist_t top = readHeader(archive);
        const Uid root = reference(TLPropertyList::dictionaryItem(top, "root"));
        if (root == 0)
            fail("the archive has no root object");
        TLNodeList nodes = readNodeList(root, binKinds, 0, 0);
        if (m_repairedParents > 0)
            TLLog::appendLog("Settings archive: %i parent references did not name the bin holding them; the "
                             "holders were taken instead",
                             m_repairedParents);
        return nodes;
    }

private:
    enum class Role : std::uint8_t { unused, string, classDescriptor, list, filter, nodeInProgress, node };
    long m_repairedParents = 0;

    plist_t readHeader(plist_t archive)
    {
        if (TLPropertyList::stringValue(TLPropertyList::dictionaryItem(archive, "$archiver")) != "NSKeyedArchiver"
            || TLPropertyList::integerValue(TLPropertyList::dictionaryItem(archive, "$version")) != 100000)
            fail("not a keyed archive");
        const plist_t top = TLPropertyList::dictionaryItem(archive, "$top");
        const plist_t objects = TLPropertyList::dictionaryItem(archive, "$objects");
        if (!top || plist_get_node_type(top) != PLIST_DICT || !objects || plist_get_node_type(objects) != PLIST_ARRAY)
            fail("the archive lacks its top or object table");
        m_entries = TLPropertyList::arrayItems(objects);
        m_count = m_entries.size();
        if (m_count == 0 || TLPropertyList::stringValue(entry(0)) != "$null")
            fail("the object table does not start with $null");
        m_roles.assign(m_count, Role::unused);
        return top;
    }

    plist_t entry(Uid uid) const { return m_entries[uid]; }

    plist_t dictionaryEntry(Uid uid) const
    {
        const plist_t value = entry(uid);
        if (plist_get_node_type(value) != PLIST_DICT)
            fail("object " + std::to_string(uid) + " is not an object dictionary");
        return value;
    }

    // A missing field reads as nil; anything else must be a reference.
    Uid reference(plist_t value) const
    {
        if (!value)
            return 0;
        const auto uid = TLPropertyList::uidValue(value);
        if (!uid)
            fail("a field that must be a reference holds something else");
        if (*uid >= m_count)
            fail("reference " + std::to_string(*uid) + " is out of range");
        return *uid;
    }

    void claim(Uid uid, Role role)
    {
        if (m_roles[uid] != Role::unused && m_roles[uid] != role)
            fail("object " + std::to_string(uid) + " is used as two different things");
        m_roles[uid] = role;
    }

    const KnownClass &classOf(plist_t object)
    {
        const Uid uid = reference(TLPropertyList::dictionaryItem(object, "$class"));
        if (uid == 0)
            fail("an object has no class");
        if (const auto known = m_classes.find(uid); known != m_classes.end())
            return *known->second;
        claim(uid, Role::classDescriptor);
        const plist_t descriptor = dictionaryEntry(uid);
        const auto name = TLPropertyList::stringValue(TLPropertyList::dictionaryItem(descriptor, "$classname"));
        if (!name)
            fail("a class descriptor has no name");
        checkClassChain(TLPropertyList::dictionaryItem(descriptor, "$classes"));
        for (const auto &known : knownClasses) {
            if (known.name == *name)
                return *(m_classes[uid] = &known);
        }
        fail("unknown class \"" + name->substr(0, 64) + "\"");
    }

    static void checkClassChain(plist_t chain)
    {
        if (!chain)
            return;
        if (plist_get_node_type(chain) != PLIST_ARRAY)
            fail("a class chain is not a list");
        for (const plist_t name : TLPropertyList::arrayItems(chain)) {
            if (!TLPropertyList::stringValue(name))
                fail("a class chain holds something other than a name");
        }
    }

    std::optional<std::string> readString(plist_t field)
    {
        const Uid uid = reference(field);
        if (uid == 0)
            return std::nullopt;
        const plist_t value = entry(uid);
        auto text = TLPropertyList::stringValue(value);
        if (!text && plist_get_node_type(value) == PLIST_DICT && classOf(value).archiveClass == ArchiveClass::string)
            text = TLPropertyList::stringValue(TLPropertyList::dictionaryItem(value, "NS.string"));
        if (!text)
            fail("a text field refers to something else");
        claim(uid, Role::string);
        m_textBytes += text->size();
        if (m_textBytes > maximumTextBytes)
            fail("the archive's texts are too long");
        return text;
    }

    // The elements of a list object, which may be used only once.
    plist_t listItems(Uid uid)
    {
        const plist_t list = dictionaryEntry(uid);
        if (classOf(list).archiveClass != ArchiveClass::array)
            fail("a list field refers to something else");
        if (m_roles[uid] != Role::unused)
            fail("list " + std::to_string(uid) + " stands in two places");
        m_roles[uid] = Role::list;
        const plist_t items = TLPropertyList::dictionaryItem(list, "NS.objects");
        if (!items || plist_get_node_type(items) != PLIST_ARRAY)
            fail("a list has no elements array");
        return items;
    }

    template <typename ReadItem>
    void forEachListItem(Uid uid, ReadItem readItem)
    {
        if (uid == 0)
            return;
        for (const plist_t element : TLPropertyList::arrayItems(listItems(uid))) {
            const Uid item = reference(element);
            if (item == 0)
                fail("a list holds nil");
            readItem(item);
        }
    }

    TLNodeList readNodeList(Uid uid, KindSet allowed, Uid container, int depth)
    {
        TLNodeList nodes;
        forEachListItem(uid, [&](Uid item) { nodes.push_back(readNode(item, allowed, container, depth + 1)); });
        return nodes;
    }

    TLFilterList readFilterList(Uid uid)
    {
        TLFilterList filters;
        forEachListItem(uid, [&](Uid item) { filters.push_back(readFilter(item)); });
        return filters;
    }

    // Filters hold no references, so one shared by several lists is harmless
    // and decodes to one object.
    std::shared_ptr<TLSmartBinFilter> readFilter(Uid uid)
    {
        if (const auto known = m_filters.find(uid); known != m_filters.end())
            return known->second;
        const plist_t value = dictionaryEntry(uid);
        if (classOf(value).archiveClass != ArchiveClass::filter)
            fail("a filter list holds something else");
        claim(uid, Role::filter);
        EntryFields fields(value);
        const auto type = fields.integer("filterType");
        const auto match = fields.integer("filterMatch");
        auto filter = TLSmartBinFilter::create(type, match, readString(fields.next()).value_or(""));
        return m_filters[uid] = filter;
    }

    TLBinNodePtr readNode(Uid uid, KindSet allowed, Uid container, int depth)
    {
        if (m_roles[uid] == Role::nodeInProgress)
            fail("node " + std::to_string(uid) + " contains itself");
        if (m_roles[uid] == Role::node)
            fail("node " + std::to_string(uid) + " stands in two lists");
        if (depth > TLKeyedUnarchiver::maximumDepth)
            fail("bins are nested too deeply");
        if (++m_nodeCount > TLKeyedUnarchiver::maximumNodeCount)
            fail("the archive holds too many nodes");
        const plist_t value = dictionaryEntry(uid);
        const auto &known = classOf(value);
        if (known.archiveClass != ArchiveClass::node)
            fail("a list of bins holds a " + std::string(known.name));
        if (!(allowed & kindBit(known.kind)))
            fail("a " + std::string(known.name) + " stands where it cannot");
        claim(uid, Role::nodeInProgress);
        EntryFields fields(value);
        auto node = readFields(known.kind, fields, uid, container, depth);
        m_roles[uid] = Role::node;
        return node;
    }

    // A back reference should name the node that holds this one. It is
    // never followed, since the tree sets parents from containment, so one
    // that names anything else (or nothing that exists) costs nothing but a
    // note: the holder is taken, and the rest of the tree is kept.
    void readParent(plist_t field, Uid container)
    {
        if (!field)
            return;
        const std::optional<std::uint64_t> parent = TLPropertyList::uidValue(field);
        if (!parent)
            fail("a field that must be a reference holds something else");
        if (*parent != 0 && *parent != container)
            ++m_repairedParents;
    }

    TLBinNodePtr readFields(TLBinNodeKind kind, EntryFields &fields, Uid uid, Uid container, int depth)
    {
        switch (kind) {
        case TLBinNodeKind::regularBin:
            return readRegularBin(fields, uid, container, depth);
        case TLBinNodeKind::smartBin:
            return readSmartBin(fields, uid, container, depth);
        case TLBinNodeKind::binRangeItem:
            return readBinRangeItem(fields, container);
        case TLBinNodeKind::smartRangeItem:
            return readSmartRangeItem(fields, uid, container, depth);
        case TLBinNodeKind::mediaItem:
            break;
        }
        auto filePath = readString(fields.next());
        auto shortName = readString(fields.next()).value_or("");
        return TLMediaItem::create(std::move(filePath), std::move(shortName), readString(fields.next()));
    }

    TLBinNodePtr readRegularBin(EntryFields &fields, Uid uid, Uid container, int depth)
    {
        auto bin = TLRegularBin::create();
        bin->setBinName(readString(fields.next()).value_or(""));
        bin->setChildren(readNodeList(reference(fields.next()), binKinds, uid, depth));
        readParent(fields.next(), container);
        return bin;
    }

    TLBinNodePtr readSmartBin(EntryFields &fields, Uid uid, Uid container, int depth)
    {
        auto bin = TLSmartBin::create();
        bin->setFilterArray(readFilterList(reference(fields.next())));
        bin->setBinName(readString(fields.next()).value_or(""));
        bin->setMatchType(fields.integer("matchType"));
        bin->setChildren(readNodeList(reference(fields.next()), clipKinds, uid, depth));
        readParent(fields.next(), container);
        bin->setUuid(readString(fields.next()));
        return bin;
    }

    TLBinNodePtr readBinRangeItem(EntryFields &fields, Uid container)
    {
        auto item = std::make_shared<TLBinRangeItem>();
        item->setBinName(readString(fields.next()).value_or(""));
        item->setRangeExpression(readString(fields.next()).value_or(""));
        item->setRangeCount(fields.integer("rangeCount"));
        item->setRangeCurrentIndex(fields.integer("rangeCurrentIndex"));
        readParent(fields.next(), container);
        item->setUuid(readString(fields.next()));
        return item;
    }

    TLBinNodePtr readSmartRangeItem(EntryFields &fields, Uid uid, Uid container, int depth)
    {
        auto item = TLSmartRangeItem::create(readString(fields.next()).value_or(""), fields.integer("criteria"));
        item->setChildren(readNodeList(reference(fields.next()), clipKinds, uid, depth));
        readParent(fields.next(), container);
        item->setUuid(readString(fields.next()));
        return item;
    }

    // The object table, indexed once: libplist's own indexing of a parsed
    // array is linear per access.
    std::vector<plist_t> m_entries;
    Uid m_count = 0;
    std::vector<Role> m_roles;
    std::unordered_map<Uid, const KnownClass *> m_classes;
    std::unordered_map<Uid, std::shared_ptr<TLSmartBinFilter>> m_filters;
    std::size_t m_nodeCount = 0;
    std::size_t m_textBytes = 0;
};

} // namespace

std::optional<TLNodeList> TLKeyedUnarchiver::unarchiveObjectWithData(std::string_view data)
{
    std::string ignored;
    return unarchiveObjectWithData(data, ignored);
}

std::optional<TLNodeList> TLKeyedUnarchiver::unarchiveObjectWithData(std::string_view data, std::string &reason)
{
    const auto archive = TLPropertyList::fromBytes(data, reason);
    if (!archive)
        return std::nullopt;
    return unarchiveObjectWithPropertyList(archive.root(), reason);
}

std::optional<TLNodeList> TLKeyedUnarchiver::unarchiveObjectWithPropertyList(plist_t archive, std::string &reason)
{
    try {
        return ArchiveReader().read(archive);
    } catch (const std::exception &error) {
        reason = error.what();
        return std::nullopt;
    }
}
