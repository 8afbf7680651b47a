// Handing work to the Qt main thread and waiting for it.
#include "QtMainThread.h"

#include "TLException.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>

struct QtMainThread::Pending
{
    std::function<void()> work;
    bool done = false;
};

namespace {

void runGuarded(const std::function<void()> &work)
{
    try {
        work();
    } catch (...) {
        TLException::logException(std::current_exception(), "QtMainThread::performAndWait");
    }
}

} // namespace

QtMainThread::QtMainThread(QObject *parent) : QObject(parent) {}

QtMainThread::~QtMainThread()
{
    // Nobody may be left waiting for work that will never run now.
    runPendingWork();
}

bool QtMainThread::isMainThread() const
{
    const QCoreApplication *application = QCoreApplication::instance();
    const QThread *mainThread = application ? application->thread() : thread();
    return QThread::currentThread() == mainThread;
}

void QtMainThread::performAndWait(std::function<void()> work)
{
    if (!work)
        return;
    if (isMainThread()) {
        runGuarded(work);
        return;
    }
    auto pending = std::make_shared<Pending>();
    pending->work = std::move(work);
    std::unique_lock lock(m_mutex);
    m_queue.push_back(pending);
    lock.unlock();
    QMetaObject::invokeMethod(this, [this] { runPendingWork(); }, Qt::QueuedConnection);
    lock.lock();
    m_done.wait(lock, [&] { return pending->done; });
}

int QtMainThread::runPendingWork()
{
    if (!isMainThread())
        return 0;
    int count = 0;
    for (;;) {
        std::unique_lock lock(m_mutex);
        if (m_queue.empty())
            return count;
        const std::shared_ptr<Pending> pending = m_queue.front();
        m_queue.pop_front();
        lock.unlock();
        runGuarded(pending->work);
        ++count;
        lock.lock();
        pending->done = true;
        m_done.notify_all();
    }
}
