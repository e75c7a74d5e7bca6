#ifndef TESTS_FOOTPRINT_HEAP_H
#define TESTS_FOOTPRINT_HEAP_H

/// @file heap.h
/// How much heap is in use. For a program that links the library's objects with the linker's --wrap options, which
/// send their malloc, calloc, realloc, free, new and delete here.

#include <cstddef>

namespace test_support {

/// Watches the heap while it lives; only one at a time. What was allocated before counts nothing, and must not be
/// freed meanwhile.
class HeapWatch {
public:
    HeapWatch();
    ~HeapWatch();
    HeapWatch(const HeapWatch&) = delete;
    HeapWatch& operator=(const HeapWatch&) = delete;

    /// Bytes in use, as the allocator hands them out: more than was asked for.
    size_t Held() const { return m_held; }
    /// The most that was ever in use since the last call of ForgetPeak().
    size_t Peak() const { return m_peak; }
    void ForgetPeak() { m_peak = m_held; }

    void Add(size_t size);
    void Drop(size_t size);

private:
    size_t m_held = 0;
    size_t m_peak = 0;
};

} // namespace test_support

#endif // TESTS_FOOTPRINT_HEAP_H
