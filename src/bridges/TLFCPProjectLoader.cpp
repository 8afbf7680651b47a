// The project loader dialog's logic: list, selection, opening and closing.
#include "TLFCPProjectLoader.h"

#include "TLAlert.h"
#include "TLException.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace {

constexpr const char *openFailedDescription = "The document could not be opened.";

} // namespace

TLFCPProjectLoader::TLFCPProjectLoader(TLAppleEvents events, OpenDocument openDocument, CloseWindow closeWindow)
    : m_events(std::move(events)), m_openDocument(std::move(openDocument)), m_closeWindow(std::move(closeWindow))
{
}

void TLFCPProjectLoader::reportUnloadableDialog()
{
    const std::string title = "Critical error: unable to load FCP project loader dialog.";
    const std::string advice = "You must reinstall the application.";
    std::fputs((title + " " + advice + "\n").c_str(), stderr);
    TLAlert::alertSheetWithMessageText(title, std::string("OK"), std::nullopt, std::nullopt, advice, nullptr, true);
}

void TLFCPProjectLoader::awakeFromNib()
{
    if (m_modalSession)
        return;
    // A missing list (Final Cut Pro not running) shows as an empty one.
    m_projectArray = m_events.listOfOpenFCPProjects().value_or(std::vector<std::string>{});
    m_openButtonEnabled = !m_projectArray.empty();
    m_modalSession = true;
}

bool TLFCPProjectLoader::openProject(const std::vector<std::size_t> &selectedRows)
{
    std::vector<std::size_t> rows;
    for (const std::size_t row : selectedRows)
        if (row < m_projectArray.size())
            rows.push_back(row);
    if (rows.empty())
        return false;
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());

    // The dialog goes away first: each opening may show its own alert, and
    // the list must not change under the loop should the window be torn down.
    const std::vector<std::string> projects = m_projectArray;
    endModalSession();
    for (const std::size_t row : rows)
        openProjectAtPath(projects[row]);
    return true;
}

void TLFCPProjectLoader::closeDialog()
{
    endModalSession();
}

void TLFCPProjectLoader::windowWillClose()
{
    closeDialog();
}

std::size_t TLFCPProjectLoader::numberOfRowsInTableView() const
{
    return m_projectArray.size();
}

std::string TLFCPProjectLoader::objectValueForRow(std::size_t row) const
{
    return row < m_projectArray.size() ? m_projectArray[row] : std::string();
}

void TLFCPProjectLoader::endModalSession()
{
    if (!m_modalSession)
        return;
    m_modalSession = false;
    if (!m_closeWindow)
        return;
    try {
        m_closeWindow();
    } catch (...) {
        TLException::logException(std::current_exception(), "-[TLFCPProjectLoader closeDialog:]");
    }
}

void TLFCPProjectLoader::openProjectAtPath(const std::string &path) const
{
    std::optional<std::string> error = openFailedDescription;
    try {
        if (m_openDocument)
            error = m_openDocument(path);
    } catch (...) {
        // One project that throws must not keep the others from opening.
        TLException::logException(std::current_exception(), "-[TLFCPProjectLoader openProject:]");
    }
    if (error)
        TLAlert::alertSheetWithMessageText("Error loading project", *error, nullptr);
}
