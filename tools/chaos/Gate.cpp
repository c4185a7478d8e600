#include "Gate.h"

#include <algorithm>
#include <climits>

#include "Wire.h"

namespace chaos {

using test_support::Card;

Gate::Ticket Gate::enter() {
    const std::lock_guard guard(mMutex);
    if (mInside >= kMost || Clock::now() < mNext) {
        return nullptr;
    }
    ++mInside;
    return {this, [self = shared_from_this()](void*) {
                const std::lock_guard leaving(self->mMutex);
                --self->mInside;
                self->mNext = Clock::now() + kPause;
            }};
}

Repairer::Repairer(uint64_t seed) : mDice(seed, 7000), mThread([this] { work(); }) {}

Repairer::~Repairer() {
    {
        const std::lock_guard guard(mMutex);
        mStopping = true;
        mChanged.notify_all();
    }
    mThread.join();
}

void Repairer::call(const std::string& controller, Gate::Ticket ticket) {
    const std::lock_guard guard(mMutex);
    // Not at once: what waits meanwhile expires, or bears it.
    const auto delay = std::chrono::milliseconds(mDice.between(0, 1500));
    mPatients.push_back({controller, std::move(ticket), Clock::now() + delay});
    mChanged.notify_all();
}

size_t Repairer::repairs() const {
    const std::lock_guard guard(mMutex);
    return mRepairs;
}

void Repairer::work() {
    std::unique_lock lock(mMutex);
    while (!mStopping) {
        const auto due = std::find_if(mPatients.begin(), mPatients.end(),
                                      [now = Clock::now()](const Patient& patient) { return patient.at <= now; });
        if (due == mPatients.end()) {
            mChanged.wait_for(lock, std::chrono::milliseconds(50));
            continue;
        }
        const Patient patient = std::move(*due);
        mPatients.erase(due);
        ++mRepairs;
        lock.unlock();
        Card result;
        result.string("FROM", patient.controller).string("TO", "nobody").int32("TX-ID", INT_MIN);
        Card message;
        message.string("TO", patient.controller).string("FROM", patient.controller).string("REQ", "HTTP-RESULT");
        (void)wire::sendMessage(patient.controller, message.card("RESULT", result).encode());
        lock.lock();
    }
}

}  // namespace chaos
