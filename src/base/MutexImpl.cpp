#include "base/MutexImpl.h"

#include <cerrno>
#include <cstring>

#include "base/log.h"

namespace zv_loc_fw {

MutexImpl::MutexImpl(const char* name, [[maybe_unused]] bool unused) : mName(name != nullptr ? name : "Mutex") {
    int result = 0;
    int error = 0;
    const auto failed = [&](int code) {
        result = code;
        error = errno;
    };
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0) {
        failed(2);
    } else {
        if (pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK) != 0) {
            failed(3);
        } else if (pthread_mutex_init(&mMutex, &attributes) != 0) {
            failed(4);
        }
        if (pthread_mutexattr_destroy(&attributes) != 0) {
            failed(5);
        }
    }
    if (result != 0) {
        log_error_no_lock(mName, "MutexImpl: result: %d, error: %d, [%s]", result, error, std::strerror(error));
    }
}

MutexImpl::~MutexImpl() {
    const int result = pthread_mutex_destroy(&mMutex);
    if (result != 0) {
        log_error_no_lock(mName, "~MutexImpl: pthread_mutex_destroy rc: %d, [%s]", result, std::strerror(result));
    }
}

void MutexImpl::trace(const char* text) const {
    log_verbose_no_lock(mName, "%s", text);
}

int MutexImpl::lockFailed(int result) const {
    log_error_no_lock(mName, "lock: pthread_mutex_lock return code: %d, [%s]", result, std::strerror(result));
    return 1;
}

int MutexImpl::unlockFailed() const {
    const int error = errno;  // not the call's result: deliberate
    log_error_no_lock(mName, "unlock: pthread_mutex_unlock error: %d, [%s]", error, std::strerror(error));
    return 1;
}

}  // namespace zv_loc_fw
