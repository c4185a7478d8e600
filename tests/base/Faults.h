#pragma once

#include <pthread.h>

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace base_test {

/// While it lives, one call of a C library function on this thread fails: it returns the error (or -1, or null, as the
/// function does) and errno is kFaultErrno, so that a line that shows errno can be told from one that shows the result.
class Fault {
public:
    /// @param skip so many calls succeed first
    Fault(const char* function, int error, int skip = 0);
    ~Fault();
    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;

private:
    friend int takeFault(const char* function);

    std::string mFunction;
    int mError;
    int mCallsLeft;
    Fault* mNext;
};

constexpr int kFaultErrno = 33;  // EDOM: nothing else gives it
constexpr char kFaultText[] = "33, [Numerical argument out of domain]";

/// Called instead of pthread_cond_timedwait on this thread while set.
extern thread_local std::function<int(pthread_mutex_t*, const timespec&)> timed_wait;

/// One fault each for a set of functions, and the code that is to come of it.
struct FaultCase {
    std::vector<const char*> functions;
    int code;
};

}  // namespace base_test
