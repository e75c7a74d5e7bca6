#ifndef TESTS_SUPPORT_ALLOCATIONS_H
#define TESTS_SUPPORT_ALLOCATIONS_H

/// @file allocations.h
/// Makes allocations fail, counts those that were not released, and tells how much heap is in use. For a test program that links the library's
/// objects with the linker's --wrap options, which send their malloc, calloc, realloc, new, free and delete here.

#include <cstddef>

namespace test_support {

/// Counts the allocations made while it lives, and lets some of them fail; only one at a time.
class AllocationFaults {
public:
    static constexpr size_t kNone = static_cast<size_t>(-1);

    /// Fails the allocation with index @p first, counted from 0, and all after it if @p forever.
    explicit AllocationFaults(size_t first = kNone, bool forever = false);
    ~AllocationFaults();
    AllocationFaults(const AllocationFaults&) = delete;
    AllocationFaults& operator=(const AllocationFaults&) = delete;

    /// Allocations asked for so far.
    size_t Count() const { return m_count; }
    /// The largest of them, in bytes.
    size_t Largest() const { return m_largest; }

    /// Whether an allocation of @p size bytes is to fail.
    bool Note(size_t size);

private:
    size_t m_first;
    bool m_forever;
    size_t m_count = 0;
    size_t m_largest = 0;
};

/// Allocations made less those released. What is made by the test program's own code but released elsewhere, or
/// the other way round, is miscounted: compare two of these around code that only calls the library.
long AllocationsHeld();

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
    /// The most that was ever in use.
    size_t Peak() const { return m_peak; }

    void Add(size_t size);
    void Drop(size_t size) { m_held -= size; }

private:
    size_t m_held = 0;
    size_t m_peak = 0;
};

} // namespace test_support

#endif // TESTS_SUPPORT_ALLOCATIONS_H
