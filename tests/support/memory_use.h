#ifndef TESTS_SUPPORT_MEMORY_USE_H
#define TESTS_SUPPORT_MEMORY_USE_H

#include <cstddef>

namespace test_support {

/// Bytes of the heap that are in use, by the allocator's own account: that of the C library, or of the address
/// sanitizer that stands in for it.
size_t HeapInUse();

/// Pages of this process in memory, in bytes.
size_t ResidentBytes();

/// Descriptors that this process holds open.
size_t OpenDescriptors();

} // namespace test_support

#endif // TESTS_SUPPORT_MEMORY_USE_H
