// What the application needs from Premiere Pro: opening a project, exporting
// it as xmeml and importing an xmeml file, all through Premiere Pro's
// scripting interface. The scripting bridge implements it where Premiere Pro
// runs.
#pragma once

#include <memory>
#include <string>

class TLPremiereBridge
{
public:
    virtual ~TLPremiereBridge() = default;

    // Asks Premiere Pro (launching it when needed) to open the project at
    // `path`. Reports nothing: a path Premiere Pro cannot open is only
    // noticed by the absence of what should follow.
    virtual void openProject(const std::string &path) = 0;

    // Asks Premiere Pro to export its open project as xmeml to the file at
    // `path`. Returns once the request has run, which may be before the file
    // is complete: callers wait for the file itself.
    virtual void exportFCPXML(const std::string &path) = 0;

    // Asks Premiere Pro (launching it when needed) to import the xmeml file
    // at `path` into its open project. Reports nothing, and may return before
    // Premiere Pro has read the file.
    virtual void openFCPXML(const std::string &path) = 0;

    // A bridge for systems without Premiere Pro: every request writes
    // "Premiere Pro is not available on this system." to standard error and
    // does nothing else, so no export file ever appears.
    static std::shared_ptr<TLPremiereBridge> unavailable();
};
