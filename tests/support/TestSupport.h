// Helpers shared by every test program: temporary folders and file access.
#pragma once

#include <filesystem>
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

} // namespace test
