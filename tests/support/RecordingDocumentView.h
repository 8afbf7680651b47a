// A document view that records every call it gets instead of drawing.
#pragma once

#include "MyDocumentView.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace test {

// Each call is recorded as one line: the operation's name, then its
// arguments separated by blanks, nodes by their shown name and the top level
// as "(top)", e.g. "reloadItem Selects children", "selectItem Reel 3",
// "setRangeCountText 10 items", "editSmartBinFilterText 0". The main window
// and the smart bin sheet have distinct non-null handles, mainWindow() and
// smartBinSheet(), so that tests can tell where an alert went. Safe to call
// from any thread.
class RecordingDocumentView : public MyDocumentView
{
public:
    void *windowHandle() const override { return mainWindow(); }
    void *smartBinSheetHandle() const override { return smartBinSheet(); }
    void *mainWindow() const { return const_cast<char *>(&m_mainWindow); }
    void *smartBinSheet() const { return const_cast<char *>(&m_smartBinSheet); }

    void reloadOutline() override { record("reloadOutline"); }
    void reloadItem(const TLBinNodePtr &node, bool reloadChildren) override
    {
        record("reloadItem " + name(node) + (reloadChildren ? " children" : ""));
    }
    void expandItem(const TLBinNodePtr &node) override { record("expandItem " + name(node)); }
    void selectItem(const TLBinNodePtr &node) override { record("selectItem " + name(node)); }
    void editItemName(const TLBinNodePtr &node) override { record("editItemName " + name(node)); }

    void startProgress() override { record("startProgress"); }
    void endProgress() override { record("endProgress"); }
    void updateProgressLabel(const std::string &text) override { record("updateProgressLabel " + text); }

    void extendSelection(const TLNodeList &nodes) override
    {
        std::string line = "extendSelection";
        for (const auto &node : nodes)
            line += " " + name(node);
        record(line);
    }
    void postNotification(const std::string &notification) override { record("postNotification " + notification); }
    void setAddButtonsEnabled(bool enabled) override { record(enabled ? "addButtons on" : "addButtons off"); }

    void showRangeSheet() override { record("showRangeSheet"); }
    void closeRangeSheet() override { record("closeRangeSheet"); }
    void setRangeExpressionText(const std::string &expression) override
    {
        record("setRangeExpressionText " + expression);
    }
    void reloadRangePreview() override { record("reloadRangePreview"); }
    void setRangeCountText(const std::string &text) override { record("setRangeCountText " + text); }

    void showSmartBinSheet() override { record("showSmartBinSheet"); }
    void closeSmartBinSheet() override { record("closeSmartBinSheet"); }
    void reloadSmartBinTable() override { record("reloadSmartBinTable"); }
    void editSmartBinFilterText(std::size_t row) override { record("editSmartBinFilterText " + std::to_string(row)); }
    void endSmartBinEditing() override { record("endSmartBinEditing"); }
    void startSmartBinSpinner() override { record("startSmartBinSpinner"); }
    void stopSmartBinSpinner() override { record("stopSmartBinSpinner"); }

    void showSmartRangeSheet() override { record("showSmartRangeSheet"); }
    void closeSmartRangeSheet() override { record("closeSmartRangeSheet"); }
    void reloadSmartRangePreview() override { record("reloadSmartRangePreview"); }
    void startSmartRangeSpinner() override { record("startSmartRangeSpinner"); }
    void stopSmartRangeSpinner() override { record("stopSmartRangeSpinner"); }
    void setSmartRangeCreateEnabled(bool enabled) override { record(enabled ? "createButton on" : "createButton off"); }

    std::vector<std::string> calls() const
    {
        const std::lock_guard lock(m_mutex);
        return m_calls;
    }
    // Whether `line` was recorded.
    bool called(const std::string &line) const
    {
        const std::lock_guard lock(m_mutex);
        return std::find(m_calls.begin(), m_calls.end(), line) != m_calls.end();
    }
    // How often `line` was recorded.
    std::size_t count(const std::string &line) const
    {
        const std::lock_guard lock(m_mutex);
        return std::size_t(std::count(m_calls.begin(), m_calls.end(), line));
    }
    void clear()
    {
        const std::lock_guard lock(m_mutex);
        m_calls.clear();
    }

private:
    static std::string name(const TLBinNodePtr &node) { return node ? node->displayName() : "(top)"; }

    void record(std::string line)
    {
        const std::lock_guard lock(m_mutex);
        m_calls.push_back(std::move(line));
    }

    mutable std::mutex m_mutex;
    std::vector<std::string> m_calls;
    char m_mainWindow = 0;
    char m_smartBinSheet = 0;
};

} // namespace test
