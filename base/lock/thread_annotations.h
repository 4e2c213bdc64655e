#pragma once

// Declares in code which lock guards what. clang's `-Wthread-safety` checks the declarations
// (preset `clang-thread-safety`); other compilers see nothing.
//
// The analysis checks one function at a time, so it can't follow a recursive lock through calls. A
// function that may be entered with or without its lock has no annotation; its comment says so.

#if defined(__clang__)
#define ZO_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ZO_THREAD_ATTRIBUTE(x)
#endif

#define ZO_CAPABILITY(name) ZO_THREAD_ATTRIBUTE(capability(name))
#define ZO_SCOPED_CAPABILITY ZO_THREAD_ATTRIBUTE(scoped_lockable)
#define ZO_GUARDED_BY(lock) ZO_THREAD_ATTRIBUTE(guarded_by(lock))
#define ZO_REQUIRES(...) ZO_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ZO_EXCLUDES(...) ZO_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ZO_ACQUIRE(...) ZO_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ZO_ACQUIRE_SHARED(...) ZO_THREAD_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define ZO_TRY_ACQUIRE(...) ZO_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define ZO_ASSERT_CAPABILITY(lock) ZO_THREAD_ATTRIBUTE(assert_capability(lock))
#define ZO_RELEASE(...) ZO_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ZO_RELEASE_SHARED(...) ZO_THREAD_ATTRIBUTE(release_shared_capability(__VA_ARGS__))
#define ZO_ACQUIRED_AFTER(...) ZO_THREAD_ATTRIBUTE(acquired_after(__VA_ARGS__))
#define ZO_NO_THREAD_SAFETY_ANALYSIS ZO_THREAD_ATTRIBUTE(no_thread_safety_analysis)
