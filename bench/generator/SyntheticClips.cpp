// Master clips of the synthetic projects: names, media files, formats and
// logged metadata, drawn per clip so any clip can be described on its own.
#include "SyntheticClips.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace synthetic {
namespace {

constexpr std::array<Source, 10> SourceMix{
    Source::Cinema, Source::Cinema, Source::Cinema, Source::Dslr,     Source::Dslr,
    Source::Xdcam,  Source::Tape,   Source::Sound,  Source::Location, Source::Location};

constexpr std::array<std::string_view, 3> Drives{"Media Drive", "RAID 01", "Archiv Müller"};
constexpr std::array<std::string_view, 8> Places{
    "Außendreh Hafen", "東京 ロケ", "Café de Flore", "Kraków Rynek",
    "Señora García",   "서울 야경",  "Fjord Øst",     "Harbour Interviews"};
constexpr std::array<std::string_view, 10> ShotNames{
    "Wide establishing", "Interview Café",   "東京タワー 夜景", "Close-up hands",
    "Drone über Stadt",  "Crowd & traffic",  "Señora García",   "B-roll street",
    "Sunset Øresund",    "Q&A panel"};
constexpr std::array<std::string_view, 8> LogNotes{
    "Nice light on the bridge", "Mic bump at 00:12",      "Wind noise - use with care",
    "Regisseur: gute Stimmung", "Plan-séquence, très bien", "逆光 注意",
    "Focus soft & late",        "Use <alt> take for the ending"};
constexpr std::array<std::string_view, 6> Labels{"Good Take", "Best Take", "Alternate Shots",
                                                 "Interviews", "B-Roll", "Other"};
constexpr std::array<std::string_view, 6> Comments{
    "Check sync", "Client favourite", "Licence cleared", "Farbkorrektur nötig",
    "Needs cleanup", "Montée son à revoir"};

const Card &cardOfClip(const Layout &layout, int clip)
{
    const auto after = std::upper_bound(
        layout.cards.begin(), layout.cards.end(), clip,
        [](int index, const Card &card) { return index < card.firstClip; });
    return *(after - 1);
}

// Escapes everything but unreserved characters and "/", as file URLs need.
std::string percentEncoded(std::string_view text)
{
    static constexpr char Hex[] = "0123456789ABCDEF";
    std::string result;
    result.reserve(text.size() + text.size() / 2);
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z')
            || (byte >= '0' && byte <= '9') || std::strchr("-._~/", c) != nullptr) {
            result.push_back(c);
            continue;
        }
        result.push_back('%');
        result.push_back(Hex[byte >> 4]);
        result.push_back(Hex[byte & 0xF]);
    }
    return result;
}

std::string timecodeText(int frame, int timebase)
{
    const int seconds = frame / timebase;
    char text[48];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d:%02d", seconds / 3600 % 24,
                  seconds / 60 % 60, seconds % 60, frame % timebase);
    return text;
}

std::string fileBaseName(const Card &card, int position, BenchRandom &random)
{
    switch (card.source) {
    case Source::Cinema:
        return std::string(1, static_cast<char>('A' + card.number % 3))
               + formatted("%03d_C%03d", card.number, position + 1);
    case Source::Dslr: return formatted("MVI_%04d", (card.number * 173 + position) % 9000 + 1000);
    case Source::Xdcam: return formatted("C%04d", position + 1);
    case Source::Tape: return formatted("Tape %03d Clip %03d", card.number, position + 1);
    case Source::Sound:
        return card.number % 2 != 0 ? formatted("ZOOM%04d", position + 1)
                                    : formatted("SD%03d_T%02d", card.number, position + 1);
    case Source::Location: break;
    }
    return std::string(random.pick(Places)) + formatted(" %02d", position + 1);
}

std::string_view fileExtension(const Card &card)
{
    switch (card.source) {
    case Source::Dslr: return ".MOV";
    case Source::Xdcam: return ".MXF";
    case Source::Sound: return card.number % 2 != 0 ? ".WAV" : ".aif";
    default: return ".mov";
    }
}

const VideoFormat *videoFormat(const Card &card, BenchRandom &random)
{
    switch (card.source) {
    case Source::Cinema: return &VideoFormats[static_cast<std::size_t>(card.number % 2)];
    case Source::Dslr: return &VideoFormats[2];
    case Source::Xdcam: return &VideoFormats[5 + static_cast<std::size_t>(card.number % 2)];
    case Source::Tape: return &VideoFormats[3 + static_cast<std::size_t>(card.number % 2)];
    case Source::Sound: return nullptr;
    case Source::Location: break;
    }
    return &VideoFormats[static_cast<std::size_t>(random.below(3))];
}

// Renamed clips carry the editor's description; a few were typed with
// percent escapes, as some import tools write them.
std::string clipName(const std::string &baseName, BenchRandom &random)
{
    if (!random.percent(14))
        return baseName;
    const std::string described = std::string(random.pick(ShotNames))
                                  + formatted(" %d", random.between(1, 40));
    return random.percent(15) ? percentEncoded(described) : described;
}

void writeTimecode(XmlStreamWriter &xml, const MasterClip &clip)
{
    xml.open("timecode");
    xml.leaf("string", timecodeText(clip.firstFrame, clip.timebase));
    xml.leaf("frame", clip.firstFrame);
    xml.leaf("displayformat", "NDF");
    if (!clip.reel.empty()) {
        xml.open("reel");
        xml.leaf("name", clip.reel);
        xml.close();
    }
    xml.close();
}

// The full description of a media file; later mentions carry only its id.
void writeFile(XmlStreamWriter &xml, const MasterClip &clip)
{
    xml.open("file", "id", clip.fileId);
    xml.leaf("name", clip.fileName);
    if (!clip.pathUrl.empty())
        xml.leaf("pathurl", clip.pathUrl);
    writeRate(xml, clip.timebase, clip.ntsc);
    xml.leaf("duration", clip.duration);
    writeTimecode(xml, clip);
    xml.open("media");
    if (clip.video != nullptr) {
        xml.open("video");
        writeVideoCharacteristics(xml, *clip.video);
        xml.close();
    }
    if (clip.hasAudio) {
        xml.open("audio");
        writeAudioCharacteristics(xml, clip.sampleRate, clip.depth);
        xml.leaf("channelcount", clip.audioTracks);
        xml.close();
    }
    xml.close();
    xml.close();
}

// One track item of the master clip itself; the first one that mentions the
// file describes it in full.
void writeMasterTrackItem(XmlStreamWriter &xml, const MasterClip &clip, bool video,
                          int trackIndex, bool describesFile)
{
    xml.open("track");
    xml.open("clipitem", "id", clip.id + (video ? "-v" : "-a") + std::to_string(trackIndex));
    xml.leaf("name", clip.name);
    xml.leaf("duration", clip.duration);
    writeRate(xml, clip.timebase, clip.ntsc);
    xml.leaf("masterclipid", clip.id);
    if (describesFile)
        writeFile(xml, clip);
    else
        xml.empty("file", "id", clip.fileId);
    writeSourceTrack(xml, video, trackIndex);
    if (video)
        xml.leaf("fielddominance", clip.video->fieldDominance);
    xml.close();
    xml.close();
}

void writeClipMedia(XmlStreamWriter &xml, const MasterClip &clip)
{
    xml.open("media");
    if (clip.video != nullptr) {
        xml.open("video");
        writeMasterTrackItem(xml, clip, true, 1, true);
        xml.close();
    }
    if (clip.hasAudio) {
        xml.open("audio");
        for (int track = 1; track <= clip.audioTracks; ++track)
            writeMasterTrackItem(xml, clip, false, track, track == 1 && clip.video == nullptr);
        xml.close();
    }
    xml.close();
}

void writeLoggingInfo(XmlStreamWriter &xml, BenchRandom &random)
{
    if (random.percent(20))
        return;
    const bool logged = random.percent(75);
    xml.open("logginginfo");
    const int scene = random.between(1, 120);
    xml.leaf("scene", logged ? formatted(random.percent(70) ? "%d" : "Scene %d", scene) : "");
    xml.leaf("shottake", logged ? formatted("%d", random.between(1, 12)) : "");
    xml.leaf("lognote", logged && random.percent(40) ? random.pick(LogNotes) : "");
    xml.leaf("good", logged && random.percent(60) ? (random.percent(75) ? "TRUE" : "FALSE") : "");
    xml.close();
}

void writeLabels(XmlStreamWriter &xml, BenchRandom &random)
{
    if (random.percent(55))
        return;
    xml.open("labels");
    xml.leaf("label2", random.pick(Labels));
    xml.close();
}

void writeComments(XmlStreamWriter &xml, BenchRandom &random)
{
    if (random.percent(60))
        return;
    static constexpr std::array<std::string_view, 4> Tags{"mastercomment1", "mastercomment2",
                                                          "mastercomment3", "mastercomment4"};
    xml.open("comments");
    xml.leaf(Tags[0], random.pick(Comments));
    for (std::size_t tag = 1; tag < Tags.size(); ++tag) {
        if (random.percent(30))
            xml.leaf(Tags[tag], random.pick(Comments));
    }
    xml.close();
}

} // namespace

std::string formatted(const char *format, ...)
{
    char text[128];
    std::va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return text;
}

BenchRandom randomFor(Stream stream, int index)
{
    return BenchRandom::forItem(ProjectSeed, stream, static_cast<std::uint64_t>(index));
}

std::string makeUuid(BenchRandom &random)
{
    static constexpr char Hex[] = "0123456789ABCDEF";
    const std::uint64_t high = random.next();
    const std::uint64_t low = random.next();
    std::string uuid;
    for (int digit = 0; digit < 32; ++digit) {
        if (digit == 8 || digit == 12 || digit == 16 || digit == 20)
            uuid.push_back('-');
        const std::uint64_t bits = digit < 16 ? high >> (60 - 4 * digit) : low >> (124 - 4 * digit);
        uuid.push_back(Hex[bits & 0xF]);
    }
    return uuid;
}

Layout planLayout(int clipCount)
{
    BenchRandom random(ProjectSeed ^ LayoutStream);
    Layout layout;
    const int loose = std::min(clipCount, std::clamp(clipCount / 200, 1, 500));
    layout.cards.push_back({0, loose, 0, 0, 0, Source::Location});
    int day = 1;
    int cardsInDay = 0;
    int cardsPerDay = random.between(6, 14);
    for (int first = loose; first < clipCount;) {
        const int count = std::min(random.between(40, 160), clipCount - first);
        const int selects = random.percent(35) ? std::min(count / 4, random.between(3, 12)) : 0;
        const auto number = static_cast<int>(layout.cards.size());
        layout.cards.push_back({first, count, number, day, selects, random.pick(SourceMix)});
        layout.dayCount = day;
        first += count;
        if (++cardsInDay == cardsPerDay) {
            ++day;
            cardsInDay = 0;
            cardsPerDay = random.between(6, 14);
        }
    }
    layout.sequenceCount = std::clamp(clipCount / 4000, 2, 40);
    return layout;
}

std::string folderName(const Card &card)
{
    switch (card.source) {
    case Source::Cinema: return formatted("Reel %02d", card.number);
    case Source::Dslr: return formatted("Card %02d", card.number);
    case Source::Xdcam: return formatted("XDCAM %03d", card.number);
    case Source::Tape: return formatted("Tape %03d", card.number);
    case Source::Sound: return formatted("Sound Roll %02d", card.number);
    case Source::Location: break;
    }
    if (card.number == 0)
        return "Imports";
    return std::string(Places[static_cast<std::size_t>(card.number) % Places.size()])
           + formatted(" %02d", card.number);
}

MasterClip describeClip(const Layout &layout, int index)
{
    const Card &card = cardOfClip(layout, index);
    const int position = index - card.firstClip;
    BenchRandom random = randomFor(ClipStream, index);
    MasterClip clip;
    const std::string baseName = fileBaseName(card, position, random);
    clip.name = clipName(baseName, random);
    clip.id = percentEncoded(baseName) + formatted("-%d", index + 1);
    clip.fileId = clip.id + "-file";
    clip.fileName = baseName + std::string(fileExtension(card));
    if (card.source == Source::Tape || card.source == Source::Cinema)
        clip.reel = formatted("%03d", card.number);
    if (!random.percent(3)) {
        const std::string_view drive = Drives[static_cast<std::size_t>(card.day) % Drives.size()];
        const std::string path = "/Volumes/" + std::string(drive) + "/" + folderName(card) + "/"
                                 + clip.fileName;
        clip.pathUrl = "file://localhost" + percentEncoded(path);
    }
    if (!random.percent(5))
        clip.uuid = makeUuid(random);
    clip.video = videoFormat(card, random);
    clip.timebase = clip.video != nullptr ? clip.video->timebase : 25;
    clip.ntsc = clip.video != nullptr && clip.video->ntsc;
    clip.duration = random.between(48, 9000);
    clip.firstFrame = random.between(3600, 82800) * clip.timebase;
    clip.hasAudio = clip.video == nullptr || !random.percent(10);
    clip.audioTracks = random.percent(60) ? 1 : 2;
    clip.sampleRate = random.percent(85) ? 48000 : (random.percent(50) ? 44100 : 96000);
    clip.depth = random.percent(70) ? 16 : 24;
    clip.fileOnClip = clip.video != nullptr && random.percent(1);
    return clip;
}

void writeRate(XmlStreamWriter &xml, int timebase, bool ntsc)
{
    xml.open("rate");
    xml.flag("ntsc", ntsc);
    xml.leaf("timebase", timebase);
    xml.close();
}

void writeVideoCharacteristics(XmlStreamWriter &xml, const VideoFormat &format)
{
    xml.open("samplecharacteristics");
    xml.leaf("width", format.width);
    xml.leaf("height", format.height);
    xml.leaf("pixelaspectratio", format.pixelAspectRatio);
    xml.leaf("fielddominance", format.fieldDominance);
    writeRate(xml, format.timebase, format.ntsc);
    xml.open("codec");
    xml.leaf("name", format.codec);
    xml.close();
    xml.close();
}

void writeAudioCharacteristics(XmlStreamWriter &xml, int sampleRate, int depth)
{
    xml.open("samplecharacteristics");
    xml.leaf("samplerate", sampleRate);
    xml.leaf("depth", depth);
    xml.close();
}

void writeSourceTrack(XmlStreamWriter &xml, bool video, int trackIndex)
{
    xml.open("sourcetrack");
    xml.leaf("mediatype", video ? "video" : "audio");
    if (!video)
        xml.leaf("trackindex", trackIndex);
    xml.close();
}

void writeMasterClip(XmlStreamWriter &xml, const Layout &layout, int index)
{
    const MasterClip clip = describeClip(layout, index);
    BenchRandom random = randomFor(MetadataStream, index);
    xml.open("clip", "id", clip.id);
    if (!clip.uuid.empty())
        xml.leaf("uuid", clip.uuid);
    xml.leaf("updatebehavior", "add");
    xml.leaf("name", clip.name);
    xml.leaf("duration", clip.duration);
    writeRate(xml, clip.timebase, clip.ntsc);
    // Clips carried over from old projects name their file directly and
    // predate master clip ids.
    if (!clip.fileOnClip) {
        xml.leaf("masterclipid", clip.id);
        xml.flag("ismasterclip", true);
    }
    writeLoggingInfo(xml, random);
    writeLabels(xml, random);
    writeComments(xml, random);
    if (clip.fileOnClip)
        writeFile(xml, clip);
    else
        writeClipMedia(xml, clip);
    xml.close();
}

} // namespace synthetic
