// Keyed-archive writer for bin trees.
#include "TLKeyedArchiver.h"

#include "TLBinRangeItem.h"
#include "TLKeyedUnarchiver.h"
#include "TLMediaItem.h"
#include "TLSmartBin.h"
#include "TLSmartRangeItem.h"

#include <initializer_list>
#include <utility>
#include <vector>
#include <unordered_map>

namespace {

using Uid = std::uint64_t;

// The object fields of one entry: unkeyed fields take "$0", "$1", ... in
// call order; integers go inline under their own keys.
class EntryFields
{
public:
    EntryFields() : m_dictionary(plist_new_dict()) {}
    ~EntryFields() { plist_free(m_dictionary); }
    EntryFields(const EntryFields &) = delete;
    EntryFields &operator=(const EntryFields &) = delete;

    void object(Uid uid) { set("$" + std::to_string(m_next++), plist_new_uid(uid)); }
    void integer(const char *key, std::int64_t value) { set(key, plist_new_uint(static_cast<std::uint64_t>(value))); }
    void set(const std::string &key, plist_t value) { plist_dict_set_item(m_dictionary, key.c_str(), value); }
    plist_t release() { return std::exchange(m_dictionary, nullptr); }

private:
    plist_t m_dictionary;
    int m_next = 0;
};

class ArchiveWriter
{
public:
    ArchiveWriter() = default;
    ArchiveWriter(const ArchiveWriter &) = delete;
    ArchiveWriter &operator=(const ArchiveWriter &) = delete;
    ~ArchiveWriter()
    {
        for (plist_t entry : m_entries) {
            if (entry)
                plist_free(entry);
        }
    }

    TLPropertyList write(const TLNodeList &rootObject)
    {
        append(plist_new_string("$null"));
        const Uid root = writeNodeList(rootObject, 0, 0);
        if (m_failed)
            return {};
        auto archive = TLPropertyList::newDictionary();
        archive.setStringForKey("$archiver", "NSKeyedArchiver");
        archive.setIntegerForKey("$version", 100000);
        plist_t top = plist_new_dict();
        plist_dict_set_item(top, "root", plist_new_uid(root));
        plist_dict_set_item(archive.root(), "$top", top);
        plist_t objects = plist_new_array();
        for (plist_t &entry : m_entries)
            plist_array_append_item(objects, std::exchange(entry, nullptr));
        plist_dict_set_item(archive.root(), "$objects", objects);
        return archive;
    }

private:
    Uid append(plist_t entry)
    {
        m_entries.push_back(entry);
        return m_entries.size() - 1;
    }

    // Entries take their place when first met and are filled in once their
    // fields are written, so children get higher numbers than their parents.
    Uid reserve() { return append(nullptr); }
    void fill(Uid slot, plist_t entry) { m_entries[slot] = entry; }

    Uid writeString(const std::optional<std::string> &text)
    {
        return text ? append(plist_new_string(text->c_str())) : 0;
    }

    Uid classUid(const std::string &name, std::initializer_list<const char *> superclasses)
    {
        if (auto known = m_classes.find(name); known != m_classes.end())
            return known->second;
        plist_t descriptor = plist_new_dict();
        plist_dict_set_item(descriptor, "$classname", plist_new_string(name.c_str()));
        plist_t chain = plist_new_array();
        plist_array_append_item(chain, plist_new_string(name.c_str()));
        for (const char *superclass : superclasses)
            plist_array_append_item(chain, plist_new_string(superclass));
        plist_dict_set_item(descriptor, "$classes", chain);
        return m_classes[name] = append(descriptor);
    }

    void finish(Uid slot, EntryFields &fields, Uid classReference)
    {
        fields.set("$class", plist_new_uid(classReference));
        fill(slot, fields.release());
    }

    template <typename Item, typename WriteItem>
    Uid writeArray(const std::vector<std::shared_ptr<Item>> &items, WriteItem writeItem)
    {
        const Uid slot = reserve();
        plist_t references = plist_new_array();
        for (const auto &item : items) {
            if (item && !m_failed)
                plist_array_append_item(references, plist_new_uid(writeItem(item)));
        }
        EntryFields fields;
        fields.set("NS.objects", references);
        finish(slot, fields, classUid("NSMutableArray", {"NSArray", "NSObject"}));
        return slot;
    }

    Uid writeNodeList(const TLNodeList &nodes, Uid container, int depth)
    {
        return writeArray(nodes, [&](const TLBinNodePtr &node) { return writeNode(*node, container, depth + 1); });
    }

    Uid writeFilter(const TLSmartBinFilter &filter)
    {
        if (auto known = m_filters.find(&filter); known != m_filters.end())
            return known->second;
        const Uid slot = m_filters[&filter] = reserve();
        EntryFields fields;
        fields.integer("filterType", filter.filterType());
        fields.integer("filterMatch", filter.filterMatch());
        fields.object(writeString(filter.filterString()));
        finish(slot, fields, classUid("TLSmartBinFilter", {"NSObject"}));
        return slot;
    }

    Uid writeNode(const TLBinNode &node, Uid container, int depth)
    {
        if (m_nodes.contains(&node) || depth > TLKeyedUnarchiver::maximumDepth
            || m_nodes.size() >= TLKeyedUnarchiver::maximumNodeCount) {
            m_failed = true;
            return 0;
        }
        const Uid slot = m_nodes[&node] = reserve();
        EntryFields fields;
        writeFields(node, slot, container, depth, fields);
        finish(slot, fields, classUid(std::string(node.className()), {"NSObject"}));
        return slot;
    }

    void writeFields(const TLBinNode &node, Uid slot, Uid container, int depth, EntryFields &fields)
    {
        switch (node.kind()) {
        case TLBinNodeKind::regularBin:
            fields.object(writeString(node.binName()));
            fields.object(writeNodeList(*node.children(), slot, depth));
            fields.object(container);
            return;
        case TLBinNodeKind::smartBin: {
            const auto &bin = static_cast<const TLSmartBin &>(node);
            fields.object(writeArray(*bin.filterArray(), [&](const auto &filter) { return writeFilter(*filter); }));
            fields.object(writeString(node.binName()));
            fields.integer("matchType", bin.matchType());
            fields.object(writeNodeList(*node.children(), slot, depth));
            fields.object(container);
            fields.object(writeString(node.uuid()));
            return;
        }
        case TLBinNodeKind::binRangeItem: {
            const auto &item = static_cast<const TLBinRangeItem &>(node);
            fields.object(writeString(node.binName()));
            fields.object(writeString(item.rangeExpression()));
            fields.integer("rangeCount", item.rangeCount());
            fields.integer("rangeCurrentIndex", item.rangeCurrentIndex());
            fields.object(container);
            fields.object(writeString(node.uuid()));
            return;
        }
        case TLBinNodeKind::smartRangeItem:
            fields.object(writeString(node.binName()));
            fields.integer("criteria", static_cast<const TLSmartRangeItem &>(node).criteria());
            fields.object(writeNodeList(*node.children(), slot, depth));
            fields.object(container);
            fields.object(writeString(node.uuid()));
            return;
        case TLBinNodeKind::mediaItem: {
            const auto &item = static_cast<const TLMediaItem &>(node);
            fields.object(writeString(item.filePath()));
            fields.object(writeString(item.shortName()));
            fields.object(writeString(node.uuid()));
            return;
        }
        }
    }

    std::vector<plist_t> m_entries;
    std::unordered_map<std::string, Uid> m_classes;
    std::unordered_map<const TLBinNode *, Uid> m_nodes;
    std::unordered_map<const TLSmartBinFilter *, Uid> m_filters;
    bool m_failed = false;
};

} // namespace

TLPropertyList TLKeyedArchiver::archivedPropertyListWithRootObject(const TLNodeList &rootObject)
{
    try {
        return ArchiveWriter().write(rootObject);
    } catch (...) {
        return {};
    }
}

std::optional<std::string> TLKeyedArchiver::archivedDataWithRootObject(const TLNodeList &rootObject)
{
    const auto archive = archivedPropertyListWithRootObject(rootObject);
    return archive.toBinary();
}
