// Writing a project file in one pass over the tree.
#include "TLProjectWriter.h"

#include "TLXMLWriter.h"

bool TLProjectWriter::write(const pugi::xml_document &project, const TLProjectMerge &merge, bool byteOrderMark,
                            const TLAtomicFile::Sink &sink)
{
    TLXMLWriter writer([&sink](std::string_view bytes) { return sink(bytes); });
    if (byteOrderMark)
        writer.raw("\xEF\xBB\xBF");
    TLXMLWriter::Changes changes;
    changes.leftOut = merge.replaced;
    changes.appendTo = merge.target;
    changes.appendsContent = merge.target && !merge.bins.empty();
    changes.appendContent = [&merge](TLXMLWriter &to, unsigned depth) {
        for (const TLMergedBin &bin : merge.bins)
            bin.write(to, depth);
    };
    writer.writeNode(project, 0, changes);
    return writer.finish();
}
