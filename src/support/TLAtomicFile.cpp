// Atomic file replacement through a flushed temporary file and rename.
#include "TLAtomicFile.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <thread>
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
// Each full buffer is written on a thread of its own while the next one
// fills, so that the kernel's copying of a large file (a project of
// hundreds of megabytes) overlaps with producing it. A file that fits one
// buffer is written on the calling thread, without a thread.
class BufferedSink
{
public:
    explicit BufferedSink(int descriptor) : m_descriptor(descriptor) { m_buffer.reserve(capacity); }

    ~BufferedSink()
    {
        if (!m_writer.joinable())
            return;
        waitForWriter();
        {
            const std::lock_guard lock(m_mutex);
            m_stopping = true;
        }
        m_changed.notify_all();
        m_writer.join();
    }

    BufferedSink(const BufferedSink &) = delete;
    BufferedSink &operator=(const BufferedSink &) = delete;

    bool write(std::string_view bytes)
    {
        if (error())
            return false;
        m_buffer.append(bytes);
        if (m_buffer.size() >= capacity)
            handOver();
        return error() == 0;
    }

    // Writes what is left and waits for every write; true when all went.
    bool flush()
    {
        if (m_writer.joinable()) {
            handOver();
            waitForWriter();
        } else if (error() == 0 && !writeThrough(m_buffer)) {
            return false;
        }
        m_buffer.clear();
        return error() == 0;
    }

    int error() const { return m_error.load(); }

private:
    static constexpr std::size_t capacity = 1 << 20;

    bool writeThrough(std::string_view bytes)
    {
        if (TLAtomicFile::writeAll(m_descriptor, bytes))
            return true;
        int expected = 0;
        m_error.compare_exchange_strong(expected, errno ? errno : EIO);
        return false;
    }

    void handOver()
    {
        if (!m_writer.joinable())
            m_writer = std::thread([this] { writeHandedOver(); });
        waitForWriter();
        {
            const std::lock_guard lock(m_mutex);
            m_handedOver.swap(m_buffer);
            m_hasHandedOver = true;
        }
        m_changed.notify_all();
        m_buffer.clear();
    }

    void waitForWriter()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_hasHandedOver; });
    }

    void writeHandedOver()
    {
        std::unique_lock lock(m_mutex);
        while (true) {
            m_changed.wait(lock, [this] { return m_hasHandedOver || m_stopping; });
            if (!m_hasHandedOver)
                return;
            lock.unlock();
            if (error() == 0)
                writeThrough(m_handedOver);
            lock.lock();
            m_hasHandedOver = false;
            m_changed.notify_all();
        }
    }

    int m_descriptor;
    std::atomic<int> m_error{0};
    std::string m_buffer;
    // The buffer being written, guarded by m_mutex while it changes hands.
    std::string m_handedOver;
    bool m_hasHandedOver = false;
    bool m_stopping = false;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::thread m_writer;
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
    // Flushed whatever happened: no write may still run when the file closes.
    const bool flushed = buffered.flush();
    const bool written = produced && flushed && ::fsync(descriptor) == 0;
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
