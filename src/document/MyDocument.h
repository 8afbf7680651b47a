// One open project: its bin tree, its project controller, its settings file,
// saving, the generation and sending of bin xmeml, and the editing commands.
#pragma once

#include "MyDocumentView.h"
#include "TLWriteReport.h"
#include "TLBinNode.h"
#include "TLFCPProjectController.h"
#include "TLProjectMerge.h"
#include "TLMainThread.h"
#include "TLSmartBin.h"
#include "TLSmartRangeItem.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

// Everything a document reaches outside itself. Empty members get their
// defaults: the shared main-thread door, no window, and the controller's own
// defaults for the hosts (Final Cut Pro through its Apple Events, Premiere
// Pro through its scripting; each says so itself where it is missing).
struct MyDocumentServices
{
    TLProjectSources projectSources;
    std::shared_ptr<TLMainThread> mainThread;
    std::shared_ptr<MyDocumentView> view;
    // Waits while Premiere Pro reads the project file it was handed;
    // empty: the calling thread sleeps that long.
    std::function<void(std::chrono::milliseconds)> waitForHost;
};

// What a save asks for: where to write, and the kind of save (carried, but
// every kind writes the merged project to `url`).
struct MyDocumentSaveRequest
{
    std::string url;
    int saveOperation = 0;
};

// A document is made and used on the main thread; its save, send and
// resolution workers read it without locks, so the tree must not be edited
// while one runs (the window's modal sheets see to that). The units:
// MyDocument.cpp (opening, settings, saving), MyDocumentGeneration.cpp
// (bin xmeml, merge, send), MyDocumentCommands.cpp (editing commands and the
// outline's answers).
class MyDocument
{
public:
    explicit MyDocument(MyDocumentServices services = {});
    // Waits for a running save or send to finish first.
    ~MyDocument();
    MyDocument(const MyDocument &) = delete;
    MyDocument &operator=(const MyDocument &) = delete;

    // ---- Opening and settings (MyDocument.cpp) ----

    // Opens the project at `path` and makes it the document's file. A Final
    // Cut Pro project (extension "fcp" in any case, or file type code 'FCPF'
    // in the file's Finder information) is fetched through the controller's
    // Final Cut Pro load; anything else is parsed as an xmeml file. An xmeml
    // file whose root's first child is a sequence is refused with the alert
    // "This file is incompatible with Corvale" (no parent window): false,
    // no controller, no settings read. Otherwise the clips and the
    // master-clip table are collected and the saved bin tree restored
    // whether or not the load succeeded, and the load's result is returned
    // (false for a missing or unreadable file). Logs "Is FCP project" or
    // "Is XML file". `type` is not consulted.
    [[nodiscard]] bool readFromURL(const std::string &path, std::string_view type = {});

    // Why the project at `path` cannot be worked on after readFromURL gave
    // `opened`: "cannot open PATH: <reason>" for a missing file or a folder,
    // a Final Cut Pro project that Final Cut Pro did not give (say so, and
    // what to do: export it as XML), any other failed opening, and a file
    // that is not well-formed XML (with the parser's reason and offset);
    // "" when it can.
    std::string reasonProjectCannotOpen(const std::string &path, bool opened) const;
    // readFromURL for a window: when the project cannot be worked on, the
    // alert "The project could not be opened" gives the reason (unless the
    // opening showed an alert of its own), and the reason is returned; ""
    // when it opened.
    std::string openProject(const std::string &path);

    // Restores the bin tree saved for the project at `path` and reloads the
    // outline. At the top level, nodes whose identifier the project no
    // longer holds are dropped, smart bins and smart ranges are resolved
    // again against the current clips (a smart range that collects nothing
    // is dropped; one with a clip that has no uuid keeps its saved clips),
    // and regular bins keep themselves with filterBinArray of their
    // children. A missing settings file, one that is not a readable
    // property-list dictionary with an archive under "data" (damaged,
    // truncated, hostile, a folder), or an empty archive leaves the tree as
    // it was (empty on opening) and the file untouched.
    void loadSettingsForProject(const std::string &path);

    // A new list of the nodes whose identifier is in `uuids`, and of those
    // without an identifier field; nodes with the field but no identifier
    // are dropped. Kept nodes that hold children get them filtered the same
    // way, deeply (media items too: their clip identifiers are not bin
    // identifiers). Null entries are dropped.
    static TLNodeList filterBinArray(const TLNodeList &array, const std::vector<std::string> &uuids);

    // The settings file of the project at `projectPath`: the Application
    // Support folder + "/Quillmoor/Tessaline/Corvale/Project Settings/" +
    // the project's file name (its last path component, trailing slashes
    // ignored) + ".plist". nullopt when there is no Application Support
    // folder or the path names no file ("", "/" or a name holding a NUL).
    static std::optional<std::string> settingsPathForProject(const std::string &projectPath);

    // Archives the tree into the settings file of `projectPath`, creating
    // its folders: an XML property-list dictionary holding the keyed archive
    // as binary data under "data", written atomically. Logs "output data:
    // <tree>". False when there is no settings path, the folder cannot be
    // made, or the archive or the write failed (the old file is then
    // untouched).
    bool storeSettingsForProject(const std::string &projectPath);
    // The same with the tree and its archive (nullopt when it could not be
    // made) already in hand.
    bool storeSettingsForProject(const std::string &projectPath, const TLNodeList &tree,
                                 const std::optional<std::string> &archive);

    // ---- Saving (MyDocument.cpp) ----

    // The save entry. A type of "Final Cut Pro Project" sends instead (on the
    // calling thread) and reports false. While a save runs, the alert
    // "Unable to save" / "A save operation is already in progress." is
    // shown on the window and false returned. Otherwise the save starts on a
    // thread of its own (true at once), or, once the application is
    // quitting, runs to its end on the calling thread (true, whatever the
    // write's outcome, which has shown its own alert). `saveOperation` is
    // carried but changes nothing.
    bool writeSafelyToURL(const std::string &path, std::string_view type, int saveOperation = 0);

    // One save, on the calling thread: shows the progress sheet ("Generating
    // bin list...", then "Writing file..."), decides the merge of the bins
    // into the project and writes the merged project atomically to
    // `request.url` in one pass (TLProjectWriter: the file's own prolog,
    // comments and texts given back, one element per line with tab
    // indentation, the new bins written straight from the project's clips);
    // the tree takes the merge when it is next looked at. Then gives the
    // file the type code 'XML ' and creator 'KeyG' where the file system
    // keeps them, stores the settings for the written file's name and marks
    // the document clean. On a write error the sheet is hidden, the alert
    // "Error writing file" with the reason is shown on the window and
    // neither the project file nor its settings change (false). True when
    // the project file was written.
    // When the project file was written but its settings could not be, the
    // alert "The bins could not be kept" gives the reason, the document
    // keeps its unsaved mark and settingsFailureOfLastSave says why.
    bool writeToURLOnThread(const MyDocumentSaveRequest &request);
    // Why the last save could not store the settings; "" when it did (or
    // before any save).
    std::string settingsFailureOfLastSave() const;

    // Blocks until the last background save (if any) has finished.
    void waitForSave();
    // Whether a background save is running.
    bool isSaving() const;

    // Sets isQuitting; false while a save runs, else whether there are no
    // unsaved changes.
    bool documentCanQuit();

    // ---- Generation and send (MyDocumentGeneration.cpp) ----
    //
    // Generation writes into the model and the project, for good: a node
    // with an identifier field that has none gets a fresh one (so the next
    // send replaces the bins of this one), and every clip element copied
    // into a bin, like the updatebehavior child of an earlier bin's children
    // element, gets the text "replaceoradd". Names are written as they
    // stand, without escaping; the host's own escaping applies on a send,
    // and a merge leaves out a bin whose text does not parse.

    // The whole xmeml text of the tree, on one line:
    // <?xml version="1.0" encoding="UTF-8"?><!DOCTYPE xmeml><xmeml version="N">
    // with N the Final Cut Pro bridge's maximumXMEMLVersion, the bin element
    // of every top-level node in order, then "</xmeml>". An empty tree gives
    // the header and "</xmeml>". Logged as "Output: <text>".
    std::string generateXMLOutput();

    // The text of one node's bin element: "<bin><uuid>ID</uuid>
    // <updatebehavior>replaceoradd</updatebehavior><name>NAME</name>
    // <children>" (without the breaks), the children, then the text content
    // of the children element of the node's earlier bin in the project (when
    // the node had an identifier and the project holds a bin with it), then
    // "</children></bin>". A regular bin writes the bins of its children
    // and gets a new identifier every time; a smart bin or smart range item
    // writes the project's clip element of each media item child (items
    // whose clip is gone are left out); a range item writes no children.
    // Without a project controller nothing earlier and no clip is found.
    // A null node gives "".
    std::string generateXMLForObjectAndChildren(const TLBinNodePtr &node);

    // Sets the text of the element's first updatebehavior child to
    // `behavior`, or appends a new updatebehavior child with that text as
    // the element's last child when it has none. Returns `element`; an empty
    // handle is returned unchanged.
    static pugi::xml_node setUpdateBehavior(std::string_view behavior, pugi::xml_node element);

    // For a node with an identifier field: logs "bin: <element>" with the
    // project's bin element of that identifier ("bin: (null)" when there is
    // none) and removes that element from the project document. Regular
    // bins (no such field), null nodes and a missing controller do nothing.
    void removeXMLElementAndChildren(const TLBinNodePtr &node);

    // Merges the whole tree into the project document, as an xmeml save
    // writes it. Logs "Adding bins to XML...". Makes a controller when there
    // is none and gives it an empty xmeml document when it has no root.
    // Every top-level bin text that parses as one element is kept; one that
    // does not is logged as "Error creating bin: <reason>" and left out.
    // Then the earlier bins of the top-level nodes are removed (see
    // removeXMLElementAndChildren), and the kept bins appended in order to
    // the first xmeml/project/children element; without one nothing is
    // appended (the removals stand). Earlier regular bins are never
    // replaced: each merge adds them afresh. Afterwards the controller's
    // clips and master-clip table are collected again from the merged
    // document, since removed bins may have held some of them.
    void addBinsToXML();

    // What the last merge (a save's or addBinsToXML's) or send could not
    // write: the top-level bins left out because their text did not parse
    // (a name holding "&" or "<" that does not read as XML; a send writes
    // every bin) and the clips without an identifier in the bins written.
    // Empty before any write. A save and a send also hand its message to
    // the view when they end.
    TLWriteReport reportOfLastWrite() const;

    // The send command: starts sendToFCPOnThread on a thread of its own and
    // returns at once. Sends are not serialised: one started while another
    // runs goes ahead beside it.
    void sendToFCP();

    // The send pipeline, on the calling thread (a Final Cut Pro project's
    // save sends this way). Logs "Sending to Premiere Pro..." or "Sending
    // to Final Cut Pro...", marks the document clean, shows the progress
    // sheet (labels "Generating bin list...", "Sending to Final Cut Pro...",
    // "Finishing..."; every view call goes through the main thread) and
    // generates the text. A Premiere Pro project then gets the whole project
    // document (not the text) written next to the project file as
    // "<project path without extension>-Corvale.xml" (made unique); once
    // written the Premiere Pro bridge's openFCPXML gets that file, which is
    // removed one second later; a failed write (or no project path or
    // document) hands nothing over. Otherwise the Final Cut Pro bridge's
    // sendXMLToFCP gets the text and the project path (nullopt when there is
    // none), and its answer is not examined. With a project path the bin
    // tree is then stored in its settings file, identifiers included, and
    // the progress sheet hidden. An exception is logged and ends the send.
    void sendToFCPOnThread();

    // Blocks until every background send started so far has finished.
    // Call it on the thread that calls sendToFCP.
    void waitForSend();

    // ---- Editing commands and outline answers (MyDocumentCommands.cpp,
    //      MyDocumentOutline.cpp) ----
    //
    // The commands run on the main thread and take the selection from the
    // caller: a null node means nothing is selected. Refusals are shown
    // through TLAlert and also returned, so that a caller without a window
    // can tell them apart.

    // What became of an edit: applied (possibly adding nothing), refused
    // with an alert, or failed without an alert and without any change.
    enum class EditResult { done, refused, failed };

    // The two outlines the document answers for: the bin tree, and the
    // preview of the smart range sheet.
    enum class Outline { bins, smartRangePreview };

    // Where a row's icon comes from: an image of the application by name, the
    // icon of the file at a path, or the icon of a file type. Shown at 16 by
    // 16 points.
    struct OutlineIcon
    {
        enum class Source { imageNamed, fileIcon, fileTypeIcon };
        Source source = Source::imageNamed;
        std::string name;
    };

    // A cell of the smart bin sheet's table: a pop-up index or a text.
    using TableValue = std::variant<std::int64_t, std::string>;

    // Menu and toolbar actions whose state depends on the document.
    enum class MenuAction { openFCPProject, sendToFCP, save, saveAs, revert, other };

    // How a menu item should look. Fields left empty are not changed; a key
    // equivalent, when given, goes with the Command modifier.
    struct MenuItemState
    {
        bool enabled = true;
        bool hidden = false;
        std::optional<std::string> title;
        std::optional<std::string> keyEquivalent;
    };

    // The selection after a selection change, and the name of the
    // notification posted for it ("disableAddButtons" or "enableAddButtons").
    struct SelectionChange
    {
        TLNodeList selection;
        std::string notificationName;
    };

    // Tree operations. With no parent the node goes to (or leaves) the top
    // level. addItem appends one node; with `reloadData` the parent's row is
    // reloaded (the whole outline for the top level), the parent expanded and
    // the new node selected, its name edited when `enterEditMode`. It does
    // not mark the document as changed. False, and nothing added, when the
    // parent has no child list or the node is null.
    bool addItem(const TLBinNodePtr &node, const TLBinNodePtr &parent, bool reloadData, bool enterEditMode);
    // Appends the nodes in order (all or none), selects the first with
    // `reloadData`, and marks the document as changed when at least one was
    // added. False when nothing was added.
    bool addItems(const TLNodeList &nodes, const TLBinNodePtr &parent, bool reloadData);
    // Removes the node from the parent's children (or the top level) and
    // marks the document as changed, even when the node was not there.
    // Returns whether it was there.
    bool removeItem(const TLBinNodePtr &node, const TLBinNodePtr &parent, bool reloadData);

    // A new regular bin "Untitled Bin" under the selected regular bin, or at
    // the top level, with its name being edited. Refused (alert sheet on the
    // window) when the selected node is any other kind.
    EditResult emptyBinClick(const TLBinNodePtr &selected);

    // Range sheet. Opens it on "Reel [1-10]" with its preview.
    void binRangeClick();
    // Recomputes the preview names and the count text from `expression`; a
    // malformed expression previews nothing ("0 items").
    void updateRangePreview(const std::string &expression);
    // The names previewed, and the count text ("1 item", "10 items").
    std::vector<std::string> rangePreviewNames() const;
    std::string rangeCountText() const;
    static std::string rangeCountTextForCount(std::size_t count);
    // Adds the series of `expression` under the selected regular bin or at
    // the top level; with a range item selected its whole series is replaced
    // under the same parent, the new items taking the old identifiers by
    // position. Refused (modal alert) for any other selected node. Fails,
    // changing nothing, when the expression is malformed. An expression with
    // no names adds nothing (and still removes a replaced series).
    EditResult createRangeClick(const std::string &expression, const TLBinNodePtr &selected);
    void cancelCreateRange();

    // Smart bin sheet. Opens it with one default row (type 0, match 0,
    // "Unknown").
    void smartBinClick();
    // Appends a default row and starts editing its text.
    void smartBinAddItem();
    // Removes the rows at these indexes (out-of-range ones are ignored).
    void smartBinRemoveItem(const std::vector<std::size_t> &rows);
    // The sheet's filter rows, in order.
    TLFilterList smartBinFilterArray() const;
    void setSmartBinFilterArray(TLFilterList filterArray);
    // A cell by column identifier: "filterType" and "filterMatch" are
    // integers, any other column is the row's text. nullopt past the last row.
    std::optional<TableValue> smartBinObjectValue(std::string_view column, std::size_t row) const;
    // Sets a cell; a text for an integer column is read as a leading decimal
    // number (0 when there is none), a number for the text column is written
    // out. False past the last row.
    bool setSmartBinObjectValue(const TableValue &value, std::string_view column, std::size_t row);
    // Builds the smart bin named `name` from the sheet's rows on a worker
    // thread, then adds it on the main thread (finishCreatingSmartBin). With
    // no rows the alert sheet "Unable to create smart bin" is shown on the
    // sheet and the result is refused at once. The future is ready when the
    // edit is over; wait on it only off the main thread or with the in-place
    // main-thread door.
    std::shared_future<EditResult> createSmartBinClick(const std::string &name, std::int64_t matchType,
                                                       const TLBinNodePtr &selected);
    // Adds a built smart bin under the selected node (or at the top level)
    // and closes the sheet. Refused (modal alert, sheet left open) when a
    // regular bin is selected; fails, adding nothing and leaving the sheet
    // open, when the selected node has no child list.
    EditResult finishCreatingSmartBin(const std::shared_ptr<TLSmartBin> &bin, const TLBinNodePtr &selected);
    void cancelCreateSmartBin();

    // Smart range sheet. Opens it with the create button enabled and starts
    // the preview of `criteria`.
    void smartRangeClick(std::int64_t criteria);
    // Recomputes the preview for `criteria` on a worker thread.
    // isUpdatingPreview() holds while any preview runs; of overlapping
    // previews the last to finish is the one kept.
    void smartRangeChangeCriteria(std::int64_t criteria);
    // The same preview, computed on the calling thread.
    void updateSmartRangePreview(std::int64_t criteria);
    // The previewed items, sorted by name without regard to case.
    std::vector<std::shared_ptr<TLSmartRangeItem>> smartRangePreview() const;
    // Disables the create button and, on a worker thread, waits for the
    // previews to finish before createSmartRange runs on the main thread.
    // The future as for createSmartBinClick.
    std::shared_future<EditResult> createSmartRangeClick(const TLBinNodePtr &selected);
    // Adds every previewed item under the selected regular bin (or at the top
    // level) and closes the sheet; with no items it adds nothing and still
    // closes it. Refused (modal alert) when another kind is selected.
    EditResult createSmartRange(const TLBinNodePtr &selected);
    void cancelCreateSmartRange();

    // Removes the selected nodes (in row order) with their subtrees, skipping
    // media items, then reloads the whole outline.
    void remove(const TLNodeList &selected);
    // An edited name becomes the node's binName; the change count stays.
    void setObjectValueForItem(const std::string &value, const TLBinNodePtr &item);
    // A regular bin: edit its name. A range item: re-open the range sheet on
    // its expression. Anything else (or null): nothing.
    void outlineViewDoubleClick(const TLBinNodePtr &clicked);
    // Extends the selection (given in row order) with the whole series of
    // every selected range item, and posts "disableAddButtons" when there was
    // one, else "enableAddButtons".
    SelectionChange outlineViewSelectionDidChange(const TLNodeList &selected);
    void enableAddButtons();
    void disableAddButtons();
    // The range items of `item`'s series, as they stand among its siblings;
    // empty for a null node or another kind.
    TLNodeList rangeSeriesOfItem(const TLBinNodePtr &item) const;

    // Outline answers. A null item is the root: dataArray for the bins, the
    // preview for the smart range outline.
    std::size_t numberOfChildrenOfItem(const TLBinNodePtr &item, Outline outline = Outline::bins) const;
    // Null past the last child.
    TLBinNodePtr childOfItem(std::size_t index, const TLBinNodePtr &item, Outline outline = Outline::bins) const;
    // Regular bins, smart bins and smart range items with at least one child.
    static bool isItemExpandable(const TLBinNodePtr &item);
    // Only a regular bin is renamed in place, as its double-click does: a
    // range bin's name comes from its series, a smart range item's name is
    // the value it stands for (renamed, it would be dropped at the next
    // opening), a smart bin is made through its sheet, a clip's name is
    // its file's. False for null.
    static bool isItemRenamable(const TLBinNodePtr &item);
    // shortName for a media item, binName otherwise; empty for null.
    static std::string objectValueForItem(const TLBinNodePtr &item);
    // By kind: "empty-bin-small", "bin-range-single", "smart-range-single",
    // "smart-bin-small"; a media item shows its file's icon, or the "mov"
    // type's without a path. A null item gets an empty image name.
    static OutlineIcon iconForItem(const TLBinNodePtr &item);

    // Menu validation: Command-S sends for a host project and saves for an
    // xmeml file; opening a Final Cut Pro project needs it running.
    MenuItemState validateUserInterfaceItem(MenuAction action, bool isFinalCutProRunning) const;

    // Blocks until every command worker (smart bin builds, previews, smart
    // range creations) has finished. The destructor calls it.
    void waitForCommands();

    // ---- State ----

    // The project file this document stands for; empty before opening.
    std::string fileURL() const;
    void setFileURL(std::string path);

    // The top level of the bin tree, in display order (a snapshot that is
    // never changed in place).
    TLNodeListPtr dataArray() const;
    void setDataArray(TLNodeList dataArray);

    // The project controller; null before opening and after a refused open.
    std::shared_ptr<TLFCPProjectController> mediaController() const;
    void setMediaController(std::shared_ptr<TLFCPProjectController> controller);

    bool isFCPProject() const { return m_isFCPProject; }
    bool isPremiereProject() const { return m_isPremiereProject; }
    void setPremiereProject(bool flag) { m_isPremiereProject = flag; }
    bool isUpdatingPreview() const { return m_isUpdatingPreview; }
    bool isQuitting() const { return m_isQuitting; }
    void setQuitting(bool flag) { m_isQuitting = flag; }

    // Unsaved changes: raised by the commands that change the tree, cleared
    // by a save or a send.
    bool isDocumentEdited() const { return m_changeCount != 0; }
    void updateChangeCountDone() { ++m_changeCount; }
    void updateChangeCountCleared() { m_changeCount = 0; }

    MyDocumentView &view() const { return *m_services.view; }
    TLMainThread &mainThread() const { return *m_services.mainThread; }
    // Hands `work` to the main thread and waits for it.
    void onMainThread(std::function<void()> work) const;

private:
    MyDocumentServices m_services;

    mutable std::mutex m_stateMutex;
    std::string m_fileURL;
    TLNodeListPtr m_dataArray;
    std::shared_ptr<TLFCPProjectController> m_mediaController;

    std::atomic<bool> m_isFCPProject = false;
    std::atomic<bool> m_isPremiereProject = false;
    std::atomic<bool> m_isUpdatingPreview = false;
    std::atomic<bool> m_isQuitting = false;
    std::atomic<long> m_changeCount = 0;

    // Background save and send: the thread and whether it still runs.
    std::thread m_saveThread;
    std::shared_ptr<std::atomic<bool>> m_saveRunning;
    std::thread m_sendThread;
    std::shared_ptr<std::atomic<bool>> m_sendRunning;

    // MyDocumentGeneration.cpp: sends started before the latest one and
    // still running then (sends may overlap); waitForSend joins them too.
    std::vector<std::thread> m_earlierSendThreads;
    // The hosts of the document's project sources, or their stand-ins.
    std::shared_ptr<TLFinalCutProBridge> finalCutProBridge() const;
    std::shared_ptr<TLPremiereBridge> premiereBridge() const;
    void runSendSteps();
    void sendToPremiere(const std::string &projectPath);
    // Decides the merge of the tree into the project without making it,
    // with every lasting effect of generation (identifiers, "replaceoradd"),
    // and records the bins it leaves out.
    TLProjectMerge planMerge();
    TLWriteReport m_reportOfLastWrite; // guarded by m_stateMutex

    // MyDocumentCommands.cpp: the open sheet's lists (only one sheet is open
    // at a time, and opening any sheet clears them all), the count of running
    // previews behind isUpdatingPreview, and the command workers.
    mutable std::mutex m_sheetMutex;
    std::vector<std::string> m_rangePreviewNames;
    TLFilterList m_smartBinFilterArray;
    std::vector<std::shared_ptr<TLSmartRangeItem>> m_smartRangePreview;
    std::mutex m_previewCountMutex;
    int m_previewsRunning = 0;
    struct CommandThread
    {
        std::jthread thread;
        std::shared_ptr<std::atomic<bool>> finished;
    };
    std::mutex m_commandThreadsMutex;
    // Last, so that even without waitForCommands() the workers are joined
    // before any other member goes away.
    std::vector<CommandThread> m_commandThreads;
    void startCommandThread(std::function<void()> work);
    void beginPreview();
    void endPreview();
    void computeSmartRangePreview(std::int64_t criteria, const std::shared_ptr<TLFCPProjectController> &controller);
    std::shared_ptr<TLFCPProjectController> controllerForResolution() const;
    TLNodeList siblingsOfItem(const TLBinNodePtr &item) const;
    void reloadItemOrOutline(const TLBinNodePtr &item);
    void clearSheetLists();

    // MyDocument.cpp: guards m_saveThread and m_saveRunning, so that a save
    // can be checked for and started as one step.
    mutable std::mutex m_saveMutex;
    // Starts a background save; false when one still runs.
    bool startSaveThread(const MyDocumentSaveRequest &request);
    // Stores the settings; "" or the reason they could not be stored.
    std::string settingsFailureForProject(const std::string &projectPath, const TLNodeList &tree,
                                          const std::optional<std::string> &archive);
    std::string m_settingsFailureOfLastSave; // guarded by m_stateMutex
    // A tree and its keyed archive (nullopt when it could not be made).
    struct ArchivedTree
    {
        TLNodeListPtr nodes;
        std::optional<std::string> archive;
    };
    static ArchivedTree archiveOf(TLNodeListPtr tree);
    // Merges, serialises and writes the project; "" or the reason it failed.
    // Once the merge is decided, `archived` receives the archive of the tree
    // being made meanwhile.
    std::string writeProjectFile(const std::string &path, std::future<ArchivedTree> &archived);
};
