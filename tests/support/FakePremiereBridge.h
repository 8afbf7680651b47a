// A Premiere Pro that "exports" prepared contents and remembers each request.
#pragma once

#include "TLPremiereBridge.h"
#include "TestSupport.h"

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace test {

class FakePremiereBridge : public TLPremiereBridge
{
public:
    // An xmeml file handed over for import, with what it held at that moment
    // (nullopt when there was no file).
    struct Import
    {
        std::string path;
        std::optional<std::string> contents;
    };

    void openProject(const std::string &path) override { openedProjects.push_back(path); }

    void exportFCPXML(const std::string &path) override
    {
        exportPaths.push_back(path);
        if (exportContents)
            writeFile(path, *exportContents);
    }

    // Imports may come from a document's send thread.
    void openFCPXML(const std::string &path) override
    {
        std::optional<std::string> contents;
        if (std::filesystem::is_regular_file(path))
            contents = readFile(path);
        const std::lock_guard lock(m_importMutex);
        m_imports.push_back({path, std::move(contents)});
    }

    std::vector<Import> imports() const
    {
        const std::lock_guard lock(m_importMutex);
        return m_imports;
    }

    // What an export writes; nothing at all (no file) when absent.
    std::optional<std::string> exportContents;

    std::vector<std::string> openedProjects;
    std::vector<std::string> exportPaths;

private:
    mutable std::mutex m_importMutex;
    std::vector<Import> m_imports;
};

} // namespace test
