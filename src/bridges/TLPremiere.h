// The Premiere Pro installations of this computer.
#pragma once

#include <string>
#include <vector>

// Finds the installed Premiere Pro versions from the machine-wide
// Applications folder and names the Adobe paths that belong to a version.
// Stateless; safe from any thread; nothing throws.
class TLPremiere
{
public:
    // The product versions ("5.5", "6.0") stated by the XManConfig.xml file
    // of every entry of the machine-wide Applications folder whose name
    // begins with "Adobe Premiere " (any case), in the order of the entry
    // names, so the last one is the installation to use. An entry whose
    // configuration is missing, unreadable, larger than 16 MiB or without a
    // product version is skipped; a damaged configuration counts for what
    // could be parsed of it. Empty when nothing is found or the folder
    // cannot be listed.
    static std::vector<std::string> premiereVersions();

    // The number Adobe puts into its folder names for `version`: the version
    // with one trailing ".0" removed ("6.0" gives "6", "5.5" stays "5.5",
    // "" stays "").
    static std::string csNumber(const std::string &version);
};
