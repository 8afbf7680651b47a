// Keyed-archive writer for bin trees: binary property-list bytes written straight from the tree.
#include "TLKeyedArchiver.h"

#include "TLBinRangeItem.h"
#include "TLBinaryPropertyListEncoding.h"
#include "TLKeyedUnarchiver.h"
#include "TLMediaItem.h"
#include "TLSmartBin.h"
#include "TLSmartRangeItem.h"
#include "TLTextCoding.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <limits>
#include <span>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace {

using Uid = std::uint64_t;
using Encoding = TLBinaryPropertyListEncoding;

// ---- The classes an archive names ----

// Where a field of an archived object takes its value from. The integers,
// written inline rather than as references, come last.
enum class Source : std::uint8_t {
    binName, rangeExpression, filePath, shortName, uuid, filterString, filters, children, parent,
    matchType, rangeCount, rangeCurrentIndex, criteria, filterType, filterMatch,
};

bool isInteger(Source source)
{
    return source >= Source::matchType;
}

struct Field
{
    std::string_view key;
    Source source;
};

// Each class's fields in the order the reader decodes them: object fields
// take "$0", "$1", ... in that order, and the integers sit where the class
// encodes them, which fixes the order of the dictionary's entries.
constexpr Field regularBinFields[] = {{"$0", Source::binName}, {"$1", Source::children}, {"$2", Source::parent}};
constexpr Field smartBinFields[] = {{"$0", Source::filters},         {"$1", Source::binName},
                                    {"matchType", Source::matchType}, {"$2", Source::children},
                                    {"$3", Source::parent},           {"$4", Source::uuid}};
constexpr Field binRangeItemFields[] = {{"$0", Source::binName}, {"$1", Source::rangeExpression},
                                        {"rangeCount", Source::rangeCount},
                                        {"rangeCurrentIndex", Source::rangeCurrentIndex},
                                        {"$2", Source::parent}, {"$3", Source::uuid}};
constexpr Field smartRangeItemFields[] = {{"$0", Source::binName}, {"criteria", Source::criteria},
                                          {"$1", Source::children}, {"$2", Source::parent}, {"$3", Source::uuid}};
constexpr Field mediaItemFields[] = {{"$0", Source::filePath}, {"$1", Source::shortName}, {"$2", Source::uuid}};
constexpr Field filterFields[] = {{"filterType", Source::filterType}, {"filterMatch", Source::filterMatch},
                                  {"$0", Source::filterString}};
constexpr std::size_t maximumFieldCount = 6;

constexpr std::string_view objectSuperclasses[] = {"NSObject"};
constexpr std::string_view listSuperclasses[] = {"NSArray", "NSObject"};

struct ArchiveClass
{
    std::string_view name;
    std::span<const std::string_view> superclasses; // nearest first
    std::span<const Field> fields;                  // none for the list class
};

enum class ClassId : std::uint8_t { regularBin, smartBin, binRangeItem, smartRangeItem, mediaItem, filter, list };
constexpr std::size_t classCount = 7;

const ArchiveClass &archiveClass(ClassId id)
{
    static const ArchiveClass classes[classCount] = {
        {TLBinNode::className(TLBinNodeKind::regularBin), objectSuperclasses, regularBinFields},
        {TLBinNode::className(TLBinNodeKind::smartBin), objectSuperclasses, smartBinFields},
        {TLBinNode::className(TLBinNodeKind::binRangeItem), objectSuperclasses, binRangeItemFields},
        {TLBinNode::className(TLBinNodeKind::smartRangeItem), objectSuperclasses, smartRangeItemFields},
        {TLBinNode::className(TLBinNodeKind::mediaItem), objectSuperclasses, mediaItemFields},
        {"TLSmartBinFilter", objectSuperclasses, filterFields},
        {"NSMutableArray", listSuperclasses, {}},
    };
    return classes[static_cast<std::size_t>(id)];
}

ClassId classOf(TLBinNodeKind kind)
{
    switch (kind) {
    case TLBinNodeKind::regularBin:
        return ClassId::regularBin;
    case TLBinNodeKind::smartBin:
        return ClassId::smartBin;
    case TLBinNodeKind::binRangeItem:
        return ClassId::binRangeItem;
    case TLBinNodeKind::smartRangeItem:
        return ClassId::smartRangeItem;
    case TLBinNodeKind::mediaItem:
        return ClassId::mediaItem;
    }
    return ClassId::regularBin;
}

// ---- The object table ----

enum class EntryKind : std::uint8_t { text, object, list, classDescriptor };

// One entry of "$objects", kept small: a text lives in the table's text
// buffer; an object's field values or a list's elements live in the table's
// value list, followed by the reference to their class descriptor.
struct Entry
{
    std::uint64_t first = 0; // where the text or the values start
    std::uint64_t count = 0; // the text's length, or the number of values
    EntryKind kind = EntryKind::text;
    ClassId classId = ClassId::list; // of an object, a list or a descriptor
};

// The "$objects" table read from the tree. The tree is read into it once:
// the bytes are written in two passes, which must see the same values even
// when the tree is edited meanwhile.
class ArchiveTable
{
public:
    Uid size() const { return m_entries.size(); }
    const Entry &operator[](Uid uid) const { return m_entries[uid]; }
    std::string_view text(const Entry &entry) const { return std::string_view(m_texts).substr(entry.first, entry.count); }
    std::span<const std::uint64_t> values(const Entry &entry) const
    {
        return std::span(m_values).subspan(entry.first, entry.count);
    }
    Uid classReference(const Entry &entry) const { return m_values[entry.first + entry.count]; }
    Uid root() const { return m_root; }

    void setRoot(Uid root) { m_root = root; }
    Uid addText(std::string_view text)
    {
        m_entries.push_back({m_texts.size(), text.size(), EntryKind::text});
        m_texts.append(text);
        return size() - 1;
    }
    Uid addClassDescriptor(ClassId id)
    {
        m_entries.push_back({0, 0, EntryKind::classDescriptor, id});
        return size() - 1;
    }
    // An entry takes its place when first met and is filled in once its
    // values are known, so what it holds gets higher numbers than itself.
    Uid reserve()
    {
        m_entries.emplace_back();
        return size() - 1;
    }
    void fill(Uid slot, EntryKind kind, ClassId id, std::span<const std::uint64_t> values, Uid classReference)
    {
        m_entries[slot] = {m_values.size(), values.size(), kind, id};
        m_values.insert(m_values.end(), values.begin(), values.end());
        m_values.push_back(classReference);
    }

private:
    std::vector<Entry> m_entries;
    std::vector<std::uint64_t> m_values;
    std::string m_texts;
    Uid m_root = 0;
};

// Reads the tree into the table in the order macOS's archiver meets it: an
// entry comes before what its fields hold, and a class's descriptor right
// after the fields of its first instance.
class TableBuilder
{
public:
    std::optional<ArchiveTable> build(const TLNodeList &rootObject)
    {
        m_table.addText("$null");
        m_table.setRoot(writeNodeList(rootObject, 0, 0));
        if (m_failed)
            return std::nullopt;
        return std::move(m_table);
    }

private:
    // Every string is an entry of its own; equal ones are shared only in the bytes.
    Uid writeString(const std::optional<std::string> &text)
    {
        if (!text)
            return 0;
        return m_table.addText(std::string_view(*text).substr(0, text->find('\0')));
    }

    Uid classReference(ClassId id)
    {
        Uid &reference = m_classReferences[static_cast<std::size_t>(id)];
        if (reference == 0)
            reference = m_table.addClassDescriptor(id);
        return reference;
    }

    template <typename Item, typename WriteItem>
    Uid writeList(const std::vector<std::shared_ptr<Item>> &items, WriteItem writeItem)
    {
        const Uid slot = m_table.reserve();
        std::vector<std::uint64_t> elements;
        elements.reserve(items.size());
        for (const auto &item : items) {
            if (item && !m_failed)
                elements.push_back(writeItem(*item));
        }
        m_table.fill(slot, EntryKind::list, ClassId::list, elements, classReference(ClassId::list));
        return slot;
    }

    Uid writeNodeList(const TLNodeList &nodes, Uid container, int depth)
    {
        return writeList(nodes, [&](const TLBinNode &node) { return writeNode(node, container, depth + 1); });
    }

    Uid writeNode(const TLBinNode &node, Uid container, int depth)
    {
        if (m_nodes.contains(&node) || depth > TLKeyedUnarchiver::maximumDepth
            || m_nodes.size() >= TLKeyedUnarchiver::maximumNodeCount) {
            m_failed = true;
            return 0;
        }
        m_nodes.insert(&node);
        const Uid slot = m_table.reserve();
        writeObject(slot, classOf(node.kind()),
                    [&](Source source) { return nodeValue(node, source, slot, container, depth); });
        return slot;
    }

    // A filter row listed twice is one entry referred to twice.
    Uid writeFilter(const TLSmartBinFilter &filter)
    {
        if (const auto known = m_filters.find(&filter); known != m_filters.end())
            return known->second;
        const Uid slot = m_filters[&filter] = m_table.reserve();
        writeObject(slot, ClassId::filter, [&](Source source) { return filterValue(filter, source); });
        return slot;
    }

    template <typename ValueOf>
    void writeObject(Uid slot, ClassId id, ValueOf valueOf)
    {
        const std::span<const Field> fields = archiveClass(id).fields;
        std::array<std::uint64_t, maximumFieldCount> values{};
        for (std::size_t index = 0; index < fields.size() && !m_failed; ++index)
            values[index] = valueOf(fields[index].source);
        m_table.fill(slot, EntryKind::object, id, std::span(values).first(fields.size()), classReference(id));
    }

    static std::uint64_t integer(std::int64_t value) { return static_cast<std::uint64_t>(value); }

    // The casts are safe: a class lists only the sources its kind has.
    std::uint64_t nodeValue(const TLBinNode &node, Source source, Uid slot, Uid container, int depth)
    {
        switch (source) {
        case Source::binName:
            return writeString(node.binName());
        case Source::uuid:
            return writeString(node.uuid());
        case Source::children:
            return writeNodeList(*node.children(), slot, depth);
        case Source::parent:
            return container;
        case Source::filters:
            return writeList(*static_cast<const TLSmartBin &>(node).filterArray(),
                             [&](const TLSmartBinFilter &filter) { return writeFilter(filter); });
        case Source::matchType:
            return integer(static_cast<const TLSmartBin &>(node).matchType());
        case Source::rangeExpression:
            return writeString(static_cast<const TLBinRangeItem &>(node).rangeExpression());
        case Source::rangeCount:
            return integer(static_cast<const TLBinRangeItem &>(node).rangeCount());
        case Source::rangeCurrentIndex:
            return integer(static_cast<const TLBinRangeItem &>(node).rangeCurrentIndex());
        case Source::criteria:
            return integer(static_cast<const TLSmartRangeItem &>(node).criteria());
        case Source::filePath:
            return writeString(static_cast<const TLMediaItem &>(node).filePath());
        case Source::shortName:
            return writeString(static_cast<const TLMediaItem &>(node).shortName());
        default:
            return 0;
        }
    }

    std::uint64_t filterValue(const TLSmartBinFilter &filter, Source source)
    {
        if (source == Source::filterType)
            return integer(filter.filterType());
        if (source == Source::filterMatch)
            return integer(filter.filterMatch());
        return writeString(filter.filterString());
    }

    ArchiveTable m_table;
    std::array<Uid, classCount> m_classReferences{};
    std::unordered_set<const TLBinNode *> m_nodes;
    std::unordered_map<const TLSmartBinFilter *, Uid> m_filters;
    bool m_failed = false;
};

// ---- The property list ----

// The containers of the archive's property list: the archive dictionary,
// "$top" and "$objects", which come first (ObjectNumbering keeps their
// numbers by kind), then each entry's dictionary and the array inside it
// ("NS.objects" of a list, "$classes" of a class descriptor).
enum class ContainerKind : std::uint8_t { archive, top, objects, entryDictionary, entryArray };

struct Container
{
    ContainerKind kind = ContainerKind::archive;
    Uid entry = 0;
};

// The archive's own strings (keys, class names) are told apart from the
// strings of text entries, which the numbering finds through their entry.
enum class ObjectKind : std::uint8_t { string, entryString, uid, integer, container };

// One object of the property list, as the writer meets it.
struct PlistObject
{
    ObjectKind kind = ObjectKind::string;
    std::string_view text{};  // of a string
    std::uint64_t value = 0;  // of a UID or an integer; an entry string's entry
    Container container{};    // of a container
};

PlistObject stringObject(std::string_view text) { return {.kind = ObjectKind::string, .text = text}; }
PlistObject entryStringObject(std::string_view text, Uid uid)
{
    return {.kind = ObjectKind::entryString, .text = text, .value = uid};
}
PlistObject uidObject(Uid uid) { return {.kind = ObjectKind::uid, .value = uid}; }
PlistObject integerObject(std::uint64_t value) { return {.kind = ObjectKind::integer, .value = value}; }
PlistObject containerObject(ContainerKind kind, Uid entry = 0)
{
    return {.kind = ObjectKind::container, .container = {kind, entry}};
}

// The property list of the archive, seen through the table without being
// built: what each container holds, in order.
class ArchivePropertyList
{
public:
    explicit ArchivePropertyList(const ArchiveTable &table) : m_table(table) {}

    const ArchiveTable &table() const { return m_table; }
    static bool isDictionary(Container container)
    {
        return container.kind != ContainerKind::objects && container.kind != ContainerKind::entryArray;
    }
    bool entryHasArray(Uid uid) const
    {
        return m_table[uid].kind == EntryKind::list || m_table[uid].kind == EntryKind::classDescriptor;
    }

    // How many entries a dictionary has, or elements an array.
    std::uint64_t size(Container container) const
    {
        std::uint64_t members = 0;
        forEachMember(container, [&](const PlistObject &, bool) { ++members; });
        return isDictionary(container) ? members / 2 : members;
    }

    // Calls visit(object, isKey) for what a container holds, in the order
    // the writer numbers it: a dictionary's value before its key.
    template <typename Visit>
    void forEachMember(Container container, Visit visit) const
    {
        const auto field = [&](std::string_view key, const PlistObject &value) {
            visit(value, false);
            visit(stringObject(key), true);
        };
        const auto element = [&](const PlistObject &object) { visit(object, false); };
        if (container.kind == ContainerKind::archive) {
            field("$archiver", stringObject("NSKeyedArchiver"));
            field("$version", integerObject(100000));
            field("$top", containerObject(ContainerKind::top));
            field("$objects", containerObject(ContainerKind::objects));
        } else if (container.kind == ContainerKind::top) {
            field("root", uidObject(m_table.root()));
        } else if (container.kind == ContainerKind::objects) {
            for (Uid uid = 0; uid < m_table.size(); ++uid)
                element(entryObject(uid));
        } else if (container.kind == ContainerKind::entryDictionary) {
            forEachEntryField(container.entry, field);
        } else {
            forEachEntryElement(container.entry, element);
        }
    }

private:
    // Texts are plain strings in "$objects"; every other entry is a dictionary.
    PlistObject entryObject(Uid uid) const
    {
        const Entry &entry = m_table[uid];
        if (entry.kind == EntryKind::text)
            return entryStringObject(m_table.text(entry), uid);
        return containerObject(ContainerKind::entryDictionary, uid);
    }

    template <typename VisitField>
    void forEachEntryField(Uid uid, VisitField field) const
    {
        const Entry &entry = m_table[uid];
        const ArchiveClass &entryClass = archiveClass(entry.classId);
        if (entry.kind == EntryKind::classDescriptor) {
            field("$classname", stringObject(entryClass.name));
            field("$classes", containerObject(ContainerKind::entryArray, uid));
            return;
        }
        if (entry.kind == EntryKind::list)
            field("NS.objects", containerObject(ContainerKind::entryArray, uid));
        const auto values = entry.kind == EntryKind::object ? m_table.values(entry) : std::span<const std::uint64_t>();
        for (std::size_t index = 0; index < values.size(); ++index) {
            const Source source = entryClass.fields[index].source;
            field(entryClass.fields[index].key, isInteger(source) ? integerObject(values[index]) : uidObject(values[index]));
        }
        field("$class", uidObject(m_table.classReference(entry)));
    }

    template <typename VisitElement>
    void forEachEntryElement(Uid uid, VisitElement element) const
    {
        const Entry &entry = m_table[uid];
        if (entry.kind == EntryKind::list) {
            for (const Uid reference : m_table.values(entry))
                element(uidObject(reference));
            return;
        }
        const ArchiveClass &described = archiveClass(entry.classId);
        element(stringObject(described.name));
        for (const std::string_view superclass : described.superclasses)
            element(stringObject(superclass));
    }

    const ArchiveTable &m_table;
};

// ---- Numbering and writing ----

// Numbers the objects exactly as TLBinaryPropertyListWriter numbers a
// libplist tree, so that archives keep their bytes: a container's members
// get their numbers when the container is expanded, in order, a
// dictionary's value before its key; equal strings (keys included) and equal
// UIDs share the first one's number, integers and containers never do; and
// containers wait on a stack, so the last one met is expanded first.
class ObjectNumbering
{
public:
    explicit ObjectNumbering(const ArchivePropertyList &propertyList)
        : m_propertyList(propertyList), m_uidNumbers(propertyList.table().size(), unnumbered),
          m_entryNumbers(propertyList.table().size(), unnumbered)
    {
    }

    // Meets every object in the order of the numbers, calling onNew(object)
    // for each on its first meeting; returns the number of objects. The
    // first walk numbers them; later ones meet them again the same way and
    // may also ask for the numbers of a container's members.
    template <typename OnNew>
    std::uint64_t walk(OnNew onNew)
    {
        m_next = 0;
        meet(containerObject(ContainerKind::archive), onNew);
        expand({ContainerKind::archive}, onNew);
        // The archive dictionary left "$top" below "$objects" on the stack;
        // "$objects" leaves the entries' dictionaries in table order; each
        // dictionary leaves its array, if it has one, on top.
        expand({ContainerKind::objects}, onNew);
        for (Uid uid = m_propertyList.table().size(); uid-- > 0;) {
            if (m_propertyList.table()[uid].kind == EntryKind::text)
                continue;
            expand({ContainerKind::entryDictionary, uid}, onNew);
            if (m_propertyList.entryHasArray(uid))
                expand({ContainerKind::entryArray, uid}, onNew);
        }
        expand({ContainerKind::top}, onNew);
        // Once numbered, an entry's string has its number with the entry and
        // the archive's own strings theirs in a small map: the index of all
        // strings, as large as the tree's texts, can go.
        m_allStrings = StringNumbers();
        return m_next;
    }

    // Calls visit(number, isKey) for each member of a container, meeting
    // them again from where its expansion started in the numbering walk:
    // what was new there is new again. Returns the number after its last
    // new member.
    template <typename Visit>
    std::uint64_t forEachMemberNumber(Container container, Visit visit)
    {
        std::uint64_t next = expansionStart(container);
        m_propertyList.forEachMember(container, [&](const PlistObject &object, bool isKey) {
            const std::uint64_t number = numberOf(object, next);
            if (number == next)
                ++next;
            visit(number, isKey);
        });
        return next;
    }

private:
    using StringNumbers = std::unordered_map<std::string_view, std::uint64_t>;
    static constexpr std::uint64_t unnumbered = std::numeric_limits<std::uint64_t>::max();

    // The number of `object` when `next` is the next free one: `next` itself
    // when the object is new there.
    std::uint64_t numberOf(const PlistObject &object, std::uint64_t next)
    {
        if (object.kind == ObjectKind::entryString)
            return numberOfEntryString(object, next);
        if (object.kind == ObjectKind::string)
            return numberOfOwnString(object.text, next);
        if (object.kind != ObjectKind::uid)
            return next;
        std::uint64_t &number = m_uidNumbers[object.value];
        if (number == unnumbered)
            number = next;
        return number;
    }

    std::uint64_t numberOfEntryString(const PlistObject &object, std::uint64_t next)
    {
        std::uint64_t &number = m_entryNumbers[object.value];
        if (number == unnumbered)
            number = m_allStrings.try_emplace(object.text, next).first->second;
        return number;
    }

    std::uint64_t numberOfOwnString(std::string_view text, std::uint64_t next)
    {
        if (const auto known = m_ownStrings.find(text); known != m_ownStrings.end())
            return known->second;
        const std::uint64_t number = m_allStrings.try_emplace(text, next).first->second;
        m_ownStrings.emplace(text, number);
        return number;
    }

    template <typename OnNew>
    void meet(const PlistObject &object, OnNew &onNew)
    {
        if (numberOf(object, m_next) != m_next)
            return;
        ++m_next;
        onNew(object);
    }

    template <typename OnNew>
    void expand(Container container, OnNew &onNew)
    {
        recordExpansionStart(container);
        m_propertyList.forEachMember(container, [&](const PlistObject &object, bool) { meet(object, onNew); });
    }

    // An entry's array needs no record: it is expanded right after the
    // dictionary holding it.
    void recordExpansionStart(Container container)
    {
        if (container.kind == ContainerKind::entryDictionary)
            m_entryNumbers[container.entry] = m_next;
        else if (container.kind != ContainerKind::entryArray)
            m_fixedStarts[static_cast<std::size_t>(container.kind)] = m_next;
    }

    std::uint64_t expansionStart(Container container)
    {
        if (container.kind == ContainerKind::entryDictionary)
            return m_entryNumbers[container.entry];
        if (container.kind != ContainerKind::entryArray)
            return m_fixedStarts[static_cast<std::size_t>(container.kind)];
        return forEachMemberNumber({ContainerKind::entryDictionary, container.entry}, [](std::uint64_t, bool) {});
    }

    const ArchivePropertyList &m_propertyList;
    StringNumbers m_allStrings; // while numbering
    StringNumbers m_ownStrings;
    std::vector<std::uint64_t> m_uidNumbers; // by UID
    // By entry: its string's number, or where its dictionary's members start.
    std::vector<std::uint64_t> m_entryNumbers;
    std::array<std::uint64_t, 3> m_fixedStarts{}; // of the archive, "$top" and "$objects"
    std::uint64_t m_next = 0;
};

// Writes the objects in the order of their numbers, then where each one
// starts, then the trailer. The archive dictionary is always object 0.
class ArchiveWriter
{
public:
    explicit ArchiveWriter(const ArchiveTable &table) : m_propertyList(table), m_numbering(m_propertyList) {}

    std::string write()
    {
        const std::uint64_t count = m_numbering.walk([&](const PlistObject &object) { measure(object); });
        m_referenceWidth = Encoding::byteWidth(count - 1);
        // Reserved in full, the bytes are never copied to a larger buffer
        // as they grow; offsets take at most the width of the objects' end.
        const std::uint64_t objectsEnd = Encoding::header.size() + m_measuredBytes + m_measuredReferences * m_referenceWidth;
        m_out.reserve(objectsEnd + count * Encoding::byteWidth(objectsEnd) + trailerSize);
        m_offsets.reserve(count);
        m_out.append(Encoding::header);
        m_numbering.walk([&](const PlistObject &object) { appendObject(object); });
        appendTrailer();
        return std::move(m_out);
    }

private:
    static constexpr std::uint64_t trailerSize = 32;

    // The numbering walk learns the size of everything but the references,
    // whose width depends on how many objects there are.
    void measure(const PlistObject &object)
    {
        m_scratch.clear();
        if (object.kind == ObjectKind::container) {
            const std::uint64_t size = m_propertyList.size(object.container);
            appendContainerMarker(m_scratch, object.container, size);
            m_measuredReferences += ArchivePropertyList::isDictionary(object.container) ? 2 * size : size;
        } else {
            appendScalar(m_scratch, object);
        }
        m_measuredBytes += m_scratch.size();
    }

    void appendObject(const PlistObject &object)
    {
        m_offsets.push_back(m_out.size());
        if (object.kind == ObjectKind::container)
            appendContainer(object.container);
        else
            appendScalar(m_out, object);
    }

    static void appendScalar(std::string &out, const PlistObject &object)
    {
        if (object.kind == ObjectKind::string || object.kind == ObjectKind::entryString)
            Encoding::appendString(out, object.text);
        else if (object.kind == ObjectKind::uid)
            Encoding::appendUid(out, object.value);
        else
            Encoding::appendInteger(out, object.value);
    }

    static void appendContainerMarker(std::string &out, Container container, std::uint64_t size)
    {
        Encoding::appendMarkerWithCount(out, ArchivePropertyList::isDictionary(container) ? Encoding::dictionaryMarker : Encoding::arrayMarker,
                              size);
    }

    // A dictionary holds the references of all its keys, then of all its
    // values: keys go out as they are met, values wait for the last key.
    void appendContainer(Container container)
    {
        const bool isDictionary = ArchivePropertyList::isDictionary(container);
        appendContainerMarker(m_out, container, m_propertyList.size(container));
        m_dictionaryValues.clear();
        m_numbering.forEachMemberNumber(container, [&](std::uint64_t number, bool isKey) {
            if (isDictionary && !isKey)
                m_dictionaryValues.push_back(number);
            else
                Encoding::appendBigEndian(m_out, number, m_referenceWidth);
        });
        for (const std::uint64_t number : m_dictionaryValues)
            Encoding::appendBigEndian(m_out, number, m_referenceWidth);
    }

    void appendTrailer()
    {
        const std::uint64_t tableOffset = m_out.size();
        const unsigned offsetWidth = Encoding::byteWidth(m_offsets.back());
        for (const std::uint64_t offset : m_offsets)
            Encoding::appendBigEndian(m_out, offset, offsetWidth);
        m_out.append(6, '\0');
        m_out.push_back(static_cast<char>(offsetWidth));
        m_out.push_back(static_cast<char>(m_referenceWidth));
        Encoding::appendBigEndian(m_out, m_offsets.size(), 8);
        Encoding::appendBigEndian(m_out, 0, 8);
        Encoding::appendBigEndian(m_out, tableOffset, 8);
    }

    ArchivePropertyList m_propertyList;
    ObjectNumbering m_numbering;
    std::string m_out;
    std::vector<std::uint64_t> m_offsets;
    std::vector<std::uint64_t> m_dictionaryValues;
    std::string m_scratch;
    std::uint64_t m_measuredBytes = 0;
    std::uint64_t m_measuredReferences = 0;
    unsigned m_referenceWidth = 1;
};

} // namespace

std::optional<std::string> TLKeyedArchiver::archivedDataWithRootObject(const TLNodeList &rootObject)
{
    try {
        const std::optional<ArchiveTable> table = TableBuilder().build(rootObject);
        if (!table)
            return std::nullopt;
        return ArchiveWriter(*table).write();
    } catch (...) {
        // Only running out of memory can end up here: nothing is written then
        // rather than part of an archive.
        return std::nullopt;
    }
}
