// An alert presenter that records every alert instead of showing it, and
// answers it with a scripted code as a user would.
#pragma once

#include "TLAlertPresenter.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace test {

class RecordingAlertPresenter : public TLAlertPresenter
{
public:
    struct Alert
    {
        AlertId id = 0;
        TLAlertDescription description;
        // The description's texts, "" when not given.
        std::string message;
        std::string informativeText;
        // The window the alert was shown on; null for a free-standing one.
        void *parentWindow = nullptr;
        bool closed = false;
    };

    // The code every new alert is answered with; none leaves alerts open
    // until answer() is called.
    std::optional<int> returnCode = 1;
    // When set, the scripted answer waits for the next processEvents() (the
    // main thread waiting for it) instead of being given at once.
    bool answersWhileProcessingEvents = false;
    // When cleared, nothing can be shown: beginAlert() records nothing and
    // fails.
    bool canShow = true;

    bool beginAlert(AlertId id, const TLAlertDescription &description, void *parentWindow,
                    std::function<void(int)> didEnd) override
    {
        std::unique_lock lock(m_mutex);
        if (!canShow)
            return false;
        m_alerts.push_back({id, description, description.messageText.value_or(""),
                            description.informativeText.value_or(""), parentWindow, false});
        m_changed.notify_all();
        if (!returnCode) {
            m_open.emplace_back(id, std::move(didEnd));
            return true;
        }
        if (answersWhileProcessingEvents) {
            m_queued.emplace_back(*returnCode, std::move(didEnd));
            return true;
        }
        const int code = *returnCode;
        lock.unlock();
        didEnd(code);
        return true;
    }

    void closeAlert(AlertId id) override
    {
        const std::lock_guard lock(m_mutex);
        for (auto &alert : m_alerts)
            if (alert.id == id)
                alert.closed = true;
    }

    bool windowHasAttachedSheet(void *window) const override
    {
        const std::lock_guard lock(m_mutex);
        return window && m_windowsWithSheets.count(window) != 0;
    }

    void processEvents(std::chrono::milliseconds timeout) override
    {
        std::unique_lock lock(m_mutex);
        ++m_processEventsCalls;
        if (m_queued.empty()) {
            lock.unlock();
            std::this_thread::sleep_for(timeout);
            return;
        }
        auto [code, didEnd] = std::move(m_queued.front());
        m_queued.pop_front();
        lock.unlock();
        didEnd(code);
    }

    // Marks `window` as one that already shows a sheet.
    void addWindowWithSheet(void *window)
    {
        const std::lock_guard lock(m_mutex);
        m_windowsWithSheets.insert(window);
    }

    // Answers the oldest open alert with `code`, on the calling thread (the
    // tests' main thread). False when no alert is open.
    bool answer(int code)
    {
        std::unique_lock lock(m_mutex);
        if (m_open.empty())
            return false;
        auto didEnd = std::move(m_open.front().second);
        m_open.pop_front();
        lock.unlock();
        didEnd(code);
        return true;
    }

    // Waits up to `timeout` until at least `count` alerts have been shown;
    // whether they have.
    bool waitForAlerts(std::size_t count,
                       std::chrono::milliseconds timeout = std::chrono::seconds(5))
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, timeout, [&] { return m_alerts.size() >= count; });
    }

    std::vector<Alert> alerts() const
    {
        const std::lock_guard lock(m_mutex);
        return m_alerts;
    }

    int processEventsCalls() const
    {
        const std::lock_guard lock(m_mutex);
        return m_processEventsCalls;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Alert> m_alerts;
    std::deque<std::pair<AlertId, std::function<void(int)>>> m_open;
    std::deque<std::pair<int, std::function<void(int)>>> m_queued;
    std::set<void *> m_windowsWithSheets;
    int m_processEventsCalls = 0;
};

} // namespace test
