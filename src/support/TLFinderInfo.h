// The classic file type and creator codes of a file, kept on Linux where
// macOS keeps them: in the Finder information extended attribute.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

// The codes live in the extended attribute "user.com.apple.FinderInfo",
// 32 bytes as on macOS: the type code in bytes 0-3 and the creator code in
// bytes 4-7, each a big-endian four-character code; the other bytes belong
// to the Finder and are kept as they are. Stateless; safe from any thread.
// Nothing here throws.
class TLFinderInfo
{
public:
    // The name of the extended attribute that holds the 32 bytes.
    static constexpr const char *attributeName = "user.com.apple.FinderInfo";
    static constexpr std::size_t attributeSize = 32;

    // The codes the application reads and writes.
    static constexpr std::uint32_t finalCutProProjectType = 0x46435046; // 'FCPF'
    static constexpr std::uint32_t xmlType = 0x584D4C20;                // 'XML '
    static constexpr std::uint32_t finalCutProCreator = 0x4B657947;     // 'KeyG'

    // The four-character code as a number ("XML " gives 0x584D4C20);
    // nullopt unless `code` is exactly four bytes long.
    static std::optional<std::uint32_t> codeFromString(std::string_view code);
    // The four bytes of a code ("XML " for 0x584D4C20).
    static std::string stringFromCode(std::uint32_t code);

    // The file's type code; nullopt when the file does not exist, has no
    // Finder information, the attribute is shorter than 4 bytes, or the file
    // system keeps no extended attributes. A file without a type reads 0.
    static std::optional<std::uint32_t> typeCode(const std::string &path);
    // The creator code, under the same rules (the attribute must hold 8 bytes).
    static std::optional<std::uint32_t> creatorCode(const std::string &path);

    // Sets both codes, keeping bytes 8-31 of an existing attribute (an
    // attribute that is not 32 bytes long is cut or padded with zeros to
    // 32). Returns no error on success, else the system's reason:
    // std::errc::not_supported on a file system without extended
    // attributes, no_such_file_or_directory for a missing file, and so on.
    [[nodiscard]] static std::error_code setTypeAndCreatorCode(const std::string &path, std::uint32_t type,
                                                               std::uint32_t creator);
};
