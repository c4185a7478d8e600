#pragma once

#include <functional>
#include <memory>

#include "base/Runnable.h"
#include "base/ThreadImpl.h"

namespace zv_loc_fw {

/// Turns SIGTERM and SIGINT into an orderly stop. The signals are blocked before the first thread exists, so that every
/// thread inherits the block and one that comes early is remembered; a thread then waits for them. The first calls
/// `stop` on that thread; a second ends the process at once by its default action.
class StopSignals : private Runnable {
public:
    /// Main thread, before any other exists.
    static void block();

    /// @param stop asks everything to end, without waiting for it; any thread
    explicit StopSignals(std::function<void()> stop);
    /// Ends the thread and waits for it.
    ~StopSignals() override;
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /// Starts waiting. A failure is logged and unblocks the signals, which then end the process by themselves.
    void watch();

private:
    int run() override;
    void takeSignal();

    const std::function<void()> mStop;
    int mSignals = -1;
    int mWakeUp = -1;
    std::unique_ptr<ThreadImpl> mThread;
};

}  // namespace zv_loc_fw
