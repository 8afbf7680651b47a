// Sequences of the synthetic projects, planned edit by edit and written as
// Final Cut Pro writes its timelines.
#include "SyntheticSequences.h"

#include <algorithm>
#include <string>
#include <vector>

namespace synthetic {
namespace {

// A cut on a sequence track. A transition after the item ties its end to the
// next item's start: both edges are then written as -1.
struct Edit
{
    int clip;
    int start;
    int length;
    int in;
    bool transitionAfter;
};

struct SequenceTrack
{
    std::vector<Edit> edits;
    bool video = true;
    int trackIndex = 1;
};

// A clip with picture, or -1 when a few draws found only sound.
int pickPictureClip(const Layout &layout, int clipCount, BenchRandom &random)
{
    for (int attempt = 0; attempt < 8; ++attempt) {
        const int index = random.below(clipCount);
        if (describeClip(layout, index).video != nullptr)
            return index;
    }
    return -1;
}

// The main picture track: back-to-back cuts, a quarter of them dissolves.
std::vector<Edit> planPrimaryTrack(const Layout &layout, int clipCount, BenchRandom &random)
{
    std::vector<Edit> edits;
    int time = 0;
    const int count = random.between(100, 160);
    for (int item = 0; item < count; ++item) {
        const int index = pickPictureClip(layout, clipCount, random);
        if (index < 0)
            continue;
        const int duration = describeClip(layout, index).duration;
        const int length = std::min(duration, random.between(48, 360));
        const bool transition = item + 1 < count && random.percent(25);
        edits.push_back({index, time, length, random.between(0, duration - length), transition});
        time += length;
    }
    // Skipped items may have left a transition hanging off the last edit.
    if (!edits.empty())
        edits.back().transitionAfter = false;
    return edits;
}

// B-roll over the primary track: separate items with gaps between them.
std::vector<Edit> planCutawayTrack(const Layout &layout, const std::vector<Edit> &primary,
                                   BenchRandom &random)
{
    std::vector<Edit> edits;
    for (const Edit &edit : primary) {
        if (!random.percent(20))
            continue;
        const auto count = static_cast<int>(primary.size());
        const int clip = primary[static_cast<std::size_t>(random.below(count))].clip;
        const int length = std::min({edit.length, 96, describeClip(layout, clip).duration});
        edits.push_back({clip, edit.start, length, 0, false});
    }
    return edits;
}

bool hasSoundTrack(const Layout &layout, int clip, int trackIndex)
{
    const MasterClip master = describeClip(layout, clip);
    return master.hasAudio && master.audioTracks >= trackIndex;
}

// Sound follows the picture, leaving out the clips that have no sound on
// this track; a cross fade joins two items only where both have sound.
std::vector<Edit> planSoundTrack(const Layout &layout, const std::vector<Edit> &primary,
                                 int trackIndex)
{
    std::vector<Edit> edits;
    for (std::size_t item = 0; item < primary.size(); ++item) {
        if (!hasSoundTrack(layout, primary[item].clip, trackIndex))
            continue;
        Edit edit = primary[item];
        edit.transitionAfter = edit.transitionAfter && item + 1 < primary.size()
                               && hasSoundTrack(layout, primary[item + 1].clip, trackIndex);
        edits.push_back(edit);
    }
    return edits;
}

void writeTransition(XmlStreamWriter &xml, int cut, const VideoFormat &format, bool video)
{
    xml.open("transitionitem");
    writeRate(xml, format.timebase, format.ntsc);
    xml.leaf("start", cut - 15);
    xml.leaf("end", cut + 15);
    xml.leaf("alignment", "center");
    xml.open("effect");
    xml.leaf("name", video ? "Cross Dissolve" : "Cross Fade (+3dB)");
    xml.leaf("effectid", video ? "Cross Dissolve" : "Cross Fade (+3dB)");
    xml.leaf("effectcategory", video ? "Dissolve" : "Crossfade");
    xml.leaf("effecttype", "transition");
    xml.leaf("mediatype", video ? "video" : "audio");
    xml.close();
    xml.close();
}

void writeAudioLevels(XmlStreamWriter &xml)
{
    xml.open("filter");
    xml.open("effect");
    xml.leaf("name", "Audio Levels");
    xml.leaf("effectid", "audiolevels");
    xml.leaf("effectcategory", "audiolevels");
    xml.leaf("effecttype", "audiolevels");
    xml.leaf("mediatype", "audio");
    xml.open("parameter");
    xml.leaf("parameterid", "level");
    xml.leaf("name", "Level");
    xml.leaf("valuemin", "0");
    xml.leaf("valuemax", "3.98109");
    xml.leaf("value", "1");
    xml.close();
    xml.close();
    xml.close();
}

void writeSequenceItem(XmlStreamWriter &xml, const Layout &layout, const SequenceTrack &track,
                       std::size_t item, const std::string &itemPrefix)
{
    const Edit &edit = track.edits[item];
    const MasterClip clip = describeClip(layout, edit.clip);
    const bool afterTransition = item > 0 && track.edits[item - 1].transitionAfter;
    xml.open("clipitem", "id", itemPrefix + std::to_string(item + 1));
    xml.leaf("name", clip.name);
    xml.leaf("duration", clip.duration);
    writeRate(xml, clip.timebase, clip.ntsc);
    xml.leaf("start", afterTransition ? -1 : edit.start);
    xml.leaf("end", edit.transitionAfter ? -1 : edit.start + edit.length);
    xml.leaf("in", edit.in);
    xml.leaf("out", edit.in + edit.length);
    xml.leaf("masterclipid", clip.id);
    xml.empty("file", "id", clip.fileId);
    writeSourceTrack(xml, track.video, track.trackIndex);
    if (track.video && clip.video != nullptr)
        xml.leaf("fielddominance", clip.video->fieldDominance);
    if (!track.video)
        writeAudioLevels(xml);
    xml.close();
}

void writeTrack(XmlStreamWriter &xml, const Layout &layout, const SequenceTrack &track,
                const VideoFormat &format, const std::string &itemPrefix)
{
    xml.open("track");
    for (std::size_t item = 0; item < track.edits.size(); ++item) {
        writeSequenceItem(xml, layout, track, item, itemPrefix);
        const Edit &edit = track.edits[item];
        if (edit.transitionAfter)
            writeTransition(xml, edit.start + edit.length, format, track.video);
    }
    xml.flag("enabled", true);
    xml.flag("locked", false);
    xml.close();
}

std::string sequenceName(int number)
{
    switch (number % 3) {
    case 0: return formatted("Assembly %02d", number + 1);
    case 1: return formatted("Rough Cut v%d", number + 1);
    default: return formatted("Selects – Día %d", number + 1);
    }
}

} // namespace

void writeSequence(XmlStreamWriter &xml, const Layout &layout, int clipCount, int number)
{
    BenchRandom random = randomFor(SequenceStream, number);
    const VideoFormat &format = VideoFormats[static_cast<std::size_t>(random.below(2))];
    const std::vector<Edit> primary = planPrimaryTrack(layout, clipCount, random);
    const SequenceTrack tracks[] = {{primary, true, 1},
                                    {planCutawayTrack(layout, primary, random), true, 2},
                                    {planSoundTrack(layout, primary, 1), false, 1},
                                    {planSoundTrack(layout, primary, 2), false, 2}};
    const int duration = primary.empty() ? 0 : primary.back().start + primary.back().length;
    const std::string id = formatted("sequence-%d", number + 1);

    xml.open("sequence", "id", id);
    xml.leaf("uuid", makeUuid(random));
    xml.leaf("updatebehavior", "add");
    xml.leaf("name", sequenceName(number));
    xml.leaf("duration", duration);
    writeRate(xml, format.timebase, format.ntsc);
    xml.leaf("in", -1);
    xml.leaf("out", -1);
    xml.open("media");
    for (const bool video : {true, false}) {
        xml.open(video ? "video" : "audio");
        xml.open("format");
        if (video)
            writeVideoCharacteristics(xml, format);
        else
            writeAudioCharacteristics(xml, 48000, 16);
        xml.close();
        for (const SequenceTrack &track : tracks) {
            if (track.video == video)
                writeTrack(xml, layout, track, format,
                           id + (video ? "-v" : "-a") + std::to_string(track.trackIndex) + "-");
        }
        xml.close();
    }
    xml.close();
    xml.close();
}

} // namespace synthetic
