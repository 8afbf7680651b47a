// Any bytes opened as an xmeml file: loaded from disk as a document is
// opened, its clips and master-clip paths collected, then a smart bin (every
// field, every comparison, every match type) and a smart range (every
// criterion, in both modes) resolved over it.
#include "FuzzSupport.h"

#include "TLFCPProjectController.h"
#include "TLSmartBinParser.h"
#include "TLSmartRangeParser.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

constexpr std::int64_t largestFilterType = 20;
constexpr std::int64_t largestCriterion = 18;

std::string projectPath()
{
    return std::string(std::getenv("HOME")) + "/project.xml";
}

void writeProject(const std::string &path, std::string_view bytes)
{
    std::FILE *file = std::fopen(path.c_str(), "wb");
    if (!file)
        std::abort();
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (std::fclose(file) != 0 || !written)
        std::abort();
}

// One row per field, the comparisons taken in turn, compared with a text
// from the project itself so that equality and ordering get exercised.
TLFilterList filterRows(const std::string &text)
{
    TLFilterList rows;
    for (std::int64_t type = -1; type <= largestFilterType + 1; ++type)
        rows.push_back(TLSmartBinFilter::create(type, (type + 1) % 7, text));
    return rows;
}

void resolveSmartBins(const TLFCPProjectController &controller)
{
    const std::vector<std::string> names = controller.stringValuesForQuery(".//clip/name");
    const std::string text = names.empty() ? std::string("a") : names.front();
    const TLFilterList rows = filterRows(text);
    for (std::int64_t matchType = 0; matchType <= 2; ++matchType)
        (void)TLSmartBinParser::binFromFilterArray(rows, "Fuzz", matchType, controller);
    const TLFilterList single = {TLSmartBinFilter::create(0, 0, text)};
    (void)TLSmartBinParser::arrayFromFilterArray(single, "Fuzz", 0, controller);
}

void resolveSmartRanges(const TLFCPProjectController &controller)
{
    for (std::int64_t criterion = -1; criterion <= largestCriterion + 1; ++criterion) {
        const TLSmartRangeItemList items = TLSmartRangeParser::arrayForCriteria(criterion, controller);
        if (items.empty())
            continue;
        try {
            (void)TLSmartRangeParser::arrayForCriteria(criterion, items.front()->binName(), controller);
        } catch (const std::invalid_argument &) {
            // The documented refusal of a matching clip without a uuid.
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::sandbox(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const std::string path = projectPath();
    writeProject(path, fuzz::text(data, size));
    TLFCPProjectController controller;
    if (!controller.setXmlDocFromFilePath(path))
        std::abort(); // a readable regular file always loads, parsed or not
    controller.collectClipsAndMasterClipPaths();
    if (!controller.xmlDoc())
        return 0;
    resolveSmartBins(controller);
    resolveSmartRanges(controller);
    for (const auto &clip : controller.clips())
        (void)controller.clipNodeWithUUID(clip.node().child_value("uuid"));
    (void)controller.nodeWithUUID("0A1B2C3D-0000-4000-8000-000000000002", "bin");
    return 0;
}
