// Removal and free-name search with the ordinary file-system calls.
#include "TLFileManager.h"

#include "TLLog.h"

#include <filesystem>
#include <string_view>
#include <system_error>

namespace fs = std::filesystem;

namespace {

enum class Occupancy { free, taken, unknown };

// Looks at the entry itself (lstat), so a dangling link is an entry too.
Occupancy occupancy(const std::string &path)
{
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    if (fs::exists(status))
        return Occupancy::taken;
    if (status.type() == fs::file_type::not_found)
        return Occupancy::free;
    return Occupancy::unknown;
}

// Where the extension's dot stands in `path`, or npos when the last
// component has no extension.
std::size_t extensionDot(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    const std::size_t nameStart = slash == std::string_view::npos ? 0 : slash + 1;
    const std::size_t dot = path.rfind('.');
    if (dot == std::string_view::npos || dot <= nameStart || dot + 1 == path.size())
        return std::string_view::npos;
    return dot;
}

// `path` without trailing slashes, which name the same entry; "/" stays.
std::string withoutTrailingSlashes(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

void logRemovalFailure(const std::string &path, const std::string &reason)
{
    TLLog::appendLog("Error removing file: %@. Authorizing...", "cannot remove " + path + ": " + reason);
}

} // namespace

bool TLFileManager::removeFile(const std::string &path)
{
    if (path.empty())
        return true;
    if (occupancy(path) == Occupancy::free)
        return true;
    // Emptying the whole file system is never what a caller meant.
    if (withoutTrailingSlashes(path) == "/") {
        logRemovalFailure(path, "the root folder is never removed");
        return false;
    }
    std::error_code error;
    fs::remove_all(path, error);
    if (!error && occupancy(path) == Occupancy::free)
        return true;
    logRemovalFailure(path, error ? error.message() : "it is still there");
    return false;
}

std::string TLFileManager::uniqueFilename(const std::string &path)
{
    if (path.empty() || occupancy(path) != Occupancy::taken)
        return path;
    const std::string base = withoutTrailingSlashes(path);
    const std::size_t dot = extensionDot(base);
    const std::string_view stem = std::string_view(base).substr(0, dot);
    const std::string_view extension =
        dot == std::string_view::npos ? std::string_view() : std::string_view(base).substr(dot);
    for (long number = 2;; ++number) {
        std::string candidate(stem);
        candidate += ' ';
        candidate += std::to_string(number);
        candidate += extension;
        if (occupancy(candidate) != Occupancy::taken)
            return candidate;
    }
}
