// A whole synthetic Final Cut Pro 7 project export (xmeml version 5), for
// benchmarks that need a large, realistic project.
#pragma once

#include <string>

namespace synthetic {

// Writes a project of `clipCount` master clips (at least 1) to `path`:
// nested bins of clips with the metadata editors log, and sequences that cut
// them together. The bytes depend only on the clip count. The file is
// written beside `path` and renamed into place, so an interrupted run never
// leaves a truncated project behind. Returns an empty string on success,
// else the reason ("cannot create /a/b.xml.partial: Permission denied").
[[nodiscard]] std::string writeProjectFile(const std::string &path, int clipCount);

} // namespace synthetic
