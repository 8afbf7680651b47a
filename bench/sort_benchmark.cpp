// Measures the whole main job of the command line on a large project,
// `corvale sort PROJECT --smart-range scene -o OUTPUT` (open, restore,
// resolve, generate, merge, pretty-print, write), against
// `xmllint --format PROJECT --output FILE` on the same file in the same run.
//
// Usage: sort_benchmark CORVALE PROJECT
//
// Both run as child processes; their wall time is taken around the child
// and their peak memory from wait4's rusage. The outputs go to a scratch
// folder beside the project, removed at the end. Run with HOME and the XDG
// folders in a scratch place (bench/run does): the sort stores its settings
// file and log there. Prints a table with each target marked "met" or
// "NOT met"; exits 0 either way, 1 when either program fails, 2 for a usage
// error.

#include "BenchMeasure.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

constexpr double MaximumTimeRatio = 0.8;   // of xmllint --format's wall time
constexpr double MaximumMemoryRatio = 4.5; // of the file size

using bench::ChildRun;
using bench::Mebibyte;
using bench::runChild;
using bench::verdict;

void printRun(const char *label, const ChildRun &run)
{
    std::printf("  %-40s %9.3f s wall %9.3f s cpu %9.1f MiB peak\n", label, run.seconds, run.cpuSeconds,
                run.peakBytes() / Mebibyte);
}

void printReport(double fileBytes, const ChildRun &sort, const ChildRun &reference)
{
    std::printf("  %-40s %9.1f MiB\n", "project file", fileBytes / Mebibyte);
    printRun("corvale sort --smart-range scene -o", sort);
    printRun("xmllint --format --output", reference);
    const double timeRatio = sort.seconds / reference.seconds;
    const double memoryRatio = sort.peakBytes() / fileBytes;
    std::printf("  %-40s %9.2f x (target at most %.2f: %s)\n", "sort time / xmllint time", timeRatio,
                MaximumTimeRatio, verdict(timeRatio <= MaximumTimeRatio));
    std::printf("  %-40s %9.2f x (target at most %.2f: %s)\n", "sort peak memory / file size", memoryRatio,
                MaximumMemoryRatio, verdict(memoryRatio <= MaximumMemoryRatio));
}

void addToSummary(double fileBytes, const ChildRun &sort, const ChildRun &reference)
{
    using bench::format;
    const double timeRatio = sort.seconds / reference.seconds;
    const double memoryRatio = sort.peakBytes() / fileBytes;
    bench::addToSummary({"sort", "time: corvale sort --smart-range scene -o", format("%.3f s", sort.seconds),
                         format("xmllint --format %.3f s", reference.seconds),
                         format("at most %.2f x reference", MaximumTimeRatio),
                         format("%s (%.2f x)", verdict(timeRatio <= MaximumTimeRatio), timeRatio)});
    bench::addToSummary({"sort", "peak memory", format("%.0f MiB", sort.peakBytes() / Mebibyte),
                         format("file %.0f MiB; xmllint --format %.0f MiB", fileBytes / Mebibyte,
                                reference.peakBytes() / Mebibyte),
                         format("at most %.1f x file", MaximumMemoryRatio),
                         format("%s (%.2f x)", verdict(memoryRatio <= MaximumMemoryRatio), memoryRatio)});
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: sort_benchmark CORVALE PROJECT\n");
        return 2;
    }
    const std::string corvale = argv[1];
    const std::string project = argv[2];
    struct stat status {};
    if (::stat(project.c_str(), &status) != 0 || !bench::warmPageCache(project)) {
        std::fprintf(stderr, "sort_benchmark: cannot read %s\n", project.c_str());
        return 1;
    }
    std::string scratchTemplate = std::filesystem::path(project).parent_path().string() + "/sort-benchmark-XXXXXX";
    if (!mkdtemp(scratchTemplate.data())) {
        std::fprintf(stderr, "sort_benchmark: cannot make a scratch folder: %s\n", std::strerror(errno));
        return 1;
    }
    const std::string scratch = scratchTemplate;

    const ChildRun reference = runChild({"xmllint", "--format", project, "--output", scratch + "/xmllint.xml"});
    std::filesystem::remove(scratch + "/xmllint.xml");
    const ChildRun sort = runChild({corvale, "sort", project, "--smart-range", "scene", "-o", scratch + "/sorted.xml"});
    std::error_code ignored;
    std::filesystem::remove_all(scratch, ignored);

    if (!sort.succeeded || !reference.succeeded) {
        std::fprintf(stderr, "sort_benchmark: %s\n", (!sort.succeeded ? sort : reference).failure.c_str());
        return 1;
    }
    printReport(static_cast<double>(status.st_size), sort, reference);
    addToSummary(static_cast<double>(status.st_size), sort, reference);
    return 0;
}
