// Final Cut Pro reached through its Apple Events.
#include "TLAppleEventsBridge.h"

TLAppleEventsBridge::TLAppleEventsBridge(TLAppleEvents events) : m_events(std::move(events)) {}

std::optional<std::string> TLAppleEventsBridge::getProjectXML(const std::string &path, bool launchFCP)
{
    return m_events.getProjectXML(path, launchFCP);
}

std::optional<std::string> TLAppleEventsBridge::getTOCData(const std::string &path, bool launchFCP)
{
    return m_events.getTOCData(path, launchFCP);
}

int TLAppleEventsBridge::maximumXMEMLVersion()
{
    return m_events.maximumXMEMLVersion();
}

bool TLAppleEventsBridge::sendXMLToFCP(const std::string &xml, const std::optional<std::string> &projectPath)
{
    return m_events.sendXMLToFCP(xml, projectPath);
}
