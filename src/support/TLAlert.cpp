// Alerts: the class-level forms, the showing on the main thread, the wait
// for the answer and the timer of the timed alert.
#include "TLAlert.h"

#include "TLException.h"
#include "TLFormat.h"
#include "TLLog.h"
#include "TLMainThread.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

namespace {

constexpr auto mainThreadPass = std::chrono::milliseconds(10);
constexpr auto workerThreadPass = std::chrono::milliseconds(200);

std::mutex presenterLock;

std::shared_ptr<TLAlertPresenter> &presenterSlot()
{
    static std::shared_ptr<TLAlertPresenter> slot = TLAlertPresenter::standardError();
    return slot;
}

TLAlertPresenter::AlertId nextAlertId()
{
    static std::atomic<TLAlertPresenter::AlertId> last{0};
    return ++last;
}

void printToConsole(const std::string &line)
{
    const std::string text = line + "\n";
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

void onMainThread(const std::function<void()> &work)
{
    TLMainThread::shared()->performAndWait(work);
}

} // namespace

TLAlert::TLAlert(std::shared_ptr<TLAlertPresenter> presenter) : m_presenter(std::move(presenter)) {}

TLAlert::~TLAlert() = default;

int TLAlert::alertSheetWithMessageText(const std::string &message,
                                       const std::string &informativeText, void *parentWindow)
{
    return alertSheetWithMessageText(message, std::nullopt, std::nullopt, std::nullopt,
                                     informativeText, parentWindow, true);
}

int TLAlert::alertSheetWithMessageText(const std::string &message,
                                       const std::optional<std::string> &defaultButton,
                                       const std::optional<std::string> &alternateButton,
                                       const std::optional<std::string> &otherButton,
                                       const std::string &informativeText, void *parentWindow,
                                       bool block)
{
    return alertSheetWithMessageText(std::optional<std::string>(message), defaultButton,
                                     alternateButton, otherButton,
                                     std::optional<std::string>(informativeText), parentWindow,
                                     nullptr, std::nullopt, block);
}

int TLAlert::alertSheetWithMessageText(const std::optional<std::string> &message,
                                       const std::optional<std::string> &defaultButton,
                                       const std::optional<std::string> &alternateButton,
                                       const std::optional<std::string> &otherButton,
                                       const std::optional<std::string> &informativeText,
                                       void *parentWindow,
                                       const std::shared_ptr<TLAlertDelegate> &delegate,
                                       const std::optional<std::string> &didEndSelector,
                                       bool block, std::shared_ptr<TLAlert> alertObject,
                                       const std::optional<std::string> &suppressionBinding)
{
    try {
        auto alert = alertObject ? std::move(alertObject) : std::make_shared<TLAlert>();
        const TLAlertDescription description{message,         defaultButton,
                                             alternateButton, otherButton,
                                             informativeText, didEndSelector,
                                             suppressionBinding};
        if (!begin(*alert, description, parentWindow, delegate) || !block)
            return -1;
        return waitForAnswer(*alert);
    } catch (const std::exception &exception) {
        TLException::logException(exception, "TLAlert::alertSheetWithMessageText");
    } catch (...) {
        TLException::logException(std::current_exception(), "TLAlert::alertSheetWithMessageText");
    }
    return -1;
}

int TLAlert::timedAlertSheetWithMessageText(const std::string &message,
                                            const std::optional<std::string> &defaultButton,
                                            const std::optional<std::string> &alternateButton,
                                            const std::optional<std::string> &otherButton,
                                            const std::string &informativeText,
                                            void *parentWindow, int interval)
{
    try {
        auto alert = std::make_shared<TLAlert>();
        const TLAlertDescription description{message,         defaultButton, alternateButton,
                                             otherButton,     informativeText, std::nullopt,
                                             std::nullopt};
        if (!begin(*alert, description, parentWindow, nullptr))
            return -1;
        // Started once the alert is shown, so that showing (which clears the
        // end) can never undo an expiry. The timer holds the alert, which
        // may therefore outlive this call when the user answers first.
        std::thread([alert, interval] { alert->defaultReturnAfterTimeInterval(interval); })
            .detach();
        return waitForAnswer(*alert);
    } catch (const std::exception &exception) {
        TLException::logException(exception, "TLAlert::timedAlertSheetWithMessageText");
    } catch (...) {
        TLException::logException(std::current_exception(),
                                  "TLAlert::timedAlertSheetWithMessageText");
    }
    return -1;
}

bool TLAlert::begin(TLAlert &alert, TLAlertDescription description, void *parentWindow,
                    const std::shared_ptr<TLAlertDelegate> &delegate)
{
    const std::string selector =
        description.didEndSelector.value_or(std::string(alertDidEndSelector));
    description.didEndSelector = selector;
    alert.prepare(parentWindow, delegate, selector);
    const auto receiver = alert.delegate();
    if (!receiver || !receiver->respondsToSelector(selector)) {
        printToConsole(TLFormat::stringWithFormat(
            "Alert error: delegate does not respond to selector %@", selector));
        return false;
    }
    bool shown = false;
    onMainThread([&] { shown = alert.alertSheetWithDictionary(description); });
    return shown;
}

int TLAlert::waitForAnswer(TLAlert &alert)
{
    alert.waitUntilEnded();
    onMainThread([&] { alert.closeAlert(); });
    return alert.returnCode();
}

std::shared_ptr<TLAlertPresenter> TLAlert::presenter()
{
    const std::lock_guard lock(presenterLock);
    return presenterSlot();
}

void TLAlert::setPresenter(std::shared_ptr<TLAlertPresenter> presenter)
{
    const std::lock_guard lock(presenterLock);
    presenterSlot() = presenter ? std::move(presenter) : TLAlertPresenter::standardError();
}

void TLAlert::prepare(void *parentWindow, const std::shared_ptr<TLAlertDelegate> &delegate,
                      const std::string &selector)
{
    std::weak_ptr<TLAlertDelegate> receiver = delegate;
    if (!delegate)
        receiver = weak_from_this();
    const std::lock_guard lock(m_mutex);
    m_parentWindow = parentWindow;
    m_delegate = std::move(receiver);
    m_didEndSelector = selector;
    m_alertEnded = false;
}

std::shared_ptr<TLAlertPresenter> TLAlert::presenterInUse() const
{
    return m_presenter ? m_presenter : presenter();
}

bool TLAlert::alertSheetWithDictionary(const TLAlertDescription &description)
{
    try {
        const auto self = shared_from_this();
        const auto shower = presenterInUse();
        void *window = parentWindow();
        // A second sheet cannot stack on a window: the alert stands on its
        // own instead.
        if (window && shower->windowHasAttachedSheet(window)) {
            window = nullptr;
            const std::lock_guard lock(m_mutex);
            m_parentWindow = nullptr;
        }
        const auto id = nextAlertId();
        {
            const std::lock_guard lock(m_mutex);
            m_shownBy = shower;
            m_alert = id;
        }
        // The presenter may answer before it returns, so the alert is marked
        // as shown first.
        if (shower->beginAlert(id, description, window,
                               [self](int code) { self->didEndWithReturnCode(code); }))
            return true;
        const std::lock_guard lock(m_mutex);
        m_shownBy.reset();
        m_alert = 0;
    } catch (const std::bad_weak_ptr &) {
        TLLog::appendLog("Alert error: an alert must be held by a shared pointer");
    } catch (const std::exception &exception) {
        TLException::logException(exception, "TLAlert::alertSheetWithDictionary");
    }
    return false;
}

void TLAlert::didEndWithReturnCode(int returnCode)
{
    const auto receiver = delegate();
    // A delegate that has gone away no longer wants the answer.
    if (!receiver)
        return;
    try {
        const auto selector = didEndSelector();
        if (receiver->respondsToSelector(selector))
            receiver->perform(selector, *this, returnCode);
    } catch (const std::exception &exception) {
        TLException::logException(exception, "TLAlert::alertDidEnd");
    } catch (...) {
        TLException::logException(std::current_exception(), "TLAlert::alertDidEnd");
    }
}

void TLAlert::waitUntilEnded()
{
    if (TLMainThread::shared()->isMainThread()) {
        // The answer arrives through the events the presenter handles here.
        const auto shower = presenterInUse();
        while (!alertEnded())
            shower->processEvents(mainThreadPass);
        return;
    }
    std::unique_lock lock(m_mutex);
    while (!m_alertEnded)
        m_ended.wait_for(lock, workerThreadPass);
}

void TLAlert::alertDidEnd(TLAlert &, int returnCode, void *)
{
    const std::lock_guard lock(m_mutex);
    m_returnCode = returnCode;
    m_alertEnded = true;
    m_ended.notify_all();
}

void TLAlert::closeAlert()
{
    std::shared_ptr<TLAlertPresenter> shower;
    TLAlertPresenter::AlertId id = 0;
    {
        const std::lock_guard lock(m_mutex);
        shower = std::move(m_shownBy);
        m_shownBy.reset();
        id = m_alert;
        m_alert = 0;
    }
    if (!shower)
        return;
    try {
        shower->closeAlert(id);
    } catch (const std::exception &exception) {
        TLException::logException(exception, "TLAlert::closeAlert");
    }
}

void TLAlert::defaultReturnAfterTimeInterval(int seconds)
{
    std::unique_lock lock(m_mutex);
    if (seconds > 0)
        m_ended.wait_for(lock, std::chrono::seconds(seconds), [this] { return m_alertEnded; });
    // An answer given meanwhile stands.
    if (m_alertEnded)
        return;
    m_returnCode = 1;
    m_alertEnded = true;
    m_ended.notify_all();
}

void *TLAlert::parentWindow() const
{
    const std::lock_guard lock(m_mutex);
    return m_parentWindow;
}

std::shared_ptr<TLAlertDelegate> TLAlert::delegate() const
{
    const std::lock_guard lock(m_mutex);
    return m_delegate.lock();
}

std::string TLAlert::didEndSelector() const
{
    const std::lock_guard lock(m_mutex);
    return m_didEndSelector;
}

bool TLAlert::alertEnded() const
{
    const std::lock_guard lock(m_mutex);
    return m_alertEnded;
}

void TLAlert::setAlertEnded(bool ended)
{
    const std::lock_guard lock(m_mutex);
    m_alertEnded = ended;
    m_ended.notify_all();
}

int TLAlert::returnCode() const
{
    const std::lock_guard lock(m_mutex);
    return m_returnCode;
}

void TLAlert::setReturnCode(int returnCode)
{
    const std::lock_guard lock(m_mutex);
    m_returnCode = returnCode;
}

bool TLAlert::isShown() const
{
    const std::lock_guard lock(m_mutex);
    return m_shownBy != nullptr;
}

bool TLAlert::respondsToSelector(std::string_view selector) const
{
    return selector == alertDidEndSelector;
}

void TLAlert::perform(std::string_view selector, TLAlert &alert, int returnCode)
{
    if (selector == alertDidEndSelector)
        alertDidEnd(alert, returnCode, nullptr);
}
