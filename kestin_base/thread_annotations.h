#pragma once

// Which lock guards what, in the words of clang's thread safety analysis, which checks them when
// clang compiles; other compilers see nothing.
#if defined(__clang__)
#define KESTIN_THREAD_ANNOTATION(text) __attribute__((text))
#else
#define KESTIN_THREAD_ANNOTATION(text)
#endif

#define KESTIN_CAPABILITY(name) KESTIN_THREAD_ANNOTATION(capability(name))
#define KESTIN_SCOPED_CAPABILITY KESTIN_THREAD_ANNOTATION(scoped_lockable)
#define KESTIN_GUARDED_BY(locker) KESTIN_THREAD_ANNOTATION(guarded_by(locker))
#define KESTIN_REQUIRES(...) KESTIN_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define KESTIN_EXCLUDES(...) KESTIN_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define KESTIN_ACQUIRE(...) KESTIN_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define KESTIN_RELEASE(...) KESTIN_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define KESTIN_UNCHECKED KESTIN_THREAD_ANNOTATION(no_thread_safety_analysis)
