// Takes the place of the C library's allocator and counts its calls.
#include <cstddef>

extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* memory, size_t size);

namespace {
unsigned long calls = 0;
}

unsigned long allocation_count() {
    return calls;
}

extern "C" void* malloc(size_t size) {
    ++calls;
    return __libc_malloc(size);
}
extern "C" void* calloc(size_t count, size_t size) {
    ++calls;
    return __libc_calloc(count, size);
}
extern "C" void* realloc(void* memory, size_t size) {
    ++calls;
    return __libc_realloc(memory, size);
}
