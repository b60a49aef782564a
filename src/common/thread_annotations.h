// Names for clang's thread safety analysis. The project's clang build checks them; for other compilers they are empty.
#pragma once

#if defined(__clang__)
#define ZEL_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ZEL_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) ZEL_THREAD_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY ZEL_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) ZEL_THREAD_ATTRIBUTE(guarded_by(x))
#define REQUIRES(...) ZEL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) ZEL_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) ZEL_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) ZEL_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS ZEL_THREAD_ATTRIBUTE(no_thread_safety_analysis)
