// The conversation with a running Final Cut Pro: one Apple Event of its
// suite (class 'KeyG') per operation, sent synchronously.
#pragma once

#include "TLAppleEventTransport.h"

#include <pugixml.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The sequences of a project: the parsed document and its `sequence`
// elements that have a `name` child, in document order.
struct TLAppleEventsSequences
{
    std::shared_ptr<pugi::xml_document> document;
    std::vector<pugi::xml_node> sequences;
};

// Talks to Final Cut Pro through a transport. Holds nothing but the
// transport and the console sink, so one instance may serve any thread.
// Failure messages go to the system console (the sink), never to the
// application log. Operations marked "guarded" catch whatever is thrown
// inside, log it with TLException under the operation's full name and
// return nullopt, false or nothing.
class TLAppleEvents
{
public:
    // Receives each console message, without a line end.
    using ConsoleSink = std::function<void(const std::string &)>;

    static constexpr const char *bundleIdentifier = "com.apple.FinalCutPro";
    // 600 seconds in ticks: an import of a large bin may take minutes.
    static constexpr std::int32_t importTimeoutTicks = 36000;

    // A null transport is replaced by TLAppleEventTransport::platform();
    // a null sink writes each message as one line to standard error.
    explicit TLAppleEvents(std::shared_ptr<TLAppleEventTransport> transport = nullptr,
                           ConsoleSink console = nullptr);

    // True when Final Cut Pro is running.
    bool isFCPRunning() const;
    // The installed Final Cut Pro's "CFBundleShortVersionString"; "7.0"
    // when its Info.plist is missing or not a dictionary; nullopt when the
    // dictionary lacks the key.
    std::optional<std::string> finalCutProVersionString() const;
    // The integer value of the version's first character only (so 10.1
    // gives 1); 7 for an empty or absent version.
    int finalCutProMajorVersion() const;
    // 1 to 5 from the version: major below 5 gives 1; 5.1.0 and 5.1.1
    // give 2, other 5.x give 3; 6 gives 4; anything else 5. An absent
    // version gives 1. A version of fewer than three components is padded
    // with one "0" only, so a one-component version such as "7" (or "")
    // throws std::out_of_range to the caller: the one exception of this
    // class, kept because callers have always guarded against it.
    int maximumXMEMLVersion() const;

    // The paths of the projects open in Final Cut Pro (guarded); nullopt,
    // with "Error: Final Cut Pro is not running.", when it is not running;
    // the paths gathered so far when an event step or an item fails.
    std::optional<std::vector<std::string>> listOfOpenFCPProjects() const;

    // Imports `xml`, escaped, into the project (or Final Cut Pro's current
    // project when nullopt or when the path has no file reference), waiting
    // up to 600 seconds. True when the event was delivered (guarded).
    bool sendXMLToFCP(const std::string &xml, const std::optional<std::string> &projectPath) const;

    // A project's xmeml bytes, one trailing NUL removed (guarded). nullopt
    // when Final Cut Pro is not running and `launchFCP` is false, when the
    // project is not open and `launchFCP` is false, or on any event error.
    // A project that was not open and is fetched with `closeProject` is
    // closed again, saving its changes.
    std::optional<std::string> getProjectXMLData(const std::string &path, bool launchFCP,
                                                 bool closeProject = false) const;
    // The same decoded as UTF-8: nullopt also for bytes that are not UTF-8.
    std::optional<std::string> getProjectXML(const std::string &path, bool launchFCP = false,
                                             bool closeProject = false) const;
    // One item's xmeml, by its identifier; otherwise as getProjectXMLData.
    std::optional<std::string> getItemXMLData(const std::string &item, const std::string &path,
                                              bool launchFCP, bool closeProject = false) const;
    // The item's xmeml as UTF-8 text. `closeProject` is accepted and
    // ignored: the item fetch never closes the project.
    std::optional<std::string> getItemXML(const std::string &item, const std::string &path,
                                          bool launchFCP = false, bool closeProject = false) const;
    // The project's table of contents (guarded); as getProjectXMLData but
    // never closes, and a project that is not open gives nullopt silently.
    std::optional<std::string> getTOCData(const std::string &path, bool launchFCP) const;
    std::optional<std::string> getTOC(const std::string &path, bool launchFCP = false) const;
    // The named sequences of the project (xmeml before version 7, else the
    // table of contents), launching Final Cut Pro when needed. nullopt for
    // absent or empty data and, after "Error: <reason>", for a parse error.
    std::optional<TLAppleEventsSequences> sequencesInProject(const std::string &path) const;

    // Asks Final Cut Pro to open one item of the project (guarded).
    void openItem(const std::string &item, const std::string &path, bool launchFCP) const;
    // Saves the project over itself (guarded); false when Final Cut Pro is
    // not running or the event fails.
    bool saveProject(const std::string &path) const;
    // Closes the project, saving its changes when `saveChanges` (guarded).
    void closeProject(const std::string &path, bool saveChanges) const;

    // A new identifier: 32 upper-case hexadecimal digits as 8-4-4-4-12.
    static std::string generateUUID();
    // Each UTF-16 unit of 160 or more as "&#N;" (a surrogate pair gives two
    // references), a carriage return as "&#13;", all else unchanged;
    // markup is left alone. Damaged UTF-8 reads as U+FFFD. "" for "".
    static std::string escapeCharactersInXMLString(std::string_view text);
    // The bytes without one trailing NUL; anything else unchanged.
    static std::string formatData(std::string data);

private:
    enum class FetchKind { project, item, tableOfContents };
    std::optional<std::string> fetchXMLData(FetchKind kind, TLFourCharCode eventID, const std::string *item,
                                            const std::string &path, bool launchFCP, bool closeProject) const;
    std::optional<bool> prepareProject(FetchKind kind, const std::string &path, bool launchFCP) const;
    std::optional<TLAppleEventDescriptor> buildItemEvent(TLFourCharCode eventID, const std::string *item,
                                                         const std::string &path,
                                                         TLAppleEventDescriptor &target) const;
    std::optional<std::vector<std::string>> listOfOpenFCPProjectsUnguarded() const;
    bool sendXMLToFCPUnguarded(const std::string &xml, const std::optional<std::string> &projectPath) const;
    bool saveOrClose(TLFourCharCode eventID, const std::string &path, TLFourCharCode flagKeyword,
                     TLFourCharCode flagType, const std::string &flagBytes) const;
    void log(const std::string &message) const;

    std::shared_ptr<TLAppleEventTransport> m_transport;
    ConsoleSink m_console;
};
