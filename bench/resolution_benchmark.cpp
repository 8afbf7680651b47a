// Measures how long resolving smart bins, smart ranges and a long range
// expression takes on a large project, and how much memory it adds, against
// the time the same project takes to load in the same run.
//
// Usage: resolution_benchmark [--expect-clips N] project.xml
//
// Prints one table with each target marked "met" or "NOT met". Exits 0
// either way; 1 when the project cannot be loaded or does not hold the
// expected number of clips, 2 for a usage error. The application log is
// written as the application writes it: point HOME (and, as root,
// CORVALE_LOCAL_ROOT) at a scratch folder first, as bench/run does.

#include "BenchMeasure.h"
#include "TLBinRangeParser.h"
#include "TLFCPProjectController.h"
#include "TLLog.h"
#include "TLSmartBinParser.h"
#include "TLSmartRangeParser.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr double MaximumMemoryGrowth = 0.5; // of the loaded project's peak

using bench::Clock;
using bench::Mebibyte;
using bench::secondsSince;
using bench::verdict;

// Starts a fresh application log, so that the lines the resolvers write go
// to a file as they do in the application (and none is reported as lost).
void startLog()
{
    if (const std::optional<std::string> path = TLLog::currentLogPath()) {
        std::error_code ignored;
        std::filesystem::create_directories(std::filesystem::path(*path).parent_path(), ignored);
    }
    TLLog::createNewLog("resolution_benchmark", true);
}

struct Load
{
    double seconds = 0;
    double peak = 0;
};

// Opens the project as a document does: parse, then clips and table.
std::optional<Load> loadProject(TLFCPProjectController &controller, const std::string &path)
{
    const Clock::time_point started = Clock::now();
    if (!controller.setXmlDocFromFilePath(path) || controller.xmlDoc() == nullptr)
        return std::nullopt;
    controller.collectClipsAndMasterClipPaths();
    return Load{secondsSince(started), bench::ownPeakBytes()};
}

struct Figure
{
    std::string label;
    double seconds = 0;
    double drainSeconds = 0; // writing out the log lines queued meanwhile
    std::size_t size = 0;
    double peakGrowth = 0;
    std::string failure;
};

// Times one resolution; its result is released before the peak is read, so
// the growth is what the work needed at its height, result included.
Figure measure(std::string label, const Load &load, const std::function<std::size_t()> &work)
{
    Figure figure;
    figure.label = std::move(label);
    const Clock::time_point started = Clock::now();
    try {
        figure.size = work();
    } catch (const std::exception &exception) {
        figure.failure = exception.what();
    }
    figure.seconds = secondsSince(started);
    const Clock::time_point draining = Clock::now();
    TLLog::finishWriting();
    figure.drainSeconds = secondsSince(draining);
    figure.peakGrowth = std::max(0.0, bench::ownPeakBytes() - load.peak);
    return figure;
}

std::size_t childCount(const TLSmartRangeItemList &items)
{
    std::size_t count = 0;
    for (const std::shared_ptr<TLSmartRangeItem> &item : items)
        count += item->children()->size();
    return count;
}

// The value of the largest group: the saved bin that costs most to refill.
std::string largestGroup(const TLSmartRangeItemList &items)
{
    const auto largest = std::max_element(items.begin(), items.end(), [](const auto &left, const auto &right) {
        return left->children()->size() < right->children()->size();
    });
    return largest == items.end() ? std::string("Unspecified") : (*largest)->binName();
}

// A saved smart range bin can only be refilled when each of its clips has a
// uuid; the synthetic project leaves some clips without one, so they are
// given one before the refill is measured.
std::size_t giveEveryClipAUuid(const TLFCPProjectController &controller)
{
    std::size_t given = 0;
    for (const pugi::xpath_node &clip : controller.clips()) {
        pugi::xml_node node = clip.node();
        if (node.child("uuid"))
            continue;
        node.prepend_child("uuid").text().set(("BENCH-" + std::to_string(++given)).c_str());
    }
    return given;
}

std::string longRangeExpression()
{
    std::string expression = "Reel [";
    for (int item = 0; item < 200; ++item) {
        if (item > 0)
            expression += ",";
        expression += std::to_string(item * 1000 + 1) + "-" + std::to_string(item * 1000 + 1000);
    }
    return expression + "]";
}

TLFilterList filters(std::initializer_list<std::tuple<std::int64_t, std::int64_t, const char *>> rows)
{
    TLFilterList list;
    for (const auto &[type, match, text] : rows)
        list.push_back(TLSmartBinFilter::create(type, match, text));
    return list;
}

std::vector<Figure> runResolutions(const TLFCPProjectController &controller, const Load &load)
{
    std::vector<Figure> figures;
    const TLFilterList allRows = filters({{0, 0, "c0"}, {9, 2, "12"}, {6, 4, "1280"}});
    figures.push_back(measure("smart bin, all of 3 rows", load, [&] {
        return TLSmartBinParser::arrayFromFilterArray(allRows, "All", 2, controller).size();
    }));
    const TLFilterList anyRows = filters({{13, 0, "take"}});
    figures.push_back(measure("smart bin, any of 1 row", load, [&] {
        return TLSmartBinParser::arrayFromFilterArray(anyRows, "Any", 1, controller).size();
    }));
    std::string refillValue = "Unspecified";
    for (const auto &[criteria, name] : {std::pair{0, "file type"}, {2, "folder"}, {7, "scene"}, {17, "sample rate"}}) {
        figures.push_back(measure(std::string("smart range ") + std::to_string(criteria) + " (" + name + ")", load, [&] {
            const TLSmartRangeItemList items = TLSmartRangeParser::arrayForCriteria(criteria, controller);
            if (criteria == 7)
                refillValue = largestGroup(items);
            return childCount(items);
        }));
    }
    figures.push_back(measure("smart range 7 refill of \"" + refillValue + "\"", load, [&] {
        return TLSmartRangeParser::arrayForCriteria(7, refillValue, controller).size();
    }));
    const std::string expression = longRangeExpression();
    figures.push_back(measure("range expression, 200 x 1000 values", load, [&] {
        return TLBinRangeParser::arrayFromExpression(expression).size();
    }));
    return figures;
}

// One summary row a resolution: its time against the load's, and the
// memory it added against the loaded project's peak.
void addToSummary(const std::vector<Figure> &figures, const Load &load)
{
    using bench::format;
    const std::string reference = format("load %.3f s, peak %.0f MiB", load.seconds, load.peak / Mebibyte);
    const std::string target = format("under the load time; memory under +%.0f %%", 100.0 * MaximumMemoryGrowth);
    for (const Figure &figure : figures) {
        if (!figure.failure.empty()) {
            bench::addToSummary({"resolution", figure.label, "failed: " + figure.failure, reference, target, "NOT met"});
            continue;
        }
        const double growth = figure.peakGrowth / load.peak;
        const bool timeMet = figure.seconds < load.seconds;
        const bool memoryMet = growth < MaximumMemoryGrowth;
        std::string result = format("met (%.2f x load)", figure.seconds / load.seconds);
        if (!timeMet || !memoryMet) {
            const std::string time = timeMet ? "" : format("time %.2f x load", figure.seconds / load.seconds);
            const std::string memory = memoryMet ? "" : format("memory +%.1f %%", 100.0 * growth);
            result = "NOT met (" + time + (timeMet || memoryMet ? "" : ", ") + memory + ")";
        }
        bench::addToSummary({"resolution", figure.label,
                             format("%.3f s, +%.1f %% memory", figure.seconds, 100.0 * growth), reference, target,
                             result});
    }
}

void printFigures(const std::vector<Figure> &figures, const Load &load)
{
    std::printf("  %-40s %9s %9s %9s %10s  %s\n", "resolution", "time", "log", "result", "peak +",
                "targets: time < load, peak + < 50%");
    for (const Figure &figure : figures) {
        if (!figure.failure.empty()) {
            std::printf("  %-40s %7.3f s  failed: %s\n", figure.label.c_str(), figure.seconds,
                        figure.failure.c_str());
            continue;
        }
        const double growth = figure.peakGrowth / load.peak;
        std::printf("  %-40s %7.3f s %7.3f s %9zu %6.1f MiB  time %s (%.2f x load), memory %s (+%.1f%%)\n",
                    figure.label.c_str(), figure.seconds, figure.drainSeconds, figure.size,
                    figure.peakGrowth / Mebibyte, verdict(figure.seconds < load.seconds),
                    figure.seconds / load.seconds, verdict(growth < MaximumMemoryGrowth), 100.0 * growth);
    }
}

} // namespace

int main(int argc, char **argv)
{
    bench::ProjectOptions options;
    if (!bench::parseProjectOptions(argc, argv, options)) {
        std::fprintf(stderr, "usage: resolution_benchmark [--expect-clips N] project.xml\n");
        return 2;
    }
    startLog();
    TLFCPProjectController controller;
    const std::optional<Load> load = loadProject(controller, options.path);
    if (!load) {
        std::fprintf(stderr, "resolution_benchmark: %s did not load as an xmeml project\n", options.path.c_str());
        return 1;
    }
    const std::size_t clipCount = controller.clips().size();
    if (options.expectedClips && static_cast<long>(clipCount) != *options.expectedClips) {
        std::fprintf(stderr, "resolution_benchmark: expected %ld clips, the load found %zu\n",
                     *options.expectedClips, clipCount);
        return 1;
    }
    const std::size_t uuidsGiven = giveEveryClipAUuid(controller);
    std::printf("Resolution benchmark: %s\n\n", options.path.c_str());
    std::printf("  load (parse, clips and table)            %7.3f s, %zu clips, peak %.1f MiB\n",
                load->seconds, clipCount, load->peak / Mebibyte);
    std::printf("  clips given a uuid for the refill        %zu\n\n", uuidsGiven);
    const std::vector<Figure> figures = runResolutions(controller, *load);
    printFigures(figures, *load);
    addToSummary(figures, *load);
    std::printf("\n  \"log\" is the time taken afterwards to write out the log lines queued meanwhile.\n");
    return 0;
}
