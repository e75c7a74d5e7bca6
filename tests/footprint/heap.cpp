#include "footprint/heap.h"

#include <malloc.h>

#include <algorithm>
#include <new>
#include <stdexcept>

namespace test_support {

namespace {

HeapWatch* g_watch = nullptr;

void* Added(void* memory) {
    if (g_watch != nullptr && memory != nullptr) {
        g_watch->Add(malloc_usable_size(memory));
    }
    return memory;
}

void Drop(size_t size) {
    if (g_watch != nullptr) {
        g_watch->Drop(size);
    }
}

} // namespace

HeapWatch::HeapWatch() {
    if (g_watch != nullptr) {
        throw std::logic_error("the heap is being watched already");
    }
    g_watch = this;
}

HeapWatch::~HeapWatch() {
    g_watch = nullptr;
}

void HeapWatch::Add(size_t size) {
    m_held += size;
    m_peak = std::max(m_peak, m_held);
}

void HeapWatch::Drop(size_t size) {
    m_held -= size;
}

} // namespace test_support

using test_support::Added;
using test_support::Drop;

// The names that the linker's --wrap gives to a function and to the one it stands in for. The operators bear their
// mangled names, which differ with the width of size_t.
#if __SIZEOF_SIZE_T__ == 8
#define NEW_NAME(prefix) prefix##_Znwm
#define NOTHROW_NEW_NAME(prefix) prefix##_ZnwmRKSt9nothrow_t
#define SIZED_DELETE_NAME(prefix) prefix##_ZdlPvm
#else
#define NEW_NAME(prefix) prefix##_Znwj
#define NOTHROW_NEW_NAME(prefix) prefix##_ZnwjRKSt9nothrow_t
#define SIZED_DELETE_NAME(prefix) prefix##_ZdlPvj
#endif

extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);
void __real_free(void* memory);
void* NEW_NAME(__real_)(size_t size);
void* NOTHROW_NEW_NAME(__real_)(size_t size, const std::nothrow_t& tag);
void __real__ZdlPv(void* memory);
void SIZED_DELETE_NAME(__real_)(void* memory, size_t size);

void* __wrap_malloc(size_t size) {
    return Added(__real_malloc(size));
}

void* __wrap_calloc(size_t count, size_t size) {
    return Added(__real_calloc(count, size));
}

void* __wrap_realloc(void* memory, size_t size) {
    // Both may be there for a moment: the peak counts them together.
    const size_t before = malloc_usable_size(memory);
    void* const grown = Added(__real_realloc(memory, size));
    if (grown != nullptr) {
        Drop(before);
    }
    return grown;
}

void __wrap_free(void* memory) {
    Drop(malloc_usable_size(memory));
    __real_free(memory);
}

void* NEW_NAME(__wrap_)(size_t size) {
    return Added(NEW_NAME(__real_)(size));
}

void* NOTHROW_NEW_NAME(__wrap_)(size_t size, const std::nothrow_t& tag) {
    return Added(NOTHROW_NEW_NAME(__real_)(size, tag));
}

void __wrap__ZdlPv(void* memory) {
    Drop(malloc_usable_size(memory));
    __real__ZdlPv(memory);
}

void SIZED_DELETE_NAME(__wrap_)(void* memory, size_t size) {
    Drop(malloc_usable_size(memory));
    SIZED_DELETE_NAME(__real_)(memory, size);
}

} // extern "C"
