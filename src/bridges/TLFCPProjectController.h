// One open project's parsed xmeml, its clip list and its master-clip path
// table, filled from an xmeml file, from Final Cut Pro or from Premiere Pro.
#pragma once

#include "TLAlertPresenter.h"
#include "TLFileWaiting.h"
#include "TLFinalCutProBridge.h"
#include "TLPremiereBridge.h"
#include "TLProjectView.h"
#include "TLXMLParser.h"

#include <pugixml.hpp>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// The hosts and services a controller obtains projects through. A member
// left empty is replaced by its default: Final Cut Pro through its Apple
// Events (TLFinalCutProBridge::standard), Premiere Pro through its scripting
// (TLPremiereBridge::standard), file waits on the real file system, alerts
// to the presenter in use (TLAlert::presenter()).
struct TLProjectSources
{
    std::shared_ptr<TLFinalCutProBridge> finalCutPro;
    std::shared_ptr<TLPremiereBridge> premiere;
    std::shared_ptr<TLFileWaiting> fileWaiting;
    std::shared_ptr<TLAlertPresenter> alertPresenter;
};

// Held by each open document as its media controller. Loads happen on one
// thread; any number of threads may query at the same time as long as no
// load or setter runs meanwhile. No exception leaves a public function: an
// unexpected one is logged and the function gives its failure result.
class TLFCPProjectController final : public TLProjectView
{
public:
    // A controller holding an empty document, no clips and an empty table.
    explicit TLFCPProjectController(TLProjectSources sources = {});
    ~TLFCPProjectController();
    TLFCPProjectController(const TLFCPProjectController &) = delete;
    TLFCPProjectController &operator=(const TLFCPProjectController &) = delete;

    // Loads an xmeml file. False, with the document unchanged, when `path`
    // names nothing (or holds a NUL), a folder or anything else that is not
    // a readable regular file. Otherwise true, and the document is the file's parse;
    // when the file is not well-formed XML (empty, plain text, truncated)
    // there is then no document at all (xmlDoc() is null).
    [[nodiscard]] bool setXmlDocFromFilePath(const std::string &path);

    // Fetches a Final Cut Pro project's xmeml, launching Final Cut Pro when
    // needed. False, without asking Final Cut Pro, when nothing exists at
    // `path`; false, with the document unchanged, when the answer is absent
    // or empty. Otherwise true, with the parse as the document (none when
    // the text is not well-formed).
    [[nodiscard]] bool loadXMLFromFCP(const std::string &path);

    // Has Premiere Pro open the project at `path` and export it as xmeml to
    // a fresh temporary file, waits for that file and parses it. When the
    // file is missing, unreadable or empty the alert "No XML data found" is
    // shown and the document is unchanged (false). When it does not parse,
    // "Error loading XML data: <reason>" is logged and no document remains
    // (false). The temporary file is left in place.
    [[nodiscard]] bool loadXMLFromPremiere(const std::string &path);

    // Fetches Final Cut Pro's table of contents for the project at `path`.
    // False, without asking, when nothing exists there; false with the
    // document unchanged when the answer is absent or empty; false with no
    // document, after writing "Error importing XML: <reason>" to standard
    // error, when it does not parse; true otherwise.
    [[nodiscard]] bool loadTOCFromFCP(const std::string &path);

    // Menu actions whose item title is a path: loadXMLFromFCP and
    // setXmlDocFromFilePath respectively.
    bool fcpProjectSelect(const std::string &path);
    bool xmlDocSelect(const std::string &path);

    // Evaluates the query as given (not escaped) with the document node as
    // context. The matches in document order; an empty list when there is
    // no document or nothing matches; nullopt when the query does not
    // compile.
    std::optional<TLXMLNodeList> nodesForQuery(std::string_view query) const;

    // The first match of nodesForQuery, or an empty handle.
    pugi::xpath_node firstNodeForQuery(std::string_view query) const;

    // The string value of every match; an empty list (never an absent one)
    // when nothing matches, there is no document or the query is bad.
    std::vector<std::string> stringValuesForQuery(std::string_view query) const;

    // The first element named `type` whose own uuid child has exactly the
    // text `uuid`, found with ".//<type>/uuid[text()=<uuid>][1]/..". The
    // uuid is always one string literal of the query, whatever quotation
    // marks it holds, so it can never change the query's meaning. An empty
    // handle when none matches or `type` is not a plain element name.
    pugi::xml_node nodeWithUUID(std::string_view uuid, std::string_view type) const;

    // Every bin element whose own uuid child has exactly the text `uuid`, in
    // document order: the first is nodeWithUUID(uuid, "bin").
    std::vector<pugi::xml_node> binsWithUUID(std::string_view uuid) const;

    // Removes `element` and everything in it from the document, keeping the
    // uuid lookups of nodeWithUUID up to date and dropping the clips and
    // master-clip paths that stood inside it (their handles would dangle).
    // False for an empty handle or a node without a parent.
    bool detachNode(pugi::xml_node element);

    // Builds the uuid lookup of bins now. A caller that is about to add bins
    // which lookups must not find (until it calls documentDidChange) calls
    // this first; otherwise the lookup is built on first use.
    void prepareBinLookups() const;

    // Says that elements were added to the document or renamed outside
    // detachNode, so that the uuid lookups are rebuilt when next needed.
    void documentDidChange();

    // The first entry of clips(), in list order, whose own uuid child (not a
    // nested one) holds `uuid`; an empty handle when none does. Constant
    // time on average: an index is built on first use after setClips and
    // shared by all threads that ask.
    pugi::xml_node clipNodeWithUUID(std::string_view uuid) const;

    // Fills clips() with every clip element of the document (".//clip") and
    // builds the master-clip path table from every pathurl element in
    // document order: keyed by the string value of "./../../masterclipid"
    // relative to the pathurl (an empty id is still an id), a later pathurl
    // with the same key replacing the earlier one; a pathurl without a
    // master clip id goes under "Unknown%i" with a counter that starts at 1
    // and counts only such elements. Both end up empty without a document.
    void collectClipsAndMasterClipPaths();

    // The parsed project, or null when the last load left no document.
    pugi::xml_document *xmlDoc();
    const pugi::xml_document *xmlDoc() const;
    // Whether the text of the project began with a byte-order mark.
    bool hasByteOrderMark() const { return m_hasByteOrderMark; }
    // Why the last load's text was not well-formed XML ("<reason> at offset
    // N"); "" when it was, or when no text was parsed.
    const std::string &parseError() const { return m_parseError; }

    // Takes a change of the document that is already decided (a save has
    // written the project as it will be) but need not be made until the
    // tree is looked at again: the first call of any member below or above
    // that reads or changes the document, its clips or its table makes it,
    // on whichever thread that is, while other threads that ask wait. So a
    // save that ends the program never pays for it. A new load or document
    // drops a change not made yet; so does the controller's end. `change`
    // may call this controller.
    void deferChange(std::function<void()> change);
    // Replaces the document; null leaves the controller without one.
    void setXmlDoc(std::unique_ptr<pugi::xml_document> document);
    // Replaces the document with an empty xmeml document: a UTF-8 XML
    // declaration, the document type "xmeml" and a lone root
    // <xmeml version="N"/>, N being the Final Cut Pro bridge's
    // maximumXMEMLVersion. It has no project, so bins merged into it find no
    // place to go. Clips and table are left as they are (see clips()).
    void setEmptyXMEMLDoc();

    // The project's clip elements. A load does not change them: they keep
    // referring to the previous document, which stays alive for them, until
    // the next setClips.
    const TLXMLNodeList &clips() const override
    {
        makeDeferredChange();
        return m_clips;
    }
    // Takes nodes of the current document.
    void setClips(TLXMLNodeList clips);

    // The master-clip path table; like clips(), it keeps referring to the
    // document it was set for until the next setMasterClipPaths.
    const TLMasterClipPaths &masterClipPaths() const override
    {
        makeDeferredChange();
        return m_masterClipPaths;
    }
    // Takes elements of the current document.
    void setMasterClipPaths(TLMasterClipPaths masterClipPaths);

private:
    void makeDeferredChange() const
    {
        if (m_hasDeferredChange.load(std::memory_order_acquire))
            makeDeferredChangeNow();
    }
    void makeDeferredChangeNow() const;
    void dropDeferredChange();
    // Lets go of the document (and anything deferred for it) before a new
    // one is parsed, so that two large projects are never held at once.
    void dropDocument();
    void adoptDocument(std::shared_ptr<pugi::xml_document> document, bool hasByteOrderMark, std::string parseError);
    // Parses UTF-8 text as the new document (none when not well-formed);
    // false, with the document unchanged, only when memory runs out.
    bool replaceDocumentWithText(std::string text);
    void buildClipIndex() const;

    TLProjectSources m_sources;
    std::shared_ptr<pugi::xml_document> m_document;
    bool m_hasByteOrderMark = false;
    std::string m_parseError;
    // Recursive: the change itself calls members that check for it.
    mutable std::recursive_mutex m_deferredChangeMutex;
    mutable std::function<void()> m_deferredChange;
    mutable std::atomic<bool> m_hasDeferredChange{false};
    // The documents clips and table were taken from, kept alive for them.
    std::shared_ptr<pugi::xml_document> m_clipsDocument;
    std::shared_ptr<pugi::xml_document> m_masterClipPathsDocument;
    TLXMLNodeList m_clips;
    TLMasterClipPaths m_masterClipPaths;
    // Bins by the text of their uuid children, each list in document order:
    // looking a bin up by uuid happens twice per top-level bin of a merge,
    // and a query over a large project costs a walk of the whole tree.
    // Built on first use for the document it was built from.
    using BinIndex = std::unordered_map<std::string, std::vector<pugi::xml_node>>;
    const BinIndex &binIndex() const;
    void indexBin(const std::string &uuid, pugi::xml_node bin) const;
    // Drops the clips and table entries at or below `element`.
    void forgetNodesWithin(pugi::xml_node element);
    mutable std::mutex m_binIndexMutex;
    mutable BinIndex m_binIndex;
    mutable std::weak_ptr<pugi::xml_document> m_binIndexDocument;
    // uuid -> first clip with that uuid; built once per setClips.
    mutable std::unique_ptr<std::once_flag> m_clipIndexBuilt;
    mutable std::unordered_map<std::string, pugi::xml_node> m_clipIndex;
};
