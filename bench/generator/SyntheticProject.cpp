// The project around the clips and sequences: bins by shooting day and
// card, loose clips at the top, an "Edits" bin of sequences.
#include "SyntheticProject.h"

#include "SyntheticClips.h"
#include "SyntheticSequences.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace synthetic {
namespace {

void openBin(XmlStreamWriter &xml, const std::string &name, BenchRandom &random)
{
    xml.open("bin");
    if (!random.percent(5))
        xml.leaf("uuid", makeUuid(random));
    xml.leaf("updatebehavior", "add");
    xml.leaf("name", name);
    xml.open("children");
}

void closeBin(XmlStreamWriter &xml)
{
    xml.close();
    xml.close();
}

void writeCard(XmlStreamWriter &xml, const Layout &layout, const Card &card, BenchRandom &random)
{
    openBin(xml, folderName(card), random);
    const int firstSelect = card.firstClip + card.clipCount - card.selects;
    for (int index = card.firstClip; index < firstSelect; ++index)
        writeMasterClip(xml, layout, index);
    if (card.selects > 0) {
        openBin(xml, "Selects", random);
        for (int index = firstSelect; index < firstSelect + card.selects; ++index)
            writeMasterClip(xml, layout, index);
        closeBin(xml);
    }
    closeBin(xml);
}

void writeProject(XmlStreamWriter &xml, const Layout &layout, int clipCount)
{
    BenchRandom random(ProjectSeed ^ BinStream);
    xml.line(R"(<?xml version="1.0" encoding="UTF-8"?>)");
    xml.line("<!DOCTYPE xmeml>");
    xml.open("xmeml", "version", "5");
    xml.open("project");
    xml.leaf("name", "Northbound – Feature Documentary");
    xml.open("children");
    const Card &loose = layout.cards.front();
    for (int index = 0; index < loose.clipCount; ++index)
        writeMasterClip(xml, layout, index);
    std::size_t card = 1;
    for (int day = 1; day <= layout.dayCount; ++day) {
        openBin(xml, formatted("Day %02d", day), random);
        for (; card < layout.cards.size() && layout.cards[card].day == day; ++card)
            writeCard(xml, layout, layout.cards[card], random);
        closeBin(xml);
    }
    // Half the sequences live in an "Edits" bin, the rest at the top level.
    const int inBin = layout.sequenceCount / 2;
    openBin(xml, "Edits", random);
    for (int number = 0; number < inBin; ++number)
        writeSequence(xml, layout, clipCount, number);
    closeBin(xml);
    for (int number = inBin; number < layout.sequenceCount; ++number)
        writeSequence(xml, layout, clipCount, number);
    xml.close(); // children
    xml.close(); // project
    xml.close(); // xmeml
}

std::string failure(const std::string &what, const std::string &path, int error)
{
    return "cannot " + what + " " + path + ": " + std::strerror(error);
}

} // namespace

std::string writeProjectFile(const std::string &path, int clipCount)
{
    if (clipCount < 1)
        return "a project needs at least one clip";
    const std::string partial = path + ".partial";
    std::FILE *file = std::fopen(partial.c_str(), "wb");
    if (file == nullptr)
        return failure("create", partial, errno);
    XmlStreamWriter xml(file);
    writeProject(xml, planLayout(clipCount), clipCount);
    errno = 0;
    const bool written = xml.finish();
    const int writeError = errno;
    const bool closed = std::fclose(file) == 0;
    const int closeError = errno;
    if (!written || !closed) {
        std::remove(partial.c_str());
        return failure("write", partial, written ? closeError : writeError);
    }
    if (std::rename(partial.c_str(), path.c_str()) != 0) {
        const int renameError = errno;
        std::remove(partial.c_str());
        return failure("rename " + partial + " to", path, renameError);
    }
    return {};
}

} // namespace synthetic
