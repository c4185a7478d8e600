#include "platform/posutil/PosTimer.h"

#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#include "platform/posutil/PosLogLine.h"

namespace pos_util {

namespace {

constexpr char kTag[] = "PosTimer";

}  // namespace

/// Shared with the thread, which may outlive the timer: when the callback itself ends and deletes it.
struct PosTimer::State {
    using Clock = std::chrono::steady_clock;

    struct Start {
        std::shared_ptr<State> state;
        PosTimer* timer;
    };

    static void* threadMain(void* argument);
    void run(PosTimer& timer);

    std::mutex mutex;
    /// Every change below but the thread.
    std::condition_variable changed;
    // All guarded by the mutex. Whether to fire is decided under it, so a stopped arming cannot.
    bool armed = false;
    Clock::time_point deadline;
    bool ended = false;
    /// The callback is running: on `thread`, also when that is no longer there to be joined.
    bool running = false;
    bool joinable = false;
    pthread_t thread = {};
};

void* PosTimer::State::threadMain(void* argument) {
    pthread_setname_np(pthread_self(), "PosTimer");
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    start->state->run(*start->timer);
    return nullptr;
}

void PosTimer::State::run(PosTimer& timer) {
    std::unique_lock lock(mutex);
    while (!ended) {
        if (!armed) {
            changed.wait(lock);
        } else if (Clock::now() < deadline) {
            changed.wait_until(lock, deadline);
        } else {
            armed = false;
            running = true;
            lock.unlock();
            // The last touch of the timer, if it is ended meanwhile.
            timer.timeOutCallback();
            lock.lock();
            running = false;
            changed.notify_all();
        }
    }
}

PosTimer::PosTimer() : mState(std::make_shared<State>()) {}

PosTimer::~PosTimer() {
    // Too late for a callback that is about to run, but the thread must not stay: see the class comment.
    shutDown();
}

bool PosTimer::start(uint32_t timeout_ms, bool /*wake_up*/) {
    const std::lock_guard guard(mState->mutex);
    if (mState->ended) {
        return false;
    }
    if (!mState->joinable) {
        std::unique_ptr<State::Start> start(new (std::nothrow) State::Start{mState, this});
        const int error =
            start != nullptr ? pthread_create(&mState->thread, nullptr, &State::threadMain, start.get()) : ENOMEM;
        if (error != 0) {
            POS_LOG_ERROR(kTag, "no thread for a timer: %s", strerror(error));
            return false;
        }
        (void)start.release();  // the thread's now
        mState->joinable = true;
    }
    mState->deadline = State::Clock::now() + std::chrono::milliseconds(timeout_ms);
    mState->armed = true;
    mState->changed.notify_all();
    return true;
}

void PosTimer::stop() {
    const std::lock_guard guard(mState->mutex);
    mState->armed = false;
}

void PosTimer::shutDown() {
    // A copy: this object may go while another thread, which ended the timer too, still waits here.
    const std::shared_ptr<State> state = mState;
    std::unique_lock lock(state->mutex);
    state->ended = true;
    state->armed = false;
    state->changed.notify_all();
    const pthread_t thread = state->thread;
    const bool joinable = std::exchange(state->joinable, false);
    if (state->running && pthread_equal(thread, pthread_self()) != 0) {
        // From the callback: the thread ends by itself once that returns, without another look at the timer.
        if (joinable) {
            pthread_detach(thread);
        }
        return;
    }
    state->changed.wait(lock, [&] { return !state->running; });
    lock.unlock();
    if (joinable) {
        pthread_join(thread, nullptr);
    }
}

}  // namespace pos_util
