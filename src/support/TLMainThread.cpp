// The default, in-place main-thread door and the process-wide choice of door.
#include "TLMainThread.h"

#include <mutex>
#include <thread>

namespace {

class InPlaceMainThread final : public TLMainThread
{
public:
    bool isMainThread() const override { return std::this_thread::get_id() == m_mainThread; }

    void performAndWait(std::function<void()> work) override
    {
        if (!work)
            return;
        // Handed-over work must not overlap, as it would not on a real main
        // thread; recursive because work may hand over more work.
        std::lock_guard lock(m_serial);
        work();
    }

private:
    std::thread::id m_mainThread = std::this_thread::get_id();
    std::recursive_mutex m_serial;
};

std::mutex sharedLock;

std::shared_ptr<TLMainThread> &sharedSlot()
{
    static std::shared_ptr<TLMainThread> slot;
    return slot;
}

} // namespace

std::shared_ptr<TLMainThread> TLMainThread::inPlace()
{
    static const std::shared_ptr<TLMainThread> door = std::make_shared<InPlaceMainThread>();
    return door;
}

std::shared_ptr<TLMainThread> TLMainThread::shared()
{
    std::lock_guard lock(sharedLock);
    auto &slot = sharedSlot();
    if (!slot)
        slot = inPlace();
    return slot;
}

void TLMainThread::setShared(std::shared_ptr<TLMainThread> mainThread)
{
    std::lock_guard lock(sharedLock);
    sharedSlot() = mainThread ? std::move(mainThread) : inPlace();
}
