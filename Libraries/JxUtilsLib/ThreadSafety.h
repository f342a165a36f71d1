#pragma once

/// \file
/// Lock annotations: clang proves at compile time that a field marked JX_GUARDED_BY(mLock) is touched only
/// with that lock held (-Wthread-safety). Other compilers see nothing.

#if defined(__clang__)
#define JX_THREAD_ANNOTATION(aWhat) __attribute__((aWhat))
#else
#define JX_THREAD_ANNOTATION(aWhat)
#endif

#define JX_CAPABILITY(aName) JX_THREAD_ANNOTATION(capability(aName))
#define JX_SCOPED_CAPABILITY JX_THREAD_ANNOTATION(scoped_lockable)
#define JX_GUARDED_BY(aLock) JX_THREAD_ANNOTATION(guarded_by(aLock))
#define JX_REQUIRES(...) JX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define JX_ACQUIRE(...) JX_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define JX_RELEASE(...) JX_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define JX_NO_THREAD_SAFETY_ANALYSIS JX_THREAD_ANNOTATION(no_thread_safety_analysis)
