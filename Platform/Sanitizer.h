#pragma once

/// Which sanitizer looks on: KX_ADDRESS_SANITIZER and KX_THREAD_SANITIZER are 1 or 0. GCC says it by macros of its own,
/// clang by features.

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KX_ADDRESS_SANITIZER 1
#endif
#if __has_feature(thread_sanitizer)
#define KX_THREAD_SANITIZER 1
#endif
#endif

#if defined(__SANITIZE_ADDRESS__)
#define KX_ADDRESS_SANITIZER 1
#elif !defined(KX_ADDRESS_SANITIZER)
#define KX_ADDRESS_SANITIZER 0
#endif

#if defined(__SANITIZE_THREAD__)
#define KX_THREAD_SANITIZER 1
#elif !defined(KX_THREAD_SANITIZER)
#define KX_THREAD_SANITIZER 0
#endif
