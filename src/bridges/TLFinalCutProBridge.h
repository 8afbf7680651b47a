// What the application needs from Final Cut Pro: a project's xmeml and its
// table of contents, the xmeml version to write, and the import of bins,
// all through the application's automation interface. The Apple Events
// bridge implements it.
#pragma once

#include <memory>
#include <optional>
#include <string>

class TLFinalCutProBridge
{
public:
    virtual ~TLFinalCutProBridge() = default;

    // The xmeml of the project file at `path` as UTF-8 text. With
    // `launchFCP` Final Cut Pro is started and the project opened when
    // needed. nullopt, or an empty string, when it could not be had.
    // Blocks the caller until Final Cut Pro answers.
    virtual std::optional<std::string> getProjectXML(const std::string &path, bool launchFCP) = 0;

    // The project's table of contents as xmeml bytes, in whatever encoding
    // Final Cut Pro wrote them. nullopt or empty when it could not be had.
    virtual std::optional<std::string> getTOCData(const std::string &path, bool launchFCP) = 0;

    // The highest xmeml version (1 to 5) that the installed Final Cut Pro
    // accepts, the version written into generated xmeml.
    virtual int maximumXMEMLVersion() = 0;

    // Hands `xml` (a whole xmeml text) to Final Cut Pro for import into the
    // project at `projectPath`, or into whatever project Final Cut Pro takes
    // as the current one when that is nullopt. True when Final Cut Pro
    // received it, which says nothing about whether the import worked.
    // Blocks the caller for as long as Final Cut Pro takes (up to minutes).
    virtual bool sendXMLToFCP(const std::string &xml, const std::optional<std::string> &projectPath) = 0;

    // The bridge the application uses unless told otherwise: Final Cut Pro's
    // Apple Events (TLAppleEventsBridge) over the platform's transport. Where
    // no Apple Event host exists every fetch and send fails with the
    // bridge's own console messages ("Error: Final Cut Pro is not running.",
    // "Error sending AppleEvent", ...) and maximumXMEMLVersion answers 5,
    // the version of an installed Final Cut Pro that cannot be found.
    static std::shared_ptr<TLFinalCutProBridge> standard();
};
