// Atomic file replacement through a flushed temporary file and rename.
#include "TLAtomicFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string failure(std::string_view what, const std::string &path, int error)
{
    return std::string(what) + " " + path + ": " + std::strerror(error);
}

bool writeAll(int descriptor, std::string_view contents)
{
    while (!contents.empty()) {
        const ssize_t written = ::write(descriptor, contents.data(), contents.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        contents.remove_prefix(std::size_t(written));
    }
    return true;
}

// Keeps the permissions of the file being replaced, so a save does not
// quietly change who may read the user's project.
void copyModeOfExistingFile(int descriptor, const std::string &path)
{
    struct stat existing {};
    if (::stat(path.c_str(), &existing) == 0)
        ::fchmod(descriptor, existing.st_mode & 07777);
}

void syncFolderOf(const std::string &path)
{
    const auto folder = std::filesystem::path(path).parent_path();
    const int descriptor = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (descriptor < 0)
        return;
    ::fsync(descriptor);
    ::close(descriptor);
}

} // namespace

std::string TLAtomicFile::writeContents(const std::string &path, std::string_view contents)
{
    std::string temporary = path + ".XXXXXX";
    const int descriptor = ::mkstemp(temporary.data());
    if (descriptor < 0)
        return failure("cannot create", temporary, errno);

    copyModeOfExistingFile(descriptor, path);
    const bool written = writeAll(descriptor, contents) && ::fsync(descriptor) == 0;
    const int writeError = errno;
    if (::close(descriptor) != 0 || !written) {
        const int error = written ? errno : writeError;
        ::unlink(temporary.c_str());
        return failure("cannot write", path, error);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        return failure("cannot replace", path, error);
    }
    syncFolderOf(path);
    return {};
}
