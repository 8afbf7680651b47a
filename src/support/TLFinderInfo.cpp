// Type and creator codes in the Finder information extended attribute.
#include "TLFinderInfo.h"

#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace {

// Linux caps one attribute value at 64 KiB; anything claiming more is not
// worth reading.
constexpr std::size_t largestAttribute = 64 * 1024;

std::error_code lastError()
{
    return {errno, std::generic_category()};
}

// The attribute's bytes; empty with `error` set when it cannot be read
// (ENODATA when the file has none).
std::vector<unsigned char> readAttribute(const std::string &path, std::error_code &error)
{
    // Two tries: the attribute may grow between asking its size and reading it.
    for (int attempt = 0; attempt < 2; ++attempt) {
        const ssize_t size = ::getxattr(path.c_str(), TLFinderInfo::attributeName, nullptr, 0);
        if (size < 0) {
            error = lastError();
            return {};
        }
        std::vector<unsigned char> bytes(std::min<std::size_t>(std::size_t(size), largestAttribute));
        const ssize_t read = ::getxattr(path.c_str(), TLFinderInfo::attributeName, bytes.data(), bytes.size());
        if (read >= 0) {
            bytes.resize(std::size_t(read));
            error.clear();
            return bytes;
        }
        error = lastError();
        if (errno != ERANGE)
            return {};
    }
    return {};
}

std::uint32_t codeAt(const std::vector<unsigned char> &bytes, std::size_t offset)
{
    return std::uint32_t(bytes[offset]) << 24 | std::uint32_t(bytes[offset + 1]) << 16
           | std::uint32_t(bytes[offset + 2]) << 8 | std::uint32_t(bytes[offset + 3]);
}

void putCode(std::vector<unsigned char> &bytes, std::size_t offset, std::uint32_t code)
{
    for (std::size_t index = 0; index < 4; ++index)
        bytes[offset + index] = static_cast<unsigned char>(code >> (24 - 8 * index));
}

std::optional<std::uint32_t> codeOfFile(const std::string &path, std::size_t offset)
{
    std::error_code error;
    const std::vector<unsigned char> bytes = readAttribute(path, error);
    if (error || bytes.size() < offset + 4)
        return std::nullopt;
    return codeAt(bytes, offset);
}

} // namespace

std::optional<std::uint32_t> TLFinderInfo::codeFromString(std::string_view code)
{
    if (code.size() != 4)
        return std::nullopt;
    const std::vector<unsigned char> bytes(code.begin(), code.end());
    return codeAt(bytes, 0);
}

std::string TLFinderInfo::stringFromCode(std::uint32_t code)
{
    std::vector<unsigned char> bytes(4);
    putCode(bytes, 0, code);
    return {bytes.begin(), bytes.end()};
}

std::optional<std::uint32_t> TLFinderInfo::typeCode(const std::string &path)
{
    return codeOfFile(path, 0);
}

std::optional<std::uint32_t> TLFinderInfo::creatorCode(const std::string &path)
{
    return codeOfFile(path, 4);
}

std::error_code TLFinderInfo::setTypeAndCreatorCode(const std::string &path, std::uint32_t type,
                                                    std::uint32_t creator)
{
    std::error_code error;
    std::vector<unsigned char> bytes = readAttribute(path, error);
    // A file without the attribute simply starts from zeros; any other
    // failure to read will fail the write below with its own reason.
    bytes.resize(attributeSize, 0);
    putCode(bytes, 0, type);
    putCode(bytes, 4, creator);
    if (::setxattr(path.c_str(), attributeName, bytes.data(), bytes.size(), 0) != 0)
        return lastError();
    return {};
}
