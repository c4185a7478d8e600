#include "inet/HeapTrim.h"

#include <cstdint>

#include "base/Timestamp.h"
#include "inet/InetControllerBase.h"
#include "platform/HeapPages.h"

namespace zv_loc_fw {

namespace {

/// Without a large message for so long, the pages go back.
constexpr int64_t kQuietNs = 250'000'000;
/// So many bytes of small messages are worth as much as a large one.
constexpr size_t kManyBytes = size_t{1} << 20;

}  // namespace

void HeapTrim::notice(size_t size) {
    mSmallBytes += size;
    if (size > platform::kLargeBlock || mSmallBytes > kManyBytes) {
        restartTimer();
    }
}

void HeapTrim::jobEnds() {
    if (mOwed) {
        restartTimer();
    }
}

int HeapTrim::timerCallback(const TimerDataInterface* /*data*/) {
    platform::returnFreePages();
    mOwed = mOwner->state() != InetControllerBase::kIdle;
    return 0;
}

void HeapTrim::restartTimer() {
    mSmallBytes = 0;
    mOwed = false;
    (void)mOwner->removeLocalTimer(this, nullptr);
    (void)mOwner->setLocalTimer(TimeDiff(0).add(0, kQuietNs), this, nullptr);
}

}  // namespace zv_loc_fw
