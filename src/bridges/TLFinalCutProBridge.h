// What the project controller needs from Final Cut Pro: a project's xmeml
// and its table of contents, fetched through the application's automation
// interface. The Apple Events bridge implements it where Final Cut Pro runs.
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

    // A bridge for systems without Final Cut Pro: every fetch writes
    // "Final Cut Pro is not available on this system." to standard error
    // and returns nullopt.
    static std::shared_ptr<TLFinalCutProBridge> unavailable();
};
