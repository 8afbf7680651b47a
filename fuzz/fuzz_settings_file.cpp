// Any bytes read as a project's settings file: a property list (XML or
// binary) whose "data" holds the keyed archive of the bin tree. The input is
// also taken as the archive itself, since an archive buried in a settings
// file is out of the fuzzer's reach. Whatever decodes must archive again
// and decode to the same tree.
#include "FuzzSupport.h"

#include "TLKeyedArchiver.h"
#include "TLKeyedUnarchiver.h"
#include "TLPropertyList.h"

#include <cstdlib>

namespace {

// An accepted tree survives a round trip through the archiver unchanged.
void checkRoundTrip(const TLNodeList &tree)
{
    const std::optional<std::string> archive = TLKeyedArchiver::archivedDataWithRootObject(tree);
    if (!archive)
        std::abort();
    std::string reason;
    const std::optional<TLNodeList> again = TLKeyedUnarchiver::unarchiveObjectWithData(*archive, reason);
    if (!again || again->size() != tree.size())
        std::abort();
    const std::optional<std::string> second = TLKeyedArchiver::archivedDataWithRootObject(*again);
    if (!second || *second != *archive)
        std::abort();
}

void decodeArchive(std::string_view bytes)
{
    std::string reason;
    const std::optional<TLNodeList> tree = TLKeyedUnarchiver::unarchiveObjectWithData(bytes, reason);
    if (tree)
        checkRoundTrip(*tree);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::sandbox(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view bytes = fuzz::text(data, size);
    decodeArchive(bytes);

    std::string reason;
    const TLPropertyList settings = TLPropertyList::fromBytes(bytes, reason);
    if (const std::optional<std::string> archive = settings.dataForKey("data"))
        decodeArchive(*archive);
    if (settings.root()) {
        const std::optional<TLNodeList> tree =
            TLKeyedUnarchiver::unarchiveObjectWithPropertyList(settings.root(), reason);
        if (tree)
            checkRoundTrip(*tree);
    }
    return 0;
}
