#ifndef TESTS_SUPPORT_WRAPPED_ALLOCATIONS_H
#define TESTS_SUPPORT_WRAPPED_ALLOCATIONS_H

/// @file wrapped_allocations.h
/// The names that the linker's --wrap gives to a function and to the one it stands in for; wrap_allocations.cmake has
/// the functions. The operators have their mangled names, which differ with the width of size_t.

#include <cstddef>
#include <new>

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

} // extern "C"

#endif // TESTS_SUPPORT_WRAPPED_ALLOCATIONS_H
