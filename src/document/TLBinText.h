// The text of a bin element that a save reads back into the project, and
// what becomes of a bin's name on that road.
#pragma once

#include <pugixml.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

// Stateless. A bin's name is written into its element as it stands, so a
// name holding "&" or "<" is read as XML: it may come back as other text,
// or not read at all, and then the bin cannot be written.
class TLBinText
{
public:
    // Whether `text` written as it stands reads back as itself: nothing that
    // could start markup or a reference, end a CDATA section, or that the
    // parser would normalise (carriage returns) or refuse (control
    // characters).
    static bool isPlain(std::string_view text);

    // `text` parsed as one bin element. Null, with `problem` set to the
    // reason and its offset ("Undefined entity or unescaped & at offset
    // 12"), when it is not exactly one well-formed element.
    static std::shared_ptr<pugi::xml_document> parsed(std::string_view text, std::string &problem);

    // The name a project reads back for a bin saved under `name`: the name
    // itself when it is plain, the text XML makes of it otherwise ("R&amp;D"
    // gives "R&D"); nothing when a bin of that name cannot be written.
    static std::optional<std::string> nameAsWritten(std::string_view name);
};
