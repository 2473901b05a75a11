// SPDX-License-Identifier: Apache-2.0
#pragma once

/// \file
/// Lock annotations that clang's -Wthread-safety checks; other compilers see nothing.

#if defined(__clang__)
#define BOOTWEAVE_ANNOTATION(x) __attribute__((x))
#else
#define BOOTWEAVE_ANNOTATION(x)
#endif

#define CAPABILITY(name) BOOTWEAVE_ANNOTATION(capability(name))
#define SCOPED_CAPABILITY BOOTWEAVE_ANNOTATION(scoped_lockable)
#define GUARDED_BY(lock) BOOTWEAVE_ANNOTATION(guarded_by(lock))
#define REQUIRES(...) BOOTWEAVE_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) BOOTWEAVE_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) BOOTWEAVE_ANNOTATION(release_capability(__VA_ARGS__))
#define ASSERT_CAPABILITY(lock) BOOTWEAVE_ANNOTATION(assert_capability(lock))
#define NO_THREAD_SAFETY_ANALYSIS BOOTWEAVE_ANNOTATION(no_thread_safety_analysis)
