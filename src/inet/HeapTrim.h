#pragma once

#include <cstddef>

#include "mq/LocalTimer.h"

namespace zv_loc_fw {

class MqClientControllerBase;

/// Gives the heap's free pages back to the system when a controller has had no large message for a while. Every large
/// request and every large reply passes its loop as one. Event-loop thread.
class HeapTrim : public MqClientFunctionalModuleBase {
public:
    /// @param owner provides the timer; outlives this
    explicit HeapTrim(MqClientControllerBase* owner) : mOwner(owner) {}

    /// To be told of every message. @param size bytes
    void notice(size_t size);

    int init() override { return 0; }
    int deinit() override { return 0; }
    /// @return 0
    int timerCallback(const TimerDataInterface* data) override;

private:
    void arm();

    MqClientControllerBase* const mOwner;
    bool mArmed = false;
    bool mAnother = false;  // a large message since the timer was armed
};

}  // namespace zv_loc_fw
