// Measures saving and restoring the keyed archive of a large smart range:
// the archiver writing its bytes straight from the bin tree, for its time and
// the memory it adds, against the route through a libplist tree (and
// libplist's own writer), and reading the archive back; then writing the
// full archive as an XML settings file through libplist and streamed, for
// the memory each way adds and its time.
//
// Usage: plist_benchmark [--items N] [--without-libplist]
//
// The tree is a smart range of N media items (default 100000) spread over
// one bin per reel, as sorting a large project by reel makes it. Each step
// is timed at N/4, N/2 and N items, so that growth faster than the tree
// shows in the figures. --without-libplist leaves out libplist's writer,
// which takes minutes at full size. Exits 0 when every step did its work,
// 1 when a step failed (an archive that cannot be written or read back), 2
// for a usage error.

#include "BenchMeasure.h"
#include "TLBinaryPropertyListWriter.h"
#include "TLKeyedArchiver.h"
#include "TLKeyedUnarchiver.h"
#include "TLMediaItem.h"
#include "TLPropertyList.h"
#include "TLSmartRangeItem.h"

#include <plist/plist.h>

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using bench::Clock;
using bench::Mebibyte;
using bench::secondsSince;

constexpr std::size_t ItemsPerReel = 400;

struct Options
{
    std::size_t items = 100000;
    bool withLibplist = true;
};

bool parseOptions(int argc, char **argv, Options &options)
{
    for (int argument = 1; argument < argc; ++argument) {
        const std::string_view text = argv[argument];
        if (text == "--items" && argument + 1 < argc) {
            char *end = nullptr;
            const long value = std::strtol(argv[++argument], &end, 10);
            if (*end != '\0' || value < 4)
                return false;
            options.items = static_cast<std::size_t>(value);
        } else if (text == "--without-libplist") {
            options.withLibplist = false;
        } else {
            return false;
        }
    }
    return true;
}

std::string hexNumber(std::size_t value, int digits)
{
    char text[32];
    std::snprintf(text, sizeof text, "%0*zX", digits, value);
    return text;
}

// One smart range item per reel, each holding the clips shot on it, with the
// paths, names and identifiers a Final Cut Pro project gives them.
TLNodeList smartRange(std::size_t itemCount)
{
    TLNodeList reels;
    for (std::size_t first = 0; first < itemCount; first += ItemsPerReel) {
        const std::size_t reel = first / ItemsPerReel + 1;
        const std::string reelName = "A" + hexNumber(reel, 3).substr(0, 3);
        auto item = TLSmartRangeItem::create("Reel " + reelName, 2);
        item->setUuid(hexNumber(reel, 8) + "-5EED-4000-8000-000000000000");
        TLNodeList clips;
        for (std::size_t clip = first; clip < itemCount && clip < first + ItemsPerReel; ++clip) {
            const std::string name = reelName + "_C" + hexNumber(clip - first + 1, 3) + "_0612AB";
            clips.push_back(TLMediaItem::create("/Volumes/Media Drive/Day 04/" + reelName + "/CLIP/" + name + ".MOV",
                                                name, hexNumber(clip, 8) + "-C11B-4000-8000-" + hexNumber(clip, 12)));
        }
        item->setChildren(std::move(clips));
        reels.push_back(std::move(item));
    }
    return reels;
}

// A number field of /proc/self/status ("VmHWM:", in kB); nullopt if absent.
std::optional<long> statusKilobytes(std::string_view field)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(field))
            return std::strtol(line.c_str() + field.size(), nullptr, 10);
    }
    return std::nullopt;
}

// Hands free heap back to the system and sets the resident high-water mark
// (VmHWM) to the present resident size; returns that size in kB, nullopt
// when the kernel does not allow the reset. Without the trim a step could
// reuse memory an earlier one freed and hide part of its peak.
std::optional<long> resetPeakResidentKilobytes()
{
    malloc_trim(0);
    std::ofstream clearRefs("/proc/self/clear_refs");
    clearRefs << "5" << std::flush;
    if (!clearRefs)
        return std::nullopt;
    return statusKilobytes("VmHWM:");
}

// The time a step took and how far it raised the resident high-water mark.
struct Measured
{
    double seconds = 0;
    std::optional<double> addedBytes; // nullopt when the peak cannot be measured
};

template <typename Work>
Measured measureTimeAndPeak(Work &&work)
{
    Measured measured;
    const auto baseline = resetPeakResidentKilobytes();
    const Clock::time_point started = Clock::now();
    work();
    measured.seconds = secondsSince(started);
    const auto peak = statusKilobytes("VmHWM:");
    if (baseline && peak)
        measured.addedBytes = static_cast<double>(*peak - *baseline) * 1024.0;
    return measured;
}

// Of several runs: the best time and the highest peak.
void keepBest(Measured &best, const Measured &again)
{
    best.seconds = std::min(best.seconds, again.seconds);
    if (best.addedBytes && again.addedBytes)
        best.addedBytes = std::max(*best.addedBytes, *again.addedBytes);
}

std::string peakText(const Measured &measured)
{
    return measured.addedBytes ? bench::format("%.1f MiB", *measured.addedBytes / Mebibyte) : std::string("unknown");
}

struct Figures
{
    std::size_t items = 0;
    std::size_t objects = 0;
    std::size_t bytes = 0;
    Measured archive;       // the archiver, from bin tree to bytes
    Measured libplistRoute; // the same bytes by way of a libplist tree
    std::optional<double> libplistWrite;
    double libplistRead = 0;
    double checkedRead = 0;
    double unarchive = 0;
    std::string failure;
};

// The route archives took before the archiver wrote its bytes itself: a
// libplist tree of the archive, written by the application's writer. The
// tree is parsed from the archive here rather than built from the bin tree;
// both make the same tree, so the memory is about the same, and parsing is
// somewhat quicker than building was.
std::optional<std::string> writeThroughLibplistTree(const std::string &archive)
{
    plist_t tree = nullptr;
    plist_from_bin(archive.data(), static_cast<std::uint32_t>(archive.size()), &tree);
    if (!tree)
        return std::nullopt;
    auto bytes = TLBinaryPropertyListWriter::dataWithPropertyList(tree);
    plist_free(tree);
    return bytes;
}

// libplist's own writer on the libplist tree of the archive.
std::optional<double> timeLibplistWrite(const std::string &archive)
{
    plist_t tree = nullptr;
    plist_from_bin(archive.data(), static_cast<std::uint32_t>(archive.size()), &tree);
    if (!tree)
        return std::nullopt;
    const Clock::time_point started = Clock::now();
    char *bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(tree, &bytes, &length);
    const double seconds = secondsSince(started);
    plist_free(tree);
    if (!bytes)
        return std::nullopt;
    plist_to_bin_free(bytes);
    return seconds;
}

// Times the reading side three ways: libplist's parse alone, the checked
// parse the application uses (structure scan first), and the unarchiver.
void measureReading(const std::string &bytes, std::size_t expectedReels, Figures &figures)
{
    Clock::time_point started = Clock::now();
    plist_t raw = nullptr;
    plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &raw);
    figures.libplistRead = secondsSince(started);
    if (raw)
        plist_free(raw);

    std::string reason;
    started = Clock::now();
    const TLPropertyList list = TLPropertyList::fromBytes(bytes, reason);
    figures.checkedRead = secondsSince(started);
    if (!list) {
        figures.failure = "the archive does not read back: " + reason;
        return;
    }
    figures.objects = plist_array_get_size(list.itemForKey("$objects"));
    started = Clock::now();
    const auto nodes = TLKeyedUnarchiver::unarchiveObjectWithPropertyList(list.root(), reason);
    figures.unarchive = secondsSince(started);
    if (!nodes)
        figures.failure = "the archive does not unarchive: " + reason;
    else if (nodes->size() != expectedReels)
        figures.failure = "the archive unarchives to the wrong number of bins";
}

Figures measureOnce(std::size_t itemCount, bool withLibplist)
{
    Figures figures;
    figures.items = itemCount;
    const TLNodeList tree = smartRange(itemCount);
    std::optional<std::string> bytes;
    figures.archive = measureTimeAndPeak([&] { bytes = TLKeyedArchiver::archivedDataWithRootObject(tree); });
    if (!bytes) {
        figures.failure = "the tree cannot be archived";
        return figures;
    }
    figures.bytes = bytes->size();
    std::optional<std::string> rewritten;
    figures.libplistRoute = measureTimeAndPeak([&] { rewritten = writeThroughLibplistTree(*bytes); });
    if (rewritten != bytes) {
        figures.failure = "the archive is not what the application's writer makes of its libplist tree";
        return figures;
    }
    if (withLibplist)
        figures.libplistWrite = timeLibplistWrite(*bytes);
    measureReading(*bytes, tree.size(), figures);
    return figures;
}

// The best time of three runs of the application's own steps and the
// highest peak (libplist's writer runs once: it takes minutes): a busy
// machine slows single runs of a few milliseconds by several times, which
// would hide how they grow.
Figures measure(std::size_t itemCount, bool withLibplist)
{
    Figures best = measureOnce(itemCount, withLibplist);
    for (int run = 1; run < 3 && best.failure.empty(); ++run) {
        const Figures again = measureOnce(itemCount, false);
        if (!again.failure.empty())
            return again;
        keepBest(best.archive, again.archive);
        keepBest(best.libplistRoute, again.libplistRoute);
        best.libplistRead = std::min(best.libplistRead, again.libplistRead);
        best.checkedRead = std::min(best.checkedRead, again.checkedRead);
        best.unarchive = std::min(best.unarchive, again.unarchive);
    }
    return best;
}

void printFigures(const Figures &figures)
{
    if (!figures.failure.empty()) {
        std::printf("  %8zu  failed: %s\n", figures.items, figures.failure.c_str());
        return;
    }
    char libplist[32] = "      -  ";
    if (figures.libplistWrite)
        std::snprintf(libplist, sizeof libplist, "%7.3f s", *figures.libplistWrite);
    std::printf("  %8zu %9zu %7.1f MiB %7.3f s %11s %7.3f s %11s %s %7.3f s %7.3f s %7.3f s\n", figures.items,
                figures.objects, static_cast<double>(figures.bytes) / Mebibyte, figures.archive.seconds,
                peakText(figures.archive).c_str(), figures.libplistRoute.seconds,
                peakText(figures.libplistRoute).c_str(), libplist, figures.libplistRead, figures.checkedRead,
                figures.unarchive);
}

// Storing and restoring a settings file: archiving, then the checked parse
// and the unarchiving.
double saveSeconds(const Figures &figures)
{
    return figures.archive.seconds;
}

double restoreSeconds(const Figures &figures)
{
    return figures.checkedRead + figures.unarchive;
}

// One summary row: the full size against libplist's own writer, and how
// the time grows from a quarter of the items to all of them (linear growth
// makes it 4; 6 leaves room for the noise of short runs).
void addToSummary(const Figures &quarter, const Figures &full)
{
    using bench::format;
    constexpr double MaximumGrowth = 6.0;
    const std::string label = format("bin archive of %zu media items", full.items);
    const std::string reference =
        full.libplistWrite ? format("libplist's writer %.3f s", *full.libplistWrite) : std::string("libplist's writer not run");
    const std::string target = format("grows linearly: all items at most %.0f x a quarter", MaximumGrowth);
    if (!quarter.failure.empty() || !full.failure.empty()) {
        const std::string failure = full.failure.empty() ? quarter.failure : full.failure;
        bench::addToSummary({"plist", label, "failed: " + failure, reference, target, "NOT met"});
        return;
    }
    const double growth = (saveSeconds(full) + restoreSeconds(full)) / (saveSeconds(quarter) + restoreSeconds(quarter));
    bench::addToSummary({"plist", label,
                         format("save %.3f s, restore %.3f s, %.1f MiB", saveSeconds(full), restoreSeconds(full),
                                static_cast<double>(full.bytes) / Mebibyte),
                         reference, target, format("%s (%.1f x)", bench::verdict(growth <= MaximumGrowth), growth)});
}

// The archiver keeps the result, where each object starts, a copy of the
// tree's strings (indexed while the objects are numbered) and a few numbers
// an entry: a few times the archive's size, where the libplist tree of it
// took about fifteen.
constexpr double MaximumArchivePeakRatio = 5.0;

// One summary row: the time and memory of archiving at the full size,
// against the route through a libplist tree.
void addArchiveMemoryToSummary(const Figures &full)
{
    using bench::format;
    const std::string label = format("archiving %zu media items: time and memory", full.items);
    const std::string target = format("at most %.0f x the archive's size added", MaximumArchivePeakRatio);
    if (!full.failure.empty()) {
        bench::addToSummary({"plist", label, "failed: " + full.failure, "-", target, "NOT met"});
        return;
    }
    const std::optional<double> added = full.archive.addedBytes;
    const double ratio = added ? *added / static_cast<double>(full.bytes) : 0;
    bench::addToSummary({"plist", label, format("%.3f s, %s added", full.archive.seconds, peakText(full.archive).c_str()),
                         format("libplist route %.3f s, %s added", full.libplistRoute.seconds,
                                peakText(full.libplistRoute).c_str()),
                         target,
                         added ? format("%s (%.1f x)", bench::verdict(ratio <= MaximumArchivePeakRatio), ratio)
                               : std::string("- (peak unknown)")});
}

// The settings file holds the archive under this key, as the document saves it.
constexpr std::string_view SettingsDataKey = "data";
// The streamed writer's buffers are a few megabytes whatever the archive.
constexpr double MaximumStreamedPeak = 16 * Mebibyte;

struct SettingsWrite
{
    Measured measured;
    std::string failure;
};

using SettingsWriter = std::function<std::string(const std::string &path, const std::string &archive)>;

SettingsWrite measureSettingsWriteOnce(const SettingsWriter &write, const std::string &path,
                                       const std::string &archive)
{
    SettingsWrite result;
    result.measured = measureTimeAndPeak([&] { result.failure = write(path, archive); });
    return result;
}

// The best time of three runs and the highest peak among them.
SettingsWrite measureSettingsWrite(const SettingsWriter &write, const std::string &path, const std::string &archive)
{
    SettingsWrite best = measureSettingsWriteOnce(write, path, archive);
    for (int run = 1; run < 3 && best.failure.empty(); ++run) {
        const SettingsWrite again = measureSettingsWriteOnce(write, path, archive);
        best.failure = again.failure;
        keepBest(best.measured, again.measured);
    }
    return best;
}

// What the document does today: a dictionary built with libplist, which
// copies the archive, then turned into XML text whole before the write.
std::string writeSettingsThroughLibplist(const std::string &path, const std::string &archive)
{
    TLPropertyList settings = TLPropertyList::newDictionary();
    if (!settings.setDataForKey(SettingsDataKey, archive))
        return "the archive cannot be put in a dictionary";
    return settings.writeToFile(path, TLPropertyList::Format::XML);
}

std::string writeSettingsStreamed(const std::string &path, const std::string &archive)
{
    return TLPropertyList::writeDataDictionaryToFile(path, SettingsDataKey, archive);
}

bool haveSameContents(const std::string &onePath, const std::string &otherPath)
{
    std::ifstream one(onePath, std::ios::binary);
    std::ifstream other(otherPath, std::ios::binary);
    std::vector<char> oneChunk(std::size_t{1} << 20);
    std::vector<char> otherChunk(oneChunk.size());
    while (one && other) {
        one.read(oneChunk.data(), static_cast<std::streamsize>(oneChunk.size()));
        other.read(otherChunk.data(), static_cast<std::streamsize>(otherChunk.size()));
        if (one.gcount() != other.gcount()
            || !std::equal(oneChunk.begin(), oneChunk.begin() + one.gcount(), otherChunk.begin()))
            return false;
    }
    return one.eof() && other.eof();
}

struct SettingsFigures
{
    std::size_t items = 0;
    std::size_t archiveBytes = 0;
    std::uintmax_t fileBytes = 0;
    SettingsWrite libplist;
    SettingsWrite streamed;
    std::string failure;
};

// Writes the settings file of the archive both ways into a scratch folder,
// alternating the two, and checks that they wrote the same bytes.
void measureSettingsFile(const std::string &archive, SettingsFigures &figures)
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path folder = fs::temp_directory_path() / ("corvale-plist-benchmark-" + std::to_string(getpid()));
    fs::create_directories(folder, error);
    const std::string libplistPath = (folder / "libplist.plist").string();
    const std::string streamedPath = (folder / "streamed.plist").string();
    figures.archiveBytes = archive.size();
    figures.libplist = measureSettingsWrite(writeSettingsThroughLibplist, libplistPath, archive);
    figures.streamed = measureSettingsWrite(writeSettingsStreamed, streamedPath, archive);
    figures.fileBytes = fs::file_size(streamedPath, error);
    if (!figures.libplist.failure.empty())
        figures.failure = "libplist's route: " + figures.libplist.failure;
    else if (!figures.streamed.failure.empty())
        figures.failure = "streamed: " + figures.streamed.failure;
    else if (!haveSameContents(libplistPath, streamedPath))
        figures.failure = "the streamed settings file differs from libplist's";
    fs::remove_all(folder, error);
}

SettingsFigures measureSettingsFile(std::size_t itemCount)
{
    SettingsFigures figures;
    figures.items = itemCount;
    const auto archive = TLKeyedArchiver::archivedDataWithRootObject(smartRange(itemCount));
    if (!archive) {
        figures.failure = "the tree cannot be archived";
        return figures;
    }
    measureSettingsFile(*archive, figures);
    return figures;
}

void printSettingsFigures(const SettingsFigures &figures)
{
    std::printf("\nSettings file of the %zu-item archive (%.1f MiB), written as XML (%.1f MiB)\n\n", figures.items,
                static_cast<double>(figures.archiveBytes) / Mebibyte, static_cast<double>(figures.fileBytes) / Mebibyte);
    if (!figures.failure.empty()) {
        std::printf("  failed: %s\n", figures.failure.c_str());
        return;
    }
    std::printf("  %-9s %12s %9s\n", "route", "peak added", "write");
    for (const auto &[route, write] : {std::pair{"libplist", &figures.libplist}, {"streamed", &figures.streamed}})
        std::printf("  %-9s %12s %7.3f s\n", route, peakText(write->measured).c_str(), write->measured.seconds);
    std::printf("\n  peak added: how far the resident high-water mark (VmHWM, reset through /proc/self/clear_refs) "
                "rose above the size before the write; write: the best of three atomic replacements, each flushed to disk.\n");
}

void addSettingsToSummary(const SettingsFigures &figures)
{
    using bench::format;
    const std::string label = format("settings file of %zu media items", figures.items);
    const std::string target = format("same bytes, at most %.0f MiB added", MaximumStreamedPeak / Mebibyte);
    if (!figures.failure.empty()) {
        bench::addToSummary({"plist", label, "failed: " + figures.failure, "-", target, "NOT met"});
        return;
    }
    const Measured &streamed = figures.streamed.measured;
    const bool met = !streamed.addedBytes || *streamed.addedBytes <= MaximumStreamedPeak;
    bench::addToSummary({"plist", label, format("streamed %s added, %.3f s", peakText(streamed).c_str(), streamed.seconds),
                         format("libplist %s added, %.3f s", peakText(figures.libplist.measured).c_str(),
                                figures.libplist.measured.seconds),
                         target, streamed.addedBytes ? bench::verdict(met) : "- (peak unknown)"});
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    if (!parseOptions(argc, argv, options)) {
        std::fprintf(stderr, "usage: plist_benchmark [--items N] [--without-libplist]  (N at least 4)\n");
        return 2;
    }
    std::printf("Keyed archive benchmark: a smart range of %zu media items, %zu per reel\n\n", options.items,
                ItemsPerReel);
    std::printf("  %8s %9s %11s %9s %11s %9s %11s %9s %9s %9s %9s\n", "items", "objects", "size", "archive",
                "added", "libplist", "added", "libplist", "parse", "checked", "unarchive");
    std::printf("  %8s %9s %11s %9s %11s %9s %11s %9s %9s %9s %9s\n", "", "", "", "", "", "route", "", "write",
                "(libplist)", "parse", "");
    bool failed = false;
    std::vector<Figures> all;
    for (const std::size_t divisor : {4, 2, 1}) {
        all.push_back(measure(options.items / divisor, options.withLibplist));
        printFigures(all.back());
        failed = failed || !all.back().failure.empty();
    }
    addToSummary(all.front(), all.back());
    addArchiveMemoryToSummary(all.back());
    std::printf("\n  archive: the archiver, from bin tree to bytes; added: how far the resident high-water mark "
                "rose above the size before the step (the highest of three runs).\n"
                "  libplist route: the archive parsed into a libplist tree and written by the application's "
                "writer, standing in for the route archives took before (which built that same tree from the bin "
                "tree: about the same memory, somewhat more time); it must give the archiver's bytes.\n"
                "  checked parse: the structure scan and libplist's parse, as settings are read; times are "
                "the best of three runs.\n");
    all.clear();

    const SettingsFigures settings = measureSettingsFile(options.items);
    printSettingsFigures(settings);
    addSettingsToSummary(settings);
    failed = failed || !settings.failure.empty();
    return failed ? 1 : 0;
}
