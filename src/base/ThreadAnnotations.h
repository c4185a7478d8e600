#pragma once

// Clang's thread-safety attributes; nothing under other compilers. A lock() that returns 0 on success is
// TRY_ACQUIRE(false): the analysis then demands that the caller looks at the result.

#if defined(__clang__)
#define ZV_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ZV_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) ZV_THREAD_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY ZV_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) ZV_THREAD_ATTRIBUTE(guarded_by(x))
#define PT_GUARDED_BY(x) ZV_THREAD_ATTRIBUTE(pt_guarded_by(x))
#define REQUIRES(...) ZV_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) ZV_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) ZV_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) ZV_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) ZV_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define RETURN_CAPABILITY(x) ZV_THREAD_ATTRIBUTE(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS ZV_THREAD_ATTRIBUTE(no_thread_safety_analysis)
