#ifndef TESTS_UPTIME_HEAP_ACCOUNT_H
#define TESTS_UPTIME_HEAP_ACCOUNT_H

/// @file heap_account.h
/// An exact account of what the library takes of the heap. For a test program that links the library's objects with
/// the linker's --wrap options, which send their malloc, calloc, realloc, new, free and delete here. What the C and
/// C++ libraries allocate for themselves is not in it: that varies with paths, times and versions.

#include <cstddef>
#include <ostream>

namespace test_support {

/// What is held of the heap: allocated and not released.
struct Held {
    size_t allocations = 0;
    size_t bytes = 0; ///< as they were asked for

    bool operator==(const Held& other) const {
        return allocations == other.allocations && bytes == other.bytes;
    }
};

inline std::ostream& operator<<(std::ostream& out, const Held& held) {
    return out << held.bytes << " bytes in " << held.allocations << " allocations";
}

/// Keeps account while it lives; only one at a time. What was allocated before counts nothing. What the
/// program's own code allocates meanwhile must not be released by another library's.
class HeapAccount {
public:
    HeapAccount();
    ~HeapAccount();
    HeapAccount(const HeapAccount&) = delete;
    HeapAccount& operator=(const HeapAccount&) = delete;

    /// What is held at this moment of what was allocated since the account was opened.
    Held Now() const;
};

} // namespace test_support

#endif // TESTS_UPTIME_HEAP_ACCOUNT_H
