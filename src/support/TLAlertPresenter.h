// The door through which the core asks the user something: TLAlert decides
// what to ask and waits; the presenter draws it. The application shows a
// window, the command line prints, the tests record.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

// What one alert shows. Each member is set only when the caller gave it;
// dictionary() lists exactly the set members under their keys.
struct TLAlertDescription
{
    std::optional<std::string> messageText;
    std::optional<std::string> defaultButtonTitle;
    std::optional<std::string> alternateButtonTitle;
    std::optional<std::string> otherButtonTitle;
    // Shown as written: a percent sign in it is a percent sign.
    std::optional<std::string> informativeText;
    // The name of the end operation that receives the answer.
    std::optional<std::string> didEndSelector;
    // A user-defaults key path: when set, the alert shows a suppression
    // check box whose value is stored under that key.
    std::optional<std::string> suppressionBinding;

    // The set members keyed "messageText", "defaultButtonTitle",
    // "alternateButtonTitle", "otherButtonTitle", "informativeText",
    // "didEndSelector" and "suppressionBinding"; empty when nothing is set.
    std::map<std::string, std::string> dictionary() const;

    bool operator==(const TLAlertDescription &) const = default;
};

// The platform side of alerts. Every operation but processEvents() is
// called on the main thread (through TLMainThread); processEvents() is
// called on the main thread too, by a caller waiting there for an answer.
class TLAlertPresenter
{
public:
    // Names one shown alert for closeAlert(); never 0.
    using AlertId = std::uint64_t;

    virtual ~TLAlertPresenter() = default;

    // Shows the alert `alert` as `description` says: the message, the
    // button titles (none given: one default "OK" button), the informative
    // text (none given: empty) and, for a suppressionBinding, the check box
    // bound to it. With a `parentWindow` (an opaque window handle of the
    // front end) the alert is a sheet on that window, which is brought to
    // the front and made key; with null it stands on its own. When the user
    // answers, calls `didEnd` once, on the main thread, with 1 for the
    // default button, 0 for the alternate one and -1 for the other one, and
    // lets go of it; it may do so before returning. An answered alert leaves
    // the screen once `didEnd` has returned. Returns false when nothing
    // could be shown: `didEnd` is then never called.
    virtual bool beginAlert(AlertId alert, const TLAlertDescription &description,
                            void *parentWindow, std::function<void(int)> didEnd) = 0;

    // Takes the alert's window off the screen if it is still there. Does
    // nothing for an alert already closed or never shown.
    virtual void closeAlert(AlertId alert);

    // Whether `window` already shows a sheet, so that a second one would
    // stack on it. False for null; false by default.
    virtual bool windowHasAttachedSheet(void *window) const;

    // Handles at most one pending user event, waiting up to `timeout` for
    // one, so that an alert stays answerable while the main thread waits
    // for it. By default there are no events: it only lets `timeout` pass.
    virtual void processEvents(std::chrono::milliseconds timeout);

    // A presenter for front ends without windows: writes the message and,
    // on the next line, the informative text (when not empty) to standard
    // error, and answers at once with 1, as if the default button had been
    // pressed. Windows are ignored.
    static std::shared_ptr<TLAlertPresenter> standardError();
};
