// SPDX-License-Identifier: MIT
#pragma once

/// Attributes for clang's thread-safety analysis; empty for other compilers.

#if defined(__clang__)
#define VELK_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define VELK_THREAD_ANNOTATION(attribute)
#endif

#define VELK_CAPABILITY(name) VELK_THREAD_ANNOTATION(capability(name))
#define VELK_SCOPED_CAPABILITY VELK_THREAD_ANNOTATION(scoped_lockable)
#define VELK_GUARDED_BY(mutex) VELK_THREAD_ANNOTATION(guarded_by(mutex))
#define VELK_ACQUIRE(...) VELK_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VELK_RELEASE(...) VELK_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
