// Master clips of the synthetic projects: how the clips are grouped into
// cards and days, what each clip is, and how it is written as xmeml.
#pragma once

#include "BenchRandom.h"
#include "XmlStreamWriter.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace synthetic {

inline constexpr std::uint64_t ProjectSeed = 0x2009C0FFEE5EEDULL;

// The independent random streams of a project; each item draws from its own.
enum Stream : std::uint64_t {
    LayoutStream = 1,
    ClipStream,
    MetadataStream,
    SequenceStream,
    BinStream
};

struct VideoFormat
{
    int timebase;
    bool ntsc;
    int width;
    int height;
    std::string_view fieldDominance;
    std::string_view pixelAspectRatio;
    std::string_view codec;
};

inline constexpr std::array<VideoFormat, 7> VideoFormats{{
    {24, true, 1920, 1080, "none", "square", "Apple ProRes 422 (HQ)"},
    {25, false, 1920, 1080, "none", "square", "Apple ProRes 422"},
    {30, true, 1920, 1080, "none", "square", "H.264"},
    {30, true, 720, 480, "lower", "NTSC-601", "DV/DVCPRO - NTSC"},
    {25, false, 720, 576, "lower", "PAL-601", "DV - PAL"},
    {24, true, 1280, 720, "none", "square", "XDCAM EX 720p24 (35 Mb/s VBR)"},
    {25, false, 1920, 1080, "upper", "HD-(1440x1080)", "XDCAM HD422 1080i50 (50 Mb/s)"},
}};

// Where a card's media came from; decides file names, folders and formats.
enum class Source { Cinema, Dslr, Xdcam, Tape, Sound, Location };

// One camera card, tape or sound roll: a bin of consecutive clips. Card 0
// holds the clips that sit loose at the top level of the project.
struct Card
{
    int firstClip;
    int clipCount;
    int number;
    int day;
    int selects; // trailing clips kept in a nested "Selects" bin
    Source source;
};

// How a project of a given size is divided: cards in the order written, with
// the first day's cards first, and how many sequences cut them together.
struct Layout
{
    std::vector<Card> cards;
    int dayCount = 0;
    int sequenceCount = 0;
};

// Everything about a master clip that its bin entry and the sequences that
// cut it must agree on.
struct MasterClip
{
    std::string id;
    std::string name;
    std::string fileId;
    std::string fileName;
    std::string pathUrl; // empty when the media is offline
    std::string uuid;    // empty for clips that never got one
    std::string reel;    // empty for file-based media that never had a reel
    const VideoFormat *video = nullptr; // nullptr for sound-only clips
    int timebase = 25;
    bool ntsc = false;
    int duration = 0;
    int firstFrame = 0;
    bool hasAudio = true;
    int audioTracks = 2; // a stereo pair, or one track for mono sound
    int sampleRate = 48000;
    int depth = 16;
    bool fileOnClip = false; // clips from old projects hold their file directly
};

// Divides `clipCount` clips (at least 1) into cards and days.
Layout planLayout(int clipCount);

// Clip `index` (0 <= index < clipCount of the layout), the same on every call.
MasterClip describeClip(const Layout &layout, int index);

// Writes clip `index` as a master clip element with its metadata and media.
void writeMasterClip(XmlStreamWriter &xml, const Layout &layout, int index);

// The card's bin and folder name ("Reel 03", "Imports" for the loose clips).
std::string folderName(const Card &card);

// printf into a std::string; texts are cut at 127 bytes.
__attribute__((format(printf, 1, 2))) std::string formatted(const char *format, ...);

// The random stream of item `index` of a kind: the same on every call.
BenchRandom randomFor(Stream stream, int index);

// An upper-case 8-4-4-4-12 uuid drawn from `random`.
std::string makeUuid(BenchRandom &random);

// The <rate> element with its ntsc flag and timebase.
void writeRate(XmlStreamWriter &xml, int timebase, bool ntsc);

// <samplecharacteristics> of a video format or of sound.
void writeVideoCharacteristics(XmlStreamWriter &xml, const VideoFormat &format);
void writeAudioCharacteristics(XmlStreamWriter &xml, int sampleRate, int depth);

// The <sourcetrack> of a track item; sound items also name their track.
void writeSourceTrack(XmlStreamWriter &xml, bool video, int trackIndex);

} // namespace synthetic
