// Installed Premiere Pro versions, read from each installation's configuration.
#include "TLPremiere.h"

#include "TLLocalPaths.h"
#include "TLXMLParser.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr std::string_view installationPrefix = "Adobe Premiere ";
constexpr std::string_view versionQuery =
    "./Configuration/VariableForExMan/Data[@key='ProductVersion']";
// A configuration file is a few kilobytes; anything far larger is not one,
// and reading it whole would only waste memory.
constexpr std::uintmax_t maximumConfigurationSize = 16 * 1024 * 1024;

bool beginsWithInstallationPrefix(const std::string &name)
{
    if (name.size() < installationPrefix.size())
        return false;
    return std::equal(installationPrefix.begin(), installationPrefix.end(), name.begin(),
                      [](char expected, char actual) {
                          return std::tolower(static_cast<unsigned char>(expected))
                              == std::tolower(static_cast<unsigned char>(actual));
                      });
}

// The entry names of `folder` in name order; empty when it cannot be listed.
// Linux lists folders in no particular order, and the last installation must
// be the newest one.
std::vector<std::string> sortedEntryNames(const std::string &folder)
{
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error))
        names.push_back(entries->path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string> readSmallFile(const std::string &path)
{
    std::error_code error;
    if (!fs::is_regular_file(path, error))
        return std::nullopt;
    const std::uintmax_t size = fs::file_size(path, error);
    if (error || size > maximumConfigurationSize)
        return std::nullopt;
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        return std::nullopt;
    std::string contents(static_cast<std::size_t>(size), '\0');
    stream.read(contents.data(), static_cast<std::streamsize>(contents.size()));
    // The file may have shrunk since its size was taken.
    contents.resize(static_cast<std::size_t>(stream.gcount()));
    if (stream.bad())
        return std::nullopt;
    return contents;
}

std::optional<std::string> productVersionAt(const std::string &configurationPath)
{
    const std::optional<std::string> contents = readSmallFile(configurationPath);
    if (!contents)
        return std::nullopt;
    pugi::xml_document document;
    // A damaged file still yields whatever was parsed before the damage.
    (void)document.load_buffer(contents->data(), contents->size());
    return TLXMLParser::stringValueForQuery(versionQuery, document);
}

} // namespace

std::vector<std::string> TLPremiere::premiereVersions()
{
    std::vector<std::string> versions;
    const std::optional<std::string> applications = TLLocalPaths::applicationDirectory(false);
    if (!applications)
        return versions;
    for (const std::string &name : sortedEntryNames(*applications)) {
        if (!beginsWithInstallationPrefix(name))
            continue;
        const auto version = productVersionAt(*applications + "/" + name + "/Configuration/XManConfig.xml");
        if (version)
            versions.push_back(*version);
    }
    return versions;
}

std::string TLPremiere::csNumber(const std::string &version)
{
    if (version.size() >= 2 && version.ends_with(".0"))
        return version.substr(0, version.size() - 2);
    return version;
}
