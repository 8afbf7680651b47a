// Measures how long opening a large xmeml project takes and how much memory
// it needs, against `xmllint --noout` on the same file in the same run.
//
// Usage: load_benchmark [--expect-clips N] project.xml
//
// Prints one table with each target marked "met" or "NOT met". Exits 0
// either way; 1 when the project cannot be loaded or does not hold the
// expected number of clips, 2 for a usage error.

#include "BenchMeasure.h"
#include "TLFCPProjectController.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>

namespace {

constexpr double MaximumTimeRatio = 0.2;    // of xmllint --noout's wall time
constexpr double MaximumMemoryRatio = 3.5;  // of the file size

using bench::ChildRun;
using bench::Clock;
using bench::Mebibyte;
using bench::secondsSince;
using bench::verdict;

// Runs `xmllint --noout path` and collects its own rusage through wait4.
// Started before the project is loaded, while this process is still small,
// so that the child's peak is its own and not inherited through fork.
ChildRun runXmllint(const std::string &path)
{
    ChildRun run = bench::runChild({"xmllint", "--noout", path});
    if (run.ran && !run.succeeded)
        run.failure = run.exitStatus == 127 ? "xmllint is not installed (scripts/install-deps libxml2-utils)"
                                            : "xmllint --noout failed on the file";
    return run;
}

struct LoadRun
{
    double parseSeconds = 0;
    double collectSeconds = 0;
    double clipQuerySeconds = 0;
    std::size_t clipCount = 0;
    std::size_t tableCount = 0;
    long peakKilobytes = 0;

    double totalSeconds() const { return parseSeconds + collectSeconds; }
    double peakBytes() const { return static_cast<double>(peakKilobytes) * 1024.0; }
};

// Opens the project as a document does: parse, then the clip list and the
// master-clip path table. The clip query is timed once more on its own
// afterwards, outside the total, to show how the collecting step divides.
std::optional<LoadRun> loadProject(const std::string &path)
{
    LoadRun run;
    TLFCPProjectController controller;
    Clock::time_point started = Clock::now();
    if (!controller.setXmlDocFromFilePath(path) || controller.xmlDoc() == nullptr)
        return std::nullopt;
    run.parseSeconds = secondsSince(started);

    started = Clock::now();
    controller.collectClipsAndMasterClipPaths();
    run.collectSeconds = secondsSince(started);
    run.peakKilobytes = bench::ownPeakKilobytes();
    run.clipCount = controller.clips().size();
    run.tableCount = controller.masterClipPaths().size();

    started = Clock::now();
    const std::size_t queried =
        controller.nodesForQuery(".//clip").value_or(TLXMLNodeList{}).size();
    run.clipQuerySeconds = secondsSince(started);
    if (queried != run.clipCount)
        std::fprintf(stderr, "load_benchmark: the clip query found %zu clips, the load %zu\n",
                     queried, run.clipCount);
    return run;
}

void printSeconds(const char *label, double seconds)
{
    std::printf("  %-48s %12.3f s\n", label, seconds);
}

void printMebibytes(const char *label, double bytes)
{
    std::printf("  %-48s %12.1f MiB\n", label, bytes / Mebibyte);
}

void printCount(const char *label, std::size_t count)
{
    std::printf("  %-48s %12zu\n", label, count);
}

void printMeasurements(const LoadRun &load, const ChildRun &reference)
{
    printSeconds("parse (setXmlDocFromFilePath)", load.parseSeconds);
    printSeconds("clips and table (collectClipsAndMasterClipPaths)", load.collectSeconds);
    printSeconds("  of which the clip query (timed apart)", load.clipQuerySeconds);
    printSeconds("  of which the master-clip table (rest)",
                 std::max(0.0, load.collectSeconds - load.clipQuerySeconds));
    printSeconds("total load", load.totalSeconds());
    printCount("clips", load.clipCount);
    printCount("master-clip table entries", load.tableCount);
    printMebibytes("peak memory of the load (ru_maxrss)", load.peakBytes());
    if (!reference.succeeded) {
        std::printf("  %-48s %s\n", "xmllint --noout", reference.failure.c_str());
        return;
    }
    printSeconds("xmllint --noout", reference.seconds);
    printMebibytes("xmllint --noout peak memory (ru_maxrss)", reference.peakBytes());
}

void printTargets(double fileBytes, const LoadRun &load, const ChildRun &reference)
{
    const char *timeTarget = "load time <= 0.2 x xmllint --noout";
    std::printf("\n  %-48s %12s %12s  %s\n", "target", "limit", "measured", "result");
    if (reference.succeeded) {
        const double limit = MaximumTimeRatio * reference.seconds;
        std::printf("  %-48s %10.3f s %10.3f s  %s (%.2f x xmllint)\n", timeTarget, limit,
                    load.totalSeconds(), verdict(load.totalSeconds() <= limit),
                    load.totalSeconds() / reference.seconds);
    } else {
        std::printf("  %-48s %12s %10.3f s  %s (no reference)\n", timeTarget, "-",
                    load.totalSeconds(), verdict(false));
    }
    const double limit = MaximumMemoryRatio * fileBytes;
    std::printf("  %-48s %8.1f MiB %8.1f MiB  %s (%.2f x file)\n",
                "peak memory < 3.5 x file size", limit / Mebibyte, load.peakBytes() / Mebibyte,
                verdict(load.peakBytes() < limit), load.peakBytes() / fileBytes);
}

void addTargetsToSummary(double fileBytes, const LoadRun &load, const ChildRun &reference)
{
    using bench::format;
    const std::string timeResult =
        reference.succeeded ? format("%s (%.2f x)", verdict(load.totalSeconds() <= MaximumTimeRatio * reference.seconds),
                                     load.totalSeconds() / reference.seconds)
                            : std::string("NOT met (no reference)");
    bench::addToSummary({"load", "time: parse, clips and table", format("%.3f s", load.totalSeconds()),
                         reference.succeeded ? format("xmllint --noout %.3f s", reference.seconds)
                                             : "xmllint --noout: " + reference.failure,
                         format("at most %.2f x reference", MaximumTimeRatio), timeResult});
    const std::string xmllintPeak =
        reference.succeeded ? format("; xmllint --noout %.0f MiB", reference.peakBytes() / Mebibyte) : std::string();
    bench::addToSummary({"load", "peak memory", format("%.0f MiB", load.peakBytes() / Mebibyte),
                         format("file %.0f MiB", fileBytes / Mebibyte) + xmllintPeak,
                         format("under %.1f x file", MaximumMemoryRatio),
                         format("%s (%.2f x)", verdict(load.peakBytes() < MaximumMemoryRatio * fileBytes),
                                load.peakBytes() / fileBytes)});
}

} // namespace

int main(int argc, char **argv)
{
    bench::ProjectOptions options;
    if (!bench::parseProjectOptions(argc, argv, options)) {
        std::fprintf(stderr, "usage: load_benchmark [--expect-clips N] project.xml\n");
        return 2;
    }
    struct stat status{};
    if (stat(options.path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)
        || !bench::warmPageCache(options.path)) {
        std::fprintf(stderr, "load_benchmark: cannot read %s\n", options.path.c_str());
        return 1;
    }
    const ChildRun reference = runXmllint(options.path);
    const std::optional<LoadRun> load = loadProject(options.path);
    if (!load) {
        std::fprintf(stderr, "load_benchmark: %s did not load as an xmeml project\n",
                     options.path.c_str());
        return 1;
    }
    const auto fileBytes = static_cast<double>(status.st_size);
    std::printf("Load benchmark: %s (%.1f MiB)\n\n", options.path.c_str(), fileBytes / Mebibyte);
    printMeasurements(*load, reference);
    printTargets(fileBytes, *load, reference);
    addTargetsToSummary(fileBytes, *load, reference);
    if (options.expectedClips && static_cast<long>(load->clipCount) != *options.expectedClips) {
        std::fprintf(stderr, "load_benchmark: expected %ld clips, the load found %zu\n",
                     *options.expectedClips, load->clipCount);
        return 1;
    }
    return 0;
}
