// Measures saving and restoring the keyed archive of a large smart range:
// building the archive, writing it as a binary property list (libplist's
// writer against the application's own), and reading it back.
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

#include <algorithm>
#include <cstdio>
#include <cstdlib>
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

struct Figures
{
    std::size_t items = 0;
    std::size_t objects = 0;
    std::size_t bytes = 0;
    double archive = 0;
    std::optional<double> libplistWrite;
    double write = 0;
    double libplistRead = 0;
    double checkedRead = 0;
    double unarchive = 0;
    std::string failure;
};

std::optional<double> timeLibplistWrite(plist_t root)
{
    const Clock::time_point started = Clock::now();
    char *bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    const double seconds = secondsSince(started);
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
    Clock::time_point started = Clock::now();
    const TLPropertyList archive = TLKeyedArchiver::archivedPropertyListWithRootObject(tree);
    figures.archive = secondsSince(started);
    if (!archive) {
        figures.failure = "the tree cannot be archived";
        return figures;
    }
    figures.objects = plist_array_get_size(archive.itemForKey("$objects"));
    if (withLibplist)
        figures.libplistWrite = timeLibplistWrite(archive.root());
    started = Clock::now();
    const auto bytes = TLBinaryPropertyListWriter::dataWithPropertyList(archive.root());
    figures.write = secondsSince(started);
    if (!bytes) {
        figures.failure = "the archive cannot be written";
        return figures;
    }
    figures.bytes = bytes->size();
    measureReading(*bytes, tree.size(), figures);
    return figures;
}

// The best of three runs of the application's own steps (libplist's
// writer runs once: it takes minutes): a busy machine slows single runs of
// a few milliseconds by several times, which would hide how they grow.
Figures measure(std::size_t itemCount, bool withLibplist)
{
    Figures best = measureOnce(itemCount, withLibplist);
    for (int run = 1; run < 3 && best.failure.empty(); ++run) {
        const Figures again = measureOnce(itemCount, false);
        if (!again.failure.empty())
            return again;
        best.archive = std::min(best.archive, again.archive);
        best.write = std::min(best.write, again.write);
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
    std::printf("  %8zu %9zu %7.1f MiB %7.3f s %s %7.3f s %7.3f s %7.3f s %7.3f s\n", figures.items,
                figures.objects, static_cast<double>(figures.bytes) / Mebibyte, figures.archive, libplist,
                figures.write, figures.libplistRead, figures.checkedRead, figures.unarchive);
}

// Storing and restoring a settings file: building the archive and writing
// it, then the checked parse and the unarchiving.
double saveSeconds(const Figures &figures)
{
    return figures.archive + figures.write;
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
    std::printf("  %8s %9s %11s %9s %9s %9s %9s %9s %9s\n", "items", "objects", "size", "archive",
                "libplist", "write", "parse", "checked", "unarchive");
    std::printf("  %8s %9s %11s %9s %9s %9s %9s %9s %9s\n", "", "", "", "", "write", "", "(libplist)",
                "parse", "");
    bool failed = false;
    std::vector<Figures> all;
    for (const std::size_t divisor : {4, 2, 1}) {
        all.push_back(measure(options.items / divisor, options.withLibplist));
        printFigures(all.back());
        failed = failed || !all.back().failure.empty();
    }
    addToSummary(all.front(), all.back());
    std::printf("\n  write: the application's writer; checked parse: the structure scan and libplist's parse, "
                "as settings are read; each the best of three runs.\n");
    return failed ? 1 : 0;
}
