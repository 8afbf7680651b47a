// Atomic file replacement through a flushed temporary file and rename.
#include "TLAtomicFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string failure(std::string_view what, const std::string &path, int error)
{
    return std::string(what) + " " + path + ": " + std::strerror(error);
}

// Collects small writes into large ones; remembers the first failure.
class BufferedSink
{
public:
    explicit BufferedSink(int descriptor) : m_descriptor(descriptor) { m_buffer.reserve(capacity); }

    bool write(std::string_view bytes)
    {
        if (m_error)
            return false;
        if (m_buffer.size() + bytes.size() > capacity && !flush())
            return false;
        if (bytes.size() >= capacity)
            return writeThrough(bytes);
        m_buffer.append(bytes);
        return true;
    }

    bool flush()
    {
        const bool written = m_error == 0 && writeThrough(m_buffer);
        m_buffer.clear();
        return written;
    }

    int error() const { return m_error; }

private:
    static constexpr std::size_t capacity = 1 << 20;

    bool writeThrough(std::string_view bytes)
    {
        if (TLAtomicFile::writeAll(m_descriptor, bytes))
            return true;
        m_error = errno ? errno : EIO;
        return false;
    }

    int m_descriptor;
    int m_error = 0;
    std::string m_buffer;
};

// Keeps the permissions of the file being replaced, so a save does not
// quietly change who may read the user's project.
void copyModeOfExistingFile(int descriptor, const std::string &path)
{
    struct stat existing {};
    if (::stat(path.c_str(), &existing) == 0)
        ::fchmod(descriptor, existing.st_mode & 07777);
}

// Creates a new file beside `path` with the usual 0666-less-umask mode (as
// any new file of the user's gets; mkstemp would make it private), under a
// name no other writer uses. Returns the descriptor, or -1 with errno set.
int createSibling(const std::string &path, std::string &temporary)
{
    static constexpr char alphabet[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    thread_local std::mt19937 generator(std::random_device{}());
    std::uniform_int_distribution<std::size_t> pick(0, sizeof alphabet - 2);
    for (int attempt = 0; attempt < 100; ++attempt) {
        temporary = path + ".tmp-";
        for (int index = 0; index < 8; ++index)
            temporary += alphabet[pick(generator)];
        const int descriptor = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor >= 0 || errno != EEXIST)
            return descriptor;
    }
    return -1;
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
    return writeWith(path, [contents](const Sink &sink) { return sink(contents); });
}

std::string TLAtomicFile::writeWith(const std::string &path, const std::function<bool(const Sink &)> &produce)
{
    // The system would stop at a NUL and replace another, shorter path.
    if (path.find('\0') != std::string::npos)
        return failure("cannot create", path.substr(0, path.find('\0')) + "\\0...", EINVAL);
    std::string temporary;
    const int descriptor = createSibling(path, temporary);
    if (descriptor < 0)
        return failure("cannot create", temporary, errno);

    copyModeOfExistingFile(descriptor, path);
    BufferedSink buffered(descriptor);
    const Sink sink = [&buffered](std::string_view bytes) { return buffered.write(bytes); };
    bool produced = false;
    try {
        produced = produce(sink);
    } catch (...) {
        produced = false;
    }
    const bool written = produced && buffered.flush() && ::fsync(descriptor) == 0;
    const int writeError = !produced ? ECANCELED : buffered.error() ? buffered.error() : errno;
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

bool TLAtomicFile::writeAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes.remove_prefix(std::size_t(written));
    }
    return true;
}
