// Temporary folders and file helpers for the tests.
#include "TestSupport.h"

#include <atomic>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace test {

namespace {
std::atomic<int> folderCounter{0};
}

TemporaryFolder::TemporaryFolder()
{
    const auto name = "tmp-" + std::to_string(getpid()) + "-" + std::to_string(folderCounter++);
    m_path = sandboxRoot() / "tmp" / name;
    std::filesystem::create_directories(m_path);
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    // Tests may leave read-only folders behind; make them writable first.
    for (auto it = std::filesystem::recursive_directory_iterator(m_path, ignored);
         it != std::filesystem::recursive_directory_iterator(); it.increment(ignored))
        std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ignored);
    std::filesystem::remove_all(m_path, ignored);
}

std::string TemporaryFolder::file(std::string_view name) const
{
    return (m_path / name).string();
}

std::string readFile(const std::filesystem::path &path)
{
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        throw std::runtime_error("cannot read " + path.string());
    std::ostringstream contents;
    contents << stream.rdbuf();
    return contents.str();
}

void writeFile(const std::filesystem::path &path, std::string_view contents)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream.write(contents.data(), std::streamsize(contents.size()));
    if (!stream)
        throw std::runtime_error("cannot write " + path.string());
}

} // namespace test
