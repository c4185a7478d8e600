#pragma once

#include <pthread.h>

#include <cstdint>

namespace zv_loc_fw {

class Runnable;

/// One runnable on one joinable thread: launch once, join once. Whoever owns it makes the runnable return first (closes
/// its queue), then joins, then destroys. launch, join and destruction belong to one owning thread.
class ThreadImpl {
public:
    /// @param name tag of the log lines, not copied; "AutoLock" when null (the text is deliberate)
    /// @param runnable not copied
    /// @param owns_runnable whether the destructor deletes the runnable
    ThreadImpl(const char* name, Runnable* runnable, bool owns_runnable);
    /// Releases the runnable if it is owned, unless the thread may still be running: then it is logged and leaked (the
    /// runnable must have begun by then).
    virtual ~ThreadImpl();
    ThreadImpl(const ThreadImpl&) = delete;
    ThreadImpl& operator=(const ThreadImpl&) = delete;

    /// Starts the thread; every thread of the framework carries the kernel name "loc-mq-thread".
    /// @return 0; 2 launched before; 3, 4 attributes; 5 thread not created, or attributes not released (then it runs)
    [[nodiscard]] int launch();
    /// Waits for the thread's end.
    /// @return 0; 2 not launched, or joined before; 3 join failed
    int join();

private:
    enum State : uint32_t { kCreated = 0, kLaunched = 1, kJoined = 2 };

    static void* thread_func(void* self);

    const char* mName;
    Runnable* mRunnable;
    bool mOwnsRunnable;
    pthread_t mThread{};
    uint32_t mState = kCreated;
};

}  // namespace zv_loc_fw
