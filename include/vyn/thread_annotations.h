// SPDX-License-Identifier: Apache-2.0

#pragma once

// Clang's thread-safety annotations (https://clang.llvm.org/docs/ThreadSafetyAnalysis.html); other
// compilers see nothing.
#if defined(__clang__)
#define VYN_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VYN_THREAD_ANNOTATION(x)
#endif

#define VYN_CAPABILITY(name) VYN_THREAD_ANNOTATION(capability(name))
#define VYN_SCOPED_CAPABILITY VYN_THREAD_ANNOTATION(scoped_lockable)
#define VYN_GUARDED_BY(lock) VYN_THREAD_ANNOTATION(guarded_by(lock))
#define VYN_REQUIRES(...) VYN_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define VYN_EXCLUDES(...) VYN_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define VYN_ACQUIRE(...) VYN_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VYN_RELEASE(...) VYN_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define VYN_ASSERT_HELD(...) VYN_THREAD_ANNOTATION(assert_capability(__VA_ARGS__))
