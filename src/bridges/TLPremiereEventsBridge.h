// Premiere Pro reached through its scripting interface, as the project
// controller and the document's send step see it.
#pragma once

#include "TLPremiereBridge.h"

// Forwards each request of TLPremiereBridge to TLPremiereEvents, launching
// Premiere Pro when it is not running. Holds no state, so it may serve any
// thread.
class TLPremiereEventsBridge final : public TLPremiereBridge
{
public:
    // TLPremiereEvents::openProject with launching.
    void openProject(const std::string &path) override;
    // TLPremiereEvents::exportFCPXML with launching: returns 5 seconds after
    // the script has run.
    void exportFCPXML(const std::string &path) override;
    // TLPremiereEvents::openFCPXML with launching.
    void openFCPXML(const std::string &path) override;
};
