// Premiere Pro reached through TLPremiereEvents.
#include "TLPremiereEventsBridge.h"

#include "TLPremiereEvents.h"

void TLPremiereEventsBridge::openProject(const std::string &path)
{
    TLPremiereEvents::openProject(path);
}

void TLPremiereEventsBridge::exportFCPXML(const std::string &path)
{
    TLPremiereEvents::exportFCPXML(path);
}

void TLPremiereEventsBridge::openFCPXML(const std::string &path)
{
    TLPremiereEvents::openFCPXML(path);
}
