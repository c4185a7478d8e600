#pragma once

#include <cstddef>

#include "mq/LocalTimer.h"

namespace zv_loc_fw {

class InetControllerBase;

/// Gives the heap's free pages back to the system when a controller has had no large message for a while. Requests and
/// replies pass its loop as messages; what a job holds beyond them is free when it ends. Event-loop thread.
class HeapTrim : public MqClientFunctionalModuleBase {
public:
    /// @param owner provides timer and state; outlives this
    explicit HeapTrim(InetControllerBase* owner) : mOwner(owner) {}

    /// To be told of every message, and of what else was large. @param size bytes
    void notice(size_t size);
    /// To be told when the worker is done with a job.
    void jobEnds();

    int init() override { return 0; }
    int deinit() override { return 0; }
    /// @return 0
    int timerCallback(const TimerDataInterface* data) override;

private:
    void restartTimer();

    InetControllerBase* const mOwner;
    size_t mSmallBytes = 0;  // of small messages, since the timer was started last
    bool mOwed = false;      // a job ran when the pages went back: once more when it ends
};

}  // namespace zv_loc_fw
