// A Premiere Pro that "exports" prepared contents and remembers each request.
#pragma once

#include "TLPremiereBridge.h"
#include "TestSupport.h"

#include <optional>
#include <string>
#include <vector>

namespace test {

class FakePremiereBridge : public TLPremiereBridge
{
public:
    void openProject(const std::string &path) override { openedProjects.push_back(path); }

    void exportFCPXML(const std::string &path) override
    {
        exportPaths.push_back(path);
        if (exportContents)
            writeFile(path, *exportContents);
    }

    // What an export writes; nothing at all (no file) when absent.
    std::optional<std::string> exportContents;

    std::vector<std::string> openedProjects;
    std::vector<std::string> exportPaths;
};

} // namespace test
