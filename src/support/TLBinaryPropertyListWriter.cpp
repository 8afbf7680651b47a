// Binary property-list writer: numbers a libplist tree in one pass, writes it in another.
#include "TLBinaryPropertyListWriter.h"

#include "TLBinaryPropertyListEncoding.h"
#include "TLTextCoding.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

using Encoding = TLBinaryPropertyListEncoding;

enum class Kind : std::uint8_t { boolean, integer, real, date, data, string, uid, array, dictionary };

struct Object
{
    plist_t node = nullptr; // null for a string made from a dictionary key
    std::string_view text;  // a string's bytes, owned by the tree or by the writer
    std::uint64_t firstReference = 0;
    std::uint64_t referenceCount = 0; // a dictionary's key references, then its value references
    Kind kind = Kind::boolean;
};

struct FreeDeleter
{
    void operator()(void *pointer) const { std::free(pointer); }
};
// libplist hands out keys and iterators that the caller frees with free().
using MallocText = std::unique_ptr<char, FreeDeleter>;
using MallocIterator = std::unique_ptr<void, FreeDeleter>;

void appendMarker(std::string &out, unsigned marker)
{
    out.push_back(static_cast<char>(marker));
}

void appendReal(std::string &out, unsigned char marker, double value)
{
    appendMarker(out, marker);
    Encoding::appendBigEndian(out, std::bit_cast<std::uint64_t>(value), 8);
}

// libplist keeps a date as seconds since 2001 in a double, but its getter
// splits it lossily: before 2001 the microseconds come back without their
// sign, and a date in the second before 2001 loses its sign altogether. The
// exact double is read from libplist's binary form of the lone date node
// instead (a few dozen bytes, so the cost stays constant per date); the
// getter is only the fallback. plist_copy is avoided: it damages dates.
double dateSeconds(plist_t node)
{
    constexpr std::size_t loneDateSize = Encoding::header.size() + 9 + 1 + 32;
    char *bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(node, &bytes, &length);
    const bool isLoneDate = bytes && length == loneDateSize
        && static_cast<unsigned char>(bytes[Encoding::header.size()]) == Encoding::dateMarker;
    std::uint64_t bits = 0;
    for (std::size_t i = 1; isLoneDate && i <= 8; ++i)
        bits = (bits << 8) | static_cast<unsigned char>(bytes[Encoding::header.size() + i]);
    if (bytes)
        plist_to_bin_free(bytes);
    if (isLoneDate)
        return std::bit_cast<double>(bits);
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    return static_cast<double>(seconds) + static_cast<double>(microseconds) / 1e6;
}

std::string_view stringText(plist_t node)
{
    std::uint64_t length = 0;
    const char *text = plist_get_string_ptr(node, &length);
    return text ? std::string_view(text, length) : std::string_view();
}

class Writer
{
public:
    std::optional<std::string> write(plist_t root)
    {
        if (!root || !number(root))
            return std::nullopt;
        return serialise();
    }

private:
    // First pass: every object gets its index, every container the indices of
    // its elements. Containers are expanded from a work list rather than by
    // recursion, so the depth of the tree costs no stack.
    bool number(plist_t root)
    {
        if (!add(root))
            return false;
        while (!m_pending.empty()) {
            const std::uint64_t index = m_pending.back();
            m_pending.pop_back();
            const bool expanded = m_objects[index].kind == Kind::array ? expandArray(index) : expandDictionary(index);
            if (!expanded)
                return false;
        }
        return true;
    }

    std::uint64_t append(plist_t node, Kind kind)
    {
        m_objects.push_back(Object{node, {}, 0, 0, kind});
        return m_objects.size() - 1;
    }

    // The index of the object that stands for `node`; nullopt for a node
    // with no binary form.
    std::optional<std::uint64_t> add(plist_t node)
    {
        switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN:
            return append(node, Kind::boolean);
        case PLIST_UINT:
            return append(node, Kind::integer);
        case PLIST_REAL:
            return append(node, Kind::real);
        case PLIST_DATE:
            return append(node, Kind::date);
        case PLIST_DATA:
            return append(node, Kind::data);
        case PLIST_STRING:
            return addString(stringText(node));
        case PLIST_UID:
            return addUid(node);
        case PLIST_ARRAY:
        case PLIST_DICT: {
            const auto index = append(node, plist_get_node_type(node) == PLIST_ARRAY ? Kind::array : Kind::dictionary);
            m_pending.push_back(index);
            return index;
        }
        default:
            return std::nullopt;
        }
    }

    // `text` must outlive the writer: it is the tree's own buffer or a key
    // kept in m_keyTexts.
    std::uint64_t addString(std::string_view text)
    {
        if (const auto known = m_strings.find(text); known != m_strings.end())
            return known->second;
        const auto index = append(nullptr, Kind::string);
        m_objects[index].text = text;
        m_strings.emplace(text, index);
        return index;
    }

    std::uint64_t addKey(MallocText key)
    {
        const std::string_view text(key.get());
        if (const auto known = m_strings.find(text); known != m_strings.end())
            return known->second;
        m_keyTexts.push_back(std::move(key));
        return addString(text);
    }

    std::uint64_t addUid(plist_t node)
    {
        std::uint64_t value = 0;
        plist_get_uid_val(node, &value);
        if (const auto known = m_uids.find(value); known != m_uids.end())
            return known->second;
        return m_uids[value] = append(node, Kind::uid);
    }

    // Elements are walked with libplist's iterator: indexed access starts
    // from the front of the array on every call.
    bool expandArray(std::uint64_t index)
    {
        const plist_t array = m_objects[index].node;
        void *iterator = nullptr;
        plist_array_new_iter(array, &iterator);
        const MallocIterator iteratorOwner(iterator);
        const std::uint64_t first = m_references.size();
        for (plist_t item = nullptr;;) {
            plist_array_next_item(array, iterator, &item);
            if (!item)
                break;
            const auto reference = add(item);
            if (!reference)
                return false;
            m_references.push_back(*reference);
        }
        m_objects[index].firstReference = first;
        m_objects[index].referenceCount = m_references.size() - first;
        return true;
    }

    bool expandDictionary(std::uint64_t index)
    {
        const plist_t dictionary = m_objects[index].node;
        void *iterator = nullptr;
        plist_dict_new_iter(dictionary, &iterator);
        const MallocIterator iteratorOwner(iterator);
        const std::uint64_t first = m_references.size();
        m_values.clear();
        for (;;) {
            char *key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(dictionary, iterator, &key, &value);
            MallocText keyOwner(key);
            if (!value)
                break;
            const auto valueReference = add(value);
            if (!key || !valueReference)
                return false;
            m_references.push_back(addKey(std::move(keyOwner)));
            m_values.push_back(*valueReference);
        }
        m_references.insert(m_references.end(), m_values.begin(), m_values.end());
        m_objects[index].firstReference = first;
        m_objects[index].referenceCount = m_references.size() - first;
        return true;
    }

    // Second pass: the objects in index order, then where each one starts,
    // then the trailer. The top object is always object 0.
    std::string serialise()
    {
        const std::uint64_t count = m_objects.size();
        m_referenceWidth = Encoding::byteWidth(count - 1);
        std::string out(Encoding::header);
        std::vector<std::uint64_t> offsets;
        offsets.reserve(count);
        for (const Object &object : m_objects) {
            offsets.push_back(out.size());
            appendObject(out, object);
        }
        const std::uint64_t tableOffset = out.size();
        const unsigned offsetWidth = Encoding::byteWidth(offsets.back());
        for (const std::uint64_t offset : offsets)
            Encoding::appendBigEndian(out, offset, offsetWidth);
        out.append(6, '\0');
        out.push_back(static_cast<char>(offsetWidth));
        out.push_back(static_cast<char>(m_referenceWidth));
        Encoding::appendBigEndian(out, count, 8);
        Encoding::appendBigEndian(out, 0, 8);
        Encoding::appendBigEndian(out, tableOffset, 8);
        return out;
    }

    void appendObject(std::string &out, const Object &object) const
    {
        switch (object.kind) {
        case Kind::boolean: {
            std::uint8_t value = 0;
            plist_get_bool_val(object.node, &value);
            appendMarker(out, value ? Encoding::trueMarker : Encoding::falseMarker);
            return;
        }
        case Kind::integer: {
            std::uint64_t value = 0;
            plist_get_uint_val(object.node, &value);
            Encoding::appendInteger(out, value);
            return;
        }
        case Kind::real: {
            double value = 0;
            plist_get_real_val(object.node, &value);
            appendReal(out, Encoding::realMarker, value);
            return;
        }
        case Kind::date:
            appendDate(out, object.node);
            return;
        case Kind::data:
            appendData(out, object.node);
            return;
        case Kind::string:
            Encoding::appendString(out, object.text);
            return;
        case Kind::uid:
            appendUid(out, object.node);
            return;
        case Kind::array:
            Encoding::appendMarkerWithCount(out, Encoding::arrayMarker, object.referenceCount);
            appendReferences(out, object);
            return;
        case Kind::dictionary:
            Encoding::appendMarkerWithCount(out, Encoding::dictionaryMarker, object.referenceCount / 2);
            appendReferences(out, object);
            return;
        }
    }

    static void appendDate(std::string &out, plist_t node)
    {
        appendReal(out, Encoding::dateMarker, dateSeconds(node));
    }

    static void appendData(std::string &out, plist_t node)
    {
        std::uint64_t length = 0;
        const char *bytes = plist_get_data_ptr(node, &length);
        if (!bytes)
            length = 0;
        Encoding::appendMarkerWithCount(out, Encoding::dataMarker, length);
        out.append(bytes ? bytes : "", length);
    }

    // A UID's nibble holds its width less one.
    static void appendUid(std::string &out, plist_t node)
    {
        std::uint64_t value = 0;
        plist_get_uid_val(node, &value);
        Encoding::appendUid(out, value);
    }

    void appendReferences(std::string &out, const Object &object) const
    {
        const auto end = object.firstReference + object.referenceCount;
        for (auto position = object.firstReference; position < end; ++position)
            Encoding::appendBigEndian(out, m_references[position], m_referenceWidth);
    }

    std::vector<Object> m_objects;
    std::vector<std::uint64_t> m_references;
    std::vector<std::uint64_t> m_pending;
    std::vector<std::uint64_t> m_values;
    std::vector<MallocText> m_keyTexts;
    std::unordered_map<std::string_view, std::uint64_t> m_strings;
    std::unordered_map<std::uint64_t, std::uint64_t> m_uids;
    unsigned m_referenceWidth = 1;
};

} // namespace

std::optional<std::string> TLBinaryPropertyListWriter::dataWithPropertyList(plist_t propertyList)
{
    try {
        return Writer().write(propertyList);
    } catch (const std::exception &) {
        // Only allocation can fail here; a tree too large to hold twice in
        // memory is not written at all rather than written in part.
        return std::nullopt;
    }
}
