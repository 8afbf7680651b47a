// Reserving names in the user's freedesktop.org Trash and writing their
// records.
#include "TLTrash.h"

#include "TLAtomicFile.h"
#include "TLLocalPaths.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::string errnoText(int number)
{
    return std::generic_category().message(number);
}

// The path as the Path= key of a record wants it: every byte outside the
// unreserved URI characters and "/" as %XX.
std::string percentEncoded(std::string_view path)
{
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char character : path) {
        const auto byte = static_cast<unsigned char>(character);
        const bool isAsciiAlphanumeric =
            (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
        if (isAsciiAlphanumeric || std::strchr("-._~/", character) != nullptr) {
            encoded += character;
            continue;
        }
        encoded += '%';
        encoded += hex[byte >> 4];
        encoded += hex[byte & 0x0F];
    }
    return encoded;
}

// Local time without a zone, as desktop trash browsers read DeletionDate.
std::string deletionDate()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32] = {};
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    return text;
}

// Looks at the entry itself, so a dangling link takes a name too; an entry
// that cannot be looked at counts as taken.
bool isEntryFree(const fs::path &path)
{
    std::error_code error;
    return fs::symlink_status(path, error).type() == fs::file_type::not_found;
}

// One plain entry name: the record and the item must land inside the
// Trash's folders, never beside or above them.
bool isUsableName(const std::string &name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

std::string prepareFolders(const fs::path &trash)
{
    std::error_code error;
    fs::create_directories(trash / "files", error);
    if (!error)
        fs::create_directories(trash / "info", error);
    if (error)
        return "cannot create the Trash at " + trash.string() + ": " + error.message();
    return {};
}

// Creates the record only if no record of that name exists. True when it
// was written; false with `error` empty when the name is taken, with
// `error` set when the record cannot be made.
bool writeRecordExclusively(const std::string &infoPath, const std::string &record, std::string &error)
{
    const int descriptor = ::open(infoPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0 && errno == EEXIST)
        return false;
    if (descriptor < 0) {
        error = "cannot create " + infoPath + ": " + errnoText(errno);
        return false;
    }
    const bool written = TLAtomicFile::writeAll(descriptor, record);
    const int writeError = errno;
    ::close(descriptor);
    if (written)
        return true;
    ::unlink(infoPath.c_str());
    error = "cannot write " + infoPath + ": " + errnoText(writeError);
    return false;
}

} // namespace

std::string TLTrash::folder()
{
    return fs::path(TLLocalPaths::trashDirectory()).parent_path().string();
}

std::optional<TLTrash::Slot> TLTrash::reserveSlot(const std::string &originalPath, const NameRule &names,
                                                  std::string &error)
{
    error.clear();
    if (originalPath.empty()) {
        error = "no path was given";
        return std::nullopt;
    }
    const fs::path trash = folder();
    error = prepareFolders(trash);
    if (!error.empty())
        return std::nullopt;
    std::error_code pathError;
    const fs::path absolute = fs::absolute(originalPath, pathError).lexically_normal();
    const std::string record =
        "[Trash Info]\nPath=" + percentEncoded(absolute.string()) + "\nDeletionDate=" + deletionDate() + "\n";
    for (long attempt = 1;; ++attempt) {
        const std::string name = names(attempt);
        if (!isUsableName(name)) {
            error = "\"" + name + "\" cannot be a name in the Trash";
            return std::nullopt;
        }
        Slot slot{name, (trash / "files" / name).string(), (trash / "info" / (name + ".trashinfo")).string()};
        if (!writeRecordExclusively(slot.infoPath, record, error)) {
            if (!error.empty())
                return std::nullopt;
            continue;
        }
        // A record lost by another program leaves its item without one: the
        // name is still taken.
        if (isEntryFree(slot.itemPath))
            return slot;
        ::unlink(slot.infoPath.c_str());
    }
}

void TLTrash::releaseSlot(const Slot &slot)
{
    ::unlink(slot.infoPath.c_str());
}
