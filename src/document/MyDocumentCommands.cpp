// The adding commands of a document's window: empty bins, range series,
// smart bins and smart ranges, the lists behind their sheets, and the
// workers that build smart bins and smart range previews.
#include "MyDocument.h"

#include "TLAlert.h"
#include "TLBinRangeItem.h"
#include "TLBinRangeParser.h"
#include "TLFormat.h"
#include "TLLog.h"
#include "TLRegularBin.h"
#include "TLSmartBinParser.h"
#include "TLSmartRangeParser.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <unordered_set>

namespace {

constexpr std::string_view untitledBinName = "Untitled Bin";
constexpr std::string_view defaultRangeExpression = "Reel [1-10]";
constexpr std::string_view defaultFilterString = "Unknown";
constexpr auto previewPollInterval = std::chrono::microseconds(10);

bool isRegularBin(const TLBinNodePtr &node)
{
    return node && node->kind() == TLBinNodeKind::regularBin;
}

// The names of a range expression; nullopt when it is malformed. The live
// preview asks on every keystroke, so a malformed expression is not logged
// here.
std::optional<std::vector<std::string>> namesForExpression(const std::string &expression)
{
    try {
        return TLBinRangeParser::arrayFromExpression(expression);
    } catch (const std::out_of_range &) {
        return std::nullopt;
    }
}

// The refusals that stand on their own, with a single "OK" button.
void showModalRefusal(const std::string &message, const std::string &informativeText)
{
    TLAlert::alertSheetWithMessageText(message, std::string("OK"), std::nullopt, std::nullopt,
                                       informativeText, nullptr, true);
}

std::shared_future<MyDocument::EditResult> readyResult(MyDocument::EditResult result)
{
    std::promise<MyDocument::EditResult> promise;
    promise.set_value(result);
    return promise.get_future().share();
}

// Workers get rows of their own, so that the sheet's table may go on
// editing its rows while a bin is being built from them.
TLFilterList copyOfFilters(const TLFilterList &filters)
{
    TLFilterList copy;
    copy.reserve(filters.size());
    for (const auto &filter : filters) {
        if (filter)
            copy.push_back(TLSmartBinFilter::create(filter->filterType(), filter->filterMatch(),
                                                    filter->filterString()));
    }
    return copy;
}

// A pop-up index from a cell value: a text is read like a typed number,
// its leading decimal digits after blanks and a sign, and 0 without any.
std::int64_t integerValue(const MyDocument::TableValue &value)
{
    if (const auto *number = std::get_if<std::int64_t>(&value))
        return *number;
    std::string_view text = std::get<std::string>(value);
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    if (!text.empty() && text.front() == '+')
        text.remove_prefix(1);
    std::int64_t result = 0;
    std::from_chars(text.data(), text.data() + text.size(), result);
    return result;
}

std::string textValue(const MyDocument::TableValue &value)
{
    if (const auto *number = std::get_if<std::int64_t>(&value))
        return std::to_string(*number);
    return std::get<std::string>(value);
}

} // namespace

// ---- New empty bin and range series ----

MyDocument::EditResult MyDocument::emptyBinClick(const TLBinNodePtr &selected)
{
    if (selected && !isRegularBin(selected)) {
        TLAlert::alertSheetWithMessageText("Bins can only be added to regular bins",
                                           "You cannot add a bin to a smart or range bin.",
                                           view().windowHandle());
        return EditResult::refused;
    }
    const auto bin = TLRegularBin::create();
    bin->setBinName(std::string(untitledBinName));
    return addItem(bin, selected, true, true) ? EditResult::done : EditResult::failed;
}

void MyDocument::binRangeClick()
{
    clearSheetLists();
    const std::string expression(defaultRangeExpression);
    view().setRangeExpressionText(expression);
    updateRangePreview(expression);
    view().showRangeSheet();
}

void MyDocument::updateRangePreview(const std::string &expression)
{
    std::vector<std::string> names = namesForExpression(expression).value_or(std::vector<std::string>{});
    const std::size_t count = names.size();
    {
        std::lock_guard lock(m_sheetMutex);
        m_rangePreviewNames = std::move(names);
    }
    view().reloadRangePreview();
    view().setRangeCountText(rangeCountTextForCount(count));
}

std::vector<std::string> MyDocument::rangePreviewNames() const
{
    std::lock_guard lock(m_sheetMutex);
    return m_rangePreviewNames;
}

std::string MyDocument::rangeCountText() const
{
    return rangeCountTextForCount(rangePreviewNames().size());
}

std::string MyDocument::rangeCountTextForCount(std::size_t count)
{
    return TLFormat::stringWithFormat("%i item%@", count, count == 1 ? "" : "s");
}

MyDocument::EditResult MyDocument::createRangeClick(const std::string &expression, const TLBinNodePtr &selected)
{
    // Expanded before anything is removed, so that a malformed expression
    // cannot cost the user the series it was meant to replace.
    const auto names = namesForExpression(expression);
    if (!names) {
        TLLog::appendLog("Malformed range expression: %@", expression);
        return EditResult::failed;
    }

    TLBinNodePtr parent = selected;
    std::vector<std::string> keptUuids;
    const auto *selectedItem = dynamic_cast<const TLBinRangeItem *>(selected.get());
    if (selectedItem && selectedItem->rangeCount() > 0) {
        parent = selected->parent();
        const TLNodeList series = rangeSeriesOfItem(selected);
        for (std::size_t i = 0; i < series.size(); ++i) {
            if (const auto uuid = series[i]->uuid())
                keptUuids.push_back(*uuid);
            removeItem(series[i], parent, i + 1 == series.size());
        }
    } else if (selected && !isRegularBin(selected)) {
        showModalRefusal("Ranges can only be added to regular bins",
                         "You cannot add a range to a range, smart bin or movie clip.");
        return EditResult::refused;
    }

    const auto count = std::int64_t(names->size());
    for (std::int64_t i = 0; i < count; ++i) {
        const auto item = TLBinRangeItem::create((*names)[std::size_t(i)], expression, parent, count, i);
        // The host finds its earlier bins by these identifiers and replaces
        // them instead of adding a second set.
        if (std::size_t(i) < keptUuids.size())
            item->setUuid(keptUuids[std::size_t(i)]);
        addItem(item, parent, i + 1 == count, false);
    }
    view().closeRangeSheet();
    clearSheetLists();
    reloadItemOrOutline(parent);
    return EditResult::done;
}

void MyDocument::cancelCreateRange()
{
    view().closeRangeSheet();
    clearSheetLists();
}

// ---- Smart bin sheet ----

void MyDocument::smartBinClick()
{
    clearSheetLists();
    view().reloadSmartBinTable();
    view().showSmartBinSheet();
    smartBinAddItem();
}

void MyDocument::smartBinAddItem()
{
    std::size_t row = 0;
    {
        std::lock_guard lock(m_sheetMutex);
        m_smartBinFilterArray.push_back(TLSmartBinFilter::create(0, 0, std::string(defaultFilterString)));
        row = m_smartBinFilterArray.size() - 1;
    }
    view().reloadSmartBinTable();
    view().editSmartBinFilterText(row);
}

void MyDocument::smartBinRemoveItem(const std::vector<std::size_t> &rows)
{
    if (rows.empty())
        return;
    const std::unordered_set<std::size_t> removed(rows.begin(), rows.end());
    {
        std::lock_guard lock(m_sheetMutex);
        TLFilterList kept;
        for (std::size_t row = 0; row < m_smartBinFilterArray.size(); ++row) {
            if (!removed.contains(row))
                kept.push_back(m_smartBinFilterArray[row]);
        }
        m_smartBinFilterArray = std::move(kept);
    }
    view().reloadSmartBinTable();
}

TLFilterList MyDocument::smartBinFilterArray() const
{
    std::lock_guard lock(m_sheetMutex);
    return m_smartBinFilterArray;
}

void MyDocument::setSmartBinFilterArray(TLFilterList filterArray)
{
    std::erase(filterArray, nullptr);
    {
        std::lock_guard lock(m_sheetMutex);
        m_smartBinFilterArray = std::move(filterArray);
    }
    view().reloadSmartBinTable();
}

std::optional<MyDocument::TableValue> MyDocument::smartBinObjectValue(std::string_view column,
                                                                      std::size_t row) const
{
    std::shared_ptr<TLSmartBinFilter> filter;
    {
        std::lock_guard lock(m_sheetMutex);
        if (row >= m_smartBinFilterArray.size())
            return std::nullopt;
        filter = m_smartBinFilterArray[row];
    }
    if (column == "filterType")
        return filter->filterType();
    if (column == "filterMatch")
        return filter->filterMatch();
    return filter->filterString();
}

bool MyDocument::setSmartBinObjectValue(const TableValue &value, std::string_view column, std::size_t row)
{
    std::shared_ptr<TLSmartBinFilter> filter;
    {
        std::lock_guard lock(m_sheetMutex);
        if (row >= m_smartBinFilterArray.size())
            return false;
        filter = m_smartBinFilterArray[row];
    }
    if (column == "filterType")
        filter->setFilterType(integerValue(value));
    else if (column == "filterMatch")
        filter->setFilterMatch(integerValue(value));
    else
        filter->setFilterString(textValue(value));
    return true;
}

std::shared_future<MyDocument::EditResult> MyDocument::createSmartBinClick(const std::string &name,
                                                                         std::int64_t matchType,
                                                                         const TLBinNodePtr &selected)
{
    // A text still being typed into a cell belongs to the rows.
    view().endSmartBinEditing();
    TLFilterList rows = copyOfFilters(smartBinFilterArray());
    if (rows.empty()) {
        TLAlert::alertSheetWithMessageText("Unable to create smart bin", "You must specify at least one option.",
                                           view().smartBinSheetHandle());
        return readyResult(EditResult::refused);
    }
    view().startSmartBinSpinner();
    auto promise = std::make_shared<std::promise<EditResult>>();
    auto result = promise->get_future().share();
    startCommandThread([this, rows = std::move(rows), name, matchType, selected,
                        controller = controllerForResolution(), promise] {
        EditResult outcome = EditResult::failed;
        try {
            const auto bin = TLSmartBinParser::binFromFilterArray(rows, name, matchType, *controller);
            onMainThread([&] { outcome = finishCreatingSmartBin(bin, selected); });
        } catch (const std::exception &error) {
            TLLog::appendLog("Unable to build the smart bin %@: %@", name, error.what());
            onMainThread([this] { view().stopSmartBinSpinner(); });
        }
        promise->set_value(outcome);
    });
    return result;
}

MyDocument::EditResult MyDocument::finishCreatingSmartBin(const std::shared_ptr<TLSmartBin> &bin,
                                                          const TLBinNodePtr &selected)
{
    // Deliberately the mirror image of the other additions: a smart bin goes
    // anywhere except under a regular bin.
    if (isRegularBin(selected)) {
        view().stopSmartBinSpinner();
        showModalRefusal("Smart bins can only be added to regular bins",
                         "You cannot add a smart bin to a range, smart bin, smart range or movie clip.");
        return EditResult::refused;
    }
    // Under a range item or a clip there is no child list to take it: the
    // sheet stays open so that the user can cancel.
    if (!addItem(bin, selected, true, false)) {
        view().stopSmartBinSpinner();
        return EditResult::failed;
    }
    view().stopSmartBinSpinner();
    view().closeSmartBinSheet();
    clearSheetLists();
    reloadItemOrOutline(selected);
    return EditResult::done;
}

void MyDocument::cancelCreateSmartBin()
{
    view().closeSmartBinSheet();
    clearSheetLists();
}

// ---- Smart range sheet ----

void MyDocument::smartRangeClick(std::int64_t criteria)
{
    view().setSmartRangeCreateEnabled(true);
    clearSheetLists();
    view().reloadSmartRangePreview();
    view().showSmartRangeSheet();
    smartRangeChangeCriteria(criteria);
}

void MyDocument::smartRangeChangeCriteria(std::int64_t criteria)
{
    // Counted before the worker starts, so that a creation asked for at once
    // already finds the preview under way.
    beginPreview();
    startCommandThread([this, criteria, controller = controllerForResolution()] {
        computeSmartRangePreview(criteria, controller);
        endPreview();
    });
}

void MyDocument::updateSmartRangePreview(std::int64_t criteria)
{
    beginPreview();
    computeSmartRangePreview(criteria, controllerForResolution());
    endPreview();
}

std::vector<std::shared_ptr<TLSmartRangeItem>> MyDocument::smartRangePreview() const
{
    std::lock_guard lock(m_sheetMutex);
    return m_smartRangePreview;
}

std::shared_future<MyDocument::EditResult> MyDocument::createSmartRangeClick(const TLBinNodePtr &selected)
{
    view().setSmartRangeCreateEnabled(false);
    auto promise = std::make_shared<std::promise<EditResult>>();
    auto result = promise->get_future().share();
    startCommandThread([this, selected, promise] {
        // Never from a half-built preview.
        while (isUpdatingPreview())
            std::this_thread::sleep_for(previewPollInterval);
        EditResult outcome = EditResult::failed;
        try {
            onMainThread([&] { outcome = createSmartRange(selected); });
        } catch (const std::exception &error) {
            TLLog::appendLog("Unable to create the smart range: %@", error.what());
        }
        promise->set_value(outcome);
    });
    return result;
}

MyDocument::EditResult MyDocument::createSmartRange(const TLBinNodePtr &selected)
{
    if (selected && !isRegularBin(selected)) {
        showModalRefusal("Smart ranges can only be added to regular bins",
                         "You cannot add a smart range to a range, smart bin or movie clip.");
        return EditResult::refused;
    }
    const auto preview = smartRangePreview();
    const TLNodeList items(preview.begin(), preview.end());
    if (!items.empty())
        addItems(items, selected, true);
    view().closeSmartRangeSheet();
    // The items now belong to the tree; a second creation must not add them
    // again.
    clearSheetLists();
    if (selected)
        view().reloadItem(selected, true);
    return EditResult::done;
}

void MyDocument::cancelCreateSmartRange()
{
    view().closeSmartRangeSheet();
    clearSheetLists();
}

// ---- Helpers and workers ----

void MyDocument::clearSheetLists()
{
    std::lock_guard lock(m_sheetMutex);
    m_rangePreviewNames.clear();
    m_smartBinFilterArray.clear();
    m_smartRangePreview.clear();
}

std::shared_ptr<TLFCPProjectController> MyDocument::controllerForResolution() const
{
    // Before a project is open there are simply no clips to resolve against.
    if (auto controller = mediaController())
        return controller;
    return std::make_shared<TLFCPProjectController>();
}

void MyDocument::beginPreview()
{
    std::lock_guard lock(m_previewCountMutex);
    ++m_previewsRunning;
    m_isUpdatingPreview = true;
}

void MyDocument::endPreview()
{
    // The flag stays set while any preview still runs, so that a creation
    // never takes the list of a preview that is about to be replaced.
    std::lock_guard lock(m_previewCountMutex);
    m_previewsRunning = std::max(0, m_previewsRunning - 1);
    if (m_previewsRunning == 0)
        m_isUpdatingPreview = false;
}

void MyDocument::computeSmartRangePreview(std::int64_t criteria,
                                          const std::shared_ptr<TLFCPProjectController> &controller)
{
    try {
        onMainThread([this] { view().startSmartRangeSpinner(); });
        auto items = TLSmartRangeParser::arrayForCriteria(criteria, *controller);
        std::stable_sort(items.begin(), items.end(),
                         [](const auto &left, const auto &right) { return left->nameCompare(*right) < 0; });
        // Of overlapping previews the one installed last is the one kept.
        onMainThread([this, &items] {
            {
                std::lock_guard lock(m_sheetMutex);
                m_smartRangePreview = std::move(items);
            }
            view().reloadSmartRangePreview();
            view().stopSmartRangeSpinner();
        });
    } catch (const std::exception &error) {
        TLLog::appendLog("Unable to preview the smart range: %@", error.what());
    }
}

void MyDocument::startCommandThread(std::function<void()> work)
{
    auto finished = std::make_shared<std::atomic<bool>>(false);
    std::lock_guard lock(m_commandThreadsMutex);
    // Workers that are done are joined here, so that a long session of
    // previews does not pile up threads.
    std::erase_if(m_commandThreads, [](CommandThread &worker) {
        if (!*worker.finished)
            return false;
        worker.thread.join();
        return true;
    });
    m_commandThreads.push_back({std::jthread([work = std::move(work), finished] {
                                    try {
                                        work();
                                    } catch (const std::exception &error) {
                                        TLLog::appendLog("Exception in a command worker: %@", error.what());
                                    }
                                    *finished = true;
                                }),
                                finished});
}

void MyDocument::waitForCommands()
{
    const auto self = std::this_thread::get_id();
    for (;;) {
        std::vector<CommandThread> workers;
        {
            std::lock_guard lock(m_commandThreadsMutex);
            workers.swap(m_commandThreads);
        }
        const bool onlySelf = std::all_of(workers.begin(), workers.end(),
                                          [self](const auto &worker) { return worker.thread.get_id() == self; });
        // A worker cannot wait for itself; it stays listed for the next wait.
        for (auto &worker : workers) {
            if (worker.thread.get_id() != self)
                worker.thread.join();
        }
        std::lock_guard lock(m_commandThreadsMutex);
        for (auto &worker : workers) {
            if (worker.thread.joinable())
                m_commandThreads.push_back(std::move(worker));
        }
        // Joined workers may have been followed by new ones: wait for those too.
        if (onlySelf)
            return;
    }
}
