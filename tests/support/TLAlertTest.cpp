// Alerts through a recording presenter: what is shown, where, and how the
// caller waits for the answer on the main thread and on a worker.
#include "TLAlert.h"

#include "RecordingAlertPresenter.h"
#include "TLMainThread.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <map>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;

// A door whose main thread is the test's own thread, whichever thread first
// asked for the default one.
class TestMainThread final : public TLMainThread
{
public:
    bool isMainThread() const override { return std::this_thread::get_id() == m_thread; }
    void performAndWait(std::function<void()> work) override
    {
        const std::lock_guard lock(m_serial);
        work();
    }

private:
    std::thread::id m_thread = std::this_thread::get_id();
    std::recursive_mutex m_serial;
};

class RecordingDelegate final : public TLAlertDelegate
{
public:
    bool respondsToSelector(std::string_view selector) const override
    {
        return selector == "sheetDidEnd:";
    }
    void perform(std::string_view selector, TLAlert &, int returnCode) override
    {
        answers.emplace_back(std::string(selector), returnCode);
    }

    std::vector<std::pair<std::string, int>> answers;
};

class TLAlertTest : public testing::Test
{
protected:
    void SetUp() override
    {
        TLMainThread::setShared(std::make_shared<TestMainThread>());
        TLAlert::setPresenter(m_presenter);
    }
    void TearDown() override
    {
        TLAlert::setPresenter(nullptr);
        TLMainThread::setShared(nullptr);
    }

    std::shared_ptr<test::RecordingAlertPresenter> m_presenter =
        std::make_shared<test::RecordingAlertPresenter>();
};

int window1 = 0;
int window2 = 0;

} // namespace

TEST_F(TLAlertTest, DescriptionHoldsOnlyWhatWasGivenAndTheAnswerIsReturned)
{
    m_presenter->returnCode = 0;
    EXPECT_EQ(TLAlert::alertSheetWithMessageText("Bins sent", "100% of 3 bins, %@ %s %d", &window1), 0);
    m_presenter->returnCode = -1;
    EXPECT_EQ(TLAlert::alertSheetWithMessageText(std::string("Replace?"), "Replace", std::nullopt,
                                                 "Cancel", std::nullopt, nullptr, nullptr,
                                                 std::nullopt, true, nullptr, "dontAskAgain"),
              -1);

    const auto alerts = m_presenter->alerts();
    ASSERT_EQ(alerts.size(), 2u);
    using Dictionary = std::map<std::string, std::string>;
    EXPECT_EQ(alerts[0].description.dictionary(),
              (Dictionary{{"messageText", "Bins sent"},
                          {"informativeText", "100% of 3 bins, %@ %s %d"},
                          {"didEndSelector", "alertDidEnd:returnCode:contextInfo:"}}));
    EXPECT_EQ(alerts[0].parentWindow, &window1);
    EXPECT_EQ(alerts[1].description.dictionary(),
              (Dictionary{{"messageText", "Replace?"},
                          {"defaultButtonTitle", "Replace"},
                          {"otherButtonTitle", "Cancel"},
                          {"didEndSelector", "alertDidEnd:returnCode:contextInfo:"},
                          {"suppressionBinding", "dontAskAgain"}}));
    EXPECT_TRUE(alerts[0].closed && alerts[1].closed) << "a waiting call closes its alert";
}

TEST_F(TLAlertTest, WindowThatShowsASheetGetsAFreeStandingAlert)
{
    m_presenter->addWindowWithSheet(&window1);
    TLAlert::alertSheetWithMessageText("First", "", &window1);
    auto alert = std::make_shared<TLAlert>();
    TLAlert::alertSheetWithMessageText(std::string("Second"), std::nullopt, std::nullopt,
                                       std::nullopt, std::string(), &window2, nullptr, std::nullopt,
                                       true, alert);

    const auto alerts = m_presenter->alerts();
    ASSERT_EQ(alerts.size(), 2u);
    EXPECT_EQ(alerts[0].parentWindow, nullptr);
    EXPECT_EQ(alerts[1].parentWindow, &window2);
    EXPECT_EQ(alert->parentWindow(), &window2);
    EXPECT_FALSE(alert->isShown());
}

TEST_F(TLAlertTest, TimedAlertAnswersTheDefaultButtonWhenNobodyDoes)
{
    m_presenter->returnCode = std::nullopt;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(TLAlert::timedAlertSheetWithMessageText("Waiting", "OK", "Stop", std::nullopt,
                                                      "for Final Cut Pro", nullptr, 1),
              1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 900ms);
    ASSERT_EQ(m_presenter->alerts().size(), 1u);
    EXPECT_TRUE(m_presenter->alerts()[0].closed);

    // An answer before the interval is over stands.
    m_presenter->returnCode = 0;
    m_presenter->answersWhileProcessingEvents = true;
    EXPECT_EQ(TLAlert::timedAlertSheetWithMessageText("Waiting", "OK", "Stop", std::nullopt, "",
                                                      nullptr, 60),
              0);
}

TEST_F(TLAlertTest, NonWaitingAlertReturnsAtOnceAndItsDelegateGetsTheAnswerLater)
{
    m_presenter->returnCode = std::nullopt;
    auto delegate = std::make_shared<RecordingDelegate>();
    EXPECT_EQ(TLAlert::alertSheetWithMessageText(std::string("Save?"), "Save", "Don't Save",
                                                 std::nullopt, std::string("Unsaved bins"),
                                                 &window1, delegate, "sheetDidEnd:", false),
              -1);
    EXPECT_TRUE(delegate->answers.empty());
    ASSERT_EQ(m_presenter->alerts().size(), 1u);
    EXPECT_EQ(m_presenter->alerts()[0].description.didEndSelector, "sheetDidEnd:");

    // Nobody holds the alert any more but the presenter: it still answers.
    ASSERT_TRUE(m_presenter->answer(0));
    EXPECT_EQ(delegate->answers, (std::vector<std::pair<std::string, int>>{{"sheetDidEnd:", 0}}));
}

TEST_F(TLAlertTest, MissingEndOperationShowsNothingAndSaysSo)
{
    auto delegate = std::make_shared<RecordingDelegate>();
    testing::internal::CaptureStderr();
    EXPECT_EQ(TLAlert::alertSheetWithMessageText(std::string("Lost"), std::nullopt, std::nullopt,
                                                 std::nullopt, std::nullopt, nullptr, delegate,
                                                 "noSuchOperation:", true),
              -1);
    EXPECT_EQ(TLAlert::alertSheetWithMessageText(std::string("Lost"), std::nullopt, std::nullopt,
                                                 std::nullopt, std::nullopt, nullptr, nullptr,
                                                 "sheetDidEnd:", true),
              -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Alert error: delegate does not respond to selector noSuchOperation:\n"
              "Alert error: delegate does not respond to selector sheetDidEnd:\n");
    EXPECT_TRUE(m_presenter->alerts().empty());
}

TEST_F(TLAlertTest, WorkerWaitsUntilAnsweredAndMainThreadKeepsHandlingEvents)
{
    m_presenter->returnCode = std::nullopt;
    auto worker = std::async(std::launch::async, [] {
        return TLAlert::alertSheetWithMessageText("From a worker", "", &window1);
    });
    ASSERT_TRUE(m_presenter->waitForAlerts(1));
    EXPECT_EQ(worker.wait_for(300ms), std::future_status::timeout);
    ASSERT_TRUE(m_presenter->answer(-1));
    EXPECT_EQ(worker.get(), -1);
    EXPECT_EQ(m_presenter->processEventsCalls(), 0);

    m_presenter->returnCode = 0;
    m_presenter->answersWhileProcessingEvents = true;
    EXPECT_EQ(TLAlert::alertSheetWithMessageText("On the main thread", "", nullptr), 0);
    EXPECT_GE(m_presenter->processEventsCalls(), 1);
}

TEST_F(TLAlertTest, NothingShownMeansNoWait)
{
    m_presenter->canShow = false;
    EXPECT_EQ(TLAlert::alertSheetWithMessageText("Hidden", "", nullptr), -1);
}

TEST_F(TLAlertTest, CommandLinePresenterPrintsAndAnswersTheDefaultButton)
{
    TLAlert::setPresenter(nullptr);
    testing::internal::CaptureStderr();
    EXPECT_EQ(TLAlert::alertSheetWithMessageText("No XML data found", "Try again, 50% done", nullptr), 1);
    EXPECT_EQ(TLAlert::alertSheetWithMessageText("Only a title", "", &window1), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "No XML data found\nTry again, 50% done\nOnly a title\n");

    // An alert object may bring a presenter of its own.
    auto alert = std::make_shared<TLAlert>(m_presenter);
    TLAlert::alertSheetWithMessageText(std::string("Own"), std::nullopt, std::nullopt,
                                       std::nullopt, std::nullopt, nullptr, nullptr, std::nullopt,
                                       true, alert);
    EXPECT_EQ(m_presenter->alerts().size(), 1u);
}
