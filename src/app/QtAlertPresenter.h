// Alerts of the core shown as Qt message boxes.
#pragma once

#include "TLAlertPresenter.h"

#include <QPointer>

#include <QMetaObject>

#include <map>
#include <optional>
#include <string>

class QMessageBox;
class QWidget;

// Shows TLAlert's alerts with QMessageBox. The window handle the core passes
// around is a QWidget*: an alert for a window is a window-modal message box
// on it (a sheet), raised and activated; an alert for no window, for a
// window that no longer exists, or for one that already shows a sheet (a
// visible window-modal dialog of its own) stands on its own, modal for the
// application. A suppression binding adds a check box whose state is the
// key's boolean in TLUserDefaults::standard(). Buttons answer 1 (default),
// 0 (alternate) and -1 (other); a box that goes away unanswered, with the
// window it sat on, answers with its alternate button when it has one and
// with its default button otherwise, so that no waiting caller hangs.
//
// Install it with TLAlert::setPresenter once the QApplication exists. Every
// operation runs on the main thread; processEvents() is how a caller waiting
// there for an answer keeps the interface working.
class QtAlertPresenter final : public TLAlertPresenter
{
public:
    QtAlertPresenter();
    // Closes every box still on screen without answering it.
    ~QtAlertPresenter() override;
    QtAlertPresenter(const QtAlertPresenter &) = delete;
    QtAlertPresenter &operator=(const QtAlertPresenter &) = delete;

    // Opens the box (never blocks) and returns true; false, with nothing
    // shown, when there is no QApplication.
    bool beginAlert(AlertId alert, const TLAlertDescription &description, void *parentWindow,
                    std::function<void(int)> didEnd) override;
    // Hides and deletes the box without answering it; nothing for an
    // unknown or answered alert.
    void closeAlert(AlertId alert) override;
    // True when `window` (a QWidget*) is alive and its window shows a
    // visible window-modal dialog; false for null or a window that is gone.
    bool windowHasAttachedSheet(void *window) const override;
    // Handles the pending events, waiting up to `timeout` for the first one
    // when none is pending; only sleeps without a QApplication or off the
    // main thread.
    void processEvents(std::chrono::milliseconds timeout) override;

    // The box of `alert` while it is on screen; null otherwise.
    QMessageBox *messageBox(AlertId alert) const;
    // The most recently opened box still on screen; null when none is.
    QMessageBox *currentMessageBox() const;

    // The live widget behind a window handle: null for null or for a
    // pointer that is no longer a widget of this application.
    static QWidget *widgetForHandle(void *window);
    // The text of the suppression check box.
    static QString suppressionText();

private:
    struct Shown
    {
        QPointer<QMessageBox> box;
        std::function<void(int)> didEnd;
        // The answer when the box goes away unanswered.
        int unanswered = 1;
        QMetaObject::Connection finished;
        QMetaObject::Connection destroyed;
    };

    QMessageBox *makeBox(const TLAlertDescription &description, QWidget *window) const;
    static void addSuppressionCheckBox(QMessageBox &box, const std::string &key);
    void connectAnswer(AlertId alert, QMessageBox *box);
    void answer(AlertId alert, int returnCode);
    // Takes the alert out of the shown ones, no longer listening to its box;
    // nullopt for an alert already answered or closed.
    std::optional<Shown> takeShown(AlertId alert);

    std::map<AlertId, Shown> m_shown;
};
