// The hand-off of work to the thread that owns the user interface.
#pragma once

#include <functional>
#include <memory>

// Workers never touch the interface themselves: they hand each change to
// the main thread through this door and wait for it. The desktop
// application installs a door into its event loop; the default runs the work
// in place on the calling thread (one piece of work at a time), which is
// what the command line and the tests need, as they have no event loop.
class TLMainThread
{
public:
    virtual ~TLMainThread() = default;

    // Whether the caller is the main thread.
    virtual bool isMainThread() const = 0;

    // Runs `work` on the main thread and returns once it has run. Runs it at
    // once, in place, when the caller already is the main thread. Exceptions
    // thrown by `work` are the work's own business: they must not escape it.
    virtual void performAndWait(std::function<void()> work) = 0;

    // The door in use; the in-place default until a front end installs its own.
    static std::shared_ptr<TLMainThread> shared();
    static void setShared(std::shared_ptr<TLMainThread> mainThread);

    // The default door. Its main thread is the thread that first asked for
    // it; work handed over from other threads runs on the caller, serialised
    // with all other handed-over work.
    static std::shared_ptr<TLMainThread> inPlace();
};
