// The door through which the core asks the user something: the application
// shows a window, the command line prints, the tests record.
#pragma once

#include <memory>
#include <string>

class TLAlertPresenter
{
public:
    virtual ~TLAlertPresenter() = default;

    // Shows `message` with `informativeText` below it, as a sheet on
    // `parentWindow` when one is given (an opaque window handle of the front
    // end; null for a free-standing alert), and waits for the answer.
    // Returns the button that ended the alert: 1 for the default button,
    // 0 for the alternate one, -1 for the other one or when nothing could be
    // shown. Either text may be empty. Safe to call from any thread.
    virtual int alertSheetWithMessageText(const std::string &message,
                                          const std::string &informativeText,
                                          void *parentWindow) = 0;

    // A presenter for front ends without windows: writes the message and,
    // on the next line, the informative text (when not empty) to standard
    // error, and returns 1 as if the default button had been pressed.
    static std::shared_ptr<TLAlertPresenter> standardError();
};
