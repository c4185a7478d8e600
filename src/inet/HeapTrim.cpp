#include "inet/HeapTrim.h"

#include <cstdint>

#include "base/Timestamp.h"
#include "mq/MqClientControllerBase.h"
#include "platform/HeapPages.h"

namespace zv_loc_fw {

namespace {

/// Without a large message for so long, and at most twice that, the pages go back.
constexpr int64_t kQuietNs = 250'000'000;
/// Small messages are worth as much as a large one when they are so many bytes.
constexpr size_t kMany = size_t{1} << 20;

}  // namespace

void HeapTrim::notice(size_t size) {
    mNoticed += size;
    if (size <= platform::kLargeBlock && mNoticed <= kMany) {
        return;
    }
    mNoticed = 0;
    mAnother = mArmed;
    if (!mArmed) {
        arm();
    }
}

void HeapTrim::jobEnds() {
    mJobRuns = false;
    if (mOwed) {
        mOwed = false;
        notice(kMany + 1);
    }
}

int HeapTrim::timerCallback(const TimerDataInterface* /*data*/) {
    mArmed = false;
    if (mAnother) {
        mAnother = false;
        arm();
    } else {
        platform::returnFreePages();
        mOwed = mJobRuns;
    }
    return 0;
}

void HeapTrim::arm() {
    mArmed = true;
    (void)mOwner->setLocalTimer(TimeDiff(0).add(0, kQuietNs), this, nullptr);
}

}  // namespace zv_loc_fw
