#include "support/allocations.h"

#include <algorithm>
#include <new>
#include <stdexcept>

namespace test_support {

namespace {

AllocationFaults* g_faults = nullptr;

bool Fails(size_t size) {
    return g_faults != nullptr && g_faults->Note(size);
}

} // namespace

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

} // namespace test_support

using test_support::Fails;

// The names that the linker's --wrap gives to a function and to the one it stands in for. The new operators
// bear their mangled names, which differ with the width of size_t.
extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);

void* __wrap_malloc(size_t size) {
    return Fails(size) ? nullptr : __real_malloc(size);
}

void* __wrap_calloc(size_t count, size_t size) {
    return Fails(count * size) ? nullptr : __real_calloc(count, size);
}

void* __wrap_realloc(void* memory, size_t size) {
    return Fails(size) ? nullptr : __real_realloc(memory, size);
}

#if __SIZEOF_SIZE_T__ == 8
#define NEW_NAME(prefix) prefix##_Znwm
#define NOTHROW_NEW_NAME(prefix) prefix##_ZnwmRKSt9nothrow_t
#else
#define NEW_NAME(prefix) prefix##_Znwj
#define NOTHROW_NEW_NAME(prefix) prefix##_ZnwjRKSt9nothrow_t
#endif

void* NEW_NAME(__real_)(size_t size);
void* NOTHROW_NEW_NAME(__real_)(size_t size, const std::nothrow_t& tag);

void* NEW_NAME(__wrap_)(size_t size) {
    if (Fails(size)) {
        throw std::bad_alloc();
    }
    return NEW_NAME(__real_)(size);
}

void* NOTHROW_NEW_NAME(__wrap_)(size_t size, const std::nothrow_t& tag) {
    return Fails(size) ? nullptr : NOTHROW_NEW_NAME(__real_)(size, tag);
}

} // extern "C"
