#include "support/findings.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FUZZING_WITH_ADDRESS_SANITIZER 1
#include <sanitizer/allocator_interface.h>
#include <sanitizer/asan_interface.h>
#endif
#endif

namespace fuzzing {

namespace {

/// More than this is not to be had: the library must cope, and so must the host.
constexpr size_t kLargestAllocation = 64 << 20;

thread_local bool t_watching = false; ///< whether this thread is watched
size_t g_largest = 0;
size_t g_count = 0;
size_t g_first = AllocationWatch::kNone; ///< the first to be refused
bool g_forever = false;

} // namespace

void Report(const char* format, ...) {
    va_list values;
    va_start(values, format);
    std::fputs("FINDING: ", stderr);
    std::vfprintf(stderr, format, values);
    std::fputs("\n", stderr);
    va_end(values);
    std::abort();
}

AllocationWatch::AllocationWatch(size_t first, bool forever) {
    g_largest = 0;
    g_count = 0;
    g_first = first;
    g_forever = forever;
    t_watching = true;
}

AllocationWatch::~AllocationWatch() {
    End();
}

void AllocationWatch::End() {
    t_watching = false;
}

size_t AllocationWatch::Largest() const {
    return g_largest;
}

bool AllocationWatch::Grants(size_t size) {
    if (!t_watching) {
        return true;
    }
    g_largest = size > g_largest ? size : g_largest;
    const size_t index = g_count++;
    const bool refused = index == g_first || (g_forever && index > g_first);
    return !refused && size <= kLargestAllocation;
}

size_t Allocated() {
#ifdef FUZZING_WITH_ADDRESS_SANITIZER
    return __sanitizer_get_current_allocated_bytes();
#else
    return 0;
#endif
}

void RequireAddressable(const void* data, size_t size) {
    Require(data != nullptr, "a delivered payload has no buffer");
#ifdef FUZZING_WITH_ADDRESS_SANITIZER
    Require(__asan_region_is_poisoned(const_cast<void*>(data), size) == nullptr,
            "a payload's buffer is smaller than the payload, or was freed");
#else
    (void)size;
#endif
}

} // namespace fuzzing

// The linker's --wrap options send allocations here.
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* memory, size_t size);

void* __wrap_malloc(size_t size) {
    return fuzzing::AllocationWatch::Grants(size) ? __real_malloc(size) : nullptr;
}

void* __wrap_calloc(size_t count, size_t size) {
    size_t bytes = 0;
    const bool wraps = __builtin_mul_overflow(count, size, &bytes);
    return !wraps && fuzzing::AllocationWatch::Grants(bytes) ? __real_calloc(count, size) : nullptr;
}

void* __wrap_realloc(void* memory, size_t size) {
    return fuzzing::AllocationWatch::Grants(size) ? __real_realloc(memory, size) : nullptr;
}
}

#ifdef FUZZING_WITH_ADDRESS_SANITIZER
/// Small memory that was freed waits for its accident; there is no need to hold back much of it.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1:quarantine_size_mb=16:malloc_context_size=8";
}
#endif
