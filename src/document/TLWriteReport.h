// What a save or a send could not write, for the user to hear of.
#pragma once

#include "TLBinNode.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// A value. Two things keep a bin's content out of the project although the
// tree shows it: a top-level bin whose text does not read as XML (a name
// holding "&" or "<") is left out whole, and a clip without an identifier
// of its own (a "uuid" child) cannot be referred to from a bin, so the
// smart bins and smart ranges listing it are written without it. The
// command line prints the notes; the window shows the message.
class TLWriteReport
{
public:
    struct ClipsNotWritten
    {
        TLBinNodePtr bin;
        std::size_t count = 0;
    };

    // The report of writing `topLevel`, of whose nodes `binsLeftOut` were
    // left out: for every smart bin and smart range in the bins written,
    // the clips it lists that have no identifier.
    static TLWriteReport ofWrite(const TLNodeList &topLevel, TLNodeList binsLeftOut = {});

    // How many of the clips that `bin` lists have no identifier; 0 for a
    // bin that lists none.
    static std::size_t clipsWithoutIdentifier(const TLBinNode &bin);

    // What a user typing `name` for a bin should know before saving, as a
    // sentence naming it: that a save leaves the bin out, or the different
    // name the project will read; "" for a name written as it stands.
    static std::string warningForBinName(std::string_view name);

    const TLNodeList &binsLeftOut() const { return m_binsLeftOut; }
    const std::vector<ClipsNotWritten> &clipsNotWritten() const { return m_clipsNotWritten; }
    bool isEmpty() const { return m_binsLeftOut.empty() && m_clipsNotWritten.empty(); }

    // One clause per bin left out, then one per bin with clips not written,
    // each naming the bin by its path ("Dailies/Interviews") and saying why:
    //   the bin "R&D" could not be merged into the project (its name holds
    //   "&" or "<" and is not well-formed XML) and will be gone when the
    //   project is next opened
    //   3 clips of the bin "Interviews" could not be written into it (they
    //   have no uuid of their own in the project)
    std::vector<std::string> notes() const;

    // The notes as sentences, one a line; "" for an empty report.
    std::string message() const;

private:
    TLNodeList m_binsLeftOut;
    std::vector<ClipsNotWritten> m_clipsNotWritten;
};
