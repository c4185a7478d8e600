#include "base/Faults.h"

#include <cerrno>
#include <cstddef>
#include <new>

namespace base_test {

namespace {

thread_local Fault* first_fault = nullptr;

}  // namespace

thread_local std::function<int(pthread_mutex_t*, const timespec&)> timed_wait;

Fault::Fault(const char* function, int error, int skip)
    : mFunction(function), mError(error), mCallsLeft(skip), mNext(first_fault) {
    first_fault = this;
}

Fault::~Fault() {
    for (Fault** link = &first_fault; *link != nullptr; link = &(*link)->mNext) {
        if (*link == this) {
            *link = mNext;
            return;
        }
    }
}

/// @return the error of the fault whose turn it is, 0 without one
int takeFault(const char* function) {
    int error = 0;
    for (Fault* fault = first_fault; fault != nullptr; fault = fault->mNext) {
        if (fault->mFunction == function && fault->mCallsLeft-- == 0) {
            errno = kFaultErrno;
            error = fault->mError;
        }
    }
    return error;
}

}  // namespace base_test

using base_test::takeFault;

#define FAULTY(name, parameters, arguments)                  \
    int __real_##name parameters;                            \
    int __wrap_##name parameters {                           \
        const int error = takeFault(#name);                  \
        return error != 0 ? error : __real_##name arguments; \
    }

extern "C" {

FAULTY(pthread_mutexattr_init, (pthread_mutexattr_t * a), (a))
FAULTY(pthread_mutexattr_settype, (pthread_mutexattr_t * a, int type), (a, type))
FAULTY(pthread_mutexattr_destroy, (pthread_mutexattr_t * a), (a))
FAULTY(pthread_mutex_init, (pthread_mutex_t * m, const pthread_mutexattr_t* a), (m, a))
FAULTY(pthread_mutex_lock, (pthread_mutex_t * m), (m))
FAULTY(pthread_mutex_destroy, (pthread_mutex_t * m), (m))
FAULTY(pthread_condattr_init, (pthread_condattr_t * a), (a))
FAULTY(pthread_condattr_setclock, (pthread_condattr_t * a, clockid_t id), (a, id))
FAULTY(pthread_condattr_destroy, (pthread_condattr_t * a), (a))
FAULTY(pthread_cond_init, (pthread_cond_t * c, const pthread_condattr_t* a), (c, a))
FAULTY(pthread_cond_destroy, (pthread_cond_t * c), (c))
FAULTY(pthread_cond_signal, (pthread_cond_t * c), (c))
FAULTY(pthread_cond_broadcast, (pthread_cond_t * c), (c))
FAULTY(pthread_cond_wait, (pthread_cond_t * c, pthread_mutex_t* m), (c, m))
FAULTY(pthread_attr_init, (pthread_attr_t * a), (a))
FAULTY(pthread_attr_setdetachstate, (pthread_attr_t * a, int state), (a, state))
FAULTY(pthread_attr_destroy, (pthread_attr_t * a), (a))
FAULTY(pthread_create, (pthread_t * t, const pthread_attr_t* a, void* (*f)(void*), void* p), (t, a, f, p))
FAULTY(pthread_join, (pthread_t t, void** result), (t, result))

int __real_pthread_cond_timedwait(pthread_cond_t* c, pthread_mutex_t* m, const timespec* until);
int __wrap_pthread_cond_timedwait(pthread_cond_t* c, pthread_mutex_t* m, const timespec* until) {
    if (base_test::timed_wait) {
        return base_test::timed_wait(m, *until);
    }
    const int error = takeFault("pthread_cond_timedwait");
    return error != 0 ? error : __real_pthread_cond_timedwait(c, m, until);
}

int __real_clock_gettime(clockid_t id, timespec* time);
int __wrap_clock_gettime(clockid_t id, timespec* time) {
    return takeFault("clock_gettime") != 0 ? -1 : __real_clock_gettime(id, time);
}

void* __real__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);
void* __wrap__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& tag) {
    return takeFault("new[]") != 0 ? nullptr : __real__ZnamRKSt9nothrow_t(size, tag);
}

}  // extern "C"
