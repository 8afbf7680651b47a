// The Qt presenter of alerts: message boxes as sheets or on their own, the
// suppression check box, and the event handling of a waiting main thread.
#include "QtAlertPresenter.h"

#include "AppIcons.h"
#include "TLUserDefaults.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QThread>
#include <QTimer>

#include <thread>

namespace {

constexpr const char *returnCodeProperty = "corvaleReturnCode";

QString toQString(const std::optional<std::string> &text)
{
    return QString::fromStdString(text.value_or(std::string()));
}

void addButton(QMessageBox &box, const QString &title, QMessageBox::ButtonRole role, int code)
{
    QPushButton *button = box.addButton(title, role);
    button->setProperty(returnCodeProperty, code);
    if (code == 1)
        box.setDefaultButton(button);
}

void addButtons(QMessageBox &box, const TLAlertDescription &description)
{
    const QString defaultTitle = description.defaultButtonTitle
                                     ? toQString(description.defaultButtonTitle)
                                     : QStringLiteral("OK");
    addButton(box, defaultTitle, QMessageBox::AcceptRole, 1);
    if (description.alternateButtonTitle)
        addButton(box, toQString(description.alternateButtonTitle), QMessageBox::RejectRole, 0);
    if (description.otherButtonTitle)
        addButton(box, toQString(description.otherButtonTitle), QMessageBox::ActionRole, -1);
}

// The informative text is shown as written: QMessageBox would otherwise
// guess at rich text and swallow anything that looks like a tag.
void setPlainInformativeText(QMessageBox &box, const QString &text)
{
    box.setInformativeText(text);
    auto *label = box.findChild<QLabel *>(QStringLiteral("qt_msgbox_informativelabel"));
    if (label)
        label->setTextFormat(Qt::PlainText);
}

int returnCodeOfButton(const QAbstractButton *button, int fallback)
{
    if (!button)
        return fallback;
    bool ok = false;
    const int code = button->property(returnCodeProperty).toInt(&ok);
    return ok ? code : fallback;
}

// The answer of a box that disappears unanswered: the alternate (cancelling)
// button when there is one, else the default.
int unansweredReturnCode(const TLAlertDescription &description)
{
    return description.alternateButtonTitle ? 0 : 1;
}

// A Cocoa binding names the user defaults' key as "values.<key>"; the key
// itself is what is stored.
std::string suppressionKey(const std::string &keyPath)
{
    const std::string prefix = "values.";
    if (keyPath.rfind(prefix, 0) == 0 && keyPath.size() > prefix.size())
        return keyPath.substr(prefix.size());
    return keyPath;
}

bool isMainThreadWithApplication()
{
    const auto *application = QCoreApplication::instance();
    return application && QThread::currentThread() == application->thread();
}

} // namespace

QtAlertPresenter::QtAlertPresenter() = default;

QtAlertPresenter::~QtAlertPresenter()
{
    auto shown = std::move(m_shown);
    m_shown.clear();
    for (auto &entry : shown) {
        if (!entry.second.box)
            continue;
        QObject::disconnect(entry.second.box, nullptr, nullptr, nullptr);
        delete entry.second.box.data();
    }
}

bool QtAlertPresenter::beginAlert(AlertId alert, const TLAlertDescription &description,
                                  void *parentWindow, std::function<void(int)> didEnd)
{
    if (!qobject_cast<QApplication *>(QCoreApplication::instance()) ||
        !isMainThreadWithApplication())
        return false;
    QWidget *window = widgetForHandle(parentWindow);
    if (window)
        window = window->window();
    // A sheet never stacks on another one.
    if (window && windowHasAttachedSheet(window))
        window = nullptr;
    QMessageBox *box = makeBox(description, window);
    Shown &shown = m_shown[alert];
    shown.box = box;
    shown.didEnd = std::move(didEnd);
    shown.unanswered = unansweredReturnCode(description);
    connectAnswer(alert, box);
    if (window) {
        window->raise();
        window->activateWindow();
        box->open();
        return true;
    }
    box->setWindowModality(Qt::ApplicationModal);
    box->show();
    box->raise();
    box->activateWindow();
    return true;
}

QMessageBox *QtAlertPresenter::makeBox(const TLAlertDescription &description,
                                       QWidget *window) const
{
    auto *box = new QMessageBox(window);
    box->setObjectName(QStringLiteral("corvaleAlert"));
    box->setWindowTitle(QGuiApplication::applicationDisplayName());
    box->setIconPixmap(AppIcons::application().pixmap(64, 64));
    box->setTextFormat(Qt::PlainText);
    box->setText(toQString(description.messageText));
    setPlainInformativeText(*box, toQString(description.informativeText));
    addButtons(*box, description);
    if (description.suppressionBinding)
        addSuppressionCheckBox(*box, suppressionKey(*description.suppressionBinding));
    return box;
}

void QtAlertPresenter::connectAnswer(AlertId alert, QMessageBox *box)
{
    Shown &shown = m_shown[alert];
    shown.finished = QObject::connect(box, &QDialog::finished, box, [this, alert, box] {
        const auto entry = m_shown.find(alert);
        if (entry == m_shown.end())
            return;
        answer(alert, returnCodeOfButton(box->clickedButton(), entry->second.unanswered));
    });
    shown.destroyed = QObject::connect(box, &QObject::destroyed, [this, alert] {
        const auto entry = m_shown.find(alert);
        if (entry == m_shown.end())
            return;
        answer(alert, entry->second.unanswered);
    });
}

std::optional<QtAlertPresenter::Shown> QtAlertPresenter::takeShown(AlertId alert)
{
    const auto entry = m_shown.find(alert);
    if (entry == m_shown.end())
        return std::nullopt;
    Shown shown = std::move(entry->second);
    m_shown.erase(entry);
    QObject::disconnect(shown.finished);
    QObject::disconnect(shown.destroyed);
    return shown;
}

void QtAlertPresenter::answer(AlertId alert, int returnCode)
{
    std::optional<Shown> taken = takeShown(alert);
    if (!taken)
        return;
    Shown &shown = *taken;
    if (shown.didEnd)
        shown.didEnd(returnCode);
    // Answered: the box leaves once the answer has been delivered.
    if (shown.box) {
        shown.box->hide();
        shown.box->deleteLater();
    }
}

void QtAlertPresenter::closeAlert(AlertId alert)
{
    std::optional<Shown> taken = takeShown(alert);
    if (!taken)
        return;
    Shown &shown = *taken;
    if (!shown.box)
        return;
    shown.box->hide();
    shown.box->deleteLater();
}

bool QtAlertPresenter::windowHasAttachedSheet(void *window) const
{
    const QWidget *widget = widgetForHandle(window);
    if (!widget)
        return false;
    const auto dialogs = widget->window()->findChildren<QDialog *>();
    for (const QDialog *dialog : dialogs) {
        if (dialog->isVisible() && dialog->windowModality() == Qt::WindowModal)
            return true;
    }
    return false;
}

void QtAlertPresenter::processEvents(std::chrono::milliseconds timeout)
{
    if (!isMainThreadWithApplication()) {
        std::this_thread::sleep_for(timeout);
        return;
    }
    // The timer bounds the wait: without it, waiting for more events would
    // block until the user moved the mouse, even once a worker had ended the
    // alert.
    QTimer wake;
    wake.setSingleShot(true);
    wake.start(timeout);
    QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
}

QMessageBox *QtAlertPresenter::messageBox(AlertId alert) const
{
    const auto entry = m_shown.find(alert);
    return entry == m_shown.end() ? nullptr : entry->second.box.data();
}

QMessageBox *QtAlertPresenter::currentMessageBox() const
{
    return m_shown.empty() ? nullptr : m_shown.rbegin()->second.box.data();
}

QWidget *QtAlertPresenter::widgetForHandle(void *window)
{
    if (!window)
        return nullptr;
    // The handle may outlive its window; only a pointer that is still one of
    // the application's widgets is ever used as one.
    auto *candidate = static_cast<QWidget *>(window);
    return QApplication::allWidgets().contains(candidate) ? candidate : nullptr;
}

QString QtAlertPresenter::suppressionText()
{
    return QStringLiteral("Do not show this message again");
}

void QtAlertPresenter::addSuppressionCheckBox(QMessageBox &box, const std::string &key)
{
    auto *checkBox = new QCheckBox(suppressionText(), &box);
    checkBox->setChecked(TLUserDefaults::standard()->boolForKey(key).value_or(false));
    QObject::connect(checkBox, &QCheckBox::toggled, checkBox, [key](bool checked) {
        // A refused write leaves the alert asking next time: nothing to show.
        (void)TLUserDefaults::standard()->setBool(key, checked);
    });
    box.setCheckBox(checkBox);
}
