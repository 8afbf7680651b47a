// The bins a save adds to a project, and the earlier bins they replace.
#pragma once

#include <pugixml.hpp>

#include <memory>
#include <string>
#include <vector>

class TLFCPProjectController;
class TLXMLWriter;

// One bin element as a save writes it: the uuid, update behaviour and name
// elements, then its children: the bins of a regular bin, or the project's
// own clip elements of a smart bin or smart range (copied when the bin is
// made), then the text carried over from the bin's earlier self. A bin
// whose name holds markup is the parse of its text instead (`parsed`).
struct TLMergedBin
{
    std::string uuid;
    std::string name;
    std::vector<TLMergedBin> bins;
    std::vector<pugi::xml_node> clips;
    std::string carriedText;
    std::shared_ptr<pugi::xml_document> parsed;

    // The bin as an element appended to `parent`.
    void appendTo(pugi::xml_node parent) const;
    // The bin as text, exactly what writing appendTo's element gives.
    void write(TLXMLWriter &writer, unsigned depth) const;

private:
    bool keepsCarriedText() const;
    bool hasChildren() const;
};

// A merge decided but not yet made: the bins go to the end of `target`
// (none when the project has no place for bins), the `replaced` elements
// leave the project. Until it is made, the clip elements it names must
// stay in the tree, which holds as long as nothing is removed from it.
struct TLProjectMerge
{
    std::vector<TLMergedBin> bins;
    std::vector<pugi::xml_node> replaced;
    pugi::xml_node target;

    // Makes the merge in the controller's document: bins appended, earlier
    // ones removed, the bin lookups renewed, and the clips and master-clip
    // paths collected again when removed bins took some of them away.
    void applyTo(TLFCPProjectController &controller) const;
};
