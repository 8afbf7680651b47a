// Final Cut Pro reached through its Apple Events, as the project controller
// and the document's send step see it.
#pragma once

#include "TLAppleEvents.h"
#include "TLFinalCutProBridge.h"

// Forwards each request of TLFinalCutProBridge to TLAppleEvents. Holds only
// its TLAppleEvents, so it may serve any thread.
class TLAppleEventsBridge final : public TLFinalCutProBridge
{
public:
    explicit TLAppleEventsBridge(TLAppleEvents events = TLAppleEvents());

    // TLAppleEvents::getProjectXML with the project left open.
    std::optional<std::string> getProjectXML(const std::string &path, bool launchFCP) override;
    // TLAppleEvents::getTOCData: the raw bytes, one trailing NUL removed.
    std::optional<std::string> getTOCData(const std::string &path, bool launchFCP) override;
    // TLAppleEvents::maximumXMEMLVersion. Unlike the other requests this one
    // lets std::out_of_range through for a one-component version ("7"): the
    // send thread and the project controller, which ask for it, both catch
    // and log it.
    int maximumXMEMLVersion() override;
    // TLAppleEvents::sendXMLToFCP: true once Final Cut Pro took the event.
    bool sendXMLToFCP(const std::string &xml, const std::optional<std::string> &projectPath) override;

private:
    TLAppleEvents m_events;
};
