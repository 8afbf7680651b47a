#include "AppTestMain.h"

#include "QtAlertPresenter.h"
#include "TLAlert.h"
#include "TLMainThread.h"
#include "TLUserDefaults.h"

#include <QCheckBox>
#include <QDialog>
#include <QLabel>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <thread>

namespace {

// The application's door into the Qt event loop, as far as these tests need
// it: work from a worker runs queued on the main thread.
class QueuedMainThread final : public TLMainThread
{
public:
    bool isMainThread() const override { return QThread::currentThread() == qApp->thread(); }

    void performAndWait(std::function<void()> work) override
    {
        if (isMainThread()) {
            work();
            return;
        }
        QMetaObject::invokeMethod(qApp, std::move(work), Qt::BlockingQueuedConnection);
    }
};

QAbstractButton *buttonTitled(QMessageBox *box, const QString &title)
{
    if (!box)
        return nullptr;
    for (QAbstractButton *button : box->buttons()) {
        if (button->text() == title)
            return button;
    }
    return nullptr;
}

QString informativeTextShown(QMessageBox *box)
{
    const auto *label = box->findChild<QLabel *>(QStringLiteral("qt_msgbox_informativelabel"));
    return label && label->textFormat() == Qt::PlainText ? label->text() : QString();
}

// What a box looked like when the user answered it.
struct Seen
{
    bool shown = false;
    QWidget *parent = nullptr;
    Qt::WindowModality modality = Qt::NonModal;
    QString text;
    QString informativeText;
    QStringList buttons;
};

} // namespace

class QtAlertPresenterTest : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<QtAlertPresenter> m_presenter;

    // Once the main thread waits for the answer, notes the box and presses
    // the button titled `title`, as the user would.
    void answerWhenShown(const QString &title, Seen &seen)
    {
        QTimer::singleShot(0, this, [this, title, &seen] {
            QMessageBox *box = m_presenter->currentMessageBox();
            if (!box)
                return;
            seen = {true, box->parentWidget(), box->windowModality(), box->text(),
                    informativeTextShown(box), {}};
            for (const QAbstractButton *button : box->buttons())
                seen.buttons << button->text();
            if (QAbstractButton *button = buttonTitled(box, title))
                QTest::mouseClick(button, Qt::LeftButton);
        });
    }

private slots:
    void initTestCase()
    {
        m_presenter = std::make_shared<QtAlertPresenter>();
        TLAlert::setPresenter(m_presenter);
    }

    void cleanupTestCase() { TLAlert::setPresenter(nullptr); }

    void waitingAlertIsASheetAnsweredByItsButtons()
    {
        QMainWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));

        Seen seen;
        const auto ask = [&window](const char *informativeText) {
            return TLAlert::alertSheetWithMessageText("Save changes?", std::string("Save"),
                                                      std::string("Cancel"),
                                                      std::string("Don't Save"),
                                                      informativeText, &window, true);
        };
        answerWhenShown(QStringLiteral("Save"), seen);
        QCOMPARE(ask("100% of <b>bins</b> %@ are new."), 1);
        QVERIFY(seen.shown);
        QCOMPARE(seen.parent, &window);
        QCOMPARE(seen.modality, Qt::WindowModal);
        QCOMPARE(seen.text, QStringLiteral("Save changes?"));
        QCOMPARE(seen.informativeText, QStringLiteral("100% of <b>bins</b> %@ are new."));
        QCOMPARE(seen.buttons.size(), 3);
        answerWhenShown(QStringLiteral("Cancel"), seen);
        QCOMPARE(ask(""), 0);
        answerWhenShown(QStringLiteral("Don't Save"), seen);
        QCOMPARE(ask(""), -1);

        answerWhenShown(QStringLiteral("OK"), seen);
        QCOMPARE(TLAlert::alertSheetWithMessageText("Done", "", &window), 1);
        QCOMPARE(seen.buttons, QStringList{QStringLiteral("OK")});
        QCOMPARE(m_presenter->currentMessageBox(), nullptr);
    }

    void alertStandsOnItsOwnWhenTheWindowShowsASheetOrIsGone()
    {
        auto window = std::make_unique<QMainWindow>();
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        auto *sheet = new QDialog(window.get());
        sheet->open();
        QVERIFY(m_presenter->windowHasAttachedSheet(window.get()));

        Seen seen;
        answerWhenShown(QStringLiteral("OK"), seen);
        QCOMPARE(TLAlert::alertSheetWithMessageText("Busy", "", window.get()), 1);
        QVERIFY(seen.shown);
        QCOMPARE(seen.parent, nullptr);
        QCOMPARE(seen.modality, Qt::ApplicationModal);

        // A refusal about the sheet's own contents goes onto the sheet.
        answerWhenShown(QStringLiteral("OK"), seen);
        QCOMPARE(TLAlert::alertSheetWithMessageText("Bad filter", "", sheet), 1);
        QCOMPARE(seen.parent, sheet);
        QCOMPARE(seen.modality, Qt::WindowModal);

        sheet->close();
        QVERIFY(!m_presenter->windowHasAttachedSheet(window.get()));
        void *gone = window.get();
        window.reset();
        QCOMPARE(QtAlertPresenter::widgetForHandle(gone), nullptr);
        QVERIFY(!m_presenter->windowHasAttachedSheet(gone));
        answerWhenShown(QStringLiteral("OK"), seen);
        QCOMPARE(TLAlert::alertSheetWithMessageText("Orphan", "", gone), 1);
        QCOMPARE(seen.parent, nullptr);
    }

    void secondAlertOnAWindowDoesNotStackOnTheFirst()
    {
        QMainWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QCOMPARE(TLAlert::alertSheetWithMessageText("First", std::nullopt, std::nullopt,
                                                    std::nullopt, "", &window, false),
                 -1);
        QMessageBox *first = m_presenter->currentMessageBox();
        QVERIFY(first);
        QCOMPARE(first->parentWidget(), &window);

        Seen seen;
        answerWhenShown(QStringLiteral("OK"), seen);
        QCOMPARE(TLAlert::alertSheetWithMessageText("Second", "", &window), 1);
        QCOMPARE(seen.text, QStringLiteral("Second"));
        QCOMPARE(seen.parent, nullptr);
        QTest::mouseClick(buttonTitled(first, QStringLiteral("OK")), Qt::LeftButton);
        QCOMPARE(m_presenter->currentMessageBox(), nullptr);
    }

    void suppressionCheckBoxStoresItsStateUnderTheKey()
    {
        const auto defaults = TLUserDefaults::standard();
        QVERIFY(defaults->removeObjectForKey("skipSortWarning"));
        const auto showWithCheckBox = [] {
            return TLAlert::alertSheetWithMessageText(
                std::string("Sort now?"), std::nullopt, std::nullopt, std::nullopt,
                std::string(), nullptr, nullptr, std::nullopt, false, nullptr,
                std::string("values.skipSortWarning"));
        };
        QCOMPARE(showWithCheckBox(), -1);
        QMessageBox *box = m_presenter->currentMessageBox();
        QVERIFY(box && box->checkBox());
        QCOMPARE(box->checkBox()->text(), QtAlertPresenter::suppressionText());
        QVERIFY(!box->checkBox()->isChecked());
        QTest::mouseClick(box->checkBox(), Qt::LeftButton);
        QCOMPARE(defaults->boolForKey("skipSortWarning"), std::optional<bool>(true));
        QTest::mouseClick(buttonTitled(box, QStringLiteral("OK")), Qt::LeftButton);

        QCOMPARE(showWithCheckBox(), -1);
        box = m_presenter->currentMessageBox();
        QVERIFY(box && box->checkBox() && box->checkBox()->isChecked());
        QTest::mouseClick(buttonTitled(box, QStringLiteral("OK")), Qt::LeftButton);
    }

    void workerWaitsUntilTheMainThreadAnswers()
    {
        TLMainThread::setShared(std::make_shared<QueuedMainThread>());
        QMainWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));

        std::atomic<int> answer{2};
        std::thread worker([&] {
            answer = TLAlert::alertSheetWithMessageText("Send failed", std::string("Retry"),
                                                        std::string("Stop"), std::nullopt,
                                                        "The host did not answer.", &window,
                                                        true);
        });
        QTRY_VERIFY(m_presenter->currentMessageBox() != nullptr);
        QTest::qWait(50);
        QCOMPARE(answer.load(), 2);
        QTest::mouseClick(buttonTitled(m_presenter->currentMessageBox(), QStringLiteral("Stop")),
                          Qt::LeftButton);
        // The worker's closing of the alert is work for this thread.
        QTRY_COMPARE(answer.load(), 0);
        worker.join();
        TLMainThread::setShared(nullptr);
    }

    void expiredTimedAlertLeavesTheScreen()
    {
        QMainWindow window;
        window.show();
        QCOMPARE(TLAlert::timedAlertSheetWithMessageText("Sending", std::string("Wait"),
                                                         std::string("Stop"), std::nullopt, "",
                                                         &window, 0),
                 1);
        QCOMPARE(m_presenter->currentMessageBox(), nullptr);
        const auto boxes = window.findChildren<QMessageBox *>();
        QVERIFY(std::none_of(boxes.begin(), boxes.end(),
                             [](const QMessageBox *box) { return box->isVisible(); }));
        QTRY_COMPARE(window.findChildren<QMessageBox *>().size(), 0);
    }

    void boxGoingAwayUnansweredStillAnswers()
    {
        auto window = std::make_unique<QMainWindow>();
        window->show();
        std::optional<int> withAlternate;
        std::optional<int> withoutAlternate;
        TLAlertDescription twoButtons;
        twoButtons.alternateButtonTitle = "Cancel";
        QVERIFY(m_presenter->beginAlert(101, twoButtons, window.get(),
                                        [&](int code) { withAlternate = code; }));
        QVERIFY(m_presenter->beginAlert(102, {}, nullptr,
                                        [&](int code) { withoutAlternate = code; }));
        window.reset();
        QCOMPARE(withAlternate, std::optional<int>(0));

        bool answered = false;
        QVERIFY(m_presenter->beginAlert(103, {}, nullptr, [&](int) { answered = true; }));
        m_presenter->closeAlert(103);
        m_presenter->closeAlert(103);
        QCOMPARE(m_presenter->messageBox(103), nullptr);
        QVERIFY(!answered);

        QTest::mouseClick(buttonTitled(m_presenter->messageBox(102), QStringLiteral("OK")),
                          Qt::LeftButton);
        QCOMPARE(withoutAlternate, std::optional<int>(1));
    }
};

CORVALE_QTEST_MAIN(QtAlertPresenterTest)
#include "QtAlertPresenterTest.moc"
