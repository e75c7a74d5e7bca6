// Memory of operator new runs short as that of malloc() does, in programs whose code copes with it. The linker's --wrap
// options send what is asked for here.

#include <new>

#include "support/findings.h"

extern "C" {
void* __real__Znwm(size_t size);
void* __real__Znam(size_t size);
void* __wrap__Znwm(size_t size);
void* __wrap__Znam(size_t size);

void* __wrap__Znwm(size_t size) {
    if (!fuzzing::AllocationWatch::Grants(size)) {
        throw std::bad_alloc();
    }
    return __real__Znwm(size);
}

void* __wrap__Znam(size_t size) {
    if (!fuzzing::AllocationWatch::Grants(size)) {
        throw std::bad_alloc();
    }
    return __real__Znam(size);
}
}
