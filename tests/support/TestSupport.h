// Helpers shared by every test program: temporary folders and file access.
#pragma once

#include "TLLog.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace test {

// A fresh folder under the sandbox, removed with everything in it when the
// object goes away.
class TemporaryFolder
{
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    const std::filesystem::path &path() const { return m_path; }
    // The path of `name` inside the folder, as a string.
    std::string file(std::string_view name) const;

private:
    std::filesystem::path m_path;
};

// The sandbox that stands in for the home folder: HOME, the XDG folders and
// the machine-wide folders all point below it while the tests run.
const std::filesystem::path &sandboxRoot();

std::string readFile(const std::filesystem::path &path);
void writeFile(const std::filesystem::path &path, std::string_view contents);

// The lines logged while `work` runs, from a fresh log in the sandbox; empty
// when no log path can be made.
template <typename Work>
std::string logOf(Work &&work)
{
    const std::optional<std::string> logPath = TLLog::currentLogPath();
    if (!logPath)
        return {};
    std::filesystem::create_directories(std::filesystem::path(*logPath).parent_path());
    TLLog::createNewLog(std::nullopt, true);
    work();
    TLLog::finishWriting();
    return readFile(*logPath);
}

} // namespace test
