// Alerts from any thread: shown by the presenter in use on the main thread,
// optionally waited for by the caller.
#pragma once

#include "TLAlertPresenter.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

class TLAlert;

// Receives the answer to an alert through a named end operation. An alert
// checks respondsToSelector() before it shows anything and later calls
// perform() with the same name, on the main thread.
class TLAlertDelegate
{
public:
    virtual ~TLAlertDelegate() = default;

    // Whether perform() handles the end operation `selector`.
    virtual bool respondsToSelector(std::string_view selector) const = 0;
    // Runs the end operation `selector` for `alert`, answered with
    // `returnCode` (1 default button, 0 alternate, -1 other).
    virtual void perform(std::string_view selector, TLAlert &alert, int returnCode) = 0;
};

// One alert on its way to the user and back. Alerts are always held by a
// std::shared_ptr (create them with std::make_shared): an unanswered alert
// keeps itself alive for as long as its presenter may still answer it.
//
// The class-level operations may be called from any thread. They hand the
// showing to the main thread (TLMainThread) and wait until it is shown;
// then a waiting call waits for the answer and returns its code, while a
// non-waiting one returns -1 at once and leaves the answer to the delegate.
// They return -1 as well when nothing could be shown. Only the built-in end
// operation (or a delegate that calls setAlertEnded itself) ends a wait, so
// a waiting caller with a delegate of its own must end it that way.
//
// A wait on the main thread lets the presenter handle events, 0.01 s per
// pass, so that the alert can be answered; a wait on any other thread
// blocks it in passes of at most 0.2 s. No exception leaves this class: an
// unexpected one is logged through TLException and the call returns -1.
class TLAlert final : public TLAlertDelegate, public std::enable_shared_from_this<TLAlert>
{
public:
    // The built-in end operation: stores the code and ends the alert.
    static constexpr std::string_view alertDidEndSelector = "alertDidEnd:returnCode:contextInfo:";

    // An alert shown by `presenter`; by the presenter in use at the time of
    // showing (presenter()) when none is given.
    explicit TLAlert(std::shared_ptr<TLAlertPresenter> presenter = {});
    ~TLAlert() override;
    TLAlert(const TLAlert &) = delete;
    TLAlert &operator=(const TLAlert &) = delete;

    // `message` and `informativeText` under the default "OK" button, on
    // `parentWindow` (null: free-standing); waits for the answer.
    static int alertSheetWithMessageText(const std::string &message,
                                         const std::string &informativeText, void *parentWindow);

    // With button titles (a missing default title gives "OK", a missing
    // alternate or other title gives no such button); waits when `block`.
    static int alertSheetWithMessageText(const std::string &message,
                                         const std::optional<std::string> &defaultButton,
                                         const std::optional<std::string> &alternateButton,
                                         const std::optional<std::string> &otherButton,
                                         const std::string &informativeText, void *parentWindow,
                                         bool block);

    // The full form. `delegate` receives the answer through `didEndSelector`
    // (none: the alert itself through alertDidEndSelector); it is not kept
    // alive by the alert, so the caller keeps it until it has its answer.
    // When the delegate does not respond to the end operation, prints
    // "Alert error: delegate does not respond to selector <name>" on
    // standard error, shows nothing and returns -1. `alertObject` is the
    // alert to show (none: a new one), `suppressionBinding` the user-defaults
    // key path of a suppression check box (none: no check box). A missing
    // message or informative text is left out of the description.
    static int alertSheetWithMessageText(const std::optional<std::string> &message,
                                         const std::optional<std::string> &defaultButton,
                                         const std::optional<std::string> &alternateButton,
                                         const std::optional<std::string> &otherButton,
                                         const std::optional<std::string> &informativeText,
                                         void *parentWindow,
                                         const std::shared_ptr<TLAlertDelegate> &delegate,
                                         const std::optional<std::string> &didEndSelector,
                                         bool block,
                                         std::shared_ptr<TLAlert> alertObject = {},
                                         const std::optional<std::string> &suppressionBinding =
                                             std::nullopt);

    // Like the waiting form with button titles, but answers 1 (the default
    // button) by itself once `interval` whole seconds have passed without
    // an answer (at once for 0 or less); the alert is then closed.
    static int timedAlertSheetWithMessageText(const std::string &message,
                                              const std::optional<std::string> &defaultButton,
                                              const std::optional<std::string> &alternateButton,
                                              const std::optional<std::string> &otherButton,
                                              const std::string &informativeText,
                                              void *parentWindow, int interval);

    // The presenter in use, process-wide; standard error until set.
    static std::shared_ptr<TLAlertPresenter> presenter();
    // Installs `presenter`; null goes back to standard error.
    static void setPresenter(std::shared_ptr<TLAlertPresenter> presenter);

    // Main thread: shows `description` with this alert's parent window,
    // delegate and end operation. When the parent window already shows a
    // sheet it is forgotten and the alert stands on its own. Returns false
    // when the presenter could not show it (or the alert is not held by a
    // std::shared_ptr).
    bool alertSheetWithDictionary(const TLAlertDescription &description);

    // The built-in end operation: stores `returnCode` and ends the alert.
    // `alert` and `contextInfo` are not used.
    void alertDidEnd(TLAlert &alert, int returnCode, void *contextInfo);

    // Main thread: takes the alert off the screen if it is still there and
    // lets go of it. Does nothing when nothing is shown.
    void closeAlert();

    // The timer of the timed alert: waits `seconds` (none for 0 or less),
    // then, unless the alert has been answered meanwhile, sets the return
    // code to 1 and ends the alert. Returns early once the alert has ended.
    void defaultReturnAfterTimeInterval(int seconds);

    // The window the alert is shown on; null for none or once forgotten.
    void *parentWindow() const;
    // The receiver of the answer: the alert itself when no delegate was
    // given; null once a given delegate has gone away.
    std::shared_ptr<TLAlertDelegate> delegate() const;
    // The end operation performed on the delegate.
    std::string didEndSelector() const;
    // Whether the alert has been answered (or has timed out).
    bool alertEnded() const;
    // Sets or clears alertEnded; setting it ends a wait.
    void setAlertEnded(bool ended);
    // The code of the answer (1 default, 0 alternate, -1 other); 0 before.
    int returnCode() const;
    void setReturnCode(int returnCode);
    // Whether the presenter shows the alert right now (until closeAlert).
    bool isShown() const;

    // TLAlertDelegate: the alert answers only alertDidEndSelector.
    bool respondsToSelector(std::string_view selector) const override;
    void perform(std::string_view selector, TLAlert &alert, int returnCode) override;

private:
    static bool begin(TLAlert &alert, TLAlertDescription description, void *parentWindow,
                      const std::shared_ptr<TLAlertDelegate> &delegate);
    static int waitForAnswer(TLAlert &alert);
    void prepare(void *parentWindow, const std::shared_ptr<TLAlertDelegate> &delegate,
                 const std::string &selector);
    std::shared_ptr<TLAlertPresenter> presenterInUse() const;
    void didEndWithReturnCode(int returnCode);
    void waitUntilEnded();

    mutable std::mutex m_mutex;
    std::condition_variable m_ended;
    std::shared_ptr<TLAlertPresenter> m_presenter;
    void *m_parentWindow = nullptr;
    std::weak_ptr<TLAlertDelegate> m_delegate;
    std::string m_didEndSelector{alertDidEndSelector};
    bool m_alertEnded = false;
    int m_returnCode = 0;
    // The shown alert: the presenter that shows it and its id there.
    std::shared_ptr<TLAlertPresenter> m_shownBy;
    TLAlertPresenter::AlertId m_alert = 0;
};
