// Telling the user what a write left out.
#include "TLWriteReport.h"

#include "TLBinText.h"

#include <algorithm>
#include <cctype>
#include <functional>

namespace {

std::string quoted(const std::string &text)
{
    return "\"" + text + "\"";
}

// The bin names from the top level down to `node`, joined by "/".
std::string pathOfNode(const TLBinNodePtr &node)
{
    std::vector<std::string> names;
    for (TLBinNodePtr current = node; current; current = current->parent())
        names.push_back(current->binName());
    std::string path;
    for (auto name = names.rbegin(); name != names.rend(); ++name)
        path += (path.empty() ? "" : "/") + *name;
    return path;
}

bool listsClips(TLBinNodeKind kind)
{
    return kind == TLBinNodeKind::smartBin || kind == TLBinNodeKind::smartRangeItem;
}

// The first bin, in tree order from `node`, whose own name keeps its
// top-level bin out of the project; null when no name does.
TLBinNodePtr binWithUnwritableName(const TLBinNodePtr &node)
{
    if (!node || node->kind() == TLBinNodeKind::mediaItem)
        return nullptr;
    if (!TLBinText::nameAsWritten(node->binName()))
        return node;
    for (const TLBinNodePtr &child : *node->children()) {
        if (TLBinNodePtr found = binWithUnwritableName(child))
            return found;
    }
    return nullptr;
}

std::string noteOnBinLeftOut(const TLBinNodePtr &bin)
{
    const TLBinNodePtr culprit = binWithUnwritableName(bin);
    const std::string reason = culprit && culprit != bin
                                   ? "the name of " + quoted(pathOfNode(culprit)) + " inside it holds"
                                   : "its name holds";
    return "the bin " + quoted(pathOfNode(bin)) + " could not be merged into the project (" + reason +
           " \"&\" or \"<\" and is not well-formed XML) and will be gone when the project is next opened";
}

std::string noteOnClipsNotWritten(const TLWriteReport::ClipsNotWritten &clips)
{
    const bool one = clips.count == 1;
    return std::to_string(clips.count) + (one ? " clip" : " clips") + " of the bin " +
           quoted(pathOfNode(clips.bin)) + " could not be written into it (" +
           (one ? "it has no uuid of its own" : "they have no uuid of their own") + " in the project)";
}

} // namespace

TLWriteReport TLWriteReport::ofWrite(const TLNodeList &topLevel, TLNodeList binsLeftOut)
{
    TLWriteReport report;
    const std::function<void(const TLBinNodePtr &)> collect = [&](const TLBinNodePtr &node) {
        if (!node || node->kind() == TLBinNodeKind::mediaItem)
            return;
        if (listsClips(node->kind())) {
            if (const std::size_t count = clipsWithoutIdentifier(*node))
                report.m_clipsNotWritten.push_back({node, count});
            return;
        }
        for (const TLBinNodePtr &child : *node->children())
            collect(child);
    };
    for (const TLBinNodePtr &node : topLevel) {
        if (std::find(binsLeftOut.begin(), binsLeftOut.end(), node) == binsLeftOut.end())
            collect(node);
    }
    report.m_binsLeftOut = std::move(binsLeftOut);
    return report;
}

std::size_t TLWriteReport::clipsWithoutIdentifier(const TLBinNode &bin)
{
    if (!listsClips(bin.kind()))
        return 0;
    const TLNodeListPtr children = bin.children();
    return static_cast<std::size_t>(std::count_if(children->begin(), children->end(), [](const TLBinNodePtr &child) {
        return child && child->kind() == TLBinNodeKind::mediaItem && !child->uuid();
    }));
}

std::string TLWriteReport::warningForBinName(std::string_view name)
{
    const std::optional<std::string> written = TLBinText::nameAsWritten(name);
    const std::string typed = quoted(std::string(name));
    if (!written)
        return "Saving leaves the bin " + typed + " out: its name holds \"&\" or \"<\" and is not well-formed XML.";
    if (*written != name)
        return "Saving writes the name " + typed + " as XML, so the project will read it as " + quoted(*written) + ".";
    return {};
}

std::vector<std::string> TLWriteReport::notes() const
{
    std::vector<std::string> notes;
    for (const TLBinNodePtr &bin : m_binsLeftOut)
        notes.push_back(noteOnBinLeftOut(bin));
    for (const ClipsNotWritten &clips : m_clipsNotWritten)
        notes.push_back(noteOnClipsNotWritten(clips));
    return notes;
}

std::string TLWriteReport::message() const
{
    std::string message;
    for (std::string note : notes()) {
        note.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(note.front())));
        message += (message.empty() ? "" : "\n") + note + ".";
    }
    return message;
}
