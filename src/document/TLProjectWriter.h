// Writes a project file: the project's own text given back as it was read,
// with a merge of bins made in the text.
#pragma once

#include "TLAtomicFile.h"
#include "TLProjectMerge.h"

#include <pugixml.hpp>

class TLProjectWriter
{
public:
    // Writes `project` as the merge leaves it, without making the merge in
    // the tree: the earlier bins left out, the new bins written at the end
    // of the merge's target straight from the project's clip elements. One
    // element to a line, tab-indented; the declaration, document type,
    // comments and processing instructions where they were; every text
    // written so that it reads back the same. A UTF-8 byte-order mark
    // first when `byteOrderMark`. False when the sink refused a write.
    static bool write(const pugi::xml_document &project, const TLProjectMerge &merge, bool byteOrderMark,
                      const TLAtomicFile::Sink &sink);
};
