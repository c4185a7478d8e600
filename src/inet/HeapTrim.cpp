#include "inet/HeapTrim.h"

#include <cstdint>

#include "base/Timestamp.h"
#include "mq/MqClientControllerBase.h"
#include "platform/HeapPages.h"

namespace zv_loc_fw {

namespace {

/// Without a large message for so long, and at most twice that, the pages go back.
constexpr int64_t kQuietNs = 250'000'000;

}  // namespace

void HeapTrim::notice(size_t size) {
    if (size <= platform::kLargeBlock) {
        return;
    }
    mAnother = mArmed;
    if (!mArmed) {
        arm();
    }
}

int HeapTrim::timerCallback(const TimerDataInterface* /*data*/) {
    mArmed = false;
    if (mAnother) {
        mAnother = false;
        arm();
    } else {
        platform::returnFreePages();
    }
    return 0;
}

void HeapTrim::arm() {
    mArmed = true;
    (void)mOwner->setLocalTimer(TimeDiff(0).add(0, kQuietNs), this, nullptr);
}

}  // namespace zv_loc_fw
