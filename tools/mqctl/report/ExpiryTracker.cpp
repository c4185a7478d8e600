#include "report/ExpiryTracker.h"

#include <algorithm>

namespace mqctl::report {

void ExpiryTracker::beginWalk(std::vector<size_t> waiting) {
    mWalking = true;
    mWaiting = std::move(waiting);
    mSteps.clear();
}

void ExpiryTracker::passed() {
    if (mWalking) {
        mSteps.push_back({std::nullopt, true});
    }
}

void ExpiryTracker::expired(const Expiry& expiry) {
    if (mWalking) {
        mSteps.push_back({expiry, false});
    } else {
        mUnnamed.push_back(expiry);
    }
}

void ExpiryTracker::forgetLatest() {
    (void)takeLatest();
}

std::optional<Expiry> ExpiryTracker::takeLatest() {
    if (mWalking && !mSteps.empty() && mSteps.back().expiry && !mSteps.back().done) {
        mSteps.back().done = true;
        return mSteps.back().expiry;
    }
    if (mUnnamed.empty()) {
        return std::nullopt;
    }
    const Expiry latest = mUnnamed.back();
    mUnnamed.pop_back();
    return latest;
}

ExpiryTracker::Named ExpiryTracker::endWalk(bool complete) {
    Named named;
    if (!mWalking) {
        return named;
    }
    mWalking = false;
    size_t walked = mSteps.size();
    if (!complete) {
        // Without its last line nothing was left waiting: all jobs of the walk expired, and a step that passed belongs
        // to a job that came afterwards.
        const auto passed = std::find_if(mSteps.begin(), mSteps.end(), [](const Step& step) { return !step.expiry; });
        walked = static_cast<size_t>(passed - mSteps.begin());
    }
    for (size_t i = 0; i < mSteps.size(); ++i) {
        const Step& step = mSteps[i];
        if (step.done || !step.expiry) {
            continue;
        }
        // Counted from the oldest: the newest may have arrived without being in the queue yet.
        const size_t age = i < walked ? walked - 1 - i : mWaiting.size();
        if (walked <= mWaiting.size() && age < mWaiting.size()) {
            named.emplace_back(mWaiting[age], *step.expiry);
        } else {
            mUnnamed.push_back(*step.expiry);
        }
    }
    mSteps.clear();
    return named;
}

}  // namespace mqctl::report
