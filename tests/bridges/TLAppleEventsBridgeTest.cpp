// The Final Cut Pro bridge hands every request to the Apple Events it wraps.
#include "TLAppleEventsBridge.h"

#include "FakeAppleEventTransport.h"

#include <gtest/gtest.h>

TEST(TLAppleEventsBridgeTest, ForwardsFetchesAndSendsAsAppleEvents)
{
    auto host = std::make_shared<test::FakeAppleEventTransport>();
    host->openProjects = {"/p.fcp"};
    host->xmlReplies[TLFourCharCodeFromString("eXML")] = std::string("<xmeml/>\0", 9);
    host->xmlReplies[TLFourCharCodeFromString("eTCX")] = "<toc>\xFF</toc>";
    std::vector<std::string> console;
    TLAppleEventsBridge bridge(TLAppleEvents(host, [&](const std::string &line) { console.push_back(line); }));

    EXPECT_EQ(bridge.getProjectXML("/p.fcp", false), "<xmeml/>");
    EXPECT_EQ(bridge.getTOCData("/p.fcp", false), "<toc>\xFF</toc>"); // bytes, not checked as text
    EXPECT_TRUE(bridge.sendXMLToFCP("<xmeml/>", std::nullopt));
    EXPECT_EQ(host->sentIDs(), (std::vector<std::string>{"fcLP", "eXML", "fcLP", "eTCX", "iXML"}));
    EXPECT_EQ(host->sent.back().timeoutTicks, 36000);

    host->sendErrors[TLFourCharCodeFromString("iXML")] = -600;
    EXPECT_FALSE(bridge.sendXMLToFCP("<xmeml/>", "/p.fcp"));
    EXPECT_EQ(console, std::vector<std::string>{"Error sending AppleEvent: -600"});
}
