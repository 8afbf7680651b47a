// What the application needs from Premiere Pro: opening a project, exporting
// it as xmeml and importing an xmeml file, all through Premiere Pro's
// scripting interface. The scripting bridge implements it.
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

    // The bridge the application uses unless told otherwise: Premiere Pro's
    // scripting (TLPremiereEventsBridge). Where Premiere Pro is not
    // installed each request logs "Premiere Pro not found on this
    // computer." twice (once while enabling scripting, once for the script)
    // and does nothing else: no script is written and nothing is run, so no
    // export file ever appears. An export request still takes its five
    // seconds.
    static std::shared_ptr<TLPremiereBridge> standard();
};
