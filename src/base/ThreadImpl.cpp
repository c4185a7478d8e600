#include "base/ThreadImpl.h"

#include <cerrno>
#include <cstring>

#include "base/Runnable.h"
#include "base/log.h"

namespace zv_loc_fw {

namespace {

constexpr char kKernelName[] = "loc-mq-thread";
static_assert(sizeof(kKernelName) <= 16, "the kernel takes 15 characters");

constexpr int kThreadFailed = 5;

int reportLaunch(const char* name, int result, int error) {
    log_error_no_lock(name, "launch: result: %d, errno: %d, [%s]", result, error, std::strerror(error));
    return result;
}

}  // namespace

ThreadImpl::ThreadImpl(const char* name, Runnable* runnable, bool owns_runnable)
    : mName(name != nullptr ? name : "AutoLock"), mRunnable(runnable), mOwnsRunnable(owns_runnable) {}

ThreadImpl::~ThreadImpl() {
    if (mState == kLaunched || mState > 3) {
        // The runnable is leaked on purpose: the thread may be in it.
        log_error_no_lock(mName, "~ThreadImpl: thread is probably still running");
        return;
    }
    if (mOwnsRunnable) {
        delete mRunnable;  // taken over with the flag in the constructor
    }
    mRunnable = nullptr;
}

int ThreadImpl::launch() {
    errno = 0;
    if (mState != kCreated) {
        return reportLaunch(mName, 2, errno);
    }
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return reportLaunch(mName, 3, errno);
    }
    int result = 0;
    int error = 0;
    const auto failed = [&](int code) {
        result = code;
        error = errno;
    };
    if (pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE) != 0) {
        failed(4);
    } else if (pthread_create(&mThread, &attributes, thread_func, this) != 0) {
        failed(kThreadFailed);
    } else {
        mState = kLaunched;  // whatever fails from here on, there is a thread to join
    }
    if (pthread_attr_destroy(&attributes) != 0) {
        failed(kThreadFailed);
    }
    return result != 0 ? reportLaunch(mName, result, error) : 0;
}

void* ThreadImpl::thread_func(void* self) {
    const ThreadImpl& thread = *static_cast<const ThreadImpl*>(self);
    Runnable* const runnable = thread.mRunnable;
    // From inside: from outside the thread might have ended already.
    if (pthread_setname_np(pthread_self(), kKernelName) != 0) {
        const int error = errno;
        reportLaunch(thread.mName, kThreadFailed, error);
    }
    if (runnable != nullptr) {
        runnable->run();
    }
    return nullptr;
}

int ThreadImpl::join() {
    errno = 0;
    int result = 0;
    if (mState != kLaunched) {
        result = 2;  // not launched, or joined before
    } else if (pthread_join(mThread, nullptr) != 0) {
        result = 3;  // join failed
    } else {
        mState = kJoined;
    }
    if (result != 0) {
        const int error = errno;
        log_error_no_lock(mName, "join: result: %d, errno: %d, [%s]", result, error, std::strerror(error));
    }
    return result;
}

}  // namespace zv_loc_fw
