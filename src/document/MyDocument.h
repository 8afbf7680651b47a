// One open project: its bin tree, its project controller, its settings file,
// saving, the generation and sending of bin xmeml, and the editing commands.
#pragma once

#include "MyDocumentView.h"
#include "TLBinNode.h"
#include "TLFCPProjectController.h"
#include "TLMainThread.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// Everything a document reaches outside itself. Empty members get their
// defaults: the shared main-thread door, no window, and the controller's own
// defaults for the hosts (Final Cut Pro and Premiere Pro not available).
struct MyDocumentServices
{
    TLProjectSources projectSources;
    std::shared_ptr<TLMainThread> mainThread;
    std::shared_ptr<MyDocumentView> view;
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

    // Opens the project at `path`: a Final Cut Pro project (extension "fcp"
    // in any case, or file type code 'FCPF') is fetched through the
    // controller's Final Cut Pro load, anything else is parsed as an xmeml
    // file. An xmeml file whose root's first child is a sequence is refused
    // with an alert (false, no settings read). Otherwise the clips and the
    // master-clip table are collected, the saved bin tree is restored, and
    // the controller's load result is returned. `type` is not consulted.
    [[nodiscard]] bool readFromURL(const std::string &path, std::string_view type = {});

    // Restores the bin tree saved for the project at `path`; a missing,
    // damaged or empty settings file leaves the tree empty (and the file as
    // it is).
    void loadSettingsForProject(const std::string &path);

    // The nodes whose identifier is in `uuids` (and those without an
    // identifier field), with their children filtered the same way, deeply.
    static TLNodeList filterBinArray(const TLNodeList &array, const std::vector<std::string> &uuids);

    // The settings file of the project at `projectPath`: the Application
    // Support folder + "/Quillmoor/Tessaline/Corvale/Project Settings/" +
    // the project's file name + ".plist". nullopt when there is no
    // Application Support folder.
    static std::optional<std::string> settingsPathForProject(const std::string &projectPath);

    // Archives the tree into the settings file of `projectPath`, creating
    // its folder; false when the archive or the write failed (the old file
    // is then untouched).
    bool storeSettingsForProject(const std::string &projectPath);

    // ---- Saving (MyDocument.cpp) ----

    // The save entry. A type of "Final Cut Pro Project" sends instead (on the
    // calling thread) and reports false. While a save runs, the alert
    // "Unable to save" is shown and false returned. Otherwise the save
    // starts on a thread of its own (true at once), or runs to its end on
    // the calling thread once the application is quitting.
    bool writeSafelyToURL(const std::string &path, std::string_view type, int saveOperation = 0);

    // Merges the bins into the project, writes it atomically, then stores
    // the settings for the written file's name. On a write error the alert
    // "Error writing file" is shown and neither file changes. True when the
    // project file was written.
    bool writeToURLOnThread(const MyDocumentSaveRequest &request);

    // Blocks until the last background save (if any) has finished.
    void waitForSave();
    bool isSaving() const;

    // Sets isQuitting; false while a save runs, else whether there are no
    // unsaved changes.
    bool documentCanQuit();

    // ---- Generation and send (MyDocumentGeneration.cpp) ----

    // The whole xmeml text of the tree: header, one bin per top-level node,
    // "</xmeml>", on one line.
    std::string generateXMLOutput();
    // The text of one node's bin element (assigning identifiers on first use).
    std::string generateXMLForObjectAndChildren(const TLBinNodePtr &node);
    // Sets (or adds, as last child) the element's updatebehavior text; the
    // same element is returned.
    static pugi::xml_node setUpdateBehavior(std::string_view behavior, pugi::xml_node element);
    // Detaches the project's earlier bin element of `node`, if any.
    void removeXMLElementAndChildren(const TLBinNodePtr &node);
    // Merges the whole tree into the project document.
    void addBinsToXML();
    // The send command: runs sendToFCPOnThread on a thread of its own.
    void sendToFCP();
    // The send pipeline, on the calling thread.
    void sendToFCPOnThread();
    // Blocks until the last background send (if any) has finished.
    void waitForSend();

    // ---- Editing commands and outline answers (MyDocumentCommands.cpp) ----

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
};
