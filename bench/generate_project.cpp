// Writes a large Final Cut Pro 7 project export (xmeml version 5) for the
// load benchmarks: nested bins of master clips with the metadata editors
// log, and sequences that cut those clips together. The output depends only
// on the clip count, so every run writes the same bytes.
//
// Usage: generate_project --clips N --output path.xml

#include "SyntheticProject.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

constexpr int MaximumClips = 10'000'000;

struct Options
{
    int clips = 0;
    std::string output;
};

bool parseOptions(int argc, char **argv, Options &options)
{
    for (int argument = 1; argument + 1 < argc; argument += 2) {
        const std::string_view name = argv[argument];
        const char *value = argv[argument + 1];
        if (name == "--clips") {
            char *end = nullptr;
            const long clips = std::strtol(value, &end, 10);
            if (*end != '\0' || clips < 1 || clips > MaximumClips)
                return false;
            options.clips = static_cast<int>(clips);
        } else if (name == "--output") {
            options.output = value;
        } else {
            return false;
        }
    }
    return argc % 2 == 1 && options.clips > 0 && !options.output.empty();
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    if (!parseOptions(argc, argv, options)) {
        std::fprintf(stderr,
                     "usage: generate_project --clips N --output path.xml  (1 <= N <= %d)\n",
                     MaximumClips);
        return 2;
    }
    const auto started = std::chrono::steady_clock::now();
    const std::string error = synthetic::writeProjectFile(options.output, options.clips);
    if (!error.empty()) {
        std::fprintf(stderr, "generate_project: %s\n", error.c_str());
        return 1;
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - started;
    std::printf("generate_project: %d clips written to %s in %.2f s\n", options.clips,
                options.output.c_str(), elapsed.count());
    return 0;
}
