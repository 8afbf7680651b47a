// Sequences of the synthetic projects: edits that cut the master clips
// together, with transitions and the sound that follows the picture.
#pragma once

#include "SyntheticClips.h"

namespace synthetic {

// Writes sequence `number` (0-based) of the layout; its edits draw on all
// `clipCount` clips and its file elements only name the clips' files by id.
void writeSequence(XmlStreamWriter &xml, const Layout &layout, int clipCount, int number);

} // namespace synthetic
