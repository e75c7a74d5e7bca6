#include "support/allocations.h"

#include <malloc.h>

#include <algorithm>
#include <new>
#include <stdexcept>

#include "support/wrapped_allocations.h"

namespace test_support {

namespace {

AllocationFaults* g_faults = nullptr;
HeapWatch* g_heap = nullptr;
long g_held = 0;

bool Fails(size_t size) {
    return g_faults != nullptr && g_faults->Note(size);
}

void* Counted(void* memory) {
    if (memory != nullptr) {
        ++g_held;
        if (g_heap != nullptr) {
            g_heap->Add(malloc_usable_size(memory));
        }
    }
    return memory;
}

void* Released(void* memory) {
    if (memory != nullptr) {
        --g_held;
        if (g_heap != nullptr) {
            g_heap->Drop(malloc_usable_size(memory));
        }
    }
    return memory;
}

/// Counts memory that took the place of @p before bytes. Both may be there for a moment: the peak counts them
/// together.
void* Resized(size_t before, void* memory) {
    if (memory != nullptr && g_heap != nullptr) {
        g_heap->Add(malloc_usable_size(memory));
        g_heap->Drop(before);
    }
    return memory;
}

} // namespace

long AllocationsHeld() {
    return g_held;
}

AllocationFaults::AllocationFaults(size_t first, bool forever) : m_first(first), m_forever(forever) {
    if (g_faults != nullptr) {
        throw std::logic_error("allocations are being watched already");
    }
    g_faults = this;
}

AllocationFaults::~AllocationFaults() {
    g_faults = nullptr;
}

bool AllocationFaults::Note(size_t size) {
    m_largest = std::max(m_largest, size);
    const size_t index = m_count++;
    return index == m_first || (m_forever && index > m_first);
}

HeapWatch::HeapWatch() {
    if (g_heap != nullptr) {
        throw std::logic_error("the heap is being watched already");
    }
    g_heap = this;
}

HeapWatch::~HeapWatch() {
    g_heap = nullptr;
}

void HeapWatch::Add(size_t size) {
    m_held += size;
    m_peak = std::max(m_peak, m_held);
}

} // namespace test_support

using test_support::Counted;
using test_support::Fails;
using test_support::Released;
using test_support::Resized;

extern "C" {

void* __wrap_malloc(size_t size) {
    return Fails(size) ? nullptr : Counted(__real_malloc(size));
}

void* __wrap_calloc(size_t count, size_t size) {
    return Fails(count * size) ? nullptr : Counted(__real_calloc(count, size));
}

void* __wrap_realloc(void* memory, size_t size) {
    if (Fails(size)) {
        return nullptr;
    }
    if (memory == nullptr) {
        return Counted(__real_realloc(memory, size));
    }
    const size_t before = malloc_usable_size(memory);
    return Resized(before, __real_realloc(memory, size));
}

void __wrap_free(void* memory) {
    __real_free(Released(memory));
}

void* NEW_NAME(__wrap_)(size_t size) {
    if (Fails(size)) {
        throw std::bad_alloc();
    }
    return Counted(NEW_NAME(__real_)(size));
}

void* NOTHROW_NEW_NAME(__wrap_)(size_t size, const std::nothrow_t& tag) {
    return Fails(size) ? nullptr : Counted(NOTHROW_NEW_NAME(__real_)(size, tag));
}

void __wrap__ZdlPv(void* memory) {
    __real__ZdlPv(Released(memory));
}

void SIZED_DELETE_NAME(__wrap_)(void* memory, size_t size) {
    SIZED_DELETE_NAME(__real_)(Released(memory), size);
}

} // extern "C"
