#pragma once

#include <cstddef>

#include "mq/LocalTimer.h"

namespace zv_loc_fw {

class MqClientControllerBase;

/// Gives the heap's free pages back to the system when a controller has had no large message for a while. Requests and
/// replies pass its loop as messages; what a job holds beyond them is free when it ends. Event-loop thread.
class HeapTrim : public MqClientFunctionalModuleBase {
public:
    /// @param owner provides the timer; outlives this
    explicit HeapTrim(MqClientControllerBase* owner) : mOwner(owner) {}

    /// To be told of every message, and of what else was large. @param size bytes
    void notice(size_t size);
    /// To be told that a job begins: whatever it holds is free only when it ends.
    void jobBegins() { mJobRuns = true; }
    /// The worker is done with it.
    void jobEnds();

    int init() override { return 0; }
    int deinit() override { return 0; }
    /// @return 0
    int timerCallback(const TimerDataInterface* data) override;

private:
    void arm();

    MqClientControllerBase* const mOwner;
    size_t mNoticed = 0;  // bytes, since the timer was armed last
    bool mArmed = false;
    bool mAnother = false;  // something large since then
    bool mJobRuns = false;
    bool mOwed = false;  // once more, when the job ends
};

}  // namespace zv_loc_fw
