// Waiting on the real file system for a file that another program writes.
#include "TLFileWaiting.h"

#include "TLLog.h"

#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

namespace {

constexpr auto shortPause = std::chrono::microseconds(500);
constexpr auto settlingTime = std::chrono::seconds(5);

bool existsWithContents(const std::string &path)
{
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return !error && size > 0;
}

bool isBeingWritten(const std::string &path)
{
    std::error_code error;
    const auto modified = std::filesystem::last_write_time(path, error);
    if (error)
        return false;
    const auto age = std::filesystem::file_time_type::clock::now() - modified;
    return age < settlingTime && age > -settlingTime;
}

bool entryExists(const std::string &path)
{
    std::error_code error;
    return !path.empty() && std::filesystem::exists(std::filesystem::symlink_status(path, error));
}

class TLStandardFileWaiting final : public TLFileWaiting
{
public:
    void waitForFileCreation(const std::string &path, double timeoutSeconds) override
    {
        const auto start = std::chrono::steady_clock::now();
        if (existsWithContents(path))
            return;
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        if (elapsed.count() >= timeoutSeconds)
            return;
        TLLog::appendLog("File %@ is not yet created. Waiting...", path);
        std::this_thread::sleep_for(shortPause);
    }

    void waitForFileWrites(const std::string &path) override { waitForFileWrites(path, std::string()); }

    void waitForFileWrites(const std::string &path, const std::string &lockFile) override
    {
        if (!isBeingWritten(path) && !entryExists(lockFile))
            return;
        TLLog::appendLog("File %@ is currently being written to. Waiting...", path);
        do
            std::this_thread::sleep_for(shortPause);
        while (isBeingWritten(path));
        TLLog::appendLog("File %@ finished writing.", path);
    }
};

} // namespace

std::shared_ptr<TLFileWaiting> TLFileWaiting::standard()
{
    return std::make_shared<TLStandardFileWaiting>();
}
