#ifndef FUZZ_SUPPORT_FINDINGS_H
#define FUZZ_SUPPORT_FINDINGS_H

/// @file findings.h
/// What a run complains of besides what the sanitizers see.

#include "comm_list"

namespace fuzzing {

/// Says what is wrong on standard error and ends the process; libFuzzer then keeps the input.
[[noreturn]] void Report(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Reports @p what unless @p holds.
inline void Require(bool holds, const char* what) {
    if (!holds) {
        Report("%s", what);
    }
}

/// Requires that a list's nodes, forwards and backwards, are as many as it says.
template <typename T>
void RequireSound(const CCommList<T>& list) {
    int count = 0;
    const CCommListNode<T>* previous = nullptr;
    for (const auto* node = list.m_pHead; node != nullptr; node = node->pNext) {
        Require(node->pPrev == previous, "a list's node does not lead back to the one before");
        previous = node;
        ++count;
    }
    Require(list.m_pTail == previous, "a list's tail is not its last node");
    Require(list.m_nCount == count, "a list does not hold as many nodes as it says");
}

/// Watches what malloc(), calloc() and realloc() are asked for while it lives, by the thread that made it; only one at a
/// time. In programs with operator_new.cpp, also what operator new is asked for.
class AllocationWatch {
public:
    /// Never refuses a small one.
    static constexpr size_t kNone = static_cast<size_t>(-1);

    /// Refuses the allocation with index @p first, counted from 0, and all after it if @p forever.
    explicit AllocationWatch(size_t first = kNone, bool forever = false);
    ~AllocationWatch();
    AllocationWatch(const AllocationWatch&) = delete;
    AllocationWatch& operator=(const AllocationWatch&) = delete;

    /// The largest asked for, in bytes. The largest ones are refused.
    size_t Largest() const;

    /// Refuses no more from here on, and does not note it either.
    static void End();

    /// Notes what is asked for, if there is a watch.
    /// @return whether it is to be had
    static bool Grants(size_t size);
};

/// Bytes that are allocated now; 0 where nothing counts them.
size_t Allocated();

/// Requires that @p size bytes at @p data belong to the caller, to read and write.
void RequireAddressable(const void* data, size_t size);

} // namespace fuzzing

#endif // FUZZ_SUPPORT_FINDINGS_H
