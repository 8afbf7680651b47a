// File waits that return at once and remember what they were asked to wait for.
#pragma once

#include "TLFileWaiting.h"

#include <string>
#include <utility>
#include <vector>

namespace test {

class FakeFileWaiting : public TLFileWaiting
{
public:
    void waitForFileCreation(const std::string &path, double timeoutSeconds) override
    {
        creationWaits.emplace_back(path, timeoutSeconds);
    }

    void waitForFileWrites(const std::string &path) override { writeWaits.push_back(path); }

    void waitForFileWrites(const std::string &path, const std::string &lockFile) override
    {
        lockedWriteWaits.emplace_back(path, lockFile);
    }

    std::vector<std::pair<std::string, double>> creationWaits;
    std::vector<std::string> writeWaits;
    // Waits with a lock file: (path, lock file).
    std::vector<std::pair<std::string, std::string>> lockedWriteWaits;
};

} // namespace test
