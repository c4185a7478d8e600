#include "faults/Fault.h"

#include <curl/curl.h>
#include <dirent.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace fault_test {
namespace {

constexpr int kNone = -1;

std::atomic<int> armedPoint{kNone};
std::atomic<int> calls{0};
std::atomic<bool> hasFired{false};
Fault::Options armed;    // written while nothing is armed
pthread_t armingThread;  // likewise
thread_local bool exempt = false;

bool isMeant() {
    if (armed.on != On::AgentThreads) {
        return armed.on == On::AllThreads || pthread_equal(pthread_self(), armingThread) != 0;
    }
    char name[16] = "";
    return pthread_getname_np(pthread_self(), name, sizeof(name)) == 0 && std::strcmp(name, "loc-mq-thread") == 0;
}

/// Whether this call is the one; errno is set then.
bool fails(Point point) {
    if (armedPoint.load(std::memory_order_acquire) != static_cast<int>(point) || exempt || !isMeant()) {
        return false;
    }
    const int call = ++calls;
    if (call < armed.nth || call >= armed.nth + armed.times) {
        return false;
    }
    errno = armed.error;
    hasFired = true;
    return true;
}

}  // namespace

Fault::Fault(Point point, const Options& options) {
    armed = options;
    armingThread = pthread_self();
    calls = 0;
    hasFired = false;
    armedPoint.store(static_cast<int>(point), std::memory_order_release);
}

Fault::~Fault() {
    armedPoint = kNone;
}

bool Fault::fired() {
    return hasFired;
}

void prepareCurl() {
    constexpr Point kHere = Point::CurlMemory;
    (void)curl_global_init_mem(
        CURL_GLOBAL_ALL, [](size_t size) { return fails(kHere) ? nullptr : std::malloc(size); }, std::free,
        [](void* old, size_t size) { return fails(kHere) ? nullptr : std::realloc(old, size); },
        [](const char* text) { return fails(kHere) ? nullptr : strdup(text); },
        [](size_t count, size_t size) { return fails(kHere) ? nullptr : std::calloc(count, size); });
}

}  // namespace fault_test

using fault_test::fails;
using fault_test::Point;

// The linker leads the product's calls to __wrap_ and these calls to the real ones.
#define FAULT_POINT(point, failure, type, name, parameters, arguments)    \
    type __real_##name parameters;                                        \
    type __wrap_##name parameters {                                       \
        return fails(Point::point) ? (failure) : __real_##name arguments; \
    }

extern "C" {

FAULT_POINT(NothrowNew, nullptr, void*, _ZnwmRKSt9nothrow_t, (size_t size, const std::nothrow_t& tag), (size, tag))
FAULT_POINT(NothrowNew, nullptr, void*, _ZnamRKSt9nothrow_t, (size_t size, const std::nothrow_t& tag), (size, tag))
FAULT_POINT(PlainNew, throw std::bad_alloc(), void*, _Znwm, (size_t size), (size))
FAULT_POINT(PlainNew, throw std::bad_alloc(), void*, _Znam, (size_t size), (size))
FAULT_POINT(Bind, -1, int, bind, (int fd, const sockaddr* address, socklen_t size), (fd, address, size))
FAULT_POINT(Chmod, -1, int, chmod, (const char* path, mode_t mode), (path, mode))
FAULT_POINT(Fchmod, -1, int, fchmod, (int fd, mode_t mode), (fd, mode))
FAULT_POINT(Ftruncate, -1, int, ftruncate, (int fd, off_t size), (fd, size))
FAULT_POINT(MemfdCreate, -1, int, memfd_create, (const char* name, unsigned flags), (name, flags))
FAULT_POINT(Mmap, MAP_FAILED, void*, mmap, (void* at, size_t size, int protection, int flags, int fd, off_t offset),
            (at, size, protection, flags, fd, offset))
FAULT_POINT(Opendir, nullptr, DIR*, opendir, (const char* path), (path))
FAULT_POINT(PthreadCreate, errno, int, pthread_create,
            (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument),
            (thread, attributes, body, argument))
FAULT_POINT(Recv, -1, ssize_t, recv, (int fd, void* data, size_t size, int flags), (fd, data, size, flags))
FAULT_POINT(Recvmsg, -1, ssize_t, recvmsg, (int fd, msghdr* message, int flags), (fd, message, flags))
FAULT_POINT(Sendmsg, -1, ssize_t, sendmsg, (int fd, const msghdr* message, int flags), (fd, message, flags))
FAULT_POINT(Socket, -1, int, socket, (int family, int type, int protocol), (family, type, protocol))
FAULT_POINT(Symlink, -1, int, symlink, (const char* target, const char* path), (target, path))
FAULT_POINT(Write, -1, ssize_t, write, (int fd, const void* data, size_t size), (fd, data, size))

int __real___android_log_print(int priority, const char* tag, const char* format, ...);
int __wrap___android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

int __wrap___android_log_print(int priority, const char* tag, const char* format, ...) {
    char text[2048];
    va_list args;
    va_start(args, format);
    (void)std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    const int saved = errno;
    fault_test::exempt = true;
    const int result = __real___android_log_print(priority, tag, "%s", text);
    fault_test::exempt = false;
    errno = saved;
    return result;
}

}  // extern "C"
