// The core's main-thread door, opened into the Qt event loop.
#pragma once

#include "TLMainThread.h"

#include <QObject>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

// Hands work from worker threads to the thread of the QApplication and
// waits for it. Work from the main thread itself runs at once, in place.
//
// Work is queued here and drained by a queued call into the event loop, so
// that a main thread which must block for a while (waiting for a worker to
// finish, say) can keep workers moving by calling runPendingWork() itself.
// Make it on the main thread once the QApplication exists, and install it
// with TLMainThread::setShared.
class QtMainThread final : public QObject, public TLMainThread
{
    Q_OBJECT
public:
    explicit QtMainThread(QObject *parent = nullptr);
    ~QtMainThread() override;

    // True on the thread that owns the QApplication (the thread this object
    // was made on when there is none).
    bool isMainThread() const override;
    // Runs `work` on the main thread and returns once it has run. Work that
    // throws has the exception logged, and the caller still goes on.
    void performAndWait(std::function<void()> work) override;

    // Main thread: runs every piece of handed-over work waiting right now;
    // returns how many ran. Does nothing elsewhere.
    int runPendingWork();

private:
    struct Pending;
    std::mutex m_mutex;
    std::condition_variable m_done;
    std::deque<std::shared_ptr<Pending>> m_queue;
};
