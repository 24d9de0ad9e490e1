// Tells AddressSanitizer which bytes of the pool are in use, so that a read of a released block
// or behind the end of a value shows; nothing in other builds.
#pragma once

#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) && !defined(__SANITIZE_ADDRESS__)
#define __SANITIZE_ADDRESS__ 1
#endif
#endif

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>

inline void poison(void const* memory, int size) {
    __asan_poison_memory_region(memory, size_t(size));
}
inline void unpoison(void const* memory, int size) {
    __asan_unpoison_memory_region(memory, size_t(size));
}
#else
inline void poison(void const*, int) {}
inline void unpoison(void const*, int) {}
#endif
